// The deep pixel accumulator: raw and mip-style stores, grouping by id,
// coverage masks, closing through a compressor, and concurrent stores.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepPixel.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace
{
using namespace deeptest;

// C (3 floats), Of (1 float), id (1 float, ordinal): totalSize 5.
ChannelsPtr colourOpacityId() { return channels({{"C", 3}, {"Of", 1}, {"id", 1, true}}); }

// Records what closing hands to the compressor; compress is the identity and
// merge returns the first entry.
class RecordingCompressor : public IMB_DeepCompressor
{
public:
    explicit RecordingCompressor(const ChannelsPtr &c) : myChannels(c) {}
    const ChannelsPtr &channels() const override { return myChannels; }
    const char *name() const override { return "recording"; }

    mutable std::vector<ListPtr> compressed;
    mutable std::vector<ListPtr> merged;
    mutable int mergeCount = -1;
    mutable int merges = 0;

protected:
    ListPtr doCompress(const ListPtr &l) const override
    {
        compressed.push_back(l);
        return l;
    }
    ListPtr doMerge(const ListPtr *lists, int count) const override
    {
        ++merges;
        mergeCount = count;
        merged.assign(lists, lists + count);
        return lists[0];
    }

private:
    ChannelsPtr myChannels;
};

void storeSample(IMB_DeepPixel &p, float z, float value, int id, int flags = 0)
{
    const float v[5] = {value, value + 0.25f, value + 0.5f, 0.5f, static_cast<float>(id)};
    p.store(z, z + 0.125f, v, flags, id);
}

std::shared_ptr<IMB_DeepCompressor> nullCompressor(const ChannelsPtr &c)
{
    return IMB_DeepCompressor::Factory::create("null", c, BAS_Options());
}
} // namespace

TEST(DeepPixel, StartsClosedAndClosingWithoutStoresGivesNull)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 4);
    EXPECT_FALSE(p.isOpen());
    EXPECT_EQ(p.x(), -1);
    EXPECT_EQ(p.y(), -1);
    EXPECT_EQ(p.channels(), chans);
    p.startPixel(3, 7, false);
    EXPECT_TRUE(p.isOpen());
    EXPECT_EQ(p.x(), 3);
    EXPECT_EQ(p.y(), 7);
    EXPECT_FALSE(p.isRawStyle());
    EXPECT_FALSE(p.isMipStyle());
    auto rec = std::make_shared<RecordingCompressor>(chans);
    EXPECT_FALSE(p.closePixel(rec));
    EXPECT_FALSE(p.isOpen());
    EXPECT_EQ(rec->merges, 0);
    EXPECT_TRUE(rec->compressed.empty());
}

TEST(DeepPixel, RawSamplesBecomeOneListPerIdInIdOrderSortedByDepth)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 4);
    p.startPixel(0, 0, false);
    storeSample(p, 5.0f, 0.1f, 2);
    storeSample(p, 3.0f, 0.2f, 0);
    storeSample(p, 1.0f, 0.3f, 2);
    storeSample(p, 2.0f, 0.4f, 0);
    storeSample(p, 4.0f, 0.5f, 2);
    EXPECT_TRUE(p.isRawStyle());
    auto rec = std::make_shared<RecordingCompressor>(chans);
    ListPtr out = p.closePixel(rec);

    // Runs go to positions 0, 1 in id order; the merge sees all N entries.
    ASSERT_EQ(rec->compressed.size(), 2u);
    EXPECT_EQ(rec->merges, 1);
    EXPECT_EQ(rec->mergeCount, 4);
    ASSERT_EQ(rec->merged.size(), 4u);
    EXPECT_FALSE(rec->merged[2]);
    EXPECT_FALSE(rec->merged[3]);
    const ListPtr &id0 = rec->merged[0];
    const ListPtr &id2 = rec->merged[1];
    EXPECT_EQ(out, id0);
    ASSERT_EQ(id0->sampleCount(), 2);
    ASSERT_EQ(id2->sampleCount(), 3);
    EXPECT_FALSE(id0->preComposited());
    EXPECT_EQ(id0->channels(), chans);

    const float z0[] = {2, 3}, z2[] = {1, 4, 5};
    for (int i = 0; i < 3; ++i)
    {
        if (i < 2)
            EXPECT_EQ(id0->zfront(i), z0[i]);
        EXPECT_EQ(id2->zfront(i), z2[i]);
    }
    EXPECT_EQ(id0->coverage(0), 0x000000000000FFFFull);
    EXPECT_EQ(id2->coverage(0), 0x0000FFFF00000000ull);
    EXPECT_FALSE(p.isOpen());
    EXPECT_FALSE(p.isRawStyle());
}

