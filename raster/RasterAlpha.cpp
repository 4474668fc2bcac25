// IMB_Raster alpha and saturation operations: premultiply, unpremultiply,
// clampAlpha, promoteRGBToRGBA, adjustSaturation, areComponentsRenderable.
//
// premultiply, unpremultiply and clampAlpha are defined by a walk over the
// pixels through getPixelValue/setPixelValue (x outer, y inner). On plane
// packings that walk is kept as it is, because setPixelValue writes a
// pixel's values into plane 0 at x, x+1, ... and later reads see those
// writes. On PACK_RGBA every pixel is independent, so the same per-pixel rule
// runs in memory order on the raw samples, with vector kernels for float32
// and 8-bit premultiply and tables for 8-bit unpremultiply; the sample conversions below must stay identical to
// those of getPixelValue/setPixelValue (the tests compare both paths).
//
// This file is compiled once per instruction set through Highway's
// foreach_target (it includes itself); the per-target kernels come first,
// everything else is inside HWY_ONCE.

// Fused multiply-add would change float results against the scalar rules.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "raster/RasterAlpha.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include "platform/HalfVectors-inl.h"

#include <IMB/IMB_Raster.h>
#include <IMB/platform/half16.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#ifndef IMB_RASTER_ALPHA_RULES_
#define IMB_RASTER_ALPHA_RULES_
namespace imb_detail
{
// Saturation weights and their single-precision arithmetic.
inline constexpr float satWeightR = 0.3086f;
inline constexpr float satWeightG = 0.6094f;
inline constexpr float satWeightB = 0.082f;

// What the kernels are handed for one saturation run: red, green and blue
// either in three dense planes (step 1) or interleaved from `r` with 3 or 4
// components per pixel (g and b unused).
struct SatJob
{
    void *r, *g, *b;
    int step;
    int64 count;
    float s;
};
} // namespace imb_detail
#endif

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// premultiply of interleaved RGBA float32 by its own alpha: colour times
// alpha, alpha kept bit for bit.
void PremultiplyRGBAF32(float *p, int64 pixels)
{
    const hn::ScalableTag<float> d;
    const size_t N = hn::Lanes(d);
    int64 i = 0;
    for (; i + int64(N) <= pixels; i += N)
    {
        hn::VFromD<decltype(d)> r, g, b, a;
        hn::LoadInterleaved4(d, p + 4 * i, r, g, b, a);
        hn::StoreInterleaved4(hn::Mul(r, a), hn::Mul(g, a), hn::Mul(b, a), a, d, p + 4 * i);
    }
    for (; i < pixels; ++i)
    {
        float *q = p + 4 * i;
        const float a = q[3];
        q[0] *= a;
        q[1] *= a;
        q[2] *= a;
    }
}

// premultiply of interleaved RGBA 8-bit by its own alpha. Through the float
// interface the rule gives floor(c * a / 255) for every component c and
// alpha a (the tests check all 65,536 pairs), which is
// ((c * a + 1) * 257) >> 16 in 16-bit lanes: red and blue sit in the low
// bytes of the 16-bit lanes, green and alpha in the high ones, so one
// multiply serves two components and no lane crosses a pixel.
void PremultiplyRGBAU8(uint8_t *p, int64 pixels)
{
    int64 i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<uint8_t> d8;
    const hn::Repartition<uint32_t, decltype(d8)> d32;
    const hn::Repartition<uint16_t, decltype(d8)> d16;
    const int64 N = int64(hn::Lanes(d32));
    const auto lowBytes = hn::Set(d16, 0x00FF), one = hn::Set(d16, 1), k257 = hn::Set(d16, 257);
    const auto alphaBits = hn::Set(d32, 0xFF000000u);
    auto scale = [&](decltype(lowBytes) c, decltype(lowBytes) a) { return hn::MulHigh(hn::Add(hn::Mul(c, a), one), k257); };
    for (; i + N <= pixels; i += N)
    {
        const auto v = hn::BitCast(d32, hn::LoadU(d8, p + 4 * i));
        const auto a32 = hn::ShiftRight<24>(v);
        const auto a = hn::BitCast(d16, hn::Or(a32, hn::ShiftLeft<16>(a32)));
        const auto v16 = hn::BitCast(d16, v);
        const auto rb = scale(hn::And(v16, lowBytes), a);
        const auto ga = scale(hn::ShiftRight<8>(v16), a);
        const auto out = hn::Or(hn::BitCast(d32, rb), hn::BitCast(d32, hn::ShiftLeft<8>(ga)));
        hn::StoreU(hn::BitCast(d8, hn::Or(hn::AndNot(alphaBits, out), hn::And(v, alphaBits))), d8, p + 4 * i);
    }
#endif
    for (; i < pixels; ++i)
    {
        uint8_t *q = p + 4 * i;
        for (int k = 0; k < 3; ++k)
            q[k] = uint8_t(((q[k] * q[3] + 1) * 257) >> 16);
    }
}

