// IMB_Fill::fill placement: clipping against the destination, offsets, both flips, row picking, strides and planar
// destinations, checked pixel by pixel against where the documented geometry puts each source pixel.
#include "fill/FillReference.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace fillref;

namespace
{
// A source value per pixel that every destination format tells apart.
uint32 sourceValue(IMB_DataFormat s, int64 i)
{
    if (isInteger(s))
        return static_cast<uint32>(i * 0x01234567 + 1) & whiteOf(s);
    return s == IMB_FLOAT32 ? bitsOf(static_cast<float>(i) / 97.0f) : halfOf(static_cast<float>(i) / 97.0f);
}

using Pair = std::tuple<IMB_DataFormat, IMB_DataFormat>;
using FillPlacement = ::testing::TestWithParam<Pair>;

// Every offset that moves the source across the destination, with every flip, with packed, strided and planar pixels:
// each destination pixel (each run's, when planar) holds the converted source pixel that lands on it, mirrored within
// the placed source when flipped; every other component is untouched.
TEST_P(FillPlacement, ClipsOffsetsAndFlipsLikeTheMirroredPlacedSource)
{
    const auto [s, d] = GetParam();
    const IMB_FillArea geometries[][2] = {
        {{2, 1, 6, 4}, {0, 0, 6, 5}},   // source smaller than the destination
        {{0, 0, 9, 7}, {0, 0, 4, 3}},   // source larger on every side
        {{-3, -2, 1, 0}, {5, 4, 8, 9}}, // frames apart until offset
    };
    for (const auto &[sa, da] : geometries)
        for (auto [sInc, dInc, planar] : {std::tuple<int64, int64, int>{1, 1, 0}, {2, 3, 0}, {2, 3, 1}})
            for (int flips = 0; flips < 4; ++flips)
                for (int64 oy = -12; oy <= 12; ++oy)
                    for (int64 ox = -12; ox <= 12; ++ox)
                    {
                        const int64 W = sa.x2 - sa.x1 + 1, H = sa.y2 - sa.y1 + 1;
                        const int64 DW = da.x2 - da.x1 + 1, DH = da.y2 - da.y1 + 1;
                        Buffer src(s, W * H * sInc), dst(d, DW * DH * dInc);
                        for (int64 i = 0; i < W * H; ++i)
                            src.set(i * sInc, sourceValue(s, i));
                        IMB_FillParms p;
                        setUp(p, s, d, true, true, Points{}, src, dst, sInc, dInc);
                        p.mySourceArea = sa;
                        p.myDestArea = da;
                        p.myXOffset = ox;
                        p.myYOffset = oy;
                        p.myFlipX = flips & 1;
                        p.myFlipY = flips >> 1;
                        p.myDestPlanar = planar;
                        IMB_Fill::fill(p);
                        for (int64 k = 0; k < DW * DH * dInc; ++k)
                        {
                            // Planar rows hold dInc runs of DW components, others DW pixels of dInc.
                            const int64 X = da.x1 + (planar ? k % DW : k / dInc % DW), Y = da.y1 + k / (DW * dInc);
                            const int64 i = X - sa.x1 - ox, j = Y - sa.y1 - oy;
                            uint32 want = dst.sentinel();
                            const int64 from = (flips > 1 ? H - 1 - j : j) * W + (flips & 1 ? W - 1 - i : i);
                            if ((planar || k % dInc == 0) && i >= 0 && i < W && j >= 0 && j < H)
                                want = convert(s, d, true, true, sourceValue(s, from), Points{});
                            ASSERT_EQ(dst.get(k), want) << "pixel " << X << "," << Y << " offset " << ox << "," << oy
                                                        << " flips " << flips << " incs " << sInc << "," << dInc
                                                        << " planar " << planar;
                        }
                    }
}

INSTANTIATE_TEST_SUITE_P(Formats, FillPlacement,
                         ::testing::Values(Pair{IMB_INT8, IMB_INT8}, Pair{IMB_FLOAT32, IMB_FLOAT32},
                                           Pair{IMB_INT8, IMB_FLOAT32}, Pair{IMB_FLOAT32, IMB_INT16},
                                           Pair{IMB_FLOAT16, IMB_INT8}, Pair{IMB_INT16, IMB_INT8},
                                           Pair{IMB_INT32, IMB_FLOAT16}));

// A 3 x 6 single-component 8-bit source whose pixel (x, y) holds 10 y + x, with every n-th row picked from an offset,
// placed and flipped.
TEST(FillRowPicking, PicksEveryNthRowOfTheClippedRegion)
{
    const struct
    {
        const char *what;
        int64 yInc, yOffset, placeY;
        int flipY;
        int rows[6]; // source row each destination row holds, -1 for untouched
    } cases[] = {
        {"every second row from row one packs rows 1, 3, 5", 2, 1, 0, 0, {1, 3, 5, -1, -1, -1}},
        {"flipped picked rows fill from the bottom up", 2, 1, 0, 1, {-1, -1, -1, 5, 3, 1}},
        // Displaced one row up: the clipped region starts at source row 1 and has five rows; rows 0 and 2 of it are
        // source rows 1 and 3.
        {"picks relative to the clipped region", 2, 0, -1, 0, {1, 3, 5, -1, -1, -1}},
        {"zero step does nothing", 0, 0, 0, 0, {-1, -1, -1, -1, -1, -1}},
        {"negative step does nothing", -1, 0, 0, 0, {-1, -1, -1, -1, -1, -1}},
        {"negative offset does nothing", 1, -1, 0, 0, {-1, -1, -1, -1, -1, -1}},
    };
    Buffer src(IMB_INT8, 18);
    for (int i = 0; i < 18; ++i)
        src.set(i, static_cast<uint32>(10 * (i / 3) + i % 3));
    for (const auto &c : cases)
    {
        Buffer dst(IMB_INT8, 18);
        IMB_FillParms p;
        p.mySourceYInc = c.yInc;
        p.mySourceYOffset = c.yOffset;
        p.myYOffset = c.placeY;
        p.myFlipY = c.flipY;
        runFill(p, IMB_INT8, IMB_INT8, true, true, Points{}, src, dst, 3, 6);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 3; ++x)
                EXPECT_EQ(dst.get(y * 3 + x), c.rows[y] < 0 ? dst.sentinel() : 10u * c.rows[y] + x) << c.what;
    }
}

TEST(FillPlacement, EmptyAreasLeaveTheDestinationUntouched)
{
    Buffer src(IMB_INT8, 4), dst(IMB_INT8, 4);
    IMB_FillParms p;
    setUp(p, IMB_INT8, IMB_INT8, true, true, Points{}, src, dst);
    IMB_Fill::fill(p); // the default block: both areas empty
    p.setSourceArea(0, 0, 3, 0);
    IMB_Fill::fill(p); // destination still empty
    EXPECT_EQ(dst.get(0), dst.sentinel());
}

} // namespace
