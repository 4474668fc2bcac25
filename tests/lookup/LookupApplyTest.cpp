// IMB_Lookup application to rasters: every data format against a scalar
// reference of the per-component rules, with and without log sampling,
// gamma, black and white points and single channels; cubes; the thread split.
#include "LookupTestUtil.h"

#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include <atomic>
#include <limits>
#include <thread>

namespace
{
using namespace lookup_test;

// kTol: distance from .5 within which an integer result may round either way.
template <IMB_DataFormat F> struct Fmt;
#define LOOKUP_TEST_FMT(F, V, INT, WHITE, TOL)                                                                       \
    template <> struct Fmt<F>                                                                                        \
    {                                                                                                                \
        using T = V;                                                                                                 \
        static constexpr IMB_DataFormat value = F;                                                                   \
        static constexpr bool kInt = INT;                                                                            \
        static constexpr double kWhite = WHITE, kTol = TOL;                                                          \
    };
LOOKUP_TEST_FMT(IMB_INT8, uint8, true, 255.0, 1e-3)
LOOKUP_TEST_FMT(IMB_INT16, uint16, true, 65535.0, 0.15)
LOOKUP_TEST_FMT(IMB_INT32, uint32, true, 4294967295.0, 1e-3)
LOOKUP_TEST_FMT(IMB_FLOAT32, float, false, 1.0, 0.0)
LOOKUP_TEST_FMT(IMB_FLOAT16, half16, false, 1.0, 0.0)
#undef LOOKUP_TEST_FMT

// Component c of pixel i of `a` has the same bytes as component cb of `b`.
bool sameComp(const IMB_Raster &a, const IMB_Raster &b, int64 i, int c, int cb)
{
    const int64 w = a.getXres();
    return std::memcmp(a.getPixel(i % w, i / w, c), b.getPixel(i % w, i / w, cb), imbDefinesDepth[a.getFormat()]) == 0;
}

template <IMB_DataFormat F> typename Fmt<F>::T *comp(const IMB_Raster &r, int64 i, int c)
{
    return static_cast<typename Fmt<F>::T *>(const_cast<void *>(r.getPixel(i % r.getXres(), i / r.getXres(), c)));
}
// Halves read through float; the others as they are.
template <IMB_DataFormat F> double readComp(const IMB_Raster &r, int64 i, int c)
{
    return static_cast<std::conditional_t<F == IMB_FLOAT16, float, double>>(*comp<F>(r, i, c));
}

// Values that hit the ends, halves and, for floats, out-of-range and NaN,
// written into every component of `r`.
template <IMB_DataFormat F> void fillRaster(IMB_Raster &r, unsigned seed)
{
    const int64 n = r.getNumPixels();
    for (int c = 0; c < imbDefinesPComp[r.getPacking()]; ++c)
    {
        std::mt19937 gen(seed + 17 * c);
        std::vector<double> v;
        const double w = Fmt<F>::kWhite, nan = std::numeric_limits<double>::quiet_NaN(), inf = INFINITY;
        if constexpr (Fmt<F>::kInt)
            v = {0, 1, std::floor(w / 2), std::floor(w / 2) + 1, w - 1, w, std::floor(w * 0.1), std::floor(w * 0.9)};
        else
            v = {0.0, 1.0, 0.5, 0.25, -0.5, 1.5, nan, inf, -inf, 0.001};
        std::uniform_real_distribution<double> d(Fmt<F>::kInt ? 0.0 : -0.2, Fmt<F>::kInt ? w : 1.2);
        while (static_cast<int64>(v.size()) < n)
            v.push_back(Fmt<F>::kInt ? std::floor(d(gen)) : double(float(d(gen))));
        for (int64 i = 0; i < n; ++i) // floats and halves from a float, integers from the double
            *comp<F>(r, i, c) = static_cast<typename Fmt<F>::T>(
                static_cast<std::conditional_t<Fmt<F>::kInt, double, float>>(v[(i * 7 + c * 3) % n]));
    }
}

struct Settings
{
    bool log = false;
    float gamma = 1.0f;
    float black = 0.0f, white = 1.0f;
    float dmin = 0.0f, dmax = 1.0f;
};

// The points of a format: 0 and full scale when they are 0 and 1 exactly
// (and for floats, which ignore them), else scaled (32 bit by 2^31 in
// single precision) and rounded.
template <IMB_DataFormat F> void refPoints(const Settings &s, double &b, double &w)
{
    if (!Fmt<F>::kInt || (s.black == 0.0f && s.white == 1.0f))
        b = 0.0, w = Fmt<F>::kWhite;
    else if (F == IMB_INT32)
        b = std::floor(s.black * 2147483648.0f + 0.5f), w = std::floor(s.white * 2147483648.0f + 0.5f);
    else
        b = std::floor(s.black * Fmt<F>::kWhite + 0.5), w = std::floor(s.white * Fmt<F>::kWhite + 0.5);
}

// Stored value -> table units.
template <IMB_DataFormat F> double refIn(double v, const Settings &s)
{
    double b, w;
    refPoints<F>(s, b, w);
    return (v - b) / (w == b ? 1.0 : w - b);
}

// Table units -> stored value before rounding (integers) or as stored (floats).
template <IMB_DataFormat F> double refOut(double y, const Settings &s)
{
    if (s.gamma != 1.0f)
        y = y > 0 ? std::pow(y, 1.0 / std::max(s.gamma, 1e-6f)) : y;
    double b, w;
    refPoints<F>(s, b, w);
    return y * (w - b) + b;
}

// Table units clamped to the domain (NaN reads as its minimum) -> position
// in a table of `last` + 1 samples.
double refPos(double x, const Settings &s, int last)
{
    x = std::isnan(x) ? s.dmin : std::min(std::max(x, double(s.dmin)), double(s.dmax));
    auto ln = [](double v) { return v > 0 ? std::log(v) : 0.0; };
    return s.log ? (ln(x) - ln(s.dmin)) * last / (ln(s.dmax) - ln(s.dmin)) : (x - s.dmin) * last / (s.dmax - s.dmin);
}

template <IMB_DataFormat F> double ref1D(double v, const std::vector<double> &t, const Settings &s)
{
    return refOut<F>(refSample(t, refPos(refIn<F>(v, s), s, static_cast<int>(t.size()) - 1)), s);
}

// Compares a stored result with the reference value (before rounding).
template <IMB_DataFormat F> void expectStored(double got, double want, const std::string &where)
{
    if constexpr (Fmt<F>::kInt)
    {
        const double e = std::min(std::max(std::floor(want + 0.5), 0.0), Fmt<F>::kWhite);
        const bool tie = std::fabs(want - std::floor(want) - 0.5) < Fmt<F>::kTol && std::fabs(got - e) == 1.0;
        EXPECT_TRUE(got == e || tie) << where << ": got " << got << ", want " << e << " (from " << want << ")";
    }
    else if (F == IMB_FLOAT16)
    {
        const float w = static_cast<float>(half16(static_cast<float>(want)));
        if (std::isnan(w) || std::isinf(w))
            EXPECT_EQ(static_cast<float>(got), w) << where;
        else
            EXPECT_NEAR(got, w, std::max(1e-3 * std::fabs(w), 1e-6)) << where;
    }
    else if (std::isnan(want))
        EXPECT_TRUE(std::isnan(got)) << where;
    else
        EXPECT_NEAR(got, want, 2e-6 * std::max(1.0, std::fabs(want))) << where;
}

// A table of `type` with n samples per track, each track a different curve
// of values exactly representable in float; "RGBA" gets its alpha track.
IMB_Lookup makeTable(int type, int n, std::vector<double> tracks[4], const Settings &s)
{
    auto curve = [n](int c, int i)
    {
        const double x = static_cast<double>(i) / (n - 1);
        return std::round((c == 0 ? x * x : c == 1 ? std::sqrt(x) : c == 2 ? 1.0 - 0.8 * x : 0.1 + 1.1 * x) * 4096.0) / 4096.0;
    };
    IMB_Lookup lut = fill1D(T(type), n, curve, type == IMB_LUT_RGBA ? 4 : 3);
    lut.setLogSampling(s.log);
    lut.setDomain(s.dmin, s.dmax);
    for (int c = 0; c < lut.getNumChannels(); ++c)
        tracks[c] = track(lut, c);
    return lut;
}

template <typename Tag> class LookupApplyFormat : public ::testing::Test
{
};
using Formats = ::testing::Types<Fmt<IMB_INT8>, Fmt<IMB_INT16>, Fmt<IMB_INT32>, Fmt<IMB_FLOAT32>, Fmt<IMB_FLOAT16>>;
struct FormatNames
{
    template <typename Tag> static std::string GetName(int) { return IMBdataFormat(Tag::value); }
};
TYPED_TEST_SUITE(LookupApplyFormat, Formats, FormatNames);

// Combination k (0-7) of log sampling, gamma and black and white points.
Settings variant(int k)
{
    Settings s;
    s.log = k & 4;
    s.gamma = k & 2 ? 2.2f : 1.0f;
    if (k & 1)
        s.black = 0.1f, s.white = 0.9f;
    if (s.log)
        s.dmin = 0.01f, s.dmax = 1.0f;
    else if (k & 1)
        s.dmin = -0.25f, s.dmax = 1.25f;
    return s;
}

// With a channel given, only it is computed (a channel without a table is
// copied as it is) and then copied into the colour channels (0-2 into the
// other two of R, G and B, alpha into all three); alpha stays otherwise.
TYPED_TEST(LookupApplyFormat, OneDTablesFollowTheScalarRuleForEveryVariantPackingAndChannel)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    for (int k = 0; k < 8; ++k)
        for (IMB_Packing packing : {PACK_RGBA, PACK_RGB_NI, PACK_RGB, PACK_SINGLE})
            for (int type : {IMB_LUT_RGB, IMB_LUT_ALL, IMB_LUT_RGBA, IMB_LUT_R, IMB_LUT_A})
                for (int channel : {-1, 1, 2, 3, 9})
                {
                    if (channel >= 0 && packing != PACK_RGBA)
                        continue;
                    const Settings s = variant(k);
                    std::vector<double> tracks[4];
                    const IMB_Lookup lut = makeTable(type, 33, tracks, s);
                    IMB_Raster r(packing, F, 29, 3, 1, 1);
                    fillRaster<F>(r, 5);
                    const IMB_Raster before(r);
                    lut.applyLUT(r, s.gamma, s.black, s.white, channel);
                    const int only = std::min(channel, 3);
                    for (int c = 0; c < imbDefinesPComp[packing]; ++c)
                    {
                        const int src = only < 0 ? c : c < 3 || only == 3 ? only : -1;
                        const int index = src < 0 ? -1 : lut.getIndexFor(T(1 << src));
                        const std::string where = "variant " + std::to_string(k) + " packing " + IMBpacking(packing) + " type " +
                                                  std::to_string(type) + " channel " + std::to_string(channel) +
                                                  " comp " + std::to_string(c);
                        for (int64 i = 0; i < r.getNumPixels(); ++i)
                        {
                            if (index < 0 || index >= lut.getNumChannels())
                                ASSERT_TRUE(sameComp(r, before, i, c, src < 0 ? c : src)) << where;
                            else
                                expectStored<F>(readComp<F>(r, i, c), ref1D<F>(readComp<F>(before, i, src), tracks[index], s),
                                                where + " in " + std::to_string(readComp<F>(before, i, src)));
                        }
                    }
                }
}

