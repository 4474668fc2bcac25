// Deep compressors: the heap behind the merges, the factory registry and
// options, the plain merge and the simple merge's grouping rule.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/platform/BAS_PriorityQueue.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using namespace deeptest;
using Factory = IMB_DeepCompressor::Factory;

// One sample as the tests write it: values packed in channel order.
struct S
{
    float zf;
    float zb;
    std::vector<float> v;
    uint8 flags = 0;
    uint64 cov = 0;
};

// C (3 floats), Of (ofSize floats), id (1 float, ordinal).
ChannelsPtr colourOpacityId(int ofSize = 1, const char *ofName = "Of")
{
    return channels({{"C", 3}, {ofName, ofSize}, {"id", 1, true}});
}

ListPtr makeList(const ChannelsPtr &chans, const std::vector<S> &samples, bool preComposited = false)
{
    ListPtr l(new IMB_DeepSampleList(chans, static_cast<int>(samples.size()), preComposited));
    for (int i = 0; i < static_cast<int>(samples.size()); ++i)
    {
        const S &s = samples[static_cast<std::size_t>(i)];
        l->zfrontBuffer()[i] = s.zf;
        l->zbackBuffer()[i] = s.zb;
        l->flagBuffer()[i] = s.flags;
        l->coverageBuffer()[i] = s.cov;
        for (int ch = 0; ch < chans->channelCount(); ++ch)
            for (int t = 0; t < chans->tupleSize(ch); ++t)
                l->channelData(ch, i)[t] = s.v[static_cast<std::size_t>(chans->offset(ch) + t)];
    }
    return l;
}

// A surface at depth z with colour c (all three components), opacity a and
// identifier id, for colourOpacityId(1).
S surface(float z, float c, float a, float id, uint64 cov = 1)
{
    return S{z, z, {c, c, c, a, id}, 0, cov};
}

S volume(float zf, float zb, float c, float a, float id, uint64 cov = 1)
{
    return S{zf, zb, {c, c, c, a, id}, 0x01, cov};
}

std::shared_ptr<IMB_DeepCompressor> make(const char *name, const ChannelsPtr &chans,
                                         const BAS_Options &opts = BAS_Options())
{
    return Factory::create(name, chans, opts);
}

