// Vector luma kernels, compiled once per instruction set (included through
// hwy/foreach_target.h by LumaKernels.cpp). Each computes exactly what the
// scalar rules in LumaRules.h compute for the same pixels.

#if defined(IMB_LUMA_KERNELS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_LUMA_KERNELS_INL_H_
#undef IMB_LUMA_KERNELS_INL_H_
#else
#define IMB_LUMA_KERNELS_INL_H_
#endif

#include "luma/LumaJob.h"
#include "luma/LumaRules.h"
#include "platform/HalfVectors-inl.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

template <class V> HWY_INLINE V pickLane(int off, V c0, V c1, V c2, V c3)
{
    switch (off)
    {
    case 0:
        return c0;
    case 1:
        return c1;
    case 2:
        return c2;
    default:
        return c3;
    }
}

// Loads the red, green, blue (and alpha when `withAlpha`) of the Lanes(d)
// pixels from pixel i on, in lane type T (the sources' own type, or uint16
// for half16 sources).
template <int S, bool withAlpha, class D, class V = hn::VFromD<D>>
HWY_INLINE void loadPixels(D d, const LumaJob &job, int64 i, V &r, V &g, V &b, V &a)
{
    using T = hn::TFromD<D>;
    if constexpr (S == 1)
    {
        r = hn::LoadU(d, static_cast<const T *>(job.src[0]) + i);
        g = hn::LoadU(d, static_cast<const T *>(job.src[1]) + i);
        b = hn::LoadU(d, static_cast<const T *>(job.src[2]) + i);
        if constexpr (withAlpha)
            a = hn::LoadU(d, static_cast<const T *>(job.src[3]) + i);
    }
    else if constexpr (S == 3)
    {
        V c0, c1, c2;
        hn::LoadInterleaved3(d, static_cast<const T *>(job.base) + 3 * i, c0, c1, c2);
        r = pickLane(job.off[0], c0, c1, c2, c2);
        g = pickLane(job.off[1], c0, c1, c2, c2);
        b = pickLane(job.off[2], c0, c1, c2, c2);
    }
    else
    {
        V c0, c1, c2, c3;
        hn::LoadInterleaved4(d, static_cast<const T *>(job.base) + 4 * i, c0, c1, c2, c3);
        r = pickLane(job.off[0], c0, c1, c2, c3);
        g = pickLane(job.off[1], c0, c1, c2, c3);
        b = pickLane(job.off[2], c0, c1, c2, c3);
        if constexpr (withAlpha)
            a = pickLane(job.off[3], c0, c1, c2, c3);
    }
}

// Vector loops stop before the last pixel (see LumaJob.h).
HWY_INLINE int64 vectorEnd(const LumaJob &job, size_t lanes)
{
    return job.count > int64(lanes) ? job.count - 1 - int64(lanes) : -1;
}

// ---------------------------------------------------------------- 8 bit
// Weighted sums of four-component 8-bit pixels, a pixel per 32-bit lane:
// components 0 and 2 sit in the low bytes of the lane's two 16-bit halves,
// 1 and 3 in the high bytes, so two multiplies by per-position weights (0
// where no colour channel sits) give every (c * w) >> 8 term, and the two
// halves of the lane add up to the pixel's sum.
int64 weightedU8x4(const LumaJob &job)
{
#if HWY_TARGET == HWY_SCALAR
    return 0;
#else
    const hn::ScalableTag<uint32_t> d32;
    const hn::Repartition<uint16_t, decltype(d32)> d16;
    const hn::Repartition<uint8_t, decltype(d32)> d8;
    const hn::Rebind<uint8_t, decltype(d32)> dOut;
    const size_t N = hn::Lanes(d32);
    const int64 end = vectorEnd(job, N);
    uint32 w[4] = {0, 0, 0, 0};
    for (int c = 0; c < 3; ++c)
        w[job.off[c]] = lumaIntWeights8[job.func][c];
    const auto wEven = hn::BitCast(d16, hn::Set(d32, w[0] | (w[2] << 16)));
    const auto wOdd = hn::BitCast(d16, hn::Set(d32, w[1] | (w[3] << 16)));
    const auto lowBytes = hn::Set(d16, uint16_t(0x00FF));
    const auto lowHalf = hn::Set(d32, 0xFFFFu);
    const uint8 *src = static_cast<const uint8 *>(job.base);
    uint8 *dst = static_cast<uint8 *>(job.dst);
    int64 i = 0;
    for (; i <= end; i += int64(N))
    {
        const auto v = hn::BitCast(d16, hn::LoadU(d8, src + 4 * i));
        const auto even = hn::ShiftRight<8>(hn::Mul(hn::And(v, lowBytes), wEven));
        const auto odd = hn::ShiftRight<8>(hn::Mul(hn::ShiftRight<8>(v), wOdd));
        const auto pairs = hn::BitCast(d32, hn::Add(even, odd));
        const auto sum = hn::Add(hn::And(pairs, lowHalf), hn::ShiftRight<16>(pairs));
        hn::StoreU(hn::TruncateTo(dOut, sum), dOut, dst + i);
    }
    return i;
#endif
}

