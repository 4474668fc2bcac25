// Sample lists: storage layout, resizing, plane copies, sample arithmetic, dump.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>

namespace
{
using namespace deeptest;

constexpr float kBig = 3.4028235e38f;

// C (3 floats), A (1 float), id (1 float, ordinal): totalSize 5.
ChannelsPtr colourAlphaId() { return channels({{"C", 3}, {"A", 1}, {"id", 1, true}}); }

// Fills sample i with values derived from a seed so that every value differs.
void setSample(IMB_DeepSampleList &l, int i, float seed, uint8 flags = 0, uint64 cov = 0)
{
    l.zfrontBuffer()[i] = seed;
    l.zbackBuffer()[i] = seed + 0.5f;
    l.flagBuffer()[i] = flags;
    l.coverageBuffer()[i] = cov;
    float *c = l.channelData(0, i);
    c[0] = seed + 0.1f;
    c[1] = seed + 0.2f;
    c[2] = seed + 0.3f;
    l.channelData(1, i)[0] = seed + 0.4f;
    l.channelData(2, i)[0] = seed * 10.0f;
}

std::string dumpOf(const IMB_DeepSampleList &l, const ChannelsPtr &chans, const char *label, int start, int end)
{
    return capturedStderr([&] { l.dump(chans, label, start, end); });
}

std::string addressOf(const void *p)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%p", p);
    return buf;
}
} // namespace

TEST(DeepSampleList, StorageIsOneFloatBlockWithSampleMajorChannelPlanes)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 4, true);
    EXPECT_EQ(l.sampleCount(), 4);
    EXPECT_EQ(l.size(), 4);
    EXPECT_EQ(l.sampleCapacity(), 4);
    EXPECT_TRUE(l.preComposited());
    EXPECT_EQ(l.channels(), chans);
    const float *base = l.zfrontBuffer();
    EXPECT_EQ(l.zbackBuffer(), base + 4);
    EXPECT_EQ(l.channelBuffer(0), base + 8);
    EXPECT_EQ(l.channelBuffer(1), base + 8 + 12);
    EXPECT_EQ(l.channelBuffer(2), base + 8 + 12 + 4);
    EXPECT_EQ(l.channelData(0, 2), base + 8 + 6);
    EXPECT_EQ(l.channelData(1, 3), base + 8 + 12 + 3);
    // The fill family hands out pointers into the planes and leaves the scratch alone.
    float scratch[16];
    std::memset(scratch, 0x7f, sizeof scratch);
    uint8 fscratch[4] = {9, 9, 9, 9};
    uint64 cscratch[4] = {};
    EXPECT_EQ(l.fillZfront(scratch, 1), base + 1);
    EXPECT_EQ(l.zback(scratch, 2), base + 6);
    EXPECT_EQ(l.fillChannel(0, scratch, 1), base + 8 + 3);
    EXPECT_EQ(l.channelData(0, scratch, 3), base + 8 + 9);
    EXPECT_EQ(l.fillSampleFlags(fscratch, 2), l.flagBuffer() + 2);
    EXPECT_EQ(l.flags(fscratch, 1), l.flagBuffer() + 1);
    EXPECT_EQ(l.fillCoverage(cscratch, 3), l.coverageBuffer() + 3);
    EXPECT_EQ(l.coverage(cscratch, 0), l.coverageBuffer());
    EXPECT_EQ(scratch[0], scratch[15]);
    EXPECT_EQ(fscratch[0], 9);
}

