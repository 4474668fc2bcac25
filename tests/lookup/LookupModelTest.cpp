// IMB_Lookup's data model, setters and builders, and the curve type
// underneath it.
#include "LookupTestUtil.h"

namespace
{
using namespace lookup_test;

const char *const kDefaults = "type 47 tracks 0 cube 0 domain 0 1 range 0 1 points 0 1 bias 0 format any";

TEST(CurveTrack, InterpolatesBetweenNeighboursAndHoldsTheEnds)
{
    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.setStart(10.0);
    CRV_Track *t = clip.addTrack("t");
    double *s = t->getData();
    s[0] = 1.0, s[1] = 3.0, s[2] = -1.0, s[3] = 5.0;
    // Before the start, one past the last sample and NaN hold the ends.
    const double at[] = {10.0, 10.25, 11.5, 12.75, 13.0, 9.0, 14.0, NAN};
    const double want[] = {1.0, 1.5, 1.0, 3.5, 5.0, 1.0, 5.0, 1.0};
    for (int i = 0; i < 8; ++i)
        EXPECT_DOUBLE_EQ(t->evaluateSingle(at[i]), want[i]) << at[i];
    double block[7];
    t->evaluate(10.0, 13.0, block, 7);
    EXPECT_EQ(std::vector<double>(block, block + 7), (std::vector<double>{1.0, 2.0, 3.0, 1.0, -1.0, 2.0, 5.0}));
}

TEST(LookupModel, SetTypeGivesTracksMapsChannelsAndKeepsTheLogFlagExceptFor3DPlus1D)
{
    // Type, tracks, and the track of R, G, B and A (-1: none). Only "A" gets
    // four tracks: "RGBA" made this way has no alpha track.
    const int cases[][6] = {
        {1, 3, 0, -1, -1, -1},  {2, 3, -1, 0, -1, -1}, {4, 3, -1, -1, 0, -1},   {8, 4, -1, -1, -1, 0},
        {23, 3, 0, 1, 2, -1},   {31, 3, 0, 1, 2, 3},   {39, 3, 0, 0, 0, -1},     {47, 3, 0, 0, 0, 0},
        {64, 0, -1, -1, -1, -1}, {96, 1, -1, -1, -1, -1},
    };
    for (const auto &c : cases)
    {
        IMB_Lookup lut;
        lut.setLogSampling(true);
        lut.setType(T(c[0]));
        EXPECT_EQ(lut.getNumChannels(), c[1]) << c[0];
        EXPECT_EQ(lut.getType(), c[0] == 96 ? 96 : (c[0] | 0x100)) << c[0];
        for (int k = 0; k < 4; ++k)
        {
            EXPECT_EQ(lut.getIndexFor(T(1 << k)), c[k + 2]) << c[0] << " channel " << k;
            EXPECT_EQ(lut.hasLUTfor(T(1 << k)), c[k + 2] >= 0) << c[0] << " channel " << k;
        }
    }
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGBA);
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_A), nullptr);
    // Queries that only name the table kind: 48 in either place refuses.
    lut.setType(T(16));
    EXPECT_EQ(lut.getIndexFor(T(48)), -1);
    EXPECT_FALSE(lut.hasLUTfor(T(48)));
    EXPECT_EQ(lut.getIndexFor(T(16)), 0);
    EXPECT_TRUE(lut.hasLUTfor(T(16)));
    lut.setType(IMB_LUT_3D_1D);
    EXPECT_EQ(lut.getIndexFor(T(32)), 0);
}

TEST(LookupModel, ShrinkingTracksByMoreThanOneStopsPartWayAndSizeChangesKeepSamples)
{
    IMB_Lookup lut;
    const int steps[][2] = {{4, 4}, {1, 2}, {4, 4}, {3, 3}, {2, 2}};
    for (const auto &s : steps)
    {
        lut.setNumChannels(s[0]);
        EXPECT_EQ(lut.getNumChannels(), s[1]) << s[0];
    }
    EXPECT_EQ(lut.getLUT().getTrack(1)->getName(), "t");
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(3);
    lut.getRawLUT(IMB_LUT_G)[2] = 0.5;
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_G), lut.getLUT().getTrack(1)->getData());
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_A), nullptr);
    lut.setTableSize(6);
    EXPECT_EQ(track(lut, 1), (std::vector<double>{0, 0, 0.5, 0, 0, 0}));
}

