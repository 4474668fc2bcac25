// Sample filters: null, monochrome and the compositing pair.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleFilter.h>

#include <thread>
#include <vector>

namespace
{
using namespace deeptest;
using FilterPtr = BAS_IntrusivePtr<IMB_DeepSampleFilter>;

ChannelsPtr layout() { return channels({{"C", 3}, {"Of", 3}, {"id", 2, true}}); }

ListPtr sampleList(const ChannelsPtr &chans, int n, bool composited)
{
    ListPtr l(new IMB_DeepSampleList(chans, n, composited));
    for (int i = 0; i < n; ++i)
    {
        l->zfrontBuffer()[i] = float(i);
        l->zbackBuffer()[i] = float(i) + 0.25f;
        l->flagBuffer()[i] = uint8(i);
        l->coverageBuffer()[i] = 0xABCDull << i;
        for (int c = 0; c < 3; ++c)
        {
            l->channelData(0, i)[c] = 0.1f * float(i + 1) + 0.03f * float(c);
            l->channelData(1, i)[c] = 0.2f + 0.1f * float(c);
        }
        l->channelData(2, i)[0] = float(100 + i);
        l->channelData(2, i)[1] = float(200 + i);
    }
    return l;
}

void expectSameFrame(const IMB_DeepSampleList &a, const IMB_DeepSampleList &b)
{
    ASSERT_EQ(a.sampleCount(), b.sampleCount());
    for (int i = 0; i < a.sampleCount(); ++i)
    {
        EXPECT_EQ(a.zfront(i), b.zfront(i));
        EXPECT_EQ(a.zback(i), b.zback(i));
        EXPECT_EQ(a.flags(i), b.flags(i));
        EXPECT_EQ(a.coverage(i), b.coverage(i));
    }
}
} // namespace

TEST(DeepFilter, NullFilterPassesListsAndChannelsThrough)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::nullFilter();
    EXPECT_FALSE(f->channels());
    EXPECT_EQ(f->updateChannels(chans), chans);
    EXPECT_EQ(f->channels(), chans);
    ListPtr l = sampleList(chans, 2, false);
    EXPECT_EQ(f->apply(l), l);
    EXPECT_EQ(f->apply(ListPtr()), ListPtr());
    EXPECT_EQ(f->filteredTupleSize("C", 3), 3);
}

TEST(DeepFilter, MonochromeReducesTheNamedChannelToItsMean)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::monochrome("C");
    EXPECT_EQ(f->filteredTupleSize("C", 3), 1);
    EXPECT_EQ(f->filteredTupleSize("Of", 3), 3);
    EXPECT_EQ(f->filteredTupleSize(nullptr, 4), 4);

    const ChannelsPtr &out = f->updateChannels(chans);
    ASSERT_TRUE(out);
    EXPECT_NE(out, chans);
    ASSERT_EQ(out->channelCount(), 3);
    EXPECT_EQ(out->name(0), "C");
    EXPECT_EQ(out->tupleSize(0), 1);
    EXPECT_EQ(out->offset(1), 1);
    EXPECT_EQ(out->tupleSize(1), 3);
    EXPECT_EQ(out->tupleSize(2), 2);
    EXPECT_TRUE(out->isOrdinal(2));
    EXPECT_EQ(out->totalSize(), 6);
    EXPECT_EQ(chans->tupleSize(0), 3); // the input list is not modified

    ListPtr in = sampleList(chans, 3, true);
    ListPtr res = f->apply(in);
    ASSERT_TRUE(res);
    EXPECT_NE(res, in);
    EXPECT_EQ(res->channels(), out);
    EXPECT_TRUE(res->preComposited());
    expectSameFrame(*res, *in);
    for (int i = 0; i < 3; ++i)
    {
        const float *c = in->channelData(0, i);
        EXPECT_EQ(res->channelData(0, i)[0], (c[0] + c[1] + c[2]) * (1.0f / 3.0f)) << i;
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(res->channelData(1, i)[k], in->channelData(1, i)[k]);
        EXPECT_EQ(res->channelData(2, i)[1], float(200 + i));
    }
}

