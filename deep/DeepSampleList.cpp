// IMB_DeepSampleList: storage, plane copies, per-sample arithmetic and dump.
#include <IMB/IMB_DeepSampleList.h>

#include "platform/Log.h"

#include <cinttypes>
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace
{
constexpr float kLargestFloat = 3.4028235e38f;

// The allocator takes the byte count of `floats` floats; a total that does not
// fit a signed 32-bit int is requested as the largest size, which fails.
std::size_t floatBytes(exint floats)
{
    if (floats > std::numeric_limits<int32>::max())
        return std::numeric_limits<std::size_t>::max();
    return static_cast<std::size_t>(floats) * sizeof(float);
}

void appendf(std::string &out, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string &out, const char *fmt, ...)
{
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    if (n < 0)
        return;
    if (static_cast<std::size_t>(n) < sizeof buf)
    {
        out.append(buf, static_cast<std::size_t>(n));
        return;
    }
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    va_start(ap, fmt);
    std::vsnprintf(big.data(), big.size(), fmt, ap);
    va_end(ap);
    out.append(big.data(), static_cast<std::size_t>(n));
}
} // namespace

IMB_DeepSampleList::IMB_DeepSampleList(const BAS_IntrusivePtr<IMB_DeepChannelList> &channels, int count,
                                       bool preComposited)
    : myChannels(channels), myPreComposited(preComposited)
{
    setSampleCount(count);
}

IMB_DeepSampleList::IMB_DeepSampleList(const IMB_DeepSampleList &other)
    : BAS_IntrusiveRefCounter<IMB_DeepSampleList>(), myChannels(other.myChannels),
      myPreComposited(other.myPreComposited)
{
    setSampleCount(other.mySampleCount);
    copyZ(other);
    copyFlags(other);
    copySampleId(other);
    copyAllChannels(other);
}

IMB_DeepSampleList::~IMB_DeepSampleList() { freeStorage(); }

void IMB_DeepSampleList::freeStorage()
{
    ::operator delete(myZfront);
    ::operator delete(myFlags);
    ::operator delete(myCoverage);
    ::operator delete(myChannelData);
    myZfront = myZback = nullptr;
    myFlags = nullptr;
    myCoverage = nullptr;
    myChannelData = nullptr;
    myCapacity = 0;
}

void IMB_DeepSampleList::allocate(int n)
{
    const int nch = channelCount();
    const exint floats = static_cast<exint>(totalFloats() + 2) * n;
    float *block = static_cast<float *>(::operator new(floatBytes(floats)));
    uint8 *flags = nullptr;
    uint64 *coverage = nullptr;
    float **table = nullptr;
    try
    {
        flags = static_cast<uint8 *>(::operator new(static_cast<std::size_t>(n)));
        coverage = static_cast<uint64 *>(::operator new(static_cast<std::size_t>(n) * sizeof(uint64)));
        table = static_cast<float **>(::operator new(static_cast<std::size_t>(nch) * sizeof(float *)));
    }
    catch (...)
    {
        ::operator delete(block);
        ::operator delete(flags);
        ::operator delete(coverage);
        throw;
    }
    myZfront = block;
    myZback = block + n;
    float *plane = block + 2 * static_cast<exint>(n);
    for (int ch = 0; ch < nch; ++ch)
    {
        table[ch] = plane;
        plane += static_cast<exint>(myChannels->tupleSize(ch)) * n;
    }
    myFlags = flags;
    myCoverage = coverage;
    myChannelData = table;
    myCapacity = n;
}

void IMB_DeepSampleList::setSampleCount(int n)
{
    if (n <= myCapacity)
    {
        mySampleCount = n;
        return;
    }
    freeStorage();
    mySampleCount = 0;
    allocate(n);
    mySampleCount = n;
}

void IMB_DeepSampleList::clear()
{
    freeStorage();
    mySampleCount = 0;
}

void IMB_DeepSampleList::zeroData(int i)
{
    for (int ch = 0, n = channelCount(); ch < n; ++ch)
    {
        float *v = channelData(ch, i);
        for (int c = 0, t = myChannels->tupleSize(ch); c < t; ++c)
            v[c] = 0.0f;
    }
    myZfront[i] = kLargestFloat;
    myZback[i] = -kLargestFloat;
    myFlags[i] = 0;
    myCoverage[i] = 0;
}

void IMB_DeepSampleList::zeroData()
{
    if (mySampleCount <= 0)
        return;
    // Deliberate: zeroes the first (totalSize + 2) x count floats of the block,
    // not each plane's first count samples; with count < capacity the two
    // differ, and callers rely on this exact extent.
    std::memset(myZfront, 0, static_cast<std::size_t>(totalFloats() + 2) * mySampleCount * sizeof(float));
    std::memset(myFlags, 0, static_cast<std::size_t>(mySampleCount));
    std::memset(myCoverage, 0, static_cast<std::size_t>(mySampleCount) * sizeof(uint64));
}

// ---------------------------------------------------------------- plane copies

void IMB_DeepSampleList::copyZfront(const IMB_DeepSampleList &other)
{
    if (mySampleCount > 0)
        std::memcpy(myZfront, other.myZfront, static_cast<std::size_t>(mySampleCount) * sizeof(float));
}

void IMB_DeepSampleList::copyZback(const IMB_DeepSampleList &other)
{
    if (mySampleCount > 0)
        std::memcpy(myZback, other.myZback, static_cast<std::size_t>(mySampleCount) * sizeof(float));
}

