// Scalar reference of the fill engine's per-component rules, written from the rules themselves (not from the
// library's code), and the helpers the fill tests share. Components travel as 32-bit patterns: integers as their
// value, floats as their bits, halves in the low 16 bits.
#pragma once

// Round every operation separately, as the rules do.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#include "platform/HalfReference.h"

#include <IMB/IMB_Fill.h>

#include <vector>

namespace fillref
{
using namespace halfref;

inline const char *formatName(IMB_DataFormat f)
{
    static const char *names[] = {"Int8", "Int16", "Int32", "Float32", "Float16"};
    return names[f];
}
inline bool isInteger(IMB_DataFormat f) { return f == IMB_INT8 || f == IMB_INT16 || f == IMB_INT32; }
inline uint32 whiteOf(IMB_DataFormat f) { return f == IMB_INT8 ? 0xFFu : f == IMB_INT16 ? 0xFFFFu : 0xFFFFFFFFu; }

struct Points
{
    uint32 sb = 0, sw = 255, db = 0, dw = 255;
};

// floor(y) clamped to [0, white]; NaN counts as below black.
inline uint32 clampFloorF(float y, uint32 white)
{
    const float r = std::floor(y);
    return std::isnan(r) || r <= 0.0f ? 0 : r >= static_cast<float>(white) ? white : static_cast<uint32>(r);
}
inline uint32 clampFloorD(double y)
{
    const double r = std::floor(y);
    return std::isnan(r) || r <= 0.0 ? 0 : r >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<uint32>(r);
}

// The fraction a source component stands for: float for 8/16-bit, float and half sources, double for 32-bit ones.
struct Fraction
{
    bool isDouble = false;
    float f = 0;
    double d = 0;
};

inline Fraction normalise(IMB_DataFormat s, bool fast, uint32 v, uint32 sb, uint32 sw)
{
    Fraction x;
    if (s == IMB_INT8 || s == IMB_INT16)
    {
        if (fast)
            x.f = static_cast<float>(v) * (s == IMB_INT8 ? 0.003921569f : 1.5259022e-5f);
        else
            x.f = static_cast<float>(static_cast<int32>(v - sb)) *
                  (sb == sw ? 1.0f : 1.0f / static_cast<float>(static_cast<double>(sw) - sb));
    }
    else if (s == IMB_INT32)
    {
        x.isDouble = true;
        if (fast)
            x.d = static_cast<double>(v) / 4294967295.0;
        else
            x.d = static_cast<int32>(v - sb) * (sb == sw ? 1.0 : 1.0 / (static_cast<double>(sw) - sb));
    }
    else
        x.f = s == IMB_FLOAT32 ? asFloat(v) : halfValue(static_cast<uint16>(v));
    return x;
}

inline uint32 writeFraction(IMB_DataFormat d, bool fast, Fraction x, uint32 db, uint32 dw)
{
    const float xf = x.isDouble ? static_cast<float>(x.d) : x.f;
    switch (d)
    {
    case IMB_INT8:
    case IMB_INT16:
    {
        const uint32 M = whiteOf(d);
        if (fast)
            return clampFloorF(xf * static_cast<float>(M) + 0.5f, M);
        const float range = static_cast<float>(static_cast<double>(dw) - db);
        return clampFloorF(xf * range + static_cast<float>(db) + 0.5f, M);
    }
    case IMB_INT32:
        // The stored points are the range, fast or not.
        return clampFloorD((x.isDouble ? x.d : static_cast<double>(x.f)) * (static_cast<double>(dw) - db) + db + 0.5);
    case IMB_FLOAT32:
        return bitsOf(xf);
    default:
        return halfOf(xf);
    }
}

// One component through fill's rules.
inline uint32 convert(IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, uint32 v, const Points &p)
{
    if (isInteger(s) && s == d && p.sb == p.db && p.sw == p.dw)
        return v;
    if (s == IMB_INT32 && d == IMB_INT32 && sf && df)
        return v;
    // Fast 8-bit widening replicates the bits; fast integer narrowing rounds on the highest dropped bit without
    // overflow.
    if (sf && df && s == IMB_INT8 && (d == IMB_INT16 || d == IMB_INT32))
        return v * (d == IMB_INT16 ? 0x0101u : 0x01010101u);
    if (sf && df && isInteger(s) && isInteger(d) && d < s)
    {
        const int shift = s == IMB_INT32 ? (d == IMB_INT8 ? 24 : 16) : 8;
        const uint32 r = v >> shift;
        return ((v >> (shift - 1)) & 1u) && r < whiteOf(d) ? r + 1 : r;
    }
    return writeFraction(d, df, normalise(s, sf, v, p.sb, p.sw), p.db, p.dw);
}

// Gamma table entry i by the build rule, in single precision.
inline uint32 gammaEntry(uint32 i, float g, uint32 black, uint32 white, uint32 M)
{
    const float e = 1.0f / g;
    if (black == 0 && white == M)
        return clampFloorF(std::pow(i * (M == 255 ? 0.003921569f : 1.5259022e-5f), e) * M + 0.5f, M);
    const float range = static_cast<float>(static_cast<double>(white) - black);
    const float b = static_cast<float>(static_cast<double>(i) - black) * (black == white ? 1.0f : 1.0f / range);
    const float p = b >= 0 ? std::pow(b, e) : -std::pow(-b, e);
    return clampFloorF(p * range + static_cast<float>(black) + 0.5f, M);
}

// Component storage of any format as a byte vector, addressed by index; components are little-endian values of 1, 2
// or 4 bytes, and untouched ones hold the pattern of sentinel().
struct Buffer
{
    IMB_DataFormat format;
    std::vector<unsigned char> bytes;

