// IMB_Lookup application to rasters: every data format against a scalar
// reference of the per-component rules, with and without log sampling,
// gamma, black and white points and single channels; cubes; the thread split.
#include <IMB/IMB.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>
#include <IMB/platform/CRV_Clip.h>

#include <gtest/gtest.h>

#include "LookupTestUtil.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

// Thread-sanitizer builds: the pool's own bookkeeping (task tree folding,
// task construction while offering work, wait contexts, task affinity slots)
// synchronises inside the uninstrumented oneTBB binary, so the sanitizer
// reports its header-side accesses as races. Only frames of that bookkeeping are suppressed; races in
// the kernels or the runner still show, and the runner states its ordering
// with atomics the sanitizer can see.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
extern "C" const char *__tsan_default_suppressions()
{
    return "race:tbb::detail::d1::fold_tree\n"
           "race:tbb::detail::d1::start_for*::finalize\n"
           "race:tbb::detail::d1::start_for*::offer_work\n"
           "race:tbb::detail::d1::wait_context\n"
           "race:tbb::detail::d1::affinity_slot\n";
}
#endif
#endif

namespace
{
using namespace lookup_test;

// --------------------------------------------------------------- formats

// kTol: distance from .5 within which an integer result may round either way.
template <IMB_DataFormat F> struct Fmt;
#define LOOKUP_TEST_FMT(F, V, INT, WHITE, SCALE, TOL)                                                                \
    template <> struct Fmt<F>                                                                                        \
    {                                                                                                                \
        using T = V;                                                                                                 \
        static constexpr bool kInt = INT;                                                                            \
        static constexpr double kWhite = WHITE, kPointScale = SCALE, kTol = TOL;                                     \
    };
LOOKUP_TEST_FMT(IMB_INT8, uint8, true, 255.0, 255.0, 1e-3)
LOOKUP_TEST_FMT(IMB_INT16, uint16, true, 65535.0, 65535.0, 0.15)
LOOKUP_TEST_FMT(IMB_INT32, uint32, true, 4294967295.0, 2147483648.0, 1e-3)
LOOKUP_TEST_FMT(IMB_FLOAT32, float, false, 1.0, 1.0, 0.0)
LOOKUP_TEST_FMT(IMB_FLOAT16, half16, false, 1.0, 1.0, 0.0)
#undef LOOKUP_TEST_FMT

// Component c of pixel i of `a` has the same bytes as component cb of `b`.
bool sameComp(const IMB_Raster &a, const IMB_Raster &b, int64 i, int c, int cb)
{
    const int64 w = a.getXres();
    return std::memcmp(a.getPixel(i % w, i / w, c), b.getPixel(i % w, i / w, cb), imbDefinesDepth[a.getFormat()]) == 0;
}

template <IMB_DataFormat F> double readComp(const IMB_Raster &r, int64 i, int c)
{
    using V = typename Fmt<F>::T;
    const V *p = static_cast<const V *>(r.getPixel(i % r.getXres(), i / r.getXres(), c));
    return static_cast<double>(*p);
}
template <> double readComp<IMB_FLOAT16>(const IMB_Raster &r, int64 i, int c)
{
    const half16 *p = static_cast<const half16 *>(r.getPixel(i % r.getXres(), i / r.getXres(), c));
    return static_cast<float>(*p);
}

template <IMB_DataFormat F> void writeComp(IMB_Raster &r, int64 i, int c, double v)
{
    using V = typename Fmt<F>::T;
    V *p = static_cast<V *>(r.getPixel(i % r.getXres(), i / r.getXres(), c));
    if constexpr (Fmt<F>::kInt)
        *p = static_cast<V>(v);
    else
        *p = V(static_cast<float>(v));
}

// Values that hit the ends, halves and, for floats, out-of-range and NaN.
template <IMB_DataFormat F> std::vector<double> testValues(int count, unsigned seed)
{
    std::vector<double> v;
    std::mt19937 gen(seed);
    if constexpr (Fmt<F>::kInt)
    {
        const double w = Fmt<F>::kWhite;
        v = {0, 1, std::floor(w / 2), std::floor(w / 2) + 1, w - 1, w, std::floor(w * 0.1), std::floor(w * 0.9)};
        std::uniform_real_distribution<double> d(0, w);
        while (static_cast<int>(v.size()) < count)
            v.push_back(std::floor(d(gen)));
    }
    else
    {
        v = {0.0, 1.0, 0.5, 0.25, -0.5, 1.5, std::numeric_limits<double>::quiet_NaN(),
             std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(), 0.001};
        std::uniform_real_distribution<double> d(-0.2, 1.2);
        while (static_cast<int>(v.size()) < count)
            v.push_back(F == IMB_FLOAT16 ? static_cast<float>(half16(static_cast<float>(d(gen)))) : static_cast<float>(d(gen)));
    }
    v.resize(count);
    return v;
}

template <IMB_DataFormat F> void fillRaster(IMB_Raster &r, unsigned seed)
{
    const int64 n = r.getNumPixels();
    const int ch = imbDefinesPComp[r.getPacking()];
    for (int c = 0; c < ch; ++c)
    {
        const std::vector<double> v = testValues<F>(static_cast<int>(n), seed + 17 * c);
        for (int64 i = 0; i < n; ++i)
            writeComp<F>(r, i, c, v[(i * 7 + c * 3) % n]);
    }
}

// --------------------------------------------------------------- the reference rules

struct Settings
{
    bool log = false;
    float gamma = 1.0f;
    float black = 0.0f, white = 1.0f;
    float dmin = 0.0f, dmax = 1.0f;
    std::string str() const
    {
        std::ostringstream s;
        s << "log " << log << " gamma " << gamma << " points " << black << "," << white << " domain " << dmin
          << "," << dmax;
        return s.str();
    }
};

double refLog(double x) { return x > 0 ? std::log(x) : 0.0; }

// Scaled points of an integer format.
template <IMB_DataFormat F> void refPoints(const Settings &s, double &b, double &w)
{
    if (F == IMB_INT32)
    {
        b = std::floor(s.black * 2147483648.0f + 0.5f);
        w = std::floor(s.white * 2147483648.0f + 0.5f);
    }
    else
    {
        b = std::floor(s.black * Fmt<F>::kPointScale + 0.5);
        w = std::floor(s.white * Fmt<F>::kPointScale + 0.5);
    }
}

template <IMB_DataFormat F> bool identityPoints(const Settings &s)
{
    return !Fmt<F>::kInt || (s.black == 0.0f && s.white == 1.0f);
}

// Stored value -> table units.
template <IMB_DataFormat F> double refIn(double v, const Settings &s)
{
    if (!Fmt<F>::kInt)
        return v;
    if (identityPoints<F>(s))
        return v / Fmt<F>::kWhite;
    double b, w;
    refPoints<F>(s, b, w);
    return (v - b) / (w == b ? 1.0 : w - b);
}

// Table units -> stored value before rounding (integers) or as stored (floats).
template <IMB_DataFormat F> double refOut(double y, const Settings &s)
{
    if (s.gamma != 1.0f)
        y = y > 0 ? std::pow(y, 1.0 / std::max(s.gamma, 1e-6f)) : y;
    if (!Fmt<F>::kInt)
        return y;
    if (identityPoints<F>(s))
        return y * Fmt<F>::kWhite;
    double b, w;
    refPoints<F>(s, b, w);
    return y * (w - b) + b;
}

template <IMB_DataFormat F> double ref1D(double v, const std::vector<double> &t, const Settings &s)
{
    double x = refIn<F>(v, s);
    x = std::isnan(x) ? s.dmin : std::min(std::max(x, static_cast<double>(s.dmin)), static_cast<double>(s.dmax));
    const int last = static_cast<int>(t.size()) - 1;
    const double pos = s.log ? (refLog(x) - refLog(s.dmin)) * last / (refLog(s.dmax) - refLog(s.dmin))
                             : (x - s.dmin) * last / (s.dmax - s.dmin);
    return refOut<F>(refSample(t, pos), s);
}

// Compares a stored result with the reference value (before rounding).
template <IMB_DataFormat F> void expectStored(double got, double want, const std::string &where)
{
    if constexpr (Fmt<F>::kInt)
    {
        const double e = std::min(std::max(std::floor(want + 0.5), 0.0), Fmt<F>::kWhite);
        if (got == e)
            return;
        const double frac = want - std::floor(want);
        const bool tie = std::fabs(frac - 0.5) < Fmt<F>::kTol && std::fabs(got - e) == 1.0;
        EXPECT_TRUE(tie) << where << ": got " << got << ", want " << e << " (from " << want << ")";
    }
    else if (F == IMB_FLOAT16)
    {
        const float w = static_cast<float>(half16(static_cast<float>(want)));
        if (std::isnan(w) || std::isinf(w))
            EXPECT_EQ(static_cast<float>(got), w) << where;
        else
            EXPECT_NEAR(got, w, std::max(1e-3 * std::fabs(w), 1e-6)) << where;
    }
    else
    {
        if (std::isnan(want))
            EXPECT_TRUE(std::isnan(got)) << where;
        else
            EXPECT_NEAR(got, want, 2e-6 * std::max(1.0, std::fabs(want))) << where;
    }
}

// Tables of values exactly representable in float.
std::vector<double> makeTrack(int n, int kind)
{
    std::vector<double> t(n);
    for (int i = 0; i < n; ++i)
    {
        const double x = static_cast<double>(i) / (n - 1);
        const double y = kind == 0 ? x * x : kind == 1 ? std::sqrt(x) : kind == 2 ? 1.0 - 0.8 * x : 0.1 + 1.1 * x;
        t[i] = std::round(y * 4096.0) / 4096.0;
    }
    return t;
}

// An "RGB" table (alpha untouched) or an "All" table of n samples.
IMB_Lookup makeTable(int type, int n, std::vector<double> tracks[4], const Settings &s)
{
    IMB_Lookup lut;
    lut.setType(T(type));
    if (s.log)
        lut.setLogSampling(true);
    lut.setTableSize(n);
    lut.setDomain(s.dmin, s.dmax);
    CRV_Clip clip;
    clip.setTrackLength(n);
    for (int c = 0; c < lut.getNumChannels(); ++c)
    {
        tracks[c] = makeTrack(n, c);
        std::copy(tracks[c].begin(), tracks[c].end(), clip.addTrack("t")->getData());
    }
    lut.setLUT(clip);
    return lut;
}

// --------------------------------------------------------------- typed tests

template <typename Tag> class LookupApplyFormat : public ::testing::Test
{
};
template <IMB_DataFormat F> struct FormatTag
{
    static constexpr IMB_DataFormat value = F;
};
using Formats = ::testing::Types<FormatTag<IMB_INT8>, FormatTag<IMB_INT16>, FormatTag<IMB_INT32>,
                                 FormatTag<IMB_FLOAT32>, FormatTag<IMB_FLOAT16>>;
struct FormatNames
{
    template <typename Tag> static std::string GetName(int) { return IMBdataFormat(Tag::value); }
};
TYPED_TEST_SUITE(LookupApplyFormat, Formats, FormatNames);

std::vector<Settings> allSettings()
{
    std::vector<Settings> out;
    for (bool log : {false, true})
        for (float gamma : {1.0f, 2.2f})
            for (int pts = 0; pts < 2; ++pts)
            {
                Settings s;
                s.log = log;
                s.gamma = gamma;
                if (pts)
                    s.black = 0.1f, s.white = 0.9f;
                if (log)
                    s.dmin = 0.01f, s.dmax = 1.0f;
                else if (pts)
                    s.dmin = -0.25f, s.dmax = 1.25f;
                out.push_back(s);
            }
    return out;
}

TYPED_TEST(LookupApplyFormat, OneDTablesFollowTheScalarRuleForEveryVariantAndPacking)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    for (const Settings &s : allSettings())
        for (IMB_Packing packing : {PACK_RGBA, PACK_RGB_NI, PACK_RGB, PACK_SINGLE})
            for (int type : {IMB_LUT_RGB, IMB_LUT_ALL})
            {
                std::vector<double> tracks[4];
                const IMB_Lookup lut = makeTable(type, 33, tracks, s);
                IMB_Raster r(packing, F, 29, 3, 1, 1);
                fillRaster<F>(r, 5);
                const IMB_Raster before(r);
                lut.applyLUT(r, s.gamma, s.black, s.white, -1);
                const int ch = imbDefinesPComp[packing];
                for (int c = 0; c < ch; ++c)
                    for (int64 i = 0; i < r.getNumPixels(); ++i)
                    {
                        const double in = readComp<F>(before, i, c), got = readComp<F>(r, i, c);
                        const std::string where = s.str() + " packing " + IMBpacking(packing) + " type " +
                                                  std::to_string(type) + " comp " + std::to_string(c) +
                                                  " in " + std::to_string(in);
                        if (c == 3 && type == IMB_LUT_RGB)
                            ASSERT_TRUE(sameComp(r, before, i, 3, 3)) << where;
                        else
                            expectStored<F>(got, ref1D<F>(in, tracks[type == IMB_LUT_ALL ? 0 : c], s), where);
                    }
            }
}

