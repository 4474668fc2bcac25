// half16: float to half rounding (exponent-table fast path and full
// conversion) and the exact half to float table, against a reference built
// from double arithmetic.
#include <IMB/platform/half16.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace
{
float fromBits(uint32 b)
{
    float f;
    std::memcpy(&f, &b, 4);
    return f;
}
uint32 bitsOf(float f)
{
    uint32 b;
    std::memcpy(&b, &f, 4);
    return b;
}

// Exact value of a half bit pattern, from the IEEE layout.
double refHalfValue(uint16 h)
{
    const int e = (h >> 10) & 0x1f;
    const int m = h & 0x3ff;
    double v;
    if (e == 0)
        v = std::ldexp(m, -24);
    else if (e == 31)
        v = m ? std::numeric_limits<double>::quiet_NaN() : std::numeric_limits<double>::infinity();
    else
        v = std::ldexp(1024 + m, e - 25);
    return (h & 0x8000) ? -v : v;
}

// The library's float-to-half rule, from double arithmetic: in the normal
// half range the nearest half with ties away from zero (the rounding of the
// exponent-table path), rounding past 65504 gives infinity; below it the
// nearest denormal with ties to even; NaN stays NaN.
uint16 refHalf(float f)
{
    const uint16 sign = std::signbit(f) ? 0x8000 : 0;
    if (std::isnan(f))
        return sign | 0x7e00;
    const double a = std::fabs(static_cast<double>(f));
    if (a == 0)
        return sign;
    if (a < std::ldexp(1.0, -14))
        return static_cast<uint16>(sign | static_cast<uint16>(std::nearbyint(a * std::ldexp(1.0, 24))));
    int e = std::ilogb(a);
    if (e > 15)
        return sign | 0x7c00;
    double q = std::floor(a * std::ldexp(1.0, 10 - e) + 0.5);
    if (q == 2048)
    {
        q = 1024;
        ++e;
    }
    if (e > 15)
        return sign | 0x7c00;
    return static_cast<uint16>(sign | ((e + 15) << 10) | (static_cast<int>(q) - 1024));
}

void expectHalf(float f, uint16 want)
{
    const uint16 got = half16::fromFloat(f);
    if ((want & 0x7c00) == 0x7c00 && (want & 0x3ff))
    {
        EXPECT_TRUE(half16::fromBits(got).isNan()) << std::hexfloat << f;
        EXPECT_EQ(got & 0x8000, want & 0x8000) << std::hexfloat << f;
    }
    else
        EXPECT_EQ(got, want) << std::hexfloat << f << " bits " << std::hex << bitsOf(f);
}
} // namespace

TEST(Half, EveryHalfConvertsToItsExactValue)
{
    for (uint32 h = 0; h < 65536; ++h)
    {
        const float got = half16::toFloat(static_cast<uint16>(h));
        const double want = refHalfValue(static_cast<uint16>(h));
        if (std::isnan(want))
            ASSERT_TRUE(std::isnan(got)) << h;
        else
        {
            ASSERT_EQ(static_cast<double>(got), want) << h;
            ASSERT_EQ(std::signbit(got), (h & 0x8000) != 0) << h;
        }
    }
}

TEST(Half, ExponentTableHasEntriesExactlyForTheNormalRange)
{
    const uint16 *table = half16::exponentTable();
    for (int i = 0; i < 512; ++i)
    {
        const int e = (i & 0xff) - 127 + 15;
        const uint16 want = (e >= 1 && e <= 30) ? static_cast<uint16>(((i & 0x100) << 7) | (e << 10)) : 0;
        ASSERT_EQ(table[i], want) << i;
    }
}

TEST(Half, EveryHalfAndTheMidpointsAroundItRoundByTheRule)
{
    // For each positive finite half h: h itself, the exact midpoint to the
    // next half, and the floats on either side of that midpoint.
    for (uint32 h = 0; h < 0x7c00; ++h)
    {
        const double lo = refHalfValue(static_cast<uint16>(h));
        const double hi = h + 1 < 0x7c00 ? refHalfValue(static_cast<uint16>(h + 1)) : 65536.0;
        const float mid = static_cast<float>((lo + hi) / 2); // exact: 11 bits + 1
        ASSERT_EQ(static_cast<double>(mid), (lo + hi) / 2);
        for (float f : {static_cast<float>(lo), mid, std::nextafter(mid, 0.0f), std::nextafter(mid, 1e9f)})
        {
            ASSERT_EQ(half16::fromFloat(f), refHalf(f)) << std::hexfloat << f;
            ASSERT_EQ(half16::fromFloat(-f), refHalf(-f)) << std::hexfloat << -f;
        }
    }
}

