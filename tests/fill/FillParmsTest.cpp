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

TEST(FillParms, TypeSettersStoreOnlyAGenuineCustomIntegerRange)
{
    IMB_FillParms p;
    p.mySourceBlack = 3;
    p.mySourceWhite = 4;
    p.mySourceFast = 0;

    p.setSourceType(IMB_INT8, 0, 255);
    EXPECT_EQ(p.mySourceFast, 1);
    EXPECT_EQ(p.mySourceBlack, 3u); // untouched
    EXPECT_EQ(p.mySourceWhite, 4u);

    p.setSourceType(IMB_INT8, 16, 235);
    EXPECT_EQ(p.mySourceFast, 0);
    EXPECT_EQ(p.mySourceBlack, 16u);
    EXPECT_EQ(p.mySourceWhite, 235u);

    p.setSourceType(IMB_FLOAT32, 0, 100);
    EXPECT_EQ(p.mySourceType, IMB_FLOAT32);
    EXPECT_EQ(p.mySourceFast, 1);
    EXPECT_EQ(p.mySourceBlack, 16u);

    p.setSourceType(IMB_INT16, 7, 7);
    EXPECT_EQ(p.mySourceType, IMB_INT16);
    EXPECT_EQ(p.mySourceFast, 1);
    EXPECT_EQ(p.mySourceWhite, 235u);

    // The full range of one format is a custom range of another.
    p.setSourceType(IMB_INT16, 0, 255);
    EXPECT_EQ(p.mySourceFast, 0);
    EXPECT_EQ(p.mySourceWhite, 255u);
    p.setSourceType(IMB_INT32, 0, 0xFFFFFFFFu);
    EXPECT_EQ(p.mySourceFast, 1);
    EXPECT_EQ(p.mySourceWhite, 255u);
}

TEST(FillParms, DestinationTypeSetterFollowsTheSameRules)
{
    IMB_FillParms p;
    p.setDestType(IMB_INT16, 4096, 60160);
    EXPECT_EQ(p.myDestType, IMB_INT16);
    EXPECT_EQ(p.myDestFast, 0);
    EXPECT_EQ(p.myDestBlack, 4096u);
    EXPECT_EQ(p.myDestWhite, 60160u);
    p.setDestType(IMB_FLOAT16, 1, 2);
    EXPECT_EQ(p.myDestFast, 1);
    EXPECT_EQ(p.myDestWhite, 60160u);
    // Setting the full 32-bit range does not store it: a fast 32-bit
    // destination keeps scaling by the stored 0-255.
    p.setDestType(IMB_INT32, 0, 0xFFFFFFFFu);
    EXPECT_EQ(p.myDestFast, 1);
    EXPECT_EQ(p.myDestWhite, 60160u);
}

TEST(FillParms, DebugPrintPrintsNothing)
{
    IMB_FillParms p;
    std::ostringstream os;
    p.debugPrint(os);
    EXPECT_TRUE(os.str().empty());
}
} // namespace
