// Channel lists, and the growable array and intrusive counting they rest on.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepChannelList.h>
#include <IMB/platform/BAS_Array.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace
{
using namespace deeptest;

// The growth sequence written out from the rule: 4, 8, multiples of 16 up to
// 128, multiples of 128 up to 1024, then one eighth more each time.
std::vector<exint> expectedGrowth(exint upTo)
{
    std::vector<exint> caps{4, 8};
    for (exint c = 16; c <= 128; c += 16)
        caps.push_back(c);
    for (exint c = 256; c <= 1024; c += 128)
        caps.push_back(c);
    while (caps.back() < upTo)
        caps.push_back(caps.back() + caps.back() / 8);
    return caps;
}

struct Counted
{
    static inline int live = 0;
    std::string text;
    Counted() { ++live; }
    explicit Counted(std::string t) : text(std::move(t)) { ++live; }
    Counted(const Counted &o) : text(o.text) { ++live; }
    Counted(Counted &&o) noexcept : text(std::move(o.text)) { ++live; }
    Counted &operator=(const Counted &) = default;
    ~Counted() { --live; }
};

std::string captureDump(const IMB_DeepChannelList &list, const char *label)
{
    return capturedStderr([&] { list.dump(label); });
}
} // namespace

TEST(BasArray, GrowsOneAppendAtATimeThroughTheFixedCapacitySequence)
{
    BAS_Array<int> a;
    EXPECT_EQ(a.capacity(), 0);
    std::vector<exint> seen;
    for (int i = 0; i < 5000; ++i)
    {
        exint before = a.capacity();
        a.append(i);
        if (a.capacity() != before)
            seen.push_back(a.capacity());
    }
    std::vector<exint> expected = expectedGrowth(5000);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(seen[seen.size() - 2] + seen[seen.size() - 2] / 8, seen.back());
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(a[i], i);
}

TEST(BasArray, SetSizeStepsByThePolicyAndClearKeepsTheCapacity)
{
    BAS_Array<int> a;
    a.setSize(100);
    EXPECT_EQ(a.size(), 100);
    EXPECT_EQ(a.capacity(), 112);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(a[i], 0);
    a.setSize(1025);
    EXPECT_EQ(a.capacity(), 1152);
    a.clear();
    EXPECT_EQ(a.size(), 0);
    EXPECT_EQ(a.capacity(), 1152);
    a.setSize(-3);
    EXPECT_EQ(a.size(), 0);
}

TEST(BasArray, OwnsNonTrivialEntriesThroughGrowthCopiesAndShrinks)
{
    {
        BAS_Array<Counted> a;
        for (int i = 0; i < 40; ++i)
            a.append(Counted(std::to_string(i)));
        a.append(a[3]); // an entry of the array itself, appended at a growth step
        EXPECT_EQ(a.size(), 41);
        EXPECT_EQ(a[40].text, "3");
        BAS_Array<Counted> b(a);
        EXPECT_EQ(Counted::live, 82);
        b.setSize(10);
        EXPECT_EQ(Counted::live, 51);
        b.removeLast();
        EXPECT_EQ(b.last().text, "8");
        a = std::move(b);
        EXPECT_EQ(a.size(), 9);
        EXPECT_EQ(Counted::live, 9);
    }
    EXPECT_EQ(Counted::live, 0);
}

TEST(BasArray, AppendingAnEntryAtFullCapacityCopiesItBeforeGrowing)
{
    BAS_Array<std::string> a;
    for (int i = 0; i < 4; ++i)
        a.append(std::string(40, static_cast<char>('a' + i)));
    ASSERT_EQ(a.size(), a.capacity());
    a.append(a[0]);
    EXPECT_EQ(a[4], std::string(40, 'a'));
    EXPECT_EQ(a[0], std::string(40, 'a'));
}

TEST(DeepChannelList, OffsetsAreRunningSumsAndLookupFindsTheFirstExactName)
{
    IMB_DeepChannelList list;
    EXPECT_EQ(list.channelCount(), 0);
    EXPECT_EQ(list.findChannel("C"), -1);
    EXPECT_EQ(list.totalSize(), 0);
    EXPECT_EQ(list.maxSize(), 0);
    EXPECT_EQ(list.findChannel(nullptr), -1);
    EXPECT_EQ(list.use_count(), 0);
    EXPECT_EQ(captureDump(list, nullptr), "channels = {\n}\n");
    EXPECT_EQ(captureDump(list, ""), "channels = {\n}\n");
    list.addChannel("C", 3);
    list.addChannel("A", 1);
    list.addChannel("id", 1, true);
    list.addChannel("A", 2); // duplicates are added; lookup finds the first
    ASSERT_EQ(list.channelCount(), 4);
    EXPECT_EQ(list.offset(0), 0);
    EXPECT_EQ(list.offset(1), 3);
    EXPECT_EQ(list.offset(2), 4);
    EXPECT_EQ(list.offset(3), 5);
    EXPECT_EQ(list.name(2), "id");
    EXPECT_EQ(list.totalSize(), 7);
    EXPECT_EQ(list.maxSize(), 3);
    EXPECT_FALSE(list.isOrdinal(1));
    EXPECT_TRUE(list.isOrdinal(2));
    EXPECT_EQ(list.findChannel("A"), 1);
    EXPECT_EQ(list.findChannel("a"), -1);
    EXPECT_EQ(list.findChannel(""), -1);
    EXPECT_EQ(captureDump(list, "mine"), "mine = {\n  3 'C'\n  1 'A'\n  1 'id'\n  2 'A'\n}\n");
    IMB_DeepChannelList unnamed;
    unnamed.addChannel(BAS_StringHolder(), 2);
    EXPECT_EQ(captureDump(unnamed, "x"), "x = {\n  2 ''\n}\n");
}

