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
#include <tuple>
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

TEST(DeepPixel, MipStyleTakesTheStoredListsAsTheyAre)
{
    ChannelsPtr chans = colourOpacityId();
    for (int subSamples : {4, 1})
    {
        ListPtr a(new IMB_DeepSampleList(chans, 1)), b(new IMB_DeepSampleList(chans, 2)),
            c(new IMB_DeepSampleList(chans, 3));
        IMB_DeepPixel p(chans, subSamples);
        p.startPixel(2, 2, false);
        p.store(ListPtr());
        EXPECT_FALSE(p.isMipStyle());
        for (const ListPtr &l : {a, b, c})
            p.store(l);
        EXPECT_TRUE(p.isMipStyle());
        EXPECT_EQ(a->use_count(), 2);
        storeSample(p, 1.0f, 0.0f, 0); // raw samples are ignored once lists are stored
        auto rec = std::make_shared<RecordingCompressor>(chans);
        EXPECT_EQ(p.closePixel(rec), a);
        EXPECT_EQ(rec->compressed, (std::vector<ListPtr>{a, b, c}));
        if (subSamples > 1)
            EXPECT_EQ(rec->merged, (std::vector<ListPtr>{a, b, c, ListPtr()}));
        else
            EXPECT_EQ(rec->merges, 0);
        EXPECT_FALSE(p.isMipStyle() || p.isRawStyle());
        rec.reset();
        EXPECT_EQ(a->use_count(), 1); // the slots let go on closing
    }
}

TEST(DeepPixel, ClosingThroughRealCompressorsInterleavesOrAveragesTheIds)
{
    ChannelsPtr chans = colourOpacityId();
    IMB_DeepPixel p(chans, 2);
    p.startPixel(0, 0, false);
    const float zs[] = {4, 1, 3, 2};
    for (int k = 0; k < 4; ++k)
        storeSample(p, zs[k], 0.1f, k == 0 || k == 3);
    ListPtr out = p.closePixel(compressor("null", chans));
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

    p.startPixel(0, 0, false);
    const float a[5] = {0.8f, 0.4f, 0.2f, 1.0f, 5.0f}, b[5] = {0.2f, 0.2f, 0.2f, 0.5f, 6.0f};
    p.store(1.0f, 1.0f, a, 0, 0);
    p.store(1.0f, 1.0f, b, 0, 1);
    ListPtr mean = p.closePixel(compressor("default", chans));
    ASSERT_EQ(mean->sampleCount(), 1);
    EXPECT_EQ(mean->coverage(0), ~uint64(0));
    EXPECT_FLOAT_EQ(mean->channelData(0, 0)[0], 0.5f);
    EXPECT_FLOAT_EQ(mean->channelData(0, 0)[1], 0.3f);
    EXPECT_FLOAT_EQ(mean->channelData(1, 0)[0], 0.75f);
    const float id = mean->channelData(2, 0)[0];
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

TEST(DeepPixel, DumpPrintsTheCountersAndPosition)
{
    IMB_DeepPixel p(colourOpacityId(), 2);
    p.startPixel(12, 34, true);
    const std::string body = " {\n  myMipCount 0\n  myFloatCount 7\n  myXY 12 34\n}\n";
    EXPECT_EQ(capturedStderr([&] { p.dump("px"); }), "px" + body);
    EXPECT_EQ(capturedStderr([&] { p.dump(""); }), "DeepPixel" + body);
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

struct Stored
{
    float zf;
    int flags, id;
};

class DeepPixelRandom : public ::testing::TestWithParam<int>
{
};
} // namespace

// Closing random raw pixels: every stored sample comes out exactly once, in
// the list of its id, ordered by depth, with its own depths and values, the
// flag byte of its sorted position and the id's coverage; the lists go to
// the compressor in id order and the merge sees all positions.
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
        IMB_DeepPixel &p = *pixels[static_cast<std::size_t>(round / 2 % 3)];
        const ChannelsPtr chans = p.channels();
        const int total = chans->totalSize();
        auto rec = std::make_shared<RecordingCompressor>(chans);
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
        std::vector<Stored> stored;
        std::map<int, int> perId; // samples of each id
        std::vector<float> v(static_cast<std::size_t>(total));
        for (int i = 0; i < n; ++i)
        {
            const Stored s{zfronts[static_cast<std::size_t>(i)], std::uniform_int_distribution<int>(0, 1023)(rng),
                           std::uniform_int_distribution<int>(0, subSamples - 1)(rng)};
            for (int k = 0; k < total; ++k)
                v[static_cast<std::size_t>(k)] = static_cast<float>(i) + 0.001f * static_cast<float>(k);
            p.store(s.zf, s.zf + 0.5f, v.data(), s.flags, s.id);
            stored.push_back(s);
            ++perId[s.id];
        }
        ASSERT_TRUE(p.isRawStyle());
        ListPtr out = p.closePixel(rec);
        ASSERT_FALSE(p.isOpen() || p.isRawStyle());
        ASSERT_EQ(rec->compressed.size(), perId.size()) << "round " << round;
        ASSERT_EQ(out, rec->compressed[0]);
        EXPECT_EQ(rec->merges, subSamples > 1 ? 1 : 0);
        if (subSamples > 1)
        {
            ASSERT_EQ(rec->merged.size(), static_cast<std::size_t>(subSamples));
            for (std::size_t k = 0; k < rec->merged.size(); ++k)
                EXPECT_EQ(rec->merged[k], k < perId.size() ? rec->compressed[k] : ListPtr());
        }
        std::vector<int> seen(static_cast<std::size_t>(n), 0);
        int position = 0; // sorted position over all lists, as flags are read
        std::size_t listIndex = 0;
        for (const auto &idAndCount : perId)
        {
            const IMB_DeepSampleList &l = *rec->compressed[listIndex++];
            ASSERT_EQ(l.sampleCount(), idAndCount.second);
            EXPECT_EQ(l.preComposited(), round % 2 == 0);
            EXPECT_EQ(l.channels(), chans);
            for (int j = 0; j < l.sampleCount(); ++j, ++position)
            {
                const int i = static_cast<int>(l.channelData(0, j)[0]); // names the stored sample
                ASSERT_GE(i, 0);
                ASSERT_LT(i, n);
                const Stored &s = stored[static_cast<std::size_t>(i)];
                ++seen[static_cast<std::size_t>(i)];
                EXPECT_EQ(s.id, idAndCount.first);
                EXPECT_TRUE(sameBits(l.zfront(j), s.zf));
                EXPECT_TRUE(sameBits(l.zback(j), s.zf + 0.5f));
                if (j > 0)
                {
                    const float before = l.zfront(j - 1), here = l.zfront(j);
                    EXPECT_FALSE(depthLess(here, before)) << "round " << round << " sample " << j;
                    // Equal depths (the same bits) keep their store order.
                    if (sameBits(before, here))
                        EXPECT_LT(l.channelData(0, j - 1)[0], l.channelData(0, j)[0]) << "round " << round;
                }
                int k = 0;
                for (int ch = 0; ch < chans->channelCount(); ++ch)
                    for (int c = 0; c < chans->tupleSize(ch); ++c, ++k)
                        ASSERT_EQ(l.channelData(ch, j)[c], static_cast<float>(i) + 0.001f * static_cast<float>(k));
                // Deliberately the flag byte (low 8 bits) stored at the sorted position.
                EXPECT_EQ(l.flags(j), stored[static_cast<std::size_t>(position)].flags & 0xFF);
                EXPECT_EQ(l.coverage(j), referenceMask(idAndCount.first, std::min(subSamples, 64)));
            }
        }
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(seen[static_cast<std::size_t>(i)], 1) << "sample " << i << " of round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(SubSampleCounts, DeepPixelRandom, ::testing::Values(1, 3, 7, 64),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return "SubSamples" + std::to_string(info.param);
                         });

