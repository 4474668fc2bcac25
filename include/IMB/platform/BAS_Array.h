// BAS_Array: a growable array of values with a fixed, predictable growth
// policy.
//
// Appending past the capacity grows it to 4, then 8, then to the next multiple
// of 16 while below 128, the next multiple of 128 while below 1024, and from
// then on by one eighth. Callers that keep parallel buffers sized by the
// array's capacity (the deep pixel accumulator does) rely on exactly this
// sequence, so it must not be changed. Entries are moved (or copied, when
// moving may throw) into the new block when the array grows.
//
// The array owns its entries. It is not locked: one thread modifies it at a
// time. Indices are not range-checked.
#pragma once

#include <IMB/platform/BAS_Types.h>

#include <cstddef>
#include <initializer_list>
#include <new>
#include <type_traits>
#include <utility>

template <typename T> class BAS_Array
{
public:
    using value_type = T;
    using iterator = T *;
    using const_iterator = const T *;

    BAS_Array() noexcept = default;
    // Creates an array with room for `capacity` entries and no entries.
    explicit BAS_Array(exint capacity) { setCapacity(capacity); }
    BAS_Array(std::initializer_list<T> items)
    {
        setCapacity(static_cast<exint>(items.size()));
        for (const T &v : items)
            new (myData + mySize++) T(v);
    }
    BAS_Array(const BAS_Array &o)
    {
        setCapacity(o.mySize);
        for (exint i = 0; i < o.mySize; ++i)
        {
            new (myData + i) T(o.myData[i]);
            mySize = i + 1;
        }
    }
    BAS_Array(BAS_Array &&o) noexcept : myData(o.myData), mySize(o.mySize), myCapacity(o.myCapacity)
    {
        o.myData = nullptr;
        o.mySize = o.myCapacity = 0;
    }
    ~BAS_Array()
    {
        destroy(0, mySize);
        ::operator delete(myData);
    }

    BAS_Array &operator=(const BAS_Array &o)
    {
        if (this != &o)
        {
            BAS_Array tmp(o);
            swap(tmp);
        }
        return *this;
    }
    BAS_Array &operator=(BAS_Array &&o) noexcept
    {
        if (this != &o)
        {
            BAS_Array tmp(std::move(o));
            swap(tmp);
        }
        return *this;
    }

    void swap(BAS_Array &o) noexcept
    {
        std::swap(myData, o.myData);
        std::swap(mySize, o.mySize);
        std::swap(myCapacity, o.myCapacity);
    }

    // The capacity that one growth step takes `capacity` to.
    static exint nextCapacity(exint capacity) noexcept
    {
        if (capacity < 4)
            return 4;
        if (capacity < 8)
            return 8;
        if (capacity < 128)
            return (capacity / 16 + 1) * 16;
        if (capacity < 1024)
            return (capacity / 128 + 1) * 128;
        return capacity + capacity / 8;
    }

    exint size() const noexcept { return mySize; }
    exint entries() const noexcept { return mySize; }
    exint capacity() const noexcept { return myCapacity; }
    bool isEmpty() const noexcept { return mySize == 0; }

    T *data() noexcept { return myData; }
    const T *data() const noexcept { return myData; }
    T &operator[](exint i) noexcept { return myData[i]; }
    const T &operator[](exint i) const noexcept { return myData[i]; }
    T &operator()(exint i) noexcept { return myData[i]; }
    const T &operator()(exint i) const noexcept { return myData[i]; }
    T &last() noexcept { return myData[mySize - 1]; }
    const T &last() const noexcept { return myData[mySize - 1]; }

    iterator begin() noexcept { return myData; }
    iterator end() noexcept { return myData + mySize; }
    const_iterator begin() const noexcept { return myData; }
    const_iterator end() const noexcept { return myData + mySize; }

    // Appends a copy of `v` (which may be an entry of this array) and returns
    // its index.
    exint append(const T &v) { return emplace(v); }
    exint append(T &&v) { return emplace(std::move(v)); }
    template <typename... Args> exint emplace(Args &&...args)
    {
        if (mySize == myCapacity)
        {
            // Build the new entry first: the arguments may refer to an entry.
            T tmp(std::forward<Args>(args)...);
            reallocate(nextCapacity(myCapacity));
            new (myData + mySize) T(std::move(tmp));
        }
        else
            new (myData + mySize) T(std::forward<Args>(args)...);
        return mySize++;
    }

    // Removes the last entry.
    void removeLast() noexcept
    {
        if (mySize > 0)
        {
            --mySize;
            destroy(mySize, mySize + 1);
        }
    }

    // Destroys every entry; the capacity is kept.
    void clear() noexcept
    {
        destroy(0, mySize);
        mySize = 0;
    }

    // Sets the number of entries: new entries are value-initialised, removed
    // ones destroyed. Growing past the capacity steps the capacity by the
    // growth policy until it fits. A negative size is taken as 0.
    void setSize(exint n)
    {
        if (n < 0)
            n = 0;
        if (n > myCapacity)
        {
            exint cap = myCapacity;
            while (cap < n)
                cap = nextCapacity(cap);
            reallocate(cap);
        }
        for (; mySize < n; ++mySize)
            new (myData + mySize) T();
        if (n < mySize)
        {
            destroy(n, mySize);
            mySize = n;
        }
    }
    // Makes room for at least `n` entries, stepping by the growth policy.
    void reserve(exint n)
    {
        if (n > myCapacity)
        {
            exint cap = myCapacity;
            while (cap < n)
                cap = nextCapacity(cap);
            reallocate(cap);
        }
    }
    // Sets the capacity to exactly `n` (at least the current size is kept:
    // entries beyond `n` are destroyed first). 0 frees the storage.
    void setCapacity(exint n)
    {
        if (n < 0)
            n = 0;
        if (n < mySize)
        {
            destroy(n, mySize);
            mySize = n;
        }
        if (n != myCapacity)
            reallocate(n);
    }

private:
    void destroy(exint from, exint to) noexcept
    {
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (exint i = from; i < to; ++i)
                myData[i].~T();
    }

    void reallocate(exint cap)
    {
        T *block = cap > 0 ? static_cast<T *>(::operator new(sizeof(T) * static_cast<std::size_t>(cap))) : nullptr;
        exint moved = 0;
        try
        {
            for (; moved < mySize; ++moved)
                new (block + moved) T(std::move_if_noexcept(myData[moved]));
        }
        catch (...)
        {
            if constexpr (!std::is_trivially_destructible_v<T>)
                for (exint i = 0; i < moved; ++i)
                    block[i].~T();
            ::operator delete(block);
            throw;
        }
        destroy(0, mySize);
        ::operator delete(myData);
        myData = block;
        myCapacity = cap;
    }

    T *myData = nullptr;
    exint mySize = 0;
    exint myCapacity = 0;
};
