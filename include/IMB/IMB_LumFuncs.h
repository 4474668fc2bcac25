// IMB_LumFuncs: reduction of colour components to one luma value per pixel.
//
// convertToLuma reads up to four separate component streams (red, green,
// blue, alpha) of one data format and writes one dense stream of the same
// format, by one of the functions of IMB_LumFunction. Any source may be null
// (an absent channel); each source advances by `stride` components per pixel,
// so interleaved buffers are read by pointing the sources at their first
// components and passing the pixel step.
//
// Ownership: the caller owns every buffer. Thread-safety: the functions keep
// no state; concurrent calls on distinct destinations are safe.
//
// Rounding, per format:
//  - 8 and 16 bit: weighted sums truncate each term separately,
//    (c * w) >> 8 with weights 79/156/21 (weighted) or 77/150/29 (NTSC), and
//    (c * w) >> 16 with 20224/39938/5374 or 19595/38470/7471; white therefore
//    gives 253 (8 bit), not 255. This is intended and callers rely on it.
//  - 32 bit: weighted sums are computed in double precision with the real
//    weights, then rounded as floor(y + 0.5) and clamped to [0, 4294967295].
//  - float: weighted sums are computed in single precision, term by term in
//    the order red, green, blue, without fused multiply-add.
//  - half16: components are widened exactly to float, the float rule is
//    applied, and the result is narrowed with half16's conversion (exponent
//    table, 13 dropped mantissa bits rounded half up in magnitude).
//  - Integer average: each present channel contributes a rounded share:
//    n = 1 the value; n = 2 (a >> 1) + (b >> 1) + ((a | b) & 1), which equals
//    (a + b + 1) >> 1 (the pair rounds up) without overflow; n = 3
//    (c + 1) / 3 each; n = 4 (c + 2) >> 2 each. The sum of four shares can
//    exceed white (four 8-bit channels of 254 or 255 give 256): it is clamped
//    to white instead of wrapping to black.
//  - Float and half average: the sum of the present channels, in the order
//    red, green, blue, alpha, times 1 (n = 1), 0.5, 0.333333 or 0.25. As for
//    the weighted sums, without red the sum starts from 0 (a lone -0 gives
//    +0).
//  - Maximum and minimum compare with `>` and `<`: a NaN in a later channel
//    never replaces the running value; a NaN in red stays.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

// How a pixel's components become one value. The numbers are part of the
// interface.
enum IMB_LumFunction : int32
{
    IMB_LUM_WEIGHTED = 0, // 0.3086 R + 0.6094 G + 0.0820 B
    IMB_LUM_NTSC = 1,     // 0.299 R + 0.587 G + 0.114 B
    IMB_LUM_MAX = 2,      // largest of the present channels
    IMB_LUM_MIN = 3,      // smallest of the present channels
    IMB_LUM_AVERAGE = 4,  // average of the present channels
    IMB_LUM_RED = 5,      // red copied
    IMB_LUM_GREEN = 6,    // green copied
    IMB_LUM_BLUE = 7,     // blue copied
    IMB_LUM_ALPHA = 8,    // alpha copied
};

class IMB_API IMB_LumFuncs
{
public:
    // Writes `count` luma values to `dst` (densely), computed by `func` from
    // the sources r, g, b, a (any may be null; each advances `stride`
    // components per pixel).
    //  - Weighted sums (IMB_LUM_WEIGHTED, IMB_LUM_NTSC) add the contributions
    //    of the present channels among r, g, b; alpha is not used; absent
    //    channels contribute nothing.
    //  - Maximum and minimum start from red, or, when red is absent, from 0
    //    (maximum) or the format's white value (minimum: 255, 65535,
    //    4294967295, or 1.0 for float and half16); then green, blue and alpha,
    //    where present, replace the value where larger (smaller).
    //  - Average: of the present channels among r, g, b, a; 0 when none is
    //    present.
    //  - Channel copies: the named channel, or 0 when it is absent.
    // A count of 0 or less writes nothing; an unknown function writes
    // nothing. The destination must not overlap a source unless it is the
    // same buffer read with stride 1.
    static void convertToLuma(uint8 *dst, IMB_LumFunction func, const uint8 *r, const uint8 *g, const uint8 *b,
                              const uint8 *a, int32 count, int32 stride);
    static void convertToLuma(uint16 *dst, IMB_LumFunction func, const uint16 *r, const uint16 *g,
                              const uint16 *b, const uint16 *a, int32 count, int32 stride);
    static void convertToLuma(uint32 *dst, IMB_LumFunction func, const uint32 *r, const uint32 *g,
                              const uint32 *b, const uint32 *a, int32 count, int32 stride);
    static void convertToLuma(float *dst, IMB_LumFunction func, const float *r, const float *g, const float *b,
                              const float *a, int32 count, int32 stride);
    static void convertToLuma(half16 *dst, IMB_LumFunction func, const half16 *r, const half16 *g,
                              const half16 *b, const half16 *a, int32 count, int32 stride);

    // The same, on untyped buffers of `format`: IMB_INT8, IMB_INT16,
    // IMB_INT32, IMB_FLOAT32 or IMB_FLOAT16. Any other format does nothing.
    static void convertToLuma(IMB_DataFormat format, void *dst, IMB_LumFunction func, const void *r,
                              const void *g, const void *b, const void *a, int32 count, int32 stride);
};
