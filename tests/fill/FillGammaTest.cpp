// Gamma in IMB_Fill::fill and the cached gamma tables.
#include "fill/FillReference.h"

#include <gtest/gtest.h>

#include <thread>

using namespace fillref;

namespace
{
// The table entry for i by the documented build rule, in single precision.
uint32 gammaEntry(uint32 i, float g, uint32 black, uint32 white, uint32 M)
{
    const float e = 1.0f / g;
    if (black == 0 && white == M)
        return clampFloorF(std::pow(static_cast<float>(i) * (M == 255 ? 0.003921569f : 1.5259022e-5f), e) * M + 0.5f, M);
    const float range = static_cast<float>(static_cast<double>(white) - black);
    const float b = static_cast<float>(static_cast<double>(i) - black) * (black == white ? 1.0f : 1.0f / range);
    const float p = b >= 0 ? std::pow(b, e) : -std::pow(-b, e);
    return clampFloorF(p * range + static_cast<float>(black) + 0.5f, M);
}

TEST(FillGamma, TablesFollowTheBuildRuleForFullAndCustomRanges)
{
    tbl_gamma8 t8;
    tbl_gamma16 t16;
    EXPECT_EQ(t8.build(2.0f, 0, 255)[64], 128); // an arriving 64 under gamma 2
    for (float g : {2.2f, 0.45f, 1.0f, 3.0f, 0.8f})
        for (auto [black, white] : {std::pair<uint32, uint32>{0, 255}, {16, 235}, {0, 65535}, {4096, 60160}})
        {
            const uint32 M = white > 255 ? 65535 : 255;
            const uint8 *table8 = M == 255 ? t8.build(g, black, white) : nullptr;
            const uint16 *table16 = M == 255 ? nullptr : t16.build(g, black, white);
            for (uint32 i = 0; i <= M; ++i)
                ASSERT_EQ(static_cast<uint32>(table8 ? table8[i] : table16[i]), gammaEntry(i, g, black, white, M)) << "gamma " << g << " entry " << i;
            EXPECT_EQ(table8 ? t8.lookup(255) : t16.lookup(65535), table8 ? table8[255] : table16[65535]);
        }
}

TEST(FillGamma, TablesAreRebuiltOnlyWhenGammaBlackOrWhiteChange)
{
    tbl_gamma8 t;
    const uint8 *a = t.build(2.0f, 0, 255);
    const uint8 before = a[64];
    t.myTable[64] = 1; // scribbled on: a cached return does not rebuild it
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
    int ok[4] = {};
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&t, &ok, k] {
            ok[k] = t.build(1.8f, 0, 65535)[30000] == gammaEntry(30000, 1.8f, 0, 65535, 65535);
        });
    for (auto &th : threads)
        th.join();
    EXPECT_TRUE(ok[0] && ok[1] && ok[2] && ok[3]);
}

// Gamma maps exactly the written 8- and 16-bit components, after
// conversion, through the table of the destination's range; other
// components stay as they were, and other formats ignore it.
TEST(FillGamma, AppliesAfterConversionToTheWrittenIntegerComponentsOnly)
{
    const struct
    {
        IMB_DataFormat d;
        bool fast;
        uint32 db, dw;
    } cases[] = {{IMB_INT8, true, 0, 255},        {IMB_INT8, false, 16, 235}, {IMB_INT16, true, 0, 65535},
                 {IMB_INT16, false, 4096, 60160}, {IMB_INT32, true, 0, 255},  {IMB_FLOAT32, true, 0, 255},
                 {IMB_FLOAT16, true, 0, 255}};
    const int64 W = 40, H = 3;
    Buffer src(IMB_FLOAT32, W * H);
    for (int64 i = 0; i < W * H; ++i)
        src.set(i, bitsOf(static_cast<float>(i) / (W * H - 1) * 1.2f - 0.1f));
    for (const auto &c : cases)
    {
        Buffer dst(c.d, W * H * 2);
        IMB_FillParms p;
        p.myXOffset = 3; // the first three columns stay unwritten
        p.myGamma = 2.2f;
        runFill(p, IMB_FLOAT32, c.d, true, c.fast, Points{0, 255, c.db, c.dw}, src, dst, W, H, 1, 2);
        const uint32 M = whiteOf(c.d);
        for (int64 y = 0; y < H; ++y)
            for (int64 x = 0; x < W; ++x)
            {
                const int64 at = (y * W + x) * 2;
                uint32 want = dst.sentinel();
                if (x >= 3)
                {
                    want = convert(IMB_FLOAT32, c.d, true, c.fast, src.get(y * W + x - 3), Points{0, 255, c.db, c.dw});
                    if (M <= 65535)
                        want = c.fast ? gammaEntry(want, 2.2f, 0, M, M) : gammaEntry(want, 2.2f, c.db, c.dw, M);
                }
                ASSERT_EQ(dst.get(at), want) << x << "," << y << " format " << c.d << " fast " << c.fast;
                ASSERT_EQ(dst.get(at + 1), dst.sentinel());
            }
    }
}
} // namespace
