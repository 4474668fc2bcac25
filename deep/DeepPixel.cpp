// The deep pixel accumulator: raw and mip-style stores, sorting by
// sub-sample id and depth, and closing through a compressor.
#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepPixel.h>

#include "deep/DeepRankSort.h"
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

// Ids below this are bucketed before sorting by depth.
constexpr int kBucketIds = 256;

// Floats allocated after the last raw sample (see growBuffers).
constexpr std::size_t kRowSlack = 4;

// Samples of one sub-sample up to this count are sorted on the stack.
constexpr int kStackSort = 256;

// The accumulator's raw samples as extraction reads them: rows of `stride`
// floats (zfront, zback, then the channel values) and the flag bytes from
// the run's first position.
struct RawSamples
{
    const float *floats;
    const unsigned char *flags;
    std::size_t stride;
};

// Channel counts up to this, with tuples of up to four floats, are copied
// sample by sample.
constexpr int kRowChannels = 4;

// The depths and the C channels' tuples of `count` samples (at least 2),
// sample j from raw row indexOf(j), one row at a time. Tuples of two to four
// floats are copied as four floats: the excess lands on the next samples'
// components in the same plane, which later copies write, and the last
// sample, copied exactly, leaves nothing past the plane. Reads past a tuple
// stay within the raw rows or the buffer's slack.
template <int C, class IndexOf>
void extractRows(const RawSamples &raw, float *zf, float *zb, float *const *planes, const float *const *sources,
                 const int *sizes, int count, IndexOf indexOf)
{
    float *dst[C > 0 ? C : 1];
    const float *src[C > 0 ? C : 1];
    int size[C > 0 ? C : 1];
    for (int c = 0; c < C; ++c)
    {
        dst[c] = planes[c];
        src[c] = sources[c];
        size[c] = sizes[c];
    }
    for (int j = 0; j < count; ++j)
    {
        const std::size_t row = static_cast<std::size_t>(indexOf(j)) * raw.stride;
        zf[j] = raw.floats[row];
        zb[j] = raw.floats[row + 1];
        if (j == count - 1)
        {
            for (int c = 0; c < C; ++c)
                for (int k = 0; k < size[c]; ++k)
                    dst[c][k] = src[c][row + static_cast<std::size_t>(k)];
            break;
        }
        for (int c = 0; c < C; ++c)
        {
            if (size[c] == 1)
                dst[c][0] = src[c][row];
            else
                std::memcpy(dst[c], src[c] + row, 4 * sizeof(float));
            dst[c] += size[c];
        }
    }
}