TEST(DeepSampleList, SetSampleCountKeepsContentsWithinCapacityAndDiscardsThemAbove)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 3);
    for (int i = 0; i < 3; ++i)
        setSample(l, i, float(i + 1));
    const float *block = l.zfrontBuffer();
    l.setSampleCount(2);
    EXPECT_EQ(l.sampleCount(), 2);
    EXPECT_EQ(l.sampleCapacity(), 3);
    l.setSampleCount(3);
    EXPECT_EQ(l.zfrontBuffer(), block);
    EXPECT_EQ(l.zfront(2), 3.0f);
    EXPECT_EQ(l.channelData(2, 2)[0], 30.0f);
    l.trimLength(1);
    EXPECT_EQ(l.sampleCount(), 1);
    EXPECT_EQ(l.sampleCapacity(), 3);

    l.setSampleCount(5); // above the capacity: exactly 5, fresh storage
    EXPECT_EQ(l.sampleCount(), 5);
    EXPECT_EQ(l.sampleCapacity(), 5);
    EXPECT_EQ(l.channelBuffer(0), l.zfrontBuffer() + 10);
    l.clear();
    EXPECT_EQ(l.sampleCount(), 0);
    EXPECT_EQ(l.sampleCapacity(), 0);
    l.setSampleCount(2);
    EXPECT_EQ(l.sampleCapacity(), 2);
}

TEST(DeepSampleList, ZeroDataOfOneSampleWritesTheEmptySample)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 2);
    setSample(l, 0, 7.0f, 3, ~0ull);
    setSample(l, 1, 8.0f, 1, 5);
    l.zeroData(1);
    EXPECT_EQ(l.zfront(1), kBig);
    EXPECT_EQ(l.zback(1), -kBig);
    EXPECT_EQ(l.flags(1), 0);
    EXPECT_EQ(l.coverage(1), 0u);
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(l.channelData(0, 1)[c], 0.0f);
    EXPECT_EQ(l.channelData(1, 1)[0], 0.0f);
    EXPECT_EQ(l.channelData(2, 1)[0], 0.0f);
    EXPECT_EQ(l.zfront(0), 7.0f); // the neighbour is untouched
    EXPECT_EQ(l.channelData(2, 0)[0], 70.0f);
}

TEST(DeepSampleList, ZeroDataOfAllZeroesTheBlockPrefixNotThePlanes)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 4);
    float *block = l.zfrontBuffer();
    const int floats = (5 + 2) * 4;
    for (int k = 0; k < floats; ++k)
        block[k] = 1.0f;
    std::memset(l.flagBuffer(), 0xff, 4);
    for (int i = 0; i < 4; ++i)
        l.coverageBuffer()[i] = ~0ull;
    l.setSampleCount(2);
    l.zeroData();
    // (5 + 2) x 2 = 14 leading floats are zero, the remaining 14 are not,
    // although the planes of samples 0 and 1 reach beyond float 14.
    for (int k = 0; k < floats; ++k)
        ASSERT_EQ(block[k], k < 14 ? 0.0f : 1.0f) << k;
    EXPECT_EQ(l.channelData(1, 0)[0], 1.0f); // A of sample 0 lies at float 20
    EXPECT_EQ(l.flagBuffer()[1], 0);
    EXPECT_EQ(l.flagBuffer()[2], 0xff);
    EXPECT_EQ(l.coverageBuffer()[1], 0u);
    EXPECT_EQ(l.coverageBuffer()[2], ~0ull);
}

TEST(DeepSampleList, VolumeNeedsTheBitAndADepthExtent)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 4);
    setSample(l, 0, 1.0f, IMB_DeepSampleList::SAMPLE_VOLUME);
    setSample(l, 1, 1.0f, IMB_DeepSampleList::SAMPLE_VOLUME | IMB_DeepSampleList::SAMPLE_MATTE);
    l.zbackBuffer()[1] = l.zfront(1);
    setSample(l, 2, 1.0f, 0);
    setSample(l, 3, 1.0f, IMB_DeepSampleList::SAMPLE_MATTE | 0x80);
    EXPECT_TRUE(l.isVolume(0));
    EXPECT_FALSE(l.isVolume(1));
    EXPECT_TRUE(l.isMatte(1));
    EXPECT_FALSE(l.isVolume(2));
    EXPECT_FALSE(l.isMatte(2));
    EXPECT_TRUE(l.isMatte(3));
    EXPECT_EQ(l.flags(3), 0x82);
    EXPECT_EQ(l.zmid(0), (1.5f + 1.0f) * 0.5f);
}

