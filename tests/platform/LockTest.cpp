// BAS_Lock: exclusion before and after the process has a second thread, waiters that poll and waiters that sleep.
#include <IMB/platform/BAS_Lock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

TEST(Lock, TryLockFailsWhileTakenAndSucceedsAfterRelease)
{
    auto check = [] {
        BAS_Lock lock;
        bool ok = lock.tryLock() && !lock.tryLock();
        lock.unlock();
        ok = ok && lock.tryLock();
        lock.unlock();
        return ok;
    };
    // In a fresh process that has never had a second thread (plain stores)...
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(check() ? 0 : 1), testing::ExitedWithCode(0), "");
    // ...and in this one once a thread has run (atomic operations).
    std::thread([] {}).join();
    EXPECT_TRUE(check());
}

// Many short sections from many threads, then one long one that makes the waiters sleep: no increment is lost and
// every waiter gets through.
TEST(Lock, ExcludesUnderShortAndLongHolds)
{
    constexpr int kThreads = 8, kRounds = 20000;
    BAS_Lock lock;
    long counter = 0;
    std::atomic<int> started{0};
    std::vector<std::thread> threads;
    lock.lock(); // held until every thread has started, then for 5 ms more
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            started.fetch_add(1);
            for (int i = 0; i < kRounds; ++i)
            {
                BAS_AutoLock guard(lock);
                ++counter;
            }
        });
    while (started.load() < kThreads)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    counter = -1;
    lock.unlock();
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(counter, long(kThreads) * kRounds - 1);
}
