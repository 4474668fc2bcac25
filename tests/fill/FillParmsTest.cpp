// IMB_FillParms: the rules of the setters, and its cached gamma tables.
#include "fill/FillReference.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <tuple>

using namespace fillref;

namespace
{
auto corners(const IMB_FillArea &a) { return std::make_tuple(a.x1, a.y1, a.x2, a.y2); }

TEST(FillParms, AreaSettersSortTheCorners)
{
    IMB_FillParms p;
    p.setSourceArea(10, 5, 2, 1);
    p.setDestArea(-3, 7, 4, -8);
    EXPECT_EQ(corners(p.mySourceArea), std::make_tuple(2, 1, 10, 5));
    EXPECT_EQ(corners(p.myDestArea), std::make_tuple(-3, -8, 4, 7));
}

// Only a genuine custom integer range is stored and clears the fast flag; otherwise the stored points stay as they
// were. Each step sets a type, black and white on both sides; then come the fast flag and stored points expected.
TEST(FillParms, TypeSettersStoreOnlyAGenuineCustomIntegerRange)
{
    const std::tuple<IMB_DataFormat, uint32, uint32, int, uint32, uint32> steps[] = {
        {IMB_INT8, 0, 255, 1, 3, 4}, // untouched
        {IMB_INT8, 16, 235, 0, 16, 235},
        {IMB_FLOAT32, 0, 100, 1, 16, 235},
        {IMB_INT16, 7, 7, 1, 16, 235},
        {IMB_INT16, 0, 255, 0, 0, 255}, // the full range of one format is a custom range of another
        // Setting the full 32-bit range does not store it: a fast 32-bit component keeps scaling by the stored range.
        {IMB_INT32, 0, 0xFFFFFFFFu, 1, 0, 255},
        {IMB_INT16, 4096, 60160, 0, 4096, 60160},
        {IMB_FLOAT16, 1, 2, 1, 4096, 60160},
    };
    IMB_FillParms p;
    p.mySourceBlack = p.myDestBlack = 3;
    p.mySourceWhite = p.myDestWhite = 4;
    p.mySourceFast = p.myDestFast = 0;
    for (auto [f, black, white, fast, storedBlack, storedWhite] : steps)
    {
        p.setSourceType(f, black, white);
        p.setDestType(f, black, white);
        const auto want = std::make_tuple(f, fast, storedBlack, storedWhite);
        EXPECT_EQ(std::make_tuple(p.mySourceType, p.mySourceFast, p.mySourceBlack, p.mySourceWhite), want);
        EXPECT_EQ(std::make_tuple(p.myDestType, p.myDestFast, p.myDestBlack, p.myDestWhite), want);
    }
}

TEST(FillParms, DebugPrintPrintsNothing)
{
    IMB_FillParms p;
    std::ostringstream os;
    p.debugPrint(os);
    EXPECT_TRUE(os.str().empty());
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
                ASSERT_EQ(table8 ? table8[i] : table16[i], gammaEntry(i, g, black, white, M)) << g << " entry " << i;
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

} // namespace
