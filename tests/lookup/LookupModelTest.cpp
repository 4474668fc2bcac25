// IMB_Lookup's data model, setters and builders, and the curve and thread
// runner types underneath it.
#include <IMB/IMB.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>
#include <IMB/platform/CRV_Clip.h>

#include <gtest/gtest.h>

#include "LookupTestUtil.h"

#include <atomic>
#include <cmath>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace
{
using namespace lookup_test;

// --------------------------------------------------------------- curves

TEST(CurveTrack, InterpolatesBetweenNeighboursAndHoldsTheEnds)
{
    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.setStart(10.0);
    CRV_Track *t = clip.addTrack("t");
    double *s = t->getData();
    s[0] = 1.0, s[1] = 3.0, s[2] = -1.0, s[3] = 5.0;
    EXPECT_DOUBLE_EQ(t->evaluateSingle(10.0), 1.0);
    EXPECT_DOUBLE_EQ(t->evaluateSingle(10.25), 1.5);
    EXPECT_DOUBLE_EQ(t->evaluateSingle(11.5), 1.0);
    EXPECT_DOUBLE_EQ(t->evaluateSingle(12.75), 3.5);
    EXPECT_DOUBLE_EQ(t->evaluateSingle(13.0), 5.0);
    EXPECT_DOUBLE_EQ(t->evaluateSingle(9.0), 1.0);  // before the start
    EXPECT_DOUBLE_EQ(t->evaluateSingle(14.0), 5.0); // one past the last sample
    EXPECT_DOUBLE_EQ(t->evaluateSingle(NAN), 1.0);

    double block[7];
    t->evaluate(10.0, 13.0, block, 7);
    const double want[7] = {1.0, 2.0, 3.0, 1.0, -1.0, 2.0, 5.0};
    for (int i = 0; i < 7; ++i)
        EXPECT_DOUBLE_EQ(block[i], want[i]) << i;
}

TEST(CurveClip, SettingTheLengthKeepsSamplesAndRemovingShiftsTracks)
{
    CRV_Clip clip;
    clip.setTrackLength(3);
    clip.addTrack("a")->getData()[2] = 7.0;
    clip.addTrack("b")->getData()[0] = 8.0;
    clip.addTrack("c");
    clip.setTrackLength(5);
    EXPECT_EQ(clip.getTrack(0)->getLength(), 5);
    EXPECT_EQ(clip.getTrack(0)->getData()[2], 7.0);
    EXPECT_EQ(clip.getTrack(0)->getData()[4], 0.0);
    EXPECT_TRUE(clip.removeTrack(0));
    EXPECT_EQ(clip.getTrack(0)->getName(), "b");
    EXPECT_EQ(clip.getTrack(0)->getData()[0], 8.0);
    EXPECT_FALSE(clip.removeTrack(2));
    EXPECT_EQ(clip.getTrack(2), nullptr);
    EXPECT_GE(clip.getMemoryUsage(false), 2 * 5 * 8);

    CRV_Clip copy(clip);
    copy.getTrack(0)->getData()[0] = 1.0;
    EXPECT_EQ(clip.getTrack(0)->getData()[0], 8.0); // deep copy
}

// --------------------------------------------------------------- runner

std::atomic<int> theObservedJobs{-1};
void observeJobs(int jobs) { theObservedJobs = jobs; }

TEST(ThreadedAlgorithm, RunsEveryPartOnceAndOnePartOnTheCallingThread)
{
    BAS_ThreadedAlgorithm::setRunObserver(observeJobs);
    BAS_ThreadedAlgorithm many(7);
    std::mutex lock;
    std::multiset<int> seen;
    many.run([&](int j, int m) {
        EXPECT_EQ(m, 7);
        std::lock_guard<std::mutex> g(lock);
        seen.insert(j);
    });
    EXPECT_EQ(theObservedJobs.load(), 7);
    EXPECT_EQ(seen, (std::multiset<int>{0, 1, 2, 3, 4, 5, 6}));

    BAS_ThreadedAlgorithm one(1);
    std::thread::id where;
    one.run([&](int j, int m) {
        EXPECT_EQ(j, 0);
        EXPECT_EQ(m, 1);
        where = std::this_thread::get_id();
    });
    EXPECT_EQ(where, std::this_thread::get_id());

    BAS_ThreadedAlgorithm pool(0);
    EXPECT_EQ(pool.getNumThreads(), BAS_ThreadedAlgorithm::getPoolConcurrency());
    BAS_ThreadedAlgorithm::setRunObserver(nullptr);
}

// --------------------------------------------------------------- defaults and kinds

// The state of a new or reset table: an empty "All" table over 0-1.
void expectDefaults(const IMB_Lookup &lut)
{
    EXPECT_EQ(lut.getType(), IMB_LUT_ALL);
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_FALSE(lut.isValid());
    EXPECT_FALSE(lut.is3DLUT());
    IMB_DataFormat f;
    EXPECT_FALSE(lut.hasSpecificFormat(f));
    float a, b;
    lut.getDomain(a, b);
    EXPECT_EQ(a, 0.0f);
    EXPECT_EQ(b, 1.0f);
    lut.getRange(a, b);
    EXPECT_EQ(a, 0.0f);
    EXPECT_EQ(b, 1.0f);
    EXPECT_EQ(lut.getBlackPoint(), 0.0f);
    EXPECT_EQ(lut.getWhitePoint(), 1.0f);
    EXPECT_EQ(lut.getLogBias(), 0.0f);
    EXPECT_FALSE(lut.getLogSampling());
    EXPECT_FALSE(lut.isHalfPrec());
}

TEST(LookupModel, SetTypeGivesOnlyAlphaFourTracksAndKeepsTheLogFlagExceptFor3DPlus1D)
{
    const struct
    {
        int type, tracks;
    } cases[] = {{1, 3}, {2, 3}, {4, 3}, {8, 4}, {23, 3}, {31, 3}, {39, 3}, {47, 3}, {64, 0}, {96, 1}};
    for (const auto &c : cases)
    {
        IMB_Lookup lut;
        lut.setLogSampling(true);
        lut.setType(T(c.type));
        EXPECT_EQ(lut.getNumChannels(), c.tracks) << c.type;
        EXPECT_EQ(lut.getType(), c.type == 96 ? 96 : (c.type | 0x100)) << c.type;
    }
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGBA); // "RGBA" made this way has no alpha track
    EXPECT_EQ(lut.getIndexFor(IMB_LUT_A), 3);
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_A), nullptr);
}