TEST(DeepPixel, OneSubSampleSkipsTheMergeAndCoversAllBits)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 1);
    p.startPixel(1, 1, true);
    storeSample(p, 2.0f, 0.1f, 0);
    storeSample(p, 1.0f, 0.2f, 0);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    ListPtr out = p.closePixel(rec);
    EXPECT_EQ(rec->merges, 0);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->sampleCount(), 2);
    EXPECT_TRUE(out->preComposited());
    EXPECT_EQ(out->zfront(0), 1.0f);
    EXPECT_EQ(out->coverage(0), ~uint64(0));
    EXPECT_EQ(out->coverage(1), ~uint64(0));
}

TEST(DeepPixel, CoverageMasksSplitSixtyFourBitsIntoRuns)
{
    ChannelsPtr chans = colourOpacityId();
    for (int n : {2, 3, 4, 5, 7, 63, 64})
    {
        IMB_DeepPixel p(chans, n);
        p.startPixel(0, 0, false);
        for (int id = 0; id < n; ++id)
            storeSample(p, 1.0f, 0.0f, id);
        auto rec = std::make_shared<RecordingCompressor>(chans);
        p.closePixel(rec);
        ASSERT_EQ(rec->mergeCount, n);
        uint64 all = 0;
        for (int id = 0; id < n; ++id)
        {
            const uint64 m = rec->merged[static_cast<std::size_t>(id)]->coverage(0);
            EXPECT_EQ(m, referenceMask(id, n)) << "n " << n << " id " << id;
            EXPECT_EQ(all & m, 0u);
            all |= m;
        }
        EXPECT_EQ(all, ~uint64(0)) << n;
    }
    // Three positions: runs of 21, 21 and 22 bits.
    EXPECT_EQ(referenceMask(0, 3), 0x00000000001FFFFFull);
    EXPECT_EQ(referenceMask(1, 3), 0x000003FFFFE00000ull);
    EXPECT_EQ(referenceMask(2, 3), 0xFFFFFC0000000000ull);
}

TEST(DeepPixel, NegativeIdsHaveNoCoverageAndWideCountsUseSixtyFourPositions)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 100);
    p.startPixel(0, 0, false);
    storeSample(p, 1.0f, 0.0f, -3);
    storeSample(p, 1.0f, 0.0f, 5);
    storeSample(p, 1.0f, 0.0f, 80);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    p.closePixel(rec);
    ASSERT_EQ(rec->mergeCount, 100);
    EXPECT_EQ(rec->merged[0]->coverage(0), 0u);
    EXPECT_EQ(rec->merged[1]->coverage(0), uint64(1) << 5);
    EXPECT_EQ(rec->merged[2]->coverage(0), uint64(1) << 63);
}

TEST(DeepPixel, ManyRawSamplesSurviveEveryBufferGrowth)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 1);
    for (int round = 0; round < 2; ++round) // the second reuses the buffers
    {
        p.startPixel(round, 0, false);
        const int n = round == 0 ? 3000 : 5;
        for (int i = 0; i < n; ++i)
            storeSample(p, static_cast<float>((i * 7919) % n), static_cast<float>(i), 0, i & 0xFF);
        ListPtr out = p.closePixel(nullCompressor(chans));
        ASSERT_EQ(out->sampleCount(), n);
        for (int i = 0; i < n; ++i)
        {
            ASSERT_EQ(out->zfront(i), static_cast<float>(i));
            // Sample at depth i was stored as the j with (j * 7919) % n == i.
            const float value = out->channelData(0, i)[0];
            const int j = static_cast<int>(value);
            EXPECT_EQ((j * 7919) % n, i);
            EXPECT_EQ(out->channelData(0, i)[2], value + 0.5f);
            EXPECT_EQ(out->zback(i), static_cast<float>(i) + 0.125f);
            EXPECT_EQ(out->flags(i), i & 0xFF);
        }
    }
}