TYPED_TEST(LookupApplyFormat, OneChannelIsComputedAndCopiedIntoTheColourChannels)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    Settings s;
    s.gamma = 1.8f;
    std::vector<double> tracks[4];
    for (int channel : {1, 3, 9})
    {
        const IMB_Lookup lut = makeTable(IMB_LUT_RGBA, 17, tracks, s);
        IMB_Lookup withAlpha = lut;
        withAlpha.setNumChannels(4); // "RGBA" tables need their alpha track added
        double *a = withAlpha.getRawLUT(IMB_LUT_A);
        tracks[3] = makeTrack(17, 3);
        std::copy(tracks[3].begin(), tracks[3].end(), a);
        IMB_Raster r(PACK_RGBA, F, 13, 2, 1, 1);
        fillRaster<F>(r, 9);
        const IMB_Raster before(r);
        withAlpha.applyLUT(r, s.gamma, 0.0f, 1.0f, channel);
        const int src = std::min(channel, 3);
        for (int64 i = 0; i < r.getNumPixels(); ++i)
        {
            const double want = ref1D<F>(readComp<F>(before, i, src), tracks[src], s);
            for (int c = 0; c < 3; ++c)
                expectStored<F>(readComp<F>(r, i, c), want, "channel " + std::to_string(channel));
            if (src == 3)
                expectStored<F>(readComp<F>(r, i, 3), want, "alpha");
            else
                ASSERT_TRUE(sameComp(r, before, i, 3, 3));
        }
    }
}