TEST(LookupModel, ShrinkingTracksByMoreThanOneStopsPartWay)
{
    IMB_Lookup lut;
    lut.setNumChannels(4);
    EXPECT_EQ(lut.getNumChannels(), 4);
    lut.setNumChannels(1);
    EXPECT_EQ(lut.getNumChannels(), 2);
    lut.setNumChannels(4);
    lut.setNumChannels(3);
    EXPECT_EQ(lut.getNumChannels(), 3);
    lut.setNumChannels(2);
    EXPECT_EQ(lut.getNumChannels(), 2);
    EXPECT_EQ(lut.getLUT().getTrack(1)->getName(), "t");
}

TEST(LookupModel, LogDomainMinimumIsRaisedToOneMillionth)
{
    IMB_Lookup lut;
    lut.setDomain(0.5f, 0.0f);
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 0.5f);
    lut.setLogSampling(true);
    lut.setDomain(0.0f, 0.5f);
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 1e-6f);
    EXPECT_EQ(hi, 0.5f);
    lut.setDomain(0.0f, 1e-7f);
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 1e-6f);
    EXPECT_EQ(hi, 1.0f);
    lut.setDomain(1e-6f, 2.0f); // exactly at the limit stays
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 1e-6f);
    EXPECT_EQ(hi, 2.0f);
    lut.setRange(3.0f, -1.0f);
    lut.getRange(lo, hi);
    EXPECT_EQ(lo, -1.0f);
    EXPECT_EQ(hi, 3.0f);
}

