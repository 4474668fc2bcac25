// half16: an IEEE 754 binary16 value, the element type of IMB_FLOAT16.
//
// Float to half has two paths that together define the library's rounding:
//  - fast path: an exponent table indexed by the float's sign and exponent
//    (its top nine bits) gives the half's sign and exponent for every float
//    that lands in the normal half range; the half is then
//        table[bits >> 23] + (((bits & 0x7fffff) + 0x1000) >> 13)
//    which rounds the 13 dropped mantissa bits half up in magnitude (a carry
//    into the exponent is the correct next binade, up to infinity);
//  - full conversion (table entry 0): zeros keep their sign, results below the
//    normal range become denormals rounded to nearest even, results above it
//    become infinity, NaN stays NaN: its sign and top ten payload bits are
//    kept (a signalling NaN stays signalling), and a payload whose top bits
//    are all zero becomes 1 so that the result is not an infinity.
// Half to float is exact, through a 65536-entry table.
// A plain 16-bit value type; free-threaded.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Types.h>

#include <cstring>

class IMB_API half16
{
public:
    half16() noexcept = default;
    half16(float f) noexcept : myBits(fromFloat(f)) {}

    static half16 fromBits(uint16 bits) noexcept
    {
        half16 h;
        h.myBits = bits;
        return h;
    }
    uint16 bits() const noexcept { return myBits; }
    void setBits(uint16 b) noexcept { myBits = b; }

    operator float() const noexcept { return toFloat(myBits); }

    // The table that maps every half bit pattern to its exact float value.
    static const float *floatTable() noexcept { return theToFloat; }
    // The exponent table of the fast path: 512 entries, indexed by the top
    // nine bits of a float; 0 where the full conversion is needed.
    static const uint16 *exponentTable() noexcept { return theExponent; }

    static float toFloat(uint16 h) noexcept { return theToFloat[h]; }
    static uint16 fromFloat(float f) noexcept
    {
        uint32 bits;
        std::memcpy(&bits, &f, sizeof bits);
        uint16 e = theExponent[bits >> 23];
        if (e)
            return static_cast<uint16>(e + (((bits & 0x007fffff) + 0x1000) >> 13));
        return convert(bits);
    }
    // The full conversion (used where the exponent table has no entry).
    static uint16 convert(uint32 floatBits) noexcept;

    bool isNan() const noexcept { return (myBits & 0x7c00) == 0x7c00 && (myBits & 0x03ff); }
    bool isInfinity() const noexcept { return (myBits & 0x7fff) == 0x7c00; }
    bool isZero() const noexcept { return (myBits & 0x7fff) == 0; }

    friend bool operator==(half16 a, half16 b) noexcept { return a.myBits == b.myBits; }
    friend bool operator!=(half16 a, half16 b) noexcept { return a.myBits != b.myBits; }

private:
    static const float *const theToFloat;
    static const uint16 *const theExponent;

    uint16 myBits = 0;
};
