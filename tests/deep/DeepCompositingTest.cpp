// Running composites and their inverse, full opacity, segments and combine.
// Composites are checked over many random lists against a plain reference of
// the rules that walks one channel and one component at a time; the library
// walks every channel sample by sample and forms the factors once per
// sample, and the results must match to the bit.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using namespace deeptest;
using DSL = IMB_DeepSampleList;
using Planes = std::vector<std::vector<float>>;

// Of (opacity, `ot` floats), C (3), X (4), id (1, ordinal).
ChannelsPtr layout(int ot) { return channels({{"Of", ot}, {"C", 3}, {"X", 4}, {"id", 1, true}}); }

// A sample of layout(1): opacity a, colour c in every component of C and X.
S smp(float zf, float zb, float a, float c, float id, uint8 flags = 0)
{
    return S{zf, zb, {a, c, c, c, c, c, c, c, id}, flags, ~0ull};
}

// A sample of layout(3) with only its opacity set.
S op3(float a0, float a1, float a2) { return S{0, 0, {a0, a1, a2, 0, 0, 0, 0, 0, 0, 0, 0}, 0, 0}; }

// The opacity of component c of sample i, read from the opacity plane `op`
// of tuple size ot (1, 3 or more: beyond three, the mean of the first three).
float opacityFor(const std::vector<float> &op, int ot, int i, int c)
{
    const float *a = op.data() + static_cast<std::size_t>(i) * ot;
    if (ot == 1 || c < 3)
        return a[ot == 1 ? 0 : c];
    const float sum = a[0] + a[1] + a[2];
    return static_cast<float>(static_cast<double>(sum) * 0.3333333333333333);
}

// One channel with the running rule (front to back) or its inverse (back to
// front), reading the opacity plane as it is at that moment.
void refChannel(bool forward, std::vector<float> &v, int t, const std::vector<float> &op, int ot, int count)
{
    for (int step = 1; step < count; ++step)
    {
        const int i = forward ? step : count - step;
        for (int c = 0; c < t; ++c)
        {
            float &cur = v[static_cast<std::size_t>(i) * t + c];
            const float prev = v[static_cast<std::size_t>(i - 1) * t + c];
            const float A = opacityFor(op, ot, i - 1, c);
            if (ot == 1 && forward)
            {
                // Deliberately 1 - 1/(1 - A), in double, for a single opacity.
                const double f = A < 1.0f ? 1.0 - 1.0 / (1.0 - static_cast<double>(A)) : 1.0;
                cur = static_cast<float>(f * static_cast<double>(cur) + static_cast<double>(prev));
            }
            else if (ot == 1)
            {
                const double g = !(A >= 1.0f) ? 1.0 / (1.0 - static_cast<double>(A)) : 0.0;
                cur = static_cast<float>(static_cast<double>(cur - prev) * g);
            }
            else if (forward)
            {
                const float scaled = (1.0f - A) * cur;
                cur = scaled + prev;
            }
            else
            {
                const float g = !(A >= 1.0f) ? 1.0f / (1.0f - A) : 0.0f;
                if (g != 1.0f) // deliberately kept after a zero opacity
                    cur = (cur - prev) * g;
            }
        }
    }
}

// Compositing runs the opacity first, each sample reading its already
// composited predecessor; the inverse runs it last, on a copy.
void refComposite(bool forward, Planes &planes, int opacity, const std::vector<int> &sizes, int count)
{
    const int ot = sizes[static_cast<std::size_t>(opacity)];
    std::vector<float> &op = planes[static_cast<std::size_t>(opacity)];
    if (forward)
        refChannel(true, op, ot, op, ot, count);
    for (std::size_t ch = 0; ch < planes.size(); ++ch)
        if (static_cast<int>(ch) != opacity)
            refChannel(forward, planes[ch], sizes[ch], op, ot, count);
    if (!forward)
    {
        const std::vector<float> copy = op;
        refChannel(false, op, ot, copy, ot, count);
    }
}