TEST(DeepFilter, MonochromeOfAMissingOrScalarChannelKeepsLists)
{
    ChannelsPtr chans = layout();
    FilterPtr missing = IMB_DeepSampleFilter::monochrome("Z");
    EXPECT_EQ(missing->updateChannels(chans), chans);
    ListPtr l = sampleList(chans, 2, false);
    EXPECT_EQ(missing->apply(l), l);

    ChannelsPtr scalar(new IMB_DeepChannelList);
    scalar->addChannel("A", 1);
    FilterPtr one = IMB_DeepSampleFilter::monochrome("A");
    EXPECT_EQ(one->updateChannels(scalar), scalar);
    ListPtr s(new IMB_DeepSampleList(scalar, 1));
    s->zeroData(0);
    s->channelData(0, 0)[0] = 0.75f;
    ListPtr r = one->apply(s);
    EXPECT_EQ(r->channelData(0, 0)[0], 0.75f);

    FilterPtr mono = IMB_DeepSampleFilter::monochrome("C");
    mono->updateChannels(chans);
    ListPtr empty(new IMB_DeepSampleList(chans, 0));
    EXPECT_EQ(mono->apply(empty), empty);
    EXPECT_EQ(mono->apply(ListPtr()), ListPtr());
}

TEST(DeepFilter, PrecompositeProducesTheListsOwnRunningComposite)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::precomposite("Of");
    EXPECT_EQ(f->updateChannels(chans), chans);
    ListPtr in = sampleList(chans, 4, false);
    ListPtr res = f->apply(in);
    ASSERT_NE(res, in);
    EXPECT_TRUE(res->preComposited());
    EXPECT_FALSE(in->preComposited());
    expectSameFrame(*res, *in);
    // The same conversion done by hand on a copy.
    IMB_DeepSampleList expected(*in);
    expected.composite(1);
    for (int ch = 0; ch < 3; ++ch)
        for (int i = 0; i < 4; ++i)
            for (int c = 0; c < chans->tupleSize(ch); ++c)
                EXPECT_EQ(res->channelData(ch, i)[c], expected.channelData(ch, i)[c]);
    // C[1][0] = (1 - 0.2) * 0.2 + 0.1.
    EXPECT_FLOAT_EQ(res->channelData(0, 1)[0], 0.8f * 0.2f + 0.1f);
    // Already composited: the same object comes back.
    EXPECT_EQ(f->apply(res), res);
}

TEST(DeepFilter, UncompositeRoundTripsAPrecomposite)
{
    ChannelsPtr chans = layout();
    FilterPtr pre = IMB_DeepSampleFilter::precomposite("Of");
    FilterPtr un = IMB_DeepSampleFilter::uncomposite("Of");
    pre->updateChannels(chans);
    un->updateChannels(chans);
    ListPtr in = sampleList(chans, 4, false);
    EXPECT_EQ(un->apply(in), in); // not composited: unchanged
    ListPtr back = un->apply(pre->apply(in));
    ASSERT_NE(back, in);
    EXPECT_FALSE(back->preComposited());
    for (int i = 0; i < 4; ++i)
        for (int c = 0; c < 3; ++c)
        {
            EXPECT_NEAR(back->channelData(0, i)[c], in->channelData(0, i)[c], 1e-6f);
            EXPECT_NEAR(back->channelData(1, i)[c], in->channelData(1, i)[c], 1e-6f);
        }
}

TEST(DeepFilter, CompositorWithoutItsChannelLeavesListsAlone)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::precomposite("alpha");
    EXPECT_EQ(f->updateChannels(chans), chans);
    ListPtr in = sampleList(chans, 3, false);
    EXPECT_EQ(f->apply(in), in);
    FilterPtr g = IMB_DeepSampleFilter::precomposite("Of");
    g->updateChannels(chans);
    ListPtr empty(new IMB_DeepSampleList(chans, 0));
    EXPECT_EQ(g->apply(empty), empty);
}

TEST(DeepFilter, SharedFilterAppliesFromManyThreads)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::precomposite("Of");
    f->updateChannels(chans);
    ListPtr in = sampleList(chans, 16, false);
    ListPtr reference = f->apply(in);
    std::vector<std::thread> threads;
    std::vector<int> ok(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            FilterPtr mine = f;
            bool same = true;
            for (int r = 0; r < 200; ++r)
            {
                ListPtr out = mine->apply(in);
                for (int i = 0; i < 16 && same; ++i)
                    same = out->channelData(0, i)[0] == reference->channelData(0, i)[0];
            }
            ok[t] = same;
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(ok, std::vector<int>(4, 1));
    EXPECT_EQ(f->use_count(), 1);
}
