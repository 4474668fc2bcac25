// IMB_Fill::clear, invert, multiply and divide against the scalar reference,
// over every format and fast flag, and the documented values.
#include "fill/FillReference.h"

#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <tuple>

using namespace fillref;

namespace
{
std::vector<uint32> arithmeticValues(IMB_DataFormat f)
{
    std::vector<uint32> v;
    std::mt19937 rng(77 + f);
    switch (f)
    {
    case IMB_INT8:
        for (uint32 i = 0; i < 256; ++i)
            v.push_back(i);
        break;
    case IMB_INT16:
        for (uint32 x : {0u, 1u, 16u, 4095u, 4096u, 32767u, 32768u, 60160u, 65534u, 65535u})
            v.push_back(x);
        for (int i = 0; i < 1500; ++i)
            v.push_back(rng() & 0xffffu);
        break;
    case IMB_INT32:
        for (uint32 x : {0u, 1u, 255u, 0x7fffffffu, 0x80000000u, 0xfffffffeu, 0xffffffffu})
            v.push_back(x);
        for (int i = 0; i < 1500; ++i)
            v.push_back(static_cast<uint32>(rng()));
        break;
    case IMB_FLOAT32:
    {
        for (float x : {0.0f, -0.0f, 0.25f, 0.5f, 1.0f, -1.0f, 2.0f, 1e-30f, std::numeric_limits<float>::infinity(),
                        std::numeric_limits<float>::quiet_NaN()})
            v.push_back(bitsOf(x));
        std::uniform_real_distribution<float> dist(-0.5f, 1.5f);
        for (int i = 0; i < 1500; ++i)
            v.push_back(bitsOf(dist(rng)));
        break;
    }
    default:
        for (uint32 h = 0; h < 65536; h += 3)
            v.push_back(h);
        break;
    }
    return v;
}

const float kFactors[] = {0.5f, 0.25f, 0.0f, 2.0f, -1.0f, 1.5f, 1e-3f, 3.0f, std::numeric_limits<float>::quiet_NaN()};

// Writes a fraction back by the arithmetic rules: a fast 32-bit component
// scales by the full range.
uint32 writeDest(IMB_DataFormat d, bool fast, Fraction y, uint32 db, uint32 dw)
{
    if (d == IMB_INT32 && fast)
        return writeFraction(d, fast, y, 0, 0xFFFFFFFFu);
    return writeFraction(d, fast, y, db, dw);
}

bool isNanBits(IMB_DataFormat d, uint32 bits)
{
    if (d == IMB_FLOAT32)
        return std::isnan(asFloat(bits));
    if (d == IMB_FLOAT16)
        return (bits & 0x7c00u) == 0x7c00u && (bits & 0x3ffu) != 0;
    return false;
}

enum class Op
{
    Invert,
    MultiplyConstant,
    MultiplyPerPixel,
    DivideConstant,
    DividePerPixel
};

uint32 reference(Op op, IMB_DataFormat d, bool fast, uint32 v, uint32 db, uint32 dw, float value, float factor)
{
    if (op == Op::DividePerPixel && factor == 0.0f)
        return 0;
    Fraction x = normalise(d, fast, v, db, dw);
    auto apply = [&](auto xv) -> decltype(xv) {
        using X = decltype(xv);
        switch (op)
        {
        case Op::Invert:
            return (X(1) - xv) * X(value);
        case Op::MultiplyConstant:
        case Op::MultiplyPerPixel:
            return xv * X(factor);
        case Op::DivideConstant:
            return xv * X(factor == 0.0f ? 0.0f : 1.0f / factor);
        default:
            return xv / X(factor);
        }
    };
    if (x.isDouble)
        x.d = apply(x.d);
    else
        x.f = apply(x.f);
    return writeDest(d, fast, x, db, dw);
}

using FormatFast = std::tuple<IMB_DataFormat, bool>;
class FillArithmeticEveryFormat : public ::testing::TestWithParam<FormatFast>
{
};

TEST_P(FillArithmeticEveryFormat, InvertMultiplyAndDivideMatchTheScalarRules)
{
    const auto [d, fast] = GetParam();
    const std::vector<uint32> values = arithmeticValues(d);
    const int64 n = static_cast<int64>(values.size());
    std::vector<float> factors(static_cast<size_t>(n));
    for (int64 i = 0; i < n; ++i)
        factors[i] = kFactors[i % (sizeof kFactors / sizeof kFactors[0])];

    struct Range
    {
        uint32 db, dw;
    };
    for (Range r : {Range{0, 255}, Range{16, 235}, Range{4096, 60160}, Range{1000, 4000000000u}, Range{9, 9}})
        for (Op op : {Op::Invert, Op::MultiplyConstant, Op::MultiplyPerPixel, Op::DivideConstant, Op::DividePerPixel})
            for (float constant : {1.0f, 0.5f, 0.0f, 3.0f})
                for (int64 inc : {1, 2})
                {
                    // n pixels as rows of 50 (the last row padded).
                    const int64 W = 50, H = (n + W - 1) / W;
                    Buffer buf(d, static_cast<size_t>(W * H * inc));
                    std::vector<float> pf(static_cast<size_t>(W * H), 1.0f);
                    for (int64 i = 0; i < W * H; ++i)
                    {
                        buf.set(i * inc, values[i % n]);
                        pf[i] = factors[i % n];
                    }
                    IMB_FillParms p;
                    p.myDest = buf.data();
                    p.myDestType = d;
                    p.myDestFast = fast;
                    p.myDestBlack = r.db;
                    p.myDestWhite = r.dw;
                    p.myDestXInc = inc;
                    p.setDestArea(0, 0, W - 1, H - 1);
                    p.myValue = constant;
                    p.myFactor = constant;
                    p.myUsePixelFactors = op == Op::MultiplyPerPixel || op == Op::DividePerPixel;
                    p.myPixelFactors = pf.data();
                    switch (op)
                    {
                    case Op::Invert:
                        IMB_Fill::invert(p);
                        break;
                    case Op::MultiplyConstant:
                    case Op::MultiplyPerPixel:
                        IMB_Fill::multiply(p);
                        break;
                    default:
                        IMB_Fill::divide(p);
                        break;
                    }
                    for (int64 i = 0; i < W * H; ++i)
                    {
                        const float f = p.myUsePixelFactors ? pf[i] : constant;
                        const uint32 want = reference(op, d, fast, values[i % n], r.db, r.dw, constant, f);
                        const uint32 got = buf.get(i * inc);
                        // NaN times NaN may keep either operand's payload.
                        if (std::isnan(f) && isNanBits(d, want))
                            ASSERT_TRUE(isNanBits(d, got));
                        else
                            ASSERT_EQ(got, want)
                            << "op " << int(op) << " value " << values[i % n] << " factor " << f << " range "
                            << r.db << "-" << r.dw << " inc " << inc;
                        if (inc == 2)
                            ASSERT_EQ(buf.get(i * inc + 1), Buffer(d, 1).get(0));
                    }
                }
}

INSTANTIATE_TEST_SUITE_P(AllFormats, FillArithmeticEveryFormat,
                         ::testing::Combine(::testing::Values(IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16),
                                            ::testing::Bool()));

template <typename T> struct Area
{
    std::vector<T> px;
    IMB_FillParms p;
    Area(IMB_DataFormat f, int64 w, int64 h, T init, int64 inc = 1) : px(static_cast<size_t>(w * h * inc), init)
    {
        p.myDest = px.data();
        p.myDestType = f;
        p.myDestXInc = inc;
        p.setDestArea(0, 0, w - 1, h - 1);
    }
};

TEST(FillClear, DefaultBlockClearsTheWholeDestinationToTheLevel)
{
    Area<uint8> a(IMB_INT8, 4, 2, 0);
    a.p.myValue = 0.5f;
    IMB_Fill::clear(a.p);
    for (uint8 v : a.px)
        EXPECT_EQ(v, 128);
}

TEST(FillClear, LevelsFollowEachFormatsRule)
{
    struct Level
    {
        IMB_DataFormat d;
        bool fast;
        uint32 db, dw;
        float value;
        uint32 want;
    };
    const Level cases[] = {
        {IMB_INT8, false, 16, 235, 0.5f, 126}, // floor(219 * 0.5 + 16 + 0.5)
        {IMB_INT16, true, 0, 255, 1.5f, 65535},
        {IMB_INT16, true, 0, 255, -1.0f, 0},
        {IMB_INT16, true, 0, 255, std::nanf(""), 0},
        {IMB_INT16, true, 0, 255, 0.5f, 32768},
        // 32 bits: the stored range even though the destination is fast.
        {IMB_INT32, true, 0, 255, 1.0f, 255u},
        {IMB_INT32, true, 0, 0xFFFFFFFFu, 2.0f, 0xFFFFFFFFu},
        {IMB_FLOAT32, true, 0, 255, -3.25f, bitsOf(-3.25f)},
        {IMB_FLOAT16, true, 0, 255, 0.1f, halfOf(0.1f)},
    };
    for (const Level &c : cases)
    {
        Buffer b(c.d, 1);
        b.set(0, 0);
        IMB_FillParms p;
        p.myDest = b.data();
        p.myDestType = c.d;
        p.myDestFast = c.fast;
        p.myDestBlack = c.db;
        p.myDestWhite = c.dw;
        p.setDestArea(0, 0, 0, 0);
        p.myValue = c.value;
        IMB_Fill::clear(p);
        EXPECT_EQ(b.get(0), c.want) << "format " << c.d << " value " << c.value;
    }
}

TEST(FillClear, ClearsOnlyTheIntersectionWithANonEmptySourceArea)
{
    Area<uint8> a(IMB_INT8, 5, 4, 1, 2);
    a.p.setSourceArea(3, 2, 9, 9); // overlaps columns 3-4, rows 2-3
    a.p.myValue = 1.0f;
    a.p.myXOffset = -3; // offsets and flips play no part
    a.p.myFlipX = 1;
    IMB_Fill::clear(a.p);
    for (int64 y = 0; y < 4; ++y)
        for (int64 x = 0; x < 5; ++x)
        {
            const size_t at = static_cast<size_t>((y * 5 + x) * 2);
            EXPECT_EQ(a.px[at], (x >= 3 && y >= 2) ? 255 : 1) << x << "," << y;
            EXPECT_EQ(a.px[at + 1], 1);
        }

    Area<uint8> apart(IMB_INT8, 5, 4, 1);
    apart.p.setSourceArea(6, 0, 9, 3);
    apart.p.myValue = 1.0f;
    IMB_Fill::clear(apart.p);
    for (uint8 v : apart.px)
        EXPECT_EQ(v, 1);

    // A source area empty in only one direction is not "empty": nothing
    // intersects it.
    Area<uint8> half(IMB_INT8, 5, 4, 1);
    half.p.mySourceArea = IMB_FillArea{0, 0, -1, 3};
    half.p.myValue = 1.0f;
    IMB_Fill::clear(half.p);
    for (uint8 v : half.px)
        EXPECT_EQ(v, 1);
}

TEST(FillClear, PlanarRowsClearTheSameColumnsInEveryRun)
{
    Area<uint16> a(IMB_INT16, 6, 2, 3, 3);
    a.p.myDestPlanar = 1;
    a.p.setSourceArea(2, 1, 3, 1);
    a.p.myValue = 1.0f;
    IMB_Fill::clear(a.p);
    for (int64 y = 0; y < 2; ++y)
        for (int64 run = 0; run < 3; ++run)
            for (int64 x = 0; x < 6; ++x)
                EXPECT_EQ(a.px[static_cast<size_t>(y * 18 + run * 6 + x)], (y == 1 && (x == 2 || x == 3)) ? 65535 : 3);
}

TEST(FillArithmetic, DocumentedValues)
{
    Area<uint8> d8(IMB_INT8, 3, 1, 100);
    const float factors[3] = {0.5f, 0.25f, 0.0f};
    d8.p.myPixelFactors = factors;
    IMB_Fill::divide(d8.p);
    EXPECT_EQ(d8.px[0], 200);
    EXPECT_EQ(d8.px[1], 255);
    EXPECT_EQ(d8.px[2], 0);

    Area<float> f(IMB_FLOAT32, 1, 1, 0.25f);
    f.p.myValue = 1.0f;
    IMB_Fill::invert(f.p);
    EXPECT_EQ(f.px[0], 0.75f);

    Area<uint8> i8(IMB_INT8, 1, 1, 0);
    i8.p.myValue = 1.0f;
    IMB_Fill::invert(i8.p);
    EXPECT_EQ(i8.px[0], 255);
    // The default myValue of 0 inverts to black.
    IMB_FillParms defaults;
    EXPECT_EQ(defaults.myValue, 0.0f);
    i8.p.myValue = 0.0f;
    IMB_Fill::invert(i8.p);
    EXPECT_EQ(i8.px[0], 0);
}

TEST(FillArithmetic, ZeroFactorsNeverDivideByZero)
{
    // Constant 0: multiplier 0, so black (the custom black for a custom range).
    Area<uint8> c(IMB_INT8, 2, 1, 200);
    c.p.myUsePixelFactors = 0;
    c.p.myFactor = 0.0f;
    c.p.myDestFast = 0;
    c.p.myDestBlack = 16;
    c.p.myDestWhite = 235;
    IMB_Fill::divide(c.p);
    EXPECT_EQ(c.px[0], 16);
    // Per-pixel 0: the component itself becomes 0.
    Area<uint8> pp(IMB_INT8, 2, 1, 200);
    const float factors[2] = {0.0f, 1.0f};
    pp.p.myPixelFactors = factors;
    pp.p.myDestFast = 0;
    pp.p.myDestBlack = 16;
    pp.p.myDestWhite = 235;
    IMB_Fill::divide(pp.p);
    EXPECT_EQ(pp.px[0], 0);
    EXPECT_EQ(pp.px[1], 200);
    Area<float> f(IMB_FLOAT32, 1, 1, 0.7f);
    f.p.myPixelFactors = factors;
    IMB_Fill::divide(f.p);
    EXPECT_EQ(f.px[0], 0.0f);
    EXPECT_FALSE(std::signbit(f.px[0]));
}

TEST(FillArithmetic, EmptyAreaOrUnknownFormatDoesNothing)
{
    uint8 v = 9;
    IMB_FillParms p;
    p.myDest = &v;
    p.myValue = 1.0f;
    p.myUsePixelFactors = 0;
    p.myFactor = 0.0f;
    IMB_Fill::clear(p);
    IMB_Fill::invert(p);
    IMB_Fill::multiply(p);
    IMB_Fill::divide(p);
    EXPECT_EQ(v, 9);
    p.setDestArea(0, 0, 0, 0);
    p.myDestType = IMB_MAX_DATA_FORMAT;
    IMB_Fill::clear(p);
    IMB_Fill::invert(p);
    IMB_Fill::multiply(p);
    IMB_Fill::divide(p);
    EXPECT_EQ(v, 9);
}
} // namespace