// Random opacities mixing ordinary values with exact 0 and 1, values above
// 1 and slightly negative ones; colours of either sign.
float randomOpacity(std::mt19937 &rng)
{
    switch (std::uniform_int_distribution<int>(0, 9)(rng))
    {
    case 0: return 0.0f;
    case 1: return 1.0f;
    case 2: return std::uniform_real_distribution<float>(1.0f, 3.0f)(rng);
    case 3: return std::uniform_real_distribution<float>(-0.5f, 0.0f)(rng);
    case 4: return 0.999999f;
    default: return std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
    }
}

class DeepCompositingRandom : public ::testing::TestWithParam<int>
{
};
} // namespace

// Composite, uncomposite, and composite then uncomposite (composited random
// lists reach large and infinite values behind opaque samples), with the
// opacity of size 1, 3 or 4 at every position among channels of tuple sizes
// 3, 1, 4, 2 and 5, the last one ordinal (composited like the rest).
TEST_P(DeepCompositingRandom, CompositeUncompositeAndRoundTripMatchTheRulesToTheBit)
{
    const int ot = GetParam();
    for (int mode = 0; mode < 3; ++mode)
    {
        std::mt19937 rng(1000u * unsigned(mode + 1) + static_cast<unsigned>(ot));
        for (int round = 0; round < (mode == 2 ? 200 : 300); ++round)
        {
            const int opacity = round % 6;
            ChannelsPtr chans(new IMB_DeepChannelList);
            std::vector<int> sizes;
            const int others[] = {3, 1, 4, 2, 5};
            for (int ch = 0, other = 0; ch < 6; ++ch)
            {
                sizes.push_back(ch == opacity ? ot : others[other++]);
                chans->addChannel(("c" + std::to_string(ch)).c_str(), sizes.back(), ch == 5 && ch != opacity);
            }
            // Mostly short lists; now and then one beyond the inline scratch.
            const int count = round % 97 == 5 ? 700 : std::uniform_int_distribution<int>(0, 40)(rng);
            Planes planes(6);
            for (int ch = 0; ch < 6; ++ch)
                for (int n = 0; n < count * sizes[static_cast<std::size_t>(ch)]; ++n)
                    planes[static_cast<std::size_t>(ch)].push_back(
                        ch == opacity ? randomOpacity(rng) : std::uniform_real_distribution<float>(-2.0f, 4.0f)(rng));
            ListPtr l(new DSL(chans, count, mode == 1));
            for (int ch = 0; count > 0 && ch < 6; ++ch)
                std::copy(planes[ch].begin(), planes[ch].end(), l->channelBuffer(ch));
            if (mode != 1)
            {
                l->composite(opacity);
                refComposite(true, planes, opacity, sizes, count);
                EXPECT_TRUE(l->preComposited());
            }
            if (mode != 0)
            {
                l->uncomposite(opacity);
                refComposite(false, planes, opacity, sizes, count);
                EXPECT_FALSE(l->preComposited());
            }
            for (int ch = 0; ch < 6; ++ch)
                for (std::size_t n = 0; n < planes[ch].size(); ++n)
                    ASSERT_TRUE(sameBits(l->channelBuffer(ch)[n], planes[ch][n], true))
                        << "mode " << mode << " round " << round << " channel " << ch << " value " << n << ": "
                        << l->channelBuffer(ch)[n] << ", want " << planes[ch][n];
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OpacityTupleSizes, DeepCompositingRandom, ::testing::Values(1, 3, 4),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return "OpacityOf" + std::to_string(info.param);
                         });

TEST(DeepCompositing, ForceOrAnOpacityIndexOutsideTheListDecideWhetherAnythingChanges)
{
    // A composited list is composited again only when forced; likewise the
    // inverse. An opacity index outside the list changes nothing.
    for (bool composited : {true, false})
    {
        ListPtr l = listOf(layout(1), {smp(0, 0, 0.5f, 1, 1), smp(1, 1, 0.25f, 2, 2)}, composited);
        const std::vector<S> before = samplesOf(l);
        for (int outside : {4, -1})
            composited ? l->uncomposite(outside) : l->composite(outside);
        composited ? l->composite(0, false) : l->uncomposite(0, false);
        EXPECT_EQ(samplesOf(l), before) << composited;
        EXPECT_EQ(l->preComposited(), composited);
        composited ? l->composite(0, true) : l->uncomposite(0, true);
        EXPECT_NE(samplesOf(l), before) << composited;
        EXPECT_EQ(l->preComposited(), composited);
        EXPECT_EQ(l->findFullOpacity(9, 0.1f), 2);
    }
}

TEST(DeepCompositing, FindFullOpacityCountsTheSamplesUpToOpaqueInEveryComponent)
{
    const std::vector<S> mixed = {op3(0.5f, 0.2f, 0.1f), op3(1, 1, 1), op3(0.3f, 0.3f, 0.3f)};
    const std::vector<S> halves(4, op3(0.5f, 0.5f, 0.5f)); // accumulate 0.5, 0.75, 0.875, 0.9375
    const std::vector<S> one = {op3(0, 0, 0)}, none;
    // Samples, composited, threshold, count.
    const std::tuple<const std::vector<S> &, bool, float, int> cases[] = {
        {mixed, false, 1.0f, 2},   {mixed, false, 0.5f, 2},   {mixed, false, 0.05f, 1}, {mixed, true, 1.0f, 2},
        {mixed, true, 0.25f, 2},   {mixed, true, 2.0f, 3},    {halves, false, 0.875f, 3}, {halves, false, 0.8f, 3},
        {halves, false, 0.9f, 4},  {halves, false, 0.75f, 2}, {one, false, 1.0f, 1},    {none, false, 1.0f, 0},
    };
    for (const auto &[samples, composited, threshold, count] : cases)
        EXPECT_EQ(listOf(layout(3), samples, composited)->findFullOpacity(0, threshold), count) << threshold;
    // An empty opacity tuple is full at once, in either form.
    for (bool composited : {true, false})
        EXPECT_EQ(DSL(channels({{"Of", 0}, {"C", 1}}), 3, composited).findFullOpacity(0, 1.0f), 1);
}

TEST(DeepCompositing, ExtractSegmentScalesByTheSquareRootOfTheVolumeRatio)
{
    ChannelsPtr chans = layout(1);
    ListPtr src = listOf(chans, {S{2, 6, {0.5f, 1, 2, 3, 4, 5, 6, 7, 42}, DSL::SAMPLE_VOLUME, 5}});
    ListPtr dst(new DSL(chans, 3));
    dst->extractSegment(0, *src, 0, 1.0f, 10.0f, 123.0f); // whole range: weight exactly 1
    EXPECT_EQ(sampleOf(*dst, 0), sampleOf(*src, 0));

    dst->extractSegment(1, *src, 0, 3.0f, 4.5f);
    const float w = std::sqrt((1.0f - std::exp(-(4.5f - 3.0f))) / (1.0f - std::exp(-(6.0f - 2.0f))));
    EXPECT_EQ(sampleOf(*dst, 1),
              (S{3, 4.5f, {w * 0.5f, w * 1, w * 2, w * 3, w * 4, w * 5, w * 6, w * 7, 42}, DSL::SAMPLE_VOLUME, 5}));

    dst->extractSegment(2, *src, 0, 7.0f, 9.0f); // outside: back < front, a negative ratio
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(sampleOf(*dst, 2), (S{7, 6, {nan, nan, nan, nan, nan, nan, nan, nan, 42}, DSL::SAMPLE_VOLUME, 5}));
}

TEST(DeepCompositing, SplitSegmentsCutsVolumesAtTheOtherListsBoundaries)
{
    ChannelsPtr chans = layout(1);
    const uint8 V = DSL::SAMPLE_VOLUME;
    ListPtr a = listOf(chans, {smp(0, 4, 0.5f, 1, 7, V), smp(5, 5, 0.5f, 2, 8)}, true);
    // A cut at 1 and 3 inside the volume; 4 lies on its back edge and 5 at
    // the surface: no cut.
    ListPtr b = listOf(chans, {smp(1, 3, 0.5f, 0, 0), smp(4, 5, 0.5f, 0, 0)});
    ListPtr s = a->splitSegments(*b);
    ASSERT_EQ(s->sampleCount(), 4);
    EXPECT_TRUE(s->preComposited());
    const float bounds[3][2] = {{0, 1}, {1, 3}, {3, 4}};
    for (int i = 0; i < 3; ++i)
    {
        const float lo = bounds[i][0], hi = bounds[i][1];
        const float w = std::sqrt((1.0f - std::exp(-(hi - lo))) / (1.0f - std::exp(-(4.0f - 0.0f))));
        EXPECT_EQ(sampleOf(*s, i), smp(lo, hi, w * 0.5f, w, 7, V)) << i;
    }
    EXPECT_EQ(sampleOf(*s, 3), sampleOf(*a, 1));

    // A list without boundaries inside the volume (NaN is none) copies it whole.
    ListPtr none = listOf(chans, {smp(10, std::numeric_limits<float>::quiet_NaN(), 0.5f, 0, 0)});
    EXPECT_EQ(samplesOf(a->splitSegments(*none)), samplesOf(a));
}

TEST(DeepCompositing, CombineReturnsAnOperandWhenTheOtherCannotJoin)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = listOf(chans, {smp(0, 0, 0.5f, 1, 1)});
    ListPtr empty(new DSL(chans, 0));
    ListPtr composited = listOf(chans, {smp(0, 0, 0.5f, 1, 1)}, true);
    ListPtr foreign = listOf(layout(3), {op3(0.5f, 0.5f, 0.5f)});
    EXPECT_EQ(DSL::combine(ListPtr(), ListPtr()), ListPtr());
    for (const ListPtr &nothing : {ListPtr(), empty})
    {
        EXPECT_EQ(DSL::combine(nothing, a), a);
        EXPECT_EQ(DSL::combine(a, nothing), a);
    }
    EXPECT_EQ(DSL::combine(a, composited), a);
    EXPECT_EQ(DSL::combine(a, foreign), a);
    // An equal but distinct channel list joins.
    ListPtr both = DSL::combine(a, listOf(layout(1), {smp(0, 0, 0.5f, 2, 2)}));
    ASSERT_TRUE(both);
    EXPECT_EQ(both->sampleCount(), 2);
    EXPECT_EQ(both->channels(), a->channels());
}