TEST(Half, BoundaryValuesRoundByTheRule)
{
    // Halves of the dropped bits in the normal range round up in magnitude;
    // carries reach the exponent and past 65504 give infinity; denormals
    // round to nearest even; zeros keep their sign; NaNs stay NaN.
    const std::pair<float, uint16> cases[] = {
        {1.0f + std::ldexp(1.0f, -11), 0x3c01}, // exactly half: up
        {1.0f + std::ldexp(1.0f, -11) - std::ldexp(1.0f, -23), 0x3c00}, // just below half
        {1.0f + 3 * std::ldexp(1.0f, -11), 0x3c02}, // half above an odd: up too
        {-(1.0f + std::ldexp(1.0f, -11)), 0xbc01}, // in magnitude
        {std::nextafter(2.0f, 0.0f), 0x4000}, // 1.111...1 rounds to 2
        {2.0f - std::ldexp(1.0f, -11), 0x4000}, // 2047.5 / 1024: the midpoint
        {2.0f - std::ldexp(1.0f, -10), 0x3fff}, // largest half below 2
        {65504.0f, 0x7bff},
        {65519.0f, 0x7bff},
        {65520.0f, 0x7c00}, // the midpoint to 65536 rounds up: infinity
        {-65520.0f, 0xfc00},
        {65536.0f, 0x7c00},
        {1e10f, 0x7c00},
        {std::numeric_limits<float>::max(), 0x7c00},
        {std::numeric_limits<float>::infinity(), 0x7c00},
        {-std::numeric_limits<float>::infinity(), 0xfc00},
        {std::ldexp(1.0f, -24), 0x0001}, // smallest denormal
        {std::ldexp(1.0f, -25), 0x0000}, // half of it: to even 0
        {std::ldexp(1.5f, -25), 0x0001}, // above half: up
        {std::ldexp(1.5f, -24), 0x0002}, // 1.5: to even 2
        {std::ldexp(2.5f, -24), 0x0002}, // 2.5: to even 2
        {std::ldexp(1023.5f, -24), 0x0400}, // rounds up into the normal range
        {std::ldexp(1.0f, -14), 0x0400}, // smallest normal
        {std::ldexp(1.0f, -26), 0x0000},
        {-std::ldexp(1.0f, -26), 0x8000}, // sign kept on underflow
        {std::numeric_limits<float>::denorm_min(), 0x0000},
        {0.0f, 0x0000},
        {-0.0f, 0x8000},
        {std::numeric_limits<float>::quiet_NaN(), 0x7e00},
        {-std::numeric_limits<float>::quiet_NaN(), 0xfe00},
        {fromBits(0x7f800001u), 0x7e00}, // payload only in the dropped bits: still NaN
        {fromBits(0xff800001u), 0xfe00},
    };
    for (auto [f, want] : cases)
        expectHalf(f, want);
    EXPECT_EQ(half16::fromFloat(fromBits(0x7fc00000u)), 0x7e00); // top payload bit kept
}

TEST(Half, FullConversionAgreesWithTheFastPathInTheNormalRange)
{
    for (uint32 top = 0; top < 512; ++top)
    {
        if (half16::exponentTable()[top] == 0)
            continue;
        for (uint32 m : {0u, 1u, 0xfffu, 0x1000u, 0x1001u, 0x2fffu, 0x3000u, 0x7fe000u, 0x7ff000u, 0x7fffffu})
        {
            const uint32 bits = (top << 23) | m;
            ASSERT_EQ(half16::convert(bits), half16::fromFloat(fromBits(bits))) << std::hex << bits;
        }
    }
}

TEST(Half, ValueTypeConvertsBothWays)
{
    half16 h(0.333333f);
    EXPECT_EQ(h.bits(), refHalf(0.333333f));
    EXPECT_EQ(static_cast<float>(h), half16::toFloat(h.bits()));
    EXPECT_TRUE(half16::fromBits(0x7c00).isInfinity());
    EXPECT_FALSE(half16::fromBits(0x7c00).isNan());
    EXPECT_TRUE(half16::fromBits(0x8000).isZero());
    EXPECT_EQ(half16(1.0f), half16::fromBits(0x3c00));
    EXPECT_NE(half16(1.0f), half16(-1.0f));
}
