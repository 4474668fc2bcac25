// IMB_DeepSampleList: the samples of one deep pixel.
//
// Each sample has a depth range (zfront, zback), a flag byte (0x01 volume,
// 0x02 matte; other bits are carried along), a 64-bit sub-pixel coverage mask
// and one float tuple per channel of an IMB_DeepChannelList. Samples are kept
// front (index 0) to back by the operations that build lists.
//
// Storage, which callers use through the buffer accessors: one float block of
// (totalSize + 2) x capacity floats holding the z-front plane, the z-back plane
// and then one plane per channel in channel order; a channel plane with tuple
// size t holds t x capacity floats, sample-major (sample i's tuple starts at
// float i x t). Flags, coverage masks and the table of channel plane pointers
// are three further blocks.
//
// Ownership and threads: lists are reference-counted (atomic use count) and
// passed as BAS_IntrusivePtr<IMB_DeepSampleList>; a null pointer means no
// samples. The list shares (never modifies) its channel list. Only the use
// count is atomic: one thread modifies a list at a time, and a list that has
// been shared is treated as read-only. No operation checks indices or counts;
// allocation failure raises std::bad_alloc.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_DeepChannelList.h>
#include <IMB/platform/BAS_IntrusivePtr.h>
#include <IMB/platform/BAS_Types.h>

class BAS_JSONWriter;
class BAS_JSONParser;

class IMB_API IMB_DeepSampleList : public BAS_IntrusiveRefCounter<IMB_DeepSampleList>
{
public:
    // Sample flag bits.
    enum : uint8
    {
        SAMPLE_VOLUME = 0x01, // a slab of uniform matter between zfront and zback
        SAMPLE_MATTE = 0x02   // a holdout: occludes, contributes no colour
    };

    // Creates a list of `count` samples (contents uninitialised) laid out by
    // `channels`, with the given pre-composited flag.
    IMB_DeepSampleList(const BAS_IntrusivePtr<IMB_DeepChannelList> &channels, int count, bool preComposited = false);
    // Shares the channel list and copies the flag and the first count samples
    // (depths, flags, coverage, every channel); the capacity is the count.
    IMB_DeepSampleList(const IMB_DeepSampleList &other);
    IMB_DeepSampleList &operator=(const IMB_DeepSampleList &) = delete;
    ~IMB_DeepSampleList();

    // ------------------------------------------------------------ storage
    // Within the capacity only the count changes (contents kept). Above it,
    // all storage is freed and allocated again for exactly `n` samples: the
    // former contents are discarded, not copied.
    void setSampleCount(int n);
    // Sets the count to `n` without any check or reallocation (n <= count).
    void trimLength(int n) { mySampleCount = n; }
    // Frees all storage; count and capacity become 0.
    void clear();
    // Writes the empty sample at `i`: channel values 0, zfront the largest
    // finite float, zback its negation, flags 0, coverage 0.
    void zeroData(int i);
    // Zeroes the first (totalSize + 2) x count floats of the float block and
    // the first count flags and coverage masks. With count below the capacity
    // this does not line up with the planes; see the definition.
    void zeroData();

    int sampleCount() const { return mySampleCount; }
    int size() const { return mySampleCount; }
    int sampleCapacity() const { return myCapacity; }
    const BAS_IntrusivePtr<IMB_DeepChannelList> &channels() const { return myChannels; }
    bool preComposited() const { return myPreComposited; }
    void setPreComposited(bool v) { myPreComposited = v; }

    // ------------------------------------------------------------ one sample
    float zfront(int i) const { return myZfront[i]; }
    float zback(int i) const { return myZback[i]; }
    float zmid(int i) const { return (myZback[i] + myZfront[i]) * 0.5f; }
    uint8 flags(int i) const { return myFlags[i]; }
    // Volume bit set and zback > zfront.
    bool isVolume(int i) const { return (myFlags[i] & SAMPLE_VOLUME) && myZback[i] > myZfront[i]; }
    bool isMatte(int i) const { return (myFlags[i] & SAMPLE_MATTE) != 0; }
    uint64 coverage(int i) const { return myCoverage[i]; }
    // The tuple of sample `i` in channel `ch` (tupleSize(ch) floats).
    float *channelData(int ch, int i) { return myChannelData[ch] + static_cast<exint>(i) * myChannels->tupleSize(ch); }
    const float *channelData(int ch, int i) const
    {
        return myChannelData[ch] + static_cast<exint>(i) * myChannels->tupleSize(ch);
    }

