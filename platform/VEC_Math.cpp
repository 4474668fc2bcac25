// VEC_Math: dispatch to the best kernel for the running processor, and the
// scalar rules that finish each row (and define the results).
#include "platform/FloatContract.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/VEC_Math-inl.h"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#include "platform/VEC_Math-inl.h"

#if HWY_ONCE

#include "platform/VEC_Math.h"

#include <IMB/platform/half16.h>

#include <cmath>

namespace imb_detail
{
HWY_EXPORT(WPoint8);
HWY_EXPORT(WPoint16);
HWY_EXPORT(IWPoint8);
HWY_EXPORT(IWPoint16);
HWY_EXPORT(ToHalf);
HWY_EXPORT(FromHalf);

#define IMB_EXPORT_ARITHMETIC(K)                                                                                   \
    HWY_EXPORT(Arithmetic_##K##_0);                                                                                \
    HWY_EXPORT(Arithmetic_##K##_1);                                                                                \
    HWY_EXPORT(Arithmetic_##K##_2);                                                                                \
    HWY_EXPORT(Arithmetic_##K##_3);
IMB_EXPORT_ARITHMETIC(0)
IMB_EXPORT_ARITHMETIC(1)
IMB_EXPORT_ARITHMETIC(4)
#undef IMB_EXPORT_ARITHMETIC

HWY_EXPORT(BitsRow_0_1);
HWY_EXPORT(BitsRow_0_2);
HWY_EXPORT(BitsRow_1_0);
HWY_EXPORT(BitsRow_2_0);
HWY_EXPORT(BitsRow_2_1);

#define IMB_EXPORT_ROW(F, T) HWY_EXPORT(ConvertRow_##F##_##T);
#define IMB_EXPORT_ROWS_FROM(F)                                                                                    \
    IMB_EXPORT_ROW(F, 0) IMB_EXPORT_ROW(F, 1) IMB_EXPORT_ROW(F, 2) IMB_EXPORT_ROW(F, 3) IMB_EXPORT_ROW(F, 4)
IMB_EXPORT_ROWS_FROM(0)
IMB_EXPORT_ROWS_FROM(1)
IMB_EXPORT_ROW(2, 0)
IMB_EXPORT_ROW(2, 1)
IMB_EXPORT_ROW(2, 3)
IMB_EXPORT_ROW(2, 4)
IMB_EXPORT_ROWS_FROM(3)
IMB_EXPORT_ROWS_FROM(4)
#undef IMB_EXPORT_ROWS_FROM
#undef IMB_EXPORT_ROW

namespace
{
template <typename T> inline T wpointOne(float x, float scale, float maximum, float black)
{
    const float y = std::floor(x * scale + black + 0.5f);
    if (!(y > 0.0f))
        return 0;
    return static_cast<T>(y < maximum ? y : maximum);
}
} // namespace
} // namespace imb_detail

namespace VEC_Math
{
void wpoint(uint8 *dst, const float *src, float scale, float maximum, float black, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::WPoint8)(dst, src, scale, maximum, black, n); i < n; ++i)
        dst[i] = imb_detail::wpointOne<uint8>(src[i], scale, maximum, black);
}

void wpoint(uint16 *dst, const float *src, float scale, float maximum, float black, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::WPoint16)(dst, src, scale, maximum, black, n); i < n; ++i)
        dst[i] = imb_detail::wpointOne<uint16>(src[i], scale, maximum, black);
}

void iwpoint(float *dst, const uint8 *src, float scale, uint8 black, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::IWPoint8)(dst, src, scale, black, n); i < n; ++i)
        dst[i] = static_cast<float>(int32(src[i]) - int32(black)) * scale;
}

void iwpoint(float *dst, const uint16 *src, float scale, uint16 black, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::IWPoint16)(dst, src, scale, black, n); i < n; ++i)
        dst[i] = static_cast<float>(int32(src[i]) - int32(black)) * scale;
}

