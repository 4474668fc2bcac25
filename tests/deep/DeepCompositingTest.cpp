// Running composites and their inverse, full opacity, segments and combine.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{
using namespace deeptest;
using Plane = std::vector<float>;

// Of (opacity, `opacitySize` floats), C (3), X (4: its fourth component uses
// the mean opacity), id (1, ordinal).
ChannelsPtr layout(int opacitySize)
{
    return channels({{"Of", opacitySize}, {"C", 3}, {"X", 4}, {"id", 1, true}});
}

ListPtr makeList(const ChannelsPtr &chans, const std::vector<std::vector<float>> &planes, bool composited = false)
{
    const int count = static_cast<int>(planes[0].size()) / chans->tupleSize(0);
    ListPtr l(new IMB_DeepSampleList(chans, count, composited));
    for (int i = 0; i < count; ++i)
    {
        l->zfrontBuffer()[i] = float(i);
        l->zbackBuffer()[i] = float(i) + 0.5f;
        l->flagBuffer()[i] = 0;
        l->coverageBuffer()[i] = ~0ull;
    }
    for (int ch = 0; ch < chans->channelCount(); ++ch)
        for (std::size_t k = 0; k < planes[ch].size(); ++k)
            l->channelBuffer(ch)[k] = planes[ch][k];
    return l;
}

Plane planeOf(const IMB_DeepSampleList &l, int ch)
{
    const float *p = l.channelBuffer(ch);
    return Plane(p, p + l.sampleCount() * l.channels()->tupleSize(ch));
}

// Opacity for component c from an opacity tuple of size ot >= 3.
float refOpacity(const float *a, int c)
{
    if (c < 3)
        return a[c];
    float sum = a[0] + a[1] + a[2];
    return float(double(sum) * 0.3333333333333333);
}

std::vector<std::vector<float>> fourSamples(int ot)
{
    std::vector<float> op;
    const float alphas[4][3] = {{0.25f, 0.5f, 0.0f}, {0.5f, 0.0f, 0.75f}, {0.125f, 0.3f, 0.6f}, {1.0f, 1.0f, 1.0f}};
    for (auto &a : alphas)
        for (int c = 0; c < ot; ++c)
            op.push_back(a[c]);
    return {op,
            {0.2f, 0.4f, 0.1f, 0.3f, 0.1f, 0.6f, 0.05f, 0.2f, 0.4f, 0.9f, 0.8f, 0.7f},
            {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
            {7, 8, 9, 10}};
}
} // namespace

TEST(DeepCompositing, OneSampleOnlyFlipsTheFlag)
{
    ChannelsPtr chans = layout(3);
    ListPtr l = makeList(chans, {{0.5f, 0.5f, 0.5f}, {1, 2, 3}, {1, 2, 3, 4}, {9}});
    l->composite(0);
    EXPECT_TRUE(l->preComposited());
    EXPECT_EQ(planeOf(*l, 1), (Plane{1, 2, 3}));
    l->uncomposite(0);
    EXPECT_FALSE(l->preComposited());
    EXPECT_EQ(planeOf(*l, 1), (Plane{1, 2, 3}));
}

TEST(DeepCompositing, PerComponentOpacityRunsFrontToBackWithTheMeanBeyondThree)
{
    ChannelsPtr chans = layout(3);
    auto planes = fourSamples(3);
    ListPtr l = makeList(chans, planes);
    l->composite(0);
    EXPECT_TRUE(l->preComposited());
    // Spot check by hand: C[1][0] = (1 - 0.25) * 0.3 + 0.2.
    EXPECT_FLOAT_EQ(l->channelData(1, 1)[0], 0.75f * 0.3f + 0.2f);
    // The ordinal channel is composited like any other (composite runs over
    // every channel).
    EXPECT_NE(l->channelData(3, 1)[0], 8.0f);
}