    Buffer(IMB_DataFormat f, size_t count) : format(f), bytes(count * size() + 64, 0xA5) {}
    size_t size() const { return format == IMB_INT8 ? 1 : (format == IMB_INT16 || format == IMB_FLOAT16) ? 2 : 4; }
    void *data() { return bytes.data(); }
    uint32 get(size_t i) const { uint32 v = 0; std::memcpy(&v, &bytes[i * size()], size()); return v; }
    void set(size_t i, uint32 v) { std::memcpy(&bytes[i * size()], &v, size()); }
    uint32 sentinel() const { return Buffer(format, 1).get(0); }
};

// Points the block at the two buffers with the given formats, fast flags, stored points and component strides.
inline void setUp(IMB_FillParms &p, IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, const Points &pts,
                  Buffer &src, Buffer &dst, int64 sInc = 1, int64 dInc = 1)
{
    p.mySource = src.data();
    p.myDest = dst.data();
    p.mySourceType = s;
    p.myDestType = d;
    p.mySourceFast = sf;
    p.myDestFast = df;
    p.mySourceBlack = pts.sb;
    p.mySourceWhite = pts.sw;
    p.myDestBlack = pts.db;
    p.myDestWhite = pts.dw;
    p.mySourceXInc = sInc;
    p.myDestXInc = dInc;
}
// A transfer of width x height pixels between areas at the origin.
inline void runFill(IMB_FillParms &p, IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, const Points &pts,
                    Buffer &src, Buffer &dst, int64 width, int64 height, int64 sInc = 1, int64 dInc = 1)
{
    setUp(p, s, d, sf, df, pts, src, dst, sInc, dInc);
    p.setSourceArea(0, 0, width - 1, height - 1);
    p.setDestArea(0, 0, width - 1, height - 1);
    IMB_Fill::fill(p);
}
inline void runFill(IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, const Points &pts, Buffer &src, Buffer &dst,
                    int64 width, int64 height, int64 sInc = 1, int64 dInc = 1)
{
    IMB_FillParms p;
    runFill(p, s, d, sf, df, pts, src, dst, width, height, sInc, dInc);
}
} // namespace fillref