TEST(DeepSampleList, CopyConstructorSharesChannelsAndCopiesTheCountedSamples)
{
    ChannelsPtr chans = colourAlphaId();
    ListPtr a(new IMB_DeepSampleList(chans, 5, true));
    for (int i = 0; i < 5; ++i)
        setSample(*a, i, float(i), uint8(i), uint64(1) << (i * 7));
    a->setSampleCount(3);
    ListPtr b(new IMB_DeepSampleList(*a));
    EXPECT_EQ(b->use_count(), 1);
    EXPECT_EQ(b->sampleCount(), 3);
    EXPECT_EQ(b->sampleCapacity(), 3);
    EXPECT_TRUE(b->preComposited());
    EXPECT_EQ(b->channels().get(), chans.get());
    for (int i = 0; i < 3; ++i)
        expectSameSample(*b, i, *a, i);
    EXPECT_NE(b->zfrontBuffer(), a->zfrontBuffer());
}

TEST(DeepSampleList, PlaneCopiesCoverOnlyTheTargetsCount)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList src(chans, 3), dst(chans, 3);
    for (int i = 0; i < 3; ++i)
    {
        setSample(src, i, float(i + 1), uint8(i + 1), 100 + i);
        setSample(dst, i, -1.0f, 0, 0);
    }
    dst.setSampleCount(2);
    dst.copyZfront(src);
    EXPECT_EQ(dst.zfront(1), 2.0f);
    EXPECT_EQ(dst.zback(1), -0.5f);
    dst.copyZback(src);
    EXPECT_EQ(dst.zback(1), 2.5f);
    dst.copyFlags(src);
    EXPECT_EQ(dst.flags(1), 2);
    dst.copySampleId(src);
    EXPECT_EQ(dst.coverage(1), 101u);
    dst.copyChannel(1, src);
    EXPECT_EQ(dst.channelData(1, 1)[0], 2.4f);
    EXPECT_EQ(dst.channelData(0, 1)[0], -0.9f);
    dst.copyAllChannels(src);
    EXPECT_EQ(dst.channelData(0, 1)[2], 2.3f);
    EXPECT_EQ(dst.channelData(2, 1)[0], 20.0f);
    dst.setSampleCount(3); // sample 2 was beyond the count and kept its values
    EXPECT_EQ(dst.zfront(2), -1.0f);
    EXPECT_EQ(dst.channelData(2, 2)[0], -10.0f);
    EXPECT_EQ(dst.flags(2), 0);
    IMB_DeepSampleList both(chans, 3);
    both.copyZ(src);
    EXPECT_EQ(both.zfront(2), 3.0f);
    EXPECT_EQ(both.zback(2), 3.5f);
}

TEST(DeepSampleList, CopySampleScalesColoursButNeverIdentifiers)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList src(chans, 1), dst(chans, 2);
    setSample(src, 0, 2.0f, 0x81, 0xF0);
    dst.copySample(1, src, 0, 1.0f);
    EXPECT_EQ(dst.zfront(1), 2.0f);
    EXPECT_EQ(dst.zback(1), 2.5f);
    EXPECT_EQ(dst.flags(1), 0x81);
    EXPECT_EQ(dst.coverage(1), 0xF0u);
    EXPECT_EQ(dst.channelData(0, 1)[1], 2.2f);
    EXPECT_EQ(dst.channelData(2, 1)[0], 20.0f);

    dst.copySample(0, src, 0, 0.5f);
    EXPECT_EQ(dst.channelData(0, 0)[0], 0.5f * 2.1f);
    EXPECT_EQ(dst.channelData(0, 0)[2], 0.5f * 2.3f);
    EXPECT_EQ(dst.channelData(1, 0)[0], 0.5f * 2.4f);
    EXPECT_EQ(dst.channelData(2, 0)[0], 20.0f);
    EXPECT_EQ(dst.flags(0), 0x81);

    dst.copySample(0, src, 0, 0.0f);
    EXPECT_EQ(dst.channelData(0, 0)[0], 0.0f);
    EXPECT_EQ(dst.channelData(2, 0)[0], 20.0f);
}