TEST(DeepChannelList, EqualityComparesOrderSizesAndOrdinalFlags)
{
    IMB_DeepChannelList a, b, reordered, ordinal, renamed;
    EXPECT_TRUE(a == b); // two empty lists
    a.addChannel("C", 3);
    a.addChannel("A", 3);
    b.addChannel(std::string("C"), 3);
    b.addChannel(std::string("A"), 3);
    reordered.addChannel("A", 3);
    reordered.addChannel("C", 3);
    ordinal.addChannel("C", 3);
    ordinal.addChannel("A", 3, true);
    renamed.addChannel("C", 3);
    renamed.addChannel("B", 3);
    EXPECT_TRUE(a.isEqual(a));
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a == reordered);
    EXPECT_FALSE(a == ordinal);
    EXPECT_FALSE(a == renamed);
    IMB_DeepChannelList shorter;
    shorter.addChannel("C", 3);
    EXPECT_TRUE(a != shorter);
    // Same count and total but a different largest tuple.
    IMB_DeepChannelList c, d;
    c.addChannel("x", 2);
    c.addChannel("y", 2);
    d.addChannel("x", 1);
    d.addChannel("y", 3);
    EXPECT_FALSE(c == d);
}

TEST(DeepChannelList, CopiesStartWithAZeroUseCountAndAssignmentKeepsTheTargetsCount)
{
    ChannelsPtr held(new IMB_DeepChannelList);
    held->addChannel("C", 3);
    ChannelsPtr second = held;
    EXPECT_EQ(held->use_count(), 2);

    IMB_DeepChannelList copy(*held);
    EXPECT_EQ(copy.use_count(), 0);
    EXPECT_TRUE(copy == *held);

    ChannelsPtr target(new IMB_DeepChannelList);
    *target = *held;
    EXPECT_EQ(target->use_count(), 1);
    EXPECT_TRUE(*target == *held);

    IMB_DeepChannelList moved(std::move(copy));
    EXPECT_EQ(moved.use_count(), 0);
    EXPECT_EQ(moved.channelCount(), 1);
    EXPECT_EQ(moved.totalSize(), 3);
    *target = std::move(moved);
    EXPECT_EQ(target->use_count(), 1);
    EXPECT_EQ(target->maxSize(), 3);
}

TEST(DeepChannelList, ConditionalAddRefOnlyRevivesALiveCount)
{
    IMB_DeepChannelList local;
    EXPECT_FALSE(local.conditionalAddRef());
    EXPECT_EQ(local.use_count(), 0);

    ChannelsPtr p(new IMB_DeepChannelList);
    EXPECT_TRUE(p->conditionalAddRef());
    EXPECT_EQ(p->use_count(), 2);
    ChannelsPtr adopt(p.get(), false); // takes over the reference added above
    EXPECT_EQ(p->use_count(), 2);
}

TEST(DeepChannelList, UseCountStaysExactUnderManyThreads)
{
    ChannelsPtr shared(new IMB_DeepChannelList);
    shared->addChannel("C", 3);
    constexpr int kThreads = 8;
    constexpr int kRounds = 20000;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            ready.fetch_add(1);
            while (ready.load() < kThreads)
            {
            }
            std::vector<ChannelsPtr> mine;
            for (int r = 0; r < kRounds; ++r)
            {
                mine.push_back(shared);
                if (r % 3 == 0)
                    mine.pop_back();
                if (shared->conditionalAddRef())
                    ChannelsPtr(shared.get(), false).reset();
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(shared->use_count(), 1);
}

TEST(DeepChannelList, LastReleaseOnAnotherThreadDeletesTheObjectOnce)
{
    // A counted object that reports its own destruction.
    struct Tracked : BAS_IntrusiveRefCounter<Tracked>
    {
        std::atomic<int> *deaths;
        explicit Tracked(std::atomic<int> *d) : deaths(d) {}
        ~Tracked() { deaths->fetch_add(1); }
    };
    std::atomic<int> deaths{0};
    for (int round = 0; round < 200; ++round)
    {
        auto *raw = new Tracked(&deaths);
        BAS_IntrusivePtr<Tracked> a(raw);
        BAS_IntrusivePtr<Tracked> b(a);
        std::thread t([p = std::move(b)]() mutable { p.reset(); });
        a.reset();
        t.join();
    }
    EXPECT_EQ(deaths.load(), 200);
}
