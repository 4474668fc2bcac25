// Tables baked from colour transforms: interval choice, 1D versus cube, the
// cube edge, view transforms and the curve-file export.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>
#include <IMB/platform/BAS_FileLUT.h>
#include <IMB/platform/CRV_Clip.h>

#include <cmath>
#include <string>
#include <vector>

using colour_test::dataPath;

namespace
{
double srgbDecode(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

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

int baseType(const IMB_Lookup &lut)
{
    return lut.getType() & ~IMB_LUT_LOG_SAMPLING;
}

const char *kConfig = "full.ocio";
} // namespace

TEST(LookupFromColour, SameUniformSpaceGivesTheGridItself)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut;
    ASSERT_TRUE(lut.buildOpenColorIO("srgb_texture", "srgb_tx", nullptr, 0));
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB);
    EXPECT_FALSE(lut.getLogSampling());
    EXPECT_EQ(lut.getNumChannels(), 3);
    EXPECT_EQ(lut.getTableSize(), 8192);
    EXPECT_FALSE(lut.is3DLUT());
    float mn, mx;
    lut.getDomain(mn, mx);
    EXPECT_EQ(mn, 0.0f);
    EXPECT_EQ(mx, 1.0f);
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 8192; i += 91)
            ASSERT_EQ(track(lut, t)[i], static_cast<float>(i / 8191.0)) << t << " " << i;
    EXPECT_EQ(track(lut, 2)[8191], 1.0);
}

TEST(LookupFromColour, ChannelIndependentTransformsBakeThreeTracks)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut(IMB_Lookup::BuildOCIO, "srgb_texture", "lin_rec709", 0);
    ASSERT_TRUE(lut.isValid());
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB) << "the source's uniform allocation: linear sampling";
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 8192; i += 97)
            ASSERT_NEAR(track(lut, t)[i], srgbDecode(i / 8191.0), 2e-4) << i;
    // Evaluating the table reproduces the transform between samples.
    EXPECT_NEAR(lut.evalLUT(IMB_LUT_G, 0.5f), srgbDecode(0.5), 2e-4);
}

TEST(LookupFromColour, LogAllocationSamplesLogarithmically)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut;
    // lin_rec709 is lg2 over [-8, 5]; the transform encodes with a 2.4 power.
    ASSERT_TRUE(lut.buildOpenColorIO("lin_rec709", "g24_rec709", nullptr, 0));
    EXPECT_EQ(baseType(lut), IMB_LUT_RGB);
    EXPECT_TRUE(lut.getLogSampling());
    float mn, mx;
    lut.getDomain(mn, mx);
    EXPECT_FLOAT_EQ(mn, 1.0f / 256);
    EXPECT_FLOAT_EQ(mx, 32.0f);
    for (int i = 0; i < 8192; i += 113)
    {
        const double x = gridValue(i, 8192, false, 1.0 / 256, 32.0);
        ASSERT_NEAR(track(lut, 0)[i], std::pow(x, 1 / 2.4), 2e-4 * std::max(1.0, x)) << i;
    }
}

TEST(LookupFromColour, CrossTalkingTransformsBakeACube)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut;
    ASSERT_TRUE(lut.buildOpenColorIO("cube_space", "plain_8bit", nullptr, 1));
    // cube_space reports uniform [0, 1]: linear grid, edge 64 even with large.
    EXPECT_EQ(lut.getType(), IMB_LUT_3D);
    EXPECT_EQ(lut.get3DSize(), 64);
    EXPECT_EQ(lut.getNumChannels(), 0);
    const float *cube = lut.get3DLUT();
    ASSERT_NE(cube, nullptr);
    // The cube swaps red and green and halves blue; red varies fastest.
    for (int b : {0, 17, 63, 64})
        for (int g : {0, 31, 64})
            for (int r : {0, 5, 63, 64})
            {
                const std::size_t at = 3 * (r + 65 * (g + 65 * static_cast<std::size_t>(b)));
                const double rv = gridValue(r, 64, true, 0, 1), gv = gridValue(g, 64, true, 0, 1),
                             bv = gridValue(b, 64, true, 0, 1);
                ASSERT_NEAR(cube[at], gv, 1e-5);
                ASSERT_NEAR(cube[at + 1], rv, 1e-5);
                ASSERT_NEAR(cube[at + 2], bv * 0.5, 1e-5);
            }
    float rgb[3] = {0.25f, 0.75f, 0.5f};
    lut.evalLUT(rgb);
    EXPECT_NEAR(rgb[0], 0.75, 1e-4);
    EXPECT_NEAR(rgb[1], 0.25, 1e-4);
    EXPECT_NEAR(rgb[2], 0.25, 1e-4);
}

