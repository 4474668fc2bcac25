// The deep pixel accumulator: raw and mip-style stores, grouping by id,
// coverage masks, closing through a compressor, and concurrent stores.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepPixel.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{
using namespace deeptest;

// C (3 floats), Of (1 float), id (1 float, ordinal): totalSize 5.
ChannelsPtr colourOpacityId() { return channels({{"C", 3}, {"Of", 1}, {"id", 1, true}}); }

void storeSample(IMB_DeepPixel &p, float z, float value, int id, int flags = 0)
{
    const float v[5] = {value, value + 0.25f, value + 0.5f, 0.5f, static_cast<float>(id)};
    p.store(z, z + 0.125f, v, flags, id);
}

std::shared_ptr<IMB_DeepCompressor> compressor(const char *name, const ChannelsPtr &c)
{
    return IMB_DeepCompressor::Factory::create(name, c, BAS_Options());
}

// Float order with -0 before +0, and NaNs at the two ends by their sign.
int nanRank(float f) { return std::isnan(f) ? (std::signbit(f) ? 0 : 2) : 1; }
bool depthLess(float a, float b)
{
    if (nanRank(a) != nanRank(b))
        return nanRank(a) < nanRank(b);
    return nanRank(a) == 1 && (a < b || (a == b && std::signbit(a) > std::signbit(b)));
}
} // namespace

TEST(DeepPixel, StartsClosedAndClosingWithoutStoresGivesNull)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 4);
    EXPECT_FALSE(p.isOpen());
    EXPECT_EQ(p.x() + p.y(), -2);
    EXPECT_EQ(p.channels(), chans);
    p.startPixel(3, 7, false);
    EXPECT_TRUE(p.isOpen());
    EXPECT_EQ(p.x(), 3);
    EXPECT_EQ(p.y(), 7);
    EXPECT_FALSE(p.isRawStyle() || p.isMipStyle());
    const std::string body = " {\n  myMipCount 0\n  myFloatCount 7\n  myXY 3 7\n}\n";
    EXPECT_EQ(captured([&] { p.dump("px"); }), "px" + body);
    EXPECT_EQ(captured([&] { p.dump(""); }), "DeepPixel" + body);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    EXPECT_FALSE(p.closePixel(rec));
    EXPECT_FALSE(p.isOpen());
    EXPECT_EQ(rec->merges, 0);
    EXPECT_TRUE(rec->compressed.empty());
}

TEST(DeepPixel, CoverageComesFromTheIdOrNothingForNegativeIdsAndWideCountsUseSixtyFourPositions)
{
    // Three positions: runs of 21, 21 and 22 bits (the reference itself).
    EXPECT_EQ(referenceMask(1, 3), 0x000003FFFFE00000ull);
    EXPECT_EQ(referenceMask(2, 3), 0xFFFFFC0000000000ull);
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 100);
    p.startPixel(0, 0, false);
    for (int id : {-3, 5, 80})
        storeSample(p, 1.0f, 0.0f, id);
    auto rec = std::make_shared<RecordingCompressor>(chans);
    p.closePixel(rec);
    ASSERT_EQ(rec->merged.size(), 100u);
    EXPECT_EQ(rec->merged[0]->coverage(0), 0u);
    EXPECT_EQ(rec->merged[1]->coverage(0), uint64(1) << 5);
    EXPECT_EQ(rec->merged[2]->coverage(0), uint64(1) << 63);
}

TEST(DeepPixel, MipStyleTakesTheStoredListsAsTheyAreAndLetsGoOnClosing)
{
    ChannelsPtr chans = colourOpacityId();
    for (int subSamples : {4, 1})
    {
        const std::vector<ListPtr> lists = {new IMB_DeepSampleList(chans, 1), new IMB_DeepSampleList(chans, 2),
                                            new IMB_DeepSampleList(chans, 3), new IMB_DeepSampleList(chans, 1)};
        IMB_DeepPixel p(chans, subSamples);
        p.startPixel(2, 2, false);
        p.store(ListPtr());
        EXPECT_FALSE(p.isMipStyle());
        for (const ListPtr &l : lists) // the most a pixel takes
            p.store(l);
        EXPECT_TRUE(p.isMipStyle());
        EXPECT_EQ(lists[3]->use_count(), 2);
        storeSample(p, 1.0f, 0.0f, 0); // raw samples are ignored once lists are stored
        auto rec = std::make_shared<RecordingCompressor>(chans);
        EXPECT_EQ(p.closePixel(rec), lists[0]);
        EXPECT_EQ(rec->compressed, lists);
        EXPECT_EQ(rec->merged, subSamples > 1 ? lists : std::vector<ListPtr>());
        EXPECT_FALSE(p.isMipStyle() || p.isRawStyle());
        rec.reset();
        for (const ListPtr &l : lists)
            EXPECT_EQ(l->use_count(), 1);
    }
}

