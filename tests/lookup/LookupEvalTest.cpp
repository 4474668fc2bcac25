// IMB_Lookup evaluation: single values, blocks, cubes, grid values, repair,
// sampling grids, inversion and composition, each against scalar references
// written here from the rules.
#include "LookupTestUtil.h"

// The class befriends this struct for its tests: it reaches the private
// preparation and repair steps and sets fields the setters would order.
namespace imb_detail
{
struct LookupTestAccess
{
    static bool correct(IMB_Lookup &l) { return l.correctLUT(); }
    static void prep1D(IMB_Lookup &l, float *grid, int size, bool linear, double lo, double hi)
    {
        l.prep1DLUT(grid, size, linear, lo, hi);
    }
    static void prep3D(IMB_Lookup &l, bool linear, double lo, double hi, int large)
    {
        l.prep3DLUT(linear, lo, hi, 0.0, large);
    }
    static void rawDomain(IMB_Lookup &l, float lo, float hi, float rlo, float rhi)
    {
        l.myDomainMin = lo, l.myDomainMax = hi, l.myRangeMin = rlo, l.myRangeMax = rhi;
    }
};
} // namespace imb_detail

namespace
{
using Access = imb_detail::LookupTestAccess;
using namespace lookup_test;

// A table of three distinct tracks of n samples.
IMB_Lookup makeRgb(int n, std::vector<double> tracks[3])
{
    IMB_Lookup lut = fill1D(IMB_LUT_RGB, n, [](int c, int i) { return c == 0 ? i * i : c == 1 ? std::sqrt(i) : 10.0 - i; });
    for (int c = 0; c < 3; ++c)
        tracks[c] = track(lut, c);
    return lut;
}

// Linear values ignore the domain; log values take the track length, not
// length - 1, as the last position: pos = N (ln x - ln lo) / (ln hi - ln lo).
TEST(LookupEval, SingleValuesInterpolateLinearlyOrOverTheLogDomainAndMapTheRange)
{
    std::vector<double> t[3];
    IMB_Lookup lut = makeRgb(5, t);
    lut.setDomain(2.0f, 3.0f);
    for (float x : {0.0f, 0.3f, 0.5f, 0.99f, 1.0f, 1.5f, -0.25f})
        for (int c = 0; c < 3; ++c)
            EXPECT_FLOAT_EQ(lut.evalLUT(T(1 << c), x), refSample(t[c], 4.0 * x)) << x;
    EXPECT_EQ(lut.evalLUT(IMB_LUT_A, 0.7f), 0.7f); // no alpha table: input back
    EXPECT_EQ(IMB_Lookup().evalLUT(IMB_LUT_R, 0.4f), 0.4f);
    float rgb[3] = {0.25f, 0.5f, 0.75f};
    lut.evalLUT(rgb);
    for (int c = 0; c < 3; ++c)
        EXPECT_FLOAT_EQ(rgb[c], refSample(t[c], c + 1.0));
    lut.setRange(-1.0f, 3.0f);
    EXPECT_FLOAT_EQ(lut.evalLUT(IMB_LUT_R, 0.3f), (refSample(t[0], 1.2) + 1.0) / 4.0);

    IMB_Lookup log = makeRgb(8, t);
    log.setLogSampling(true);
    log.setDomain(1.0f, 100.0f);
    // 10 is position 4 of 8, 100 position 8, one past the last sample.
    const float at[] = {10.0f, 100.0f, 1000.0f, 0.5f}, want[] = {16.0f, 49.0f, 49.0f, 0.0f};
    for (int i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(log.evalLUT(IMB_LUT_R, at[i]), want[i]) << at[i];
    EXPECT_NEAR(log.evalLUT(IMB_LUT_G, 5.0f), refSample(t[1], 8.0 * std::log(5.0) / std::log(100.0)), 1e-5);
}

TEST(LookupEval, BlocksResampleTheTrackAndMapToBlackAndWhite)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_ALL);
    lut.setTableSize(3);
    double *t = lut.getRawLUT(IMB_LUT_R);
    t[0] = 0.0, t[1] = 0.5, t[2] = 2.0;
    lut.setRange(0.0f, 2.0f);
    const float raw[5] = {0.0f, 0.25f, 0.5f, 1.25f, 2.0f};
    // Points 0-255 scale; equal points, or points equal to the range, do not.
    const float points[][3] = {{0, 255, 127.5f}, {7, 7, 1}, {0, 2, 1}}; // black, white, scale
    for (const auto &p : points)
    {
        float out[5];
        ASSERT_TRUE(lut.evalLUT(IMB_LUT_G, 5, out, unsigned(p[0]), unsigned(p[1])));
        for (int i = 0; i < 5; ++i)
            EXPECT_FLOAT_EQ(out[i], raw[i] * p[2]) << p[0] << " " << p[1] << " " << i;
    }