// Cubes apply to R, G and B of every format but 32-bit integers; float
// pixels with a NaN stay; a given channel is copied as for 1D tables, and
// channel 3 only copies alpha.
TYPED_TEST(LookupApplyFormat, CubesFollowTheTrilinearRuleOrLeave32BitIntegersAlone)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    const RefCube cube = randomCube(6, 11, -0.1f, 1.1f, true);
    const std::vector<double> pre = {0.0, 0.05, 0.3, 0.5, 0.9, 1.0};
    IMB_Lookup luts[3]; // linear, log, after a pre-table
    luts[1].setLogSampling(true);
    luts[2].setType(IMB_LUT_3D_1D);
    luts[2].setTableSize(static_cast<int>(pre.size()));
    std::copy(pre.begin(), pre.end(), luts[2].getRawLUT(T(32)));
    for (int mode = 0; mode < 3; ++mode)
    {
        luts[mode].set3DLUT(cube.n, cube.v.data());
        luts[mode].setDomain(mode == 1 ? 0.02f : mode == 2 ? -0.5f : 0.0f, mode == 2 ? 1.5f : 1.0f);
    }
    for (int mode = 0; mode < 3; ++mode)
        for (int k = 0; k < 4; ++k)
            for (int channel : {-1, 0, 3})
            {
                const IMB_Lookup &lut = luts[mode];
                Settings s = variant(k);
                s.log = mode == 1;
                lut.getDomain(s.dmin, s.dmax);
                IMB_Raster r(PACK_RGBA, F, 31, 4, 1, 1);
                fillRaster<F>(r, 21);
                const IMB_Raster before(r);
                lut.applyLUT(r, s.gamma, s.black, s.white, channel);
                if (F == IMB_INT32)
                {
                    ASSERT_EQ(std::memcmp(r.getPixels(), before.getPixels(), r.getSize()), 0);
                    continue;
                }
                const std::string where =
                    "mode " + std::to_string(mode) + " variant " + std::to_string(k) + " channel " + std::to_string(channel);
                for (int64 i = 0; i < r.getNumPixels(); ++i)
                {
                    double pos[3], out[3];
                    bool hasNan = false;
                    for (int c = 0; c < 3; ++c)
                    {
                        const double x = refIn<F>(readComp<F>(before, i, c), s);
                        hasNan = hasNan || std::isnan(x);
                        pos[c] = mode == 2   ? 5 * refSample(pre, refPos(x, s, 5))
                                 : mode == 1 ? refPos(x, s, 5)
                                             : 5 * (std::isnan(x) ? 0.0 : std::min(std::max(x, 0.0), 1.0));
                    }
                    cube.lookup(pos, out);
                    for (int c = 0; c < 4; ++c)
                    {
                        const int src = c == 3 ? 3 : channel < 0 ? c : channel;
                        if (src == 3 || hasNan)
                            ASSERT_TRUE(sameComp(r, before, i, c, src)) << where;
                        else
                            expectStored<F>(readComp<F>(r, i, c), refOut<F>(out[src], s), where);
                    }
                }
            }
}

