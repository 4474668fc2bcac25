#include <IMB/platform/half16.h>

#include <cstring>

namespace
{
// Exact value of a half bit pattern.
float decodeHalf(uint16 h)
{
    uint32 sign = static_cast<uint32>(h & 0x8000) << 16;
    uint32 exp = (h >> 10) & 0x1f;
    uint32 mant = h & 0x03ff;
    uint32 bits;
    if (exp == 0)
    {
        if (mant == 0)
            bits = sign;
        else
        {
            // Denormal: normalise the mantissa.
            int e = -1;
            do
            {
                ++e;
                mant <<= 1;
            } while ((mant & 0x0400) == 0);
            mant &= 0x03ff;
            bits = sign | (static_cast<uint32>(127 - 15 - e) << 23) | (mant << 13);
        }
    }
    else if (exp == 31)
        bits = sign | 0x7f800000 | (mant << 13);
    else
        bits = sign | ((exp + 127 - 15) << 23) | (mant << 13);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// The tables live in static storage so that their addresses are constants;
// they are filled before any other static initialiser of the library runs
// (init_priority), so even other libraries' start-up code can convert halves.
alignas(64) float theToFloatStorage[65536];
alignas(64) uint16 theExponentStorage[512];

struct TableFiller
{
    TableFiller()
    {
        for (uint32 i = 0; i < 65536; ++i)
            theToFloatStorage[i] = decodeHalf(static_cast<uint16>(i));
        for (int i = 0; i < 512; ++i)
        {
            int sign = (i >> 8) & 1;
            int e = (i & 0xff) - (127 - 15);
            theExponentStorage[i] = (e > 0 && e < 31) ? static_cast<uint16>((sign << 15) | (e << 10)) : 0;
        }
    }
};
__attribute__((init_priority(101))) TableFiller theTableFiller;
} // namespace

const float *const half16::theToFloat = theToFloatStorage;
const uint16 *const half16::theExponent = theExponentStorage;

uint16 half16::convert(uint32 i) noexcept
{
    uint32 sign = (i >> 16) & 0x8000;
    int exp = static_cast<int>((i >> 23) & 0xff) - (127 - 15);
    uint32 mant = i & 0x007fffff;

    if (exp <= 0)
    {
        // Zero, or too small for a normal half: a denormal or a signed zero.
        if (exp < -10)
            return static_cast<uint16>(sign);
        mant |= 0x00800000;
        int shift = 14 - exp;
        uint32 halfway = (1u << (shift - 1)) - 1;
        uint32 odd = (mant >> shift) & 1;
        mant = (mant + halfway + odd) >> shift;
        return static_cast<uint16>(sign | mant);
    }
    if (exp == 0xff - (127 - 15))
    {
        if (mant == 0)
            return static_cast<uint16>(sign | 0x7c00);
        // NaN: keep the top payload bits and make sure it stays a NaN.
        mant >>= 13;
        return static_cast<uint16>(sign | 0x7c00 | mant | (mant == 0));
    }
    if (exp > 30)
        return static_cast<uint16>(sign | 0x7c00);
    // Normal range (reached only through a direct call): same rounding as the
    // fast path.
    return static_cast<uint16>((sign | (static_cast<uint32>(exp) << 10)) + ((mant + 0x1000) >> 13));
}
