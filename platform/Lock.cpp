// BAS_Lock's contended path: a few polls with pauses between them, then
// polls with sleeps that double from 10 us to 1 ms.
//
// Waiting threads do not spin for long: on the virtual machines this library
// often runs on, a cache line takes about half a microsecond to move between
// processors, so every poll of a taken lock slows its holder, and long pause
// loops make the hypervisor stop the virtual processor. Sleeping also costs
// the holder nothing at release (no waiter to wake), which keeps the release
// a plain store.
#include <IMB/platform/BAS_Lock.h>

#include <time.h>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace
{
void cpuPause()
{
#if defined(__x86_64__) || defined(__i386__)
    _mm_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

constexpr int kPausePolls = 8;
constexpr int kPausesPerPoll = 64;
constexpr long kFirstSleepNs = 10000;
constexpr long kLongestSleepNs = 1000000;
} // namespace

void BAS_Lock::lockContended()
{
    // Read-only polling keeps the line shared until the lock is free.
    for (int poll = 0; poll < kPausePolls; ++poll)
    {
        for (int i = 0; i < kPausesPerPoll; ++i)
            cpuPause();
        if (!myTaken.load(std::memory_order_relaxed) && tryLock())
            return;
    }
    for (long ns = kFirstSleepNs;; ns = ns < kLongestSleepNs ? 2 * ns : ns)
    {
        const timespec sleep{0, ns};
        nanosleep(&sleep, nullptr);
        if (!myTaken.load(std::memory_order_relaxed) && tryLock())
            return;
    }
}
