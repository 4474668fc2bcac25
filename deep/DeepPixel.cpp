// The deep pixel accumulator: raw and mip-style stores, sorting by
// sub-sample id and depth, and closing through a compressor.
#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepPixel.h>

#include "platform/Log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{
// Coverage of sub-sample k among n positions: bits floor(64k/n) up to
// floor(64(k+1)/n) - 1, low bits first. n = 1 gives all 64 bits.
uint64 coverageMask(int id, int subSamples)
{
    if (id < 0)
        return 0;
    const int64 n = std::max(1, std::min(subSamples, 64));
    const int64 k = std::min(id, 63);
    const int64 lo = std::min<int64>(64 * k / n, 64);
    const int64 hi = std::min<int64>(64 * (k + 1) / n, 64);
    if (hi <= lo)
        return 0;
    const uint64 upto = hi == 64 ? ~uint64(0) : (uint64(1) << hi) - 1;
    return upto & ~((uint64(1) << lo) - 1);
}

// Maps a float's bits to an unsigned integer that orders like the float
// (negative values reversed below the positive ones; NaNs at the ends).
inline uint64 orderedBits(float f)
{
    uint32 u;
    std::memcpy(&u, &f, sizeof u);
    return (u & 0x80000000u) ? ~u : (u | 0x80000000u);
}

void *reallocOrThrow(void *p, std::size_t bytes)
{
    void *q = std::realloc(p, bytes ? bytes : 1);
    if (!q)
        throw std::bad_alloc();
    return q;
}

// The list array closing works on: room for max(32, n) entries, inline up
// to 32. Only the first `used` entries are ever read (the lists extracted and
// the N entries handed to the merge), so only those are constructed as null
// pointers and destroyed again: closing a small pixel does not pay for 32.
class ListArray
{
public:
    using ListPtr = IMB_DeepPixel::ListPtr;

    ListArray(int room, int used) : myUsed(used)
    {
        if (room > kInline)
            myHeap.reset(static_cast<ListPtr *>(::operator new(sizeof(ListPtr) * static_cast<std::size_t>(room))));
        ListPtr *p = data();
        for (int i = 0; i < myUsed; ++i)
            new (p + i) ListPtr();
    }
    ~ListArray()
    {
        ListPtr *p = data();
        for (int i = 0; i < myUsed; ++i)
            p[i].~ListPtr();
    }
    ListArray(const ListArray &) = delete;
    ListArray &operator=(const ListArray &) = delete;

    ListPtr *data() { return myHeap ? myHeap.get() : reinterpret_cast<ListPtr *>(myInline); }

private:
    struct FreeStorage
    {
        void operator()(ListPtr *p) const { ::operator delete(p); }
    };
    static constexpr int kInline = 32;
    int myUsed;
    alignas(ListPtr) unsigned char myInline[kInline * sizeof(ListPtr)];
    std::unique_ptr<ListPtr, FreeStorage> myHeap;
};
} // namespace

IMB_DeepPixel::IMB_DeepPixel(const ChannelsPtr &channels, int subSamples)
    : myChannels(channels), mySubSamples(subSamples), myMipCount(0),
      myFloatCount((channels ? channels->totalSize() : 0) + 2), myPreComposited(true)
{
    myXY[0] = -1;
    myXY[1] = -1;
}

IMB_DeepPixel::~IMB_DeepPixel()
{
    std::free(myFloats);
    std::free(myFlags);
}

void IMB_DeepPixel::startPixel(int x, int y, bool preComposited)
{
    myXY[0] = x;
    myXY[1] = y;
    myPreComposited = preComposited;
}

bool IMB_DeepPixel::isRawStyle() const
{
    return myKeys.size() > 0;
}

void IMB_DeepPixel::growBuffers(int capacity)
{
    const std::size_t n = static_cast<std::size_t>(capacity);
    myFloats = static_cast<float *>(reallocOrThrow(myFloats, n * static_cast<std::size_t>(myFloatCount) * sizeof(float)));
    myFlags = static_cast<unsigned char *>(reallocOrThrow(myFlags, n));
    myBufferCapacity = capacity;
}

void IMB_DeepPixel::store(float zfront, float zback, const float *values, int flags, int id)
{
    BAS_AutoLock guard(myLock);
    const int index = static_cast<int>(myKeys.size());
    myKeys.append(SampleKey{this, id, index});
    // The raw buffers follow the key array's capacity (its growth policy), and
    // keep their allocation when the keys are emptied.
    const int capacity = static_cast<int>(myKeys.capacity());
    if (capacity > myBufferCapacity)
        growBuffers(capacity);
    myFlags[index] = static_cast<unsigned char>(flags);
    float *f = myFloats + static_cast<std::size_t>(index) * static_cast<std::size_t>(myFloatCount);
    f[0] = zfront;
    f[1] = zback;
    if (myFloatCount > 2)
        std::memcpy(f + 2, values, static_cast<std::size_t>(myFloatCount - 2) * sizeof(float));
}

void IMB_DeepPixel::store(const ListPtr &list)
{
    if (!list)
        return;
    // No bound check: four slots, at most four lists per pixel (deliberate,
    // see the header).
    mySlots[myMipCount.fetch_add(1)] = list;
}

