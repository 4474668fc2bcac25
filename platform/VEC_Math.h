// VEC_Math: row conversions between float and 8/16-bit components, and
// between float and half16 bit patterns, vectorised with runtime dispatch.
//
// Internal to the library. Every routine gives exactly the result of its
// scalar rule written beside it (the fill engine's per-component rules), on
// every instruction set, for every input including NaN; the vector forms only
// change the speed. Free-threaded: no state apart from the dispatch choice.
#pragma once

#include <IMB/platform/BAS_Types.h>

namespace VEC_Math
{
// dst[i] = clamp(floor(src[i] * scale + black + 0.5), 0, maximum), computed in
// single precision in that order; NaN and results below 0 give 0. `maximum`
// is at most the destination's largest value.
void wpoint(uint8 *dst, const float *src, float scale, float maximum, float black, int64 n);
void wpoint(uint16 *dst, const float *src, float scale, float maximum, float black, int64 n);

// dst[i] = float(int32(src[i]) - int32(black)) * scale: the normalisation of an
// integer component, with scale the reciprocal of the black-to-white range.
void iwpoint(float *dst, const uint8 *src, float scale, uint8 black, int64 n);
void iwpoint(float *dst, const uint16 *src, float scale, uint16 black, int64 n);

// dst[i] = half16::fromFloat(src[i]) (exponent-table rounding, the full
// conversion for zeros, denormals, overflow and NaN), as bit patterns.
void toHalf(uint16 *dst, const float *src, int64 n);
// dst[i] = the exact float value of the half bit pattern src[i].
void fromHalf(float *dst, const uint16 *src, int64 n);
} // namespace VEC_Math