template <int S, bool withAlpha> int64 runU8(const LumaJob &job)
{
    if constexpr (S == 4)
        if (job.func == 0 || job.func == 1)
            return weightedU8x4(job);
    const hn::ScalableTag<uint16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const size_t N = hn::Lanes(d16);
    const int64 end = vectorEnd(job, N);
    uint8 *dst = static_cast<uint8 *>(job.dst);
    int64 i = 0;
    using V8 = hn::VFromD<decltype(d8)>;
    V8 r8, g8, b8, a8 = hn::Zero(d8);
    if (job.func == 0 || job.func == 1)
    {
        const uint32 *w = lumaIntWeights8[job.func];
        const auto wr = hn::Set(d16, uint16_t(w[0])), wg = hn::Set(d16, uint16_t(w[1])),
                   wb = hn::Set(d16, uint16_t(w[2]));
        for (; i <= end; i += N)
        {
            loadPixels<S, false>(d8, job, i, r8, g8, b8, a8);
            // c * w fits in 16 bits for every 8-bit c and weight <= 256.
            auto sum = hn::Add(hn::Add(hn::ShiftRight<8>(hn::Mul(hn::PromoteTo(d16, r8), wr)),
                                       hn::ShiftRight<8>(hn::Mul(hn::PromoteTo(d16, g8), wg))),
                               hn::ShiftRight<8>(hn::Mul(hn::PromoteTo(d16, b8), wb)));
            hn::StoreU(hn::TruncateTo(d8, sum), d8, dst + i);
        }
    }
    else if (job.func == 2 || job.func == 3)
    {
        for (; i <= end; i += N)
        {
            loadPixels<S, withAlpha>(d8, job, i, r8, g8, b8, a8);
            V8 v = job.func == 2 ? hn::Max(hn::Max(r8, g8), b8) : hn::Min(hn::Min(r8, g8), b8);
            if constexpr (withAlpha)
                v = job.func == 2 ? hn::Max(v, a8) : hn::Min(v, a8);
            hn::StoreU(v, d8, dst + i);
        }
    }
    else
    {
        const auto one = hn::Set(d16, uint16_t(1)), two = hn::Set(d16, uint16_t(2));
        const auto third = hn::Set(d16, uint16_t(43691)), white = hn::Set(d16, uint16_t(255));
        // (c + 1) / 3 as ((c + 1) * 43691) >> 17, exact below 2^17.
        auto share3 = [&](auto c) { return hn::ShiftRight<1>(hn::MulHigh(hn::Add(hn::PromoteTo(d16, c), one), third)); };
        auto share4 = [&](auto c) { return hn::ShiftRight<2>(hn::Add(hn::PromoteTo(d16, c), two)); };
        for (; i <= end; i += N)
        {
            loadPixels<S, withAlpha>(d8, job, i, r8, g8, b8, a8);
            hn::VFromD<decltype(d16)> sum;
            if constexpr (withAlpha)
                sum = hn::Min(hn::Add(hn::Add(share4(r8), share4(g8)), hn::Add(share4(b8), share4(a8))), white);
            else
                sum = hn::Add(hn::Add(share3(r8), share3(g8)), share3(b8));
            hn::StoreU(hn::TruncateTo(d8, sum), d8, dst + i);
        }
    }
    return i;
}