TEST(DeepPixel, MipStyleTakesTheStoredListsAsTheyAre)
{
    ChannelsPtr chans = colourOpacityId();
    ListPtr a(new IMB_DeepSampleList(chans, 1)), b(new IMB_DeepSampleList(chans, 2)),
        c(new IMB_DeepSampleList(chans, 3));
    IMB_DeepPixel p(chans, 4);
    p.startPixel(2, 2, false);
    p.store(ListPtr());
    EXPECT_FALSE(p.isMipStyle());
    p.store(a);
    p.store(b);
    p.store(c);
    EXPECT_TRUE(p.isMipStyle());
    EXPECT_EQ(a->use_count(), 2);
    // Raw samples are ignored once lists are stored.
    storeSample(p, 1.0f, 0.0f, 0);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    ListPtr out = p.closePixel(rec);
    EXPECT_EQ(out, a);
    ASSERT_EQ(rec->compressed.size(), 3u);
    ASSERT_EQ(rec->mergeCount, 4);
    EXPECT_EQ(rec->merged[0], a);
    EXPECT_EQ(rec->merged[1], b);
    EXPECT_EQ(rec->merged[2], c);
    EXPECT_FALSE(rec->merged[3]);
    EXPECT_FALSE(p.isMipStyle());
    EXPECT_FALSE(p.isRawStyle());
    rec.reset();
    out.reset();
    EXPECT_EQ(a->use_count(), 1); // the slots let go on closing
}

TEST(DeepPixel, MipStyleWithOneSubSampleReturnsTheFirstList)
{
    ChannelsPtr chans = colourOpacityId();
    ListPtr a(new IMB_DeepSampleList(chans, 1)), b(new IMB_DeepSampleList(chans, 1));
    IMB_DeepPixel p(chans, 1);
    p.startPixel(0, 0, false);
    p.store(a);
    p.store(b);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    EXPECT_EQ(p.closePixel(rec), a);
    EXPECT_EQ(rec->merges, 0);
    EXPECT_EQ(rec->compressed.size(), 2u);
}

TEST(DeepPixel, ClosingWithTheNullCompressorInterleavesTheIds)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 2);
    p.startPixel(0, 0, false);
    storeSample(p, 4.0f, 0.4f, 1);
    storeSample(p, 1.0f, 0.1f, 0);
    storeSample(p, 3.0f, 0.3f, 0);
    storeSample(p, 2.0f, 0.2f, 1);
    ListPtr out = p.closePixel(nullCompressor(chans));
    ASSERT_EQ(out->sampleCount(), 4);
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(out->zfront(i), static_cast<float>(i + 1));
        EXPECT_EQ(out->coverage(i), i % 2 ? 0xFFFFFFFF00000000ull : 0x00000000FFFFFFFFull);
    }
    // Without a compressor the first list comes back as built.
    p.startPixel(0, 0, false);
    storeSample(p, 1.0f, 0.1f, 1);
    storeSample(p, 2.0f, 0.1f, 0);
    ListPtr first = p.closePixel(nullptr);
    ASSERT_EQ(first->sampleCount(), 1);
    EXPECT_EQ(first->zfront(0), 2.0f);
}

TEST(DeepPixel, ClosingThroughTheSimpleCompressorAveragesTheSubSamples)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 2);
    p.startPixel(0, 0, false);
    const float a[5] = {0.8f, 0.4f, 0.2f, 1.0f, 5.0f};
    const float b[5] = {0.2f, 0.2f, 0.2f, 0.5f, 6.0f};
    p.store(1.0f, 1.0f, a, 0, 0);
    p.store(1.0f, 1.0f, b, 0, 1);
    ListPtr out = p.closePixel(IMB_DeepCompressor::Factory::create("default", chans, BAS_Options()));
    ASSERT_TRUE(out);
    ASSERT_EQ(out->sampleCount(), 1);
    EXPECT_EQ(out->coverage(0), ~uint64(0));
    EXPECT_FLOAT_EQ(out->channelData(0, 0)[0], 0.5f);
    EXPECT_FLOAT_EQ(out->channelData(0, 0)[1], 0.3f);
    EXPECT_FLOAT_EQ(out->channelData(1, 0)[0], 0.75f);
    const float id = out->channelData(2, 0)[0];
    EXPECT_TRUE(id == 5.0f || id == 6.0f) << id;
}

TEST(DeepPixel, MoreIdsThanPositionsStillCloseSafely)
{
    // Unsupported input (ids beyond the sub-sample count) must not write
    // past the list array: every id still becomes a list.
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 1);
    p.startPixel(0, 0, false);
    for (int id = 40; id >= 0; --id)
        storeSample(p, 1.0f, static_cast<float>(id), id);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    ListPtr out = p.closePixel(rec);
    EXPECT_EQ(rec->compressed.size(), 41u);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->channelData(2, 0)[0], 0.0f);
}