TEST(DeepSampleList, AddSampleWidensDepthOnlyForAVolumeDestination)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList src(chans, 1), dst(chans, 2);
    setSample(src, 0, 1.0f, IMB_DeepSampleList::SAMPLE_VOLUME, 0x0F);
    src.zbackBuffer()[0] = 9.0f;
    setSample(dst, 0, 3.0f, 0, 0xF0);                               // surface
    setSample(dst, 1, 3.0f, IMB_DeepSampleList::SAMPLE_MATTE | IMB_DeepSampleList::SAMPLE_VOLUME, 0x100); // volume
    dst.addSample(0, src, 0, 0.25f);
    EXPECT_EQ(dst.zfront(0), 3.0f);
    EXPECT_EQ(dst.zback(0), 3.5f);
    EXPECT_EQ(dst.coverage(0), 0xFFu);
    EXPECT_EQ(dst.flags(0), 0);
    EXPECT_EQ(dst.channelData(0, 0)[0], 3.1f + 0.25f * 1.1f);
    EXPECT_EQ(dst.channelData(0, 0)[2], 3.3f + 0.25f * 1.3f);
    EXPECT_EQ(dst.channelData(1, 0)[0], 3.4f + 0.25f * 1.4f);
    EXPECT_EQ(dst.channelData(2, 0)[0], 30.0f);

    dst.addSample(1, src, 0, 1.0f);
    EXPECT_EQ(dst.zfront(1), 1.0f);
    EXPECT_EQ(dst.zback(1), 9.0f);
    EXPECT_EQ(dst.flags(1), 0x03);
    EXPECT_EQ(dst.coverage(1), 0x10Fu);
    EXPECT_EQ(dst.channelData(2, 1)[0], 30.0f);

    // The empty sample takes a volume source's range exactly.
    dst.zeroData(0);
    dst.flagBuffer()[0] = IMB_DeepSampleList::SAMPLE_VOLUME;
    dst.addSample(0, src, 0, 1.0f);
    EXPECT_EQ(dst.zfront(0), 1.0f);
    EXPECT_EQ(dst.zback(0), 9.0f);
}

TEST(DeepSampleList, SetConditionalCopiesOnlyOrdinalChannels)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList src(chans, 1), dst(chans, 1);
    setSample(src, 0, 4.0f, 1, 1);
    setSample(dst, 0, 6.0f, 2, 2);
    dst.setConditional(0, src, 0);
    EXPECT_EQ(dst.channelData(2, 0)[0], 40.0f);
    EXPECT_EQ(dst.channelData(0, 0)[0], 6.1f);
    EXPECT_EQ(dst.channelData(1, 0)[0], 6.4f);
    EXPECT_EQ(dst.zfront(0), 6.0f);
    EXPECT_EQ(dst.flags(0), 2);
    EXPECT_EQ(dst.coverage(0), 2u);
}

