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

#include "platform/HalfVectors-inl.h"
#include "platform/VEC_Math.h"

#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Stores floats already clamped to [0, white] as integers of T (8 or 16
// bits): the truncating conversion is their floor, and as they fit, the low
// bits of each 32-bit result are the result, which is cheaper than a
// saturating demotion.
template <class DF, class DT>
HWY_INLINE void storeClamped(DF df, DT dt, hn::Vec<DF> y, hn::TFromD<DT> *HWY_RESTRICT p)
{
    const hn::RebindToUnsigned<DF> du;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
    // The floor plus 2^23 holds the integer in its low mantissa bits; this
    // skips the fix-up for out-of-range values that the x86 conversion
    // needs, and none are left here.
    (void)df;
    hn::StoreU(hn::TruncateTo(dt, hn::BitCast(du, hn::Add(hn::Floor(y), hn::Set(df, 8388608.0f)))), dt, p);
#else
    const hn::RebindToSigned<DF> di;
    hn::StoreU(hn::TruncateTo(dt, hn::BitCast(du, hn::ConvertTo(di, y))), dt, p);
#endif
}

// Converts whole vectors of floats to integers of type T; returns how many
// were done.
template <typename T>
HWY_INLINE int64 wpointVectors(T *HWY_RESTRICT dst, const float *HWY_RESTRICT src, float scale, float maximum,
                               float black, int64 n)
{
    const hn::ScalableTag<float> df;
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
        auto y = hn::Add(hn::Add(hn::Mul(x, vScale), vBlack), vHalf);
        // NaN compares false, so it becomes 0 like a negative value. What is
        // left is positive, where the truncating conversion is the floor.
        y = hn::IfThenElseZero(hn::Gt(y, zero), y);
        y = hn::Min(y, vMax);
        storeClamped(df, dt, y, dst + i);
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

// Float to half bit patterns, whole vectors; returns how many were done.
HWY_NOINLINE int64 ToHalf(uint16 *HWY_RESTRICT dst, const float *HWY_RESTRICT src, int64 n)
{
    const hn::ScalableTag<float> df;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
        storeHalf<true>(df, hn::LoadU(df, src + i), dst + i);
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
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
        hn::StoreU(halfBitsToFloat(df, hn::PromoteTo(du, hn::LoadU(dh, src + i))), df, dst + i);
    return i;
}

// ---------------------------------------------------------------- fused rows
// A row converted in one pass: the source read as a fraction in float lanes,
// written straight to the destination kind. 32-bit integers go through
// doubles, half a vector at a time.

// The fraction of 32-bit components, through doubles: as many float lanes
// as doubles fit in a vector.
template <class DF, class VU>
HWY_INLINE hn::Vec<DF> fractionOf32(DF df, VU v, const VEC_Math::RowTerms &t)
{
    const hn::Rebind<double, DF> dd;
    const hn::Rebind<int32_t, DF> di;
    const hn::Rebind<uint32_t, DF> du;
    hn::Vec<decltype(dd)> x;
    if (t.readDivide)
    {
        // v as a double: flip the top bit into a signed value and back.
        // The rule divides by 4294967295; multiplying by its reciprocal gives
        // the same float for every one of the 2^32 values (checked
        // exhaustively), and these rows only ever use x as a float.
        const auto s = hn::BitCast(di, hn::Xor(v, hn::Set(du, 0x80000000u)));
        x = hn::Mul(hn::Add(hn::PromoteTo(dd, s), hn::Set(dd, 2147483648.0)), hn::Set(dd, 1.0 / 4294967295.0));
    }
    else
    {
        const auto s = hn::BitCast(di, hn::Sub(v, hn::Set(du, static_cast<uint32>(t.readBlack))));
        x = hn::Mul(hn::PromoteTo(dd, s), hn::Set(dd, t.readScale64));
    }
    return hn::DemoteTo(df, x);
}

// floor(x * range + black + 0.5) in doubles, clamped to [0, 2^32 - 1] (NaN
// gives 0), as 32-bit components.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<uint32_t, DF>> integerOf32(DF df, hn::Vec<DF> x, const VEC_Math::RowTerms &t)
{
    const hn::Rebind<double, DF> dd;
    const hn::Rebind<int32_t, DF> di;
    const hn::Rebind<uint32_t, DF> du;
    if (t.writeInRange32)
    {
        const auto y = hn::Add(hn::Add(hn::Mul(hn::PromoteTo(dd, x), hn::Set(dd, t.writeRange64)),
                                       hn::Set(dd, t.writeBlack64)),
                               hn::Set(dd, 0.5));
        return hn::BitCast(du, hn::DemoteTo(di, y));
    }
    auto y = hn::Floor(hn::Add(hn::Add(hn::Mul(hn::PromoteTo(dd, x), hn::Set(dd, t.writeRange64)),
                                       hn::Set(dd, t.writeBlack64)),
                               hn::Set(dd, 0.5)));
    if (!t.writeUnclamped32)
    {
        y = hn::IfThenElseZero(hn::Gt(y, hn::Zero(dd)), y);
        y = hn::Min(y, hn::Set(dd, 4294967295.0));
    }
    // Exact integers in [0, 2^32 - 1]: shift into the signed range, convert,
    // and flip the top bit back.
    const auto r = hn::DemoteTo(di, hn::Sub(y, hn::Set(dd, 2147483648.0)));
    return hn::Xor(hn::BitCast(du, r), hn::Set(du, 0x80000000u));
}

// Source kinds 0-4 as in VEC_Math::Kind. ExactNaN keeps every NaN payload
// bit (float and half destinations need it).
template <int K, bool ExactNaN, class DF>
HWY_INLINE hn::Vec<DF> loadFraction(DF df, const void *HWY_RESTRICT src, int64 i, const VEC_Math::RowTerms &t)
{
    if constexpr (K == 3)
    {
        return hn::LoadU(df, static_cast<const float *>(src) + i);
    }
#if HWY_TARGET <= HWY_AVX2 && !defined(HWY_DISABLE_F16C)
    else if constexpr (K == 4 && !ExactNaN)
    {
        // The processor's conversion is exact but quiets signalling NaNs,
        // which integer destinations turn into 0 all the same.
        const hn::Rebind<hwy::float16_t, DF> dh;
        return hn::PromoteTo(df, hn::LoadU(dh, reinterpret_cast<const hwy::float16_t *>(src) + i));
    }
#endif
    else if constexpr (K == 4)
    {
        const hn::RebindToUnsigned<DF> du;
        const hn::Rebind<uint16_t, DF> dh;
        return halfBitsToFloat(df, hn::PromoteTo(du, hn::LoadU(dh, static_cast<const uint16 *>(src) + i)));
    }
    else if constexpr (K == 2)
    {
        const hn::Rebind<uint32_t, DF> du;
        const auto v = hn::LoadU(du, static_cast<const uint32 *>(src) + i);
#if HWY_TARGET == HWY_SCALAR
        return fractionOf32(df, v, t);
#else
        // Doubles hold half as many lanes: convert each half.
        const hn::Half<DF> dfh;
        const hn::Half<decltype(du)> duh;
        return hn::Combine(df, fractionOf32(dfh, hn::UpperHalf(duh, v), t),
                           fractionOf32(dfh, hn::LowerHalf(duh, v), t));
#endif
    }
    else
    {
        using T = std::conditional_t<K == 0, uint8_t, uint16_t>;
        const hn::Rebind<T, DF> dt;
        const hn::Rebind<int32_t, DF> di;
        const auto v = hn::PromoteTo(di, hn::LoadU(dt, static_cast<const T *>(src) + i));
        return hn::Mul(hn::ConvertTo(df, hn::Sub(v, hn::Set(di, t.readBlack))), hn::Set(df, t.readScale));
    }
}

// Writes a vector of fractions. MayBeNaN is false for integer sources.
template <int K, bool MayBeNaN, class DF>
HWY_INLINE bool storeFraction(DF df, hn::Vec<DF> x, void *HWY_RESTRICT dst, int64 i, const VEC_Math::RowTerms &t)
{
    if constexpr (K == 3)
    {
        hn::StoreU(x, df, static_cast<float *>(dst) + i);
        return true;
    }
    else if constexpr (K == 4)
    {
        storeHalf<MayBeNaN>(df, x, static_cast<uint16 *>(dst) + i);
        return true;
    }
    else if constexpr (K == 2)
    {
        const hn::Rebind<uint32_t, DF> du;
        if (t.writeFloat32)
        {
            const hn::Rebind<int32_t, DF> di;
            const auto y = hn::Add(hn::Add(hn::Mul(x, hn::Set(df, t.writeRange32f)), hn::Set(df, t.writeBlack32f)),
                                   hn::Set(df, 0.5f));
            hn::StoreU(hn::BitCast(du, hn::ConvertTo(di, y)), du, static_cast<uint32 *>(dst) + i);
            return true;
        }
#if HWY_TARGET == HWY_SCALAR
        const auto r = integerOf32(df, x, t);
#else
        const hn::Half<DF> dfh;
        const auto r = hn::Combine(du, integerOf32(dfh, hn::UpperHalf(dfh, x), t),
                                   integerOf32(dfh, hn::LowerHalf(dfh, x), t));
#endif
        hn::StoreU(r, du, static_cast<uint32 *>(dst) + i);
        return true;
    }
    else
    {
        using T = std::conditional_t<K == 0, uint8_t, uint16_t>;
        const hn::Rebind<T, DF> dt;
        auto y = hn::Add(hn::Add(hn::Mul(x, hn::Set(df, t.writeScale)), hn::Set(df, t.writeBlack)), hn::Set(df, 0.5f));
        // NaN and values below 0 give 0; on what is left (positive) the
        // truncating conversion is the floor.
        y = hn::IfThenElseZero(hn::Gt(y, hn::Zero(df)), y);
        y = hn::Min(y, hn::Set(df, t.writeMax));
        storeClamped(df, dt, y, static_cast<T *>(dst) + i);
        return true;
    }
}

template <int From, int To>
HWY_INLINE int64 convertRowT(const void *HWY_RESTRICT src, void *HWY_RESTRICT dst, const VEC_Math::RowTerms &terms,
                             int64 n)
{
    // A local copy: the stores to dst cannot reach it, so its values stay in
    // registers instead of being loaded again for every vector.
    const VEC_Math::RowTerms t = terms;
#if HWY_TARGET == HWY_SCALAR
    using DF = hn::Rebind<float, hn::ScalableTag<double>>;
#else
    using DF = hn::ScalableTag<float>;
#endif
    const DF df;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
        if (!storeFraction<To, (From == 3 || From == 4)>(df, loadFraction<From, (To == 3 || To == 4)>(df, src, i, t), dst, i, t))
            break;
    return i;
}

// Integer rows without floats, in the lanes of the wider kind.
template <int From, int To>
HWY_INLINE int64 bitsRowT(const void *HWY_RESTRICT src, void *HWY_RESTRICT dst, int64 n)
{
    constexpr bool widening = From < To;
    using Wide = std::conditional_t<(widening ? To : From) == 2, uint32_t, uint16_t>;
    using Narrow = std::conditional_t<(widening ? From : To) == 1, uint16_t, uint8_t>;
    using Signed = std::make_signed_t<Wide>;
    const hn::ScalableTag<Wide> dw;
    const hn::Rebind<Narrow, decltype(dw)> dn;
    const hn::Rebind<Signed, decltype(dw)> ds;
    const int64 lanes = static_cast<int64>(hn::Lanes(dw));
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        if constexpr (widening)
        {
            const auto v = hn::PromoteTo(dw, hn::LoadU(dn, static_cast<const Narrow *>(src) + i));
            auto r = hn::Or(v, hn::ShiftLeft<8>(v));
            if constexpr (sizeof(Wide) == 4)
                r = hn::Or(r, hn::ShiftLeft<16>(r));
            hn::StoreU(r, dw, static_cast<Wide *>(dst) + i);
        }
        else
        {
            constexpr int shift = 8 * static_cast<int>(sizeof(Wide) - sizeof(Narrow));
            const auto v = hn::LoadU(dw, static_cast<const Wide *>(src) + i);
            // At most white + 1, which the saturating demotion brings back to
            // white.
            const auto r = hn::Add(hn::ShiftRight<shift>(v), hn::And(hn::ShiftRight<shift - 1>(v), hn::Set(dw, 1)));
            hn::StoreU(hn::DemoteTo(dn, hn::BitCast(ds, r)), dn, static_cast<Narrow *>(dst) + i);
        }
    }
    return i;
}

