// Deep compressors: the heap behind the merges, the factory registry and
// options, the null merge and the simple merge's grouping rule.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/platform/BAS_PriorityQueue.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace
{
using namespace deeptest;
using Factory = IMB_DeepCompressor::Factory;

// C (3 floats), Of (ofSize floats), id (1 float, ordinal).
ChannelsPtr colourOpacityId(int ofSize = 1, const char *ofName = "Of")
{
    return channels({{"C", 3}, {ofName, ofSize}, {"id", 1, true}});
}

// A surface at depth z (or a volume from zf to zb) with colour c in all three
// components, opacity a and identifier id, for colourOpacityId(1).
S surface(float z, float c, float a, float id, uint64 cov = 1) { return S{z, z, {c, c, c, a, id}, 0, cov}; }
S volume(float zf, float zb, float c, float a, float id, uint64 cov = 1)
{
    return S{zf, zb, {c, c, c, a, id}, 0x01, cov};
}

std::shared_ptr<IMB_DeepCompressor> make(const char *name, const ChannelsPtr &chans,
                                         const BAS_Options &opts = BAS_Options())
{
    return Factory::create(name, chans, opts);
}

// The simple compressor with explicit tolerances (and opacity channel name).
std::shared_ptr<IMB_DeepCompressor> simple(const ChannelsPtr &chans, double zbias = 0.001,
                                           double ofbias = 1.0 / 32, const char *ofname = nullptr)
{
    BAS_Options o;
    o.setOptionF("zbias", zbias);
    o.setOptionF("ofbias", ofbias);
    if (ofname)
        o.setOptionS("ofname", ofname);
    return make("simple", chans, o);
}

// The merge of lists of samples (an empty vector stands for a null entry).
ListPtr mergeOf(const IMB_DeepCompressor &c, const std::vector<std::vector<S>> &in, bool composited = false)
{
    std::vector<ListPtr> lists;
    for (const std::vector<S> &l : in)
        lists.push_back(l.empty() ? ListPtr() : listOf(c.channels(), l, composited));
    return c.merge(lists.data(), static_cast<int>(lists.size()));
}

std::string dumpOf(const IMB_DeepCompressor &c, const char *label)
{
    return captured([&] { c.dump(label); }, true);
}

std::string simpleDump(float zbias, const char *ofname, int ofsize, float ofbias, int ofidx)
{
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  "L simple =\n{\n\tzbias : %g\n\tofname : '%s'\n\tofsize : %d\n\tofbias : %g\n\t_ofidx : %d\n}\n",
                  zbias, ofname, ofsize, ofbias, ofidx);
    return buf;
}

struct Item
{
    int key;
    int tag;
    bool operator<(const Item &o) const { return key < o.key; }
};
} // namespace

// ---------------------------------------------------------------- heap

// The merges below drive the heap's ordering; this is its documented tie rule.
TEST(BasPriorityQueue, ANewItemRisesAboveAnEqualKeyedParent)
{
    BAS_PriorityQueue<Item> q;
    q.push(Item{5, 0});
    q.push(Item{5, 1});
    EXPECT_EQ(q.top().tag, 1);
    EXPECT_EQ(q(1).tag, 0);
    // It keeps rising through a chain of equal keys, but not above a smaller one.
    BAS_PriorityQueue<Item> r;
    for (int tag = 0; tag < 4; ++tag)
        r.push(Item{tag == 0 ? 1 : 3, tag}); // tag 3 is a child of tag 1 (index 1)
    EXPECT_EQ(r.top().tag, 0);
    EXPECT_EQ(r(1).tag, 3);
    EXPECT_EQ(r(3).tag, 1);
}

// ---------------------------------------------------------------- registry

namespace
{
// Exits with 0 when listing finds nothing before the registry is built and
// the four built-ins after.
void listBeforeAndAfterBuilding()
{
    BAS_StringArray names;
    names.append("stale");
    Factory::getCompressors(names);
    const bool emptyBefore = names.isEmpty();
    Factory::initCompressors();
    Factory::getCompressors(names);
    const bool builtAfter = names == BAS_StringArray{"default", "mip", "null", "simple"};
    std::exit(emptyBefore && builtAfter ? 0 : 1);
}

// Makes recording compressors for a channel list of its own, which tells
// its compressors apart from any other factory's.
struct TaggedFactory : Factory
{
    ChannelsPtr tag = channels({{"tag", 1}});
    std::shared_ptr<IMB_DeepCompressor> create(const ChannelsPtr &, const BAS_Options &) const override
    {
        return std::make_shared<RecordingCompressor>(tag);
    }
};
} // namespace

