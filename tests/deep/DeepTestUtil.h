// Small helpers shared by the deep tests: pointer names, channel lists built
// from a table, sample comparison and captured output.
#pragma once

#include <IMB/IMB_DeepSampleList.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
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

// Sample i of a equals sample j of b in depths, flags, coverage and every value.
inline void expectSameSample(const IMB_DeepSampleList &a, int i, const IMB_DeepSampleList &b, int j)
{
    EXPECT_EQ(a.zfront(i), b.zfront(j));
    EXPECT_EQ(a.zback(i), b.zback(j));
    EXPECT_EQ(a.flags(i), b.flags(j));
    EXPECT_EQ(a.coverage(i), b.coverage(j));
    const ChannelsPtr &chans = a.channels();
    for (int ch = 0; ch < chans->channelCount(); ++ch)
        for (int c = 0; c < chans->tupleSize(ch); ++c)
            EXPECT_EQ(a.channelData(ch, i)[c], b.channelData(ch, j)[c]) << "channel " << ch << " component " << c;
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

// What `f` prints on stderr (or stdout).
template <typename F> std::string capturedStderr(F &&f)
{
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}
template <typename F> std::string capturedStdout(F &&f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}
} // namespace deeptest