TEST(DeepCompositing, CombineInterleavesByMidDepthAndCutsOverlappingVolumes)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = listOf(chans, {smp(1, 1, 0.1f, 0, 1), smp(4, 4, 0.2f, 0, 2), smp(9, 9, 0.3f, 0, 3)}, true);
    ListPtr b = listOf(chans, {smp(2, 2, 0.4f, 0, 4), smp(4, 4, 0.5f, 0, 5)}, true);
    ListPtr c = DSL::combine(a, b);
    EXPECT_TRUE(c->preComposited());
    std::vector<float> ids;
    for (const S &s : samplesOf(c))
        ids.push_back(s.v[8]);
    EXPECT_EQ(ids, (std::vector<float>{1, 4, 2, 5, 3})); // equal depth 4: the first operand first

    const uint8 V = DSL::SAMPLE_VOLUME;
    ListPtr va = listOf(chans, {smp(0, 2, 0.5f, 1, 1, V)}), vb = listOf(chans, {smp(1, 3, 0.5f, 1, 2, V)});
    const std::vector<S> pieces = samplesOf(DSL::combine(va, vb));
    ASSERT_EQ(pieces.size(), 4u);
    const float expect[4][3] = {{0, 1, 1}, {1, 2, 1}, {1, 2, 2}, {2, 3, 2}};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(std::vector<float>({pieces[i].zf, pieces[i].zb, pieces[i].v[8]}),
                  std::vector<float>(expect[i], expect[i] + 3))
            << i;
}