    // ------------------------------------------------------------ planes
    float *zfrontBuffer() { return myZfront; }
    const float *zfrontBuffer() const { return myZfront; }
    float *zbackBuffer() { return myZback; }
    const float *zbackBuffer() const { return myZback; }
    uint8 *flagBuffer() { return myFlags; }
    const uint8 *flagBuffer() const { return myFlags; }
    uint64 *coverageBuffer() { return myCoverage; }
    const uint64 *coverageBuffer() const { return myCoverage; }
    float *channelBuffer(int ch) { return myChannelData[ch]; }
    const float *channelBuffer(int ch) const { return myChannelData[ch]; }

    // The fill family: values from sample `start` on. The planes are already
    // contiguous, so these return pointers into them and never write the
    // caller's scratch buffer.
    const float *fillZfront(float *scratch, int start) const { return myZfront + start; }
    const float *fillZback(float *scratch, int start) const { return myZback + start; }
    const uint8 *fillSampleFlags(uint8 *scratch, int start) const { return myFlags + start; }
    const uint64 *fillCoverage(uint64 *scratch, int start) const { return myCoverage + start; }
    const float *fillChannel(int ch, float *scratch, int start) const { return channelData(ch, start); }
    const float *zfront(float *scratch, int start) const { return fillZfront(scratch, start); }
    const float *zback(float *scratch, int start) const { return fillZback(scratch, start); }
    const uint8 *flags(uint8 *scratch, int start) const { return fillSampleFlags(scratch, start); }
    const uint64 *coverage(uint64 *scratch, int start) const { return fillCoverage(scratch, start); }
    const float *channelData(int ch, float *scratch, int start) const { return fillChannel(ch, scratch, start); }

    // Whole-plane copies of this list's first count samples from `other`,
    // which has the same channel layout and at least as many samples.
    void copyZfront(const IMB_DeepSampleList &other);
    void copyZback(const IMB_DeepSampleList &other);
    void copyZ(const IMB_DeepSampleList &other);
    void copyFlags(const IMB_DeepSampleList &other);
    // Copies the coverage plane (the samples' identities).
    void copySampleId(const IMB_DeepSampleList &other);
    void copyChannel(int ch, const IMB_DeepSampleList &other);
    void copyAllChannels(const IMB_DeepSampleList &other);

    // ------------------------------------------------------------ sample arithmetic
    // Sample `dst` takes zfront, zback, flags and coverage of src's sample
    // `si`; with weight exactly 1 every channel tuple is copied, otherwise
    // non-ordinal tuples become weight x source and ordinal ones are copied.
    void copySample(int dst, const IMB_DeepSampleList &src, int si, float weight = 1.0f);
    // Adds weight x src's sample `si` to sample `dst` in every non-ordinal
    // channel (ordinal ones untouched) and ORs in its coverage. When `dst`
    // has the volume bit, its depth range widens to include the source's.
    // Flags are not changed.
    void addSample(int dst, const IMB_DeepSampleList &src, int si, float weight = 1.0f);
    // Copies only the ordinal channels' tuples of src's sample `si` to `dst`.
    void setConditional(int dst, const IMB_DeepSampleList &src, int si);

