// IMB_FillParms: defaults and the rules of the setters.
#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <sstream>

namespace
{
TEST(FillParms, DefaultBlockHasEmptyAreasFastTypesAndEmptyGammaTables)
{
    IMB_FillParms p;
    EXPECT_EQ(p.mySource, nullptr);
    EXPECT_EQ(p.myDest, nullptr);
    EXPECT_EQ(p.mySourceType, IMB_INT8);
    EXPECT_EQ(p.myDestType, IMB_INT8);
    EXPECT_EQ(p.mySourceArea.x1, 0);
    EXPECT_EQ(p.mySourceArea.y1, 0);
    EXPECT_EQ(p.mySourceArea.x2, -1);
    EXPECT_EQ(p.mySourceArea.y2, -1);
    EXPECT_EQ(p.myDestArea.x2, -1);
    EXPECT_EQ(p.myDestArea.y2, -1);
    EXPECT_EQ(p.mySourceBlack, 0u);
    EXPECT_EQ(p.mySourceWhite, 255u);
    EXPECT_EQ(p.myDestBlack, 0u);
    EXPECT_EQ(p.myDestWhite, 255u);
    EXPECT_EQ(p.mySourceXInc, 1);
    EXPECT_EQ(p.mySourceYInc, 1);
    EXPECT_EQ(p.mySourceYOffset, 0);
    EXPECT_EQ(p.myDestXInc, 1);
    EXPECT_EQ(p.mySourceFast, 1);
    EXPECT_EQ(p.myDestFast, 1);
    EXPECT_EQ(p.myXOffset, 0);
    EXPECT_EQ(p.myYOffset, 0);
    EXPECT_EQ(p.myFlipX, 0);
    EXPECT_EQ(p.myFlipY, 0);
    EXPECT_EQ(p.myDestPlanar, 0);
    EXPECT_EQ(p.myValue, 0.0f);
    EXPECT_EQ(p.myGamma, 1.0f);
    EXPECT_EQ(p.myUsePixelFactors, 1);
    EXPECT_EQ(p.myPixelFactors, nullptr);
    EXPECT_EQ(p.myFactor, 1.0f);
    ASSERT_NE(p.myGamma8, nullptr);
    ASSERT_NE(p.myGamma16, nullptr);
    EXPECT_EQ(p.myGamma8->myTable, nullptr);
    EXPECT_EQ(p.myGamma8->myBlack, 0u);
    EXPECT_EQ(p.myGamma8->myWhite, 0u);
    EXPECT_EQ(p.myGamma8->myGamma, 1.0f);
    EXPECT_EQ(p.myGamma16->myTable, nullptr);
}

TEST(FillParms, AreaSettersSortTheCorners)
{
    IMB_FillParms p;
    p.setSourceArea(10, 5, 2, 1);
    EXPECT_EQ(p.mySourceArea.x1, 2);
    EXPECT_EQ(p.mySourceArea.y1, 1);
    EXPECT_EQ(p.mySourceArea.x2, 10);
    EXPECT_EQ(p.mySourceArea.y2, 5);
    p.setDestArea(-3, 7, 4, -8);
    EXPECT_EQ(p.myDestArea.x1, -3);
    EXPECT_EQ(p.myDestArea.y1, -8);
    EXPECT_EQ(p.myDestArea.x2, 4);
    EXPECT_EQ(p.myDestArea.y2, 7);
}

// Only a genuine custom integer range is stored and clears the fast flag;
// otherwise the stored points stay as they were.
TEST(FillParms, TypeSettersStoreOnlyAGenuineCustomIntegerRange)
{
    struct Step
    {
        IMB_DataFormat f;
        uint32 black, white;
        int fast;
        uint32 storedBlack, storedWhite;
    };
    const Step steps[] = {
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
    for (const Step &s : steps)
    {
        p.setSourceType(s.f, s.black, s.white);
        p.setDestType(s.f, s.black, s.white);
        EXPECT_EQ(p.mySourceType, s.f);
        EXPECT_EQ(p.myDestType, s.f);
        EXPECT_EQ(p.mySourceFast, s.fast) << s.black << "-" << s.white;
        EXPECT_EQ(p.myDestFast, s.fast) << s.black << "-" << s.white;
        EXPECT_EQ(p.mySourceBlack, s.storedBlack) << s.black << "-" << s.white;
        EXPECT_EQ(p.mySourceWhite, s.storedWhite) << s.black << "-" << s.white;
        EXPECT_EQ(p.myDestBlack, s.storedBlack) << s.black << "-" << s.white;
        EXPECT_EQ(p.myDestWhite, s.storedWhite) << s.black << "-" << s.white;
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