// unpremultiply of interleaved RGBA float32: colour divided by alpha where
// 0 < alpha < 1; other pixels keep their bits.
void UnpremultiplyRGBAF32(float *p, int64 pixels)
{
    const hn::ScalableTag<float> d;
    const size_t N = hn::Lanes(d);
    const auto zero = hn::Zero(d), one = hn::Set(d, 1.0f);
    int64 i = 0;
    for (; i + int64(N) <= pixels; i += N)
    {
        hn::VFromD<decltype(d)> r, g, b, a;
        hn::LoadInterleaved4(d, p + 4 * i, r, g, b, a);
        const auto m = hn::And(hn::Gt(a, zero), hn::Lt(a, one));
        // Dividing by 1 where the mask is off would turn a signalling NaN
        // quiet; select the original lanes instead.
        const auto safe = hn::IfThenElse(m, a, one);
        hn::StoreInterleaved4(hn::IfThenElse(m, hn::Div(r, safe), r), hn::IfThenElse(m, hn::Div(g, safe), g),
                              hn::IfThenElse(m, hn::Div(b, safe), b), a, d, p + 4 * i);
    }
    for (; i < pixels; ++i)
    {
        float *q = p + 4 * i;
        const float a = q[3];
        if (a > 0.0f && a < 1.0f)
        {
            q[0] /= a;
            q[1] /= a;
            q[2] /= a;
        }
    }
}

// Loads the red, green and blue of Lanes(d) pixels from pixel i of a job.
template <int S, class D, class V = hn::VFromD<D>>
HWY_INLINE void satLoad(D d, const SatJob &job, int64 i, V &r, V &g, V &b, V &a)
{
    using T = hn::TFromD<D>;
    if constexpr (S == 1)
    {
        r = hn::LoadU(d, static_cast<const T *>(job.r) + i);
        g = hn::LoadU(d, static_cast<const T *>(job.g) + i);
        b = hn::LoadU(d, static_cast<const T *>(job.b) + i);
    }
    else if constexpr (S == 3)
        hn::LoadInterleaved3(d, static_cast<const T *>(job.r) + 3 * i, r, g, b);
    else
        hn::LoadInterleaved4(d, static_cast<const T *>(job.r) + 4 * i, r, g, b, a);
}

template <int S, class D, class V = hn::VFromD<D>>
HWY_INLINE void satStore(D d, const SatJob &job, int64 i, V r, V g, V b, V a)
{
    using T = hn::TFromD<D>;
    if constexpr (S == 1)
    {
        hn::StoreU(r, d, static_cast<T *>(job.r) + i);
        hn::StoreU(g, d, static_cast<T *>(job.g) + i);
        hn::StoreU(b, d, static_cast<T *>(job.b) + i);
    }
    else if constexpr (S == 3)
        hn::StoreInterleaved3(r, g, b, d, static_cast<T *>(job.r) + 3 * i);
    else
        hn::StoreInterleaved4(r, g, b, a, d, static_cast<T *>(job.r) + 4 * i); // alpha as loaded
}

// The float part of the rule: c * s + L with L from the starting values.
template <class D, class V> HWY_INLINE void satFloats(D d, float s, V &r, V &g, V &b)
{
    const auto vs = hn::Set(d, s), k = hn::Set(d, 1.0f - s);
    const auto L = hn::Mul(hn::Add(hn::Add(hn::Mul(r, hn::Set(d, satWeightR)), hn::Mul(g, hn::Set(d, satWeightG))),
                                   hn::Mul(b, hn::Set(d, satWeightB))),
                           k);
    r = hn::Add(hn::Mul(r, vs), L);
    g = hn::Add(hn::Mul(g, vs), L);
    b = hn::Add(hn::Mul(b, vs), L);
}