    // ------------------------------------------------------------ compositing
    // Turns individual contributions into running composites, in place,
    // using channel `opacityChannel` (tuple size 1, or 3 and more for
    // per-component opacity). Does nothing when already pre-composited unless
    // `force`. Sets the pre-composited flag (also for fewer than 2 samples).
    // An opacity index outside the channel list leaves the list unchanged
    // (this and the next two operations).
    void composite(int opacityChannel, bool force = false);
    // The inverse of composite: back to individual contributions. Does
    // nothing when not pre-composited unless `force`. Clears the flag.
    // Components whose previous composited opacity is 0 (per-component
    // opacity) are left as they are.
    void uncomposite(int opacityChannel, bool force = false);
    // Number of leading samples needed for every opacity component to reach
    // `threshold` (the count when none does; the count itself for fewer than
    // 2 samples). Works on either form.
    int findFullOpacity(int opacityChannel, float threshold) const;
    // Writes into sample `dst` the part of src's sample `si` between
    // `nearDepth` and `farDepth`, treating it as a volume of uniform density:
    // the tuple is scaled by sqrt((1 - e^-(back - front)) / (1 - e^-(zback -
    // zfront))) and the range becomes [max(zfront, near), min(zback, far)].
    // The last argument is accepted and ignored.
    void extractSegment(int dst, const IMB_DeepSampleList &src, int si, float nearDepth, float farDepth,
                        float unused = 0.0f);
    // This list's samples cut at every depth boundary (zfront or zback) of
    // `other` that lies strictly inside a volume sample of this list. Each
    // volume sample becomes one sample per piece, in depth order, made with
    // extractSegment; surface samples and volumes that no boundary cuts are
    // copied unchanged. The result has this list's channels and
    // pre-composited flag; it is never null (it may hold 0 samples).
    BAS_IntrusivePtr<IMB_DeepSampleList> splitSegments(const IMB_DeepSampleList &other) const;
    // Both lists' samples, each cut at the other's boundaries, in ascending
    // zmid order. A null or empty `a` gives `b`; a null or empty `b`, or lists
    // whose pre-composited flags or channel lists differ, give `a`.
    static BAS_IntrusivePtr<IMB_DeepSampleList> combine(const BAS_IntrusivePtr<IMB_DeepSampleList> &a,
                                                        const BAS_IntrusivePtr<IMB_DeepSampleList> &b);

    // ------------------------------------------------------------ JSON form
    // Writes the list as one JSON array of key tokens and values:
    // "composited", "sampleCount", and for a count above 0 "zfront",
    // "zback", "coverage", "flags" and "ch.<name>" for each channel of
    // `channels` (this list's own channels when null). False as soon as a
    // write fails.
    bool save(BAS_JSONWriter &writer, const BAS_IntrusivePtr<IMB_DeepChannelList> &channels) const;
    // As the member form; a null list is written as an empty array.
    static bool save(BAS_JSONWriter &writer, const BAS_IntrusivePtr<IMB_DeepSampleList> &list,
                     const BAS_IntrusivePtr<IMB_DeepChannelList> &channels);
    // Reads a list written by save (or the same keys as a JSON object),
    // matching channel data to `channels` by name. Problems that leave a
    // usable list are reported as parser warnings; a missing or repeated
    // "sampleCount", a count larger than the parser's input has bytes (which
    // no written list can be), or malformed JSON is fatal and gives null.
    static BAS_IntrusivePtr<IMB_DeepSampleList> load(BAS_JSONParser &parser,
                                                     const BAS_IntrusivePtr<IMB_DeepChannelList> &channels);

    // ------------------------------------------------------------ diagnostics
    // Prints samples [start, end) (end < 0: to the count) to the standard
    // error stream, with the values of each channel of `channels` (none when
    // it is null). A null or empty label prints as "samples".
    void dump(const BAS_IntrusivePtr<IMB_DeepChannelList> &channels, const char *label = nullptr, int start = 0,
              int end = -1) const;
    // As above, without channel values.
    void dump(const char *label = nullptr, int start = 0, int end = -1) const;

private:
    int totalFloats() const { return myChannels ? myChannels->totalSize() : 0; }
    int channelCount() const { return myChannels ? myChannels->channelCount() : 0; }
    void freeStorage();
    void allocate(int n);

    BAS_IntrusivePtr<IMB_DeepChannelList> myChannels;
    int mySampleCount = 0;
    int myCapacity = 0;
    float *myZfront = nullptr;
    float *myZback = nullptr;
    uint8 *myFlags = nullptr;
    uint64 *myCoverage = nullptr;
    float **myChannelData = nullptr;
    bool myPreComposited = false;
};
