// IMB_Fill::fill placement: clipping against the destination, offsets, both
// flips, row picking, strides and planar destinations, checked pixel by pixel
// against where the documented geometry puts each source pixel.
#include "fill/FillReference.h"

#include <IMB/IMB_Fill.h>

#include <gtest/gtest.h>

#include <tuple>

using namespace fillref;

namespace
{
constexpr uint32 kUntouched = 0xA5A5A5A5u;

struct Geometry
{
    int64 sx1, sy1, sx2, sy2;
    int64 dx1, dy1, dx2, dy2;
};

uint32 sentinel(IMB_DataFormat f)
{
    return Buffer(f, 1).get(0);
}

// A source value per pixel that every destination format tells apart.
uint32 sourceValue(IMB_DataFormat s, int64 i)
{
    switch (s)
    {
    case IMB_INT8:
        return static_cast<uint32>(i * 7 + 1) & 0xFF;
    case IMB_INT16:
        return static_cast<uint32>(i * 997 + 1) & 0xFFFF;
    case IMB_INT32:
        return static_cast<uint32>(i * 0x01234567 + 1);
    case IMB_FLOAT32:
        return bitsOf(static_cast<float>(i) / 97.0f);
    default:
        return halfOf(static_cast<float>(i) / 97.0f);
    }
}

using Pair = std::tuple<IMB_DataFormat, IMB_DataFormat>;
class FillPlacement : public ::testing::TestWithParam<Pair>
{
};

// Every offset that moves the source across the destination, with every flip
// and with packed and strided pixels: each destination pixel holds the
// converted source pixel that lands on it (mirrored within the placed source
// when flipped), and every other component is untouched.
TEST_P(FillPlacement, ClipsOffsetsAndFlipsLikeTheMirroredPlacedSource)
{
    const auto [s, d] = GetParam();
    const Geometry geometries[] = {
        {2, 1, 6, 4, 0, 0, 6, 5},  // source smaller than the destination
        {0, 0, 9, 7, 0, 0, 4, 3},  // source larger on every side
        {-3, -2, 1, 0, 5, 4, 8, 9}, // frames apart until offset
    };
    for (const Geometry &g : geometries)
        for (int64 sInc : {1, 2})
            for (int64 dInc : {1, 3})
                for (int flips = 0; flips < 4; ++flips)
                    for (int64 oy = -12; oy <= 12; ++oy)
                        for (int64 ox = -12; ox <= 12; ++ox)
                        {
                            const int64 W = g.sx2 - g.sx1 + 1, H = g.sy2 - g.sy1 + 1;
                            const int64 DW = g.dx2 - g.dx1 + 1, DH = g.dy2 - g.dy1 + 1;
                            Buffer src(s, static_cast<size_t>(W * H * sInc)), dst(d, static_cast<size_t>(DW * DH * dInc));
                            for (int64 i = 0; i < W * H; ++i)
                                src.set(i * sInc, sourceValue(s, i));
                            IMB_FillParms p;
                            p.mySource = src.data();
                            p.myDest = dst.data();
                            p.mySourceType = s;
                            p.myDestType = d;
                            p.mySourceXInc = sInc;
                            p.myDestXInc = dInc;
                            p.setSourceArea(g.sx1, g.sy1, g.sx2, g.sy2);
                            p.setDestArea(g.dx1, g.dy1, g.dx2, g.dy2);
                            p.myXOffset = ox;
                            p.myYOffset = oy;
                            p.myFlipX = flips & 1;
                            p.myFlipY = (flips >> 1) & 1;
                            IMB_Fill::fill(p);

                            const int64 tx1 = g.sx1 + ox, ty1 = g.sy1 + oy;
                            for (int64 Y = g.dy1; Y <= g.dy2; ++Y)
                                for (int64 X = g.dx1; X <= g.dx2; ++X)
                                {
                                    const int64 at = ((Y - g.dy1) * DW + (X - g.dx1)) * dInc;
                                    uint32 want = sentinel(d);
                                    int64 i = X - tx1, j = Y - ty1;
                                    if (i >= 0 && i < W && j >= 0 && j < H)
                                    {
                                        if (p.myFlipX)
                                            i = W - 1 - i;
                                        if (p.myFlipY)
                                            j = H - 1 - j;
                                        want = convert(s, d, true, true, sourceValue(s, j * W + i), Points{});
                                    }
                                    ASSERT_EQ(dst.get(at), want)
                                        << "pixel " << X << "," << Y << " offset " << ox << "," << oy << " flips "
                                        << flips << " incs " << sInc << "," << dInc;
                                    for (int64 c = 1; c < dInc; ++c)
                                        ASSERT_EQ(dst.get(at + c), sentinel(d));
                                }
                        }
}

INSTANTIATE_TEST_SUITE_P(Formats, FillPlacement,
                         ::testing::Values(Pair{IMB_INT8, IMB_INT8}, Pair{IMB_FLOAT32, IMB_FLOAT32},
                                           Pair{IMB_INT8, IMB_FLOAT32}, Pair{IMB_FLOAT32, IMB_INT16},
                                           Pair{IMB_FLOAT16, IMB_INT8}, Pair{IMB_INT16, IMB_INT8},
                                           Pair{IMB_INT32, IMB_FLOAT16}));

// A 3 x 6 single-component 8-bit source whose pixel (x, y) holds 10 y + x.
struct Rows
{
    uint8 src[18];
    uint8 dst[18];
    IMB_FillParms p;
    Rows()
    {
        for (int i = 0; i < 18; ++i)
        {
            src[i] = static_cast<uint8>(10 * (i / 3) + i % 3);
            dst[i] = 0xEE;
        }
        p.mySource = src;
        p.myDest = dst;
        p.setSourceArea(0, 0, 2, 5);
        p.setDestArea(0, 0, 2, 5);
    }
    int row(int y) const { return dst[y * 3] == 0xEE ? -1 : dst[y * 3] / 10; }
};

struct RowCase
{
    const char *what;
    int64 yInc, yOffset, placeY;
    int flipY;
    int rows[6]; // source row each destination row holds, -1 for untouched
};

TEST(FillRowPicking, PicksEveryNthRowOfTheClippedRegion)
{
    const RowCase cases[] = {
        {"every second row from row one packs rows 1, 3, 5", 2, 1, 0, 0, {1, 3, 5, -1, -1, -1}},
        {"flipped picked rows fill from the bottom up", 2, 1, 0, 1, {-1, -1, -1, 5, 3, 1}},
        // Displaced one row up: the clipped region starts at source row 1 and
        // has five rows; rows 0 and 2 of it are source rows 1 and 3.
        {"picks relative to the clipped region", 2, 0, -1, 0, {1, 3, 5, -1, -1, -1}},
        {"zero step does nothing", 0, 0, 0, 0, {-1, -1, -1, -1, -1, -1}},
        {"negative step does nothing", -1, 0, 0, 0, {-1, -1, -1, -1, -1, -1}},
        {"negative offset does nothing", 1, -1, 0, 0, {-1, -1, -1, -1, -1, -1}},
    };
    for (const RowCase &c : cases)
    {
        Rows r;
        r.p.mySourceYInc = c.yInc;
        r.p.mySourceYOffset = c.yOffset;
        r.p.myYOffset = c.placeY;
        r.p.myFlipY = c.flipY;
        IMB_Fill::fill(r.p);
        for (int y = 0; y < 6; ++y)
            EXPECT_EQ(r.row(y), c.rows[y]) << c.what << ", row " << y;
        if (c.rows[1] == 3)
            for (int x = 0; x < 3; ++x)
                EXPECT_EQ(r.dst[3 + x], 30 + x) << c.what;
    }
}

TEST(FillPlacementEdges, EmptyAreasOrASourceDisplacedOutsideLeaveTheDestinationUntouched)
{
    uint8 src[4] = {1, 2, 3, 4}, dst[4] = {9, 9, 9, 9};
    IMB_FillParms p;
    p.mySource = src;
    p.myDest = dst;
    IMB_Fill::fill(p); // the default block: both areas empty
    p.setSourceArea(0, 0, 3, 0);
    IMB_Fill::fill(p); // destination still empty
    p.setSourceArea(0, 0, 1, 1);
    p.setDestArea(0, 0, 1, 1);
    for (auto [ox, oy] : {std::pair<int64, int64>{2, 0}, {-2, 0}, {0, 2}, {0, -2}, {5, 5}})
    {
        p.myXOffset = ox;
        p.myYOffset = oy;
        IMB_Fill::fill(p);
        for (uint8 v : dst)
            ASSERT_EQ(v, 9) << ox << "," << oy;
    }
}

TEST(FillPlanar, EveryRunOfAPlanarRowReceivesTheWholeRow)
{
    // Source 4 x 2, placed at x = 1 in a 6 x 2 destination of three planes
    // per row: each plane run of 6 gets the row at offset 1.
    const float src[8] = {0.f, 0.25f, 0.5f, 1.f, 1.f, 0.5f, 0.25f, 0.f};
    uint8 dst[36];
    std::fill(std::begin(dst), std::end(dst), 7);
    IMB_FillParms p;
    p.mySource = src;
    p.myDest = dst;
    p.mySourceType = IMB_FLOAT32;
    p.setSourceArea(0, 0, 3, 1);
    p.setDestArea(0, 0, 5, 1);
    p.myDestXInc = 3;
    p.myDestPlanar = 1;
    p.myXOffset = 1;
    const uint8 want[2][4] = {{0, 64, 128, 255}, {255, 128, 64, 0}};
    for (int flip = 0; flip < 2; ++flip)
    {
        p.myFlipX = flip;
        IMB_Fill::fill(p);
        for (int y = 0; y < 2; ++y)
            for (int run = 0; run < 3; ++run)
            {
                const uint8 *r = dst + y * 18 + run * 6;
                EXPECT_EQ(r[0], 7);
                EXPECT_EQ(r[5], 7);
                for (int x = 0; x < 4; ++x)
                    EXPECT_EQ(r[1 + x], want[y][flip ? 3 - x : x]) << "row " << y << " run " << run;
            }
    }
}

} // namespace
