// IMB_DeepPixel: gathers the samples of one deep pixel while a renderer or
// converter produces them, and on closing turns them into one compressed
// IMB_DeepSampleList with the help of an IMB_DeepCompressor.
//
// One accumulator is reused pixel after pixel: startPixel, any number of
// store calls of one style, closePixel. Two styles:
//   raw style: single samples (depth range, channel values, flags and a
//              sub-sample id) are stored; closing sorts them and builds one
//              list per id, with the id's coverage mask;
//   mip style: whole lists built elsewhere are stored (at most four per
//              pixel); closing takes them as they are.
// Closing compresses every list and, when the accumulator has more than one
// sub-sample position, merges them into one list.
//
// Ownership: the caller owns the accumulator; it holds references to its
// channel list and to the lists stored in mip style until closing.
//
// Thread-safety: raw store may be called from many threads at once for the
// same pixel (a lock serialises the append and the buffer growth). Mip-style
// store takes no lock; an atomic slot counter gives every caller its own
// slot. startPixel, closePixel and the queries are called by one thread while
// no stores run.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_Array.h>
#include <IMB/platform/BAS_IntrusivePtr.h>
#include <IMB/platform/BAS_Lock.h>

#include <atomic>
#include <memory>

class IMB_API IMB_DeepPixel
{
public:
    using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
    using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;

    // One raw sample: the owning accumulator (so that comparisons reach its
    // float buffer), the sub-sample id, and the sample's index in the raw
    // buffers. Keys order by id, then by the sample's zfront.
    struct SampleKey
    {
        const IMB_DeepPixel *pixel;
        int id;
        int index;

        bool operator<(const SampleKey &o) const
        {
            if (id != o.id)
                return id < o.id;
            return pixel->samplez(*this) < o.pixel->samplez(o);
        }
    };

    // An accumulator for lists of `channels` over `subSamples` sub-pixel
    // sample positions (the ids 0 .. subSamples - 1, at most 64 distinct
    // coverage masks). Starts closed, empty, with the pre-composited flag on.
    IMB_DeepPixel(const ChannelsPtr &channels, int subSamples);
    ~IMB_DeepPixel();
    IMB_DeepPixel(const IMB_DeepPixel &) = delete;
    IMB_DeepPixel &operator=(const IMB_DeepPixel &) = delete;

    // Opens the pixel at (x, y); closing builds lists with the given
    // pre-composited flag. Nothing else is reset (closing resets).
    void startPixel(int x, int y, bool preComposited);

    // Raw-style store: a sample from zfront to zback with totalSize() channel
    // values (packed in channel order), its flag byte (the low 8 bits of
    // `flags`) and its sub-sample id. A negative id gives coverage 0; ids of
    // subSamples or above are not supported (their coverage is not meaningful,
    // and each distinct id still becomes its own list). Thread-safe.
    void store(float zfront, float zback, const float *values, int flags, int id);

    // Mip-style store: keeps a reference to `list` in the next of four slots
    // (a null list is ignored). There is deliberately no bound check, and
    // callers rely on this store staying lock- and branch-free: at most four
    // lists per pixel; a fifth store overruns the slots. Thread-safe.
    void store(const ListPtr &list);

    // Closes the pixel: sorts and groups the raw samples by id (or takes the
    // stored lists in mip style), compresses every list with `compressor`
    // and, when subSamples > 1, merges them (the merge is handed all
    // subSamples entries, nulls included). Clears the accumulator and returns
    // the result; a pixel without stores gives a null list. With
    // subSamples <= 1 and several lists (several ids, or several mip stores)
    // only the first list is returned. A null compressor returns the first
    // list uncompressed. Within a list, samples run by zfront in float
    // order, with -0 before +0 and NaNs at the two ends; samples of equal
    // zfront keep their store order (for concurrent stores, the order in
    // which the lock let them in).
    ListPtr closePixel(const std::shared_ptr<IMB_DeepCompressor> &compressor);

    // A pixel is open between startPixel and closePixel.
    bool isOpen() const { return myXY[0] >= 0; }
    // At least one raw sample is stored.
    bool isRawStyle() const;
    // At least one list is stored in mip style.
    bool isMipStyle() const { return myMipCount.load() > 0; }
    int x() const { return myXY[0]; }
    int y() const { return myXY[1]; }
    const ChannelsPtr &channels() const { return myChannels; }

    // The zfront of the key's raw sample.
    float samplez(const SampleKey &key) const { return myFloats[static_cast<long>(key.index) * myFloatCount]; }

    // Prints the accumulator's counters and position to the standard error
    // stream under `label` ("DeepPixel" when null or empty).
    void dump(const char *label = nullptr) const;

private:
    int sort();
    int extract(ListPtr *lists);
    void extractRun(ListPtr &list, int start, int end);
    bool closeSingleRun(ListPtr &list);
    // The id, depths and channel values of the i-th key's raw sample.
    int getId(int i) const { return myKeys[i].id; }
    const float *raw(int i) const { return myFloats + static_cast<long>(myKeys[i].index) * myFloatCount; }
    float zfront(int i) const { return raw(i)[0]; }
    float zback(int i) const { return raw(i)[1]; }
    const float *data(int i) const { return raw(i) + 2; }
    void clear();
    void growBuffers(int capacity);

    ChannelsPtr myChannels;
    BAS_Lock myLock;
    ListPtr mySlots[4];
    float *myFloats = nullptr;
    unsigned char *myFlags = nullptr;
    BAS_Array<SampleKey> myKeys;
    int mySubSamples;
    int myXY[2];
    std::atomic<int> myMipCount;
    int myFloatCount;
    bool myPreComposited;
    // Samples the raw float and flag buffers have room for.
    int myBufferCapacity = 0;
};