enum class CubeMode
{
    Linear,
    Log,
    PreTable
};

TYPED_TEST(LookupApplyFormat, CubesFollowTheTrilinearRuleOrLeave32BitIntegersAlone)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    const RefCube cube = randomCube(6, 11, -0.1f, 1.1f, true);
    const std::vector<double> pre = {0.0, 0.05, 0.3, 0.5, 0.9, 1.0};
    for (CubeMode mode : {CubeMode::Linear, CubeMode::Log, CubeMode::PreTable})
        for (float gamma : {1.0f, 2.2f})
            for (int pts = 0; pts < 2; ++pts)
            {
                Settings s;
                s.gamma = gamma;
                if (pts)
                    s.black = 0.05f, s.white = 0.95f;
                IMB_Lookup lut;
                if (mode == CubeMode::PreTable)
                {
                    lut.setType(IMB_LUT_3D_1D);
                    lut.setTableSize(static_cast<int>(pre.size()));
                    std::copy(pre.begin(), pre.end(), lut.getRawLUT(T(32)));
                    s.dmin = -0.5f, s.dmax = 1.5f;
                }
                lut.set3DLUT(cube.n, cube.v.data());
                if (mode == CubeMode::Log)
                {
                    lut.setLogSampling(true);
                    s.dmin = 0.02f, s.dmax = 1.0f;
                }
                lut.setDomain(s.dmin, s.dmax);

                IMB_Raster r(PACK_RGBA, F, 31, 4, 1, 1);
                fillRaster<F>(r, 21);
                const IMB_Raster before(r);
                lut.applyLUT(r, s.gamma, s.black, s.white, -1);
                if (F == IMB_INT32)
                {
                    ASSERT_EQ(std::memcmp(r.getPixels(), before.getPixels(), r.getSize()), 0);
                    continue;
                }
                for (int64 i = 0; i < r.getNumPixels(); ++i)
                {
                    double in[3], pos[3], out[3];
                    bool hasNan = false;
                    for (int c = 0; c < 3; ++c)
                    {
                        in[c] = readComp<F>(before, i, c);
                        hasNan = hasNan || std::isnan(in[c]);
                        double x = refIn<F>(in[c], s);
                        if (mode == CubeMode::Log)
                        {
                            x = std::isnan(x) ? s.dmin : std::min(std::max(x, double(s.dmin)), double(s.dmax));
                            pos[c] = (std::log(x) - std::log(s.dmin)) * 5 / (std::log(s.dmax) - std::log(s.dmin));
                        }
                        else if (mode == CubeMode::PreTable)
                        {
                            x = std::isnan(x) ? s.dmin : std::min(std::max(x, double(s.dmin)), double(s.dmax));
                            pos[c] = 5 * refSample(pre, (x - s.dmin) * 5 / (s.dmax - s.dmin));
                        }
                        else
                            pos[c] = 5 * (std::isnan(x) ? 0.0 : std::min(std::max(x, 0.0), 1.0));
                    }
                    cube.lookup(pos, out);
                    const std::string where = "mode " + std::to_string(int(mode)) + " " + s.str();
                    for (int c = 0; c < 3; ++c)
                    {
                        if (hasNan) // float pixels with a NaN are left unchanged
                            ASSERT_TRUE(sameComp(r, before, i, c, c)) << where;
                        else
                            expectStored<F>(readComp<F>(r, i, c), refOut<F>(out[c], s), where);
                    }
                    ASSERT_TRUE(sameComp(r, before, i, 3, 3));
                }
            }
}