TEST(DeepPixel, ClosingWithoutACompressorGivesTheFirstListAndTheSimpleOneAverages)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 2);
    p.startPixel(0, 0, false);
    storeSample(p, 1.0f, 0.1f, 1);
    storeSample(p, 2.0f, 0.1f, 0);
    const std::vector<S> first = samplesOf(p.closePixel(nullptr));
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].zf, 2.0f);

    p.startPixel(0, 0, false);
    const float a[5] = {0.8f, 0.4f, 0.2f, 1.0f, 5.0f}, b[5] = {0.2f, 0.2f, 0.2f, 0.5f, 6.0f};
    p.store(1.0f, 1.0f, a, 0, 0);
    p.store(1.0f, 1.0f, b, 0, 1);
    const std::vector<S> mean = samplesOf(p.closePixel(compressor("default", chans)));
    ASSERT_EQ(mean.size(), 1u);
    EXPECT_EQ(mean[0].cov, ~uint64(0));
    for (int k = 0; k < 4; ++k)
        EXPECT_FLOAT_EQ(mean[0].v[k], (a[k] + b[k]) * 0.5f) << k;
    EXPECT_TRUE(mean[0].v[4] == 5.0f || mean[0].v[4] == 6.0f) << mean[0].v[4];
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

namespace
{
// Layouts with tuples of 1 to 5 floats, an odd total size, and more
// channels than are copied row by row.
ChannelsPtr layout(int which)
{
    switch (which)
    {
    case 0: return channels({{"C", 3}, {"Of", 3}});
    case 1: return channels({{"A", 1}, {"RGBA", 4}, {"P", 2}, {"id", 1, true}});
    default: return channels({{"N", 5}, {"A", 1}, {"B", 1}, {"C", 3}, {"D", 2}});
    }
}

class DeepPixelRandom : public ::testing::TestWithParam<int>
{
};
} // namespace