// Fills `out` (sized to the run) from the raw samples: sample j takes the
// depths and channel values of raw row indexOf(j), the flag byte at run
// position j (flags are not permuted by the sort: deliberate, callers rely
// on it) and `mask` as its coverage.
template <class IndexOf>
void extractSamples(IMB_DeepSampleList &out, const RawSamples &raw, uint64 mask, IndexOf indexOf)
{
    const int count = out.sampleCount();
    float *zf = out.zfrontBuffer();
    float *zb = out.zbackBuffer();
    uint64 *cov = out.coverageBuffer();
    std::memcpy(out.flagBuffer(), raw.flags, static_cast<std::size_t>(count));
    for (int j = 0; j < count; ++j)
        cov[j] = mask;
    const IMB_DeepChannelList *chans = out.channels().get();
    const int channelCount = chans ? chans->channelCount() : 0;
    bool shortTuples = channelCount <= kRowChannels;
    for (int ch = 0; shortTuples && ch < channelCount; ++ch)
        shortTuples = chans->tupleSize(ch) <= 4;
    if (shortTuples && count >= 2)
    {
        float *planes[kRowChannels];
        const float *sources[kRowChannels];
        int sizes[kRowChannels];
        for (int ch = 0; ch < channelCount; ++ch)
        {
            planes[ch] = out.channelBuffer(ch);
            sources[ch] = raw.floats + 2 + chans->offset(ch);
            sizes[ch] = chans->tupleSize(ch);
        }
        auto rows = [&](auto channels) {
            extractRows<decltype(channels)::value>(raw, zf, zb, planes, sources, sizes, count, indexOf);
        };
        switch (channelCount)
        {
        case 0: rows(std::integral_constant<int, 0>()); break;
        case 1: rows(std::integral_constant<int, 1>()); break;
        case 2: rows(std::integral_constant<int, 2>()); break;
        case 3: rows(std::integral_constant<int, 3>()); break;
        default: rows(std::integral_constant<int, 4>()); break;
        }
        return;
    }

    for (int j = 0; j < count; ++j)
    {
        const float *row = raw.floats + static_cast<std::size_t>(indexOf(j)) * raw.stride;
        zf[j] = row[0];
        zb[j] = row[1];
    }
    // Then each channel plane in turn, with fixed-length copies for the
    // common tuple sizes.
    for (int ch = 0; ch < channelCount; ++ch)
    {
        const int size = chans->tupleSize(ch);
        const float *base = raw.floats + 2 + chans->offset(ch);
        float *plane = out.channelBuffer(ch);
        auto copyTuples = [&](auto fixed) {
            constexpr int n = decltype(fixed)::value;
            const std::size_t len = static_cast<std::size_t>(n > 0 ? n : size);
            int j = 0;
            if (n == 3)
            {
                // Four floats at a time: the fourth lands on the next
                // sample's first component, which the next copy writes. The
                // read past the tuple stays within the raw buffer's slack.
                for (; j < count - 1; ++j)
                    std::memcpy(plane + 3 * static_cast<std::size_t>(j),
                                base + static_cast<std::size_t>(indexOf(j)) * raw.stride, 4 * sizeof(float));
            }
            for (; j < count; ++j)
                std::memcpy(plane + static_cast<std::size_t>(j) * len,
                            base + static_cast<std::size_t>(indexOf(j)) * raw.stride, len * sizeof(float));
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
    const std::size_t floats = n * static_cast<std::size_t>(myFloatCount);
    // Slack after the last sample lets extraction copy three-float tuples as
    // four, reading a little past the last one.
    myFloats = static_cast<float *>(reallocOrThrow(myFloats, (floats + kRowSlack) * sizeof(float)));
    std::fill(myFloats + floats, myFloats + floats + kRowSlack, 0.0f);
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
    // The keys' own order (id, then zfront), with the zfront's bits mapped to
    // an unsigned order: integer comparisons only, and NaN depths cannot
    // upset the sort. Samples with equal id and zfront keep their store
    // order, so the result does not depend on the sort algorithm.
    const std::size_t stride = static_cast<std::size_t>(myFloatCount);
    SampleKey *keys = myKeys.data();
    const int id0 = keys[0].id;
    int minId = id0, maxId = id0;
    for (int i = 1; i < n; ++i)
    {
        minId = std::min(minId, keys[i].id);
        maxId = std::max(maxId, keys[i].id);
    }

    if (minId == maxId)
    {
        // One sub-sample (the usual case): one 64-bit word per key, the
        // ordered zfront bits above the store index, so that every word is
        // unique and a plain integer sort does it.
        uint64 stackWords[kStackSort];
        std::vector<uint64> heapWords;
        uint64 *w = stackWords;
        if (n > kStackSort)
        {
            heapWords.resize(static_cast<std::size_t>(n));
            w = heapWords.data();
        }
        // Samples stored front to back (as many renderers produce them)
        // need no sort at all.
        bool ascending = true;
        for (int i = 0; i < n; ++i)
        {
            const int index = keys[i].index;
            w[i] = (orderedBits(myFloats[static_cast<std::size_t>(index) * stride]) << 32) | static_cast<uint32>(index);
            ascending = ascending && (i == 0 || w[i - 1] < w[i]);
        }
        if (ascending)
            return 1;
        imb_detail::sortWords(w, n);
        for (int i = 0; i < n; ++i)
            keys[i] = SampleKey{this, id0, static_cast<int>(static_cast<uint32>(w[i]))};
        return 1;
    }

    if (minId >= 0 && maxId < kBucketIds)
    {
        // Several sub-sample positions: the keys are bucketed by id in store
        // order, and each bucket is sorted by the same words.
        int start[kBucketIds + 1];
        std::fill(start + minId, start + maxId + 2, 0);
        for (int i = 0; i < n; ++i)
            ++start[keys[i].id + 1];
        for (int id = minId; id <= maxId; ++id)
            start[id + 1] += start[id];
        uint64 stackWords[kStackSort];
        std::vector<uint64> heapWords;
        uint64 *w = stackWords;
        if (n > kStackSort)
        {
            heapWords.resize(static_cast<std::size_t>(n));
            w = heapWords.data();
        }
        int fill[kBucketIds];
        std::copy(start + minId, start + maxId + 1, fill + minId);
        for (int i = 0; i < n; ++i)
        {
            const int index = keys[i].index;
            w[fill[keys[i].id]++] =
                (orderedBits(myFloats[static_cast<std::size_t>(index) * stride]) << 32) | static_cast<uint32>(index);
        }
        int runs = 0;
        for (int id = minId; id <= maxId; ++id)
        {
            uint64 *b = w + start[id];
            uint64 *e = w + start[id + 1];
            if (b == e)
                continue;
            ++runs;
            imb_detail::sortWords(b, static_cast<int>(e - b));
        }
        for (int id = minId; id <= maxId; ++id)
            for (int k = start[id]; k < start[id + 1]; ++k)
                keys[k] = SampleKey{this, id, static_cast<int>(static_cast<uint32>(w[k]))};
        return runs;
    }

    // In general: one 64-bit word per key (id, then the ordered zfront
    // bits), ties broken by the store index.
    thread_local std::vector<std::pair<uint64, int>> order;
    order.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
    {
        const SampleKey &k = keys[i];
        order[static_cast<std::size_t>(i)] = {(uint64(uint32(k.id) ^ 0x80000000u) << 32) |
                                                  orderedBits(myFloats[static_cast<std::size_t>(k.index) * stride]),
                                              k.index};
    }
    std::sort(order.begin(), order.end());
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
    const SampleKey *keys = myKeys.data() + start;
    const RawSamples raw{myFloats, myFlags + start, static_cast<std::size_t>(myFloatCount)};
    list = new IMB_DeepSampleList(myChannels, end - start, myPreComposited);
    extractSamples(*list, raw, coverageMask(getId(start), mySubSamples), [keys](int j) { return keys[j].index; });
}

// The common pixel: one sub-sample id and a short run. The run's depth order
// is found from the depths alone (a sorting network, or a vector rank count)
// and the list extracted straight in that order, without sorting the keys.
// Gives what sort and extract give; false (nothing done) for any other pixel.
bool IMB_DeepPixel::closeSingleRun(ListPtr &list)
{
    const int n = static_cast<int>(myKeys.size());
    if (n < 2 || n > imb_detail::kRankSortMax || myMipCount.load() != 0)
        return false;
    // Keys are in store order here: key i is raw sample i.
    const SampleKey *keys = myKeys.data();
    const int id = keys[0].id;
    const std::size_t stride = static_cast<std::size_t>(myFloatCount);
    int32 depth[imb_detail::kRankSortMax + imb_detail::kRankPad];
    int32 order[imb_detail::kRankSortMax + imb_detail::kRankPad];
    bool sameId = true, ascending = true;
    depth[0] = imb_detail::depthKey(myFloats[0]);
    for (int i = 1; i < n; ++i)
    {
        depth[i] = imb_detail::depthKey(myFloats[static_cast<std::size_t>(i) * stride]);
        ascending &= depth[i - 1] <= depth[i];
        sameId &= keys[i].id == id;
    }
    if (!sameId)
        return false;
    if (ascending)
    {
        for (int i = 0; i < n; ++i)
            order[i] = i;
    }
    else
        imb_detail::orderKeys(depth, n, order);
    const RawSamples raw{myFloats, myFlags, stride};
    list = new IMB_DeepSampleList(myChannels, n, myPreComposited);
    extractSamples(*list, raw, coverageMask(id, mySubSamples), [&order](int j) { return order[j]; });
    return true;
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
    ListPtr single;
    bool isSingle;
    try
    {
        isSingle = closeSingleRun(single);
    }
    catch (...)
    {
        clear();
        throw;
    }
    if (isSingle && (!compressor || mySubSamples <= 1))
    {
        clear();
        return compressor ? compressor->compress(single) : single;
    }
    const int n = isSingle ? 1 : sort();
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
        if (isSingle)
            entries[0] = std::move(single);
        else
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
    imb_detail::dumpStderr(imb_detail::format("{} {{\n  myMipCount {}\n  myFloatCount {}\n  myXY {} {}\n}}\n",
                                               (label && *label) ? label : "DeepPixel", myMipCount.load(),
                                               myFloatCount, myXY[0], myXY[1]));
}