std::atomic<int> theJobs{0};
void recordJobs(int jobs) { theJobs = jobs; }

TYPED_TEST(LookupApplyFormat, RastersAboveOneHundredThousandPixelsSplitWithIdenticalResults)
{
    constexpr IMB_DataFormat F = TypeParam::value;
    Settings s;
    s.gamma = 0.8f;
    std::vector<double> tracks[4];
    const IMB_Lookup lut = makeTable(IMB_LUT_RGB, 257, tracks, s);
    BAS_ThreadedAlgorithm::setRunObserver(recordJobs);
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
        for (int64 i = 0; i < w; i += 997)
            for (int c = 0; c < 3; ++c)
                expectStored<F>(readComp<F>(big, i, c), ref1D<F>(readComp<F>(before, i, c), tracks[c], s), "big");
    }
    BAS_ThreadedAlgorithm::setRunObserver(nullptr);
}

// --------------------------------------------------------------- single cases

// Float cubes on RGBA give exactly what eval3DLUT gives for each pixel,
// whichever way the pixels are grouped, including fractions within 1e-5 of a
// sample (taken as is), grid points, values outside [0, 1] and NaN pixels.
TEST(LookupApply, FloatCubeApplicationIsEvaluationBitForBit)
{
    const RefCube c = randomCube(9, 23, -0.2f, 1.2f, true);
    IMB_Lookup lut;
    lut.set3DLUT(c.n, c.v.data());
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 83, 5, 1, 1);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> any(-0.1f, 1.1f);
    std::uniform_int_distribution<int> grid(0, c.n - 1), kind(0, 5);
    float *px = static_cast<float *>(r.getPixels());
    for (int64 i = 0; i < 4 * r.getNumPixels(); ++i)
    {
        const float g = float(grid(rng)) / float(c.n - 1);
        switch (kind(rng))
        {
        case 0: px[i] = g; break;
        case 1: px[i] = g + 3e-7f; break; // a fraction within 1e-5 of the sample
        case 2: px[i] = i % 97 == 0 ? std::numeric_limits<float>::quiet_NaN() : g; break;
        default: px[i] = any(rng); break;
        }
    }
    const IMB_Raster before(r);
    lut.applyLUT(r);
    const float *in = static_cast<const float *>(before.getPixels());
    for (int64 i = 0; i < r.getNumPixels(); ++i)
    {
        float want[4] = {in[4 * i], in[4 * i + 1], in[4 * i + 2], in[4 * i + 3]};
        if (!std::isnan(want[0]) && !std::isnan(want[1]) && !std::isnan(want[2]))
            lut.eval3DLUT(want);
        ASSERT_EQ(std::memcmp(px + 4 * i, want, sizeof want), 0) << "pixel " << i;
    }
}