TEST(DeepSampleList, ArithmeticOnLongTuplesTouchesEveryComponent)
{
    ChannelsPtr chans(new IMB_DeepChannelList);
    chans->addChannel("wide", 11);
    IMB_DeepSampleList src(chans, 1), dst(chans, 1);
    for (int c = 0; c < 11; ++c)
    {
        src.channelData(0, 0)[c] = float(c + 1);
        dst.channelData(0, 0)[c] = 100.0f;
    }
    src.flagBuffer()[0] = dst.flagBuffer()[0] = 0;
    src.coverageBuffer()[0] = dst.coverageBuffer()[0] = 0;
    src.zfrontBuffer()[0] = src.zbackBuffer()[0] = 0.0f;
    dst.zfrontBuffer()[0] = dst.zbackBuffer()[0] = 0.0f;
    dst.addSample(0, src, 0, 2.0f);
    for (int c = 0; c < 11; ++c)
        EXPECT_EQ(dst.channelData(0, 0)[c], 100.0f + 2.0f * float(c + 1)) << c;
    dst.copySample(0, src, 0, 3.0f);
    for (int c = 0; c < 11; ++c)
        EXPECT_EQ(dst.channelData(0, 0)[c], 3.0f * float(c + 1)) << c;
}

TEST(DeepSampleList, DumpPrintsTheLabelledSamplesAndChannelValues)
{
    ChannelsPtr chans = colourAlphaId();
    IMB_DeepSampleList l(chans, 2, false);
    setSample(l, 0, 1.0f, 0x03, 0x00000000FFFF0000ull);
    setSample(l, 1, 2.0f, 0x00, 0xFFFFFFFFFFFFFFFFull);
    const std::string head = "samples[2] (uncomposited) " + addressOf(&l) + " = {\n";
    const std::string s0 = "    [0]{\n"
                           "\t  zfront = 1\n"
                           "\t   zback = 1.5\n"
                           "\t   flags = 0x03\n"
                           "\tcoverage = 0x00000000ffff0000\n";
    const std::string c0 = "\t       C = {1.1, 1.2, 1.3}\n"
                           "\t       A = {1.4}\n"
                           "\t      id = {10}\n";
    const std::string s1 = "    [1]{\n"
                           "\t  zfront = 2\n"
                           "\t   zback = 2.5\n"
                           "\t   flags = 0x00\n"
                           "\tcoverage = 0xffffffffffffffff\n";
    const std::string c1 = "\t       C = {2.1, 2.2, 2.3}\n"
                           "\t       A = {2.4}\n"
                           "\t      id = {20}\n";
    EXPECT_EQ(dumpOf(l, chans, nullptr, 0, -1), head + s0 + c0 + "    }\n" + s1 + c1 + "    }\n}\n");
    EXPECT_EQ(dumpOf(l, ChannelsPtr(), "", 1, 2), head + s1 + "    }\n}\n");

    l.setPreComposited(true);
    testing::internal::CaptureStderr();
    l.dump("mine", 2, -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "mine[2] (composited) " + addressOf(&l) + " = {\n}\n");
}

TEST(DeepSampleList, ChannelNamesLongerThanTheFieldAreNotCut)
{
    ChannelsPtr chans(new IMB_DeepChannelList);
    chans->addChannel("transmission", 1);
    IMB_DeepSampleList l(chans, 1);
    l.zeroData(0);
    std::string out = dumpOf(l, chans, "x", 0, -1);
    EXPECT_NE(out.find("\ttransmission = {0}\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\t  zfront = 3.40282e+38\n"), std::string::npos) << out;
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define IMB_TEST_SANITIZED_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define IMB_TEST_SANITIZED_ALLOCATOR 1
#endif

TEST(DeepSampleList, AFloatTotalBeyondInt32FailsAllocation)
{
#ifdef IMB_TEST_SANITIZED_ALLOCATOR
    GTEST_SKIP() << "sanitizer allocators abort on impossible sizes instead of throwing";
#else
    ChannelsPtr chans = colourAlphaId();
    // (5 + 2) x 400,000,000 floats do not fit a signed 32-bit count.
    EXPECT_THROW(IMB_DeepSampleList(chans, 400000000), std::bad_alloc);
    IMB_DeepSampleList l(chans, 1);
    EXPECT_THROW(l.setSampleCount(400000000), std::bad_alloc);
    EXPECT_EQ(l.sampleCapacity(), 0); // the old storage was freed first
    EXPECT_EQ(l.sampleCount(), 0);
#endif
}
