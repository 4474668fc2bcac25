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

// The capacities of an array growing from empty, written out from the rule:
// 4, 8, multiples of 16 up to 128, multiples of 128 up to 1024, then one
// eighth more each time.
std::vector<exint> expectedGrowth(exint upTo)
{
    std::vector<exint> caps{0, 4, 8};
    for (exint c = 16; c <= 128; c += 16)
        caps.push_back(c);
    for (exint c = 256; c <= 1024; c += 128)
        caps.push_back(c);
    while (caps.back() < upTo)
        caps.push_back(caps.back() + caps.back() / 8);
    return caps;
}

// Counts live instances; its text is long enough to live on the heap, so a
// stale reference reads freed memory.
struct Counted
{
    static inline int live = 0;
    std::string text;
    explicit Counted(int i = 0) : text(std::to_string(i) + std::string(40, '.')) { ++live; }
    Counted(const Counted &o) : text(o.text) { ++live; }
    Counted(Counted &&o) noexcept : text(std::move(o.text)) { ++live; }
    Counted &operator=(const Counted &) = default;
    ~Counted() { --live; }
};

std::string dumped(const IMB_DeepChannelList &list, const char *label)
{
    return captured([&] { list.dump(label); });
}
} // namespace

TEST(BasArray, GrowsThroughTheFixedCapacitySequenceAndSetSizeStepsTheSameWay)
{
    BAS_Array<int> a;
    std::vector<exint> seen{a.capacity()};
    for (int i = 0; i < 5000; ++i)
    {
        a.append(i);
        if (a.capacity() != seen.back())
            seen.push_back(a.capacity());
    }
    EXPECT_EQ(seen, expectedGrowth(5000));
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(a[i], i);

    BAS_Array<int> b;
    b.setSize(100);
    EXPECT_EQ(b.capacity(), 112);
    EXPECT_EQ(std::vector<int>(b.begin(), b.end()), std::vector<int>(100, 0));
    b.setSize(1025);
    EXPECT_EQ(b.capacity(), 1152);
    b.clear();
    EXPECT_EQ(b.size(), 0);
    EXPECT_EQ(b.capacity(), 1152);
    b.setSize(-3);
    EXPECT_EQ(b.size(), 0);
}

TEST(BasArray, OwnsNonTrivialEntriesThroughGrowthCopiesAndShrinks)
{
    {
        BAS_Array<Counted> a;
        for (int i = 0; i < 32; ++i)
            a.append(Counted(i));
        ASSERT_EQ(a.size(), a.capacity());
        a.append(a[3]); // an entry of the array itself, appended at a growth step
        EXPECT_EQ(a[32].text, a[3].text);
        EXPECT_EQ(a[3].text, Counted(3).text);
        BAS_Array<Counted> b(a);
        EXPECT_EQ(Counted::live, 66);
        b.setSize(10);
        EXPECT_EQ(Counted::live, 43);
        b.removeLast();
        EXPECT_EQ(b.last().text, Counted(8).text);
        a = std::move(b);
        EXPECT_EQ(a.size(), 9);
        EXPECT_EQ(Counted::live, 9);
    }
    EXPECT_EQ(Counted::live, 0);
}