namespace
{
// Thread t's sample i: depth and values depend on both, the id on i.
void storeFor(IMB_DeepPixel &p, int t, int i)
{
    const float z = static_cast<float>((i * 31 + t * 17) % 1000) * 0.01f;
    const float v[5] = {static_cast<float>(t), static_cast<float>(i), 0.5f, 0.25f, static_cast<float>(i % 4)};
    p.store(z, z + 1.0f, v, (t + i) & 3, i % 4);
}

// The samples of `l` in a fixed order, with the flag bytes apart (they
// follow store positions, so only their multiset is fixed).
std::vector<S> sortedSamples(const ListPtr &l, std::vector<int> &flags)
{
    std::vector<S> out = samplesOf(l);
    for (S &s : out)
    {
        flags.push_back(s.flags);
        s.flags = 0;
    }
    const auto key = [](const S &s) { return std::make_tuple(s.zf, s.cov, s.v); };
    std::sort(out.begin(), out.end(), [&](const S &a, const S &b) { return key(a) < key(b); });
    std::sort(flags.begin(), flags.end());
    return out;
}
} // namespace

TEST(DeepPixel, ConcurrentRawStoresCloseToTheSingleThreadResult)
{
    constexpr int kThreads = 8, kPerThread = 20000;
    ChannelsPtr chans = colourOpacityId();
    auto null = compressor("null", chans);
    IMB_DeepPixel single(chans, 4);
    single.startPixel(0, 0, false);
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kPerThread; ++i)
            storeFor(single, t, i);
    ListPtr expected = single.closePixel(null);

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
    ListPtr got = shared.closePixel(null);
    ASSERT_TRUE(expected && got);
    ASSERT_EQ(got->sampleCount(), kThreads * kPerThread);
    for (int i = 1; i < got->sampleCount(); ++i)
        ASSERT_LE(got->zfront(i - 1), got->zfront(i));
    std::vector<int> fe, fg;
    EXPECT_TRUE(sortedSamples(got, fg) == sortedSamples(expected, fe));
    EXPECT_TRUE(fe == fg);
}