    // The float form resamples [N from, N to - 1] without log sampling.
    lut.setTableSize(5);
    t = lut.getRawLUT(IMB_LUT_R);
    for (int i = 0; i < 5; ++i)
        t[i] = 10.0 * i;
    float part[4];
    for (float black : {0.0f, 1.0f}) // black 1: k = 1/2, + 1
    {
        ASSERT_TRUE(lut.evalLUT(IMB_LUT_R, 4, part, black, 2.0f, 0.0f, 0.5f));
        for (int i = 0; i < 4; ++i)
            EXPECT_FLOAT_EQ(part[i], black ? 2.5f * i + 1.0f : 5.0f * i) << i;
    }
    lut.setLogSampling(true); // the whole track whatever from and to say
    ASSERT_TRUE(lut.evalLUT(IMB_LUT_R, 4, part, 0.0f, 2.0f, 0.0f, 0.5f));
    EXPECT_FLOAT_EQ(part[3], 40.0f);
    lut.setType(IMB_LUT_R);
    EXPECT_FALSE(lut.evalLUT(IMB_LUT_B, 4, part, 0u, 1u));
}

TEST(LookupEval, CubeFractionOfFiveMillionthsTakesTheLowerSample)
{
    // Edge 2: positions equal the inputs; red jumps from 0 to 1000.
    std::vector<float> v(24, 0.0f);
    for (int i = 1; i < 8; i += 2)
        v[3 * i] = 1000.0f;
    IMB_Lookup lut;
    lut.set3DLUT(2, v.data());
    float rgb[3] = {0.000005f, 0.0f, 0.0f}, rgb2[3] = {0.00002f, 0.0f, 0.0f};
    lut.eval3DLUT(rgb);
    EXPECT_EQ(rgb[0], 0.0f);
    lut.eval3DLUT(rgb2);
    EXPECT_NEAR(rgb2[0], 0.02f, 1e-6f);
}

TEST(LookupEval, IndexToValueUsesTheSinglePrecisionE)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    lut.setTableSize(5);
    lut.setDomain(2.0f, 4.0f);
    EXPECT_DOUBLE_EQ(lut.indexToValue(0), 2.0);
    EXPECT_DOUBLE_EQ(lut.indexToValue(3), 3.5);
    lut.setTableSize(3);
    lut.setLogSampling(true);
    lut.setDomain(1.0f, 100.0f);
    const double e = 2.7182819843292236;
    EXPECT_DOUBLE_EQ(lut.indexToValue(1), std::pow(e, std::log(100.0) * 0.5));
    EXPECT_DOUBLE_EQ(lut.indexToValue(2), std::pow(e, std::log(100.0)));
    EXPECT_GT(lut.indexToValue(2) - 100.0, 2e-5); // the float e shows

    // A cube type still counts over the track length (bit 64 is in 127);
    // only a type word without those bits counts over the cube edge.
    for (int type : {int(IMB_LUT_ALL), 0})
    {
        IMB_Lookup cube;
        cube.setType(T(type));
        cube.setTableSize(11);
        cube.set3DLUT(3, randomCube(3, 4).v.data());
        EXPECT_DOUBLE_EQ(cube.indexToValue(1), type ? 0.1 : 0.5) << type;
    }
}