std::atomic<int> theJobs{0};

TYPED_TEST(LookupApplyFormat, RastersAboveOneHundredThousandPixelsSplitWithIdenticalResults)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    Settings s;
    s.gamma = 0.8f;
    std::vector<double> tracks[4];
    const IMB_Lookup lut = makeTable(IMB_LUT_RGB, 257, tracks, s);
    BAS_ThreadedAlgorithm::setRunObserver([](int jobs) { theJobs = jobs; });
    for (int64 w : {100000, 100001, 300000})
    {
        IMB_Raster big(PACK_RGB, F, w, 1, 1, 1);
        fillRaster<F>(big, 3);
        const IMB_Raster before(big);
        theJobs = 0;
        lut.applyLUT(big, s.gamma, s.black, s.white, -1);
        EXPECT_EQ(theJobs.load(), w <= 100000 ? 1 : BAS_ThreadedAlgorithm::getPoolConcurrency()) << w;
        // The same pixels in small pieces take the single-thread direct path.
        for (int64 x0 = 0; x0 < w; x0 += 25000)
        {
            IMB_Raster piece(before, x0, 0, std::min(x0 + 24999, w - 1), 0);
            lut.applyLUT(piece, s.gamma, s.black, s.white, -1);
            for (int64 x = x0; x < std::min(x0 + 25000, w); ++x)
                ASSERT_EQ(std::memcmp(big.getPixel(x, 0, 0), piece.getPixel(x - x0, 0, 0), 3 * imbDefinesDepth[F]), 0)
                    << w << " at " << x;
        }
    }
    BAS_ThreadedAlgorithm::setRunObserver(nullptr);
}