TEST(DeepCompressorFactory, ListingNamesDoesNotBuildTheRegistry)
{
    // A fresh process: other tests in this program build the registry.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(listBeforeAndAfterBuilding(), testing::ExitedWithCode(0), "");
}

TEST(DeepCompressorFactory, CreateBuildsTheRegistryAndFindsNamesExactly)
{
    ChannelsPtr chans = colourOpacityId();
    for (const char *alias : {"null", "default", "mip", "simple"})
    {
        auto c = make(alias, chans);
        ASSERT_TRUE(c) << alias;
        EXPECT_STREQ(c->name(), alias[0] == 'n' ? "null" : "simple");
        EXPECT_EQ(c->channels(), chans);
    }
    for (const char *unknown : {"Simple", "simple ", "", static_cast<const char *>(nullptr)})
        EXPECT_FALSE(make(unknown, chans));
}

TEST(DeepCompressorFactory, RegisterAddsOrReplacesAndInitRestoresOnlyTheBuiltIns)
{
    Factory::initCompressors();
    const auto first = std::make_shared<TaggedFactory>(), second = std::make_shared<TaggedFactory>();
    Factory::registerCompressor("tagged-one", first);
    EXPECT_EQ(make("tagged-one", nullptr)->channels(), first->tag);
    Factory::registerCompressor("tagged-one", second);
    EXPECT_EQ(make("tagged-one", nullptr)->channels(), second->tag);
    Factory::registerCompressor(nullptr, first);
    Factory::registerCompressor("mip", first);
    EXPECT_EQ(make("mip", nullptr)->channels(), first->tag);
    EXPECT_STREQ(make("simple", nullptr)->name(), "simple");
    Factory::initCompressors();
    EXPECT_STREQ(make("mip", nullptr)->name(), "simple");
    EXPECT_EQ(make("tagged-one", nullptr)->channels(), second->tag);
    BAS_StringArray names; // sorted, with the added name and without an empty one
    Factory::getCompressors(names);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_GE(names.find("tagged-one"), 0);
    EXPECT_LT(names.find(""), 0);
}

// ---------------------------------------------------------------- options