TEST(DeepChannelList, OffsetsAreRunningSumsAndLookupFindsTheFirstExactName)
{
    IMB_DeepChannelList list;
    EXPECT_EQ(list.findChannel("C"), -1);
    EXPECT_EQ(list.totalSize() + list.maxSize() + list.channelCount() + list.use_count(), 0);
    EXPECT_EQ(dumped(list, nullptr), "channels = {\n}\n");
    EXPECT_EQ(dumped(list, ""), "channels = {\n}\n");
    list.addChannel("C", 3);
    list.addChannel("A", 1);
    list.addChannel("id", 1, true);
    list.addChannel("A", 2); // duplicates are added; lookup finds the first
    ASSERT_EQ(list.channelCount(), 4);
    const int offsets[] = {0, 3, 4, 5};
    for (int ch = 0; ch < 4; ++ch)
    {
        EXPECT_EQ(list.offset(ch), offsets[ch]);
        EXPECT_EQ(list.isOrdinal(ch), ch == 2);
    }
    EXPECT_EQ(list.name(2), "id");
    EXPECT_EQ(list.totalSize(), 7);
    EXPECT_EQ(list.maxSize(), 3);
    EXPECT_EQ(list.findChannel("A"), 1);
    for (const char *missing : {"a", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(list.findChannel(missing), -1);
    EXPECT_EQ(dumped(list, "mine"), "mine = {\n  3 'C'\n  1 'A'\n  1 'id'\n  2 'A'\n}\n");
    IMB_DeepChannelList unnamed;
    unnamed.addChannel(BAS_StringHolder(), 2);
    EXPECT_EQ(dumped(unnamed, "x"), "x = {\n  2 ''\n}\n");
}

TEST(DeepChannelList, EqualityComparesNamesOrderSizesAndOrdinalFlags)
{
    const ChannelsPtr a = channels({{"C", 3}, {"A", 3}});
    EXPECT_TRUE(*a == *a);
    EXPECT_TRUE(IMB_DeepChannelList() == IMB_DeepChannelList());
    IMB_DeepChannelList fromStrings;
    fromStrings.addChannel(std::string("C"), 3);
    fromStrings.addChannel(std::string("A"), 3);
    EXPECT_TRUE(*a == fromStrings);
    EXPECT_FALSE(*a != fromStrings);
    // Each differs from `a` in one respect; the last two have the same count
    // and total but a different largest tuple.
    for (const ChannelsPtr &other : {channels({{"A", 3}, {"C", 3}}), channels({{"C", 3}, {"A", 3, true}}),
                                     channels({{"C", 3}, {"B", 3}}), channels({{"C", 3}})})
        EXPECT_TRUE(*a != *other);
    EXPECT_FALSE(*channels({{"x", 2}, {"y", 2}}) == *channels({{"x", 1}, {"y", 3}}));
}

TEST(DeepChannelList, CopiesStartWithAZeroUseCountAndAssignmentKeepsTheTargetsCount)
{
    ChannelsPtr held = channels({{"C", 3}});
    ChannelsPtr second = held;
    EXPECT_EQ(held->use_count(), 2);
    IMB_DeepChannelList copy(*held);
    EXPECT_EQ(copy.use_count(), 0);
    EXPECT_FALSE(copy.conditionalAddRef()); // only a live count is revived
    EXPECT_TRUE(copy == *held);
    ChannelsPtr target(new IMB_DeepChannelList);
    *target = *held;
    EXPECT_EQ(target->use_count(), 1);
    EXPECT_TRUE(*target == *held);
    EXPECT_TRUE(target->conditionalAddRef());
    ChannelsPtr adopt(target.get(), false); // takes over the reference added above
    EXPECT_EQ(target->use_count(), 2);

    IMB_DeepChannelList moved(std::move(copy));
    EXPECT_EQ(moved.use_count(), 0);
    EXPECT_TRUE(moved == *held);
    *target = std::move(moved);
    EXPECT_EQ(target->use_count(), 2);
    EXPECT_TRUE(*target == *held);
    for (IMB_DeepChannelList *source : {&copy, &moved}) // left empty and usable
    {
        source->addChannel("Z", 2);
        EXPECT_EQ(source->offset(0), 0);
        EXPECT_EQ(source->totalSize() + source->maxSize(), 4);
    }
}

TEST(DeepChannelList, UseCountStaysExactUnderManyThreadsAndTheLastReleaseDeletesOnce)
{
    ChannelsPtr shared = channels({{"C", 3}});
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            ready.fetch_add(1);
            while (ready.load() < kThreads)
                std::this_thread::yield();
            std::vector<ChannelsPtr> mine;
            for (int r = 0; r < 20000; ++r)
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

    // A counted object that reports its own destruction, released last on
    // either of two threads.
    struct Tracked : BAS_IntrusiveRefCounter<Tracked>
    {
        std::atomic<int> *deaths;
        explicit Tracked(std::atomic<int> *d) : deaths(d) {}
        ~Tracked() { deaths->fetch_add(1); }
    };
    std::atomic<int> deaths{0};
    for (int round = 0; round < 200; ++round)
    {
        BAS_IntrusivePtr<Tracked> a(new Tracked(&deaths));
        BAS_IntrusivePtr<Tracked> b(a);
        std::thread t([p = std::move(b)]() mutable { p.reset(); });
        a.reset();
        t.join();
    }
    EXPECT_EQ(deaths.load(), 200);
}