// ---------------------------------------------------------------- 16 bit
template <int S, bool withAlpha> int64 runU16(const LumaJob &job)
{
    uint16 *dst = static_cast<uint16 *>(job.dst);
    int64 i = 0;
    if (job.func <= 3)
    {
        const hn::ScalableTag<uint16_t> d;
        const size_t N = hn::Lanes(d);
        const int64 end = vectorEnd(job, N);
        using V = hn::VFromD<decltype(d)>;
        V r, g, b, a = hn::Zero(d);
        if (job.func <= 1)
        {
            const uint32 *w = lumaIntWeights16[job.func];
            const V wr = hn::Set(d, uint16_t(w[0])), wg = hn::Set(d, uint16_t(w[1])), wb = hn::Set(d, uint16_t(w[2]));
            for (; i <= end; i += N)
            {
                loadPixels<S, false>(d, job, i, r, g, b, a);
                // (c * w) >> 16 is the high half of the 32-bit product.
                V sum = hn::Add(hn::Add(hn::MulHigh(r, wr), hn::MulHigh(g, wg)), hn::MulHigh(b, wb));
                hn::StoreU(sum, d, dst + i);
            }
        }
        else
        {
            for (; i <= end; i += N)
            {
                loadPixels<S, withAlpha>(d, job, i, r, g, b, a);
                V v = job.func == 2 ? hn::Max(hn::Max(r, g), b) : hn::Min(hn::Min(r, g), b);
                if constexpr (withAlpha)
                    v = job.func == 2 ? hn::Max(v, a) : hn::Min(v, a);
                hn::StoreU(v, d, dst + i);
            }
        }
        return i;
    }
    // Average in 32-bit lanes: c + 1 may be 65536.
    const hn::ScalableTag<uint32_t> d32;
    const hn::Rebind<uint16_t, decltype(d32)> d16;
    const size_t N = hn::Lanes(d32);
    const int64 end = vectorEnd(job, N);
    hn::VFromD<decltype(d16)> r, g, b, a = hn::Zero(d16);
    const auto one = hn::Set(d32, 1u), two = hn::Set(d32, 2u), third = hn::Set(d32, 43691u);
    const auto white = hn::Set(d32, 65535u);
    auto share3 = [&](auto c) { return hn::ShiftRight<17>(hn::Mul(hn::Add(hn::PromoteTo(d32, c), one), third)); };
    auto share4 = [&](auto c) { return hn::ShiftRight<2>(hn::Add(hn::PromoteTo(d32, c), two)); };
    for (; i <= end; i += N)
    {
        loadPixels<S, withAlpha>(d16, job, i, r, g, b, a);
        hn::VFromD<decltype(d32)> sum;
        if constexpr (withAlpha)
            sum = hn::Min(hn::Add(hn::Add(share4(r), share4(g)), hn::Add(share4(b), share4(a))), white);
        else
            sum = hn::Add(hn::Add(share3(r), share3(g)), share3(b));
        hn::StoreU(hn::TruncateTo(d16, sum), d16, dst + i);
    }
    return i;
}