// floor(y + 0.5) (the sum taken in double) clamped to [0, white], NaN to 0:
// floor(y) plus one when the exact fraction y - floor(y) is at least 0.5.
template <class D, class V> HWY_INLINE V satRound(D d, V y, float white)
{
    const auto f = hn::Floor(y);
    const auto n = hn::IfThenElse(hn::Ge(hn::Sub(y, f), hn::Set(d, 0.5f)), hn::Add(f, hn::Set(d, 1.0f)), f);
    return hn::IfThenElseZero(hn::Ge(n, hn::Zero(d)), hn::Min(n, hn::Set(d, white)));
}

template <int S> int64 satF32(const SatJob &job)
{
    const hn::ScalableTag<float> d;
    const size_t N = hn::Lanes(d);
    hn::VFromD<decltype(d)> r, g, b, a = hn::Zero(d);
    int64 i = 0;
    for (; i + int64(N) <= job.count; i += N)
    {
        satLoad<S>(d, job, i, r, g, b, a);
        satFloats(d, job.s, r, g, b);
        satStore<S>(d, job, i, r, g, b, a);
    }
    return i;
}

template <int S, class TI> int64 satInt(const SatJob &job, float white)
{
    const hn::ScalableTag<float> df;
    const hn::Rebind<int32_t, decltype(df)> di;
    const hn::Rebind<TI, decltype(df)> dn;
    const size_t N = hn::Lanes(df);
    hn::VFromD<decltype(dn)> r, g, b, a = hn::Zero(dn);
    auto widen = [&](auto c) { return hn::ConvertTo(df, hn::BitCast(di, hn::PromoteTo(hn::Rebind<uint32_t, decltype(df)>(), c))); };
    auto narrow = [&](auto y) { return hn::DemoteTo(dn, hn::ConvertTo(di, satRound(df, y, white))); };
    int64 i = 0;
    for (; i + int64(N) <= job.count; i += N)
    {
        satLoad<S>(dn, job, i, r, g, b, a);
        auto fr = widen(r), fg = widen(g), fb = widen(b);
        satFloats(df, job.s, fr, fg, fb);
        satStore<S>(dn, job, i, narrow(fr), narrow(fg), narrow(fb), a);
    }
    return i;
}

template <int S> int64 satF16(const SatJob &job)
{
    const hn::ScalableTag<float> df;
    const hn::Rebind<uint16_t, decltype(df)> du;
    const size_t N = hn::Lanes(df);
    hn::VFromD<decltype(du)> r, g, b, a = hn::Zero(du);
    HWY_ALIGN uint16_t hr[hn::MaxLanes(df)], hg[hn::MaxLanes(df)], hb[hn::MaxLanes(df)];
    auto widen = [&](auto c) { return widenHalves(df, c); };
    // Results of zero are stored as +0, whatever their sign.
    auto toHalf = [&](hn::VFromD<decltype(df)> f, uint16_t *to) {
        storeHalf<true>(df, hn::IfThenZeroElse(hn::Eq(f, hn::Zero(df)), f), to);
    };
    int64 i = 0;
    for (; i + int64(N) <= job.count; i += N)
    {
        satLoad<S>(du, job, i, r, g, b, a);
        auto fr = widen(r), fg = widen(g), fb = widen(b);
        satFloats(df, job.s, fr, fg, fb);
        toHalf(fr, hr);
        toHalf(fg, hg);
        toHalf(fb, hb);
        satStore<S>(du, job, i, hn::Load(du, hr), hn::Load(du, hg), hn::Load(du, hb), a);
    }
    return i;
}

#define IMB_SAT_SELECT(...)                                                                                            \
    switch (job.step)                                                                                                  \
    {                                                                                                                  \
    case 1:                                                                                                            \
        return __VA_ARGS__<1>(job);                                                                                    \
    case 3:                                                                                                            \
        return __VA_ARGS__<3>(job);                                                                                    \
    case 4:                                                                                                            \
        return __VA_ARGS__<4>(job);                                                                                    \
    default:                                                                                                           \
        return 0;                                                                                                      \
    }