HWY_NOINLINE int64 BitsRow_0_1(const void *src, void *dst, int64 n)
{
    return bitsRowT<0, 1>(src, dst, n);
}
HWY_NOINLINE int64 BitsRow_0_2(const void *src, void *dst, int64 n)
{
    return bitsRowT<0, 2>(src, dst, n);
}
HWY_NOINLINE int64 BitsRow_1_0(const void *src, void *dst, int64 n)
{
    return bitsRowT<1, 0>(src, dst, n);
}
HWY_NOINLINE int64 BitsRow_2_0(const void *src, void *dst, int64 n)
{
    return bitsRowT<2, 0>(src, dst, n);
}
HWY_NOINLINE int64 BitsRow_2_1(const void *src, void *dst, int64 n)
{
    return bitsRowT<2, 1>(src, dst, n);
}

template <int K, int Op>
HWY_INLINE int64 arithmeticRowT(void *HWY_RESTRICT data, const VEC_Math::RowTerms &t, float value,
                                const float *HWY_RESTRICT factors, int64 n)
{
    const hn::ScalableTag<float> df;
    const int64 lanes = static_cast<int64>(hn::Lanes(df));
    int64 i = 0;
    for (; i + lanes <= n; i += lanes)
    {
        const auto x = loadFraction<K, true>(df, data, i, t);
        hn::Vec<decltype(df)> y;
        if constexpr (Op == 0)
            y = hn::Mul(hn::Sub(hn::Set(df, 1.0f), x), hn::Set(df, value));
        else if constexpr (Op == 1)
            y = hn::Mul(x, hn::Set(df, value));
        else if constexpr (Op == 2)
            y = hn::Mul(x, hn::LoadU(df, factors + i));
        else
            y = hn::Div(x, hn::LoadU(df, factors + i));
        storeFraction<K, true>(df, y, data, i, t);
        if constexpr (Op == 3)
        {
            const auto zero = hn::Eq(hn::LoadU(df, factors + i), hn::Zero(df));
            if (!hn::AllFalse(df, zero))
                for (int64 k = 0; k < lanes; ++k)
                    if (factors[i + k] == 0.0f)
                    {
                        if constexpr (K == 0)
                            static_cast<uint8 *>(data)[i + k] = 0;
                        else
                            static_cast<uint16 *>(data)[i + k] = 0;
                    }
        }
    }
    return i;
}

