// IMB_DeepChannelList: channel entries, lookup, equality and dump.
#include <IMB/IMB_DeepChannelList.h>

#include "platform/Log.h"

#include <cstring>
#include <string>

IMB_DeepChannelList::IMB_DeepChannelList() = default;

IMB_DeepChannelList::IMB_DeepChannelList(const IMB_DeepChannelList &other)
    : BAS_IntrusiveRefCounter<IMB_DeepChannelList>(), myChannels(other.myChannels), myMaxSize(other.myMaxSize),
      myTotalSize(other.myTotalSize)
{
}

IMB_DeepChannelList::IMB_DeepChannelList(IMB_DeepChannelList &&other) noexcept
    : BAS_IntrusiveRefCounter<IMB_DeepChannelList>(), myChannels(std::move(other.myChannels)),
      myMaxSize(other.myMaxSize), myTotalSize(other.myTotalSize)
{
    other.myMaxSize = 0;
    other.myTotalSize = 0;
}

IMB_DeepChannelList &IMB_DeepChannelList::operator=(const IMB_DeepChannelList &other)
{
    if (this != &other)
    {
        myChannels = other.myChannels;
        myMaxSize = other.myMaxSize;
        myTotalSize = other.myTotalSize;
    }
    return *this;
}

IMB_DeepChannelList &IMB_DeepChannelList::operator=(IMB_DeepChannelList &&other) noexcept
{
    if (this != &other)
    {
        myChannels = std::move(other.myChannels);
        myMaxSize = other.myMaxSize;
        myTotalSize = other.myTotalSize;
        other.myMaxSize = 0;
        other.myTotalSize = 0;
    }
    return *this;
}

IMB_DeepChannelList::~IMB_DeepChannelList() = default;

void IMB_DeepChannelList::addChannel(const BAS_StringHolder &name, int tupleSize, bool ordinal)
{
    Channel c;
    c.name = name;
    c.tupleSize = tupleSize;
    c.offset = myTotalSize;
    c.ordinal = ordinal;
    myChannels.append(std::move(c));
    if (tupleSize > myMaxSize)
        myMaxSize = tupleSize;
    myTotalSize += tupleSize;
}

int IMB_DeepChannelList::findChannel(const char *name) const
{
    if (!name)
        return -1;
    for (int i = 0, n = channelCount(); i < n; ++i)
        if (myChannels[i].name.equal(name))
            return i;
    return -1;
}

bool IMB_DeepChannelList::isEqual(const IMB_DeepChannelList &other) const
{
    if (this == &other)
        return true;
    if (channelCount() != other.channelCount() || myMaxSize != other.myMaxSize || myTotalSize != other.myTotalSize)
        return false;
    for (int i = 0, n = channelCount(); i < n; ++i)
    {
        const Channel &a = myChannels[i];
        const Channel &b = other.myChannels[i];
        if (a.name != b.name || a.tupleSize != b.tupleSize || a.offset != b.offset || a.ordinal != b.ordinal)
            return false;
    }
    return true;
}

void IMB_DeepChannelList::dump(const char *label) const
{
    std::string text = imb_detail::format("{} = {{\n", label && *label ? label : "channels");
    for (const Channel &c : myChannels)
        text += imb_detail::format("  {} '{}'\n", c.tupleSize, c.name.c_str());
    text += "}\n";
    imb_detail::dumpStderr(text);
}