// The opacity channel is found by name among tuples of 1, 3 or more (a
// single one counts as 3); "deepcompression" sets only the opacity
// tolerance default, 2^(level - 10) clamped to [1/1024, 1]; a negative depth
// tolerance is clamped to 0.
TEST(DeepCompressorOptions, DefaultsLevelsAndTheOpacityChannelLookup)
{
    struct Case
    {
        ChannelsPtr chans;
        int level;            // -100: not set
        double zbias, ofbias; // -100: not set
        const char *ofname;
        std::string dump;
    };
    const int none = -100;
    const Case cases[] = {
        {colourOpacityId(1), none, none, none, nullptr, simpleDump(0.001f, "Of", 3, 0.03125f, 1)},
        {colourOpacityId(3), none, none, none, nullptr, simpleDump(0.001f, "Of", 3, 0.03125f, 1)},
        {colourOpacityId(4), none, none, none, nullptr, simpleDump(0.001f, "Of", 4, 0.03125f, 1)},
        {colourOpacityId(1, "A"), none, none, none, nullptr, simpleDump(0.001f, "Of", 0, 0.03125f, -1)},
        {nullptr, none, none, none, nullptr, simpleDump(0.001f, "Of", 0, 0.03125f, -1)},
        {colourOpacityId(), 10, none, none, nullptr, simpleDump(0.001f, "Of", 3, 1.0f, 1)},
        {colourOpacityId(), 0, none, none, nullptr, simpleDump(0.001f, "Of", 3, 1.0f / 1024, 1)},
        {colourOpacityId(), 5, none, none, nullptr, simpleDump(0.001f, "Of", 3, 1.0f / 32, 1)},
        {colourOpacityId(), 9, none, none, nullptr, simpleDump(0.001f, "Of", 3, 0.5f, 1)},
        {colourOpacityId(), 15, none, none, nullptr, simpleDump(0.001f, "Of", 3, 1.0f, 1)},
        {colourOpacityId(), -3, none, none, nullptr, simpleDump(0.001f, "Of", 3, 1.0f / 1024, 1)},
        {colourOpacityId(), 10, none, 0.25, nullptr, simpleDump(0.001f, "Of", 3, 0.25f, 1)},
        {colourOpacityId(1, "A"), none, -1.0, none, "A", simpleDump(0.0f, "A", 3, 0.03125f, 1)},
        {colourOpacityId(1), none, 0.5, none, "A", simpleDump(0.5f, "A", 0, 0.03125f, -1)},
    };
    for (const Case &c : cases)
    {
        BAS_Options o;
        if (c.level != none)
            o.setOptionI("deepcompression", c.level);
        if (c.zbias != none)
            o.setOptionF("zbias", c.zbias);
        if (c.ofbias != none)
            o.setOptionF("ofbias", c.ofbias);
        if (c.ofname)
            o.setOptionS("ofname", c.ofname);
        for (const char *name : {"simple", "default"})
            EXPECT_EQ(dumpOf(*make(name, c.chans, o), "L"), c.dump) << name << " " << &c - cases;
    }
    // The label defaults to the class name; the null compressor has no settings.
    for (const char *label : {static_cast<const char *>(nullptr), ""})
        EXPECT_EQ(dumpOf(*make("null", colourOpacityId()), label), "IMB_DeepCompressor null =\n");
    EXPECT_EQ(dumpOf(*make("null", colourOpacityId()), "pixel"), "pixel null =\n");
    EXPECT_EQ(dumpOf(*make("mip", colourOpacityId()), nullptr).rfind("IMB_DeepCompressor simple =\n{\n", 0), 0u);
}

// ---------------------------------------------------------------- merges

// Lists of another layout are skipped, equal ones taken; the flag is the
// first non-empty list's.
TEST(DeepCompressorMerge, SkipsListsOfAnotherLayoutAndTakesEqualOnes)
{
    ChannelsPtr chans = colourOpacityId();
    BAS_Array<ListPtr> lists;
    lists.append(listOf(chans, {}));
    lists.append(listOf(colourOpacityId(3), {S{0, 0, {1, 1, 1, 1, 1, 1, 3}, 0, 0}}, true));
    lists.append(listOf(chans, {surface(2, 0.5f, 0.5f, 1)}, true));
    lists.append(listOf(colourOpacityId(), {surface(1, 0.25f, 0.5f, 2)})); // equal, not the same
    for (const char *name : {"null", "simple"})
    {
        ListPtr out = make(name, chans)->merge(lists);
        ASSERT_TRUE(out) << name;
        EXPECT_TRUE(out->preComposited()) << name;
        EXPECT_EQ(samplesOf(out).size(), 2u) << name;
        EXPECT_EQ(out->channelData(2, 0)[0], 2.0f) << name;
        EXPECT_EQ(out->channelData(2, 1)[0], 1.0f) << name;
        EXPECT_FALSE(make(name, chans)->merge(lists.data(), 0)) << name;
    }
}

// ---------------------------------------------------------------- simple merge

