// Tables baked from colour transforms: interval choice, 1D versus cube, the
// cube edge, view transforms and the curve-file export.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>
#include <IMB/platform/BAS_FileLUT.h>
#include <IMB/platform/CRV_Clip.h>

#include <functional>
#include <string>

using colour_test::dataPath;
using colour_test::srgbDecode;
using colour_test::srgbEncode;

namespace
{
// Grid coordinate i of n over [lo, hi]: linear, or logarithmic less lo (the
// grid is pre-shifted by lo before it is transformed).
double gridValue(int i, int n, bool linear, double lo, double hi)
{
    if (linear)
        return std::min(std::max(lo + i * (hi - lo) / (n - 1), lo), hi);
    const double v = std::exp(std::log(lo) + i * (std::log(hi) - std::log(lo)) / (n - 1));
    return std::min(std::max(v, lo), hi) - lo;
}

const double *track(const IMB_Lookup &lut, int t)
{
    return lut.getLUT().getTrack(t)->getData();
}

void expectDomain(const IMB_Lookup &lut, double lo, double hi)
{
    float mn, mx;
    lut.getDomain(mn, mx);
    EXPECT_FLOAT_EQ(mn, static_cast<float>(lo));
    EXPECT_FLOAT_EQ(mx, static_cast<float>(hi));
}
} // namespace

// The sampling follows the source's allocation: uniform [0, 1] linearly,
// lin_rec709 (lg2 over [-8, 5]) logarithmically over [2^-8, 2^5].
TEST(LookupFromColour, ChannelIndependentTransformsBakeThreeTracksOnTheSourcesGrid)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    struct Case
    {
        const char *what, *src, *dest, *looks, *view; // with a view, dest is its display
        bool forward, log;
        std::function<double(double)> ref;
        double tol; // relative above 1
    };
    const double g = 1 / 2.4;
    const Case cases[] = {
        {"same space", "srgb_texture", "srgb_tx", nullptr, nullptr, true, false,
         [](double x) { return double(float(x)); }, 0},
        {"decode", "srgb_texture", "lin_rec709", nullptr, nullptr, true, false, srgbDecode, 2e-4},
        {"look", "srgb_texture", "lin_rec709", "grade", nullptr, true, false,
         [](double x) { return 2 * srgbDecode(x); }, 4e-4},
        {"log grid", "lin_rec709", "g24_rec709", nullptr, nullptr, true, true, [g](double x) { return std::pow(x, g); },
         2e-4},
        {"view", "srgb_texture", "Rec709 Monitor", nullptr, "Video", true, false,
         [g](double x) { return std::pow(srgbDecode(x), g); }, 2e-4},
        // Backwards the display space (uniform, 10 bit) is sampled.
        {"view back", "srgb_texture", "Rec709 Monitor", "", "Video", false, false,
         [](double x) { return srgbEncode(std::pow(x, 2.4)); }, 2e-4},
        {"look before the view", "lin_rec709", "Rec709 Monitor", "grade", "Video", true, true,
         [g](double x) { return std::pow(2 * x, g); }, 3e-4},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.what);
        IMB_Lookup lut;
        ASSERT_TRUE(c.view ? lut.buildOpenColorIOView(c.src, c.dest, c.view, c.looks, nullptr, c.forward, 0)
                           : lut.buildOpenColorIO(c.src, c.dest, c.looks, 0));
        EXPECT_EQ(lut.getType(), IMB_LUT_RGB | (c.log ? IMB_LUT_LOG_SAMPLING : 0));
        EXPECT_EQ(lut.getNumChannels(), 3);
        EXPECT_EQ(lut.getTableSize(), 8192);
        const double lo = c.log ? 1.0 / 256 : 0, hi = c.log ? 32 : 1;
        expectDomain(lut, lo, hi);
        for (int t = 0; t < 3; ++t)
            for (int i = 0; i < 8192; i += 97)
            {
                const double x = gridValue(i, 8192, !c.log, lo, hi);
                ASSERT_NEAR(track(lut, t)[i], c.ref(x), c.tol * std::max(1.0, x)) << t << " " << i;
            }
        EXPECT_NEAR(track(lut, 2)[8191], c.ref(c.log ? hi - lo : hi), c.tol * hi);
    }
    // Evaluating a table reproduces the transform between samples.
    EXPECT_NEAR(IMB_Lookup(IMB_Lookup::BuildOCIO, "srgb_texture", "lin_rec709", 0).evalLUT(IMB_LUT_G, 0.5f),
                srgbDecode(0.5), 2e-4);
}

