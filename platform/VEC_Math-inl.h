// Per-target kernels of VEC_Math, included once for every instruction set by
// VEC_Math.cpp through Highway's foreach_target. Each loop handles whole
// vectors; the caller finishes the tail with the scalar rule.
#if defined(IMB_PLATFORM_VEC_MATH_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_PLATFORM_VEC_MATH_INL_H_
#undef IMB_PLATFORM_VEC_MATH_INL_H_
#else
#define IMB_PLATFORM_VEC_MATH_INL_H_
#endif

#include <IMB/platform/BAS_Types.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Converts whole vectors of floats to integers of type T; returns how many
// were done.
template <typename T>
HWY_INLINE int64 wpointVectors(T *HWY_RESTRICT dst, const float *HWY_RESTRICT src, float scale, float maximum,
                               float black, int64 n)
{
    const hn::ScalableTag<float> df;
    const hn::Rebind<int32_t, decltype(df)> di;
    const hn::Rebind<T, decltype(df)> dt;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    const auto vScale = hn::Set(df, scale);
    const auto vBlack = hn::Set(df, black);
    const auto vHalf = hn::Set(df, 0.5f);
    const auto vMax = hn::Set(df, maximum);
    const auto zero = hn::Zero(df);
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        const auto x = hn::LoadU(df, src + i);
        auto y = hn::Floor(hn::Add(hn::Add(hn::Mul(x, vScale), vBlack), vHalf));
        // NaN compares false, so it becomes 0 like a negative value.
        y = hn::IfThenElseZero(hn::Gt(y, zero), y);
        y = hn::Min(y, vMax);
        hn::StoreU(hn::DemoteTo(dt, hn::ConvertTo(di, y)), dt, dst + i);
    }
    return i;
}

HWY_NOINLINE int64 WPoint8(uint8 *dst, const float *src, float scale, float maximum, float black, int64 n)
{
    return wpointVectors(dst, src, scale, maximum, black, n);
}
HWY_NOINLINE int64 WPoint16(uint16 *dst, const float *src, float scale, float maximum, float black, int64 n)
{
    return wpointVectors(dst, src, scale, maximum, black, n);
}

template <typename T>
HWY_INLINE int64 iwpointVectors(float *HWY_RESTRICT dst, const T *HWY_RESTRICT src, float scale, int32 black, int64 n)
{
    const hn::ScalableTag<float> df;
    const hn::Rebind<int32_t, decltype(df)> di;
    const hn::Rebind<T, decltype(df)> dt;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    const auto vScale = hn::Set(df, scale);
    const auto vBlack = hn::Set(di, black);
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        const auto v = hn::PromoteTo(di, hn::LoadU(dt, src + i));
        hn::StoreU(hn::Mul(hn::ConvertTo(df, hn::Sub(v, vBlack)), vScale), df, dst + i);
    }
    return i;
}

HWY_NOINLINE int64 IWPoint8(float *dst, const uint8 *src, float scale, int32 black, int64 n)
{
    return iwpointVectors(dst, src, scale, black, n);
}
HWY_NOINLINE int64 IWPoint16(float *dst, const uint16 *src, float scale, int32 black, int64 n)
{
    return iwpointVectors(dst, src, scale, black, n);
}

// Float to half bit patterns. Lanes whose result comes from the exponent table
// (normal halves) or is a signed zero (magnitudes below the denormal range) are
// computed here; a vector holding any other lane (denormal results, overflow,
// infinity, NaN) is left to the caller, whose scalar conversion handles it.
// Returns the index of the first component not converted.
HWY_NOINLINE int64 ToHalf(uint16 *HWY_RESTRICT dst, const float *HWY_RESTRICT src, int64 n)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<uint16_t, decltype(df)> dh;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    const auto expMask = hn::Set(di, 0xff);
    const auto signMask = hn::Set(di, 0x8000);
    const auto mantMask = hn::Set(di, 0x007fffff);
    const auto round = hn::Set(di, 0x1000);
    // Biased float exponents just outside those of the normal halves.
    const auto belowNormal = hn::Set(di, 127 - 15);
    const auto aboveNormal = hn::Set(di, 127 - 15 + 31);
    const auto lowestDenormal = hn::Set(di, 127 - 15 - 10);
    const auto bias = hn::Set(di, 127 - 15);
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        const auto bits = hn::BitCast(di, hn::LoadU(df, src + i));
        const auto e = hn::And(hn::ShiftRight<23>(bits), expMask);
        const auto sign = hn::And(hn::ShiftRight<16>(bits), signMask);
        const auto normal = hn::And(hn::Gt(e, belowNormal), hn::Lt(e, aboveNormal));
        const auto tiny = hn::Lt(e, lowestDenormal);
        if (!hn::AllTrue(di, hn::Or(normal, tiny)))
            return i;
        const auto head = hn::Or(sign, hn::ShiftLeft<10>(hn::Sub(e, bias)));
        const auto h = hn::Add(head, hn::ShiftRight<13>(hn::Add(hn::And(bits, mantMask), round)));
        hn::StoreU(hn::DemoteTo(dh, hn::IfThenElse(normal, h, sign)), dh, dst + i);
    }
    return i;
}

// Half bit patterns to floats, exactly (denormals through one subtraction that
// is exact, infinities and NaN with their payload).
HWY_NOINLINE int64 FromHalf(float *HWY_RESTRICT dst, const uint16 *HWY_RESTRICT src, int64 n)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToUnsigned<decltype(df)> du;
    const hn::Rebind<uint16_t, decltype(df)> dh;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    const auto expField = hn::Set(du, 0x0f800000u);
    const auto rebias = hn::Set(du, (127u - 15u) << 23);
    const auto one = hn::Set(du, 1u << 23);
    const auto magic = hn::BitCast(df, hn::Set(du, 113u << 23));
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        const auto h = hn::PromoteTo(du, hn::LoadU(dh, src + i));
        auto o = hn::ShiftLeft<13>(hn::And(h, hn::Set(du, 0x7fffu)));
        const auto exp = hn::And(o, expField);
        o = hn::Add(o, rebias);
        o = hn::IfThenElse(hn::Eq(exp, expField), hn::Add(o, rebias), o);
        const auto den = hn::BitCast(du, hn::Sub(hn::BitCast(df, hn::Add(o, one)), magic));
        o = hn::IfThenElse(hn::Eq(exp, hn::Zero(du)), den, o);
        o = hn::Or(o, hn::ShiftLeft<16>(hn::And(h, hn::Set(du, 0x8000u))));
        hn::StoreU(hn::BitCast(df, o), df, dst + i);
    }
    return i;
}

} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
