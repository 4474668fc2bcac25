// IMB_FillParms: defaults and the rules of the setters.
#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

namespace
{
auto corners(const IMB_FillArea &a)
{
    return std::make_tuple(a.x1, a.y1, a.x2, a.y2);
}

TEST(FillParms, DefaultBlockHasEmptyAreasFastTypesAndEmptyGammaTables)
{
    IMB_FillParms p;
    EXPECT_EQ(std::make_tuple(p.mySource, p.myDest, p.myPixelFactors), std::make_tuple(nullptr, nullptr, nullptr));
    EXPECT_EQ(std::make_tuple(p.mySourceType, p.myDestType, p.mySourceFast, p.myDestFast),
              std::make_tuple(IMB_INT8, IMB_INT8, 1, 1));
    EXPECT_EQ(corners(p.mySourceArea), std::make_tuple(0, 0, -1, -1));
    EXPECT_EQ(corners(p.myDestArea), std::make_tuple(0, 0, -1, -1));
    EXPECT_EQ(std::make_tuple(p.mySourceBlack, p.mySourceWhite, p.myDestBlack, p.myDestWhite),
              std::make_tuple(0u, 255u, 0u, 255u));
    EXPECT_EQ(std::make_tuple(p.mySourceXInc, p.mySourceYInc, p.mySourceYOffset, p.myDestXInc, p.myXOffset, p.myYOffset),
              std::make_tuple(1, 1, 0, 1, 0, 0));
    EXPECT_EQ(std::make_tuple(p.myFlipX, p.myFlipY, p.myDestPlanar, p.myUsePixelFactors), std::make_tuple(0, 0, 0, 1));
    EXPECT_EQ(std::make_tuple(p.myValue, p.myGamma, p.myFactor), std::make_tuple(0.0f, 1.0f, 1.0f));
    ASSERT_TRUE(p.myGamma8 && p.myGamma16);
    EXPECT_EQ(std::make_tuple(p.myGamma8->myTable, p.myGamma8->myBlack, p.myGamma8->myWhite, p.myGamma8->myGamma),
              std::make_tuple(nullptr, 0u, 0u, 1.0f));
    EXPECT_EQ(p.myGamma16->myTable, nullptr);
}

TEST(FillParms, AreaSettersSortTheCorners)
{
    IMB_FillParms p;
    p.setSourceArea(10, 5, 2, 1);
    p.setDestArea(-3, 7, 4, -8);
    EXPECT_EQ(corners(p.mySourceArea), std::make_tuple(2, 1, 10, 5));
    EXPECT_EQ(corners(p.myDestArea), std::make_tuple(-3, -8, 4, 7));
}

// Only a genuine custom integer range is stored and clears the fast flag;
// otherwise the stored points stay as they were. Each step sets a type,
// black and white on both sides, then expects the fast flag and stored points.
TEST(FillParms, TypeSettersStoreOnlyAGenuineCustomIntegerRange)
{
    const struct
    {
        IMB_DataFormat f;
        uint32 black, white;
        int fast;
        uint32 storedBlack, storedWhite;
    } steps[] = {
        {IMB_INT8, 0, 255, 1, 3, 4}, // untouched
        {IMB_INT8, 16, 235, 0, 16, 235},
        {IMB_FLOAT32, 0, 100, 1, 16, 235},
        {IMB_INT16, 7, 7, 1, 16, 235},
        // The full range of one format is a custom range of another.
        {IMB_INT16, 0, 255, 0, 0, 255},
        // Setting the full 32-bit range does not store it: a fast 32-bit
        // component keeps scaling by the stored range.
        {IMB_INT32, 0, 0xFFFFFFFFu, 1, 0, 255},
        {IMB_INT16, 4096, 60160, 0, 4096, 60160},
        {IMB_FLOAT16, 1, 2, 1, 4096, 60160},
    };
    IMB_FillParms p;
    p.mySourceBlack = p.myDestBlack = 3;
    p.mySourceWhite = p.myDestWhite = 4;
    p.mySourceFast = p.myDestFast = 0;
    for (const auto &s : steps)
    {
        p.setSourceType(s.f, s.black, s.white);
        p.setDestType(s.f, s.black, s.white);
        const auto want = std::make_tuple(s.f, s.fast, s.storedBlack, s.storedWhite);
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
} // namespace