// ---------------------------------------------------------------- 32 bit
template <int S, bool withAlpha> int64 runU32(const LumaJob &job)
{
    uint32 *dst = static_cast<uint32 *>(job.dst);
    int64 i = 0;
    if (job.func == 2 || job.func == 3)
    {
        const hn::ScalableTag<uint32_t> d;
        const size_t N = hn::Lanes(d);
        const int64 end = vectorEnd(job, N);
        hn::VFromD<decltype(d)> r, g, b, a = hn::Zero(d);
        for (; i <= end; i += N)
        {
            loadPixels<S, withAlpha>(d, job, i, r, g, b, a);
            auto v = job.func == 2 ? hn::Max(hn::Max(r, g), b) : hn::Min(hn::Min(r, g), b);
            if constexpr (withAlpha)
                v = job.func == 2 ? hn::Max(v, a) : hn::Min(v, a);
            hn::StoreU(v, d, dst + i);
        }
        return i;
    }
    // Weighted sums and average in double precision, where every 32-bit
    // value and every share is exact.
    const hn::ScalableTag<double> dd;
    const hn::Rebind<int64_t, decltype(dd)> di64;
    const hn::Rebind<uint64_t, decltype(dd)> du64;
    const hn::Rebind<uint32_t, decltype(dd)> d32;
    const size_t N = hn::Lanes(dd);
    const int64 end = vectorEnd(job, N);
    const auto top = hn::Set(dd, 4294967295.0);
    hn::VFromD<decltype(d32)> r, g, b, a = hn::Zero(d32);
    auto toDouble = [&](auto c) { return hn::ConvertTo(dd, hn::BitCast(di64, hn::PromoteTo(du64, c))); };
    auto store = [&](int64 at, auto y) {
        auto q = hn::BitCast(du64, hn::ConvertTo(di64, hn::Min(y, top))); // never negative
        hn::StoreU(hn::TruncateTo(d32, q), d32, dst + at);
    };
    if (job.func <= 1)
    {
        // floor(y + 0.5), clamped to 32 bits.
        const double *w = lumaRealWeights64[job.func];
        const auto wr = hn::Set(dd, w[0]), wg = hn::Set(dd, w[1]), wb = hn::Set(dd, w[2]);
        const auto half = hn::Set(dd, 0.5);
        for (; i <= end; i += N)
        {
            loadPixels<S, false>(d32, job, i, r, g, b, a);
            auto y = hn::Add(hn::Add(hn::Mul(toDouble(r), wr), hn::Mul(toDouble(g), wg)), hn::Mul(toDouble(b), wb));
            store(i, hn::Floor(hn::Add(y, half)));
        }
        return i;
    }
    // Average: (c + 1) / 3 (a true division: the quotient of integers below
    // 2^33 never rounds across an integer) or (c + 2) / 4 per channel, summed
    // and clamped to white.
    const auto one = hn::Set(dd, 1.0), two = hn::Set(dd, 2.0), three = hn::Set(dd, 3.0), quarter = hn::Set(dd, 0.25);
    auto share3 = [&](auto c) { return hn::Floor(hn::Div(hn::Add(toDouble(c), one), three)); };
    auto share4 = [&](auto c) { return hn::Floor(hn::Mul(hn::Add(toDouble(c), two), quarter)); };
    for (; i <= end; i += N)
    {
        loadPixels<S, withAlpha>(d32, job, i, r, g, b, a);
        if constexpr (withAlpha)
            store(i, hn::Add(hn::Add(share4(r), share4(g)), hn::Add(share4(b), share4(a))));
        else
            store(i, hn::Add(hn::Add(share3(r), share3(g)), share3(b)));
    }
    return i;
}

// ---------------------------------------------------------------- float
template <class D, class V> HWY_INLINE V floatRule(D d, int func, V r, V g, V b, V a, bool withAlpha)
{
    if (func <= 1)
    {
        const float *w = lumaRealWeights32[func];
        return hn::Add(hn::Add(hn::Mul(r, hn::Set(d, w[0])), hn::Mul(g, hn::Set(d, w[1]))),
                       hn::Mul(b, hn::Set(d, w[2])));
    }
    if (func == 2 || func == 3)
    {
        // The scalar rule: a later channel replaces the value only where it
        // compares larger (smaller), so NaN handling matches exactly.
        V v = r;
        if (func == 2)
        {
            v = hn::IfThenElse(hn::Gt(g, v), g, v);
            v = hn::IfThenElse(hn::Gt(b, v), b, v);
            if (withAlpha)
                v = hn::IfThenElse(hn::Gt(a, v), a, v);
        }
        else
        {
            v = hn::IfThenElse(hn::Lt(g, v), g, v);
            v = hn::IfThenElse(hn::Lt(b, v), b, v);
            if (withAlpha)
                v = hn::IfThenElse(hn::Lt(a, v), a, v);
        }
        return v;
    }
    V sum = hn::Add(hn::Add(r, g), b);
    if (withAlpha)
        return hn::Mul(hn::Add(sum, a), hn::Set(d, lumaAverageFactor[4]));
    return hn::Mul(sum, hn::Set(d, lumaAverageFactor[3]));
}