TEST(LookupApply, ChannelThreeWithACubeOnlyCopiesAlpha)
{
    const RefCube cube = randomCube(4, 2, -0.1f, 1.1f, true);
    IMB_Lookup lut;
    lut.set3DLUT(4, cube.v.data());
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 7, 3, 1, 1);
    fillRaster<IMB_FLOAT32>(r, 4);
    const IMB_Raster before(r);
    lut.applyLUT(r, 1.0f, 0.0f, 1.0f, 3);
    for (int64 i = 0; i < r.getNumPixels(); ++i)
    {
        const float a = static_cast<const float *>(before.getPixel(i % 7, i / 7, 3))[0];
        for (int c = 0; c < 4; ++c)
        {
            const float got = static_cast<const float *>(r.getPixel(i % 7, i / 7, c))[0];
            if (std::isnan(a))
                EXPECT_TRUE(std::isnan(got));
            else
                EXPECT_EQ(got, a);
        }
    }
}

TEST(LookupApply, CubeChannelIsAppliedThenSpread)
{
    const RefCube cube = randomCube(4, 3, -0.1f, 1.1f, true);
    IMB_Lookup lut;
    lut.set3DLUT(4, cube.v.data());
    IMB_Raster r(PACK_RGB, IMB_FLOAT32, 5, 1, 1, 1);
    IMB_Raster full(PACK_RGB, IMB_FLOAT32, 5, 1, 1, 1);
    for (int i = 0; i < 15; ++i)
        static_cast<float *>(r.getPixels())[i] = static_cast<float *>(full.getPixels())[i] = 0.07f * i;
    lut.applyLUT(full);
    lut.applyLUT(r, 1.0f, 0.0f, 1.0f, 2);
    for (int i = 0; i < 5; ++i)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(static_cast<float *>(r.getPixels())[3 * i + c], static_cast<float *>(full.getPixels())[3 * i + 2]);
}

