// Sample filters: null, monochrome and the compositing pair.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleFilter.h>

#include <atomic>
#include <thread>
#include <vector>

namespace
{
using namespace deeptest;
using FilterPtr = BAS_IntrusivePtr<IMB_DeepSampleFilter>;

ChannelsPtr layout() { return channels({{"C", 3}, {"Of", 3}, {"id", 2, true}}); }

// n samples of layout() with distinct depths, flags, coverage and colours.
ListPtr sampleList(const ChannelsPtr &chans, int n, bool composited)
{
    std::vector<S> samples;
    for (int i = 0; i < n; ++i)
    {
        const float c = 0.1f * float(i + 1);
        samples.push_back(S{float(i), float(i) + 0.25f, {c, c + 0.03f, c + 0.06f, 0.2f, 0.3f, 0.4f,
                                                         float(100 + i), float(200 + i)},
                            uint8(i), 0xABCDull << i});
    }
    return listOf(chans, samples, composited);
}
} // namespace

TEST(DeepFilter, MonochromeReducesTheNamedChannelToItsMean)
{
    ChannelsPtr chans = layout();
    FilterPtr f = IMB_DeepSampleFilter::monochrome("C");
    EXPECT_EQ(f->filteredTupleSize("C", 3), 1);
    EXPECT_EQ(f->filteredTupleSize("Of", 3), 3);
    EXPECT_EQ(f->filteredTupleSize(nullptr, 4), 4);
    const ChannelsPtr &out = f->updateChannels(chans);
    ASSERT_TRUE(out);
    EXPECT_TRUE(*out == *channels({{"C", 1}, {"Of", 3}, {"id", 2, true}}));
    EXPECT_EQ(chans->tupleSize(0), 3); // the input list is not modified

    ListPtr in = sampleList(chans, 3, true);
    ListPtr res = f->apply(in);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->channels(), out);
    EXPECT_TRUE(res->preComposited());
    for (int i = 0; i < 3; ++i)
    {
        S want = sampleOf(*in, i);
        want.v.erase(want.v.begin(), want.v.begin() + 2);
        want.v[0] = (in->channelData(0, i)[0] + in->channelData(0, i)[1] + in->channelData(0, i)[2]) * (1.0f / 3.0f);
        EXPECT_EQ(sampleOf(*res, i), want) << i;
    }
}

TEST(DeepFilter, PrecompositeAndUncompositeGiveTheListsOwnConversions)
{
    ChannelsPtr chans = layout();
    FilterPtr pre = IMB_DeepSampleFilter::precomposite("Of"), un = IMB_DeepSampleFilter::uncomposite("Of");
    EXPECT_EQ(pre->updateChannels(chans), chans);
    EXPECT_EQ(un->updateChannels(chans), chans);
    ListPtr in = sampleList(chans, 4, false);
    EXPECT_EQ(un->apply(in), in); // not composited: unchanged
    ListPtr res = pre->apply(in);
    ASSERT_NE(res, in);
    EXPECT_FALSE(in->preComposited());
    // The same conversion done on a copy, flags, depths and coverage kept.
    ListPtr expected(new IMB_DeepSampleList(*in));
    expected->composite(1);
    EXPECT_EQ(samplesOf(res), samplesOf(expected));
    EXPECT_TRUE(res->preComposited());
    EXPECT_FLOAT_EQ(res->channelData(0, 1)[0], 0.8f * 0.2f + 0.1f); // C[1][0] = (1 - 0.2) * 0.2 + 0.1
    EXPECT_EQ(pre->apply(res), res); // already composited: the same object comes back

    ListPtr back = un->apply(res);
    ASSERT_NE(back, res);
    EXPECT_FALSE(back->preComposited());
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 6; ++k)
            EXPECT_NEAR(sampleOf(*back, i).v[k], sampleOf(*in, i).v[k], 1e-6f) << i << " " << k;
}

TEST(DeepFilter, NullAndFiltersWithoutTheirChannelOrSamplesPassListsThrough)
{
    using F = IMB_DeepSampleFilter;
    ChannelsPtr chans = layout();
    ListPtr in = sampleList(chans, 3, false), empty(new IMB_DeepSampleList(chans, 0));
    // Told of no channel list, or given no samples.
    for (const FilterPtr &f : {F::nullFilter(), F::precomposite("Of"), F::uncomposite("Of"), F::monochrome("C")})
    {
        EXPECT_FALSE(f->channels());
        EXPECT_FALSE(f->updateChannels(ChannelsPtr()));
        EXPECT_EQ(f->apply(in), in);
        f->updateChannels(chans);
        EXPECT_EQ(f->apply(empty), empty);
        EXPECT_EQ(f->apply(ListPtr()), ListPtr());
    }
    // The null filter, and the others on a channel list without their channel.
    for (const FilterPtr &f : {F::nullFilter(), F::precomposite("alpha"), F::monochrome("Z")})
    {
        EXPECT_EQ(f->updateChannels(chans), chans);
        EXPECT_EQ(f->apply(in), in);
        EXPECT_EQ(f->filteredTupleSize("C", 3), 3);
    }
    ChannelsPtr scalar = channels({{"A", 1}});
    FilterPtr one = F::monochrome("A");
    EXPECT_EQ(one->updateChannels(scalar), scalar);
    EXPECT_EQ(one->apply(listOf(scalar, {S{0, 0, {0.75f}, 0, 0}}))->channelData(0, 0)[0], 0.75f);
}

TEST(DeepFilter, SharedFilterAppliesFromManyThreads)
{
    FilterPtr f = IMB_DeepSampleFilter::precomposite("Of");
    const ListPtr in = sampleList(f->updateChannels(layout()), 16, false);
    const std::vector<S> reference = samplesOf(f->apply(in));
    std::atomic<int> same{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            FilterPtr mine = f;
            for (int r = 0; r < 200; ++r)
                same += samplesOf(mine->apply(in)) == reference;
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(same.load(), 800);
    EXPECT_EQ(f->use_count(), 1);
}