TEST(LookupFromColour, CubeEdgeIs96OnlyForTheFixedFallbackWithLarge)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    struct Case
    {
        const char *dest;
        int large;
        int edge;
        double lo, hi;
    };
    // cube_plain has no allocation; plain_8bit neither and is not float;
    // plain_float is float (the lg2 default); lin_rec709 reports lg2 [-8, 5].
    const Case cases[] = {
        {"plain_8bit", 1, 96, 0.001, 16000},   {"plain_8bit", 0, 64, 0.00390625, 32},
        {"plain_float", 1, 64, 1.0 / 32, 256}, {"lin_rec709", 1, 64, 1.0 / 256, 32},
    };
    for (const Case &c : cases)
    {
        IMB_Lookup lut;
        ASSERT_TRUE(lut.buildOpenColorIO("cube_plain", c.dest, nullptr, c.large)) << c.dest;
        EXPECT_EQ(lut.get3DSize(), c.edge) << c.dest << " large " << c.large;
        EXPECT_EQ(lut.getType(), IMB_LUT_3D | IMB_LUT_LOG_SAMPLING) << c.dest;
        float mn, mx;
        lut.getDomain(mn, mx);
        EXPECT_FLOAT_EQ(mn, static_cast<float>(c.lo)) << c.dest;
        EXPECT_FLOAT_EQ(mx, static_cast<float>(c.hi)) << c.dest;
        // Sample (1, 0, 0) of the pre-shifted log grid, red and green swapped.
        const float *cube = lut.get3DLUT();
        const double x = gridValue(1, c.edge, false, c.lo, c.hi);
        EXPECT_NEAR(cube[4], std::min(x, 1.0), 1e-5) << c.dest;
    }
}

TEST(LookupFromColour, FailedBuildsLeaveAnEmptyTable)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut(IMB_Lookup::BuildOCIO, "srgb_texture", "lin_rec709", 0);
    ASSERT_TRUE(lut.isValid());
    EXPECT_FALSE(lut.buildOpenColorIO("nowhere", "lin_rec709", nullptr, 0));
    EXPECT_FALSE(lut.isValid());
    EXPECT_EQ(lut.getNumChannels(), 0);

    IMB_Lookup cube;
    ASSERT_TRUE(cube.buildOpenColorIO("ACEScg", "lin_rec709", nullptr, 0));
    EXPECT_TRUE(cube.is3DLUT());
    EXPECT_FALSE(cube.buildOpenColorIO(nullptr, "lin_rec709", nullptr, 0));
    EXPECT_FALSE(cube.is3DLUT());
    EXPECT_EQ(cube.get3DLUT(), nullptr);

    EXPECT_FALSE(IMB_Lookup(IMB_Lookup::BuildOCIO, "srgb_texture", "nowhere", 0).isValid());
}