TEST(LookupEval, CorrectLUTSwapsReversedDomainsAndRefusesEmptyOnes)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    lut.setTableSize(4);
    Access::rawDomain(lut, 5.0f, 1.0f, 0.75f, 0.25f);
    EXPECT_TRUE(Access::correct(lut));
    EXPECT_EQ(describe(lut), "type 39 tracks 3x4 cube 0 domain 1 5 range 0.25 0.75 points 0 1 bias 0 format any");
    Access::rawDomain(lut, 2.0f, 2.0f, 0.0f, 1.0f);
    EXPECT_FALSE(Access::correct(lut));
    lut.setLogSampling(true);
    Access::rawDomain(lut, 0.0f, 3.0f, 0.0f, 1.0f);
    EXPECT_TRUE(Access::correct(lut));
    EXPECT_EQ(describe(lut), "type 295 tracks 3x4 cube 0 domain 1e-06 3 range 0 1 points 0 1 bias 0 format any");
    Access::rawDomain(lut, -1.0f, 1e-7f, 0.0f, 1.0f);
    EXPECT_FALSE(Access::correct(lut));

    IMB_Lookup pre;
    pre.setType(IMB_LUT_3D_1D);
    pre.setTableSize(3);
    double *t = pre.getRawLUT(T(32));
    t[0] = -0.5, t[1] = 0.5, t[2] = 1.5;
    EXPECT_TRUE(Access::correct(pre));
    EXPECT_EQ(track(pre, 0), (std::vector<double>{0.0, 0.5, 1.0}));
}

TEST(LookupEval, Clamp3DLUTClampsEveryFloatIncludingPadding)
{
    const RefCube ref = randomCube(3, 5);
    IMB_Lookup lut;
    lut.set3DLUT(3, ref.v.data());
    lut.clamp3DLUT();
    std::vector<float> clamped = ref.v;
    for (float &v : clamped)
        v = std::min(std::max(v, 0.0f), 1.0f);
    expectPaddedCube(lut, clamped, 3);
}

TEST(LookupEval, Prep1DLUTWritesEqualTriplesOverALinearOrLogGrid)
{
    IMB_Lookup lut;
    const RefCube ref = randomCube(2, 6);
    lut.set3DLUT(2, ref.v.data());
    std::vector<float> grid(3 * 9);
    Access::prep1D(lut, grid.data(), 9, true, -1.0, 3.0);
    EXPECT_EQ(describe(lut), "type 23 tracks 3x9 cube 0 domain 0 1 range 0 1 points 0 1 bias 0 format any");
    for (int i = 0; i < 27; ++i)
        EXPECT_FLOAT_EQ(grid[i], -1.0f + 0.5f * (i / 3));
    EXPECT_EQ(lut.getPreShift(), 0.0f);

    Access::prep1D(lut, grid.data(), 0, false, 0.01, 100.0); // no grid: nothing changes
    EXPECT_EQ(describe(lut), "type 23 tracks 3x9 cube 0 domain 0 1 range 0 1 points 0 1 bias 0 format any");
    Access::prep1D(lut, grid.data(), 9, false, 0.01, 100.0);
    EXPECT_EQ(describe(lut), "type 279 tracks 3x9 cube 0 domain 0.01 100 range 0 1 points 0 1 bias 0 format any");
    EXPECT_EQ(lut.getPreShift(), 0.01f);
    const double e = 2.718282, llo = std::log(0.01), lhi = std::log(100.0);
    for (int i = 0; i < 9; ++i)
    {
        const double v = std::min(std::max(std::pow(e, llo + i * (lhi - llo) / 8), 0.01), 100.0) - 0.01;
        EXPECT_FLOAT_EQ(grid[3 * i], static_cast<float>(v)) << i;
        EXPECT_EQ(grid[3 * i + 1], grid[3 * i]);
        EXPECT_EQ(grid[3 * i + 2], grid[3 * i]);
    }
}

TEST(LookupEval, Prep3DLUTFillsThePaddedCubeWithItsOwnCoordinates)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    Access::prep3D(lut, true, 0.0, 1.0, 0);
    EXPECT_EQ(lut.get3DSize(), 64);
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_EQ(cubeAt(lut, 0, 0, 0, 0), 0.0f);
    EXPECT_FLOAT_EQ(cubeAt(lut, 21, 0, 0, 0), 21.0f / 63.0f);
    EXPECT_FLOAT_EQ(cubeAt(lut, 5, 42, 7, 1), 42.0f / 63.0f);
    EXPECT_FLOAT_EQ(cubeAt(lut, 5, 42, 7, 2), 7.0f / 63.0f);
    EXPECT_EQ(cubeAt(lut, 64, 64, 64, 0), 1.0f); // padding clamps to hi

    Access::prep3D(lut, false, 0.5, 8.0, 1);
    EXPECT_EQ(lut.get3DSize(), 96);
    const double llo = std::log(0.5), lhi = std::log(8.0);
    for (int i : {0, 1, 50, 95, 96})
        EXPECT_NEAR(cubeAt(lut, 0, 0, i, 2), std::exp(llo + i * (lhi - llo) / 95) - 0.5, 1e-5) << i;
    EXPECT_EQ(lut.getPreShift(), 0.5f);
}