// Float cubes on RGBA give exactly what eval3DLUT (and evalLUT) gives for
// each pixel, whichever way the pixels are grouped, including fractions
// within 1e-5 of a sample (taken as is), grid points, values outside [0, 1]
// and NaN pixels; log-sampled cubes and cubes after a pre-table within 1e-5.
TEST(LookupApply, FloatCubeApplicationIsEvaluationBitForBit)
{
    const RefCube c = randomCube(9, 23, -0.2f, 1.2f, true);
    IMB_Lookup luts[3];
    luts[1].setLogSampling(true);
    luts[2].setType(IMB_LUT_3D_1D);
    luts[2].setTableSize(5);
    const double pre[5] = {0.0, 0.1, 0.5, 0.6, 1.0};
    std::copy(pre, pre + 5, luts[2].getRawLUT(T(32)));
    for (IMB_Lookup &lut : luts)
    {
        lut.set3DLUT(c.n, c.v.data());
        lut.setDomain(&lut == luts ? 0.0f : 0.01f, &lut == luts ? 1.0f : 2.0f);
        IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 83, 5, 1, 1);
        std::mt19937 rng(7);
        std::uniform_real_distribution<float> any(-0.1f, 2.1f);
        std::uniform_int_distribution<int> grid(0, c.n - 1), kind(0, 5);
        float *px = static_cast<float *>(r.getPixels());
        for (int64 i = 0; i < 4 * r.getNumPixels(); ++i)
        {
            const float g = float(grid(rng)) / float(c.n - 1);
            const int k = kind(rng); // a grid point, within 1e-5 of one, NaN or anything
            px[i] = k == 0 ? g : k == 1 ? g + 3e-7f : k == 2 && i % 97 == 0 ? NAN : k == 2 ? g : any(rng);
        }
        const IMB_Raster before(r);
        lut.applyLUT(r);
        const float *in = static_cast<const float *>(before.getPixels());
        for (int64 i = 0; i < r.getNumPixels(); ++i)
        {
            float want[4] = {in[4 * i], in[4 * i + 1], in[4 * i + 2], in[4 * i + 3]}, viaEval[3];
            std::copy(want, want + 3, viaEval);
            if (!std::isnan(want[0]) && !std::isnan(want[1]) && !std::isnan(want[2]))
                lut.eval3DLUT(want), lut.evalLUT(viaEval);
            if (&lut == luts)
                ASSERT_EQ(std::memcmp(px + 4 * i, want, sizeof want), 0) << "pixel " << i;
            for (int k = 0; k < 4; ++k) // the log and pre-table inputs differ in the last bits
                ASSERT_TRUE(std::fabs(px[4 * i + k] - want[k]) <= 1e-5 || std::memcmp(px + 4 * i + k, want + k, 4) == 0)
                    << lut.getType() << " pixel " << i;
            EXPECT_EQ(std::memcmp(want, viaEval, sizeof viaEval), 0) << lut.getType() << " pixel " << i;
        }
    }
}

