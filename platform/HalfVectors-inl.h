// Half-float bit patterns to floats and back, a vector at a time, exactly as
// half16::toFloat and half16::fromFloat: denormals, infinities and NaN
// payloads included. Included by the per-target kernel headers (once per
// instruction set).
#if defined(IMB_PLATFORM_HALF_VECTORS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_PLATFORM_HALF_VECTORS_INL_H_
#undef IMB_PLATFORM_HALF_VECTORS_INL_H_
#else
#define IMB_PLATFORM_HALF_VECTORS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstdint>

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
// Float bits to half bits for a vector, every lane exactly as
// half16::fromFloat gives it. With abs the bits without the sign:
//  - normal results: ((abs + 0x1000) >> 13) - (112 << 10), the exponent
//    table's sum with its carry into the exponent (halves round up);
//  - results below the normal range: abs + 0.5 in float rounds the value to a
//    multiple of 2^-24 to nearest even, and the low bits of the sum are the
//    denormal half (0 for magnitudes below 2^-25, which the full conversion
//    flushes to a signed zero);
//  - overflow and infinity: 0x7c00; NaN: 0x7c00 with the top payload bits,
//    kept a NaN.
template <class DF, class DI> HWY_INLINE hn::Vec<DI> halfVector(DF df, DI di, hn::Vec<DI> bits)
{
    const auto abs = hn::And(bits, hn::Set(di, 0x7fffffff));
    const auto sign = hn::And(hn::ShiftRight<16>(bits), hn::Set(di, 0x8000));
    const auto normal = hn::Sub(hn::ShiftRight<13>(hn::Add(abs, hn::Set(di, 0x1000))), hn::Set(di, 112 << 10));
    const auto half = hn::Set(df, 0.5f);
    const auto small = hn::Sub(hn::BitCast(di, hn::Add(hn::BitCast(df, abs), half)), hn::BitCast(di, half));
    const auto payload = hn::ShiftRight<13>(hn::And(abs, hn::Set(di, 0x007fffff)));
    const auto nan = hn::Or(hn::Or(payload, hn::Set(di, 0x7c00)),
                            hn::IfThenElseZero(hn::Eq(payload, hn::Zero(di)), hn::Set(di, 1)));
    const auto special = hn::IfThenElse(hn::Gt(abs, hn::Set(di, 0x7f800000)), nan, hn::Set(di, 0x7c00));
    const auto h = hn::IfThenElse(hn::Lt(abs, hn::Set(di, 113 << 23)), small,
                                  hn::IfThenElse(hn::Lt(abs, hn::Set(di, 143 << 23)), normal, special));
    return hn::Or(h, sign);
}

// Stores a vector of floats as halves, exactly as half16::fromFloat.
template <bool MayBeNaN, class DF> HWY_INLINE void storeHalf(DF df, hn::Vec<DF> x, uint16_t *HWY_RESTRICT dst)
{
    const hn::RebindToSigned<DF> di;
#if HWY_TARGET <= HWY_AVX2 && !defined(HWY_DISABLE_F16C)
    // The processor rounds to nearest even and is exact below the normal
    // range and at overflow. The library rounds the ties of normal results up
    // in magnitude: nudging such a tie up by one bit makes it round up, and no
    // other value has 0x1000 as its low 13 bits at a rounding boundary. The
    // processor's NaNs differ, so vectors holding a NaN take the bit path.
    if (!MayBeNaN || hn::AllFalse(df, hn::IsNaN(x)))
    {
        const hn::Rebind<hwy::float16_t, DF> dh;
        const auto bits = hn::BitCast(di, x);
        const auto low = hn::And(bits, hn::Set(di, 0x1fff));
        const auto nudged = hn::Or(bits, hn::IfThenElseZero(hn::Eq(low, hn::Set(di, 0x1000)), hn::Set(di, 1)));
        hn::StoreU(hn::DemoteTo(dh, hn::BitCast(df, nudged)), dh, reinterpret_cast<hwy::float16_t *>(dst));
        return;
    }
#endif
    const hn::Rebind<uint16_t, DF> du;
    hn::StoreU(hn::DemoteTo(du, halfVector(df, di, hn::BitCast(di, x))), du, dst);
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif // include guard