TEST(LookupApply, TablesLeaveRastersWithoutMemoryOrChannelsAlone)
{
    IMB_Lookup gamma(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 64);
    IMB_Raster none(PACK_RGBA, IMB_INT8, 4, 4, 0, 0);
    gamma.applyLUT(none); // no memory: nothing happens
    EXPECT_FALSE(none.isValid());
    IMB_Raster unset;
    gamma.applyLUT(unset);

    IMB_Raster r(PACK_RGBA, IMB_INT8, 4, 4, 1, 1);
    std::memset(r.getPixels(), 100, r.getSize());
    IMB_Lookup empty;
    empty.applyLUT(r);
    IMB_Lookup alphaOnly;
    alphaOnly.setType(IMB_LUT_A);
    alphaOnly.setTableSize(2); // four tracks of zeros, only alpha is served
    IMB_Lookup noCube;
    noCube.setType(IMB_LUT_3D);
    noCube.applyLUT(r);
    for (int64 i = 0; i < r.getSize(); ++i)
        ASSERT_EQ(static_cast<uint8 *>(r.getPixels())[i], 100);
    alphaOnly.applyLUT(r);
    for (int64 i = 0; i < r.getSize(); ++i)
        ASSERT_EQ(static_cast<uint8 *>(r.getPixels())[i], i % 4 == 3 ? 0 : 100) << i;

    // A given channel without a table is not mapped but still spread.
    IMB_Lookup redOnly;
    redOnly.setType(IMB_LUT_R);
    redOnly.setTableSize(8);
    for (const IMB_Lookup *lut : {&redOnly, &empty})
    {
        IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 3, 2, 1, 1);
        fillRaster<IMB_FLOAT32>(f, 1);
        const IMB_Raster fBefore(f);
        lut->applyLUT(f, 1.0f, 0.0f, 1.0f, 2);
        for (int64 i = 0; i < 6; ++i)
            for (int c = 0; c < 4; ++c)
                EXPECT_TRUE(sameComp(f, fBefore, i, c, c == 3 ? 3 : 2));
    }

    // A single-channel raster gets only the red table; the slack after the
    // pixels is not touched.
    IMB_Raster single(PACK_SINGLE, IMB_INT8, 3, 1, 1, 1);
    std::memset(single.getPixels(), 255, 3 + 3 + 16);
    gamma.applyLUT(single);
    EXPECT_EQ(static_cast<uint8 *>(single.getPixels())[2], 255);
    EXPECT_EQ(static_cast<uint8 *>(single.getPixels())[3], 255);
}