TEST(LookupModel, LogFlagIsRefusedFor3DPlus1DAndBiasIsClamped)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D_1D);
    lut.setLogSampling(true);
    EXPECT_EQ(lut.getType(), 96);
    lut.setType(IMB_LUT_3D);
    lut.setLogSampling(true);
    EXPECT_EQ(lut.getType(), 320);
    lut.setLogSampling(false);
    EXPECT_EQ(lut.getType(), 64);
    lut.setLogBias(100.0f);
    EXPECT_EQ(lut.getLogBias(), 20.0f);
    lut.setLogBias(-20.5f);
    EXPECT_EQ(lut.getLogBias(), -20.0f);
    lut.setLogBias(3.5f);
    EXPECT_EQ(lut.getLogBias(), 3.5f);
}

TEST(LookupModel, ChannelsMapToTracksByType)
{
    const IMB_LookupType R = IMB_LUT_R, G = IMB_LUT_G, B = IMB_LUT_B, A = IMB_LUT_A;
    const struct
    {
        int type;
        int r, g, b, a;
    } cases[] = {
        {47, 0, 0, 0, 0},     {39, 0, 0, 0, -1},    {23, 0, 1, 2, -1},     {31, 0, 1, 2, 3},
        {1, 0, -1, -1, -1},   {2, -1, 0, -1, -1},   {8, -1, -1, -1, 0},    {64, -1, -1, -1, -1},
        {96, -1, -1, -1, -1}, {320, -1, -1, -1, -1},
    };
    for (const auto &c : cases)
    {
        IMB_Lookup lut;
        lut.setType(T(c.type));
        EXPECT_EQ(lut.getIndexFor(R), c.r) << c.type;
        EXPECT_EQ(lut.getIndexFor(G), c.g) << c.type;
        EXPECT_EQ(lut.getIndexFor(B), c.b) << c.type;
        EXPECT_EQ(lut.getIndexFor(A), c.a) << c.type;
        EXPECT_EQ(lut.hasLUTfor(R), c.r >= 0) << c.type;
        EXPECT_EQ(lut.hasLUTfor(A), c.a >= 0) << c.type;
    }
    // Queries that only name the table kind: 48 in either place refuses.
    IMB_Lookup lut;
    lut.setType(T(16));
    EXPECT_EQ(lut.getIndexFor(T(48)), -1);
    EXPECT_FALSE(lut.hasLUTfor(T(48)));
    EXPECT_EQ(lut.getIndexFor(T(16)), 0);
    EXPECT_TRUE(lut.hasLUTfor(T(16)));
    lut.setType(IMB_LUT_3D_1D);
    EXPECT_EQ(lut.getIndexFor(T(32)), 0);
}

TEST(LookupModel, RawTablesAreTheTracksAndSizeChangesKeepSamples)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(3);
    lut.getRawLUT(IMB_LUT_G)[2] = 0.5;
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_G), lut.getLUT().getTrack(1)->getData());
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_A), nullptr);
    lut.setTableSize(6);
    EXPECT_EQ(lut.getTableSize(), 6);
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_G)[2], 0.5);
    EXPECT_EQ(lut.getRawLUT(IMB_LUT_G)[5], 0.0);
}

// --------------------------------------------------------------- cube storage

std::vector<float> rampCube(int n)
{
    std::vector<float> v(3 * n * n * n);
    for (int i = 0; i < n * n * n; ++i)
        for (int c = 0; c < 3; ++c)
            v[3 * i + c] = static_cast<float>(i * 3 + c);
    return v;
}