int IMB_DeepPixel::sort()
{
    const int mip = myMipCount.load();
    if (mip != 0)
        return mip;
    const int n = static_cast<int>(myKeys.size());
    if (n < 2)
        return n;
    // The keys' own order (id, then zfront), sorted as one 64-bit word per key
    // (the id, then the zfront's bits mapped to an unsigned order). One
    // integer comparison per step, and NaN depths cannot upset the sort.
    // Not stable: equal id and zfront come out in no particular order.
    thread_local std::vector<std::pair<uint64, int>> order;
    order.resize(static_cast<std::size_t>(n));
    const std::size_t stride = static_cast<std::size_t>(myFloatCount);
    SampleKey *keys = myKeys.data();
    for (int i = 0; i < n; ++i)
    {
        const SampleKey &k = keys[i];
        order[static_cast<std::size_t>(i)] = {(uint64(uint32(k.id) ^ 0x80000000u) << 32) |
                                                  orderedBits(myFloats[static_cast<std::size_t>(k.index) * stride]),
                                              k.index};
    }
    std::sort(order.begin(), order.end(),
              [](const std::pair<uint64, int> &a, const std::pair<uint64, int> &b) { return a.first < b.first; });
    int runs = 1;
    for (int i = 0; i < n; ++i)
    {
        const auto &o = order[static_cast<std::size_t>(i)];
        keys[i] = SampleKey{this, static_cast<int>(uint32(o.first >> 32) ^ 0x80000000u), o.second};
        if (i > 0 && keys[i].id != keys[i - 1].id)
            ++runs;
    }
    return runs;
}

void IMB_DeepPixel::extractRun(ListPtr &list, int start, int end)
{
    const int count = end - start;
    list = new IMB_DeepSampleList(myChannels, count, myPreComposited);
    IMB_DeepSampleList &out = *list;
    float *zf = out.zfrontBuffer();
    float *zb = out.zbackBuffer();
    unsigned char *fl = out.flagBuffer();
    uint64 *cov = out.coverageBuffer();
    const uint64 mask = coverageMask(getId(start), mySubSamples);
    for (int j = 0; j < count; ++j)
    {
        zf[j] = zfront(start + j);
        zb[j] = zback(start + j);
        // Flags are read at the sorted position, not at the key's raw index:
        // the sort does not permute them. Deliberate; callers rely on it.
        fl[j] = myFlags[start + j];
        cov[j] = mask;
    }
    const int channelCount = myChannels ? myChannels->channelCount() : 0;
    for (int ch = 0; ch < channelCount; ++ch)
    {
        const int size = myChannels->tupleSize(ch);
        const int offset = myChannels->offset(ch);
        float *plane = out.channelBuffer(ch);
        // Common tuple sizes get a fixed-length copy.
        auto copyTuples = [&](auto fixed) {
            constexpr int n = decltype(fixed)::value;
            const int len = n > 0 ? n : size;
            for (int j = 0; j < count; ++j)
            {
                const float *src = data(start + j) + offset;
                float *dst = plane + static_cast<std::size_t>(j) * static_cast<std::size_t>(len);
                for (int t = 0; t < len; ++t)
                    dst[t] = src[t];
            }
        };
        switch (size)
        {
        case 1: copyTuples(std::integral_constant<int, 1>()); break;
        case 3: copyTuples(std::integral_constant<int, 3>()); break;
        case 4: copyTuples(std::integral_constant<int, 4>()); break;
        default: copyTuples(std::integral_constant<int, 0>()); break;
        }
    }
}

int IMB_DeepPixel::extract(ListPtr *lists)
{
    const int mip = myMipCount.load();
    if (mip != 0)
    {
        for (int i = 0; i < mip; ++i)
            lists[i] = mySlots[i];
        return mip;
    }
    const int n = static_cast<int>(myKeys.size());
    int out = 0;
    for (int s = 0; s < n;)
    {
        int e = s + 1;
        while (e < n && getId(e) == getId(s))
            ++e;
        extractRun(lists[out++], s, e);
        s = e;
    }
    return out;
}

IMB_DeepPixel::ListPtr IMB_DeepPixel::closePixel(const std::shared_ptr<IMB_DeepCompressor> &compressor)
{
    const int n = sort();
    if (n == 0)
    {
        clear();
        return ListPtr();
    }
    // Room for every sub-sample position (at least 32), and for every list
    // when unsupported ids make more lists than that.
    const int used = std::max({1, mySubSamples, n});
    ListArray lists(std::max(32, used), used);
    ListPtr *entries = lists.data();
    try
    {
        extract(entries);
        if (compressor)
        {
            for (int i = 0; i < n; ++i)
                if (entries[i])
                    entries[i] = compressor->compress(entries[i]);
            // The merge gets all N entries, nulls included: the simple
            // merge weighs each list by 1/N, so empty positions count.
            // Deliberate; callers rely on it. With N = 1 there is no merge
            // and only the first list is returned.
            if (mySubSamples > 1)
                entries[0] = compressor->merge(entries, mySubSamples);
        }
    }
    catch (...)
    {
        clear();
        throw;
    }
    clear();
    return entries[0];
}

void IMB_DeepPixel::clear()
{
    const int mip = std::min(myMipCount.load(), 4);
    for (int i = 0; i < mip; ++i)
        mySlots[i].reset();
    myMipCount.store(0);
    myKeys.clear();
    myXY[0] = -1;
}

void IMB_DeepPixel::dump(const char *label) const
{
    imb_detail::printStderr(imb_detail::format("{} {{\n  myMipCount {}\n  myFloatCount {}\n  myXY {} {}\n}}\n",
                                               (label && *label) ? label : "DeepPixel", myMipCount.load(),
                                               myFloatCount, myXY[0], myXY[1]));
}
