// IMB_FillParms: the rules of the setters.
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

TEST(FillParms, AreaSettersSortTheCorners)
{
    IMB_FillParms p;
    p.setSourceArea(10, 5, 2, 1);
    p.setDestArea(-3, 7, 4, -8);
    EXPECT_EQ(corners(p.mySourceArea), std::make_tuple(2, 1, 10, 5));
    EXPECT_EQ(corners(p.myDestArea), std::make_tuple(-3, -8, 4, 7));
}

// Only a genuine custom integer range is stored and clears the fast flag;
// otherwise the stored points stay as they were. Each step sets a type, black
// and white on both sides; then come the fast flag and stored points expected.
TEST(FillParms, TypeSettersStoreOnlyAGenuineCustomIntegerRange)
{
    const std::tuple<IMB_DataFormat, uint32, uint32, int, uint32, uint32> steps[] = {
        {IMB_INT8, 0, 255, 1, 3, 4}, // untouched
        {IMB_INT8, 16, 235, 0, 16, 235},
        {IMB_FLOAT32, 0, 100, 1, 16, 235},
        {IMB_INT16, 7, 7, 1, 16, 235},
        {IMB_INT16, 0, 255, 0, 0, 255}, // the full range of one format is a custom range of another
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
} // namespace
