// 1D lookup kernels for the integer and half formats (float rasters use the
// vector kernel of LookupApplySimd-inl.h): one per-component rule templated
// over the data format and the variant flags (log sampling, identity points,
// gamma 1), one walker over a strided span, and value maps for the 8- and
// 16-bit formats.
#include "lookup/LookupApplyKernels-inl.h"

#include <algorithm>
#include <type_traits>
#include <cstring>

namespace imb_detail
{
namespace
{
// Component conversion of one data format to and from table units.
template <IMB_DataFormat F> struct LutFormat;

template <> struct LutFormat<IMB_INT8>
{
    using T = uint8;
    using Calc = float;
    static constexpr float kInvWhite = 0.003921569f; // 1/255 as a float
    static constexpr float kWhite = 255.0f;
};
template <> struct LutFormat<IMB_INT16>
{
    using T = uint16;
    using Calc = float;
    static constexpr float kInvWhite = 1.5259022e-5f; // 1/65535 as a float
    static constexpr float kWhite = 65535.0f;
};
template <> struct LutFormat<IMB_INT32>
{
    using T = uint32;
    using Calc = double; // 32-bit integers are computed in double precision,
                         // divided by white: a rounded reciprocal would differ
    static constexpr double kWhite = 4294967295.0;
};
template <> struct LutFormat<IMB_FLOAT16>
{
    using T = half16;
    using Calc = float;
};

template <IMB_DataFormat F> constexpr bool isIntFormat = F == IMB_INT8 || F == IMB_INT16 || F == IMB_INT32;

// Integer points prepared once per call.
template <typename Calc> struct IntPoints
{
    Calc black, div, span;
    explicit IntPoints(const LutPoints &p)
        : black(static_cast<Calc>(p.black)),
          div(p.white == p.black ? Calc(1) : static_cast<Calc>(p.white) - static_cast<Calc>(p.black)),
          span(static_cast<Calc>(p.white) - static_cast<Calc>(p.black))
    {
    }
};

template <IMB_DataFormat F, bool IDENT, typename Calc = typename LutFormat<F>::Calc>
inline Calc toUnit(typename LutFormat<F>::T v, const IntPoints<Calc> &pt)
{
    if constexpr (isIntFormat<F>)
    {
        if constexpr (IDENT)
        {
            if constexpr (F == IMB_INT32)
                return static_cast<double>(v) / 4294967295.0;
            else
                return static_cast<Calc>(v) * LutFormat<F>::kInvWhite;
        }
        else
            return (static_cast<Calc>(v) - pt.black) / pt.div;
    }
    else
        return static_cast<float>(v);
}

template <IMB_DataFormat F, bool IDENT, typename Calc = typename LutFormat<F>::Calc>
inline typename LutFormat<F>::T fromUnit(Calc y, const IntPoints<Calc> &pt)
{
    using T = typename LutFormat<F>::T;
    if constexpr (isIntFormat<F>)
    {
        Calc o = IDENT ? y * LutFormat<F>::kWhite + Calc(0.5) : y * pt.span + pt.black + Calc(0.5);
        o = std::floor(o);
        o = clampLowT<Calc>(o, Calc(0), LutFormat<F>::kWhite);
        return static_cast<T>(o);
    }
    else
        return T(y);
}

// The whole per-component rule.
template <IMB_DataFormat F, bool LOG, bool IDENT, bool GAMMA1>
inline typename LutFormat<F>::T map1D(typename LutFormat<F>::T v, const float *t, const Lut1DParams &p,
                                      const IntPoints<typename LutFormat<F>::Calc> &pt)
{
    using Calc = typename LutFormat<F>::Calc;
    const Calc x = toUnit<F, IDENT>(v, pt);
    Calc y = lut1DValue<Calc>(t, p.last, lut1DPosition<LOG>(x, p));
    if (!GAMMA1)
        y = applyGamma<Calc>(y, std::is_same_v<Calc, double> ? static_cast<Calc>(p.invGammaD) : static_cast<Calc>(p.invGamma));
    return fromUnit<F, IDENT>(y, pt);
}

// Pixels per block: channels are walked one after another inside a block so
// the loops test no flag and the block stays in cache.
constexpr int64 kBlock = 2048;

template <IMB_DataFormat F, bool LOG, bool IDENT, bool GAMMA1>
void walk1D(const Lut1DParams &p, const LutSpan &span)
{
    using T = typename LutFormat<F>::T;
    const IntPoints<typename LutFormat<F>::Calc> pt(p.points);
    const int64 step = span.step;
    for (int64 b = 0; b < span.count; b += kBlock)
    {
        const int64 n = std::min(kBlock, span.count - b);
        for (int c = 0; c < 4; ++c)
        {
            const float *t = p.table[c];
            if (!t || !span.comp[c])
                continue;
            T *px = static_cast<T *>(span.comp[c]) + b * step;
            if (step == 1)
                for (int64 i = 0; i < n; ++i)
                    px[i] = map1D<F, LOG, IDENT, GAMMA1>(px[i], t, p, pt);
            else
                for (int64 i = 0; i < n; ++i)
                    px[i * step] = map1D<F, LOG, IDENT, GAMMA1>(px[i * step], t, p, pt);
        }
    }
}

template <IMB_DataFormat F> void dispatch1D(const Lut1DParams &p, const LutSpan &span)
{
    const int v = (p.log ? 4 : 0) | (p.points.identity ? 2 : 0) | (p.gammaOne ? 1 : 0);
    switch (v)
    {
    case 0: return walk1D<F, false, false, false>(p, span);
    case 1: return walk1D<F, false, false, true>(p, span);
    case 2: return walk1D<F, false, true, false>(p, span);
    case 3: return walk1D<F, false, true, true>(p, span);
    case 4: return walk1D<F, true, false, false>(p, span);
    case 5: return walk1D<F, true, false, true>(p, span);
    case 6: return walk1D<F, true, true, false>(p, span);
    default: return walk1D<F, true, true, true>(p, span);
    }
}

// Maps: every possible input value pushed through the same rule.
template <IMB_DataFormat F, bool LOG, bool IDENT, bool GAMMA1>
void fillMaps(const Lut1DParams &p, void *maps[4], int entries)
{
    using T = typename LutFormat<F>::T;
    const IntPoints<typename LutFormat<F>::Calc> pt(p.points);
    for (int c = 0; c < 4; ++c)
    {
        if (!p.table[c] || !maps[c])
            continue;
        T *m = static_cast<T *>(maps[c]);
        for (int i = 0; i < entries; ++i)
        {
            T in;
            if constexpr (F == IMB_FLOAT16)
                in = half16::fromBits(static_cast<uint16>(i));
            else
                in = static_cast<T>(i);
            m[i] = map1D<F, LOG, IDENT, GAMMA1>(in, p.table[c], p, pt);
        }
    }
}

template <IMB_DataFormat F> void dispatchMaps(const Lut1DParams &p, void *maps[4], int entries)
{
    const int v = (p.log ? 4 : 0) | (p.points.identity ? 2 : 0) | (p.gammaOne ? 1 : 0);
    switch (v)
    {
    case 0: return fillMaps<F, false, false, false>(p, maps, entries);
    case 1: return fillMaps<F, false, false, true>(p, maps, entries);
    case 2: return fillMaps<F, false, true, false>(p, maps, entries);
    case 3: return fillMaps<F, false, true, true>(p, maps, entries);
    case 4: return fillMaps<F, true, false, false>(p, maps, entries);
    case 5: return fillMaps<F, true, false, true>(p, maps, entries);
    case 6: return fillMaps<F, true, true, false>(p, maps, entries);
    default: return fillMaps<F, true, true, true>(p, maps, entries);
    }
}

// Index of a stored component in a map.
inline uint32 mapIndex(uint8 v) { return v; }
inline uint32 mapIndex(uint16 v) { return v; }
inline uint32 mapIndex(half16 v) { return v.bits(); }

// 8-bit RGBA: two whole pixels per 64-bit word, channels without a map
// through the identity, so the loop has no per-channel test and one load and
// one store per two pixels. Byte order as on little-endian machines.
bool walkRgba8(const void *const maps[4], const LutSpan &span)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint8 *px = static_cast<uint8 *>(span.comp[0]);
    if (span.step != 4 || !px)
        return false;
    for (int c = 1; c < 4; ++c)
        if (span.comp[c] != px + c)
            return false;
    uint8 identity[256];
    for (int i = 0; i < 256; ++i)
        identity[i] = static_cast<uint8>(i);
    const uint8 *m[4];
    for (int c = 0; c < 4; ++c)
        m[c] = maps[c] ? static_cast<const uint8 *>(maps[c]) : identity;
    int64 i = 0;
    for (; i + 2 <= span.count; i += 2, px += 8)
    {
        uint64 v;
        std::memcpy(&v, px, 8);
        uint64 o = 0;
        for (int k = 0; k < 8; ++k)
            o |= static_cast<uint64>(m[k & 3][(v >> (8 * k)) & 255]) << (8 * k);
        std::memcpy(px, &o, 8);
    }
    if (i < span.count)
        for (int k = 0; k < 4; ++k)
            px[k] = m[k][px[k]];
    return true;
#else
    (void)maps, (void)span;
    return false;
#endif
}

template <typename T> void walkMaps(const void *const maps[4], const LutSpan &span)
{
    if constexpr (std::is_same_v<T, uint8>)
    {
        if (walkRgba8(maps, span))
            return;
    }
    const int64 step = span.step;
    // Four interleaved components all mapped: one pass over whole pixels.
    if (step == 4 && maps[0] && maps[1] && maps[2] && maps[3] && span.comp[0] && span.comp[1] &&
        span.comp[2] && span.comp[3] && static_cast<T *>(span.comp[1]) == static_cast<T *>(span.comp[0]) + 1 &&
        static_cast<T *>(span.comp[2]) == static_cast<T *>(span.comp[0]) + 2 &&
        static_cast<T *>(span.comp[3]) == static_cast<T *>(span.comp[0]) + 3)
    {
        const T *m0 = static_cast<const T *>(maps[0]), *m1 = static_cast<const T *>(maps[1]),
                *m2 = static_cast<const T *>(maps[2]), *m3 = static_cast<const T *>(maps[3]);
        T *px = static_cast<T *>(span.comp[0]);
        for (int64 i = 0; i < span.count; ++i, px += 4)
        {
            const T a = m0[mapIndex(px[0])], b = m1[mapIndex(px[1])], c = m2[mapIndex(px[2])],
                    d = m3[mapIndex(px[3])];
            px[0] = a;
            px[1] = b;
            px[2] = c;
            px[3] = d;
        }
        return;
    }
    for (int64 b = 0; b < span.count; b += kBlock)
    {
        const int64 n = std::min(kBlock, span.count - b);
        for (int c = 0; c < 4; ++c)
        {
            const T *m = static_cast<const T *>(maps[c]);
            if (!m || !span.comp[c])
                continue;
            T *px = static_cast<T *>(span.comp[c]) + b * step;
            for (int64 i = 0; i < n; ++i)
                px[i * step] = m[mapIndex(px[i * step])];
        }
    }
}
} // namespace

