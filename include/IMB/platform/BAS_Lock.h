// BAS_Lock: a plain mutual-exclusion lock, and BAS_AutoLock, its scope guard.
//
// Not recursive. lock() and unlock() must be called by the same thread.
#pragma once

#include <mutex>

class BAS_Lock
{
public:
    BAS_Lock() = default;
    BAS_Lock(const BAS_Lock &) = delete;
    BAS_Lock &operator=(const BAS_Lock &) = delete;

    void lock() { myMutex.lock(); }
    bool tryLock() { return myMutex.try_lock(); }
    void unlock() { myMutex.unlock(); }

    // Lets std::lock_guard and std::unique_lock take a BAS_Lock directly.
    bool try_lock() { return tryLock(); }

private:
    std::mutex myMutex;
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
