// BAS_Lock: a mutual-exclusion lock for short critical sections, and
// BAS_AutoLock, its scope guard.
//
// Taking a free lock is one compare-and-swap and releasing it one plain
// store, both inline; in a process that has never had a second thread both
// are plain stores, as the C library does for its own locks. A thread that
// finds the lock taken polls it a few times with short pauses, then sleeps
// between polls (10 us, doubling up to 1 ms), so waiting costs little
// processor time and the holder's release never has a sleeper to wake. The
// lock is not fair: a thread that releases it and at once takes it again
// usually keeps it, so many short sections from different threads run in
// bursts instead of handing the lock over at every release; a waiter may
// wake up to one sleep late, which only locks held for long notice. Not
// recursive. lock() and unlock() must be called by the same thread.
#pragma once

#include <IMB/IMB_API.h>

#include <atomic>

#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
#include <sys/single_threaded.h>
#define IMB_LOCK_KNOWS_SINGLE_THREAD 1
#endif

class IMB_API BAS_Lock
{
public:
    BAS_Lock() = default;
    BAS_Lock(const BAS_Lock &) = delete;
    BAS_Lock &operator=(const BAS_Lock &) = delete;

    void lock()
    {
        if (!tryLock())
            lockContended();
    }
    bool tryLock()
    {
#ifdef IMB_LOCK_KNOWS_SINGLE_THREAD
        // While the process has never had a second thread nobody else can
        // take the lock, and a plain store does (as the C library's own
        // locks do); a thread created later sees it through its creation.
        if (__libc_single_threaded)
        {
            if (myTaken.load(std::memory_order_relaxed))
                return false;
            myTaken.store(true, std::memory_order_relaxed);
            return true;
        }
#endif
        bool expected = false;
        return myTaken.compare_exchange_strong(expected, true, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void unlock() { myTaken.store(false, std::memory_order_release); }

    // Lets std::lock_guard and std::unique_lock take a BAS_Lock directly.
    bool try_lock() { return tryLock(); }

private:
    void lockContended();

    std::atomic<bool> myTaken{false};
};

class BAS_AutoLock
{
public:
    explicit BAS_AutoLock(BAS_Lock &lock) : myLock(lock) { myLock.lock(); }
    ~BAS_AutoLock() { myLock.unlock(); }
    BAS_AutoLock(const BAS_AutoLock &) = delete;
    BAS_AutoLock &operator=(const BAS_AutoLock &) = delete;

private:
    BAS_Lock &myLock;
};