TEST(LookupFromColour, RefusedTransformsTellTheCallerWhy)
{
    COLOUR_CASE({{"OCIO", dataPath("missing_lut.ocio")}});
    // The second round finds both failures cached and must still say why.
    for (int round = 0; round < 2; ++round)
    {
        SCOPED_TRACE(round);
        BAS_ErrorCapture messages;
        IMB_Lookup lut;
        EXPECT_FALSE(lut.buildOpenColorIO("lin", "lut", nullptr, 0));
        const std::string spaces = messages.text();
        messages.clear();
        EXPECT_FALSE(lut.buildOpenColorIOView("lin", "Monitor", "Lut", nullptr, nullptr, true, 0));
        const std::string view = messages.text();
        EXPECT_EQ(spaces.rfind(R"(OCIO processor error from "lin" to "lut": )", 0), 0u) << spaces;
        EXPECT_EQ(view.rfind(R"(OCIO processor error from "lin" to display "Monitor" view "Lut": )", 0), 0u) << view;
        for (const std::string &text : {spaces, view})
            EXPECT_NE(text.find("'missing.spi1d' could not be located"), std::string::npos) << text;
    }
}

TEST(LookupFromColour, LooksAreBakedIn)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup lut;
    ASSERT_TRUE(lut.buildOpenColorIO("srgb_texture", "lin_rec709", "grade", 0));
    for (int i = 0; i < 8192; i += 257)
        ASSERT_NEAR(track(lut, 1)[i], 2 * srgbDecode(i / 8191.0), 4e-4) << i;
}

TEST(LookupFromColour, ViewTransformsBakeForwardAndBack)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup fwd;
    ASSERT_TRUE(fwd.buildOpenColorIOView("srgb_texture", "Rec709 Monitor", "Video", nullptr, nullptr, true, 0));
    EXPECT_EQ(fwd.getType(), IMB_LUT_RGB);
    for (int i = 0; i < 8192; i += 131)
        ASSERT_NEAR(track(fwd, 0)[i], std::pow(srgbDecode(i / 8191.0), 1 / 2.4), 2e-4) << i;

    // Backwards the display space (uniform, 10 bit) is sampled.
    IMB_Lookup back;
    ASSERT_TRUE(back.buildOpenColorIOView("srgb_texture", "Rec709 Monitor", "Video", "", nullptr, false, 0));
    EXPECT_EQ(back.getType(), IMB_LUT_RGB);
    for (int i = 0; i < 8192; i += 131)
    {
        const double linear = std::pow(i / 8191.0, 2.4);
        const double encoded = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
        ASSERT_NEAR(track(back, 2)[i], encoded, 2e-4) << i;
    }

    // A look before the view.
    IMB_Lookup graded;
    ASSERT_TRUE(graded.buildOpenColorIOView("lin_rec709", "Rec709 Monitor", "Video", "grade", nullptr, true, 0));
    EXPECT_TRUE(graded.getLogSampling());
    for (int i = 0; i < 8192; i += 509)
    {
        const double x = gridValue(i, 8192, false, 1.0 / 256, 32.0);
        ASSERT_NEAR(track(graded, 0)[i], std::pow(2 * x, 1 / 2.4), 3e-4 * std::max(1.0, x)) << i;
    }

    EXPECT_FALSE(fwd.buildOpenColorIOView("srgb_texture", "No Display", "Video", nullptr, nullptr, true, 0));
    EXPECT_FALSE(fwd.isValid());
    EXPECT_FALSE(fwd.buildOpenColorIOView("srgb_texture", nullptr, nullptr, nullptr, nullptr, true, 0));
    // An unknown look is left out of the look processor.
    EXPECT_TRUE(fwd.buildOpenColorIOView("srgb_texture", "Rec709 Monitor", "Video", "nolook", nullptr, true, 0));
}

TEST(LookupFromColour, CineonExportResamplesTrackZero)
{
    COLOUR_CASE({{"OCIO", dataPath(kConfig)}});
    IMB_Lookup empty;
    EXPECT_EQ(empty.getCineonLUT(true, "none"), nullptr);

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

TEST(LookupFromColour, WithoutConfigurationNothingIsBuilt)
{
    COLOUR_CASE({});
    IMB_Lookup lut(IMB_Lookup::BuildOCIO, "srgb", "linear", 0);
    EXPECT_FALSE(lut.isValid());
    EXPECT_FALSE(lut.buildOpenColorIOView("srgb", "sRGB", "Standard", nullptr, nullptr, true, 1));
}