TEST(LookupFromColour, CrossTalkingTransformsBakeACubeWhoseEdgeIs96OnlyForTheFallbackWithLarge)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    struct Case
    {
        const char *src, *dest;
        int large, edge;
        bool log;
        double lo, hi;
    };
    // cube_space reports uniform [0, 1]: a linear grid, edge 64 even with
    // large. cube_plain has no allocation; plain_8bit neither and is not
    // float; plain_float is float (the lg2 default); lin_rec709 reports lg2 [-8, 5].
    const Case cases[] = {
        {"cube_space", "plain_8bit", 1, 64, false, 0, 1},
        {"cube_plain", "plain_8bit", 1, 96, true, 0.001, 16000},
        {"cube_plain", "plain_8bit", 0, 64, true, 0.00390625, 32},
        {"cube_plain", "plain_float", 1, 64, true, 1.0 / 32, 256},
        {"cube_plain", "lin_rec709", 1, 64, true, 1.0 / 256, 32},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(std::string(c.dest) + " large " + std::to_string(c.large));
        IMB_Lookup lut;
        ASSERT_TRUE(lut.buildOpenColorIO(c.src, c.dest, nullptr, c.large));
        EXPECT_EQ(lut.getType(), IMB_LUT_3D | (c.log ? IMB_LUT_LOG_SAMPLING : 0));
        EXPECT_EQ(lut.get3DSize(), c.edge);
        EXPECT_EQ(lut.getNumChannels(), 0);
        expectDomain(lut, c.lo, c.hi);
        // edge + 1 samples a side, red fastest; the cube swaps red and green
        // and halves blue, clamping to its [0, 1] domain.
        const float *cube = lut.get3DLUT();
        ASSERT_NE(cube, nullptr);
        const int side = c.edge + 1;
        for (int b : {0, 17, c.edge})
            for (int g : {0, 1, c.edge - 1})
                for (int r : {0, 1, 5, c.edge - 1, c.edge})
                {
                    auto at = [&](int i) { return std::min(gridValue(i, c.edge, !c.log, c.lo, c.hi), 1.0); };
                    const float *v = cube + 3 * (r + side * (g + side * static_cast<std::size_t>(b)));
                    ASSERT_NEAR(v[0], at(g), 1e-5) << r << " " << g << " " << b;
                    ASSERT_NEAR(v[1], at(r), 1e-5) << r << " " << g << " " << b;
                    ASSERT_NEAR(v[2], at(b) * 0.5, 1e-5) << r << " " << g << " " << b;
                }
    }
    IMB_Lookup lut;
    ASSERT_TRUE(lut.buildOpenColorIO("cube_space", "plain_8bit", nullptr, 1));
    float rgb[3] = {0.25f, 0.75f, 0.5f};
    lut.evalLUT(rgb);
    EXPECT_NEAR(rgb[0], 0.75, 1e-4);
    EXPECT_NEAR(rgb[1], 0.25, 1e-4);
    EXPECT_NEAR(rgb[2], 0.25, 1e-4);
}