TEST(LookupModel, CubeIsPaddedByRepeatingTheLastRowColumnAndPlane)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setLogSampling(true);
    const int n = 2;
    const std::vector<float> in = rampCube(n);
    lut.set3DLUT(n, in.data());
    EXPECT_EQ(lut.getType(), 64 | 0x100);
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_EQ(lut.get3DSize(), 2);
    EXPECT_TRUE(lut.is3DLUT());
    EXPECT_TRUE(lut.isValid());
    const float *c = lut.get3DLUT();
    const int e = n + 1;
    // Every padded sample equals the real sample with each index capped at n - 1.
    for (int b = 0; b < e; ++b)
        for (int g = 0; g < e; ++g)
            for (int r = 0; r < e; ++r)
            {
                const int sr = std::min(r, n - 1), sg = std::min(g, n - 1), sb = std::min(b, n - 1);
                for (int k = 0; k < 3; ++k)
                    EXPECT_EQ(c[3 * (r + e * g + e * e * b) + k], in[3 * (sr + n * sg + n * n * sb) + k])
                        << r << g << b;
            }
    std::vector<float> out(in.size());
    lut.copy3DLUT(out.data());
    EXPECT_EQ(out, in);
    std::vector<half16> outHalf(in.size());
    lut.copy3DLUT(outHalf.data());
    for (std::size_t i = 0; i < in.size(); ++i)
        EXPECT_EQ(static_cast<float>(outHalf[i]), in[i]);
    std::vector<float> padded(3 * e * e * e);
    lut.copy3DLUT(padded.data(), true);
    EXPECT_EQ(padded.back(), in.back());
    EXPECT_EQ(lut.getMemoryUsage(false) - lut.getLUT().getMemoryUsage(true), 12 * e * e * e);
}

TEST(LookupModel, CubeOn3DPlus1DKeepsThePreTable)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D_1D);
    lut.setTableSize(4);
    const std::vector<float> in = rampCube(3);
    lut.set3DLUT(3, in.data());
    EXPECT_EQ(lut.getType(), 96);
    EXPECT_EQ(lut.getNumChannels(), 1);
    EXPECT_EQ(lut.get3DSize(), 3);

    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.addTrack("a");
    clip.addTrack("b");
    lut.setLUT(clip); // 3D+1D keeps only the first track and the cube
    EXPECT_EQ(lut.getNumChannels(), 1);
    EXPECT_EQ(lut.get3DSize(), 3);

    lut.setType(IMB_LUT_RGB);
    lut.setLUT(clip); // any other type drops the cube
    EXPECT_EQ(lut.get3DSize(), 0);
    EXPECT_EQ(lut.get3DLUT(), nullptr);
    EXPECT_EQ(lut.getNumChannels(), 2);
}

TEST(LookupModel, StartsEmptyAndResetAndCopyRestoreOrDuplicateEveryField)
{
    IMB_Lookup lut;
    expectDefaults(lut);
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
    IMB_DataFormat f;
    EXPECT_TRUE(lut.hasSpecificFormat(f));
    EXPECT_EQ(f, IMB_INT8);

    IMB_Lookup copy(lut);
    EXPECT_EQ(copy.getType(), lut.getType());
    EXPECT_EQ(copy.getRawLUT(IMB_LUT_B)[4], 2.0);
    EXPECT_NE(copy.getRawLUT(IMB_LUT_B), lut.getRawLUT(IMB_LUT_B));
    EXPECT_EQ(copy.getLogBias(), 3.0f);
    EXPECT_TRUE(copy.isHalfPrec());

    lut.reset();
    expectDefaults(lut);
}

// --------------------------------------------------------------- display hooks

std::vector<void *> theDeleted;
void *theLiveTexture = nullptr;
bool isLive(void *p) { return p == theLiveTexture; }
void deleteTexture(void *p) { theDeleted.push_back(p); }

struct HookGuard
{
    ~HookGuard()
    {
        IMB_IsTexture_cb = nullptr;
        IMB_DeleteTextures_cb = nullptr;
    }
};

TEST(LookupModel, TextureHandlesAreAnsweredAndReleasedOnlyThroughTheHooks)
{
    HookGuard guard;
    int tex = 0, pre = 0;
    theDeleted.clear();
    {
        IMB_Lookup lut;
        lut.setTextureID(&tex);
        lut.setPreLutID(&pre);
        EXPECT_EQ(lut.getTextureID(), nullptr); // no hook installed
        lut.clearTextureID();                    // no delete hook: nothing changes
        IMB_IsTexture_cb = isLive;
        theLiveTexture = &tex;
        EXPECT_EQ(lut.getTextureID(), &tex);
        EXPECT_EQ(lut.getPreLutID(), nullptr); // the hook says it is gone
        theLiveTexture = &pre;
        EXPECT_EQ(lut.getPreLutID(), &pre);
        IMB_DeleteTextures_cb = deleteTexture;
    } // destruction releases both handles
    EXPECT_EQ(theDeleted, (std::vector<void *>{&tex, &pre}));

    theDeleted.clear();
    IMB_Lookup lut;
    lut.setTextureID(&tex);
    lut.clearTextureID();
    lut.clearTextureID();
    EXPECT_EQ(theDeleted, (std::vector<void *>{&tex}));
    EXPECT_EQ(lut.getTextureID(), nullptr);
}