TEST(DeepCompositing, SingleOpacityUsesItsOwnFactor)
{
    ChannelsPtr chans = layout(1);
    auto planes = fourSamples(1);
    ListPtr l = makeList(chans, planes);
    l->composite(0);
    // By hand: A0 = 0.25 gives f = 1 - 1/0.75 = -1/3, so
    // Of[1] = -1/3 * 0.5 + 0.25 and C[1][0] = -1/3 * 0.3 + 0.2.
    const double f0 = 1.0 - 1.0 / 0.75;
    EXPECT_EQ(l->channelData(0, 1)[0], float(f0 * 0.5 + 0.25));
    EXPECT_EQ(l->channelData(1, 1)[0], float(f0 * double(0.3f) + double(0.2f)));
}

TEST(DeepCompositing, SingleOpacityAtOrAboveOneAddsTheWholeValue)
{
    ChannelsPtr chans = layout(1);
    ListPtr l = makeList(chans, {{1.0f, 0.5f, 2.0f}, {0, 0, 1, 1, 1, 1, 2, 2, 2}, Plane(12, 1.0f), {1, 2, 3}});
    l->composite(0);
    EXPECT_EQ(l->channelData(0, 1)[0], 1.5f); // f = 1 after A = 1
    EXPECT_EQ(l->channelData(1, 1)[0], 1.0f);
    // Uncompositing with A = 1 before gives g = 0: the value becomes 0.
    l->uncomposite(0);
    EXPECT_EQ(l->channelData(1, 1)[0], 0.0f);
    EXPECT_EQ(l->channelData(0, 1)[0], 0.0f);
    EXPECT_EQ(l->channelData(0, 0)[0], 1.0f); // sample 0 never changes
}

TEST(DeepCompositing, UncompositeRestoresValuesExceptAfterZeroOpacity)
{
    ChannelsPtr chans = layout(3);
    const auto original = fourSamples(3);
    ListPtr l = makeList(chans, original);
    l->composite(0);
    std::vector<Plane> composited;
    for (int ch = 0; ch < 4; ++ch)
        composited.push_back(planeOf(*l, ch));
    l->uncomposite(0);
    EXPECT_FALSE(l->preComposited());
    const int sizes[4] = {3, 3, 4, 1};
    for (int ch = 0; ch < 4; ++ch)
    {
        const int t = sizes[ch];
        for (int i = 0; i < 4; ++i)
            for (int c = 0; c < t; ++c)
            {
                const float *prevA = &composited[0][(i > 0 ? i - 1 : 0) * 3];
                const bool zeroBefore = i > 0 && refOpacity(prevA, c) == 0.0f;
                const float got = l->channelData(ch, i)[c];
                if (zeroBefore)
                    EXPECT_EQ(got, composited[ch][i * t + c]) << ch << " " << i << " " << c;
                else
                    EXPECT_NEAR(got, original[ch][i * t + c], 1e-5f) << ch << " " << i << " " << c;
            }
    }
    // Sample 0 has opacity component 2 of 0, so sample 1's component 2 kept
    // its composited value.
    EXPECT_EQ(l->channelData(1, 1)[2], composited[1][5]);
}

TEST(DeepCompositing, ForceDecidesWhetherTheCurrentFormIsRespected)
{
    // A composited list is composited again only when forced; likewise the inverse.
    for (bool composite : {true, false})
    {
        ListPtr l = makeList(layout(3), fourSamples(3), composite);
        const Plane before = planeOf(*l, 1);
        composite ? l->composite(0, false) : l->uncomposite(0, false);
        EXPECT_EQ(planeOf(*l, 1), before) << composite;
        composite ? l->composite(0, true) : l->uncomposite(0, true);
        EXPECT_NE(planeOf(*l, 1), before) << composite;
        EXPECT_EQ(l->preComposited(), composite);
    }
}