void applyLut1D(IMB_DataFormat format, const Lut1DParams &p, const LutSpan &span)
{
    switch (format)
    {
    case IMB_INT8: return dispatch1D<IMB_INT8>(p, span);
    case IMB_INT16: return dispatch1D<IMB_INT16>(p, span);
    case IMB_INT32: return dispatch1D<IMB_INT32>(p, span);
    case IMB_FLOAT32: return applyLut1DFloat(p, span);
    case IMB_FLOAT16: return dispatch1D<IMB_FLOAT16>(p, span);
    default: return;
    }
}

void buildLut1DMaps(IMB_DataFormat format, const Lut1DParams &p, void *maps[4])
{
    switch (format)
    {
    case IMB_INT8: return dispatchMaps<IMB_INT8>(p, maps, 256);
    case IMB_INT16: return dispatchMaps<IMB_INT16>(p, maps, 65536);
    case IMB_FLOAT16: return dispatchMaps<IMB_FLOAT16>(p, maps, 65536);
    default: return;
    }
}

void applyLut1DMaps(IMB_DataFormat format, const void *const maps[4], const LutSpan &span)
{
    switch (format)
    {
    case IMB_INT8: return walkMaps<uint8>(maps, span);
    case IMB_INT16: return walkMaps<uint16>(maps, span);
    case IMB_FLOAT16: return walkMaps<half16>(maps, span);
    default: return;
    }
}
} // namespace imb_detail
