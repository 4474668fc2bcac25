// The null compressor's merge over random inputs: every input sample comes
// out once and whole, in zfront order; a single input comes out as it is.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepCompressor.h>

#include <algorithm>
#include <random>
#include <vector>

namespace
{
using namespace deeptest;

ChannelsPtr layout() { return channels({{"A", 1}, {"C", 3}, {"RGBA", 4}, {"P", 2}, {"id", 1, true}}); }

// A list of `n` samples whose first value names it (list * 1000 + sample)
// and whose other values, depths, flags and coverage are random; sorted by
// zfront when asked.
ListPtr randomList(std::mt19937 &rng, const ChannelsPtr &chans, int list, int n, bool sorted)
{
    ListPtr l(new IMB_DeepSampleList(chans, n, list % 2 == 1));
    std::vector<float> z;
    for (int i = 0; i < n; ++i)
        z.push_back(static_cast<float>(std::uniform_int_distribution<int>(0, 20)(rng)) * 0.5f);
    if (sorted)
        std::sort(z.begin(), z.end());
    for (int i = 0; i < n; ++i)
    {
        l->zfrontBuffer()[i] = z[static_cast<std::size_t>(i)];
        l->zbackBuffer()[i] = z[static_cast<std::size_t>(i)] + 0.25f;
        l->flagBuffer()[i] = static_cast<uint8>(rng());
        l->coverageBuffer()[i] = (uint64(rng()) << 32) | rng();
        for (int ch = 0; ch < chans->channelCount(); ++ch)
            for (int c = 0; c < chans->tupleSize(ch); ++c)
                l->channelData(ch, i)[c] = std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng);
        l->channelData(0, i)[0] = static_cast<float>(list * 1000 + i);
    }
    return l;
}

} // namespace

TEST(DeepCompressorRandom, NullMergeTakesEverySampleOnceInDepthOrder)
{
    std::mt19937 rng(31);
    ChannelsPtr chans = layout();
    auto null = IMB_DeepCompressor::Factory::create("null", chans, BAS_Options());
    for (int round = 0; round < 200; ++round)
    {
        const int count = std::uniform_int_distribution<int>(2, 6)(rng);
        std::vector<ListPtr> lists(static_cast<std::size_t>(count));
        int total = 0;
        for (int k = 0; k < count; ++k)
        {
            const int n = std::uniform_int_distribution<int>(-2, 30)(rng);
            if (n >= 0) // otherwise the entry stays null
                lists[static_cast<std::size_t>(k)] = randomList(rng, chans, k, n, true);
            total += std::max(n, 0);
        }
        ListPtr out = null->merge(lists.data(), count);
        if (total == 0)
        {
            EXPECT_FALSE(out);
            continue;
        }
        ASSERT_TRUE(out);
        ASSERT_EQ(out->sampleCount(), total);
        // The flag of the first non-empty input.
        for (const ListPtr &l : lists)
            if (l && l->sampleCount() > 0)
            {
                EXPECT_EQ(out->preComposited(), l->preComposited());
                break;
            }
        std::vector<int> seen(static_cast<std::size_t>(count) * 1000, 0);
        for (int j = 0; j < total; ++j)
        {
            if (j > 0)
                EXPECT_LE(out->zfront(j - 1), out->zfront(j)) << "round " << round;
            const int name = static_cast<int>(out->channelData(0, j)[0]);
            const int k = name / 1000, i = name % 1000;
            ASSERT_LT(k, count);
            ASSERT_TRUE(lists[static_cast<std::size_t>(k)]);
            ASSERT_LT(i, lists[static_cast<std::size_t>(k)]->sampleCount());
            ++seen[static_cast<std::size_t>(name)];
            expectSameSample(*out, j, *lists[static_cast<std::size_t>(k)], i);
        }
        for (int name = 0; name < count * 1000; ++name)
            ASSERT_LE(seen[static_cast<std::size_t>(name)], 1);
    }
}

// With one non-empty input among nulls and empties, that list's samples come
// out in its own order, even when it is not sorted.
TEST(DeepCompressorRandom, NullMergeOfOneListKeepsItsOrder)
{
    std::mt19937 rng(32);
    ChannelsPtr chans = layout();
    auto null = IMB_DeepCompressor::Factory::create("null", chans, BAS_Options());
    for (int round = 0; round < 50; ++round)
    {
        const int n = std::uniform_int_distribution<int>(1, 40)(rng);
        std::vector<ListPtr> lists(4);
        const int where = round % 4;
        lists[static_cast<std::size_t>(where)] = randomList(rng, chans, where, n, round % 2 == 0);
        lists[static_cast<std::size_t>((where + 1) % 4)] = randomList(rng, chans, 0, 0, true);
        ListPtr out = null->merge(lists.data(), 4);
        ASSERT_TRUE(out);
        ASSERT_EQ(out->sampleCount(), n);
        EXPECT_EQ(out->preComposited(), lists[static_cast<std::size_t>(where)]->preComposited());
        for (int i = 0; i < n; ++i)
            expectSameSample(*out, i, *lists[static_cast<std::size_t>(where)], i);
    }
}
