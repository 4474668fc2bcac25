// Gamma in IMB_Fill::fill and the cached gamma tables.
#include "fill/FillReference.h"

#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

using namespace fillref;

namespace
{
// The table entry for i by the documented build rule, in single precision.
uint32 gammaEntry(uint32 i, float g, uint32 black, uint32 white, uint32 M)
{
    const float e = 1.0f / g;
    if (black == 0 && white == M)
    {
        const float k = M == 255 ? 0.003921569f : 1.5259022e-5f;
        return clampFloorF(std::pow(static_cast<float>(i) * k, e) * static_cast<float>(M) + 0.5f, M);
    }
    const float range = static_cast<float>(static_cast<double>(white) - black);
    const float s = black == white ? 1.0f : 1.0f / range;
    const float b = static_cast<float>(static_cast<double>(i) - black) * s;
    const float p = b >= 0 ? std::pow(b, e) : -std::pow(-b, e);
    return clampFloorF(p * range + static_cast<float>(black) + 0.5f, M);
}

TEST(FillGamma, GammaTwoTurnsAnArriving64Into128)
{
    uint8 src = 64, dst = 0;
    IMB_FillParms p;
    p.mySource = &src;
    p.myDest = &dst;
    p.setSourceArea(0, 0, 0, 0);
    p.setDestArea(0, 0, 0, 0);
    p.myGamma = 2.0f;
    IMB_Fill::fill(p);
    EXPECT_EQ(dst, 128);
}

TEST(FillGamma, TablesFollowTheBuildRuleForFullAndCustomRanges)
{
    tbl_gamma8 t8;
    tbl_gamma16 t16;
    for (float g : {2.2f, 0.45f, 1.0f, 3.0f, 0.8f})
        for (auto [black, white] : {std::pair<uint32, uint32>{0, 255}, {16, 235}, {0, 65535}, {4096, 60160}})
        {
            if (white > 255)
            {
                const uint16 *table = t16.build(g, black, white);
                for (uint32 i = 0; i < 65536; ++i)
                    ASSERT_EQ(table[i], gammaEntry(i, g, black, white, 65535)) << "gamma " << g << " entry " << i;
                EXPECT_EQ(t16.lookup(65535), table[65535]);
                continue;
            }
            const uint8 *table = t8.build(g, black, white);
            for (uint32 i = 0; i < 256; ++i)
                ASSERT_EQ(table[i], gammaEntry(i, g, black, white, 255)) << "gamma " << g << " entry " << i;
            EXPECT_EQ(t8.lookup(black), black);
            EXPECT_EQ(t8.lookup(white), white);
            if (g > 1.0f && black > 0)
                EXPECT_LT(t8.lookup(10), 16); // below black mirrors the curve
        }
}

TEST(FillGamma, TablesAreRebuiltOnlyWhenGammaBlackOrWhiteChange)
{
    tbl_gamma8 t;
    const uint8 *a = t.build(2.0f, 0, 255);
    const uint8 before = a[64];
    // Scribble on the table: a cached return must not rebuild it.
    t.myTable[64] = 1;
    EXPECT_EQ(t.build(2.0f, 0, 255), a);
    EXPECT_EQ(a[64], 1);
    EXPECT_EQ(t.build(2.0f, 0, 254)[64], gammaEntry(64, 2.0f, 0, 254, 255));
    EXPECT_EQ(t.build(2.0f, 0, 255)[64], before);
    EXPECT_EQ(t.myGamma, 2.0f);
    EXPECT_EQ(t.myBlack, 0u);
    EXPECT_EQ(t.myWhite, 255u);
}

TEST(FillGamma, ConcurrentBuildsOfOneTableAgree)
{
    tbl_gamma16 t;
    std::vector<std::thread> threads;
    std::vector<int> ok(4, 0);
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&t, &ok, k] {
            const uint16 *table = t.build(1.8f, 0, 65535);
            ok[k] = table[30000] == gammaEntry(30000, 1.8f, 0, 65535, 65535);
        });
    for (auto &th : threads)
        th.join();
    for (int v : ok)
        EXPECT_TRUE(v);
}