TEST(DeepCompositing, AnOpacityIndexOutsideTheListChangesNothing)
{
    ChannelsPtr chans = layout(3);
    ListPtr l = makeList(chans, fourSamples(3));
    const Plane before = planeOf(*l, 1);
    l->composite(7);
    l->composite(-1);
    EXPECT_FALSE(l->preComposited());
    EXPECT_EQ(planeOf(*l, 1), before);
    EXPECT_EQ(l->findFullOpacity(9, 1.0f), 4);
}

TEST(DeepCompositing, FindFullOpacityCountsTheSamplesUpToOpaque)
{
    ChannelsPtr chans = layout(3);
    // Second sample fully opaque.
    ListPtr l = makeList(chans, {{0.5f, 0.2f, 0.1f, 1, 1, 1, 0.3f, 0.3f, 0.3f},
                                 Plane(9, 0.0f), Plane(12, 0.0f), Plane(3, 0.0f)});
    EXPECT_EQ(l->findFullOpacity(0, 1.0f), 2);
    EXPECT_EQ(l->findFullOpacity(0, 0.5f), 2);  // accumulates 0.5, 0.2, 0.1 then 1, 1, 1
    EXPECT_EQ(l->findFullOpacity(0, 0.05f), 1);
    l->setPreComposited(true);
    EXPECT_EQ(l->findFullOpacity(0, 1.0f), 2);
    EXPECT_EQ(l->findFullOpacity(0, 0.25f), 2); // composited: sample 1 is the first with all >= 0.25
    EXPECT_EQ(l->findFullOpacity(0, 2.0f), 3);  // never: the count

    // Accumulation reaches the threshold only after several samples:
    // 0.5 -> 0.75 -> 0.875 -> 0.9375.
    ListPtr half = makeList(chans, {Plane(12, 0.5f), Plane(12, 0.0f), Plane(16, 0.0f), Plane(4, 0.0f)});
    EXPECT_EQ(half->findFullOpacity(0, 0.875f), 3);
    EXPECT_EQ(half->findFullOpacity(0, 0.8f), 3);
    EXPECT_EQ(half->findFullOpacity(0, 0.9f), 4);
    EXPECT_EQ(half->findFullOpacity(0, 0.75f), 2);

    ListPtr one = makeList(chans, {{0.0f, 0.0f, 0.0f}, Plane(3, 0.0f), Plane(4, 0.0f), Plane(1, 0.0f)});
    EXPECT_EQ(one->findFullOpacity(0, 1.0f), 1);
    one->setSampleCount(0);
    EXPECT_EQ(one->findFullOpacity(0, 1.0f), 0);
}

TEST(DeepCompositing, FindFullOpacityOfAnEmptyOpacityTupleIsOne)
{
    ChannelsPtr chans(new IMB_DeepChannelList);
    chans->addChannel("Of", 0);
    chans->addChannel("C", 1);
    ListPtr l(new IMB_DeepSampleList(chans, 3, true));
    EXPECT_EQ(l->findFullOpacity(0, 1.0f), 1);
    l->setPreComposited(false);
    EXPECT_EQ(l->findFullOpacity(0, 1.0f), 1);
}