TEST(DeepCompressorSimpleMerge, GroupsSplitsAndWeighsSamplesByTheRule)
{
    struct Case
    {
        const char *what;
        std::vector<std::vector<S>> lists;
        double zbias, ofbias;
        std::vector<S> expected;
    };
    const double dz = 0.001, dof = 1.0 / 32;
    // A volume 0..4 split at (0 + 2) / 2 = 1 before a surface at 2: r = (4 - 1) / 4,
    // so a quarter of it (weight 0.5 x 0.25) in front and three quarters behind.
    const float q = 0.5f * 0.25f, t = 0.5f * 0.75f;
    const float c1 = 0.5f * 1.0f + 4 * t, a1 = 0.5f * 0.5f + 0.8f * t;
    const float c2 = 2 * t + 0.5f * 1.0f, a2 = 0.6f * t + 0.5f * 0.4f;
    const Case cases[] = {
        {"one surface comes back unchanged", {{S{2, 2.5f, {0.1f, 0.2f, 0.3f, 0.4f, 9}, 0x40, 0xF0}}}, dz, dof,
         {S{2, 2.5f, {0.1f, 0.2f, 0.3f, 0.4f, 9}, 0x40, 0xF0}}},
        {"every entry weighs 1 / count, nulls included", {{surface(1, 0.8f, 0.6f, 4, 0x3)}, {}, {}, {}}, dz, dof,
         {S{1, 1, {0.2f, 0.2f, 0.2f, 0.15f, 4}, 0, 0x3}}},
        {"equal depths join even with zbias 0",
         {{surface(1, 0.8f, 1.0f, 4, 0x0F)}, {surface(1, 0.2f, 0.5f, 4, 0xF0)}}, 0.0, dof,
         {S{1, 1, {0.5f, 0.5f, 0.5f, 0.75f, 4}, 0, 0xFF}}},
        // 1.0015 is beyond 1.0 + zbias although within zbias of 1.0005; on
        // equal weights the earlier sample keeps its id.
        {"depth tolerance from the group's first boundary",
         {{surface(1.0f, 0.4f, 0.8f, 1), surface(1.0005f, 0.6f, 0.8f, 2), surface(1.0015f, 0.2f, 0.8f, 3)}}, dz, dof,
         {S{1.0f, 1.0005f, {1.0f, 1.0f, 1.0f, 1.6f, 1}, 0, 1}, S{1.0015f, 1.0015f, {0.2f, 0.2f, 0.2f, 0.8f, 3}, 0, 1}}},
        {"opacities reaching the tolerance exactly join",
         {{surface(1, 0.1f, 0.25f, 1), surface(2, 0.2f, 0.25f, 2)}}, dz, 0.5,
         {S{1, 2, {0.3f, 0.3f, 0.3f, 0.5f, 1}, 0, 1}}},
        {"the opacity bound grows over the group",
         {{surface(1, 0.1f, 0.2f, 1), surface(2, 0.2f, 0.2f, 2), surface(3, 0.2f, 0.2f, 3)}}, dz, 0.5,
         {S{1, 2, {0.3f, 0.3f, 0.3f, 0.4f, 1}, 0, 1}, S{3, 3, {0.2f, 0.2f, 0.2f, 0.2f, 3}, 0, 1}}},
        {"a lone volume keeps its extent", {{volume(1, 2, 0.6f, 0.5f, 3, 0x5)}}, dz, dof,
         {S{1, 2, {0.6f, 0.6f, 0.6f, 0.5f, 3}, 0x01, 0x5}}},
        // The surface (weight 0.5) outweighs the volume's rest: its id wins.
        {"a volume splits at the midpoint before the next surface",
         {{volume(0, 4, 4.0f, 0.8f, 1, 0x1)}, {surface(2, 1.0f, 0.5f, 2, 0x2)}}, dz, dof,
         {S{0, 1, {4 * q, 4 * q, 4 * q, 0.8f * q, 1}, 0x01, 0x1}, S{1, 4, {c1, c1, c1, a1, 2}, 0x01, 0x3}}},
        // Split at 1.5; the second volume's full weight 0.5 beats the first's
        // rest, so its identifier replaces the first one.
        {"overlapping volumes share the group behind the split",
         {{volume(1, 3, 2.0f, 0.6f, 10, 0x1)}, {volume(2, 4, 1.0f, 0.4f, 20, 0x2)}}, dz, dof,
         {S{1, 1.5f, {2 * q, 2 * q, 2 * q, 0.6f * q, 10}, 0x01, 0x1}, S{1.5f, 4, {c2, c2, c2, a2, 20}, 0x01, 0x3}}},
        {"a volume ending where a sample starts closes first",
         {{volume(1, 2, 1.0f, 0.5f, 1), surface(2, 1.0f, 0.5f, 2)}}, dz, dof,
         {S{1, 2, {1, 1, 1, 0.5f, 1}, 0x01, 1}, S{2, 2, {1, 1, 1, 0.5f, 2}, 0x00, 1}}},
    };
    ChannelsPtr chans = colourOpacityId();
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.what);
        ListPtr out = mergeOf(*simple(chans, c.zbias, c.ofbias), c.lists);
        ASSERT_TRUE(out);
        ASSERT_EQ(out->sampleCount(), static_cast<int>(c.expected.size()));
        for (int i = 0; i < out->sampleCount(); ++i)
        {
            const S got = sampleOf(*out, i), &e = c.expected[static_cast<std::size_t>(i)];
            EXPECT_FLOAT_EQ(got.zf, e.zf) << i;
            EXPECT_FLOAT_EQ(got.zb, e.zb) << i;
            EXPECT_EQ(got.flags, e.flags) << i;
            EXPECT_EQ(got.cov, e.cov) << i;
            for (std::size_t k = 0; k < e.v.size(); ++k)
                EXPECT_NEAR(got.v[k], e.v[k], 1e-6f) << i << " value " << k;
        }
    }
}

