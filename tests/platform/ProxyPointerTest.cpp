// BAS_ProxyPointer: integer handles for pointers, from many threads.
#include <IMB/platform/BAS_ProxyPointer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

TEST(ProxyPointer, IndicesLookUpTheirPointerUntilFreedAndAreThenReused)
{
    int a = 0, b = 0;
    const int ia = BAS_ProxyPointer::allocProxy(&a);
    const int ib = BAS_ProxyPointer::allocProxy(&b);
    EXPECT_GE(ia, 0);
    EXPECT_NE(ia, ib);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(ia), &a);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(ib), &b);
    BAS_ProxyPointer::freeProxy(ia);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(ia), nullptr);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(ib), &b);
    int c = 0;
    const int ic = BAS_ProxyPointer::allocProxy(&c); // the freed index is reused
    EXPECT_EQ(ic, ia);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(ic), &c);
    BAS_ProxyPointer::freeProxy(ic);
    BAS_ProxyPointer::freeProxy(ib);
}

TEST(ProxyPointer, BadIndicesAreIgnored)
{
    int a = 0;
    const int ia = BAS_ProxyPointer::allocProxy(&a);
    BAS_ProxyPointer::freeProxy(-1);
    BAS_ProxyPointer::freeProxy(1 << 30);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(-1), nullptr);
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(1 << 30), nullptr);
    BAS_ProxyPointer::freeProxy(ia);
    BAS_ProxyPointer::freeProxy(ia); // twice: the second is ignored
    // A double free must not put the index on the free list twice.
    int b = 0, c = 0;
    const int ib = BAS_ProxyPointer::allocProxy(&b);
    const int ic = BAS_ProxyPointer::allocProxy(&c);
    EXPECT_NE(ib, ic);
    BAS_ProxyPointer::freeProxy(ib);
    BAS_ProxyPointer::freeProxy(ic);
}

TEST(ProxyPointer, ManyThreadsGetDistinctIndices)
{
    constexpr int theThreads = 8, thePerThread = 2000;
    std::vector<std::vector<int>> kept(theThreads);
    std::vector<std::vector<char>> objects(theThreads, std::vector<char>(thePerThread));
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < theThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < thePerThread; ++i)
            {
                void *p = &objects[t][i];
                const int idx = BAS_ProxyPointer::allocProxy(p);
                if (BAS_ProxyPointer::lookupProxy(idx) != p)
                    ++bad;
                if (i % 2)
                    BAS_ProxyPointer::freeProxy(idx);
                else
                    kept[t].push_back(idx);
            }
            for (int i = 0; i < static_cast<int>(kept[t].size()); ++i)
                if (BAS_ProxyPointer::lookupProxy(kept[t][i]) != &objects[t][2 * i])
                    ++bad;
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
    std::set<int> all;
    for (auto &v : kept)
        for (int idx : v)
            EXPECT_TRUE(all.insert(idx).second) << idx;
    for (auto &v : kept)
        for (int idx : v)
            BAS_ProxyPointer::freeProxy(idx);
}