TEST(DeepCompositing, ExtractSegmentScalesByTheSquareRootOfTheVolumeRatio)
{
    ChannelsPtr chans = layout(1);
    ListPtr src = makeList(chans, {{0.5f}, {1, 2, 3}, {4, 5, 6, 7}, {42}});
    src->zfrontBuffer()[0] = 2.0f;
    src->zbackBuffer()[0] = 6.0f;
    src->flagBuffer()[0] = IMB_DeepSampleList::SAMPLE_VOLUME;
    ListPtr dst(new IMB_DeepSampleList(chans, 3));

    dst->extractSegment(0, *src, 0, 1.0f, 10.0f, 123.0f); // whole range: weight exactly 1
    EXPECT_EQ(dst->zfront(0), 2.0f);
    EXPECT_EQ(dst->zback(0), 6.0f);
    EXPECT_EQ(dst->channelData(1, 0)[2], 3.0f);
    EXPECT_EQ(dst->flags(0), IMB_DeepSampleList::SAMPLE_VOLUME);

    dst->extractSegment(1, *src, 0, 3.0f, 4.5f);
    const float ratio = (1.0f - std::exp(-(4.5f - 3.0f))) / (1.0f - std::exp(-(6.0f - 2.0f)));
    const float w = std::sqrt(ratio);
    EXPECT_EQ(dst->zfront(1), 3.0f);
    EXPECT_EQ(dst->zback(1), 4.5f);
    EXPECT_EQ(dst->channelData(1, 1)[1], w * 2.0f);
    EXPECT_EQ(dst->channelData(0, 1)[0], w * 0.5f);
    EXPECT_EQ(dst->channelData(3, 1)[0], 42.0f); // ordinal kept

    dst->extractSegment(2, *src, 0, 7.0f, 9.0f); // outside: back < front, negative ratio
    EXPECT_TRUE(std::isnan(dst->channelData(1, 2)[0]));
    EXPECT_EQ(dst->channelData(3, 2)[0], 42.0f);
    EXPECT_EQ(dst->zfront(2), 7.0f);
    EXPECT_EQ(dst->zback(2), 6.0f);
}

TEST(DeepCompositing, SplitSegmentsCutsVolumesAtTheOtherListsBoundaries)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = makeList(chans, {{0.5f, 0.5f}, {1, 1, 1, 2, 2, 2}, Plane(8, 1.0f), {7, 8}}, true);
    a->zfrontBuffer()[0] = 0.0f; // volume 0..4
    a->zbackBuffer()[0] = 4.0f;
    a->flagBuffer()[0] = IMB_DeepSampleList::SAMPLE_VOLUME;
    a->zfrontBuffer()[1] = 5.0f; // surface 5..5
    a->zbackBuffer()[1] = 5.0f;
    ListPtr b = makeList(chans, {{0.5f, 0.5f}, Plane(6, 0.0f), Plane(8, 0.0f), {0, 0}});
    b->zfrontBuffer()[0] = 1.0f;
    b->zbackBuffer()[0] = 3.0f;
    b->zfrontBuffer()[1] = 4.0f; // on the volume's back edge: no cut
    b->zbackBuffer()[1] = 5.0f;

    ListPtr s = a->splitSegments(*b);
    ASSERT_EQ(s->sampleCount(), 4);
    EXPECT_TRUE(s->preComposited());
    const float bounds[4][2] = {{0, 1}, {1, 3}, {3, 4}, {5, 5}};
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(s->zfront(i), bounds[i][0]) << i;
        EXPECT_EQ(s->zback(i), bounds[i][1]) << i;
    }
    for (int i = 0; i < 3; ++i)
    {
        const float lo = bounds[i][0], hi = bounds[i][1];
        const float w = std::sqrt((1.0f - std::exp(-(hi - lo))) / (1.0f - std::exp(-(4.0f - 0.0f))));
        EXPECT_EQ(s->channelData(1, i)[0], w * 1.0f) << i;
        EXPECT_EQ(s->channelData(3, i)[0], 7.0f) << i;
    }
    EXPECT_EQ(s->channelData(1, 3)[0], 2.0f);

    // A list without boundaries inside the volume copies it whole.
    ListPtr none = makeList(chans, {{0.5f}, Plane(3, 0.0f), Plane(4, 0.0f), {0}});
    none->zfrontBuffer()[0] = 10.0f;
    none->zbackBuffer()[0] = std::numeric_limits<float>::quiet_NaN();
    ListPtr whole = a->splitSegments(*none);
    ASSERT_EQ(whole->sampleCount(), 2);
    EXPECT_EQ(whole->zback(0), 4.0f);
    EXPECT_EQ(whole->channelData(1, 0)[0], 1.0f);
}

