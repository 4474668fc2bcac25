// Closing random raw pixels: every stored sample comes out exactly once, in
// the list of its id, ordered by depth, with its own depths and values, the
// flag byte of its sorted position and the id's coverage.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepPixel.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
using namespace deeptest;

// Keeps the lists closing hands to compress (one per id, in id order);
// merge returns the first entry.
class KeepingCompressor : public IMB_DeepCompressor
{
public:
    explicit KeepingCompressor(const ChannelsPtr &c) : myChannels(c) {}
    const ChannelsPtr &channels() const override { return myChannels; }
    const char *name() const override { return "keeping"; }
    mutable std::vector<ListPtr> lists;

protected:
    ListPtr doCompress(const ListPtr &l) const override
    {
        lists.push_back(l);
        return l;
    }
    ListPtr doMerge(const ListPtr *l, int) const override { return l[0]; }

private:
    ChannelsPtr myChannels;
};

struct Stored
{
    float zf, zb;
    std::vector<float> v;
    int flags, id;
};

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

TEST_P(DeepPixelRandom, ClosingSortsEveryStoredSampleIntoItsIdsList)
{
    const int subSamples = GetParam();
    std::mt19937 rng(77u + static_cast<unsigned>(subSamples));
    for (int round = 0; round < 60; ++round)
    {
        ChannelsPtr chans = layout(round / 2 % 3);
        const int total = chans->totalSize();
        auto keep = std::make_shared<KeepingCompressor>(chans);
        std::shared_ptr<IMB_DeepCompressor> compressor = keep;
        IMB_DeepPixel p(chans, subSamples);
        p.startPixel(1, 2, false);
        // Counts on both sides of the short-run sort (96 samples) and up to
        // several hundred. Most pixels have many equal depths (from a handful
        // of values, zeros of both signs among them); every fourth has only
        // distinct ones, and every fourth depths a few units in the last
        // place apart (on either side of zero), which differ only in their
        // lowest bits.
        const int n = std::uniform_int_distribution<int>(1, round % 3 == 0 ? 400 : 120)(rng);
        const float depths[] = {-2.5f, -0.0f, 0.0f, 1.0f, 1.5f, 3.0e38f, -3.0e38f};
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
                z = depths[std::uniform_int_distribution<int>(0, 6)(rng)];
            else
                z = std::uniform_real_distribution<float>(-10.0f, 10.0f)(rng);
            zfronts.push_back(z);
        }
        // Some pixels arrive already front to back.
        if (round % 5 == 4)
            std::sort(zfronts.begin(), zfronts.end());
        std::vector<Stored> stored;
        for (int i = 0; i < n; ++i)
        {
            Stored s;
            s.zf = zfronts[static_cast<std::size_t>(i)];
            s.zb = s.zf + 0.5f;
            for (int k = 0; k < total; ++k)
                s.v.push_back(static_cast<float>(i) + 0.001f * static_cast<float>(k));
            s.flags = std::uniform_int_distribution<int>(0, 1023)(rng);
            s.id = std::uniform_int_distribution<int>(0, subSamples - 1)(rng);
            p.store(s.zf, s.zb, s.v.data(), s.flags, s.id);
            stored.push_back(s);
        }
        ListPtr out = p.closePixel(compressor);
        ASSERT_TRUE(out);

        std::map<int, std::vector<int>> byId; // store indices of each id
        for (int i = 0; i < n; ++i)
            byId[stored[static_cast<std::size_t>(i)].id].push_back(i);
        ASSERT_EQ(keep->lists.size(), byId.size()) << "round " << round;
        std::vector<int> seen(static_cast<std::size_t>(n), 0);
        int position = 0; // sorted position over all lists, as flags are read
        std::size_t listIndex = 0;
        for (const auto &idAndSamples : byId)
        {
            const IMB_DeepSampleList &l = *keep->lists[listIndex++];
            ASSERT_EQ(l.sampleCount(), static_cast<int>(idAndSamples.second.size()));
            for (int j = 0; j < l.sampleCount(); ++j, ++position)
            {
                // The first value names the stored sample.
                const int i = static_cast<int>(l.channelData(0, j)[0]);
                ASSERT_GE(i, 0);
                ASSERT_LT(i, n);
                const Stored &s = stored[static_cast<std::size_t>(i)];
                ++seen[static_cast<std::size_t>(i)];
                EXPECT_EQ(s.id, idAndSamples.first);
                EXPECT_EQ(l.zfront(j), s.zf);
                EXPECT_EQ(l.zback(j), s.zb);
                if (j > 0)
                {
                    EXPECT_LE(l.zfront(j - 1), l.zfront(j)) << "round " << round << " sample " << j;
                    // Equal depths (the same bits) keep their store order.
                    const float before = l.zfront(j - 1), here = l.zfront(j);
                    if (std::memcmp(&before, &here, sizeof(float)) == 0)
                        EXPECT_LT(l.channelData(0, j - 1)[0], l.channelData(0, j)[0])
                            << "round " << round << " sample " << j;
                }
                int k = 0;
                for (int ch = 0; ch < chans->channelCount(); ++ch)
                    for (int c = 0; c < chans->tupleSize(ch); ++c, ++k)
                        ASSERT_EQ(l.channelData(ch, j)[c], s.v[static_cast<std::size_t>(k)]);
                // Deliberately the flag byte (low 8 bits) stored at the sorted position.
                EXPECT_EQ(l.flags(j), stored[static_cast<std::size_t>(position)].flags & 0xFF);
                EXPECT_EQ(l.coverage(j), referenceMask(idAndSamples.first, std::min(subSamples, 64)));
            }
        }
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(seen[static_cast<std::size_t>(i)], 1) << "sample " << i << " of round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(SubSampleCounts, DeepPixelRandom, ::testing::Values(1, 3, 16),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return "SubSamples" + std::to_string(info.param);
                         });
} // namespace