TEST(LookupApply, EmptyDomainsAndNanGammaDoNotCrash)
{
    IMB_Lookup lut(IMB_Lookup::BuildGamma, 2.2, IMB_Lookup::FORWARD, 16);
    lut.setDomain(0.5f, 0.5f); // every value reads sample 0
    IMB_Raster r(PACK_RGB, IMB_FLOAT32, 4, 1, 1, 1);
    for (int i = 0; i < 12; ++i)
        static_cast<float *>(r.getPixels())[i] = 0.1f * i;
    lut.applyLUT(r, std::numeric_limits<float>::quiet_NaN());
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(static_cast<float *>(r.getPixels())[i], 0.0f);
}

// --------------------------------------------------------------- threads

TEST(LookupApply, ConcurrentApplicationsOfOneTableMatchSequentialOnes)
{
    IMB_Lookup curve(IMB_Lookup::BuildSRGB, IMB_Lookup::FORWARD, 1024);
    const RefCube c = randomCube(17, 5, -0.1f, 1.1f, true);
    IMB_Lookup cube;
    cube.set3DLUT(17, c.v.data());
    const int kThreads = 4;
    std::vector<IMB_Raster> expected, work;
    for (int t = 0; t < kThreads; ++t)
    {
        IMB_Raster r(PACK_RGBA, t % 2 ? IMB_FLOAT32 : IMB_INT16, 401, 251, 1, 1); // 100,651 pixels
        if (t % 2)
            fillRaster<IMB_FLOAT32>(r, 40 + t);
        else
            fillRaster<IMB_INT16>(r, 40 + t);
        work.push_back(r);
        expected.push_back(r);
    }
    for (int t = 0; t < kThreads; ++t)
        (t < 2 ? curve : cube).applyLUT(expected[t], 1.5f, 0.0f, 1.0f, -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] { (t < 2 ? curve : cube).applyLUT(work[t], 1.5f, 0.0f, 1.0f, -1); });
    for (auto &th : threads)
        th.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(std::memcmp(work[t].getPixels(), expected[t].getPixels(), work[t].getSize()), 0) << t;
}

// Applications started from the pool's own jobs: a job waiting for its
// table's workers may be lent another job, which applies another table on
// the same thread in the middle of the first.
TEST(LookupApply, ApplicationsNestedInPoolJobsKeepTheirOwnTables)
{
    const int kJobs = 12;
    std::vector<IMB_Lookup> tables;
    std::vector<IMB_Raster> expected, work;
    for (int t = 0; t < kJobs; ++t)
    {
        tables.emplace_back(IMB_Lookup::BuildGamma, 1.0 + 0.1 * t, IMB_Lookup::FORWARD, 256 + 32 * t);
        IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 401, 251, 1, 1);
        fillRaster<IMB_FLOAT32>(r, 90 + t);
        work.push_back(r);
        expected.push_back(r);
        tables[t].applyLUT(expected[t]);
    }
    BAS_ThreadedAlgorithm(kJobs).run([&](int j, int) { tables[j].applyLUT(work[j]); });
    for (int t = 0; t < kJobs; ++t)
        EXPECT_EQ(std::memcmp(work[t].getPixels(), expected[t].getPixels(), work[t].getSize()), 0) << t;
}
} // namespace
