// half16: float to half rounding (exponent-table fast path and full conversion) and the exact half to float table,
// against the scalar reference of the binary16 rules.
#include "platform/HalfReference.h"

#include <IMB/platform/half16.h>

#include <gtest/gtest.h>

#include <limits>

using namespace halfref;

TEST(Half, EveryHalfConvertsToItsExactValue)
{
    for (uint32 h = 0; h < 65536; ++h)
        ASSERT_EQ(bitsOf(half16::toFloat(static_cast<uint16>(h))), bitsOf(halfValue(static_cast<uint16>(h)))) << h;
}

TEST(Half, ExponentTableHasEntriesExactlyForTheNormalRange)
{
    for (int i = 0; i < 512; ++i)
    {
        const int e = (i & 0xff) - 127 + 15;
        ASSERT_EQ(half16::exponentTable()[i], (e >= 1 && e <= 30) ? ((i & 0x100) << 7 | e << 10) : 0) << i;
    }
}

TEST(Half, EveryHalfAndTheMidpointsAroundItRoundByTheRule)
{
    // For each positive finite half: itself, the exact midpoint to the next half (65536 past the largest), the floats
    // either side of that midpoint, and their negatives.
    for (uint32 h = 0; h < 0x7c00; ++h)
    {
        const float lo = halfValue(static_cast<uint16>(h));
        const float mid = (lo + (h + 1 < 0x7c00 ? halfValue(static_cast<uint16>(h + 1)) : 65536.0f)) / 2;
        for (float f : {lo, mid, std::nextafter(mid, 0.0f), std::nextafter(mid, 1e9f), -lo, -mid})
            ASSERT_EQ(half16::fromFloat(f), halfOf(f)) << std::hexfloat << f;
    }
}

TEST(Half, DocumentedValuesAndSpecials)
{
    // Halves of the dropped bits round up in magnitude, carrying into the exponent and past 65504 to infinity;
    // denormals round to nearest even and keep their sign; NaNs stay NaN with their sign.
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const float tie = 1.0f + std::ldexp(1.0f, -11);
    const std::pair<float, uint16> cases[] = {
        {tie, 0x3c01}, {-tie, 0xbc01}, {tie - std::ldexp(1.0f, -23), 0x3c00}, {std::nextafter(2.0f, 0.0f), 0x4000},
        {65519.0f, 0x7bff}, {65520.0f, 0x7c00}, {1e10f, 0x7c00}, {std::numeric_limits<float>::max(), 0x7c00},
        {inf, 0x7c00}, {-inf, 0xfc00}, {std::ldexp(1.0f, -25), 0}, {std::ldexp(1.5f, -24), 2},
        {std::ldexp(1023.5f, -24), 0x0400}, {-std::ldexp(1.0f, -26), 0x8000}, {-0.0f, 0x8000},
        {std::numeric_limits<float>::denorm_min(), 0}, {nan, 0x7e00}, {-nan, 0xfe00},
    };
    for (auto [f, want] : cases)
    {
        EXPECT_EQ(half16::fromFloat(f), want) << std::hexfloat << f;
        EXPECT_EQ(halfOf(f), want) << std::hexfloat << f;
    }
    // Signalling NaNs, one with its payload only in the dropped bits.
    for (uint32 b : {0x7f800001u, 0xff800001u, 0x7fa00000u})
    {
        const half16 h = half16::fromBits(half16::fromFloat(asFloat(b)));
        EXPECT_TRUE(h.isNan() && (h.bits() & 0x8000) == (b >> 16 & 0x8000)) << std::hex << b;
    }
}

TEST(Half, FullConversionAgreesWithTheFastPathInTheNormalRange)
{
    for (uint32 top = 0; top < 512; ++top)
        for (uint32 m : {0u, 1u, 0xfffu, 0x1000u, 0x1001u, 0x2fffu, 0x3000u, 0x7fe000u, 0x7ff000u, 0x7fffffu})
            if (half16::exponentTable()[top] != 0)
                ASSERT_EQ(half16::convert(top << 23 | m), half16::fromFloat(asFloat(top << 23 | m))) << std::hex << top;
}

TEST(Half, ValueTypeConvertsBothWaysAndClassifies)
{
    const half16 h(0.333333f), inf = half16::fromBits(0x7c00);
    EXPECT_TRUE(h.bits() == halfOf(0.333333f) && static_cast<float>(h) == halfValue(h.bits()));
    EXPECT_TRUE(inf.isInfinity() && !inf.isNan() && half16::fromBits(0x7c01).isNan());
    EXPECT_TRUE(half16::fromBits(0x8000).isZero() && half16(1.0f) == half16::fromBits(0x3c00));
    EXPECT_NE(half16(1.0f), half16(-1.0f));
}