std::string dumpOf(const IMB_DeepCompressor &c, const char *label)
{
    return capturedStdout([&] { c.dump(label); });
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

TEST(BasPriorityQueue, PopsAndReplacesItemsInAscendingKeyOrder)
{
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> dist(-50, 50);
    BAS_PriorityQueue<Item> q;
    std::vector<int> keys;
    for (int i = 0; i < 500; ++i)
    {
        keys.push_back(dist(rng));
        q.push(Item{keys.back(), i});
        if (i % 7 == 3)
        {
            // Interleave pops with pushes: the smallest so far leaves first.
            auto smallest = std::min_element(keys.begin(), keys.end());
            EXPECT_EQ(q.top().key, *smallest);
            q.pop();
            keys.erase(smallest);
        }
    }
    // Replacing the top removes the smallest and inserts the new item, the
    // way a merge advances the list it just took from.
    for (int i = 0; i < 200; ++i)
    {
        auto smallest = std::min_element(keys.begin(), keys.end());
        ASSERT_EQ(q.top().key, *smallest);
        *smallest = dist(rng);
        q.replaceTop(Item{*smallest, 1000 + i});
    }
    std::sort(keys.begin(), keys.end());
    ASSERT_EQ(q.entries(), static_cast<int>(keys.size()));
    for (int k : keys)
    {
        ASSERT_FALSE(q.isEmpty());
        EXPECT_EQ(q.popTop().key, k);
    }
    EXPECT_TRUE(q.isEmpty());
}

TEST(BasPriorityQueue, ANewItemRisesAboveAnEqualKeyedParent)
{
    BAS_PriorityQueue<Item> q;
    q.push(Item{5, 0});
    q.push(Item{5, 1});
    EXPECT_EQ(q.top().tag, 1);
    EXPECT_EQ(q(1).tag, 0);
    // It keeps rising through a chain of equal keys, but not above a smaller one.
    BAS_PriorityQueue<Item> r;
    r.push(Item{1, 0});
    r.push(Item{3, 1});
    r.push(Item{3, 2});
    r.push(Item{3, 3}); // child of tag 1 (index 1)
    EXPECT_EQ(r.top().tag, 0);
    EXPECT_EQ(r(1).tag, 3);
    EXPECT_EQ(r(3).tag, 1);
}

TEST(BasPriorityQueue, ClearEmptiesAndTheQueueIsReusable)
{
    BAS_PriorityQueue<Item> q;
    q.push(Item{2, 0});
    q.pop();
    EXPECT_TRUE(q.isEmpty());
    q.push(Item{4, 1});
    q.push(Item{3, 2});
    q.clear();
    EXPECT_EQ(q.size(), 0);
    q.push(Item{9, 3});
    EXPECT_EQ(q.top().tag, 3);
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
    auto n = make("null", chans);
    ASSERT_TRUE(n);
    EXPECT_STREQ(n->name(), "null");
    EXPECT_EQ(n->channels(), chans);
    for (const char *alias : {"default", "mip", "simple"})
    {
        auto c = make(alias, chans);
        ASSERT_TRUE(c) << alias;
        EXPECT_STREQ(c->name(), "simple");
        EXPECT_EQ(c->channels(), chans);
    }
    EXPECT_FALSE(make("Simple", chans));
    EXPECT_FALSE(make("simple ", chans));
    EXPECT_FALSE(make("", chans));
    EXPECT_FALSE(Factory::create(nullptr, chans, BAS_Options()));

    BAS_StringArray names;
    Factory::getCompressors(names);
    for (const char *expected : {"default", "mip", "null", "simple"})
        EXPECT_GE(names.find(expected), 0) << expected;
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

namespace
{
class TaggedCompressor : public IMB_DeepCompressor
{
public:
    TaggedCompressor(const ChannelsPtr &c, const char *tag) : myChannels(c), myTag(tag) {}
    const ChannelsPtr &channels() const override { return myChannels; }
    const char *name() const override { return myTag; }

protected:
    ListPtr doMerge(const ListPtr *lists, int) const override { return lists[0]; }
    ListPtr doCompress(const ListPtr &l) const override { return l; }

private:
    ChannelsPtr myChannels;
    const char *myTag;
};

class TaggedFactory : public Factory
{
public:
    explicit TaggedFactory(const char *tag) : myTag(tag) {}
    std::shared_ptr<IMB_DeepCompressor> create(const ChannelsPtr &c, const BAS_Options &) const override
    {
        return std::make_shared<TaggedCompressor>(c, myTag);
    }

private:
    const char *myTag;
};
} // namespace

TEST(DeepCompressorFactory, RegisterAddsOrReplacesAndInitRestoresOnlyTheBuiltIns)
{
    Factory::initCompressors();
    Factory::registerCompressor("tagged-one", std::make_shared<TaggedFactory>("first"));
    EXPECT_STREQ(make("tagged-one", nullptr)->name(), "first");
    Factory::registerCompressor("tagged-one", std::make_shared<TaggedFactory>("second"));
    EXPECT_STREQ(make("tagged-one", nullptr)->name(), "second");
    Factory::registerCompressor(nullptr, std::make_shared<TaggedFactory>("ignored"));

    Factory::registerCompressor("mip", std::make_shared<TaggedFactory>("override"));
    EXPECT_STREQ(make("mip", nullptr)->name(), "override");
    EXPECT_STREQ(make("simple", nullptr)->name(), "simple");
    Factory::initCompressors();
    EXPECT_STREQ(make("mip", nullptr)->name(), "simple");
    EXPECT_STREQ(make("tagged-one", nullptr)->name(), "second");

    BAS_StringArray names;
    Factory::getCompressors(names);
    EXPECT_GE(names.find("tagged-one"), 0);
    EXPECT_EQ(std::count_if(names.begin(), names.end(), [](const BAS_StringHolder &s) { return s.isEmpty(); }), 0);
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
        int level; // -100: not set
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
}

TEST(DeepCompressorDump, PrintsTheLabelAndNameThenTheSettings)
{
    EXPECT_EQ(dumpOf(*make("null", colourOpacityId()), "pixel"), "pixel null =\n");
    EXPECT_EQ(dumpOf(*make("null", colourOpacityId()), nullptr), "IMB_DeepCompressor null =\n");
    EXPECT_EQ(dumpOf(*make("null", colourOpacityId()), ""), "IMB_DeepCompressor null =\n");
    const std::string s = dumpOf(*make("mip", colourOpacityId()), nullptr);
    EXPECT_EQ(s.rfind("IMB_DeepCompressor simple =\n{\n\tzbias : 0.001\n", 0), 0u) << s;
}

// ---------------------------------------------------------------- plain merge

// ---------------------------------------------------------------- simple merge

namespace
{
// The simple compressor with explicit tolerances.
std::shared_ptr<IMB_DeepCompressor> simple(const ChannelsPtr &chans, double zbias = 0.001, double ofbias = 1.0 / 32)
{
    BAS_Options o;
    o.setOptionF("zbias", zbias);
    o.setOptionF("ofbias", ofbias);
    return make("simple", chans, o);
}

void expectSample(const IMB_DeepSampleList &l, int i, float zf, float zb, uint8 flags, uint64 cov,
                  const std::vector<float> &v)
{
    SCOPED_TRACE("sample " + std::to_string(i));
    EXPECT_FLOAT_EQ(l.zfront(i), zf);
    EXPECT_FLOAT_EQ(l.zback(i), zb);
    EXPECT_EQ(l.flags(i), flags);
    EXPECT_EQ(l.coverage(i), cov);
    const ChannelsPtr &c = l.channels();
    std::size_t k = 0;
    for (int ch = 0; ch < c->channelCount(); ++ch)
        for (int t = 0; t < c->tupleSize(ch); ++t, ++k)
            EXPECT_NEAR(l.channelData(ch, i)[t], v[k], 1e-6f) << "channel " << ch << " component " << t;
}
} // namespace

namespace
{
// Input lists (an empty vector stands for a null entry), the tolerances, and
// the samples the merge must give.
struct MergeCase
{
    const char *what;
    std::vector<std::vector<S>> lists;
    double zbias, ofbias;
    std::vector<S> expected;
};

ListPtr mergeOf(const ChannelsPtr &chans, const std::vector<std::vector<S>> &in, double zbias, double ofbias)
{
    std::vector<ListPtr> lists;
    for (const std::vector<S> &l : in)
        lists.push_back(l.empty() ? ListPtr() : makeList(chans, l));
    return simple(chans, zbias, ofbias)->merge(lists.data(), static_cast<int>(lists.size()));
}
} // namespace

TEST(DeepCompressorSimpleMerge, GroupsSplitsAndWeighsSamplesByTheRule)
{
    const double dz = 0.001, dof = 1.0 / 32;
    // A volume 0..4 split at (0 + 2) / 2 = 1 before a surface at 2: r = (4 - 1) / 4,
    // so a quarter of it (weight 0.5 x 0.25) in front and three quarters behind.
    const float q = 0.5f * 0.25f, t = 0.5f * 0.75f;
    const float c1 = 0.5f * 1.0f + 4 * t, a1 = 0.5f * 0.5f + 0.8f * t;
    const float c2 = 2 * t + 0.5f * 1.0f, a2 = 0.6f * t + 0.5f * 0.4f;
    const MergeCase cases[] = {
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
    for (const MergeCase &c : cases)
    {
        SCOPED_TRACE(c.what);
        ListPtr out = mergeOf(chans, c.lists, c.zbias, c.ofbias);
        ASSERT_TRUE(out);
        ASSERT_EQ(out->sampleCount(), static_cast<int>(c.expected.size()));
        for (int i = 0; i < out->sampleCount(); ++i)
        {
            const S &e = c.expected[static_cast<std::size_t>(i)];
            expectSample(*out, i, e.zf, e.zb, e.flags, e.cov, e.v);
            EXPECT_EQ(out->isVolume(i), (e.flags & 0x01) != 0 && e.zf < e.zb);
        }
    }
}

TEST(DeepCompressorSimpleMerge, TolerancesDecideHowManyGroupsRemain)
{
    struct Case
    {
        const char *what;
        std::vector<std::vector<S>> lists;
        double zbias, ofbias; // zbias < 0: the "default" compressor
        int count;
    };
    const S faintA = surface(1, 0.1f, 0.25f, 1), faintB = surface(2, 0.2f, 0.2501f, 2);
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
    };
    ChannelsPtr chans = colourOpacityId();
    for (const Case &c : cases)
    {
        ListPtr out;
        if (c.zbias < 0)
        {
            ListPtr l = makeList(chans, c.lists[0]);
            out = make("default", chans)->merge(&l, 1);
        }
        else
            out = mergeOf(chans, c.lists, c.zbias, c.ofbias);
        ASSERT_TRUE(out) << c.what;
        EXPECT_EQ(out->sampleCount(), c.count) << c.what;
    }
}

TEST(DeepCompressorSimpleMerge, EveryOpacityComponentMustStayWithinTheTolerance)
{
    ChannelsPtr chans = colourOpacityId(3);
    auto s3 = [](float z, float a0, float a1, float a2, float id) {
        return S{z, z, {0.1f, 0.1f, 0.1f, a0, a1, a2, id}, 0, 1};
    };
    ListPtr ok = makeList(chans, {s3(1, 0.01f, 0.01f, 0.01f, 1), s3(2, 0.01f, 0.01f, 0.015f, 2)});
    ListPtr blue = makeList(chans, {s3(1, 0.01f, 0.01f, 0.01f, 1), s3(2, 0.01f, 0.01f, 0.03f, 2)});
    EXPECT_EQ(make("simple", chans)->merge(&ok, 1)->sampleCount(), 1);
    EXPECT_EQ(make("simple", chans)->merge(&blue, 1)->sampleCount(), 2);
}

TEST(DeepCompressorSimpleMerge, WithoutAnOpacityChannelOnlyDepthJoins)
{
    ChannelsPtr chans = colourOpacityId(1, "A");
    ListPtr a = makeList(chans, {surface(1, 0.1f, 0.0f, 1), surface(2, 0.2f, 0.0f, 2)});
    EXPECT_EQ(simple(chans, 0.001, 1.0)->merge(&a, 1)->sampleCount(), 2);
    BAS_Options o;
    o.setOptionS("ofname", "A");
    o.setOptionF("ofbias", 1.0);
    EXPECT_EQ(make("simple", chans, o)->merge(&a, 1)->sampleCount(), 1);
}

TEST(DeepCompressorSimpleMerge, HoldoutsAndVisibleSamplesNeverJoin)
{
    ChannelsPtr chans = colourOpacityId();
    S matte = surface(1, 0, 0.5f, 7);
    matte.flags = 0x02;
    ListPtr a = makeList(chans, {surface(1, 0.5f, 0.5f, 1)});
    ListPtr b = makeList(chans, {matte});
    ListPtr lists[] = {a, b};
    ListPtr out = simple(chans, 1.0, 1.0)->merge(lists, 2);
    ASSERT_EQ(out->sampleCount(), 2);
    EXPECT_NE(out->isMatte(0), out->isMatte(1));
    // Two holdouts do join.
    ListPtr c = makeList(chans, {matte});
    ListPtr both[] = {b, c};
    ListPtr mattes = simple(chans)->merge(both, 2);
    ASSERT_EQ(mattes->sampleCount(), 1);
    EXPECT_TRUE(mattes->isMatte(0));
}

TEST(DeepCompressorSimpleMerge, IdentifiersAreNeverBlended)
{
    ChannelsPtr chans = colourOpacityId();
    ListPtr a = makeList(chans, {surface(1, 0.5f, 0.9f, 3)});
    ListPtr b = makeList(chans, {surface(1, 0.5f, 0.9f, 5)});
    ListPtr lists[] = {a, b};
    ListPtr out = simple(chans)->merge(lists, 2);
    ASSERT_EQ(out->sampleCount(), 1);
    const float id = out->channelData(2, 0)[0];
    // Equal depths leave the heap in no set order; either id, never a mix.
    EXPECT_TRUE(id == 3 || id == 5) << id;
}

TEST(DeepCompressorSimpleMerge, PreCompositedFlagComesFromTheFirstNonEmptyList)
{
    ChannelsPtr chans = colourOpacityId();
    ListPtr empty(new IMB_DeepSampleList(chans, 0, false));
    ListPtr a = makeList(chans, {surface(1, 0.5f, 0.9f, 3)}, true);
    ListPtr b = makeList(chans, {surface(0.5f, 0.5f, 0.9f, 3)}, false);
    ListPtr lists[] = {empty, a, b};
    EXPECT_TRUE(simple(chans)->merge(lists, 3)->preComposited());
    EXPECT_TRUE(make("null", chans)->merge(lists, 3)->preComposited());
}

// Random pixels: output front to back without overlap, every weighted
// contribution conserved, coverage and identifiers taken from the inputs.
TEST(DeepCompressorSimpleMerge, RandomPixelsConserveWeightedValuesFrontToBack)
{
    ChannelsPtr chans = colourOpacityId();
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> depth(0.0f, 10.0f), val(0.0f, 1.0f), len(0.0f, 3.0f);
    std::uniform_int_distribution<int> coin(0, 3);
    for (int trial = 0; trial < 300; ++trial)
    {
        SCOPED_TRACE("trial " + std::to_string(trial));
        const int count = 1 + trial % 5;
        std::vector<ListPtr> lists(static_cast<std::size_t>(count));
        double sumC = 0, sumA = 0;
        uint64 covAll = 0;
        std::set<float> ids;
        int inputs = 0;
        for (int k = 0; k < count; ++k)
        {
            const int n = coin(rng) == 0 ? 0 : 1 + coin(rng) * 2;
            if (n == 0)
                continue;
            std::vector<S> s;
            for (int i = 0; i < n; ++i)
            {
                const float z = depth(rng);
                const bool vol = coin(rng) == 0;
                const float id = static_cast<float>(100 * k + i);
                const uint64 cov = uint64(1) << (k * 8 + i % 8);
                S x = vol ? volume(z, z + len(rng), val(rng), val(rng) * 0.5f, id, cov)
                          : surface(z, val(rng), val(rng) * 0.5f, id, cov);
                if (coin(rng) == 0)
                    x.flags |= 0x02;
                s.push_back(x);
                sumC += x.v[0] / static_cast<double>(count);
                sumA += x.v[3] / static_cast<double>(count);
                covAll |= cov;
                ids.insert(id);
            }
            std::sort(s.begin(), s.end(), [](const S &p, const S &q) { return p.zf < q.zf; });
            lists[static_cast<std::size_t>(k)] = makeList(chans, s);
            inputs += n;
        }
        const double ofbias = trial % 3 == 0 ? 1.0 : 1.0 / 32;
        ListPtr out = simple(chans, trial % 2 ? 0.5 : 0.001, ofbias)->merge(lists.data(), count);
        if (inputs == 0)
        {
            EXPECT_FALSE(out);
            continue;
        }
        ASSERT_TRUE(out);
        ASSERT_GE(out->sampleCount(), 1);
        ASSERT_LE(out->sampleCount(), inputs);
        double gotC = 0, gotA = 0;
        uint64 gotCov = 0;
        for (int i = 0; i < out->sampleCount(); ++i)
        {
            EXPECT_LE(out->zfront(i), out->zback(i));
            if (i > 0)
                EXPECT_LE(out->zback(i - 1), out->zfront(i));
            gotC += out->channelData(0, i)[0];
            gotA += out->channelData(1, i)[0];
            gotCov |= out->coverage(i);
            EXPECT_TRUE(ids.count(out->channelData(2, i)[0])) << out->channelData(2, i)[0];
        }
        EXPECT_NEAR(gotC, sumC, 1e-4);
        EXPECT_NEAR(gotA, sumA, 1e-4);
        EXPECT_EQ(gotCov, covAll);
    }
}