TEST(LookupModel, SettersOrderDomainAndRangeRaiseALogMinimumAndClampTheBias)
{
    IMB_Lookup lut;
    lut.setDomain(0.5f, 0.0f);
    lut.setRange(3.0f, -1.0f);
    lut.setLogBias(100.0f);
    EXPECT_EQ(describe(lut), "type 47 tracks 0 cube 0 domain 0 0.5 range -1 3 points 0 1 bias 20 format any");
    lut.setLogSampling(true);
    lut.setLogBias(-20.5f);
    lut.setDomain(0.0f, 0.5f);
    EXPECT_EQ(describe(lut), "type 303 tracks 0 cube 0 domain 1e-06 0.5 range -1 3 points 0 1 bias -20 format any");
    lut.setDomain(0.0f, 1e-7f);
    lut.setLogBias(3.5f);
    EXPECT_EQ(describe(lut), "type 303 tracks 0 cube 0 domain 1e-06 1 range -1 3 points 0 1 bias 3.5 format any");
    lut.setDomain(1e-6f, 2.0f); // exactly at the limit stays
    EXPECT_EQ(describe(lut), "type 303 tracks 0 cube 0 domain 1e-06 2 range -1 3 points 0 1 bias 3.5 format any");

    lut.setType(IMB_LUT_3D_1D); // the log flag is refused by 3D+1D
    lut.setLogSampling(true);
    EXPECT_EQ(lut.getType(), 96);
}

TEST(LookupModel, CubeIsPaddedByRepeatingTheLastRowColumnAndPlane)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setLogSampling(true);
    const std::vector<float> in = randomCube(2, 1).v;
    lut.set3DLUT(2, in.data());
    EXPECT_EQ(describe(lut), "type 320 tracks 0 cube 2 domain 0 1 range 0 1 points 0 1 bias 0 format any");
    EXPECT_TRUE(lut.is3DLUT());
    EXPECT_TRUE(lut.isValid());
    expectPaddedCube(lut, in, 2);
    std::vector<float> out(in.size()), padded(3 * 27);
    lut.copy3DLUT(out.data());
    EXPECT_EQ(out, in);
    std::vector<half16> outHalf(in.size());
    lut.copy3DLUT(outHalf.data());
    for (std::size_t i = 0; i < in.size(); ++i)
        EXPECT_EQ(static_cast<float>(outHalf[i]), static_cast<float>(half16(in[i])));
    lut.copy3DLUT(padded.data(), true);
    EXPECT_EQ(std::vector<float>(lut.get3DLUT(), lut.get3DLUT() + 81), padded);
    EXPECT_EQ(lut.getMemoryUsage(false) - lut.getLUT().getMemoryUsage(true), 12 * 27);
}

TEST(LookupModel, CubeOn3DPlus1DKeepsThePreTableAndOtherTypesDropTheCube)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D_1D);
    lut.setTableSize(4);
    lut.set3DLUT(3, randomCube(3, 2).v.data());
    const char *kept = "type 96 tracks 1x4 cube 3 domain 0 1 range 0 1 points 0 1 bias 0 format any";
    EXPECT_EQ(describe(lut), kept);
    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.addTrack("a");
    clip.addTrack("b");
    lut.setLUT(clip); // 3D+1D keeps only the first track and the cube
    EXPECT_EQ(describe(lut), kept);
    lut.setType(IMB_LUT_RGB);
    lut.setLUT(clip); // any other type drops the cube
    EXPECT_EQ(describe(lut), "type 23 tracks 2x4 cube 0 domain 0 1 range 0 1 points 0 1 bias 0 format any");
    EXPECT_EQ(lut.get3DLUT(), nullptr);
}

TEST(LookupModel, StartsEmptyAndResetAndCopyRestoreOrDuplicateEveryField)
{
    IMB_Lookup lut;
    EXPECT_EQ(describe(lut), kDefaults);
    EXPECT_FALSE(lut.isValid());
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(5);
    lut.getRawLUT(IMB_LUT_B)[4] = 2.0;
    lut.setLogSampling(true);
    lut.setDomain(0.5f, 4.0f);
    lut.setRange(-1.0f, 2.0f);
    lut.setBlackWhitePoints(0.1f, 0.9f);
    lut.setLogBias(3.0f);
    lut.setSpecificFormat(IMB_INT8);
    lut.setHalfPrec(true);
    IMB_Lookup copy(lut);
    IMB_Lookup assigned;
    assigned = lut;
    for (const IMB_Lookup *l : {&lut, &copy, &assigned})
        EXPECT_EQ(describe(*l), "type 279 tracks 3x5 cube 0 domain 0.5 4 range -1 2 points 0.1 0.9 bias 3 format int8 half");
    EXPECT_EQ(copy.getRawLUT(IMB_LUT_B)[4], 2.0);
    EXPECT_NE(copy.getRawLUT(IMB_LUT_B), lut.getRawLUT(IMB_LUT_B));
    lut.reset();
    EXPECT_EQ(describe(lut), kDefaults);
}

std::vector<void *> theDeleted;
void *theLiveTexture = nullptr;