// The inversion rule, written out for one track.
std::vector<double> refInvert(const std::vector<double> &old, int m, double dmin, double dmax, double rmin,
                              double rmax, bool round)
{
    const int n = static_cast<int>(old.size());
    auto put = [&](double v) { return round ? std::floor(v + 0.5) : v; };
    std::vector<double> out(m, 0.0);
    out[0] = dmin;
    int aj = 0;
    double av = dmin;
    for (int i = 0; i < m; ++i)
    {
        const int s = static_cast<int>(std::floor(double(i) * (n - 1) / (m - 1) + 0.5));
        int j = static_cast<int>(std::floor((old[s] - rmin) / (rmax - rmin) * m + 0.5));
        j = std::min(std::max(j, 0), m - 1);
        const double v = dmin + (dmax - dmin) * i / m;
        for (int k = aj + 1; k <= j; ++k)
        {
            const double f = double(k - aj) / (j - aj);
            out[k] = put((1 - f) * av + f * v);
        }
        aj = j;
        av = v;
    }
    for (int k = aj + 1; k <= m - 2; ++k)
    {
        const double f = double(k - aj) / (m - aj - 1);
        out[k] = put((1 - f) * av + f * dmax);
    }
    out[m - 1] = dmax;
    return out;
}

TEST(LookupEval, InvertedInt8TablesHoldIntegersAndEndExactlyOnTheDomain)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    lut.setTableSize(256);
    lut.setSpecificFormat(IMB_INT8);
    lut.setDomain(0.0f, 255.0f);
    lut.setRange(0.0f, 255.0f);
    double *t = lut.getRawLUT(IMB_LUT_R);
    for (int i = 0; i < 256; ++i)
        t[i] = std::floor(255.0 * std::pow(i / 255.0, 1 / 2.2) + 0.5);
    const std::vector<double> old = track(lut, 0);
    lut.invert(0);
    const std::vector<double> got = track(lut, 0);
    // The reference rounds and ends on 255 exactly; the kept M, not M - 1,
    // scaling leaves the inverse of an encoding gamma up to about four codes
    // below the decoding gamma.
    EXPECT_EQ(got, refInvert(old, 256, 0, 255, 0, 255, true));
    EXPECT_GE(got[120], 255.0 * std::pow(120 / 255.0, 2.2) - 4.5);
}

TEST(LookupEval, InvertResamplesFloatTablesAndExchangesDomainAndRange)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(50);
    lut.setSpecificFormat(IMB_FLOAT32);
    lut.setDomain(0.5f, 2.5f);
    lut.setRange(0.0f, 4.0f);
    std::vector<double> old[3];
    for (int c = 0; c < 3; ++c)
    {
        double *t = lut.getRawLUT(T(1 << c));
        for (int i = 0; i < 50; ++i) // a rising curve with a flat stretch and, for blue, a dip
            t[i] = c == 2 && i > 20 && i < 25 ? 1.0 : std::min(4.0, 0.002 * i * i + (c == 1 ? 0.5 : 0.0));
        old[c] = track(lut, c);
    }
    lut.invert(80);
    EXPECT_EQ(describe(lut), "type 23 tracks 3x80 cube 0 domain 0 4 range 0.5 2.5 points 0 1 bias 0 format float32");
    for (int c = 0; c < 3; ++c)
    {
        const std::vector<double> want = refInvert(old[c], 80, 0.5, 2.5, 0.0, 4.0, false), got = track(lut, c);
        for (int i = 0; i < 80; ++i)
            EXPECT_DOUBLE_EQ(got[i], want[i]) << c << " " << i;
        EXPECT_EQ(got[0], 0.5);
        EXPECT_EQ(got[79], 2.5);
    }
    IMB_Lookup empty;
    empty.invert(10); // nothing to invert
    EXPECT_EQ(describe(empty), describe(IMB_Lookup()));
}