#define IMB_VEC_ARITHMETIC(K, OP)                                                                                 \
    HWY_NOINLINE int64 Arithmetic_##K##_##OP(void *data, const VEC_Math::RowTerms &t, float value,                 \
                                             const float *factors, int64 n)                                        \
    {                                                                                                              \
        return arithmeticRowT<K, OP>(data, t, value, factors, n);                                                  \
    }
#define IMB_VEC_ARITHMETIC_KIND(K)                                                                                 \
    IMB_VEC_ARITHMETIC(K, 0) IMB_VEC_ARITHMETIC(K, 1) IMB_VEC_ARITHMETIC(K, 2) IMB_VEC_ARITHMETIC(K, 3)
IMB_VEC_ARITHMETIC_KIND(0)
IMB_VEC_ARITHMETIC_KIND(1)
IMB_VEC_ARITHMETIC_KIND(4)
#undef IMB_VEC_ARITHMETIC_KIND
#undef IMB_VEC_ARITHMETIC

#define IMB_VEC_ROW(F, T)                                                                                          \
    HWY_NOINLINE int64 ConvertRow_##F##_##T(const void *src, void *dst, const VEC_Math::RowTerms &t, int64 n)       \
    {                                                                                                              \
        return convertRowT<F, T>(src, dst, t, n);                                                                  \
    }
#define IMB_VEC_ROWS_FROM(F)                                                                                       \
    IMB_VEC_ROW(F, 0) IMB_VEC_ROW(F, 1) IMB_VEC_ROW(F, 2) IMB_VEC_ROW(F, 3) IMB_VEC_ROW(F, 4)
IMB_VEC_ROWS_FROM(0)
IMB_VEC_ROWS_FROM(1)
IMB_VEC_ROW(2, 0)
IMB_VEC_ROW(2, 1)
IMB_VEC_ROW(2, 3)
IMB_VEC_ROW(2, 4)
IMB_VEC_ROWS_FROM(3)
IMB_VEC_ROWS_FROM(4)
#undef IMB_VEC_ROWS_FROM
#undef IMB_VEC_ROW

} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
