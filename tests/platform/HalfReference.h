// Scalar reference of the binary16 rules for the half and fill tests: half to float exactly; float to half rounding
// the 13 dropped bits half up in magnitude (a carry may reach infinity), denormals to nearest even, larger magnitudes
// to infinity, NaN kept with its sign and top payload bits (the lowest bit set when none survives).
#pragma once

#include <IMB/platform/BAS_Types.h>

#include <cmath>
#include <cstring>

namespace halfref
{
inline float asFloat(uint32 bits) { float f; std::memcpy(&f, &bits, 4); return f; }
inline uint32 bitsOf(float f) { uint32 b; std::memcpy(&b, &f, 4); return b; }

inline float halfValue(uint16 h)
{
    const int e = (h >> 10) & 31, m = h & 1023;
    if (e == 31)
        return asFloat((h & 0x8000u) << 16 | 0x7f800000u | static_cast<uint32>(m) << 13);
    const float v = e == 0 ? std::ldexp(static_cast<float>(m), -24) : std::ldexp(static_cast<float>(1024 + m), e - 25);
    return (h & 0x8000u) ? -v : v;
}

inline uint16 halfOf(float f)
{
    const uint32 b = bitsOf(f), sign = (b >> 16) & 0x8000u, mant = b & 0x7fffffu;
    const int e = static_cast<int>((b >> 23) & 0xff) - 112;
    if (e > 0 && e < 31)
        return static_cast<uint16>((sign | static_cast<uint32>(e) << 10) + ((mant + 0x1000u) >> 13));
    if (std::isnan(f))
        return static_cast<uint16>(sign | 0x7c00u | mant >> 13 | (mant >> 13 ? 0u : 1u));
    if (e >= 31)
        return static_cast<uint16>(sign | 0x7c00u);
    // Below the normal range: a multiple of 2^-24, rounded to nearest even.
    return static_cast<uint16>(sign | static_cast<uint32>(std::nearbyint(std::fabs(double(f)) * 16777216.0)));
}
} // namespace halfref
