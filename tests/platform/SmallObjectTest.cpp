// The small-object pool: alignment, size classes, the global allocator above MaxSize, and use from many threads.
#include <IMB/platform/BAS_SmallObject.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

// Live blocks of every size are aligned for any fundamental type and do not overlap (600 blocks of one class span
// three chunks); a freed block is the next one handed out; above MaxSize the global allocator serves both sides
// (AddressSanitizer reports a mismatch), and freeing null is ignored.
TEST(SmallObject, LiveBlocksAreAlignedAndDisjointAndFreedOnesAreReused)
{
    std::vector<unsigned char *> blocks;
    auto sizeOf = [](std::size_t i) { return i < 129 ? i + 1 : 40; };
    for (std::size_t i = 0; i < 729; ++i)
    {
        blocks.push_back(static_cast<unsigned char *>(BASsmallObjectAlloc(sizeOf(i), 250, i < 129 ? 1 : 8, 128)));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i]) % alignof(std::max_align_t), 0u) << i;
        std::memset(blocks[i], static_cast<int>(i & 0xff), sizeOf(i));
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
    {
        for (std::size_t j = 0; j < sizeOf(i); ++j)
            ASSERT_EQ(blocks[i][j], i & 0xff) << i;
        BASsmallObjectFree(blocks[i], sizeOf(i), i < 129 ? 1 : 8, 128);
    }
    void *a = BASsmallObjectAlloc(24, 250, 1, 128);
    BASsmallObjectFree(a, 24, 1, 128);
    void *b = BASsmallObjectAlloc(24, 250, 1, 128);
    EXPECT_EQ(a, b);
    BASsmallObjectFree(b, 24, 1, 128);
    BASsmallObjectFree(nullptr, 16, 1, 128);
}

TEST(SmallObject, ClassesAllocateFromManyThreads)
{
    struct Pooled : BAS_SmallObject<0, 250, 1, 128>
    {
        double value[5];
        int owner;
    };
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            // Refill the free places, check every live object, free every other one.
            std::vector<Pooled *> live(100, nullptr);
            for (int round = 0; round < 100; ++round)
                for (std::size_t k = 0; k < live.size(); ++k)
                {
                    if (!live[k])
                        (live[k] = new Pooled)->owner = t;
                    bad += live[k]->owner != t;
                    if ((k + round) % 2 || round == 99)
                    {
                        delete live[k];
                        live[k] = nullptr;
                    }
                }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
}
