// IMB_DeepSampleFilter: transforms deep sample lists from one channel layout
// to another (reduce a channel to one float, switch between individual
// contributions and running composites).
//
// Use: create a filter with one of the factories, tell it the input channel
// list once with updateChannels (it derives its output channel list from
// it), then apply it to lists of that input layout. apply never modifies its
// input; it returns either the input list itself or a new list.
//
// Ownership and threads: filters are reference-counted (atomic use count) and
// shared as BAS_IntrusivePtr<IMB_DeepSampleFilter>. updateChannels is called
// by one thread before the filter is shared; apply may then be called from
// many threads at once.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_DeepChannelList.h>
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_IntrusivePtr.h>
#include <IMB/platform/BAS_StringHolder.h>

class IMB_API IMB_DeepSampleFilter : public BAS_IntrusiveRefCounter<IMB_DeepSampleFilter>
{
public:
    using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
    using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
    using FilterPtr = BAS_IntrusivePtr<IMB_DeepSampleFilter>;

    IMB_DeepSampleFilter();
    IMB_DeepSampleFilter(const IMB_DeepSampleFilter &) = delete;
    IMB_DeepSampleFilter &operator=(const IMB_DeepSampleFilter &) = delete;
    virtual ~IMB_DeepSampleFilter();

    // The tuple size the channel `name` will have after filtering, given its
    // input `tupleSize`. The base version returns `tupleSize`.
    virtual int filteredTupleSize(const char *name, int tupleSize) const;

    // Returns the filtered form of `list` (laid out by the input channel list
    // last given to updateChannels), or `list` itself when there is nothing
    // to change. A null list gives null.
    virtual ListPtr apply(const ListPtr &list) const = 0;

    // Derives the output channel list from `input` and returns it.
    const ChannelsPtr &updateChannels(const ChannelsPtr &input)
    {
        doUpdateChannels(input);
        return myChannels;
    }
    // The output channel list; null before updateChannels.
    const ChannelsPtr &channels() const { return myChannels; }

    // Passes lists through unchanged; its output channels are its input's.
    static FilterPtr nullFilter();
    // Replaces the named channel's tuple by the mean of its components
    // (tuple size 1). Lists without that channel pass unchanged.
    static FilterPtr monochrome(const BAS_StringHolder &channelName);
    // Turns lists into running composites using the named opacity channel.
    // Lists already composited, or without the channel, pass unchanged.
    static FilterPtr precomposite(const BAS_StringHolder &opacityName);
    // Turns running composites back into individual contributions using the
    // named opacity channel. Lists not composited, or without the channel,
    // pass unchanged.
    static FilterPtr uncomposite(const BAS_StringHolder &opacityName);

protected:
    // Sets the output channel list from the input list.
    virtual void doUpdateChannels(const ChannelsPtr &input) = 0;
    // Replaces the output channel list.
    void setChannels(const ChannelsPtr &channels) { myChannels = channels; }

private:
    ChannelsPtr myChannels;
};