// RGBA 8-bit with a pixel per 32-bit lane: components are picked out with
// shifts and masks rather than de-interleaved, and alpha stays in place. y
// is clamped to [0, 255] first (floor(y + 0.5) clamped afterwards agrees on
// every finite y); on [0, 255], truncating the single-precision sum
// y + 0.49999997f gives floor(y + 0.5) for every float y (checked over all of
// them when this was written; the tests cover the boundaries). A NaN or huge
// `s` (whose products could overflow) is left to the scalar rule.
int64 satU8RGBA(const SatJob &job)
{
#if HWY_TARGET == HWY_SCALAR
    return 0;
#else
    if (!(std::fabs(job.s) <= 1e30f))
        return 0;
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::RebindToUnsigned<decltype(df)> du;
    const hn::Repartition<uint8_t, decltype(du)> d8;
    const int64 N = int64(hn::Lanes(df));
    uint8_t *p = static_cast<uint8_t *>(job.r);
    const auto byte = hn::Set(du, 0xFFu), alphaBits = hn::Set(du, 0xFF000000u);
    const auto zero = hn::Zero(df), white = hn::Set(df, 255.0f), nearHalf = hn::Set(df, 0.49999997f);
    auto toFloat = [&](hn::VFromD<decltype(du)> c) { return hn::ConvertTo(df, hn::BitCast(di, hn::And(c, byte))); };
    auto round = [&](hn::VFromD<decltype(df)> y) {
        return hn::BitCast(du, hn::ConvertTo(di, hn::Add(hn::Min(hn::Max(y, zero), white), nearHalf)));
    };
    int64 i = 0;
    for (; i + N <= job.count; i += N)
    {
        const auto v = hn::BitCast(du, hn::LoadU(d8, p + 4 * i));
        auto r = toFloat(v), g = toFloat(hn::ShiftRight<8>(v)), b = toFloat(hn::ShiftRight<16>(v));
        satFloats(df, job.s, r, g, b);
        const auto rgb = hn::Or(hn::Or(round(r), hn::ShiftLeft<8>(round(g))), hn::ShiftLeft<16>(round(b)));
        hn::StoreU(hn::BitCast(d8, hn::Or(rgb, hn::And(v, alphaBits))), d8, p + 4 * i);
    }
    return i;
#endif
}

template <int S> int64 satU8(const SatJob &job)
{
    if constexpr (S == 4)
        return satU8RGBA(job);
    else
        return satInt<S, uint8_t>(job, 255.0f);
}
template <int S> int64 satU16(const SatJob &job) { return satInt<S, uint16_t>(job, 65535.0f); }

// Each returns how many leading pixels it did; the caller does the rest.
int64 SaturateF32(const SatJob &job) { IMB_SAT_SELECT(satF32) }
int64 SaturateU8(const SatJob &job) { IMB_SAT_SELECT(satU8) }
int64 SaturateU16(const SatJob &job) { IMB_SAT_SELECT(satU16) }
int64 SaturateF16(const SatJob &job) { IMB_SAT_SELECT(satF16) }
#undef IMB_SAT_SELECT

} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace imb_detail
{
HWY_EXPORT(PremultiplyRGBAF32);
HWY_EXPORT(PremultiplyRGBAU8);
HWY_EXPORT(UnpremultiplyRGBAF32);
HWY_EXPORT(SaturateF32);
HWY_EXPORT(SaturateU8);
HWY_EXPORT(SaturateU16);
HWY_EXPORT(SaturateF16);
} // namespace imb_detail

