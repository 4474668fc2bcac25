// IMB_Fill::clear, invert, multiply and divide against the scalar reference, over every format and fast flag, and the
// documented values.
#include "fill/FillReference.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <tuple>

using namespace fillref;

namespace
{
const float kNaN = std::numeric_limits<float>::quiet_NaN();

enum class Op { Clear, Invert, MultiplyConstant, MultiplyPerPixel, DivideConstant, DividePerPixel };

// Runs op on a W x H destination area of buf, `value` being the clear level, the invert scale and the constant
// factor.
void apply(Op op, Buffer &buf, bool fast, uint32 db, uint32 dw, float value, const float *factors, int64 W, int64 H,
           int64 inc = 1)
{
    IMB_FillParms p;
    setUp(p, buf.format, buf.format, true, fast, Points{0, 255, db, dw}, buf, buf, inc, inc);
    p.myDestArea = IMB_FillArea{0, 0, W - 1, H - 1};
    p.myValue = p.myFactor = value;
    p.myUsePixelFactors = op == Op::MultiplyPerPixel || op == Op::DividePerPixel;
    p.myPixelFactors = factors;
    void (*const fn[])(const IMB_FillParms &) = {IMB_Fill::clear,    IMB_Fill::invert, IMB_Fill::multiply,
                                                 IMB_Fill::multiply, IMB_Fill::divide, IMB_Fill::divide};
    fn[static_cast<int>(op)](p);
}

// One component through op's rule; `f` is the factor the pixel gets. Clear writes like fill, through the stored
// points; the others read the component as a fraction and write a fast 32-bit one back over the full range.
uint32 reference(Op op, IMB_DataFormat d, bool fast, uint32 v, uint32 db, uint32 dw, float value, float f)
{
    if (op == Op::Clear)
        return writeFraction(d, fast, Fraction{false, value, 0}, db, dw);
    if (op == Op::DividePerPixel && f == 0.0f)
        return 0;
    Fraction x = normalise(d, fast, v, db, dw);
    auto rule = [&](auto xv) -> decltype(xv) {
        using X = decltype(xv);
        if (op == Op::Invert)
            return (X(1) - xv) * X(value);
        if (op == Op::DivideConstant)
            return xv * X(f == 0.0f ? 0.0f : 1.0f / f);
        return op == Op::DividePerPixel ? xv / X(f) : xv * X(f);
    };
    if (x.isDouble)
        x.d = rule(x.d);
    else
        x.f = rule(x.f);
    return writeFraction(d, fast, x, d == IMB_INT32 && fast ? 0 : db, d == IMB_INT32 && fast ? 0xFFFFFFFFu : dw);
}

std::vector<uint32> arithmeticValues(IMB_DataFormat f)
{
    std::vector<uint32> v = {0,     1,     16,    255,         4095,        4096,        32767,      32768,
                             60160, 65534, 65535, 0x7fffffffu, 0x80000000u, 0xfffffffeu, 0xffffffffu};
    std::mt19937 rng(77 + f);
    if (f == IMB_INT8 || f == IMB_FLOAT16)
        for (uint32 x = 0; x < (f == IMB_INT8 ? 256u : 65536u); x += f == IMB_INT8 ? 1 : 3)
            v.push_back(x);
    else if (f == IMB_FLOAT32)
    {
        v.clear();
        for (float x : {0.0f, -0.0f, 0.25f, 0.5f, 1.0f, -1.0f, 2.0f, 1e-30f, 1.0f / 0.0f, kNaN})
            v.push_back(bitsOf(x));
        std::uniform_real_distribution<float> dist(-0.5f, 1.5f);
        for (int i = 0; i < 1500; ++i)
            v.push_back(bitsOf(dist(rng)));
    }
    else
        for (int i = 0; i < 1500; ++i)
            v.push_back(static_cast<uint32>(rng()));
    for (uint32 &x : v)
        x &= whiteOf(f == IMB_FLOAT32 ? IMB_INT32 : f == IMB_FLOAT16 ? IMB_INT16 : f);
    return v;
}

using FormatFast = std::tuple<IMB_DataFormat, bool>;
using FillArithmeticEveryFormat = ::testing::TestWithParam<FormatFast>;

TEST_P(FillArithmeticEveryFormat, EveryOperationMatchesTheScalarRules)
{
    const auto [d, fast] = GetParam();
    const std::vector<uint32> values = arithmeticValues(d);
    const float kFactors[] = {0.5f, 0.25f, 0.0f, 2.0f, -1.0f, 1.5f, 1e-3f, 3.0f, kNaN};
    // The values as rows of 50 pixels (the last row padded), each pixel with its own factor.
    const int64 n = static_cast<int64>(values.size()), W = 50, H = (n + W - 1) / W;
    std::vector<float> factors(static_cast<size_t>(W * H));
    for (int64 i = 0; i < W * H; ++i)
        factors[i] = kFactors[i % 9];
    for (auto [db, dw] : {std::pair<uint32, uint32>{0, 255}, {16, 235}, {4096, 60160}, {1000, 4000000000u}, {9, 9}})
        for (int op = 0; op < 6; ++op)
            for (float value : {1.0f, 0.5f, 0.0f, 3.0f, kNaN})
                for (int64 inc : {1, 2})
                {
                    Buffer buf(d, W * H * inc);
                    for (int64 i = 0; i < W * H; ++i)
                        buf.set(i * inc, values[i % n]);
                    apply(Op(op), buf, fast, db, dw, value, factors.data(), W, H, inc);
                    for (int64 i = 0; i < W * H; ++i)
                    {
                        const float f = op == int(Op::MultiplyPerPixel) || op == int(Op::DividePerPixel) ? factors[i]
                                                                                                        : value;
                        const uint32 want = reference(Op(op), d, fast, values[i % n], db, dw, value, f);
                        const uint32 got = buf.get(i * inc);
                        // NaN times NaN may keep either operand's payload.
                        if (std::isnan(f) && (d == IMB_FLOAT32 || d == IMB_FLOAT16) &&
                            std::isnan(normalise(d, true, want, 0, 0).f))
                            ASSERT_TRUE(std::isnan(normalise(d, true, got, 0, 0).f));
                        else
                            ASSERT_EQ(got, want) << "op " << op << " value " << values[i % n] << " factor " << f
                                                 << " range " << db << "-" << dw << " inc " << inc;
                        if (inc == 2)
                            ASSERT_EQ(buf.get(i * inc + 1), buf.sentinel());
                    }
                    ASSERT_EQ(buf.get(W * H * inc), buf.sentinel()); // past the area
                }
}

INSTANTIATE_TEST_SUITE_P(AllFormats, FillArithmeticEveryFormat,
                         ::testing::Combine(::testing::Values(IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16),
                                            ::testing::Bool()));

TEST(FillArithmetic, DocumentedValues)
{
    // One component through op with the format, fast flag, stored points, operand and per-pixel factor given.
    auto one = [](Op op, IMB_DataFormat d, bool fast, uint32 db, uint32 dw, float value, float factor, uint32 in) {
        Buffer buf(d, 1);
        buf.set(0, in);
        apply(op, buf, fast, db, dw, value, &factor, 1, 1);
        return buf.get(0);
    };
    EXPECT_EQ(one(Op::DividePerPixel, IMB_INT8, true, 0, 255, 1, 0.5f, 100), 200u);
    EXPECT_EQ(one(Op::DividePerPixel, IMB_INT8, true, 0, 255, 1, 0.25f, 100), 255u);
    // Zero factors never divide by zero: a constant 0 multiplies by 0 (so black, the custom one here), a per-pixel 0
    // writes 0 itself.
    EXPECT_EQ(one(Op::DivideConstant, IMB_INT8, false, 16, 235, 0, 1, 200), 16u);
    EXPECT_EQ(one(Op::DividePerPixel, IMB_INT8, false, 16, 235, 1, 0, 200), 0u);
    EXPECT_EQ(one(Op::DividePerPixel, IMB_FLOAT32, true, 0, 255, 1, 0, bitsOf(0.7f)), 0u);
    EXPECT_EQ(one(Op::Invert, IMB_FLOAT32, true, 0, 255, 1, 1, bitsOf(0.25f)), bitsOf(0.75f));
    EXPECT_EQ(one(Op::Invert, IMB_INT8, true, 0, 255, 1, 1, 0), 255u);
    EXPECT_EQ(one(Op::Invert, IMB_INT8, true, 0, 255, 0, 1, 0), 0u); // the default myValue writes black
    // Clear levels; the 32-bit one uses the stored points even on a fast destination, while multiply scales a fast
    // one over the full range.
    EXPECT_EQ(one(Op::Clear, IMB_INT8, false, 16, 235, 0.5f, 1, 0), 126u);
    EXPECT_EQ(one(Op::Clear, IMB_INT16, true, 0, 255, kNaN, 1, 0), 0u);
    EXPECT_EQ(one(Op::Clear, IMB_INT32, true, 0, 255, 1, 1, 0), 255u);
    EXPECT_EQ(one(Op::MultiplyConstant, IMB_INT32, true, 0, 255, 0.5f, 1, 0x80000000u), 0x40000000u);
}

// Clear writes into the intersection of the destination with a source area that is not empty in both directions
// (offsets and flips play no part), in every run of a planar row; other components keep their value.
TEST(FillClear, ClearsOnlyTheIntersectionWithANonEmptySourceArea)
{
    const int64 W = 5, H = 4;
    for (auto [s, inc, planar] : {
             std::tuple<IMB_FillArea, int64, int32>{{3, 2, 9, 9}, 2, 0}, // overlaps columns 3-4, rows 2-3
             {{6, 0, 9, 3}, 1, 0},                                      // apart: nothing
             {{0, 0, -1, 3}, 1, 0}, // empty in one direction only: nothing intersects it
             {{2, 1, 3, 1}, 3, 1},  // planar
             {{2, 1, 3, 1}, 3, 0},
         })
    {
        Buffer buf(IMB_INT16, W * H * inc);
        IMB_FillParms p;
        setUp(p, IMB_INT16, IMB_INT16, true, true, Points{}, buf, buf, inc, inc);
        p.myDestPlanar = planar;
        p.setDestArea(0, 0, W - 1, H - 1);
        p.mySourceArea = s;
        p.myValue = 1.0f;
        p.myXOffset = -3;
        p.myFlipX = 1;
        IMB_Fill::clear(p);
        for (int64 k = 0; k < W * H * inc; ++k)
        {
            // Planar rows hold inc runs of W components, others W pixels of inc.
            const int64 x = planar ? k % W : k / inc % W, y = k / (W * inc);
            const bool written = (planar || k % inc == 0) && x >= s.x1 && x <= s.x2 && y >= s.y1 && y <= s.y2;
            EXPECT_EQ(buf.get(k), written ? 65535u : buf.sentinel()) << "component " << k << " planar " << planar;
        }
    }
}

TEST(FillArithmetic, EmptyAreaOrUnknownFormatDoesNothing)
{
    for (Op op : {Op::Clear, Op::Invert, Op::MultiplyConstant, Op::DivideConstant})
    {
        Buffer buf(IMB_INT8, 1), unknown(IMB_MAX_DATA_FORMAT, 1);
        apply(op, buf, true, 0, 255, 1.0f, nullptr, 0, 1);
        apply(op, unknown, true, 0, 255, 1.0f, nullptr, 1, 1);
        EXPECT_EQ(buf.get(0), buf.sentinel());
        EXPECT_EQ(unknown.get(0), unknown.sentinel());
    }
}
} // namespace