TEST(DeepCompositing, CombineReturnsAnOperandWhenTheOtherCannotJoin)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = makeList(chans, {{0.5f}, Plane(3, 1.0f), Plane(4, 1.0f), {1}});
    ListPtr empty(new IMB_DeepSampleList(chans, 0));
    EXPECT_EQ(IMB_DeepSampleList::combine(ListPtr(), a), a);
    EXPECT_EQ(IMB_DeepSampleList::combine(empty, a), a);
    EXPECT_EQ(IMB_DeepSampleList::combine(ListPtr(), ListPtr()), ListPtr());
    EXPECT_EQ(IMB_DeepSampleList::combine(a, ListPtr()), a);
    EXPECT_EQ(IMB_DeepSampleList::combine(a, empty), a);
    ListPtr composited = makeList(chans, {{0.5f}, Plane(3, 1.0f), Plane(4, 1.0f), {1}}, true);
    EXPECT_EQ(IMB_DeepSampleList::combine(a, composited), a);
    ChannelsPtr other = layout(3);
    ListPtr foreign = makeList(other, {{0.5f, 0.5f, 0.5f}, Plane(3, 1.0f), Plane(4, 1.0f), {1}});
    EXPECT_EQ(IMB_DeepSampleList::combine(a, foreign), a);
    // An equal but distinct channel list joins.
    ListPtr twin = makeList(layout(1), {{0.5f}, Plane(3, 2.0f), Plane(4, 2.0f), {2}});
    ListPtr both = IMB_DeepSampleList::combine(a, twin);
    ASSERT_TRUE(both);
    EXPECT_EQ(both->sampleCount(), 2);
    EXPECT_EQ(both->channels(), a->channels());
}

TEST(DeepCompositing, CombineInterleavesBothListsByMidDepth)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = makeList(chans, {{0.1f, 0.2f, 0.3f}, Plane(9, 0.0f), Plane(12, 0.0f), {1, 2, 3}}, true);
    ListPtr b = makeList(chans, {{0.4f, 0.5f}, Plane(6, 0.0f), Plane(8, 0.0f), {4, 5}}, true);
    const float af[3] = {1, 4, 9}, bf[2] = {2, 4};
    for (int i = 0; i < 3; ++i)
        a->zfrontBuffer()[i] = a->zbackBuffer()[i] = af[i];
    for (int i = 0; i < 2; ++i)
        b->zfrontBuffer()[i] = b->zbackBuffer()[i] = bf[i];
    ListPtr c = IMB_DeepSampleList::combine(a, b);
    ASSERT_EQ(c->sampleCount(), 5);
    EXPECT_TRUE(c->preComposited());
    const float ids[5] = {1, 4, 2, 5, 3}; // equal depth 4: the first operand first
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(c->channelData(3, i)[0], ids[i]) << i;
    for (int i = 1; i < 5; ++i)
        EXPECT_LE(c->zmid(i - 1), c->zmid(i));
}

TEST(DeepCompositing, CombineCutsOverlappingVolumesIntoEachOthersPieces)
{
    ChannelsPtr chans = layout(1);
    ListPtr a = makeList(chans, {{0.5f}, Plane(3, 1.0f), Plane(4, 1.0f), {1}});
    ListPtr b = makeList(chans, {{0.5f}, Plane(3, 1.0f), Plane(4, 1.0f), {2}});
    a->zfrontBuffer()[0] = 0.0f;
    a->zbackBuffer()[0] = 2.0f;
    b->zfrontBuffer()[0] = 1.0f;
    b->zbackBuffer()[0] = 3.0f;
    a->flagBuffer()[0] = b->flagBuffer()[0] = IMB_DeepSampleList::SAMPLE_VOLUME;
    ListPtr c = IMB_DeepSampleList::combine(a, b);
    ASSERT_EQ(c->sampleCount(), 4);
    const float expect[4][3] = {{0, 1, 1}, {1, 2, 1}, {1, 2, 2}, {2, 3, 2}};
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(c->zfront(i), expect[i][0]) << i;
        EXPECT_EQ(c->zback(i), expect[i][1]) << i;
        EXPECT_EQ(c->channelData(3, i)[0], expect[i][2]) << i;
    }
}
