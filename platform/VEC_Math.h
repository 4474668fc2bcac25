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
// Component kinds of the fused row conversion.
enum Kind : int
{
    kU8 = 0,
    kU16 = 1,
    kU32 = 2,
    kF32 = 3,
    kF16 = 4,
};

// The terms of one conversion from a source kind to a destination kind,
// computed as the fill rules do:
//  read:  u8/u16: x = float(int32(v) - readBlack) * readScale;
//         u32:    x = float(readDivide ? double(v) / 4294967295
//                                      : double(int32(v - readBlack)) * readScale64);
//         f32: x = v; f16: x = the half's value.
//  write: u8/u16: clamp(floor(x * writeScale + writeBlack + 0.5), 0, writeMax);
//         u32:    clamp(floor(double(x) * writeRange64 + writeBlack64 + 0.5), 0,
//                 4294967295) in double; f32: x; f16: half16::fromFloat(x).
// NaN writes 0 to integers.
struct RowTerms
{
    float readScale = 1.0f;
    int32 readBlack = 0;
    bool readDivide = false;
    double readScale64 = 1.0;
    float writeScale = 1.0f;
    float writeMax = 0.0f;
    float writeBlack = 0.0f;
    double writeRange64 = 0.0;
    double writeBlack64 = 0.0;
    // Set when every x * range + black + 0.5 of the row lies in
    // [0, 2^31 - 1): 32-bit results then need neither the clamp nor the
    // floor (truncation is the floor of a positive value).
    bool writeInRange32 = false;
    // Set when every y lies in [0, 2^32): no clamp, only the floor.
    bool writeUnclamped32 = false;
    // Set (with writeInRange32) when y computed in float as
    // (x * writeRange32f + writeBlack32f) + 0.5 truncates to the same 32-bit
    // result as the rule for every source value, which the caller has
    // checked value by value.
    bool writeFloat32 = false;
    float writeRange32f = 0.0f;
    float writeBlack32f = 0.0f;
};

// Converts whole vectors of a row from `src` (kind `from`) to `dst` (kind
// `to`) and returns how many components were done (all but a tail shorter
// than a vector, which the caller converts by the scalar rule). Any pair but
// u32 to u32 (0 is returned for it).
int64 convertRow(Kind from, Kind to, const void *src, void *dst, const RowTerms &terms, int64 n);

// In-place arithmetic on fractions: each component is read as a fraction x
// (the read terms), turned into y and written back (the write terms):
//   kInvert:        y = (1 - x) * value
//   kScale:         y = x * value
//   kPixelMultiply: y = x * factors[i]
//   kPixelDivide:   y = x / factors[i]; a factor of 0 stores 0 itself.
enum ArithmeticOp : int
{
    kInvert = 0,
    kScale = 1,
    kPixelMultiply = 2,
    kPixelDivide = 3,
};

// Whole vectors of a contiguous run of u8, u16 or f16 components (any other
// kind does nothing); returns how many were done.
int64 arithmeticRow(Kind kind, ArithmeticOp op, void *data, const RowTerms &terms, float value, const float *factors,
                    int64 n);

// Full-range integer to integer without floats, whole vectors; returns how
// many components were done (all but a tail shorter than a vector).
// Widening replicates the bits (u8 to u16: v * 257, u8 to u32: v *
// 0x01010101); narrowing keeps the high part and adds the highest dropped
// bit, saturating (u16 to u8, u32 to u8, u32 to u16). Other pairs do nothing.
int64 bitsRow(Kind from, Kind to, const void *src, void *dst, int64 n);
} // namespace VEC_Math