TEST(LookupApply, TablesLeaveRastersWithoutMemoryOrChannelsAlone)
{
    IMB_Lookup gamma(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 64);
    IMB_Raster none(PACK_RGBA, IMB_INT8, 4, 4, 0, 0), unset;
    gamma.applyLUT(none); // no memory: nothing happens
    gamma.applyLUT(unset);
    EXPECT_FALSE(none.isValid());

    IMB_Raster r(PACK_RGBA, IMB_INT8, 4, 4, 1, 1);
    std::memset(r.getPixels(), 100, r.getSize());
    IMB_Lookup empty, noCube;
    noCube.setType(IMB_LUT_3D);
    empty.applyLUT(r);
    noCube.applyLUT(r);
    for (int64 i = 0; i < r.getSize(); ++i)
        ASSERT_EQ(static_cast<uint8 *>(r.getPixels())[i], 100);

    // A given channel is spread even without any table.
    IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 3, 2, 1, 1);
    fillRaster<IMB_FLOAT32>(f, 1);
    const IMB_Raster fBefore(f);
    empty.applyLUT(f, 1.0f, 0.0f, 1.0f, 2);
    for (int64 i = 0; i < 6; ++i)
        for (int c = 0; c < 4; ++c)
            EXPECT_TRUE(sameComp(f, fBefore, i, c, c == 3 ? 3 : 2));

    // A single-channel raster gets only the red table; the slack after the
    // pixels is not touched.
    IMB_Raster single(PACK_SINGLE, IMB_INT8, 3, 1, 1, 1);
    std::memset(single.getPixels(), 255, 3 + 3 + 16);
    gamma.applyLUT(single);
    EXPECT_EQ(static_cast<uint8 *>(single.getPixels())[2], 255);
    EXPECT_EQ(static_cast<uint8 *>(single.getPixels())[3], 255);

    // An empty domain reads sample 0; a NaN gamma does not crash.
    IMB_Lookup flat(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 16);
    flat.setDomain(0.5f, 0.5f);
    IMB_Raster rgb(PACK_RGB, IMB_FLOAT32, 4, 1, 1, 1);
    for (int i = 0; i < 12; ++i)
        static_cast<float *>(rgb.getPixels())[i] = 0.1f * i;
    flat.applyLUT(rgb, std::numeric_limits<float>::quiet_NaN());
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(static_cast<float *>(rgb.getPixels())[i], 0.0f);
}

