// Raster image operations: value range, reduction to 8 bits (against
// IMB_Fill, and dithered gradients), edge streaking, and direct-table
// application (against IMB_Lookup::applyLUT).
#include "RasterTestUtil.h"

#include <array>

using namespace rastertest;

namespace
{
const float kNaN = std::numeric_limits<float>::quiet_NaN();

RASTER_SHAPE_SUITE(RasterImageOpsShape);

// getRange against getPixelValue over the window, NaN skipped.
TEST_P(RasterImageOpsShape, RangeIsTheExtremeOfTheReadValuesInsideTheDataWindow)
{
    const auto [packing, format] = GetParam();
    IMB_Raster r(packing, format, 67, 9);
    fillInteresting(r, 7);
    const int n = valuesOf(packing);
    float mn[4], mx[4];
    for (const BAS_DimRect window : {BAS_DimRect(), BAS_DimRect(3, 2, 60, 5), BAS_DimRect(-4, 5, 40, 90)})
    {
        r.setDataWindow(window);
        float lo[4] = {HUGE_VALF, HUGE_VALF, HUGE_VALF, HUGE_VALF}, hi[4] = {-lo[0], -lo[0], -lo[0], -lo[0]};
        const bool whole = window.w() == 0;
        for (int64 y = whole ? 0 : std::max(0, window.y()); y < (whole ? 9 : std::min(9, window.y2() + 1)); ++y)
            for (int64 x = whole ? 0 : std::max(0, window.x()); x < (whole ? 67 : std::min(67, window.x2() + 1)); ++x)
            {
                float v[4];
                r.getPixelValue(x, y, v);
                for (int c = 0; c < n; ++c)
                    if (v[c] == v[c])
                    {
                        lo[c] = std::min(lo[c], v[c]);
                        hi[c] = std::max(hi[c], v[c]);
                    }
            }
        ASSERT_TRUE(r.getRange(mn, mx));
        for (int c = 0; c < 4; ++c)
        {
            EXPECT_EQ(mn[c], c < n ? lo[c] : 0.0f) << c;
            EXPECT_EQ(mx[c], c < n ? hi[c] : 0.0f) << c;
            EXPECT_FALSE(std::signbit(mn[c]) && mn[c] == 0.0f); // a zero extreme is +0
        }
    }
    r.setDataWindow(BAS_DimRect(70, 0, 5, 5));
    EXPECT_FALSE(r.getRange(mn, mx));
}

// Each component against IMB_Fill applied to a packed copy of that channel.
TEST_P(RasterImageOpsShape, Convert8BitWithoutDitherIsWhatFillGives)
{
    const auto [packing, format] = GetParam();
    IMB_Raster r(packing, format, 33, 5);
    fillInteresting(r, 11);
    r.setDataWindow(BAS_DimRect(1, 2, 3, 4));
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 1.7);
    r.setBWPoints(0.25f, 0.5f);
    const bool integer = format == IMB_INT8 || format == IMB_INT16 || format == IMB_INT32;
    const float black = integer ? float(imbDefinesWhite[format] / 16) : 0.0f;
    const float white = integer ? float(imbDefinesWhite[format] / 16 * 15) : 1.0f;
    IMB_Raster out;
    ASSERT_TRUE(r.convert8Bit(out, black, white, 2.2f));
    float b, w;
    out.getBWPoints(b, w); // the shape, window and tag carry over; the points are 0 and 1
    ASSERT_EQ(std::make_tuple(out.getFormat(), out.getPacking(), out.getXres(), out.getYres()),
              std::make_tuple(IMB_INT8, packing, int64(33), int64(5)));
    EXPECT_EQ(std::make_tuple(out.getDataWindow(), out.getColorSpace(), out.getColorSpaceGamma(), b, w),
              std::make_tuple(BAS_DimRect(1, 2, 3, 4), IMB_CS_CUSTOM_GAMMA, 1.7, 0.0f, 1.0f));
    const int64 planes = planesOf(packing), step = stepOf(packing), bytes = bytesOf(format);
    for (int64 c = 0; c < planes * step; ++c)
    {
        const int64 plane = c / step, offset = c % step;
        const bool alpha = c == 3;
        std::vector<unsigned char> channel(size_t(33 * 5 * bytes));
        for (int64 i = 0; i < 33 * 5; ++i)
            std::memcpy(&channel[size_t(i * bytes)],
                        static_cast<const char *>(r.getPixel(i % 33, i / 33, plane)) + offset * bytes, size_t(bytes));
        std::vector<uint8> want(33 * 5);
        IMB_FillParms p;
        p.mySource = channel.data();
        p.myDest = want.data();
        p.setSourceType(format, alpha ? 0 : uint32(black), alpha ? 0 : uint32(white));
        p.setDestType(IMB_INT8, 0, 0);
        p.setSourceArea(0, 0, 32, 4);
        p.setDestArea(0, 0, 32, 4);
        p.myGamma = alpha ? 1.0f : 2.2f;
        IMB_Fill::fill(p);
        for (int64 i = 0; i < 33 * 5; ++i)
            ASSERT_EQ(static_cast<const uint8 *>(out.getPixel(i % 33, i / 33, plane))[offset], want[size_t(i)])
                << "component " << c << " pixel " << i;
    }
}