namespace
{
using namespace imb_detail;

// ---------------------------------------------------------------- samples
// The conversions of getPixelValue and setPixelValue, per format.

// Truncation toward zero to 64 bits; NaN, infinities and out-of-range values
// give INT64_MIN (whose low 32 bits are zero), as setPixelValue does.
inline int64 truncate64(double d)
{
    if (!(std::fabs(d) < 9223372036854775808.0))
        return INT64_MIN;
    return static_cast<int64>(d);
}

inline uint16 halfBits(float f) { return f == 0.0f ? 0 : half16::fromFloat(f); }

template <IMB_DataFormat F> struct Sample;
template <> struct Sample<IMB_INT8>
{
    using T = uint8;
    static float get(T v) { return float(v) * (1.0f / 255.0f); }
    static T set(float f) { return T(truncate64(f * 255.0)); }
};
template <> struct Sample<IMB_INT16>
{
    using T = uint16;
    static float get(T v) { return float(v) * (1.0f / 65535.0f); }
    static T set(float f) { return T(truncate64(f * 65535.0)); }
};
template <> struct Sample<IMB_INT32>
{
    using T = uint32;
    static float get(T v) { return float(double(v) / 4294967295.0); }
    static T set(float f) { return T(truncate64(f * 4294967296.0)); }
};
template <> struct Sample<IMB_FLOAT16>
{
    using T = uint16;
    static float get(T v) { return half16::toFloat(v); }
    static T set(float f) { return halfBits(f); }
};
template <> struct Sample<IMB_FLOAT32>
{
    using T = float;
    static float get(T v) { return v; }
    static T set(float f) { return f; }
};

// ---------------------------------------------------------------- pixel rules
// One rule per operation on four floats; `a` is the alpha in use. Each
// returns whether the pixel is written back.
inline bool premultiplyRule(float *v, float a)
{
    v[0] *= a;
    v[1] *= a;
    v[2] *= a;
    return true;
}

inline bool unpremultiplyRule(float *v, float a, bool integer)
{
    if (!(a > 0.0f && a < 1.0f))
        return false;
    for (int k = 0; k < 3; ++k)
    {
        v[k] /= a;
        // Integer formats: at most 1.0; values below 0 are left alone.
        if (integer && v[k] > 1.0f)
            v[k] = 1.0f;
    }
    return true;
}

inline bool clampAlphaRule(float *v)
{
    if (!(v[3] > 0.0f && v[3] < 1.0f))
        return false;
    v[3] = 1.0f;
    return true;
}

enum AlphaOp
{
    OP_PREMULTIPLY,
    OP_UNPREMULTIPLY,
    OP_CLAMP
};

bool isIntegerFormat(IMB_DataFormat f) { return f == IMB_INT8 || f == IMB_INT16 || f == IMB_INT32; }

// The alpha that a source pixel supplies: its fourth value when the source
// has an alpha packing, else its first value.
inline float sourceAlpha(const IMB_Raster &src, const float *s)
{
    return src.hasAlpha() ? s[3] : s[0];
}

inline bool applyRule(AlphaOp op, float *v, float a, bool integer)
{
    switch (op)
    {
    case OP_PREMULTIPLY:
        return premultiplyRule(v, a);
    case OP_UNPREMULTIPLY:
        return unpremultiplyRule(v, a, integer);
    default:
        return clampAlphaRule(v);
    }
}

// The defining walk: x outer, y inner, through the float interface.
void exactWalk(IMB_Raster &r, IMB_Raster *alphaSource, AlphaOp op)
{
    const bool integer = isIntegerFormat(r.getFormat());
    for (int64 x = 0; x < r.getXres(); ++x)
        for (int64 y = 0; y < r.getYres(); ++y)
        {
            // Values the pixel read does not supply: a raster without alpha
            // (premultiplied by its own alpha) uses alpha 1.
            float v[4] = {0.0f, 0.0f, 0.0f, 1.0f};
            r.getPixelValue(x, y, v);
            float a = v[3];
            if (alphaSource)
            {
                float s[4] = {1.0f, 1.0f, 1.0f, 1.0f};
                alphaSource->getPixelValue(x, y, s);
                a = sourceAlpha(*alphaSource, s);
            }
            if (applyRule(op, v, a, integer))
                r.setPixelValue(x, y, v);
        }
}

// 8-bit tables: the result of the whole get/rule/set chain for every
// (component, alpha) pair, so the fast path is exact by construction.
struct Tables8
{
    uint8 colour[256][256]; // [alpha][component]
    uint8 alpha[256];       // the alpha byte written back
    bool written[256];      // by alpha
};

void buildTables8(Tables8 &t, AlphaOp op)
{
    for (int a = 0; a < 256; ++a)
    {
        const float fa = Sample<IMB_INT8>::get(uint8(a));
        float probe[4] = {0, 0, 0, fa};
        t.written[a] = applyRule(op, probe, fa, true);
        t.alpha[a] = Sample<IMB_INT8>::set(fa);
        for (int c = 0; c < 256; ++c)
        {
            float v[4] = {Sample<IMB_INT8>::get(uint8(c)), 0, 0, fa};
            applyRule(op, v, fa, true);
            t.colour[a][c] = Sample<IMB_INT8>::set(v[0]);
        }
    }
}

void walk8(uint8 *p, int64 pixels, AlphaOp op)
{
    std::vector<Tables8> store(1);
    Tables8 &t = store[0];
    buildTables8(t, op);
    for (int64 i = 0; i < pixels; ++i, p += 4)
    {
        const uint8 a = p[3];
        if (!t.written[a])
            continue;
        const uint8 *row = t.colour[a];
        p[0] = row[p[0]];
        p[1] = row[p[1]];
        p[2] = row[p[2]];
        p[3] = t.alpha[a];
    }
}

// Memory-order walk of an interleaved RGBA raster of format F: the same
// per-pixel rule, on the raw samples.
template <IMB_DataFormat F> void walkRGBA(IMB_Raster &r, IMB_Raster *alphaSource, AlphaOp op)
{
    using S = Sample<F>;
    using T = typename S::T;
    const bool integer = isIntegerFormat(F);
    const int64 xres = r.getXres(), yres = r.getYres();
    T *base = static_cast<T *>(r.getPixels());
    if (!alphaSource)
    {
        if constexpr (F == IMB_FLOAT32)
        {
            if (op == OP_PREMULTIPLY)
                return HWY_DYNAMIC_DISPATCH(PremultiplyRGBAF32)(base, xres * yres);
            if (op == OP_UNPREMULTIPLY)
                return HWY_DYNAMIC_DISPATCH(UnpremultiplyRGBAF32)(base, xres * yres);
        }
        if constexpr (F == IMB_INT8)
        {
            if (op == OP_PREMULTIPLY)
                return HWY_DYNAMIC_DISPATCH(PremultiplyRGBAU8)(base, xres * yres);
            if (op == OP_UNPREMULTIPLY)
                return walk8(base, xres * yres, op);
        }
    }
    for (int64 y = 0; y < yres; ++y)
    {
        T *p = base + y * xres * 4;
        for (int64 x = 0; x < xres; ++x, p += 4)
        {
            T raw[4];
            std::memcpy(raw, p, sizeof raw);
            float v[4] = {S::get(raw[0]), S::get(raw[1]), S::get(raw[2]), S::get(raw[3])};
            float a = v[3];
            if (alphaSource)
            {
                float s[4] = {1.0f, 1.0f, 1.0f, 1.0f};
                alphaSource->getPixelValue(x, y, s);
                a = sourceAlpha(*alphaSource, s);
            }
            if (!applyRule(op, v, a, integer))
                continue;
            if constexpr (F == IMB_FLOAT32)
                std::memcpy(p, v, sizeof v);
            else
                for (int k = 0; k < 4; ++k)
                    p[k] = S::set(v[k]);
        }
    }
}

bool blocksOverlap(const IMB_Raster &a, const IMB_Raster &b)
{
    const char *pa = static_cast<const char *>(a.getPixels());
    const char *pb = static_cast<const char *>(b.getPixels());
    if (!pa || !pb)
        return false;
    const auto ua = reinterpret_cast<std::uintptr_t>(pa), ub = reinterpret_cast<std::uintptr_t>(pb);
    return ua < ub + std::uintptr_t(b.getSize()) && ub < ua + std::uintptr_t(a.getSize());
}

// Runs `op` over the raster: memory order on PACK_RGBA with memory (and an
// alpha source that does not share it), the defining walk otherwise.
void runAlphaOp(IMB_Raster &r, IMB_Raster *alphaSource, AlphaOp op)
{
    const bool fast = r.getPacking() == PACK_RGBA && r.getPixels() && r.getYres() > 0 &&
                      (!alphaSource || (alphaSource != &r && !blocksOverlap(r, *alphaSource)));
    if (!fast)
        return exactWalk(r, alphaSource, op);
    switch (r.getFormat())
    {
    case IMB_INT8:
        return walkRGBA<IMB_INT8>(r, alphaSource, op);
    case IMB_INT16:
        return walkRGBA<IMB_INT16>(r, alphaSource, op);
    case IMB_INT32:
        return walkRGBA<IMB_INT32>(r, alphaSource, op);
    case IMB_FLOAT16:
        return walkRGBA<IMB_FLOAT16>(r, alphaSource, op);
    case IMB_FLOAT32:
        return walkRGBA<IMB_FLOAT32>(r, alphaSource, op);
    default:
        return exactWalk(r, alphaSource, op);
    }
}

bool alphaSourceAcceptable(const IMB_Raster &r, const IMB_Raster *alphaSource)
{
    if (!alphaSource)
        return true;
    if (!alphaSource->hasAlpha() && !r.hasAlpha())
        return false;
    return alphaSource->getXres() == r.getXres() && alphaSource->getYres() == r.getYres();
}

// ---------------------------------------------------------------- saturation
template <IMB_DataFormat F> struct SatSample;
template <> struct SatSample<IMB_INT8>
{
    using T = uint8;
    static float get(T v) { return float(v); }
};
template <> struct SatSample<IMB_INT16>
{
    using T = uint16;
    static float get(T v) { return float(v); }
};
template <> struct SatSample<IMB_INT32>
{
    using T = uint32;
    static float get(T v) { return float(v); }
};
template <> struct SatSample<IMB_FLOAT16>
{
    using T = uint16;
    static float get(T v) { return half16::toFloat(v); }
};
template <> struct SatSample<IMB_FLOAT32>
{
    using T = float;
    static float get(T v) { return v; }
};

// floor(y + 0.5) clamped to [0, white]; NaN gives 0.
inline uint32 satRoundClamp(float y, double white)
{
    const double v = std::floor(double(y) + 0.5);
    if (!(v >= 0.0))
        return 0;
    return v >= white ? uint32(white) : uint32(v);
}

template <IMB_DataFormat F> typename SatSample<F>::T satStore(float y)
{
    if constexpr (F == IMB_INT8)
        return uint8(satRoundClamp(y, 255.0));
    else if constexpr (F == IMB_INT16)
        return uint16(satRoundClamp(y, 65535.0));
    else if constexpr (F == IMB_INT32)
    {
        // Raised to 0 when negative, not limited above: the low 32 bits.
        const double v = std::floor(double(y) + 0.5);
        return v < 0.0 ? 0u : uint32(truncate64(v));
    }
    else if constexpr (F == IMB_FLOAT16)
        return halfBits(y);
    else
        return y;
}

template <IMB_DataFormat F> void satPixel(typename SatSample<F>::T *r, typename SatSample<F>::T *g,
                                          typename SatSample<F>::T *b, float s, float k)
{
    const float R = SatSample<F>::get(*r), G = SatSample<F>::get(*g), B = SatSample<F>::get(*b);
    const float L = (R * satWeightR + G * satWeightG + B * satWeightB) * k;
    *r = satStore<F>(R * s + L);
    *g = satStore<F>(G * s + L);
    *b = satStore<F>(B * s + L);
}

template <IMB_DataFormat F> void saturate(IMB_Raster &r, float s)
{
    using T = typename SatSample<F>::T;
    T *base = static_cast<T *>(r.getPixels());
    const int64 count = r.getXres() * r.getYres();
    const IMB_Packing pk = r.getPacking();
    SatJob job{};
    job.count = count;
    job.s = s;
    T *pr = base, *pg = base, *pb = base;
    int64 step = 1;
    if (pk == PACK_RGB || pk == PACK_RGBA)
    {
        step = pk == PACK_RGB ? 3 : 4;
        pg = base + 1;
        pb = base + 2;
        job.r = base;
    }
    else
    {
        pg = base + count;
        pb = base + 2 * count;
        job.r = pr;
        job.g = pg;
        job.b = pb;
    }
    job.step = int(step);
    int64 done = 0;
    if constexpr (F == IMB_FLOAT32)
        done = HWY_DYNAMIC_DISPATCH(SaturateF32)(job);
    else if constexpr (F == IMB_INT8)
        done = HWY_DYNAMIC_DISPATCH(SaturateU8)(job);
    else if constexpr (F == IMB_INT16)
        done = HWY_DYNAMIC_DISPATCH(SaturateU16)(job);
    else if constexpr (F == IMB_FLOAT16)
        done = HWY_DYNAMIC_DISPATCH(SaturateF16)(job);
    const float k = 1.0f - s;
    for (int64 i = done; i < count; ++i)
        satPixel<F>(pr + i * step, pg + i * step, pb + i * step, s, k);
}
} // namespace