// Concurrent applications of shared tables, and applications started from
// the pool's own jobs (a job waiting for its table's workers may be lent
// another job, which applies another table on the same thread in the middle
// of the first), match sequential ones.
TEST(LookupApply, ConcurrentAndNestedApplicationsMatchSequentialOnes)
{
    const int kJobs = 12;
    const RefCube c = randomCube(17, 5, -0.1f, 1.1f, true);
    std::vector<IMB_Lookup> tables;
    std::vector<IMB_Raster> expected, work;
    for (int t = 0; t < kJobs; ++t)
    {
        if (t % 4 == 3)
            tables.emplace_back(), tables.back().set3DLUT(17, c.v.data());
        else
            tables.emplace_back(IMB_Lookup::BuildGamma, 1.0 + 0.1 * t, IMB_Lookup::FORWARD, 256 + 32 * t);
        IMB_Raster r(PACK_RGBA, t % 2 ? IMB_FLOAT32 : IMB_INT16, 401, 251, 1, 1); // 100,651 pixels
        t % 2 ? fillRaster<IMB_FLOAT32>(r, 90 + t) : fillRaster<IMB_INT16>(r, 90 + t);
        work.push_back(r);
        expected.push_back(r);
        tables[t].applyLUT(expected[t], 1.5f, 0.0f, 1.0f, -1);
    }
    // Four threads: a curve shared by two, a cube shared by the other two.
    std::vector<IMB_Raster> threaded(work.begin(), work.begin() + 4), threadedWant = threaded;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        tables[t < 2 ? 0 : 3].applyLUT(threadedWant[t], 1.5f, 0.0f, 1.0f, -1);
        threads.emplace_back([&, t] { tables[t < 2 ? 0 : 3].applyLUT(threaded[t], 1.5f, 0.0f, 1.0f, -1); });
    }
    for (auto &th : threads)
        th.join();
    BAS_ThreadedAlgorithm(kJobs).run([&](int j, int) { tables[j].applyLUT(work[j], 1.5f, 0.0f, 1.0f, -1); });
    for (int t = 0; t < kJobs; ++t)
    {
        EXPECT_EQ(std::memcmp(work[t].getPixels(), expected[t].getPixels(), work[t].getSize()), 0) << t;
        if (t < 4)
            EXPECT_EQ(std::memcmp(threaded[t].getPixels(), threadedWant[t].getPixels(), work[t].getSize()), 0) << t;
    }
}
} // namespace