TEST(DeepCompressorSimpleMerge, TolerancesMattesAndOpacityComponentsDecideHowManyGroupsRemain)
{
    S matte = surface(1, 0, 0.5f, 7);
    matte.flags = 0x02;
    const S faintA = surface(1, 0.1f, 0.25f, 1), faintB = surface(2, 0.2f, 0.2501f, 2);
    const auto s3 = [](float z, float a2) { return S{z, z, {0.1f, 0.1f, 0.1f, 0.01f, 0.01f, a2, 1}, 0, 1}; };
    struct Case
    {
        const char *what;
        std::vector<std::vector<S>> lists;
        double zbias, ofbias; // zbias < 0: the "default" compressor
        int count;
        int ofSize = 1;
        const char *ofName = "Of", *ofOption = nullptr;
    };
    const Case cases[] = {
        {"a wide depth tolerance takes all",
         {{surface(1.0f, 0.4f, 0.8f, 1), surface(1.0005f, 0.6f, 0.8f, 2), surface(1.0015f, 0.2f, 0.8f, 3)}}, 10.0,
         1.0 / 32, 1},
        {"no depth tolerance keeps distinct depths apart",
         {{surface(1, 0.4f, 0.8f, 1), surface(1.0000001f, 0.6f, 0.8f, 2)}}, 0.0, 1.0 / 32, 2},
        {"just above the opacity tolerance", {{faintA, faintB}}, 0.001, 0.5, 2},
        {"the list weight counts: two entries weigh half", {{faintA, faintB}, {}}, 0.001, 0.5, 1},
        {"default 1/32: 0.015 + 0.015 joins", {{surface(1, 0.1f, 0.015f, 1), surface(5, 0.2f, 0.015f, 2)}}, -1, 0, 1},
        {"default 1/32: 0.02 + 0.02 does not", {{surface(1, 0.1f, 0.02f, 1), surface(5, 0.2f, 0.02f, 2)}}, -1, 0, 2},
        {"every opacity component within the tolerance", {{s3(1, 0.01f), s3(2, 0.015f)}}, 0.001, 1.0 / 32, 1, 3},
        {"one opacity component beyond it", {{s3(1, 0.01f), s3(2, 0.03f)}}, 0.001, 1.0 / 32, 2, 3},
        {"without an opacity channel only depth joins",
         {{surface(1, 0.1f, 0, 1), surface(2, 0.2f, 0, 2)}}, 0.001, 1.0, 2, 1, "A"},
        {"the opacity channel by its option name",
         {{surface(1, 0.1f, 0, 1), surface(2, 0.2f, 0, 2)}}, 0.001, 1.0, 1, 1, "A", "A"},
        {"holdouts and visible samples never join", {{surface(1, 0.5f, 0.5f, 1)}, {matte}}, 1.0, 1.0, 2},
        {"two holdouts do", {{matte}, {matte}}, 0.001, 1.0 / 32, 1},
    };
    for (const Case &c : cases)
    {
        ChannelsPtr chans = colourOpacityId(c.ofSize, c.ofName);
        ListPtr out = mergeOf(c.zbias < 0 ? *make("default", chans) : *simple(chans, c.zbias, c.ofbias, c.ofOption),
                              c.lists);
        ASSERT_TRUE(out) << c.what;
        EXPECT_EQ(out->sampleCount(), c.count) << c.what;
    }
}