// Every packing and format: each pixel outside the area is its clamped
// neighbour inside, byte for byte, in every plane.
TEST_P(RasterImageOpsShape, StreakEdgesRepeatsTheAreasEdgePixelsOutwards)
{
    const auto [packing, format] = GetParam();
    IMB_Raster r = numbered(packing, format, 10, 8);
    const IMB_Raster before(r);
    ASSERT_TRUE(r.streakEdges(BAS_DimRect(3, -2, 4, 5))); // rows 0-2 after clipping
    const auto pixel = size_t(bytesOf(format) * stepOf(packing));
    for (int64 k = 0; k < planesOf(packing); ++k)
        for (int64 y = 0; y < 8; ++y)
            for (int64 x = 0; x < 10; ++x)
            {
                const void *want = before.getPixel(std::clamp<int64>(x, 3, 6), std::min<int64>(y, 2), k);
                ASSERT_EQ(std::memcmp(r.getPixel(x, y, k), want, pixel), 0) << x << "," << y << " plane " << k;
            }
    EXPECT_FALSE(r.streakEdges(BAS_DimRect(10, 0, 4, 4)) || r.streakEdges(BAS_DimRect(2, 2, 0, 4)));
}

TEST(RasterImageOps, RangeOfAllNaNIsNaNAndAZeroExtremeIsPositive)
{
    IMB_Raster r(PACK_UV, IMB_FLOAT32, 20, 3);
    for (int i = 0; i < 60; ++i)
        std::memcpy(r.getPixel(i % 20, i / 20), std::array<float, 2>{kNaN, i == 17 ? -0.0f : 1.0f}.data(), 8);
    float mn[4], mx[4];
    ASSERT_TRUE(r.getRange(mn, mx));
    EXPECT_TRUE(std::isnan(mn[0]) && std::isnan(mx[0]));
    EXPECT_EQ(bitsAs<uint32>(mn[1]), 0u);
    EXPECT_EQ(mx[1], 1.0f);
}

TEST(RasterImageOps, Convert8BitRescalesCustomFloatRangesAndRefusesItself)
{
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 4, 1);
    const float v[16] = {0.25f, 4.0f, 2.125f, 9.0f, -1.0f, 1.0f, kNaN, 0.5f, 3.0f, 0.3f, 0.26f, 1.0f, 0, 0, 0, 0};
    std::memcpy(r.getPixels(), v, sizeof v);
    IMB_Raster out;
    ASSERT_TRUE(r.convert8Bit(out, 0.25f, 4.0f));
    const uint8 *o = static_cast<const uint8 *>(out.getPixels());
    for (int i = 0; i < 16; ++i)
    {
        const float x = i % 4 == 3 ? v[i] : (v[i] - 0.25f) * (1.0f / 3.75f);
        const float y = std::floor(x * 255.0f + 0.5f);
        EXPECT_EQ(o[i], y > 0.0f ? uint8(std::min(y, 255.0f)) : 0) << i; // alpha keeps 0..1
    }
    EXPECT_FALSE(r.convert8Bit(r));
    EXPECT_FALSE(r.convert8Bit(out, 0, 0, 1, IMB_Dither(9)));
}

