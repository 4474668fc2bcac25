// IMB_LumFuncs::convertToLuma: the scalar walker, the choice of the vector
// kernels for the common layouts, and the per-format entry points.

// Fused multiply-add would change float results against the vector kernels.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#include <IMB/IMB_LumFuncs.h>

#include "luma/LumaJob.h"
#include "luma/LumaRules.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace
{
using namespace imb_detail;

template <class T> constexpr bool isHalf = std::is_same_v<T, half16>;

// Component value as the rules see it: integers as themselves, half16 as
// its exact float.
template <class T> inline auto valueOf(T c)
{
    if constexpr (isHalf<T>)
        return half16::toFloat(c.bits());
    else
        return c;
}

template <class T> inline T fromFloatResult(float f)
{
    if constexpr (isHalf<T>)
        return half16::fromBits(half16::fromFloat(f));
    else
        return f;
}

// White of the format, as the minimum starts from it when red is absent.
template <class T> inline T whiteOf()
{
    if constexpr (isHalf<T>)
        return half16::fromBits(0x3C00); // 1.0
    else if constexpr (std::is_floating_point_v<T>)
        return T(1);
    else
        return T(~T(0));
}

template <class T> inline T zeroOf()
{
    if constexpr (isHalf<T>)
        return half16::fromBits(0);
    else
        return T(0);
}

// ---------------------------------------------------------------- rules
template <class T> T weightedPixel(int func, const T *const c[4])
{
    if constexpr (std::is_same_v<T, uint8> || std::is_same_v<T, uint16>)
    {
        uint32 acc = 0;
        for (int k = 0; k < 3; ++k)
            if (c[k])
                acc += std::is_same_v<T, uint8> ? lumaTerm8(*c[k], lumaIntWeights8[func][k])
                                                : lumaTerm16(*c[k], lumaIntWeights16[func][k]);
        return T(acc);
    }
    else if constexpr (std::is_same_v<T, uint32>)
    {
        double acc = c[0] ? double(*c[0]) * lumaRealWeights64[func][0] : 0.0;
        for (int k = 1; k < 3; ++k)
            if (c[k])
                acc += double(*c[k]) * lumaRealWeights64[func][k];
        return lumaRound32(acc);
    }
    else
    {
        float acc = c[0] ? float(valueOf(*c[0])) * lumaRealWeights32[func][0] : 0.0f;
        for (int k = 1; k < 3; ++k)
            if (c[k])
                acc += float(valueOf(*c[k])) * lumaRealWeights32[func][k];
        return fromFloatResult<T>(acc);
    }
}

template <class T> T extremePixel(bool largest, const T *const c[4])
{
    T cur = c[0] ? *c[0] : (largest ? zeroOf<T>() : whiteOf<T>());
    auto curValue = valueOf(cur);
    for (int k = 1; k < 4; ++k)
    {
        if (!c[k])
            continue;
        auto v = valueOf(*c[k]);
        if (largest ? v > curValue : v < curValue)
        {
            cur = *c[k];
            curValue = v;
        }
    }
    return cur;
}

template <class T> T averagePixel(const T *const c[4])
{
    const T *present[4];
    int n = 0;
    for (int k = 0; k < 4; ++k)
        if (c[k])
            present[n++] = c[k];
    if (n == 0)
        return zeroOf<T>();
    if constexpr (std::is_integral_v<T>)
    {
        if (n == 1)
            return *present[0];
        if (n == 2)
            return T(lumaPair(*present[0], *present[1]));
        uint64 sum = 0;
        for (int k = 0; k < n; ++k)
            sum += lumaShare(*present[k], n);
        // Four shares of near-white can sum past white: clamp, never wrap.
        const uint64 white = T(~T(0));
        return T(sum < white ? sum : white);
    }
    else
    {
        // Without red the sum starts from 0 (so a lone -0 gives +0).
        float acc = c[0] ? float(valueOf(*c[0])) : 0.0f;
        for (int k = 1; k < 4; ++k)
            if (c[k])
                acc += float(valueOf(*c[k]));
        if (n > 1)
            acc *= lumaAverageFactor[n];
        return fromFloatResult<T>(acc);
    }
}

template <class T>
void scalarWalk(T *dst, int func, const T *const src[4], int64 begin, int64 count, int64 stride)
{
    const T *c[4];
    for (int64 i = begin; i < count; ++i)
    {
        for (int k = 0; k < 4; ++k)
            c[k] = src[k] ? src[k] + i * stride : nullptr;
        switch (func)
        {
        case IMB_LUM_WEIGHTED:
        case IMB_LUM_NTSC:
            dst[i] = weightedPixel(func, c);
            break;
        case IMB_LUM_MAX:
        case IMB_LUM_MIN:
            dst[i] = extremePixel(func == IMB_LUM_MAX, c);
            break;
        default:
            dst[i] = averagePixel(c);
            break;
        }
    }
}

template <class T> void copyChannel(T *dst, const T *src, int64 count, int64 stride)
{
    if (!src)
    {
        for (int64 i = 0; i < count; ++i)
            dst[i] = zeroOf<T>();
    }
    else if (stride == 1)
    {
        std::memmove(dst, src, size_t(count) * sizeof(T));
    }
    else
    {
        for (int64 i = 0; i < count; ++i)
            dst[i] = src[i * stride];
    }
}

// Fills in the interleaved description of `job` when red, green, blue (and
// alpha when it is used) sit at distinct offsets within one pixel step of
// `stride` components. False when they do not.
template <class T> bool describeInterleaved(LumaJob &job, const T *const src[4], bool useAlpha)
{
    const int used = useAlpha ? 4 : 3;
    std::uintptr_t lo = reinterpret_cast<std::uintptr_t>(src[0]);
    for (int k = 1; k < used; ++k)
        lo = std::min(lo, reinterpret_cast<std::uintptr_t>(src[k]));
    int seen = 0;
    for (int k = 0; k < used; ++k)
    {
        std::uintptr_t diff = reinterpret_cast<std::uintptr_t>(src[k]) - lo;
        if (diff % sizeof(T) != 0 || diff / sizeof(T) >= std::uintptr_t(job.stride))
            return false;
        job.off[k] = int(diff / sizeof(T));
        if (seen & (1 << job.off[k]))
            return false;
        seen |= 1 << job.off[k];
    }
    job.base = reinterpret_cast<const T *>(lo);
    return true;
}

template <class T>
void convert(T *dst, int func, const T *r, const T *g, const T *b, const T *a, int32 count, int32 stride,
             int64 (*kernel)(const LumaJob &))
{
    if (count <= 0 || func < IMB_LUM_WEIGHTED || func > IMB_LUM_ALPHA)
        return;
    const T *const src[4] = {r, g, b, a};
    if (func >= IMB_LUM_RED)
    {
        copyChannel(dst, src[func - IMB_LUM_RED], count, stride);
        return;
    }
    int64 done = 0;
    if (r && g && b && (stride == 1 || stride == 3 || stride == 4))
    {
        LumaJob job{};
        job.dst = dst;
        for (int k = 0; k < 4; ++k)
            job.src[k] = src[k];
        job.func = func;
        job.stride = stride;
        job.count = count;
        const bool useAlpha = a && func >= IMB_LUM_MAX;
        if (stride == 1 || describeInterleaved(job, src, useAlpha))
            done = kernel(job);
    }
    scalarWalk(dst, func, src, done, count, stride);
}
} // namespace

