// BAS_ProxyPointer: integer handles for pointers, from many threads.
#include <IMB/platform/BAS_ProxyPointer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

TEST(ProxyPointer, IndicesLookUpTheirPointerUntilFreedAndAreThenReusedOnce)
{
    int a = 0, b = 0, c = 0;
    const int ia = BAS_ProxyPointer::allocProxy(&a), ib = BAS_ProxyPointer::allocProxy(&b);
    EXPECT_TRUE(ia >= 0 && ia != ib && BAS_ProxyPointer::lookupProxy(ia) == &a);
    BAS_ProxyPointer::freeProxy(ia);
    BAS_ProxyPointer::freeProxy(ia); // twice: the second is ignored
    for (int bad : {-1, 1 << 30})
    {
        BAS_ProxyPointer::freeProxy(bad);
        EXPECT_EQ(BAS_ProxyPointer::lookupProxy(bad), nullptr);
    }
    EXPECT_TRUE(BAS_ProxyPointer::lookupProxy(ia) == nullptr && BAS_ProxyPointer::lookupProxy(ib) == &b);
    // The freed index is reused, once: the double free did not list it twice.
    const int ic = BAS_ProxyPointer::allocProxy(&c), id = BAS_ProxyPointer::allocProxy(&a);
    EXPECT_TRUE(ic == ia && id != ic && BAS_ProxyPointer::lookupProxy(ic) == &c);
    for (int i : {ib, ic, id})
        BAS_ProxyPointer::freeProxy(i);
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
            // Keep every other index, free the rest at once.
            for (int i = 0; i < thePerThread; ++i)
            {
                const int idx = BAS_ProxyPointer::allocProxy(&objects[t][i]);
                bad += BAS_ProxyPointer::lookupProxy(idx) != &objects[t][i];
                if (i % 2)
                    BAS_ProxyPointer::freeProxy(idx);
                else
                    kept[t].push_back(idx);
            }
            for (size_t i = 0; i < kept[t].size(); ++i)
                bad += BAS_ProxyPointer::lookupProxy(kept[t][i]) != &objects[t][2 * i];
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
    std::set<int> all;
    for (auto &v : kept)
        for (int idx : v)
        {
            EXPECT_TRUE(all.insert(idx).second) << idx;
            BAS_ProxyPointer::freeProxy(idx);
        }
}
