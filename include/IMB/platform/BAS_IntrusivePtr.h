// BAS_IntrusivePtr and BAS_IntrusiveRefCounter: reference counting kept inside
// the counted object.
//
// A class derives from BAS_IntrusiveRefCounter<T> (thread-safe policy: a
// 32-bit atomic use count, sequentially consistent) and is held through
// BAS_IntrusivePtr<T>; the object is deleted when the last pointer lets go.
// A new or copied object starts with a use count of 0; assigning one object to
// another leaves the target's count alone.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

struct BAS_ThreadSafeCounterPolicy
{
};

template <typename T, typename Policy = BAS_ThreadSafeCounterPolicy> class BAS_IntrusiveRefCounter
{
public:
    BAS_IntrusiveRefCounter() noexcept : myRefCount(0) {}
    BAS_IntrusiveRefCounter(const BAS_IntrusiveRefCounter &) noexcept : myRefCount(0) {}
    BAS_IntrusiveRefCounter &operator=(const BAS_IntrusiveRefCounter &) noexcept { return *this; }

    std::int32_t use_count() const noexcept { return myRefCount.load(); }

    // Adds a reference only when the count is not already 0 (the object is
    // not being destroyed); returns whether it did.
    bool conditionalAddRef() noexcept
    {
        std::int32_t n = myRefCount.load();
        while (n != 0)
            if (myRefCount.compare_exchange_weak(n, n + 1))
                return true;
        return false;
    }

    friend void intrusive_ptr_add_ref(const BAS_IntrusiveRefCounter *p) noexcept { p->myRefCount.fetch_add(1); }
    friend void intrusive_ptr_release(const BAS_IntrusiveRefCounter *p) noexcept
    {
        if (p->myRefCount.fetch_sub(1) == 1)
            delete static_cast<const T *>(p);
    }

protected:
    ~BAS_IntrusiveRefCounter() = default;

private:
    mutable std::atomic<std::int32_t> myRefCount;
};

template <typename T> class BAS_IntrusivePtr
{
public:
    using element_type = T;

    BAS_IntrusivePtr() noexcept = default;
    BAS_IntrusivePtr(std::nullptr_t) noexcept {}
    BAS_IntrusivePtr(T *p, bool addRef = true) noexcept : myPtr(p)
    {
        if (myPtr && addRef)
            intrusive_ptr_add_ref(myPtr);
    }
    BAS_IntrusivePtr(const BAS_IntrusivePtr &o) noexcept : BAS_IntrusivePtr(o.myPtr) {}
    template <typename U>
    BAS_IntrusivePtr(const BAS_IntrusivePtr<U> &o) noexcept : BAS_IntrusivePtr(o.get())
    {
    }
    BAS_IntrusivePtr(BAS_IntrusivePtr &&o) noexcept : myPtr(o.myPtr) { o.myPtr = nullptr; }
    ~BAS_IntrusivePtr()
    {
        if (myPtr)
            intrusive_ptr_release(myPtr);
    }

    BAS_IntrusivePtr &operator=(const BAS_IntrusivePtr &o) noexcept
    {
        BAS_IntrusivePtr(o).swap(*this);
        return *this;
    }
    BAS_IntrusivePtr &operator=(BAS_IntrusivePtr &&o) noexcept
    {
        BAS_IntrusivePtr(std::move(o)).swap(*this);
        return *this;
    }
    BAS_IntrusivePtr &operator=(T *p) noexcept
    {
        BAS_IntrusivePtr(p).swap(*this);
        return *this;
    }

    void reset() noexcept { BAS_IntrusivePtr().swap(*this); }
    void reset(T *p) noexcept { BAS_IntrusivePtr(p).swap(*this); }
    void swap(BAS_IntrusivePtr &o) noexcept { std::swap(myPtr, o.myPtr); }

    T *get() const noexcept { return myPtr; }
    T &operator*() const noexcept { return *myPtr; }
    T *operator->() const noexcept { return myPtr; }
    explicit operator bool() const noexcept { return myPtr != nullptr; }

    friend bool operator==(const BAS_IntrusivePtr &a, const BAS_IntrusivePtr &b) noexcept { return a.myPtr == b.myPtr; }
    friend bool operator!=(const BAS_IntrusivePtr &a, const BAS_IntrusivePtr &b) noexcept { return a.myPtr != b.myPtr; }
    friend bool operator==(const BAS_IntrusivePtr &a, std::nullptr_t) noexcept { return !a.myPtr; }
    friend bool operator!=(const BAS_IntrusivePtr &a, std::nullptr_t) noexcept { return a.myPtr != nullptr; }

private:
    T *myPtr = nullptr;
};