void IMB_DeepSampleList::copyZ(const IMB_DeepSampleList &other)
{
    copyZfront(other);
    copyZback(other);
}

void IMB_DeepSampleList::copyFlags(const IMB_DeepSampleList &other)
{
    if (mySampleCount > 0)
        std::memcpy(myFlags, other.myFlags, static_cast<std::size_t>(mySampleCount));
}

void IMB_DeepSampleList::copySampleId(const IMB_DeepSampleList &other)
{
    if (mySampleCount > 0)
        std::memcpy(myCoverage, other.myCoverage, static_cast<std::size_t>(mySampleCount) * sizeof(uint64));
}

void IMB_DeepSampleList::copyChannel(int ch, const IMB_DeepSampleList &other)
{
    const exint n = static_cast<exint>(mySampleCount) * myChannels->tupleSize(ch);
    if (n > 0)
        std::memcpy(myChannelData[ch], other.myChannelData[ch], static_cast<std::size_t>(n) * sizeof(float));
}

void IMB_DeepSampleList::copyAllChannels(const IMB_DeepSampleList &other)
{
    for (int ch = 0, n = channelCount(); ch < n; ++ch)
        copyChannel(ch, other);
}

// ---------------------------------------------------------------- sample arithmetic

void IMB_DeepSampleList::copySample(int dst, const IMB_DeepSampleList &src, int si, float weight)
{
    myZfront[dst] = src.myZfront[si];
    myZback[dst] = src.myZback[si];
    myFlags[dst] = src.myFlags[si];
    myCoverage[dst] = src.myCoverage[si];
    const IMB_DeepChannelList &chans = *myChannels;
    for (int ch = 0, n = chans.channelCount(); ch < n; ++ch)
    {
        const int t = chans.tupleSize(ch);
        float *__restrict d = channelData(ch, dst);
        const float *__restrict s = src.channelData(ch, si);
        if (weight == 1.0f || chans.isOrdinal(ch))
            for (int c = 0; c < t; ++c)
                d[c] = s[c];
        else
            for (int c = 0; c < t; ++c)
                d[c] = weight * s[c];
    }
}

void IMB_DeepSampleList::addSample(int dst, const IMB_DeepSampleList &src, int si, float weight)
{
    // Only the destination's own volume bit decides whether the range widens.
    if (myFlags[dst] & SAMPLE_VOLUME)
    {
        myZfront[dst] = std::min(src.myZfront[si], myZfront[dst]);
        myZback[dst] = std::max(src.myZback[si], myZback[dst]);
    }
    myCoverage[dst] |= src.myCoverage[si];
    const IMB_DeepChannelList &chans = *myChannels;
    for (int ch = 0, n = chans.channelCount(); ch < n; ++ch)
    {
        if (chans.isOrdinal(ch))
            continue;
        const int t = chans.tupleSize(ch);
        float *__restrict d = channelData(ch, dst);
        const float *__restrict s = src.channelData(ch, si);
        for (int c = 0; c < t; ++c)
            d[c] += weight * s[c];
    }
}

void IMB_DeepSampleList::setConditional(int dst, const IMB_DeepSampleList &src, int si)
{
    const IMB_DeepChannelList &chans = *myChannels;
    for (int ch = 0, n = chans.channelCount(); ch < n; ++ch)
    {
        if (!chans.isOrdinal(ch))
            continue;
        const int t = chans.tupleSize(ch);
        float *d = channelData(ch, dst);
        const float *s = src.channelData(ch, si);
        for (int c = 0; c < t; ++c)
            d[c] = s[c];
    }
}

// ---------------------------------------------------------------- dump

void IMB_DeepSampleList::dump(const BAS_IntrusivePtr<IMB_DeepChannelList> &channels, const char *label, int start,
                              int end) const
{
    std::string text;
    appendf(text, "%s[%d] (%scomposited) %p = {\n", label && *label ? label : "samples", mySampleCount,
            myPreComposited ? "" : "un", static_cast<const void *>(this));
    if (end < 0)
        end = mySampleCount;
    // Channel values come from this list's planes; a foreign list with more
    // channels than this one is cut to the channels that exist here.
    const int nch = channels ? std::min(channels->channelCount(), channelCount()) : 0;
    for (int i = start; i < end; ++i)
    {
        appendf(text, "    [%d]{\n", i);
        appendf(text, "\t  zfront = %g\n", static_cast<double>(myZfront[i]));
        appendf(text, "\t   zback = %g\n", static_cast<double>(myZback[i]));
        appendf(text, "\t   flags = 0x%02x\n", static_cast<unsigned>(myFlags[i]));
        appendf(text, "\tcoverage = 0x%016" PRIx64 "\n", static_cast<uint64_t>(myCoverage[i]));
        for (int ch = 0; ch < nch; ++ch)
        {
            const int t = channels->tupleSize(ch);
            const float *v = myChannelData[ch] + static_cast<exint>(i) * t;
            appendf(text, "\t%8s = {", channels->name(ch).c_str());
            for (int c = 0; c < t; ++c)
                appendf(text, c ? ", %g" : "%g", static_cast<double>(v[c]));
            text += "}\n";
        }
        text += "    }\n";
    }
    text += "}\n";
    imb_detail::dumpStderr(text);
}

void IMB_DeepSampleList::dump(const char *label, int start, int end) const
{
    dump(BAS_IntrusivePtr<IMB_DeepChannelList>(), label, start, end);
}