TEST(LookupFromColour, FailedBuildsLeaveAnEmptyTable)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_Lookup lut(IMB_Lookup::BuildOCIO, "srgb_texture", "lin_rec709", 0);
    ASSERT_TRUE(lut.isValid());
    EXPECT_FALSE(lut.buildOpenColorIO("nowhere", "lin_rec709", nullptr, 0));
    EXPECT_FALSE(lut.isValid());
    EXPECT_EQ(lut.getNumChannels(), 0);
    ASSERT_TRUE(lut.buildOpenColorIO("ACEScg", "lin_rec709", nullptr, 0));
    EXPECT_TRUE(lut.is3DLUT());
    EXPECT_FALSE(lut.buildOpenColorIO(nullptr, "lin_rec709", nullptr, 0));
    EXPECT_FALSE(lut.is3DLUT());
    EXPECT_EQ(lut.get3DLUT(), nullptr);
    EXPECT_FALSE(IMB_Lookup(IMB_Lookup::BuildOCIO, "srgb_texture", "nowhere", 0).isValid());
    EXPECT_FALSE(lut.buildOpenColorIOView("srgb_texture", "No Display", "Video", nullptr, nullptr, true, 0));
    EXPECT_FALSE(lut.buildOpenColorIOView("srgb_texture", nullptr, nullptr, nullptr, nullptr, true, 0));
    // An unknown look is left out of the look processor.
    EXPECT_TRUE(lut.buildOpenColorIOView("srgb_texture", "Rec709 Monitor", "Video", "nolook", nullptr, true, 0));
}

TEST(LookupFromColour, RefusedTransformsTellTheCallerWhy)
{
    COLOUR_CASE({{"OCIO", dataPath("missing_lut.ocio")}});
    // The second round finds both failures cached and must still say why.
    for (int round = 0; round < 2; ++round)
    {
        BAS_ErrorCapture messages;
        IMB_Lookup lut;
        EXPECT_FALSE(lut.buildOpenColorIO("lin", "lut", nullptr, 0));
        EXPECT_FALSE(lut.buildOpenColorIOView("lin", "Monitor", "Lut", nullptr, nullptr, true, 0));
        const std::string text = messages.text(), why = "OCIO processor error from \"lin\" to ";
        const std::size_t second = text.find('\n') + 1;
        EXPECT_EQ(text.rfind(why + "\"lut\": ", 0), 0u) << round << text;
        EXPECT_EQ(text.find(why + "display \"Monitor\" view \"Lut\": ", second), second) << round << text;
        const std::string reason = "'missing.spi1d' could not be located";
        EXPECT_LT(text.find(reason), second) << round << text;
        EXPECT_NE(text.find(reason, second), std::string::npos) << round << text;
    }
}

TEST(LookupFromColour, CineonExportResamplesTrackZero)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_EQ(IMB_Lookup().getCineonLUT(true, "none"), nullptr);
    IMB_Lookup lut;
    ASSERT_TRUE(lut.buildOpenColorIO("srgb_texture", "lin_rec709", nullptr, 0));
    lut.setBlackWhitePoints(0.0f, 2.5f);
    std::unique_ptr<BAS_FileLUT> file = lut.getCineonLUT(true, "decode");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->getSize(), 1024);
    EXPECT_EQ(file->getScale(), 65536.0);
    EXPECT_FALSE(file->getFlag()) << "the flag is negated";
    EXPECT_EQ(file->getName(), "decode");
    EXPECT_EQ(file->getWhite(), 3) << "2.5 rounds to nearest, halves away from zero";
    const double *t = track(lut, 0);
    for (int k = 0; k < 1024; k += 7)
    {
        const double pos = k * 8191.0 / 1023.0;
        const int i = static_cast<int>(std::floor(pos));
        const double v = i >= 8191 ? t[8191] : t[i] + (t[i + 1] - t[i]) * (pos - i);
        ASSERT_NEAR(file->getSample(k), v, 1e-6) << k;
    }
    EXPECT_TRUE(lut.getCineonLUT(false, nullptr)->getFlag());
}
