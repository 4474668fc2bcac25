// Scalar reference of the fill engine's per-component rules, written from the
// rules themselves (not from the library's code) for the tests to compare
// against. Components travel as 32-bit patterns: integers as their value,
// floats as their bits, halves in the low 16 bits.
#pragma once

// Round every operation separately, as the rules do.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Types.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace fillref
{
inline float asFloat(uint32 bits)
{
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}
inline uint32 bitsOf(float f)
{
    uint32 b;
    std::memcpy(&b, &f, 4);
    return b;
}

inline bool isInteger(IMB_DataFormat f)
{
    return f == IMB_INT8 || f == IMB_INT16 || f == IMB_INT32;
}
inline uint32 whiteOf(IMB_DataFormat f)
{
    return f == IMB_INT8 ? 0xFFu : f == IMB_INT16 ? 0xFFFFu : 0xFFFFFFFFu;
}

// binary16 to float by its definition.
inline float halfValue(uint16 h)
{
    const int sign = h >> 15;
    const int e = (h >> 10) & 31;
    const int m = h & 1023;
    float v;
    if (e == 0)
        v = std::ldexp(static_cast<float>(m), -24);
    else if (e == 31)
        return asFloat((sign ? 0x80000000u : 0u) | 0x7f800000u | (static_cast<uint32>(m) << 13));
    else
        v = std::ldexp(static_cast<float>(1024 + m), e - 25);
    return sign ? -v : v;
}

// float to binary16: normal results by the exponent-table rule (the 13 dropped
// bits rounded half up in magnitude), everything else exactly (denormals to
// nearest even, overflow to infinity, NaN kept with its top payload bits).
inline uint16 halfOf(float f)
{
    const uint32 b = bitsOf(f);
    const uint32 sign = (b >> 16) & 0x8000u;
    const int e = static_cast<int>((b >> 23) & 0xff) - 112;
    const uint32 mant = b & 0x7fffffu;
    if (e > 0 && e < 31)
        return static_cast<uint16>((sign | (static_cast<uint32>(e) << 10)) + ((mant + 0x1000u) >> 13));
    if (((b >> 23) & 0xff) == 0xff)
    {
        if (mant == 0)
            return static_cast<uint16>(sign | 0x7c00u);
        const uint32 top = mant >> 13;
        return static_cast<uint16>(sign | 0x7c00u | top | (top == 0 ? 1u : 0u));
    }
    if (e >= 31)
        return static_cast<uint16>(sign | 0x7c00u);
    // Below the normal range: a multiple of 2^-24, rounded to nearest even.
    const double scaled = std::fabs(static_cast<double>(f)) * 16777216.0;
    return static_cast<uint16>(sign | static_cast<uint32>(std::nearbyint(scaled)));
}

struct Points
{
    uint32 sb = 0, sw = 255, db = 0, dw = 255;
};

// floor(y) clamped to [0, white]; NaN counts as below black.
inline uint32 clampFloorF(float y, uint32 white)
{
    const float r = std::floor(y);
    if (std::isnan(r) || r <= 0.0f)
        return 0;
    if (r >= static_cast<float>(white))
        return white;
    return static_cast<uint32>(r);
}
inline uint32 clampFloorD(double y)
{
    const double r = std::floor(y);
    if (std::isnan(r) || r <= 0.0)
        return 0;
    if (r >= 4294967295.0)
        return 0xFFFFFFFFu;
    return static_cast<uint32>(r);
}

// The fraction a source component stands for: float for 8/16-bit, float and
// half sources, double for 32-bit ones.
struct Fraction
{
    bool isDouble = false;
    float f = 0;
    double d = 0;
};

inline Fraction normalise(IMB_DataFormat s, bool fast, uint32 v, uint32 sb, uint32 sw)
{
    Fraction x;
    switch (s)
    {
    case IMB_INT8:
    case IMB_INT16:
        if (fast)
            x.f = static_cast<float>(v) * (s == IMB_INT8 ? 0.003921569f : 1.5259022e-5f);
        else
        {
            const float factor = sb == sw ? 1.0f : 1.0f / static_cast<float>(static_cast<double>(sw) - sb);
            x.f = static_cast<float>(static_cast<int32>(v - sb)) * factor;
        }
        break;
    case IMB_INT32:
        x.isDouble = true;
        if (fast)
            x.d = static_cast<double>(v) / 4294967295.0;
        else
        {
            const double factor = sb == sw ? 1.0 : 1.0 / (static_cast<double>(sw) - sb);
            x.d = static_cast<double>(static_cast<int32>(v - sb)) * factor;
        }
        break;
    case IMB_FLOAT32:
        x.f = asFloat(v);
        break;
    default:
        x.f = halfValue(static_cast<uint16>(v));
        break;
    }
    return x;
}

inline uint32 writeFraction(IMB_DataFormat d, bool fast, Fraction x, uint32 db, uint32 dw)
{
    const float xf = x.isDouble ? static_cast<float>(x.d) : x.f;
    const double xd = x.isDouble ? x.d : static_cast<double>(x.f);
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
        return clampFloorD(xd * (static_cast<double>(dw) - db) + db + 0.5);
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
    if (sf && df)
    {
        if (s == IMB_INT8 && d == IMB_INT16)
            return v * 257u;
        if (s == IMB_INT8 && d == IMB_INT32)
            return v * 0x01010101u;
        auto narrow = [](uint32 value, int shift, uint32 max) {
            const uint32 r = value >> shift;
            const bool up = (value >> (shift - 1)) & 1u;
            return up && r < max ? r + 1 : r;
        };
        if (s == IMB_INT16 && d == IMB_INT8)
            return narrow(v, 8, 255);
        if (s == IMB_INT32 && d == IMB_INT8)
            return narrow(v, 24, 255);
        if (s == IMB_INT32 && d == IMB_INT16)
            return narrow(v, 16, 65535);
    }
    return writeFraction(d, df, normalise(s, sf, v, p.sb, p.sw), p.db, p.dw);
}

// Component storage of any format as a byte vector, addressed by index.
struct Buffer
{
    IMB_DataFormat format;
    std::vector<unsigned char> bytes;

    Buffer(IMB_DataFormat f, size_t count) : format(f), bytes(count * size() + 64, 0xA5) {}
    size_t size() const
    {
        return format == IMB_INT8 ? 1 : (format == IMB_INT16 || format == IMB_FLOAT16) ? 2 : 4;
    }
    void *data() { return bytes.data(); }
    // Components are little-endian values of 1, 2 or 4 bytes.
    uint32 get(size_t i) const
    {
        uint32 v = 0;
        std::memcpy(&v, &bytes[i * size()], size());
        return v;
    }
    void set(size_t i, uint32 v) { std::memcpy(&bytes[i * size()], &v, size()); }
};
} // namespace fillref
