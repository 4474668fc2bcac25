// The per-pixel luma rules, one per function and component type, shared by
// the scalar walker (LumaConvert.cpp) and the vector kernels
// (LumaKernels-inl.h), which must agree with them bit for bit.
#pragma once

#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

#include <cmath>

namespace imb_detail
{
// Integer weights: each set sums to 256 (8 bit) or 65536 (16 bit); index
// 0 is IMB_LUM_WEIGHTED, 1 IMB_LUM_NTSC.
inline constexpr uint32 lumaIntWeights8[2][3] = {{79, 156, 21}, {77, 150, 29}};
inline constexpr uint32 lumaIntWeights16[2][3] = {{20224, 39938, 5374}, {19595, 38470, 7471}};
inline constexpr float lumaRealWeights32[2][3] = {{0.3086f, 0.6094f, 0.082f}, {0.299f, 0.587f, 0.114f}};
inline constexpr double lumaRealWeights64[2][3] = {{0.3086, 0.6094, 0.082}, {0.299, 0.587, 0.114}};
// Float average: the sum of n present channels times this factor.
inline constexpr float lumaAverageFactor[5] = {0.0f, 1.0f, 0.5f, 0.333333f, 0.25f};

// Weighted term of one 8- or 16-bit component: each term truncates on its
// own (white gives 253 in 8 bits, not 255); intended, callers rely on it.
inline uint32 lumaTerm8(uint32 c, uint32 w) { return (c * w) >> 8; }
inline uint32 lumaTerm16(uint32 c, uint32 w) { return (c * w) >> 16; }

// A 32-bit result from a double: floor(y + 0.5) clamped to [0, 2^32 - 1].
inline uint32 lumaRound32(double y)
{
    double v = std::floor(y + 0.5);
    if (!(v > 0.0))
        return 0;
    if (v >= 4294967295.0)
        return 0xFFFFFFFFu;
    return static_cast<uint32>(v);
}

// Integer average share of one channel when n channels are present
// (n = 3 or 4; n = 1 and n = 2 are handled by the caller).
inline uint64 lumaShare(uint64 c, int n) { return n == 3 ? (c + 1) / 3 : (c + 2) >> 2; }
// Integer average of two channels: halves plus the combined low bits, so the
// pair rounds up: equals (a + b + 1) >> 1 without overflow.
inline uint64 lumaPair(uint64 a, uint64 b) { return (a >> 1) + (b >> 1) + ((a | b) & 1); }
} // namespace imb_detail
