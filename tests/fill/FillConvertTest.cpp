// IMB_Fill::fill conversions: every (source, destination, source fast,
// destination fast) combination against the scalar reference, on contiguous
// rows (the vector paths) and strided rows (the general path), and the
// documented values.
#include "fill/FillReference.h"

#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <tuple>

using namespace fillref;

namespace
{
const char *formatName(IMB_DataFormat f)
{
    static const char *names[] = {"Int8", "Int16", "Int32", "Float32", "Float16"};
    return names[f];
}

// Inputs that probe boundaries, halves, black/white points and specials of a
// source format, plus random values.
std::vector<uint32> probeValues(IMB_DataFormat f)
{
    std::vector<uint32> v;
    std::mt19937 rng(1234 + f);
    switch (f)
    {
    case IMB_INT8:
        for (uint32 i = 0; i < 256; ++i)
            v.push_back(i);
        break;
    case IMB_INT16:
        for (uint32 x : {0u, 1u, 2u, 15u, 16u, 127u, 128u, 129u, 255u, 256u, 4095u, 4096u, 4097u, 0x7fffu, 0x8000u,
                         0x807fu, 0x8080u, 0x80ffu, 0xff00u, 0xff7fu, 0xff80u, 0xfffeu, 0xffffu, 60159u, 60160u,
                         60161u, 999u, 1000u, 1001u})
            v.push_back(x);
        for (int i = 0; i < 3000; ++i)
            v.push_back(rng() & 0xffffu);
        break;
    case IMB_INT32:
        for (uint32 x : {0u, 1u, 999u, 1000u, 1001u, 0x7fffu, 0x8000u, 0x7fffffu, 0x800000u, 0x01000000u, 0x7fffffffu,
                         0x80000000u, 0xff7fffffu, 0xff800000u, 0xffff7fffu, 0xffff8000u, 0xfffffffeu, 0xffffffffu,
                         3999999999u, 4000000000u, 4000000001u})
            v.push_back(x);
        for (int i = 0; i < 3000; ++i)
            v.push_back(static_cast<uint32>(rng()));
        break;
    case IMB_FLOAT32:
    {
        const float inf = std::numeric_limits<float>::infinity();
        for (float x : {0.0f, -0.0f, 0.5f, -0.1f, 1.7f, 1.0f, 0.25f, 1e-8f, -1e-8f, 3e-5f, 6.1e-5f, 6.2e-5f, 65504.0f,
                        65519.0f, 65520.0f, 70000.0f, 1e30f, -1e30f, 1e-40f, inf, -inf,
                        std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                        std::numeric_limits<float>::signaling_NaN()})
            v.push_back(bitsOf(x));
        // Values whose scaled result is exactly a half, and their neighbours.
        for (int k = 0; k < 256; k += 5)
        {
            const float h = (static_cast<float>(k) + 0.5f) / 255.0f;
            v.push_back(bitsOf(h));
            v.push_back(bitsOf(std::nextafter(h, 0.0f)));
            v.push_back(bitsOf(std::nextafter(h, 1.0f)));
            v.push_back(bitsOf((static_cast<float>(k * 257) + 0.5f) / 65535.0f));
        }
        // Floats that sit exactly half-way between two halves.
        for (uint32 b = 0x3c000000u; b < 0x3f800000u; b += 0x00123456u)
            v.push_back((b & ~0x1fffu) | 0x1000u);
        std::uniform_real_distribution<float> wide(-0.5f, 1.5f);
        for (int i = 0; i < 3000; ++i)
            v.push_back(bitsOf(wide(rng)));
        break;
    }
    default:
        for (uint32 h = 0; h < 65536; ++h)
            v.push_back(h);
        break;
    }
    return v;
}

// Black/white settings, stored regardless of the fast flags (which the test
// sets directly), so fast kernels see non-default stored points too.
std::vector<Points> pointSets()
{
    return {
        {0, 255, 0, 255},             // the defaults
        {16, 235, 16, 235},           // equal custom points: the identity copy
        {16, 235, 4096, 60160},       // video range to a 16-bit custom range
        {4096, 60160, 0, 0xFFFFFFFFu}, // to the full 32-bit range
        {1000, 4000000000u, 64, 940}, // a 32-bit custom source
        {200, 100, 7, 7},             // inverted source range, empty destination range
        {300, 255, 0, 1023},          // black beyond the 8-bit width
        {0, 0, 255, 0},               // equal source points: factor 1
        {0, 255, 0, 2147483000u},     // 32-bit results just inside the signed range
        {0, 255, 2147483000u, 2147483647u}, // and reaching past it
        {0, 255, 70000, 5},           // an inverted 32-bit destination range
    };
}

using Combination = std::tuple<IMB_DataFormat, IMB_DataFormat, bool, bool>;

class FillConvertEveryCombination : public ::testing::TestWithParam<Combination>
{
};

void runFill(IMB_DataFormat s, IMB_DataFormat d, bool sf, bool df, const Points &pts, Buffer &src, Buffer &dst,
             int64 width, int64 height, int64 sInc, int64 dInc)
{
    IMB_FillParms p;
    p.mySource = src.data();
    p.myDest = dst.data();
    p.mySourceType = s;
    p.myDestType = d;
    p.mySourceFast = sf;
    p.myDestFast = df;
    p.mySourceBlack = pts.sb;
    p.mySourceWhite = pts.sw;
    p.myDestBlack = pts.db;
    p.myDestWhite = pts.dw;
    p.mySourceXInc = sInc;
    p.myDestXInc = dInc;
    p.setSourceArea(0, 0, width - 1, height - 1);
    p.setDestArea(0, 0, width - 1, height - 1);
    IMB_Fill::fill(p);
}

TEST_P(FillConvertEveryCombination, MatchesTheScalarRulesOnContiguousAndStridedRows)
{
    const auto [s, d, sf, df] = GetParam();
    const std::vector<uint32> values = probeValues(s);
    const int64 n = static_cast<int64>(values.size());
    for (const Points &pts : pointSets())
    {
        // Contiguous: one row of every value (vector paths); strided: three
        // components per source pixel, two per destination pixel (general
        // path), over several rows.
        Buffer src(s, static_cast<size_t>(n)), dst(d, static_cast<size_t>(n));
        for (int64 i = 0; i < n; ++i)
            src.set(i, values[i]);
        runFill(s, d, sf, df, pts, src, dst, n, 1, 1, 1);

        const int64 rows = 4, width = (n + rows - 1) / rows;
        Buffer srcS(s, static_cast<size_t>(width * rows * 3)), dstS(d, static_cast<size_t>(width * rows * 2));
        for (int64 i = 0; i < width * rows; ++i)
            srcS.set(i * 3, values[i % n]);
        runFill(s, d, sf, df, pts, srcS, dstS, width, rows, 3, 2);

        for (int64 i = 0; i < n; ++i)
        {
            const uint32 want = convert(s, d, sf, df, values[i], pts);
            ASSERT_EQ(dst.get(i), want) << "contiguous, value " << values[i] << " points " << pts.sb << "/"
                                        << pts.sw << " -> " << pts.db << "/" << pts.dw;
            ASSERT_EQ(dstS.get(i * 2), want) << "strided, value " << values[i] << " points " << pts.sb << "/"
                                             << pts.sw << " -> " << pts.db << "/" << pts.dw;
            // The component between two strided pixels is not written.
            ASSERT_EQ(dstS.get(i * 2 + 1), Buffer(d, 1).get(0));
        }
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

// Documented single values, one component each; fields are source, destination,
// the two fast flags, the four stored points, the input and the expected bits.
struct Documented
{
    IMB_DataFormat s, d;
    bool sf, df;
    Points pts;
    uint32 in, want;
};

TEST(FillConvert, DocumentedValues)
{
    const uint32 half = bitsOf(0.5f), one = bitsOf(1.0f);
    const Points def{}, video{16, 235, 0, 255}, full32{0, 255, 0, 0xFFFFFFFFu};
    // 0x8000 through floats into the full 32-bit range: not a bit replication.
    const uint32 through = static_cast<uint32>(
        std::floor(static_cast<double>(static_cast<float>(0x8000) * 1.5259022e-5f) * 4294967295.0 + 0.5));
    const Documented cases[] = {
        // Widening replicates the bits.
        {IMB_INT8, IMB_INT16, true, true, def, 0xFF, 0xFFFF},
        {IMB_INT8, IMB_INT16, true, true, def, 0x12, 0x1212},
        {IMB_INT8, IMB_INT32, true, true, def, 0xAB, 0xABABABABu},
        // Narrowing rounds on the highest dropped bit, without overflow.
        {IMB_INT16, IMB_INT8, true, true, def, 0x80FF, 0x81},
        {IMB_INT16, IMB_INT8, true, true, def, 0x807F, 0x80},
        {IMB_INT16, IMB_INT8, true, true, def, 0xFF80, 0xFF},
        {IMB_INT32, IMB_INT8, true, true, def, 0x12800000u, 0x13},
        {IMB_INT32, IMB_INT8, true, true, def, 0xFFFFFFFFu, 0xFF},
        {IMB_INT32, IMB_INT16, true, true, def, 0x12347FFFu, 0x1234},
        {IMB_INT32, IMB_INT16, true, true, def, 0xFFFF8000u, 0xFFFF},
        // Floats to integers round halves up and clamp; NaN is black.
        {IMB_FLOAT32, IMB_INT8, true, true, def, half, 128},
        {IMB_FLOAT32, IMB_INT8, true, true, def, bitsOf(-0.1f), 0},
        {IMB_FLOAT32, IMB_INT8, true, true, def, bitsOf(1.7f), 255},
        {IMB_FLOAT32, IMB_INT8, true, true, def, bitsOf(std::nanf("")), 0},
        {IMB_FLOAT32, IMB_INT16, true, true, def, half, 32768},
        // A custom source below black clamps to zero.
        {IMB_INT8, IMB_INT8, false, true, video, 10, 0},
        {IMB_INT8, IMB_INT8, false, true, video, 235, 255},
        // A fast 32-bit destination scales by the stored range.
        {IMB_FLOAT32, IMB_INT32, true, true, def, one, 255u},
        {IMB_FLOAT32, IMB_INT32, true, true, def, half, 128u},
        {IMB_FLOAT32, IMB_INT32, true, true, full32, one, 0xFFFFFFFFu},
        {IMB_FLOAT32, IMB_INT32, true, true, full32, bitsOf(2.0f), 0xFFFFFFFFu},
        {IMB_INT16, IMB_INT32, true, true, def, 0xFFFF, 255u},
        {IMB_INT16, IMB_INT32, true, true, def, 0x8000, 128u},
        {IMB_INT16, IMB_INT32, true, true, full32, 0x8000, through},
        // Stored points decide the identity copy even when fast: differing
        // points go through floats (8 bits come back unchanged), equal custom
        // points copy bits that lie outside them.
        {IMB_INT8, IMB_INT8, true, true, Points{16, 235, 0, 255}, 200, 200},
        {IMB_INT8, IMB_INT8, false, false, Points{16, 235, 16, 235}, 250, 250},
        // Integer to half: ties round up in magnitude.
        {IMB_INT16, IMB_FLOAT16, false, true, Points{0, 1, 0, 255}, 2049, halfOf(2050.0f)},
    };
    for (const Documented &c : cases)
    {
        Buffer src(c.s, 1), dst(c.d, 1);
        src.set(0, c.in);
        runFill(c.s, c.d, c.sf, c.df, c.pts, src, dst, 1, 1, 1, 1);
        EXPECT_EQ(dst.get(0), c.want) << formatName(c.s) << " " << c.in << " to " << formatName(c.d);
    }
    EXPECT_EQ(halfValue(halfOf(2049.0f)), 2050.0f);
}

TEST(FillConvert, LongRowsFromSmallFormatsTo32BitsMatchTheRuleForEveryValue)
{
    // Rows long enough for the shortened 32-bit writes, every source value
    // many times over, against the rule: destination points where single
    // precision holds (the defaults, a small custom range), where only the
    // signed range holds, and the full range.
    const Points pointSets[] = {{0, 255, 0, 255},
                                {0, 255, 100, 1123},
                                {0, 255, 70000, 5},
                                {0, 255, 0, 2147480000u},
                                {0, 255, 0, 0xFFFFFFFFu}};
    for (IMB_DataFormat s : {IMB_INT8, IMB_INT16})
    {
        const uint32 values = s == IMB_INT8 ? 256 : 65536;
        const int64 n = 17 * static_cast<int64>(values);
        Buffer src(s, static_cast<size_t>(n)), dst(IMB_INT32, static_cast<size_t>(n));
        for (int64 i = 0; i < n; ++i)
            src.set(i, static_cast<uint32>(i * 7919) % values);
        for (const Points &pts : pointSets)
            for (bool df : {true, false})
            {
                runFill(s, IMB_INT32, true, df, pts, src, dst, n, 1, 1, 1);
                for (int64 i = 0; i < n; ++i)
                    ASSERT_EQ(dst.get(i), convert(s, IMB_INT32, true, df, src.get(i), pts))
                        << formatName(s) << " value " << src.get(i) << " to " << pts.db << "/" << pts.dw;
            }
    }
}

TEST(FillConvert, FullRange32BitValuesDivideExactlyOnTheWayToFloats)
{
    // A million values spread over the whole 32-bit range, through the
    // contiguous rows, against the division of the rule.
    const int64 n = 1 << 20;
    Buffer src(IMB_INT32, n), f32(IMB_FLOAT32, n), f16(IMB_FLOAT16, n);
    for (int64 i = 0; i < n; ++i)
        src.set(i, static_cast<uint32>(i * 4096 + (i * 2654435761u) % 4096));
    runFill(IMB_INT32, IMB_FLOAT32, true, true, Points{}, src, f32, n, 1, 1, 1);
    runFill(IMB_INT32, IMB_FLOAT16, true, true, Points{}, src, f16, n, 1, 1, 1);
    for (int64 i = 0; i < n; ++i)
    {
        const float x = static_cast<float>(static_cast<double>(src.get(i)) / 4294967295.0);
        ASSERT_EQ(f32.get(i), bitsOf(x)) << src.get(i);
        ASSERT_EQ(f16.get(i), halfOf(x)) << src.get(i);
    }
}

TEST(FillConvert, IntegerToHalfTiesRoundUpInMagnitude)
{
    // With black 0 and white 1 a 16-bit value v is the fraction v itself;
    // above 2048 halves step by 2 or more, so odd values are exact ties. With
    // black 65535 and white 65536 the fractions are v - 65535, the negative
    // ties. Contiguous rows, so the vector rows decide them.
    for (const Points pts : {Points{0, 1, 0, 255}, Points{65535, 65536, 0, 255}})
    {
        const int64 n = 65536;
        Buffer src(IMB_INT16, n), dst(IMB_FLOAT16, n);
        for (int64 i = 0; i < n; ++i)
            src.set(i, static_cast<uint32>(i));
        runFill(IMB_INT16, IMB_FLOAT16, false, true, pts, src, dst, n, 1, 1, 1);
        for (int64 i = 0; i < n; ++i)
            ASSERT_EQ(dst.get(i), convert(IMB_INT16, IMB_FLOAT16, false, true, static_cast<uint32>(i), pts)) << i;
    }
}

TEST(FillConvert, FormatOutsideTheTableDoesNothing)
{
    uint8 src = 7, dst = 9;
    IMB_FillParms p;
    p.mySource = &src;
    p.myDest = &dst;
    p.setSourceArea(0, 0, 0, 0);
    p.setDestArea(0, 0, 0, 0);
    p.mySourceType = IMB_MAX_DATA_FORMAT;
    IMB_Fill::fill(p);
    EXPECT_EQ(dst, 9);
    p.mySourceType = IMB_INT8;
    p.myDestType = static_cast<IMB_DataFormat>(-1);
    IMB_Fill::fill(p);
    EXPECT_EQ(dst, 9);
}
} // namespace