TEST(LookupModel, TextureHandlesAreAnsweredAndReleasedOnlyThroughTheHooks)
{
    int tex = 0, pre = 0;
    theDeleted.clear();
    {
        IMB_Lookup lut;
        lut.setTextureID(&tex);
        lut.setPreLutID(&pre);
        EXPECT_EQ(lut.getTextureID(), nullptr); // no hook installed
        lut.clearTextureID();                    // no delete hook: nothing changes
        IMB_IsTexture_cb = [](void *p) { return p == theLiveTexture; };
        theLiveTexture = &tex;
        EXPECT_EQ(lut.getTextureID(), &tex);
        EXPECT_EQ(lut.getPreLutID(), nullptr); // the hook says it is gone
        theLiveTexture = &pre;
        EXPECT_EQ(lut.getPreLutID(), &pre);
        IMB_DeleteTextures_cb = [](void *p) { theDeleted.push_back(p); };
    } // destruction releases both handles
    EXPECT_EQ(theDeleted, (std::vector<void *>{&tex, &pre}));
    theDeleted.clear();
    IMB_Lookup lut;
    lut.setTextureID(&tex);
    lut.clearTextureID();
    lut.clearTextureID();
    EXPECT_EQ(theDeleted, (std::vector<void *>{&tex}));
    EXPECT_EQ(lut.getTextureID(), nullptr);
    IMB_IsTexture_cb = nullptr, IMB_DeleteTextures_cb = nullptr;
}

TEST(LookupBuilders, FillTrackZeroOfASharedTableWithTheirCurve)
{
    using Curve = double (*)(double);
    const std::pair<IMB_Lookup, Curve> cases[] = { // the table and its curve
        {{IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 257}, [](double x) { return std::pow(x, 1.0 / 2.2); }},
        {{IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::INVERSE, 33}, [](double x) { return std::pow(x, 2.2); }},
        {{IMB_Lookup::BuildGamma, 2.0, static_cast<IMB_Lookup::Dir>(7), 5}, [](double x) { return x * x; }},
        {{IMB_Lookup::BuildSRGB, IMB_Lookup::FORWARD, 4001},
         [](double x) { return x > 0.0031308 ? 1.055 * std::pow(x, 1 / 2.4) - 0.055 : 12.92 * x; }},
        // 1001 samples put x = 0.01 and 0.02 between 0.004045 and 0.04045:
        // they take the power branch.
        {{IMB_Lookup::BuildSRGB, IMB_Lookup::INVERSE, 1001},
         [](double x) { return x > 0.004045 ? std::pow((x + 0.055) / 1.055, 2.4) : x / 12.92; }},
        {{IMB_Lookup::BuildRec709, IMB_Lookup::FORWARD, 1001},
         [](double x) { return x >= 0.018 ? 1.099 * std::pow(x, 0.45) - 0.099 : 4.5 * x; }},
        // x = 0.081 is sample 81 and takes the power branch.
        {{IMB_Lookup::BuildRec709, IMB_Lookup::INVERSE, 1001},
         [](double x) { return x >= 0.081 ? std::pow((x + 0.099) / 1.099, 1 / 0.45) : x / 4.5; }},
    };
    std::vector<int> sizes;
    for (const auto &[lut, curve] : cases)
    {
        const int n = sizes.emplace_back(lut.getTableSize());
        EXPECT_EQ(describe(lut),
                  "type 39 tracks 3x" + std::to_string(n) + " cube 0 domain 0 1 range 0 1 points 0 1 bias 0 format any");
        const std::vector<double> t = track(lut, 0);
        for (int i = 0; i < n; ++i)
            ASSERT_NEAR(t[i], curve(i / double(n - 1)), 1e-15) << n << " sample " << i;
        EXPECT_EQ(track(lut, 1), std::vector<double>(n, 0.0));
    }
    EXPECT_EQ(sizes, (std::vector<int>{257, 33, 5, 4001, 1001, 1001, 1001}));
    EXPECT_NEAR(track(cases[4].first, 0)[10], std::pow(0.065 / 1.055, 2.4), 1e-15);
    EXPECT_GT(std::fabs(track(cases[4].first, 0)[10] - 0.01 / 12.92), 1e-5);
    EXPECT_NEAR(track(cases[6].first, 0)[81], std::pow(0.18 / 1.099, 1 / 0.45), 1e-15);
}

TEST(LookupBuilders, RefuseTooSmallTablesAndNonPositiveGammaLeavingAResetTable)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(9);
    lut.setRange(2.0f, 3.0f);
    EXPECT_FALSE(lut.buildGamma(2.2, IMB_Lookup::FORWARD, 1));
    EXPECT_EQ(describe(lut), kDefaults);
    EXPECT_FALSE(lut.buildGamma(0.0, IMB_Lookup::FORWARD, 16));
    EXPECT_FALSE(lut.buildGamma(-1.0, IMB_Lookup::INVERSE, 16));
    EXPECT_FALSE(lut.buildSRGB(IMB_Lookup::FORWARD, 1));
    EXPECT_FALSE(lut.buildREC709(IMB_Lookup::INVERSE, 0));
    EXPECT_FALSE(lut.isValid());
    EXPECT_TRUE(lut.buildGamma(1.0, IMB_Lookup::FORWARD, 2));
    EXPECT_TRUE(lut.isValid());
    // The builders clear the log flag through their reset.
    lut.setLogSampling(true);
    EXPECT_TRUE(lut.buildSRGB(IMB_Lookup::FORWARD, 8));
    EXPECT_EQ(lut.getType(), IMB_LUT_C);
}
} // namespace
