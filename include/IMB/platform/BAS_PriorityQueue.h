// BAS_PriorityQueue: a binary-heap priority queue with the smallest item on
// top.
//
// Items are ordered by a strict "less" predicate (operator< by default); the
// item that compares smallest is returned by top() and removed by pop().
// Items with equal keys leave the heap in no guaranteed order: a newly pushed
// item whose key equals its parent's rises above the parent (the sift-up
// stops only at a strictly smaller parent). Callers that merge sorted runs
// through the heap must not rely on ties coming out in push order.
// A plain value type; not locked.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

template <typename T, typename Less = std::less<T>> class BAS_PriorityQueue
{
public:
    BAS_PriorityQueue() = default;
    explicit BAS_PriorityQueue(const Less &less) : myLess(less) {}

    // Number of items held.
    int entries() const { return static_cast<int>(myHeap.size()); }
    int size() const { return entries(); }
    bool isEmpty() const { return myHeap.empty(); }

    // Reserves room for n items without changing the content.
    void reserve(int n) { myHeap.reserve(n > 0 ? static_cast<std::size_t>(n) : 0u); }
    // Removes every item; keeps the allocation.
    void clear() { myHeap.clear(); }

    // The smallest item. The queue must not be empty.
    const T &top() const { return myHeap.front(); }

    // Inserts an item. It rises above every ancestor whose key is not strictly
    // smaller than its own, so it ends above an equal-keyed parent.
    void push(const T &item)
    {
        myHeap.push_back(item);
        siftUp(myHeap.size() - 1);
    }
    void push(T &&item)
    {
        myHeap.push_back(std::move(item));
        siftUp(myHeap.size() - 1);
    }

    // Removes the smallest item. The queue must not be empty.
    void pop()
    {
        if (myHeap.size() > 1)
        {
            myHeap.front() = std::move(myHeap.back());
            myHeap.pop_back();
            siftDown(0);
        }
        else
            myHeap.pop_back();
    }

    // Removes the smallest item and inserts `item`, in one pass down the heap:
    // what pop() then push() give, but for ties, which may come out in
    // another order. The queue must not be empty.
    void replaceTop(T item)
    {
        myHeap.front() = std::move(item);
        siftDown(0);
    }

    // Removes the smallest item and returns it. The queue must not be empty.
    T popTop()
    {
        T item = std::move(myHeap.front());
        pop();
        return item;
    }

    // Heap storage in heap order (item i's children are 2i+1 and 2i+2); for
    // inspection only.
    const T &operator()(int i) const { return myHeap[static_cast<std::size_t>(i)]; }

private:
    void siftUp(std::size_t i)
    {
        T item = std::move(myHeap[i]);
        while (i > 0)
        {
            std::size_t parent = (i - 1) / 2;
            // Stop only at a strictly smaller parent: equal keys let the new
            // item rise. Deliberate; the merges are written not to need
            // push-order ties.
            if (myLess(myHeap[parent], item))
                break;
            myHeap[i] = std::move(myHeap[parent]);
            i = parent;
        }
        myHeap[i] = std::move(item);
    }

    void siftDown(std::size_t i)
    {
        const std::size_t n = myHeap.size();
        T item = std::move(myHeap[i]);
        for (;;)
        {
            std::size_t child = 2 * i + 1;
            if (child >= n)
                break;
            if (child + 1 < n && myLess(myHeap[child + 1], myHeap[child]))
                ++child;
            if (!myLess(myHeap[child], item))
                break;
            myHeap[i] = std::move(myHeap[child]);
            i = child;
        }
        myHeap[i] = std::move(item);
    }

    std::vector<T> myHeap;
    Less myLess;
};
