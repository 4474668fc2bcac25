// Half-float bit patterns to floats, a vector at a time, exactly as
// half16::toFloat: denormals, infinities and NaN payloads included. Included
// by the per-target kernel headers (once per instruction set).
#if defined(IMB_PLATFORM_HALF_VECTORS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_PLATFORM_HALF_VECTORS_INL_H_
#undef IMB_PLATFORM_HALF_VECTORS_INL_H_
#else
#define IMB_PLATFORM_HALF_VECTORS_INL_H_
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// From the bits, zero-extended to 32-bit lanes: the exponent is rebiased
// (twice for infinities and NaN, whose payload moves up with the mantissa),
// and denormals come out of one exact float subtraction.
template <class DF> HWY_INLINE hn::Vec<DF> halfBitsToFloat(DF df, hn::Vec<hn::RebindToUnsigned<DF>> h)
{
    const hn::RebindToUnsigned<DF> du;
    const auto expField = hn::Set(du, 0x0f800000u);
    const auto rebias = hn::Set(du, (127u - 15u) << 23);
    auto o = hn::ShiftLeft<13>(hn::And(h, hn::Set(du, 0x7fffu)));
    const auto exp = hn::And(o, expField);
    o = hn::Add(o, rebias);
    o = hn::IfThenElse(hn::Eq(exp, expField), hn::Add(o, rebias), o);
    const auto den = hn::BitCast(du, hn::Sub(hn::BitCast(df, hn::Add(o, hn::Set(du, 1u << 23))),
                                             hn::BitCast(df, hn::Set(du, 113u << 23))));
    o = hn::IfThenElse(hn::Eq(exp, hn::Zero(du)), den, o);
    o = hn::Or(o, hn::ShiftLeft<16>(hn::And(h, hn::Set(du, 0x8000u))));
    return hn::BitCast(df, o);
}

// The same from a vector of 16-bit lanes. x86 processors with F16C convert
// exactly in one instruction (quieting signalling NaNs); elsewhere Highway's
// portable conversion does not keep infinities and NaN, so the bits are
// converted as above.
template <class DF, class VH> HWY_INLINE hn::Vec<DF> widenHalves(DF df, VH h)
{
#if HWY_TARGET <= HWY_AVX2 && !defined(HWY_DISABLE_F16C)
    const hn::Rebind<hwy::float16_t, DF> dh;
    return hn::PromoteTo(df, hn::BitCast(dh, h));
#else
    return halfBitsToFloat(df, hn::PromoteTo(hn::RebindToUnsigned<DF>(), h));
#endif
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif // include guard