// ---------------------------------------------------------------- interface

bool IMB_Raster::premultiply(IMB_Raster *alphaSource)
{
    if (!alphaSourceAcceptable(*this, alphaSource))
        return false;
    if (myXres <= 0)
        return true;
    runAlphaOp(*this, alphaSource, OP_PREMULTIPLY);
    return true;
}

bool IMB_Raster::unpremultiply(IMB_Raster *alphaSource)
{
    if (!alphaSourceAcceptable(*this, alphaSource))
        return false;
    if (myXres <= 0)
        return true;
    runAlphaOp(*this, alphaSource, OP_UNPREMULTIPLY);
    return true;
}

bool IMB_Raster::clampAlpha()
{
    if (myPacking != PACK_RGBA && myPacking != PACK_RGBA_NI)
        return false;
    if (myXres <= 0)
        return true;
    runAlphaOp(*this, nullptr, OP_CLAMP);
    return true;
}

void IMB_Raster::promoteRGBToRGBA(double alpha)
{
    if (myPacking != PACK_RGB && myPacking != PACK_RGB_NI)
        return;
    const unsigned char *old = static_cast<const unsigned char *>(myRaster);
    // The old block is deliberately not freed: callers that own it steal it
    // first and free it themselves, and rely on it staying readable here.
    myPacking = myPacking == PACK_RGB ? PACK_RGBA : PACK_RGBA_NI;
    myRaster = nullptr;
    myOwnsMemory = false;
    allocRaster(1);
    if (!old || !myRaster)
        return; // nothing to copy from, or no new block to copy to

    const int64 d = imbDefinesDepth[myFormat];
    unsigned char sample[4] = {0, 0, 0, 0};
    switch (myFormat)
    {
    case IMB_INT8:
        sample[0] = uint8(truncate64(std::floor(alpha * 255.0 + 0.5)));
        break;
    case IMB_INT16:
    {
        // 65355, not 65535: kept exactly so, callers rely on the value.
        uint16 v = uint16(truncate64(std::floor(alpha * 65355.0 + 0.5)));
        std::memcpy(sample, &v, 2);
        break;
    }
    case IMB_INT32:
    {
        // Half the format's white: kept exactly so.
        uint32 v = uint32(truncate64(std::floor(alpha * 2147483647.0 + 0.5)));
        std::memcpy(sample, &v, 4);
        break;
    }
    case IMB_FLOAT16:
    {
        uint16 v = halfBits(float(alpha));
        std::memcpy(sample, &v, 2);
        break;
    }
    case IMB_FLOAT32:
    {
        // The low 32 bits of the double's bit pattern, taken as a float (1.0
        // and 0.0 both give 0.0): the kept behaviour callers rely on.
        uint64 bits;
        std::memcpy(&bits, &alpha, 8);
        uint32 low = uint32(bits);
        std::memcpy(sample, &low, 4);
        break;
    }
    default:
        break;
    }
    // Byte walk from the blocks' starts (not the first pixels), interleaved
    // even for PACK_RGBA_NI: the kept behaviour.
    unsigned char *dst = static_cast<unsigned char *>(myRaster);
    const int64 pixels = myXres * myYres;
    for (int64 i = 0; i < pixels; ++i, old += 3 * d, dst += 4 * d)
    {
        std::memcpy(dst, old, size_t(3 * d));
        std::memcpy(dst + 3 * d, sample, size_t(d));
    }
}

void IMB_Raster::adjustSaturation(float s)
{
    if (myPacking != PACK_RGB && myPacking != PACK_RGBA && myPacking != PACK_RGB_NI && myPacking != PACK_RGBA_NI)
        return;
    if (std::fabs(double(s) - 1.0) <= double(1e-5f))
        return;
    if (!getPixels() || myXres <= 0 || myYres <= 0)
        return;
    switch (myFormat)
    {
    case IMB_INT8:
        return saturate<IMB_INT8>(*this, s);
    case IMB_INT16:
        return saturate<IMB_INT16>(*this, s);
    case IMB_INT32:
        return saturate<IMB_INT32>(*this, s);
    case IMB_FLOAT16:
        return saturate<IMB_FLOAT16>(*this, s);
    case IMB_FLOAT32:
        return saturate<IMB_FLOAT32>(*this, s);
    default:
        return;
    }
}

int IMB_Raster::areComponentsRenderable() const
{
    if (myPacking == PACK_SINGLE || myPacking == PACK_DUAL_NI || myPacking == PACK_RGB_NI ||
        myPacking == PACK_RGBA_NI)
        return 1;
    return myDataOffset >= 16 ? 1 : 0;
}

#endif // HWY_ONCE
