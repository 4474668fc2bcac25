// Small helpers shared by the deep tests: pointer names, channel lists built
// from a table, samples written and read as plain values, a compressor that
// records what it is handed, and captured output.
#pragma once

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepSampleList.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

namespace deeptest
{
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;

struct Chan
{
    const char *name;
    int size;
    bool ordinal = false;
};

// A channel list with the given channels in order.
inline ChannelsPtr channels(std::initializer_list<Chan> list)
{
    ChannelsPtr c(new IMB_DeepChannelList);
    for (const Chan &ch : list)
        c->addChannel(ch.name, ch.size, ch.ordinal);
    return c;
}

// Identical bit patterns (so -0 differs from 0); any NaN matches any NaN
// only when `anyNan` is set.
inline bool sameBits(float a, float b, bool anyNan = false)
{
    if (anyNan && (std::isnan(a) || std::isnan(b)))
        return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// One sample as the tests write it: depths, every channel value packed in
// channel order, flag byte and coverage. Equal when every field has the same
// bits (any NaN matching any NaN).
struct S
{
    float zf, zb;
    std::vector<float> v;
    uint8 flags = 0;
    uint64 cov = 0;
    bool operator==(const S &o) const
    {
        bool same = sameBits(zf, o.zf, true) && sameBits(zb, o.zb, true) && flags == o.flags && cov == o.cov &&
                    v.size() == o.v.size();
        for (std::size_t k = 0; same && k < v.size(); ++k)
            same = sameBits(v[k], o.v[k], true);
        return same;
    }
    friend std::ostream &operator<<(std::ostream &os, const S &s)
    {
        os << "{z " << s.zf << ".." << s.zb << " flags " << int(s.flags) << " cov " << s.cov << " v";
        for (float x : s.v)
            os << ' ' << x;
        return os << '}';
    }
};

// Writes `s` into sample i of `l`.
inline void setSample(IMB_DeepSampleList &l, int i, const S &s)
{
    l.zfrontBuffer()[i] = s.zf;
    l.zbackBuffer()[i] = s.zb;
    l.flagBuffer()[i] = s.flags;
    l.coverageBuffer()[i] = s.cov;
    const ChannelsPtr &chans = l.channels();
    for (int ch = 0; ch < chans->channelCount(); ++ch)
        for (int t = 0; t < chans->tupleSize(ch); ++t)
            l.channelData(ch, i)[t] = s.v[static_cast<std::size_t>(chans->offset(ch) + t)];
}

// A list holding `samples` in order.
inline ListPtr listOf(const ChannelsPtr &chans, const std::vector<S> &samples, bool composited = false)
{
    ListPtr l(new IMB_DeepSampleList(chans, static_cast<int>(samples.size()), composited));
    for (std::size_t i = 0; i < samples.size(); ++i)
        setSample(*l, static_cast<int>(i), samples[i]);
    return l;
}

// Sample i of `l` as written above.
inline S sampleOf(const IMB_DeepSampleList &l, int i)
{
    S s{l.zfront(i), l.zback(i), {}, l.flags(i), l.coverage(i)};
    const ChannelsPtr &chans = l.channels();
    for (int ch = 0; ch < chans->channelCount(); ++ch)
        for (int t = 0; t < chans->tupleSize(ch); ++t)
            s.v.push_back(l.channelData(ch, i)[t]);
    return s;
}

// Every sample of `l` (none for a null list).
inline std::vector<S> samplesOf(const ListPtr &l)
{
    std::vector<S> out;
    for (int i = 0; l && i < l->sampleCount(); ++i)
        out.push_back(sampleOf(*l, i));
    return out;
}

// Coverage of sub-sample k among n positions, bit by bit from the rule.
inline uint64 referenceMask(int k, int n)
{
    uint64 m = 0;
    for (int bit = 0; bit < 64; ++bit)
        if (bit >= (64 * k) / n && bit < (64 * (k + 1)) / n)
            m |= uint64(1) << bit;
    return m;
}

// Records what it is handed: every list given to compress (which returns it
// as it is) and the entries of the last merge (which returns the first).
class RecordingCompressor : public IMB_DeepCompressor
{
public:
    explicit RecordingCompressor(const ChannelsPtr &c) : myChannels(c) {}
    const ChannelsPtr &channels() const override { return myChannels; }
    const char *name() const override { return "recording"; }
    mutable std::vector<ListPtr> compressed, merged;
    mutable int merges = 0;

protected:
    ListPtr doCompress(const ListPtr &l) const override
    {
        compressed.push_back(l);
        return l;
    }
    ListPtr doMerge(const ListPtr *lists, int count) const override
    {
        ++merges;
        merged.assign(lists, lists + count);
        return lists[0];
    }

private:
    ChannelsPtr myChannels;
};

// What `f` prints on stderr (or, with `out`, stdout).
template <typename F> std::string captured(F &&f, bool out = false)
{
    out ? testing::internal::CaptureStdout() : testing::internal::CaptureStderr();
    f();
    return out ? testing::internal::GetCapturedStdout() : testing::internal::GetCapturedStderr();
}
} // namespace deeptest
