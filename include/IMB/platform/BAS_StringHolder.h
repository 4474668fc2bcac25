// BAS_StringRef and BAS_StringHolder: reference-counted immutable strings.
//
// A string is stored once, in a heap block with an atomic use count, and
// shared by every copy; copying a holder is one atomic increment. The text is
// never modified after construction, so holders may be copied and read from
// any number of threads. A default-constructed holder is empty (c_str() gives
// "" and isEmpty() is true). Comparisons are by content; hash() is a hash of
// the content, so holders work as keys of hash maps.
//
// BAS_StringRef is the base type that interfaces take by reference;
// BAS_StringHolder adds the implicit conversions from const char * and
// std::string so that literals can be passed where a holder is expected.
#pragma once

#include <IMB/IMB_API.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

class IMB_API BAS_StringRef
{
public:
    BAS_StringRef() noexcept = default;
    BAS_StringRef(const char *s) { assign(s, s ? std::strlen(s) : 0); }
    BAS_StringRef(const char *s, std::size_t n) { assign(s, n); }
    BAS_StringRef(const std::string &s) { assign(s.data(), s.size()); }
    BAS_StringRef(std::string_view s) { assign(s.data(), s.size()); }
    BAS_StringRef(const BAS_StringRef &o) noexcept : myData(o.myData) { retain(); }
    BAS_StringRef(BAS_StringRef &&o) noexcept : myData(o.myData) { o.myData = nullptr; }
    ~BAS_StringRef() { release(); }

    BAS_StringRef &operator=(const BAS_StringRef &o) noexcept
    {
        if (o.myData != myData)
        {
            o.retain();
            release();
            myData = o.myData;
        }
        return *this;
    }
    BAS_StringRef &operator=(BAS_StringRef &&o) noexcept
    {
        if (this != &o)
        {
            release();
            myData = o.myData;
            o.myData = nullptr;
        }
        return *this;
    }

    // The text, never null ("" for an empty string).
    const char *c_str() const noexcept { return myData ? myData->text : ""; }
    // The text or null when the string was never set.
    const char *nonNullOrNull() const noexcept { return myData ? myData->text : nullptr; }
    std::size_t length() const noexcept { return myData ? myData->length : 0; }
    bool isEmpty() const noexcept { return length() == 0; }
    bool isstring() const noexcept { return myData != nullptr; }
    explicit operator bool() const noexcept { return !isEmpty(); }
    std::string toStdString() const { return std::string(c_str(), length()); }
    std::string_view view() const noexcept { return std::string_view(c_str(), length()); }

    // Release the text; the string becomes empty.
    void clear() noexcept { release(); myData = nullptr; }

    // Hash of the content (FNV-1a); equal strings hash equally.
    std::size_t hash() const noexcept
    {
        std::uint64_t h = 1469598103934665603ull;
        const char *p = c_str();
        for (std::size_t i = 0, n = length(); i < n; ++i)
            h = (h ^ static_cast<unsigned char>(p[i])) * 1099511628211ull;
        return static_cast<std::size_t>(h);
    }

    int compare(const BAS_StringRef &o) const noexcept { return view().compare(o.view()); }
    bool equal(const char *s) const noexcept { return view() == std::string_view(s ? s : ""); }

    friend bool operator==(const BAS_StringRef &a, const BAS_StringRef &b) noexcept
    {
        return a.myData == b.myData || a.view() == b.view();
    }
    friend bool operator!=(const BAS_StringRef &a, const BAS_StringRef &b) noexcept { return !(a == b); }
    friend bool operator<(const BAS_StringRef &a, const BAS_StringRef &b) noexcept { return a.view() < b.view(); }
    friend bool operator>(const BAS_StringRef &a, const BAS_StringRef &b) noexcept { return b < a; }
    friend bool operator<=(const BAS_StringRef &a, const BAS_StringRef &b) noexcept { return !(b < a); }
    friend bool operator>=(const BAS_StringRef &a, const BAS_StringRef &b) noexcept { return !(a < b); }
    friend bool operator==(const BAS_StringRef &a, const char *b) noexcept { return a.equal(b); }
    friend bool operator!=(const BAS_StringRef &a, const char *b) noexcept { return !a.equal(b); }

private:
    struct Block
    {
        std::atomic<int> refs;
        std::size_t length;
        char text[1];
    };

    void assign(const char *s, std::size_t n)
    {
        if (!s)
            return;
        void *mem = ::operator new(offsetof(Block, text) + n + 1);
        Block *b = static_cast<Block *>(mem);
        new (&b->refs) std::atomic<int>(1);
        b->length = n;
        if (n)
            std::memcpy(b->text, s, n);
        b->text[n] = '\0';
        myData = b;
    }
    void retain() const noexcept
    {
        if (myData)
            myData->refs.fetch_add(1, std::memory_order_relaxed);
    }
    void release() noexcept
    {
        if (myData && myData->refs.fetch_sub(1, std::memory_order_acq_rel) == 1)
        {
            myData->refs.~atomic();
            ::operator delete(myData);
        }
    }

    Block *myData = nullptr;
};

class IMB_API BAS_StringHolder : public BAS_StringRef
{
public:
    using BAS_StringRef::BAS_StringRef;
    BAS_StringHolder() noexcept = default;
    BAS_StringHolder(const BAS_StringRef &o) noexcept : BAS_StringRef(o) {}
    BAS_StringHolder(BAS_StringRef &&o) noexcept : BAS_StringRef(std::move(o)) {}
};

IMB_API std::ostream &operator<<(std::ostream &os, const BAS_StringRef &s);

namespace std
{
template <> struct hash<BAS_StringRef>
{
    size_t operator()(const BAS_StringRef &s) const noexcept { return s.hash(); }
};
template <> struct hash<BAS_StringHolder>
{
    size_t operator()(const BAS_StringHolder &s) const noexcept { return s.hash(); }
};
} // namespace std