template <int S, bool withAlpha> int64 runF32(const LumaJob &job)
{
    const hn::ScalableTag<float> d;
    const size_t N = hn::Lanes(d);
    const int64 end = vectorEnd(job, N);
    float *dst = static_cast<float *>(job.dst);
    hn::VFromD<decltype(d)> r, g, b, a = hn::Zero(d);
    int64 i = 0;
    for (; i <= end; i += N)
    {
        loadPixels<S, withAlpha>(d, job, i, r, g, b, a);
        hn::StoreU(floatRule(d, job.func, r, g, b, a, withAlpha), d, dst + i);
    }
    return i;
}

// ---------------------------------------------------------------- half16
template <int S, bool withAlpha> int64 runF16(const LumaJob &job)
{
    const hn::ScalableTag<float> df;
    const hn::Rebind<uint32_t, decltype(df)> du32;
    const hn::Rebind<uint16_t, decltype(df)> du16;
    const size_t N = hn::Lanes(df);
    const int64 end = vectorEnd(job, N);
    uint16 *dst = static_cast<uint16 *>(job.dst);
    hn::VFromD<decltype(du16)> r, g, b, a = hn::Zero(du16);
    auto widen = [&](auto h) { return widenHalves(df, h); };
    int64 i = 0;
    if (job.func == 2 || job.func == 3)
    {
        // Select the winning half's own bits (no round trip through float).
        for (; i <= end; i += N)
        {
            loadPixels<S, withAlpha>(du16, job, i, r, g, b, a);
            auto vf = widen(r);
            auto vb = hn::PromoteTo(du32, r);
            auto step = [&](auto c) {
                auto cf = widen(c);
                auto m = job.func == 2 ? hn::Gt(cf, vf) : hn::Lt(cf, vf);
                vf = hn::IfThenElse(m, cf, vf);
                vb = hn::IfThenElse(hn::RebindMask(du32, m), hn::PromoteTo(du32, c), vb);
            };
            step(g);
            step(b);
            if constexpr (withAlpha)
                step(a);
            hn::StoreU(hn::TruncateTo(du16, vb), du16, dst + i);
        }
        return i;
    }
    for (; i <= end; i += N)
    {
        loadPixels<S, withAlpha>(du16, job, i, r, g, b, a);
        storeHalf<true>(df, floatRule(df, job.func, widen(r), widen(g), widen(b), widen(a), withAlpha), dst + i);
    }
    return i;
}

// ---------------------------------------------------------------- dispatch
#define IMB_LUMA_SELECT(runner)                                                                                        \
    const bool alpha = job.src[3] != nullptr && job.func >= 2;                                                         \
    switch (job.stride)                                                                                                \
    {                                                                                                                  \
    case 1:                                                                                                            \
        return alpha ? runner<1, true>(job) : runner<1, false>(job);                                                   \
    case 3:                                                                                                            \
        return alpha ? 0 : runner<3, false>(job);                                                                      \
    case 4:                                                                                                            \
        return alpha ? runner<4, true>(job) : runner<4, false>(job);                                                   \
    default:                                                                                                           \
        return 0;                                                                                                      \
    }

int64 LumaU8(const LumaJob &job) { IMB_LUMA_SELECT(runU8) }
int64 LumaU16(const LumaJob &job) { IMB_LUMA_SELECT(runU16) }
int64 LumaU32(const LumaJob &job) { IMB_LUMA_SELECT(runU32) }
int64 LumaF32(const LumaJob &job) { IMB_LUMA_SELECT(runF32) }
int64 LumaF16(const LumaJob &job) { IMB_LUMA_SELECT(runF16) }

#undef IMB_LUMA_SELECT

} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif // include guard