void IMB_LumFuncs::convertToLuma(uint8 *dst, IMB_LumFunction func, const uint8 *r, const uint8 *g, const uint8 *b,
                                 const uint8 *a, int32 count, int32 stride)
{
    convert(dst, func, r, g, b, a, count, stride, lumaKernelU8);
}

void IMB_LumFuncs::convertToLuma(uint16 *dst, IMB_LumFunction func, const uint16 *r, const uint16 *g,
                                 const uint16 *b, const uint16 *a, int32 count, int32 stride)
{
    convert(dst, func, r, g, b, a, count, stride, lumaKernelU16);
}

void IMB_LumFuncs::convertToLuma(uint32 *dst, IMB_LumFunction func, const uint32 *r, const uint32 *g,
                                 const uint32 *b, const uint32 *a, int32 count, int32 stride)
{
    convert(dst, func, r, g, b, a, count, stride, lumaKernelU32);
}

void IMB_LumFuncs::convertToLuma(float *dst, IMB_LumFunction func, const float *r, const float *g, const float *b,
                                 const float *a, int32 count, int32 stride)
{
    convert(dst, func, r, g, b, a, count, stride, lumaKernelF32);
}

void IMB_LumFuncs::convertToLuma(half16 *dst, IMB_LumFunction func, const half16 *r, const half16 *g,
                                 const half16 *b, const half16 *a, int32 count, int32 stride)
{
    convert(dst, func, r, g, b, a, count, stride, lumaKernelF16);
}

void IMB_LumFuncs::convertToLuma(IMB_DataFormat format, void *dst, IMB_LumFunction func, const void *r,
                                 const void *g, const void *b, const void *a, int32 count, int32 stride)
{
    switch (format)
    {
    case IMB_INT8:
        convertToLuma(static_cast<uint8 *>(dst), func, static_cast<const uint8 *>(r), static_cast<const uint8 *>(g),
                      static_cast<const uint8 *>(b), static_cast<const uint8 *>(a), count, stride);
        break;
    case IMB_INT16:
        convertToLuma(static_cast<uint16 *>(dst), func, static_cast<const uint16 *>(r),
                      static_cast<const uint16 *>(g), static_cast<const uint16 *>(b), static_cast<const uint16 *>(a),
                      count, stride);
        break;
    case IMB_INT32:
        convertToLuma(static_cast<uint32 *>(dst), func, static_cast<const uint32 *>(r),
                      static_cast<const uint32 *>(g), static_cast<const uint32 *>(b), static_cast<const uint32 *>(a),
                      count, stride);
        break;
    case IMB_FLOAT32:
        convertToLuma(static_cast<float *>(dst), func, static_cast<const float *>(r), static_cast<const float *>(g),
                      static_cast<const float *>(b), static_cast<const float *>(a), count, stride);
        break;
    case IMB_FLOAT16:
        convertToLuma(static_cast<half16 *>(dst), func, static_cast<const half16 *>(r),
                      static_cast<const half16 *>(g), static_cast<const half16 *>(b), static_cast<const half16 *>(a),
                      count, stride);
        break;
    default:
        break;
    }
}