TEST(LookupEval, MergingTwo1DTablesComposesThemOverTheFirstDomain)
{
    IMB_Lookup a(IMB_Lookup::BuildGamma, 2.0, IMB_Lookup::INVERSE, 64); // x^2, "C"
    std::vector<double> t[3];
    IMB_Lookup b = makeRgb(16, t); // per-channel tables
    b.setRange(0.0f, 10.0f);
    b.setBlackWhitePoints(0.25f, 0.75f);
    IMB_Lookup m;
    ASSERT_TRUE(m.mergeLUTs(a, b));
    // "C" then "RGB" gives "RGB"; a linear first table moves a domain at 0 to
    // 0.001.
    EXPECT_EQ(describe(m), "type 23 tracks 3x64 cube 0 domain 0.001 1 range 0 10 points 0.25 0.75 bias 0 format any");
    std::vector<double> at(64);
    for (int i = 0; i < 64; ++i)
        at[i] = std::pow(i / 63.0, 2.0);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 64; i += 7)
        {
            const double x = 0.001f + i * (1.0 - 0.001f) / 63;
            const double y = refSample(t[c], 15.0 * refSample(at, 63.0 * x)) / 10.0;
            // Evaluation runs in single precision.
            EXPECT_NEAR(track(m, c)[i], y, 1e-5 * std::max(1.0, y)) << c << " " << i;
        }
    IMB_Lookup all, cee;
    all.setType(IMB_LUT_ALL);
    cee.setType(IMB_LUT_C);
    ASSERT_TRUE(m.mergeLUTs(all, cee));
    EXPECT_EQ(m.getType(), IMB_LUT_ALL);
}

TEST(LookupEval, MergingIntoACubeAppliesTheFirstThenTheSecond)
{
    IMB_Lookup a(IMB_Lookup::BuildGamma, 2.0, IMB_Lookup::INVERSE, 256);
    const RefCube ref = randomCube(5, 7);
    IMB_Lookup b;
    b.set3DLUT(5, ref.v.data());
    b.setLogBias(2.0f);
    IMB_Lookup m;
    ASSERT_TRUE(m.mergeLUTs(a, b));
    // Neither is log-sampled: no bias.
    EXPECT_EQ(describe(m), "type 64 tracks 0 cube 5 domain 0.001 1 range 0 1 points 0 1 bias 0 format any");
    std::vector<float> out(3 * 125);
    m.copy3DLUT(out.data());
    auto pos = [&](int i) { return 4 * std::pow(0.001f + i * (1.0 - 0.001f) / 4, 2.0); };
    for (int bi = 0; bi < 5; ++bi)
        for (int gi = 0; gi < 5; ++gi)
            for (int ri = 0; ri < 5; ++ri)
            {
                const double p[3] = {pos(ri), pos(gi), pos(bi)};
                double want[3];
                ref.lookup(p, want);
                for (int c = 0; c < 3; ++c)
                    EXPECT_NEAR(out[3 * (ri + 5 * gi + 25 * bi) + c], want[c], 1e-4);
            }

    // A log-sampled first table adds the flag and lends its bias.
    IMB_Lookup la = a;
    la.setLogSampling(true);
    la.setLogBias(-3.0f);
    la.setDomain(0.01f, 1.0f);
    ASSERT_TRUE(m.mergeLUTs(la, b));
    EXPECT_EQ(describe(m), "type 320 tracks 0 cube 5 domain 0.01 1 range 0 1 points 0 1 bias -3 format any");

    // A cube first keeps the larger edge.
    IMB_Lookup big;
    const RefCube ref7 = randomCube(7, 8);
    big.set3DLUT(7, ref7.v.data());
    ASSERT_TRUE(m.mergeLUTs(b, big));
    EXPECT_EQ(m.get3DSize(), 7);
    ASSERT_TRUE(m.mergeLUTs(big, a));
    EXPECT_EQ(m.get3DSize(), 7);
}
} // namespace
