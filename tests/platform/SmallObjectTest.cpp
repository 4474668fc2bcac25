// The small-object pool: alignment, size classes, the global allocator above
// MaxSize, and use from many threads.
#include <IMB/platform/BAS_SmallObject.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace
{
struct Pooled : BAS_SmallObject<0, 250, 1, 128>
{
    double value[5];
    int owner;
};
struct Big : BAS_SmallObject<0, 250, 1, 128>
{
    char payload[512];
};
} // namespace

TEST(SmallObject, BlocksAreAlignedForAnyFundamentalType)
{
    std::vector<void *> blocks;
    for (std::size_t size = 1; size <= 128; ++size)
    {
        void *p = BASsmallObjectAlloc(size, 250, 1, 128);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u) << size;
        std::memset(p, 0xff, size);
        blocks.push_back(p);
    }
    for (std::size_t size = 1; size <= 128; ++size)
        BASsmallObjectFree(blocks[size - 1], size, 1, 128);
}

TEST(SmallObject, LiveBlocksOfOneClassDoNotOverlap)
{
    constexpr std::size_t theSize = 40;
    std::vector<unsigned char *> blocks;
    for (int i = 0; i < 600; ++i) // more than two chunks
    {
        auto *p = static_cast<unsigned char *>(BASsmallObjectAlloc(theSize, 250, 8, 128));
        std::memset(p, i & 0xff, theSize);
        blocks.push_back(p);
    }
    for (int i = 0; i < 600; ++i)
        for (std::size_t j = 0; j < theSize; ++j)
            ASSERT_EQ(blocks[i][j], i & 0xff) << i;
    for (auto *p : blocks)
        BASsmallObjectFree(p, theSize, 8, 128);
}

TEST(SmallObject, FreedBlocksAreReused)
{
    void *a = BASsmallObjectAlloc(24, 250, 1, 128);
    BASsmallObjectFree(a, 24, 1, 128);
    void *b = BASsmallObjectAlloc(24, 250, 1, 128);
    EXPECT_EQ(a, b);
    BASsmallObjectFree(b, 24, 1, 128);
}

TEST(SmallObject, ObjectsAboveMaxSizeUseTheGlobalAllocator)
{
    // Under AddressSanitizer a block from the pool freed through the global
    // allocator (or the reverse) is reported; here both sides must agree.
    Big *big = new Big;
    std::memset(big->payload, 1, sizeof big->payload);
    delete big;
    void *p = BASsmallObjectAlloc(129, 250, 1, 128);
    std::memset(p, 2, 129);
    BASsmallObjectFree(p, 129, 1, 128);
    BASsmallObjectFree(nullptr, 16, 1, 128); // ignored
}

TEST(SmallObject, ClassesAllocateFromManyThreads)
{
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::vector<Pooled *> live;
            for (int i = 0; i < 5000; ++i)
            {
                Pooled *p = new Pooled;
                p->owner = t;
                p->value[4] = i;
                live.push_back(p);
                if (live.size() > 64)
                {
                    for (Pooled *q : live)
                        if (q->owner != t)
                            ++bad;
                    for (std::size_t k = 0; k < live.size(); k += 2)
                        delete live[k];
                    std::vector<Pooled *> rest;
                    for (std::size_t k = 1; k < live.size(); k += 2)
                        rest.push_back(live[k]);
                    live.swap(rest);
                }
            }
            for (Pooled *q : live)
            {
                if (q->owner != t)
                    ++bad;
                delete q;
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
}
