// BAS_StringArray: an ordered, growable list of BAS_StringHolder.
//
// Used for lists of names that cross the interface (colour spaces, displays,
// compressor names). Owned by the caller; not locked.
#pragma once

#include <IMB/platform/BAS_StringHolder.h>

#include <algorithm>
#include <vector>

class BAS_StringArray
{
public:
    using value_type = BAS_StringHolder;
    using const_iterator = std::vector<BAS_StringHolder>::const_iterator;

    BAS_StringArray() = default;
    BAS_StringArray(std::initializer_list<BAS_StringHolder> items) : myItems(items) {}

    int entries() const { return static_cast<int>(myItems.size()); }
    int size() const { return entries(); }
    bool isEmpty() const { return myItems.empty(); }
    void clear() { myItems.clear(); }
    // Appends and returns the index of the new entry.
    int append(const BAS_StringHolder &s)
    {
        myItems.push_back(s);
        return entries() - 1;
    }
    const BAS_StringHolder &operator()(int i) const { return myItems[static_cast<std::size_t>(i)]; }
    const BAS_StringHolder &operator[](int i) const { return myItems[static_cast<std::size_t>(i)]; }
    BAS_StringHolder &operator[](int i) { return myItems[static_cast<std::size_t>(i)]; }
    // Index of the first entry equal to s, or -1.
    int find(const BAS_StringRef &s) const
    {
        for (std::size_t i = 0; i < myItems.size(); ++i)
            if (myItems[i] == s)
                return static_cast<int>(i);
        return -1;
    }
    void sort() { std::sort(myItems.begin(), myItems.end()); }

    const_iterator begin() const { return myItems.begin(); }
    const_iterator end() const { return myItems.end(); }

    friend bool operator==(const BAS_StringArray &a, const BAS_StringArray &b) { return a.myItems == b.myItems; }

private:
    std::vector<BAS_StringHolder> myItems;
};