TEST(RasterImageOps, DitheredGradientsStayWithinOneCodeAndKeepTheirMean)
{
    // A float ramp over two codes per column, 16 rows, in blocks of 8 columns.
    const int w = 2040;
    IMB_Raster src(PACK_SINGLE, IMB_FLOAT32, w, 16);
    for (int i = 0; i < w * 16; ++i)
        static_cast<float *>(src.getPixels())[i] = (float(i % w) + 0.3f) / float(w);
    for (IMB_Dither m : {IMB_DITHER_BAYER4, IMB_DITHER_BAYER8, IMB_DITHER_FLOYD_STEINBERG})
    {
        IMB_Raster out;
        ASSERT_TRUE(src.dither(out, m));
        std::vector<double> error(w / 8, 0.0);
        for (int i = 0; i < w * 16; ++i)
        {
            const double miss = static_cast<const uint8 *>(out.getPixels())[i] - 255.0 * ((i % w + 0.3) / w);
            ASSERT_LE(std::fabs(miss), 1.0) << m << " at " << i;
            error[i % w / 8] += miss;
        }
        for (int bx = 0; bx < w / 8; ++bx)
            ASSERT_LE(std::fabs(error[bx]) / 128.0, 0.5) << m << " block at " << bx * 8;
    }
}

// The codes dither() gives for a flat float field at `code` / 255.
std::vector<unsigned char> ditherFlat(IMB_Dither m, int w, int h, float code)
{
    IMB_Raster flat(PACK_SINGLE, IMB_FLOAT32, w, h), out;
    for (int i = 0; i < w * h; ++i)
        static_cast<float *>(flat.getPixels())[i] = code / 255.0f;
    EXPECT_TRUE(flat.dither(out, m));
    return bytesOfRaster(out);
}

TEST(RasterImageOps, OrderedDitherTilesUseEveryThresholdOnceAndDiffusionKeepsTheLevel)
{
    // A flat field k/n^2 of a code above 100: exactly k pixels of each
    // n x n tile round up, the Bayer entry n^2 - 1 at (0, n - 1) first and the
    // entry 0 at (0, 0) last.
    for (const auto &[m, n] : {std::pair{IMB_DITHER_BAYER4, 4}, std::pair{IMB_DITHER_BAYER8, 8}})
        for (int k = 0; k < n * n; k += 3)
        {
            const auto v = ditherFlat(m, n, n, 100.0f + float(k) / float(n * n) - 0.5f / float(n * n));
            EXPECT_EQ(std::accumulate(v.begin(), v.end(), 0) - 100 * n * n, k) << "n " << n;
            EXPECT_EQ(std::make_pair(int(v[0]), int(v[size_t((n - 1) * n)])), std::make_pair(100, 100 + (k > 0)));
        }
    // Error diffusion loses only what leaves the image: a flat 64 x 64 field
    // keeps its level to a few hundredths of a code.
    for (float level : {100.3f, 17.5f, 200.9f})
    {
        const auto v = ditherFlat(IMB_DITHER_FLOYD_STEINBERG, 64, 64, level);
        EXPECT_NEAR(std::accumulate(v.begin(), v.end(), 0) / 4096.0, level, 0.03);
    }
    // 8-bit sources have nothing to dither.
    IMB_Raster eight = numbered(PACK_RGB, IMB_INT8, 9, 4), out;
    ASSERT_TRUE(eight.dither(out, IMB_DITHER_FLOYD_STEINBERG));
    EXPECT_EQ(bytesOfRaster(out), bytesOfRaster(eight));
}

