// IMB_Fill::fill conversions, and gamma after them: every (source, destination, source fast, destination fast)
// combination against the scalar reference, on contiguous rows (the vector paths) and strided rows (the general
// path), and the documented values that anchor the reference.
#include "fill/FillReference.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <tuple>

using namespace fillref;

namespace
{
// Every value of the 8- and 16-bit formats; for 32-bit integers and floats, boundaries, halves and specials plus
// random values.
std::vector<uint32> probeValues(IMB_DataFormat f)
{
    std::vector<uint32> v;
    std::mt19937 rng(1234 + f);
    if (f == IMB_INT32)
    {
        v = {0u,          1u,          999u,        1000u,       1001u,       0x7fffu,     0x8000u,
             0x7fffffu,   0x800000u,   0x01000000u, 0x7fffffffu, 0x80000000u, 0xff7fffffu, 0xff800000u,
             0xffff7fffu, 0xffff8000u, 0xfffffffeu, 0xffffffffu, 3999999999u, 4000000000u, 4000000001u};
        for (int i = 0; i < 3000; ++i)
            v.push_back(static_cast<uint32>(rng()));
    }
    else if (f == IMB_FLOAT32)
    {
        const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
        for (float x : {0.0f, -0.0f, 0.5f, -0.1f, 1.7f, 1.0f, 0.25f, 1e-8f, -1e-8f, 3e-5f, 6.1e-5f, 6.2e-5f, 65504.0f,
                        65519.0f, 65520.0f, 70000.0f, 1e30f, -1e30f, 1e-40f, inf, -inf, nan, -nan})
            v.push_back(bitsOf(x));
        v.push_back(0x7fa00000u); // a signalling NaN
        // Values whose scaled result is exactly a half, and their neighbours.
        for (int k = 0; k < 256; k += 5)
        {
            const float h = (static_cast<float>(k) + 0.5f) / 255.0f;
            for (float x : {h, std::nextafter(h, 0.0f), std::nextafter(h, 1.0f), (k * 257 + 0.5f) / 65535.0f})
                v.push_back(bitsOf(x));
        }
        // Floats that sit exactly half-way between two halves.
        for (uint32 b = 0x3c000000u; b < 0x3f800000u; b += 0x00123456u)
            v.push_back((b & ~0x1fffu) | 0x1000u);
        std::uniform_real_distribution<float> wide(-0.5f, 1.5f);
        for (int i = 0; i < 3000; ++i)
            v.push_back(bitsOf(wide(rng)));
    }
    else
        for (uint32 i = 0; i <= (f == IMB_INT8 ? 0xFFu : 0xFFFFu); ++i)
            v.push_back(i);
    return v;
}

// Black/white settings, stored regardless of the fast flags (which the test sets directly), so fast kernels see
// non-default stored points too.
const Points kPointSets[] = {
    {0, 255, 0, 255},                   // the defaults
    {16, 235, 16, 235},                 // equal custom points: the identity copy
    {16, 235, 4096, 60160},             // video range to a 16-bit custom range
    {4096, 60160, 0, 0xFFFFFFFFu},      // to the full 32-bit range
    {1000, 4000000000u, 64, 940},       // a 32-bit custom source
    {200, 100, 7, 7},                   // inverted source range, empty destination range
    {300, 255, 0, 1023},                // black beyond the 8-bit width
    {0, 0, 255, 0},                     // equal source points: factor 1
    {0, 255, 0, 2147483000u},           // 32-bit results just inside the signed range
    {0, 255, 2147483000u, 2147483647u}, // and reaching past it
    {0, 255, 70000, 5},                 // an inverted 32-bit destination range
    // A 16-bit value v as the fraction v, then v - 65535: above 2048 odd values are exact ties between two halves,
    // positive and negative.
    {0, 1, 0, 255},
    {65535, 65536, 0, 255},
};

using Combination = std::tuple<IMB_DataFormat, IMB_DataFormat, bool, bool>;
using FillConvertEveryCombination = ::testing::TestWithParam<Combination>;

TEST_P(FillConvertEveryCombination, MatchesTheScalarRulesOnContiguousAndStridedRows)
{
    const auto [s, d, sf, df] = GetParam();
    const std::vector<uint32> values = probeValues(s);
    const int64 n = static_cast<int64>(values.size()), rows = 4, width = (n + rows - 1) / rows;
    // Contiguous: one row of every value (vector paths); strided: three components per source pixel, two per
    // destination pixel (general path), over several rows.
    Buffer src(s, n), srcS(s, width * rows * 3);
    for (int64 i = 0; i < width * rows; ++i)
        srcS.set(i * 3, values[i % n]);
    for (int64 i = 0; i < n; ++i)
        src.set(i, values[i]);
    for (const Points &pts : kPointSets)
    {
        Buffer dst(d, n), dstS(d, width * rows * 2);
        runFill(s, d, sf, df, pts, src, dst, n, 1);
        runFill(s, d, sf, df, pts, srcS, dstS, width, rows, 3, 2);
        for (int64 i = 0; i < n; ++i)
        {
            const uint32 want = convert(s, d, sf, df, values[i], pts);
            ASSERT_EQ(dst.get(i), want) << "value " << values[i] << " points " << pts.sb << "/" << pts.sw << " -> "
                                        << pts.db << "/" << pts.dw;
            ASSERT_EQ(dstS.get(i * 2), want) << "strided, value " << values[i];
            ASSERT_EQ(dstS.get(i * 2 + 1), dstS.sentinel()); // between two strided pixels
        }
        ASSERT_EQ(dst.get(n), dst.sentinel()); // past the row
    }
}

std::string combinationName(const ::testing::TestParamInfo<Combination> &info)
{
    const auto [s, d, sf, df] = info.param;
    return std::string(formatName(s)) + (sf ? "Fast" : "Custom") + "To" + formatName(d) + (df ? "Fast" : "Custom");
}
INSTANTIATE_TEST_SUITE_P(AllFormats, FillConvertEveryCombination,
                         ::testing::Combine(::testing::Values(IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16),
                                            ::testing::Values(IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16),
                                            ::testing::Bool(), ::testing::Bool()),
                         combinationName);

TEST(FillConvert, DocumentedValues)
{
    // One component from s to d with the fast flags and stored points given.
    auto one = [](IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, Points pts, uint32 in) {
        Buffer src(s, 1), dst(d, 1);
        src.set(0, in);
        runFill(s, d, sf, df, pts, src, dst, 1, 1);
        return dst.get(0);
    };
    const Points def{}, video{16, 235, 0, 255};
    // Widening replicates the bits; narrowing rounds on the highest dropped bit, without overflow.
    EXPECT_EQ(one(IMB_INT8, IMB_INT16, true, true, def, 0x12), 0x1212u);
    EXPECT_EQ(one(IMB_INT16, IMB_INT8, true, true, def, 0x80FF), 0x81u);
    EXPECT_EQ(one(IMB_INT16, IMB_INT8, true, true, def, 0xFF80), 0xFFu);
    // Floats to integers round halves up and clamp; NaN is black.
    EXPECT_EQ(one(IMB_FLOAT32, IMB_INT8, true, true, def, bitsOf(0.5f)), 128u);
    EXPECT_EQ(one(IMB_FLOAT32, IMB_INT8, true, true, def, bitsOf(1.7f)), 255u);
    EXPECT_EQ(one(IMB_FLOAT32, IMB_INT16, true, true, def, bitsOf(std::nanf(""))), 0u);
    EXPECT_EQ(one(IMB_INT8, IMB_INT8, false, true, video, 10), 0u); // a custom source below black
    // A fast 32-bit destination scales by the stored range.
    EXPECT_EQ(one(IMB_FLOAT32, IMB_INT32, true, true, def, bitsOf(0.5f)), 128u);
    EXPECT_EQ(one(IMB_FLOAT32, IMB_INT32, true, true, Points{0, 255, 0, 0xFFFFFFFFu}, bitsOf(2.0f)), 0xFFFFFFFFu);
    // Stored points decide the identity copy even when fast: differing points go through floats (8 bits come back
    // unchanged), equal custom points copy bits that lie outside them.
    EXPECT_EQ(one(IMB_INT8, IMB_INT8, true, true, video, 200), 200u);
    EXPECT_EQ(one(IMB_INT8, IMB_INT8, false, false, Points{16, 235, 16, 235}, 250), 250u);
    // Integer to half: ties round up in magnitude.
    EXPECT_EQ(one(IMB_INT16, IMB_FLOAT16, false, true, Points{0, 1, 0, 255}, 2049), 0x6801u);
}

TEST(FillConvert, LongRowsFromSmallFormatsTo32BitsMatchTheRuleForEveryValue)
{
    // Rows long enough for the shortened 32-bit writes, every source value many times over: destination points where
    // single precision holds (the defaults, a small custom range), where only the signed range holds, and the full
    // range.
    for (IMB_DataFormat s : {IMB_INT8, IMB_INT16})
    {
        const int64 values = whiteOf(s) + 1, n = 17 * values;
        Buffer src(s, n), dst(IMB_INT32, n);
        for (int64 i = 0; i < n; ++i)
            src.set(i, static_cast<uint32>(i * 7919 % values));
        for (const Points &pts : {Points{}, Points{0, 255, 100, 1123}, Points{0, 255, 70000, 5},
                                  Points{0, 255, 0, 2147480000u}, Points{0, 255, 0, 0xFFFFFFFFu}})
            for (bool df : {true, false})
            {
                runFill(s, IMB_INT32, true, df, pts, src, dst, n, 1);
                for (int64 i = 0; i < n; ++i)
                    ASSERT_EQ(dst.get(i), convert(s, IMB_INT32, true, df, src.get(i), pts))
                        << formatName(s) << " value " << src.get(i) << " to " << pts.db << "/" << pts.dw;
            }
    }
}

TEST(FillConvert, FormatOutsideTheTableDoesNothing)
{
    Buffer src(IMB_INT8, 1), dst(IMB_INT8, 1);
    for (auto [s, d] : {std::pair<int, int>{IMB_MAX_DATA_FORMAT, IMB_INT8}, {IMB_INT8, -1}})
    {
        runFill(static_cast<IMB_DataFormat>(s), static_cast<IMB_DataFormat>(d), true, true, Points{}, src, dst, 1, 1);
        EXPECT_EQ(dst.get(0), dst.sentinel());
    }
}
// Gamma maps exactly the written 8- and 16-bit components, after conversion, through the table of the destination's
// range; other components stay as they were, and other formats ignore it.
TEST(FillGamma, AppliesAfterConversionToTheWrittenIntegerComponentsOnly)
{
    const std::tuple<IMB_DataFormat, bool, uint32, uint32> cases[] = {
        {IMB_INT8, true, 0, 255},       {IMB_INT8, false, 16, 235}, {IMB_INT16, true, 0, 65535},
        {IMB_INT16, false, 4096, 60160}, {IMB_INT32, true, 0, 255},  {IMB_FLOAT32, true, 0, 255},
        {IMB_FLOAT16, true, 0, 255}};
    const int64 W = 40, H = 3;
    Buffer src(IMB_FLOAT32, W * H);
    for (int64 i = 0; i < W * H; ++i)
        src.set(i, bitsOf(static_cast<float>(i) / (W * H - 1) * 1.2f - 0.1f));
    for (auto [d, fast, db, dw] : cases)
    {
        Buffer dst(d, W * H * 2);
        IMB_FillParms p;
        p.myXOffset = 3; // the first three columns stay unwritten
        p.myGamma = 2.2f;
        runFill(p, IMB_FLOAT32, d, true, fast, Points{0, 255, db, dw}, src, dst, W, H, 1, 2);
        const uint32 M = whiteOf(d);
        for (int64 y = 0; y < H; ++y)
            for (int64 x = 0; x < W; ++x)
            {
                const int64 at = (y * W + x) * 2;
                uint32 want = dst.sentinel();
                if (x >= 3)
                {
                    want = convert(IMB_FLOAT32, d, true, fast, src.get(y * W + x - 3), Points{0, 255, db, dw});
                    if (M <= 65535)
                        want = fast ? gammaEntry(want, 2.2f, 0, M, M) : gammaEntry(want, 2.2f, db, dw, M);
                }
                ASSERT_EQ(dst.get(at), want) << x << "," << y << " format " << d << " fast " << fast;
                ASSERT_EQ(dst.get(at + 1), dst.sentinel());
            }
    }
}
} // namespace