// Random pixels through both merges. The null merge gives every input
// sample once and whole, in zfront order; the simple merge gives samples
// front to back without overlap, conserves every weighted contribution and
// takes coverage and identifiers from the inputs. Both take the first
// non-empty list's flag; a compressor without channels takes the inputs'.
TEST(DeepCompressorMerge, RandomPixelsKeepOrConserveEverySample)
{
    ChannelsPtr chans = channels({{"C", 3}, {"Of", 1}, {"X", 4}, {"P", 2}, {"id", 1, true}});
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> depth(0.0f, 10.0f), val(0.0f, 1.0f), len(0.0f, 3.0f);
    std::uniform_int_distribution<int> coin(0, 3);
    for (int trial = 0; trial < 400; ++trial)
    {
        SCOPED_TRACE("trial " + std::to_string(trial));
        const int count = 1 + trial % 6;
        std::vector<ListPtr> lists(static_cast<std::size_t>(count));
        std::vector<S> all;
        double sumC = 0, sumA = 0;
        int firstList = -1;
        for (int k = 0; k < count; ++k)
        {
            const int n = coin(rng) == 0 ? coin(rng) - 2 : 1 + coin(rng) * 3; // below 0: a null entry
            std::vector<S> samples;
            for (int i = 0; i < n; ++i)
            {
                const float z = static_cast<float>(static_cast<int>(depth(rng) * 4)) * 0.25f; // with ties
                S x{z, coin(rng) == 0 ? z + len(rng) : z, {}, static_cast<uint8>(rng() & 0xFE),
                    uint64(1) << (k * 8 + i % 8)};
                x.flags |= x.zb > x.zf ? 0x01 : 0x00;
                for (int c = 0; c < 10; ++c)
                    x.v.push_back(c == 3 ? val(rng) * 0.5f : val(rng));
                x.v.push_back(static_cast<float>(100 * k + i));
                samples.push_back(x);
                sumC += x.v[0] / static_cast<double>(count);
                sumA += x.v[3] / static_cast<double>(count);
            }
            std::stable_sort(samples.begin(), samples.end(), [](const S &p, const S &q) { return p.zf < q.zf; });
            if (n >= 0)
                lists[static_cast<std::size_t>(k)] = listOf(chans, samples, k % 2 == 1);
            if (n > 0 && firstList < 0)
                firstList = k;
            all.insert(all.end(), samples.begin(), samples.end());
        }
        ListPtr kept = make("null", trial % 3 ? chans : ChannelsPtr())->merge(lists.data(), count);
        ListPtr merged = simple(chans, trial % 2 ? 0.5 : 0.001, trial % 3 == 0 ? 1.0 : 1.0 / 32)
                             ->merge(lists.data(), count);
        if (all.empty())
        {
            EXPECT_FALSE(kept || merged);
            continue;
        }
        ASSERT_TRUE(kept && merged);
        EXPECT_EQ(kept->channels(), chans);
        EXPECT_EQ(kept->preComposited(), firstList % 2 == 1);
        EXPECT_EQ(merged->preComposited(), firstList % 2 == 1);
        std::vector<S> got = samplesOf(kept);
        for (std::size_t j = 1; j < got.size(); ++j)
            EXPECT_LE(got[j - 1].zf, got[j].zf);
        const auto byId = [](const S &a, const S &b) { return a.v[10] < b.v[10]; };
        std::sort(got.begin(), got.end(), byId);
        std::sort(all.begin(), all.end(), byId);
        EXPECT_EQ(got, all);

        ASSERT_LE(merged->sampleCount(), static_cast<int>(all.size()));
        double gotC = 0, gotA = 0;
        uint64 cov = 0, gotCov = 0;
        for (const S &x : all)
            cov |= x.cov;
        for (int i = 0; i < merged->sampleCount(); ++i)
        {
            EXPECT_LE(merged->zfront(i), merged->zback(i));
            if (i > 0)
                EXPECT_LE(merged->zback(i - 1), merged->zfront(i));
            gotC += merged->channelData(0, i)[0];
            gotA += merged->channelData(1, i)[0];
            gotCov |= merged->coverage(i);
            const float id = merged->channelData(4, i)[0];
            EXPECT_TRUE(std::binary_search(all.begin(), all.end(), S{0, 0, std::vector<float>(11, id)}, byId)) << id;
        }
        EXPECT_NEAR(gotC, sumC, 1e-4);
        EXPECT_NEAR(gotA, sumA, 1e-4);
        EXPECT_EQ(gotCov, cov);
    }
}