// The table's own per-value results (buildValueMaps, whose rule the lookup
// tests check), looked up one component at a time, then the given channel
// copied into the other colour channels.
void applyByMaps(IMB_Raster &r, const IMB_Lookup &lut, float gamma, float black, float white, int channel)
{
    if (lut.getType() & IMB_LUT_3D)
        return lut.applyLUT(r, gamma, black, white, channel);
    const int channels = imbDefinesPComp[r.getPacking()];
    const bool eight = r.getFormat() == IMB_INT8;
    std::vector<uint16> store(4 * 65536);
    void *maps[4];
    for (int c = 0; c < 4; ++c)
        maps[c] = store.data() + c * 65536 / (eight ? 2 : 1);
    const int filled = lut.buildValueMaps(r.getFormat(), maps, gamma, black, white, channel);
    for (int64 y = 0; y < r.getYres(); ++y)
        for (int64 x = 0; x < r.getXres(); ++x)
            for (int c = 0; c < channels; ++c)
            {
                void *p = r.getPixel(x, y, c);
                if ((filled & (1 << c)) && eight)
                    *static_cast<uint8 *>(p) = static_cast<const uint8 *>(maps[c])[*static_cast<uint8 *>(p)];
                else if (filled & (1 << c))
                    *static_cast<uint16 *>(p) = static_cast<const uint16 *>(maps[c])[*static_cast<uint16 *>(p)];
            }
    const int only = channel < 0 ? -1 : std::min(channel, 3);
    if (only < 0 || only >= channels)
        return;
    for (int64 y = 0; y < r.getYres(); ++y)
        for (int64 x = 0; x < r.getXres(); ++x)
            for (int d = 0; d < 3 && d < channels; ++d)
                if (d != only)
                    std::memcpy(r.getPixel(x, y, d), r.getPixel(x, y, only), size_t(bytesOf(r.getFormat())));
}

// The direct-table walks (vector registers, byte pairs, 16-bit) give the
// per-value results for every packing, both widths, threaded and not, each
// channel argument; IMB_Lookup::applyLUT gives the same bytes.
TEST(RasterImageOps, DirectTableApplicationLooksEveryComponentUp)
{
    IMB_Lookup rgba;
    rgba.setType(IMB_LUT_RGBA);
    rgba.setTableSize(1000);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 1000; ++i)
            rgba.getRawLUT(IMB_LookupType(1 << c))[i] = std::pow(i / 999.0, 0.4 + 0.5 * c) * 1.1 - 0.05;
    IMB_Lookup red = rgba;
    red.setType(IMB_LUT_R);
    IMB_Lookup cube;
    std::vector<float> triples(3 * 27);
    for (size_t i = 0; i < triples.size(); ++i)
        triples[i] = float((i * 7) % 11) / 10.0f;
    cube.set3DLUT(3, triples.data());
    // Table, gamma, black, white and channel.
    const std::tuple<const IMB_Lookup *, float, float, float, int> cases[] = {
        {&rgba, 1.0f, 0.0f, 1.0f, -1}, {&rgba, 1.8f, 0.1f, 0.9f, -1}, {&red, 1.0f, 0.0f, 1.0f, 0},
        {&rgba, 0.7f, 0.0f, 1.0f, 3},  {&cube, 1.0f, 0.0f, 1.0f, -1}};
    for (IMB_DataFormat format : {IMB_INT8, IMB_INT16})
        for (IMB_Packing packing : theAllPackings)
            for (int64 w : {int64(7), int64(401)}) // 7 x 3 odd and small; 401 x 300 threaded
                for (auto [lut, gamma, black, white, channel] : cases)
                {
                    IMB_Raster mine = numbered(packing, format, w, w == 7 ? 3 : 300, int(w));
                    IMB_Raster theirs(mine), lookups(mine);
                    mine.applyLUT(*lut, gamma, black, white, channel);
                    applyByMaps(theirs, *lut, gamma, black, white, channel);
                    lut->applyLUT(lookups, gamma, black, white, channel);
                    ASSERT_EQ(bytesOfRaster(mine), bytesOfRaster(lookups));
                    ASSERT_EQ(bytesOfRaster(mine), bytesOfRaster(theirs))
                        << IMBpacking(packing) << " " << IMBdataFormat(format) << " " << w << " channel " << channel;
                }
}
} // namespace