TEST(DeepPixel, NanDepthsNeitherCrashTheSortNorLoseSamples)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 1);
    p.startPixel(0, 0, false);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int i = 0; i < 200; ++i)
        storeSample(p, i % 3 == 0 ? nan : static_cast<float>(200 - i), static_cast<float>(i), 0);
    ListPtr out = p.closePixel(nullCompressor(chans));
    ASSERT_EQ(out->sampleCount(), 200);
    std::vector<float> values;
    float last = -1;
    for (int i = 0; i < 200; ++i)
    {
        values.push_back(out->channelData(0, i)[0]);
        if (!std::isnan(out->zfront(i)))
        {
            EXPECT_LE(last, out->zfront(i));
            last = out->zfront(i);
        }
    }
    std::sort(values.begin(), values.end());
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(values[static_cast<std::size_t>(i)], static_cast<float>(i));
}

TEST(DeepPixel, SamplezReadsTheKeysRawDepth)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 1);
    storeSample(p, 9.5f, 0.0f, 0);
    storeSample(p, -2.0f, 0.0f, 0);
    EXPECT_EQ(p.samplez(IMB_DeepPixel::SampleKey{&p, 0, 1}), -2.0f);
    EXPECT_EQ(p.samplez(IMB_DeepPixel::SampleKey{&p, 0, 0}), 9.5f);
    IMB_DeepPixel::SampleKey a{&p, 0, 0}, b{&p, 0, 1}, c{&p, -1, 0};
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(c < b);
}

TEST(DeepPixel, DumpPrintsCountersAndPosition)
{
    IMB_DeepPixel p(colourOpacityId(), 2);
    p.startPixel(12, 34, true);
    testing::internal::CaptureStderr();
    p.dump("px");
    p.dump(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "px {\n  myMipCount 0\n  myFloatCount 7\n  myXY 12 34\n}\n"
              "DeepPixel {\n  myMipCount 0\n  myFloatCount 7\n  myXY 12 34\n}\n");
}

namespace
{
using Sample = std::tuple<float, float, uint64, std::vector<float>>;

std::vector<Sample> multiset(const ListPtr &l)
{
    std::vector<Sample> out;
    for (int i = 0; i < l->sampleCount(); ++i)
    {
        std::vector<float> v;
        for (int ch = 0; ch < 3; ++ch)
            for (int t = 0; t < l->channels()->tupleSize(ch); ++t)
                v.push_back(l->channelData(ch, i)[t]);
        out.emplace_back(l->zfront(i), l->zback(i), l->coverage(i), v);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Thread t's sample i: depth and values depend on both, the id on i.
void storeFor(IMB_DeepPixel &p, int t, int i)
{
    const float z = static_cast<float>((i * 31 + t * 17) % 1000) * 0.01f;
    const float v[5] = {static_cast<float>(t), static_cast<float>(i), 0.5f, 0.25f, static_cast<float>(i % 4)};
    p.store(z, z + 1.0f, v, (t + i) & 3, i % 4);
}
} // namespace

TEST(DeepPixel, ConcurrentRawStoresCloseToTheSingleThreadResult)
{
    constexpr int kThreads = 8;
    constexpr int kPerThread = 100000;
    ChannelsPtr chans = colourOpacityId();
    auto compressor = nullCompressor(chans);

    IMB_DeepPixel single(chans, 4);
    single.startPixel(0, 0, false);
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kPerThread; ++i)
            storeFor(single, t, i);
    ListPtr expected = single.closePixel(compressor);

    IMB_DeepPixel shared(chans, 4);
    shared.startPixel(0, 0, false);
    std::atomic<int> ready(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads)
                std::this_thread::yield();
            for (int i = 0; i < kPerThread; ++i)
                storeFor(shared, t, i);
        });
    for (std::thread &th : threads)
        th.join();
    ListPtr got = shared.closePixel(compressor);

    ASSERT_TRUE(expected);
    ASSERT_TRUE(got);
    ASSERT_EQ(got->sampleCount(), kThreads * kPerThread);
    ASSERT_EQ(expected->sampleCount(), kThreads * kPerThread);
    EXPECT_TRUE(multiset(got) == multiset(expected));
    // Flags follow store positions, so only their multiset is fixed.
    std::vector<int> fe, fg;
    for (int i = 0; i < got->sampleCount(); ++i)
    {
        fe.push_back(expected->flags(i));
        fg.push_back(got->flags(i));
        if (i > 0)
            ASSERT_LE(got->zfront(i - 1), got->zfront(i));
    }
    std::sort(fe.begin(), fe.end());
    std::sort(fg.begin(), fg.end());
    EXPECT_TRUE(fe == fg);
}