TEST(FillGamma, ThreadsWithTheirOwnBlocksConvertIndependently)
{
    // Each thread converts the same floats with its own block and gamma; the
    // results match the same conversions done one after another.
    const int64 n = 50000;
    std::vector<float> src(static_cast<size_t>(n));
    for (int64 i = 0; i < n; ++i)
        src[static_cast<size_t>(i)] = static_cast<float>(i % 1000) / 999.0f;
    auto convert = [&](float gamma, std::vector<uint16> &out) {
        IMB_FillParms p;
        out.assign(static_cast<size_t>(n), 0);
        p.mySource = src.data();
        p.mySourceType = IMB_FLOAT32;
        p.myDest = out.data();
        p.myDestType = IMB_INT16;
        p.setSourceArea(0, 0, n - 1, 0);
        p.setDestArea(0, 0, n - 1, 0);
        p.myGamma = gamma;
        IMB_Fill::fill(p);
    };
    const float gammas[4] = {1.0f, 2.2f, 0.45f, 1.8f};
    std::vector<uint16> parallel[4], serial[4];
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&, k] { convert(gammas[k], parallel[k]); });
    for (auto &th : threads)
        th.join();
    for (int k = 0; k < 4; ++k)
    {
        convert(gammas[k], serial[k]);
        EXPECT_EQ(parallel[k], serial[k]) << "gamma " << gammas[k];
    }
    EXPECT_NE(serial[0], serial[1]);
}

struct GammaCase
{
    IMB_DataFormat d;
    bool fast;
    uint32 db, dw;
};

// Gamma maps exactly the written components, after conversion, through the
// table of the destination's range; other components stay as they were.
TEST(FillGamma, AppliesAfterConversionToTheWrittenComponentsOnly)
{
    const GammaCase cases[] = {{IMB_INT8, true, 0, 255}, {IMB_INT8, false, 16, 235},
                               {IMB_INT16, true, 0, 65535}, {IMB_INT16, false, 4096, 60160}};
    for (const GammaCase &c : cases)
    {
        const int64 W = 40, H = 3;
        Buffer src(IMB_FLOAT32, W * H);
        for (int64 i = 0; i < W * H; ++i)
            src.set(i, bitsOf(static_cast<float>(i) / (W * H - 1) * 1.2f - 0.1f));
        Buffer dst(c.d, static_cast<size_t>(W * H * 2));
        IMB_FillParms p;
        p.mySource = src.data();
        p.myDest = dst.data();
        p.mySourceType = IMB_FLOAT32;
        p.myDestType = c.d;
        p.myDestFast = c.fast;
        p.myDestBlack = c.db;
        p.myDestWhite = c.dw;
        p.myDestXInc = 2;
        p.setSourceArea(0, 0, W - 1, H - 1);
        p.setDestArea(0, 0, W - 1, H - 1);
        p.myXOffset = 3; // the first three columns stay unwritten
        p.myGamma = 2.2f;
        IMB_Fill::fill(p);
        const uint32 M = whiteOf(c.d);
        for (int64 y = 0; y < H; ++y)
            for (int64 x = 0; x < W; ++x)
            {
                const int64 at = (y * W + x) * 2;
                uint32 want = Buffer(c.d, 1).get(0);
                if (x >= 3)
                {
                    const uint32 v = convert(IMB_FLOAT32, c.d, true, c.fast, src.get(y * W + x - 3),
                                             Points{0, 255, c.db, c.dw});
                    want = c.fast ? gammaEntry(v, 2.2f, 0, M, M) : gammaEntry(v, 2.2f, c.db, c.dw, M);
                }
                ASSERT_EQ(dst.get(at), want) << x << "," << y << " format " << c.d << " fast " << c.fast;
                ASSERT_EQ(dst.get(at + 1), Buffer(c.d, 1).get(0));
            }
    }
}

TEST(FillGamma, IsIgnoredBy32BitFloatAndHalfDestinations)
{
    const float src[3] = {0.25f, 0.5f, 1.0f};
    for (IMB_DataFormat d : {IMB_INT32, IMB_FLOAT32, IMB_FLOAT16})
    {
        Buffer with(d, 3), without(d, 3);
        for (Buffer *b : {&with, &without})
        {
            IMB_FillParms p;
            p.mySource = src;
            p.myDest = b->data();
            p.mySourceType = IMB_FLOAT32;
            p.myDestType = d;
            p.setSourceArea(0, 0, 2, 0);
            p.setDestArea(0, 0, 2, 0);
            p.myGamma = b == &with ? 2.2f : 1.0f;
            IMB_Fill::fill(p);
        }
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(with.get(i), without.get(i)) << "format " << d;
    }
}
} // namespace