// Closing random raw pixels against the rule: one list per id, in id order,
// each holding its samples stably sorted by depth with their own depths and
// values and the id's coverage, but deliberately the flag byte (low 8 bits)
// stored at their sorted position. The merge sees every position.
TEST_P(DeepPixelRandom, ClosingSortsEveryStoredSampleIntoItsIdsList)
{
    const int subSamples = GetParam();
    std::mt19937 rng(77u + static_cast<unsigned>(subSamples));
    // One accumulator per layout, reused pixel after pixel (its buffers grow
    // on the large pixels and are reused by the small ones).
    std::vector<std::unique_ptr<IMB_DeepPixel>> pixels;
    for (int which = 0; which < 3; ++which)
        pixels.emplace_back(new IMB_DeepPixel(layout(which), subSamples));
    for (int round = 0; round < 60; ++round)
    {
        SCOPED_TRACE("round " + std::to_string(round));
        IMB_DeepPixel &p = *pixels[static_cast<std::size_t>(round / 2 % 3)];
        auto rec = std::make_shared<RecordingCompressor>(p.channels());
        p.startPixel(1, 2, round % 2 == 0);
        // Counts on both sides of the short-run sort (96 samples), up to
        // several hundred and once a few thousand. Most pixels have many
        // equal depths (from a handful of values, zeros of both signs among
        // them, and NaNs of both signs); every fourth has only distinct ones,
        // and every fourth depths a few units in the last place apart (on
        // either side of zero).
        const int n = round == 7 ? 3000 : std::uniform_int_distribution<int>(1, round % 3 == 0 ? 400 : 120)(rng);
        const float nan = std::numeric_limits<float>::quiet_NaN();
        const float depths[] = {-2.5f, -0.0f, 0.0f, 1.0f, 1.5f, 3.0e38f, -3.0e38f, nan, -nan};
        const bool distinct = round % 4 == 1, close = round % 4 == 3;
        const uint32 closeBase = round % 8 == 3 ? 0x3f800000u : 0xc0200000u;
        std::vector<float> zfronts;
        for (int i = 0; i < n; ++i)
        {
            float z;
            if (close)
            {
                const uint32 bits = closeBase + std::uniform_int_distribution<uint32>(0, 150)(rng);
                std::memcpy(&z, &bits, sizeof z);
            }
            else if (!distinct && std::uniform_int_distribution<int>(0, 2)(rng) == 0)
                z = depths[std::uniform_int_distribution<int>(0, 8)(rng)];
            else
                z = std::uniform_real_distribution<float>(-10.0f, 10.0f)(rng);
            zfronts.push_back(z);
        }
        if (round % 5 == 4) // some pixels arrive already front to back
            std::sort(zfronts.begin(), zfronts.end(), depthLess);
        std::map<int, std::vector<S>> expected; // by id, in store order first
        std::vector<int> flags;
        for (int i = 0; i < n; ++i)
        {
            const int id = std::uniform_int_distribution<int>(0, subSamples - 1)(rng);
            S s{zfronts[static_cast<std::size_t>(i)], zfronts[static_cast<std::size_t>(i)] + 0.5f, {}, 0,
                referenceMask(id, std::min(subSamples, 64))};
            for (int k = 0; k < p.channels()->totalSize(); ++k)
                s.v.push_back(static_cast<float>(i) + 0.001f * static_cast<float>(k));
            flags.push_back(std::uniform_int_distribution<int>(0, 1023)(rng));
            p.store(s.zf, s.zb, s.v.data(), flags.back(), id);
            expected[id].push_back(s);
        }
        ASSERT_TRUE(p.isRawStyle());
        ListPtr out = p.closePixel(rec);
        ASSERT_FALSE(p.isOpen() || p.isRawStyle());
        ASSERT_EQ(rec->compressed.size(), expected.size());
        EXPECT_EQ(out, rec->compressed[0]);
        EXPECT_EQ(rec->merges, subSamples > 1 ? 1 : 0);
        for (std::size_t k = 0; subSamples > 1 && k < static_cast<std::size_t>(subSamples); ++k)
            EXPECT_EQ(rec->merged.at(k), k < expected.size() ? rec->compressed[k] : ListPtr());
        std::size_t list = 0, position = 0;
        for (auto &idAndSamples : expected)
        {
            std::vector<S> &want = idAndSamples.second;
            std::stable_sort(want.begin(), want.end(), [](const S &a, const S &b) { return depthLess(a.zf, b.zf); });
            for (S &s : want)
                s.flags = static_cast<uint8>(flags[position++] & 0xFF);
            const ListPtr &got = rec->compressed[list++];
            EXPECT_EQ(got->preComposited(), round % 2 == 0);
            EXPECT_EQ(got->channels(), p.channels());
            ASSERT_TRUE(samplesOf(got) == want) << "id " << idAndSamples.first;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(SubSampleCounts, DeepPixelRandom, ::testing::Values(1, 3, 7, 64),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return "SubSamples" + std::to_string(info.param);
                         });

TEST(DeepPixel, ConcurrentRawStoresLoseNothing)
{
    // Thread t's sample i: depth and values name both, the id follows i.
    constexpr int kThreads = 8, kPerThread = 20000;
    const auto depth = [](int t, int i) { return static_cast<float>((i * 31 + t * 17) % 1000) * 0.01f; };
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 4);
    p.startPixel(0, 0, false);
    std::atomic<int> ready(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads)
                std::this_thread::yield();
            for (int i = 0; i < kPerThread; ++i)
            {
                const float v[5] = {static_cast<float>(t), static_cast<float>(i), 0.5f, 0.25f, 0.0f};
                p.store(depth(t, i), depth(t, i) + 1.0f, v, (t + i) & 3, i % 4);
            }
        });
    for (std::thread &th : threads)
        th.join();
    ListPtr got = p.closePixel(compressor("null", chans));
    ASSERT_TRUE(got);
    ASSERT_EQ(got->sampleCount(), kThreads * kPerThread);
    std::vector<int> seen(kThreads * kPerThread, 0), flags(4, 0);
    for (int j = 0; j < got->sampleCount(); ++j)
    {
        const int t = static_cast<int>(got->channelData(0, j)[0]), i = static_cast<int>(got->channelData(0, j)[1]);
        ASSERT_TRUE(t >= 0 && t < kThreads && i >= 0 && i < kPerThread) << j;
        ++seen[static_cast<std::size_t>(t * kPerThread + i)];
        ++flags[got->flags(j) & 3];
        ASSERT_EQ(got->zfront(j), depth(t, i));
        ASSERT_EQ(got->zback(j), depth(t, i) + 1.0f);
        ASSERT_EQ(got->coverage(j), referenceMask(i % 4, 4));
        if (j > 0)
            ASSERT_LE(got->zfront(j - 1), got->zfront(j));
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), kThreads * kPerThread);
    // Flags follow store positions, so only their counts are fixed.
    EXPECT_EQ(flags, std::vector<int>(4, kThreads * kPerThread / 4));
}