// --------------------------------------------------------------- builders

// The builders fill track 0 of a "C" table of three tracks.
void expectBuilt(const IMB_Lookup &lut, int size, double (*curve)(double))
{
    ASSERT_EQ(lut.getType(), IMB_LUT_C);
    ASSERT_EQ(lut.getNumChannels(), 3);
    ASSERT_EQ(lut.getTableSize(), size);
    const double *t = lut.getLUT().getTrack(0)->getData();
    for (int i = 0; i < size; ++i)
    {
        const double x = static_cast<double>(i) / (size - 1);
        EXPECT_NEAR(t[i], curve(x), 1e-15) << "x = " << x;
    }
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 1.0f);
}

TEST(LookupBuilders, GammaFollowsItsDirection)
{
    IMB_Lookup fwd(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 257);
    expectBuilt(fwd, 257, [](double x) { return std::pow(x, 1.0 / 2.2); });
    IMB_Lookup inv(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::INVERSE, 33);
    expectBuilt(inv, 33, [](double x) { return std::pow(x, 2.2); });
    IMB_Lookup any(IMB_Lookup::BuildGamma, 2.0, static_cast<IMB_Lookup::Dir>(7), 5);
    expectBuilt(any, 5, [](double x) { return x * x; });
}

TEST(LookupBuilders, SrgbDecodesWithTheLibrarysOwnThreshold)
{
    IMB_Lookup enc(IMB_Lookup::BuildSRGB, IMB_Lookup::FORWARD, 4001);
    expectBuilt(enc, 4001, [](double x) { return x > 0.0031308 ? 1.055 * std::pow(x, 1 / 2.4) - 0.055 : 12.92 * x; });
    // 1001 samples put x = 0.01 and 0.02 between 0.004045 and 0.04045: they
    // must take the power branch.
    IMB_Lookup dec(IMB_Lookup::BuildSRGB, IMB_Lookup::INVERSE, 1001);
    expectBuilt(dec, 1001, [](double x) { return x > 0.004045 ? std::pow((x + 0.055) / 1.055, 2.4) : x / 12.92; });
    EXPECT_NEAR(dec.getLUT().getTrack(0)->getData()[10], std::pow(0.065 / 1.055, 2.4), 1e-15);
    EXPECT_GT(std::fabs(dec.getLUT().getTrack(0)->getData()[10] - 0.01 / 12.92), 1e-5);
}

TEST(LookupBuilders, Rec709SwitchesAtItsBreakpoints)
{
    IMB_Lookup enc(IMB_Lookup::BuildRec709, IMB_Lookup::FORWARD, 1001);
    expectBuilt(enc, 1001, [](double x) { return x >= 0.018 ? 1.099 * std::pow(x, 0.45) - 0.099 : 4.5 * x; });
    IMB_Lookup dec(IMB_Lookup::BuildRec709, IMB_Lookup::INVERSE, 1001);
    expectBuilt(dec, 1001, [](double x) { return x >= 0.081 ? std::pow((x + 0.099) / 1.099, 1 / 0.45) : x / 4.5; });
    // x = 0.081 is sample 81 and takes the power branch.
    EXPECT_NEAR(dec.getLUT().getTrack(0)->getData()[81], std::pow(0.18 / 1.099, 1 / 0.45), 1e-15);
}

TEST(LookupBuilders, RefuseTooSmallTablesAndNonPositiveGammaLeavingAResetTable)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(9);
    lut.setRange(2.0f, 3.0f);
    EXPECT_FALSE(lut.buildGamma(2.2, IMB_Lookup::FORWARD, 1));
    EXPECT_EQ(lut.getType(), IMB_LUT_ALL);
    EXPECT_EQ(lut.getNumChannels(), 0);
    float lo, hi;
    lut.getRange(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 1.0f);
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