void toHalf(uint16 *dst, const float *src, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::ToHalf)(dst, src, n); i < n; ++i)
        dst[i] = half16::fromFloat(src[i]);
}

int64 convertRow(Kind from, Kind to, const void *src, void *dst, const RowTerms &terms, int64 n)
{
#define IMB_ROW_CASE(F, T)                                                                                         \
    case (F) * 5 + (T):                                                                                            \
        return HWY_DYNAMIC_DISPATCH(imb_detail::ConvertRow_##F##_##T)(src, dst, terms, n);
#define IMB_ROW_CASES_FROM(F)                                                                                      \
    IMB_ROW_CASE(F, 0) IMB_ROW_CASE(F, 1) IMB_ROW_CASE(F, 2) IMB_ROW_CASE(F, 3) IMB_ROW_CASE(F, 4)
    switch (static_cast<int>(from) * 5 + static_cast<int>(to))
    {
        IMB_ROW_CASES_FROM(0)
        IMB_ROW_CASES_FROM(1)
        IMB_ROW_CASE(2, 0)
        IMB_ROW_CASE(2, 1)
        IMB_ROW_CASE(2, 3)
        IMB_ROW_CASE(2, 4)
        IMB_ROW_CASES_FROM(3)
        IMB_ROW_CASES_FROM(4)
    default:
        return 0;
    }
#undef IMB_ROW_CASES_FROM
#undef IMB_ROW_CASE
}

int64 arithmeticRow(Kind kind, ArithmeticOp op, void *data, const RowTerms &terms, float value, const float *factors,
                    int64 n)
{
#define IMB_ARITHMETIC_CASE(K, OP)                                                                                 \
    case (K) * 4 + (OP):                                                                                           \
        return HWY_DYNAMIC_DISPATCH(imb_detail::Arithmetic_##K##_##OP)(data, terms, value, factors, n);
#define IMB_ARITHMETIC_CASES(K)                                                                                    \
    IMB_ARITHMETIC_CASE(K, 0) IMB_ARITHMETIC_CASE(K, 1) IMB_ARITHMETIC_CASE(K, 2) IMB_ARITHMETIC_CASE(K, 3)
    switch (static_cast<int>(kind) * 4 + static_cast<int>(op))
    {
        IMB_ARITHMETIC_CASES(0)
        IMB_ARITHMETIC_CASES(1)
        IMB_ARITHMETIC_CASES(4)
    default:
        return 0;
    }
#undef IMB_ARITHMETIC_CASES
#undef IMB_ARITHMETIC_CASE
}

int64 bitsRow(Kind from, Kind to, const void *src, void *dst, int64 n)
{
    switch (static_cast<int>(from) * 5 + static_cast<int>(to))
    {
    case kU8 * 5 + kU16:
        return HWY_DYNAMIC_DISPATCH(imb_detail::BitsRow_0_1)(src, dst, n);
    case kU8 * 5 + kU32:
        return HWY_DYNAMIC_DISPATCH(imb_detail::BitsRow_0_2)(src, dst, n);
    case kU16 * 5 + kU8:
        return HWY_DYNAMIC_DISPATCH(imb_detail::BitsRow_1_0)(src, dst, n);
    case kU32 * 5 + kU8:
        return HWY_DYNAMIC_DISPATCH(imb_detail::BitsRow_2_0)(src, dst, n);
    case kU32 * 5 + kU16:
        return HWY_DYNAMIC_DISPATCH(imb_detail::BitsRow_2_1)(src, dst, n);
    default:
        return 0;
    }
}

void fromHalf(float *dst, const uint16 *src, int64 n)
{
    for (int64 i = HWY_DYNAMIC_DISPATCH(imb_detail::FromHalf)(dst, src, n); i < n; ++i)
        dst[i] = half16::toFloat(src[i]);
}
} // namespace VEC_Math

#endif // HWY_ONCE
