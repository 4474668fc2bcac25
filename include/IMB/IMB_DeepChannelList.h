// IMB_DeepChannelList: the value channels carried by every sample of a deep
// pixel, besides its depth range, flags and coverage.
//
// Each channel has a name, a tuple size (floats per sample) and an offset (the
// sum of the tuple sizes of the channels before it); an ordinal channel holds
// identifiers or indices that are copied, never blended or weighted. The list
// is the schema by which sample lists, the pixel accumulator, compressors,
// filters and the JSON form lay out their float data.
//
// Ownership and threads: lists are reference-counted (atomic use count) and
// held through BAS_IntrusivePtr<IMB_DeepChannelList>. Build a list with
// addChannel before sharing it; once shared it is treated as immutable and may
// be read from any number of threads.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Array.h>
#include <IMB/platform/BAS_IntrusivePtr.h>
#include <IMB/platform/BAS_StringHolder.h>

class IMB_API IMB_DeepChannelList : public BAS_IntrusiveRefCounter<IMB_DeepChannelList>
{
public:
    // An empty list: no channels, totalSize() and maxSize() 0, use count 0.
    IMB_DeepChannelList();
    // Copies (moves) the channels and both sizes; the new list's use count is 0.
    IMB_DeepChannelList(const IMB_DeepChannelList &other);
    IMB_DeepChannelList(IMB_DeepChannelList &&other) noexcept;
    // Replace the channels and both sizes; the target keeps its own use count.
    IMB_DeepChannelList &operator=(const IMB_DeepChannelList &other);
    IMB_DeepChannelList &operator=(IMB_DeepChannelList &&other) noexcept;
    ~IMB_DeepChannelList();

    // Appends a channel named `name` with `tupleSize` floats per sample at
    // offset totalSize(); then maxSize() becomes the larger of itself and
    // `tupleSize`, and totalSize() grows by `tupleSize`. Names are not checked
    // for uniqueness (a duplicate is added; lookups find the first). Only for
    // a list that nobody else holds yet.
    void addChannel(const BAS_StringHolder &name, int tupleSize, bool ordinal = false);

    // Number of channels.
    int channelCount() const { return static_cast<int>(myChannels.size()); }
    // Index of the first channel whose name equals `name`, or -1 (also for a
    // null name).
    int findChannel(const char *name) const;

    // Accessors for channel `i` (0 <= i < channelCount(); not checked).
    const BAS_StringHolder &name(int i) const { return myChannels[i].name; }
    int tupleSize(int i) const { return myChannels[i].tupleSize; }
    int offset(int i) const { return myChannels[i].offset; }
    bool isOrdinal(int i) const { return myChannels[i].ordinal; }

    // Sum of all tuple sizes (0 for an empty list).
    int totalSize() const { return myTotalSize; }
    // Largest tuple size (0 for an empty list).
    int maxSize() const { return myMaxSize; }

    // True when both lists have the same channels in the same order: equal
    // names (as strings), tuple sizes, offsets and ordinal flags. The same
    // object, or two empty lists, are equal.
    bool isEqual(const IMB_DeepChannelList &other) const;
    bool operator==(const IMB_DeepChannelList &other) const { return isEqual(other); }
    bool operator!=(const IMB_DeepChannelList &other) const { return !isEqual(other); }

    // Prints the list to the standard error stream:
    //   "<label> = {", one "  <tupleSize> '<name>'" line per channel, "}".
    // A null or empty label prints as "channels".
    void dump(const char *label = nullptr) const;

private:
    struct Channel
    {
        BAS_StringHolder name;
        int tupleSize = 0;
        int offset = 0;
        bool ordinal = false;
    };

    BAS_Array<Channel> myChannels;
    int myMaxSize = 0;
    int myTotalSize = 0;
};
