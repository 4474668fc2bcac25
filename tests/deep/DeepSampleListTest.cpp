// Sample lists: storage layout, resizing, plane copies, sample arithmetic, dump.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace
{
using namespace deeptest;
using DSL = IMB_DeepSampleList;

constexpr float kBig = 3.4028235e38f;

// C (3 floats), A (1 float), id (1 float, ordinal): totalSize 5.
ChannelsPtr colourAlphaId() { return channels({{"C", 3}, {"A", 1}, {"id", 1, true}}); }

// A sample whose every value differs, derived from `seed`.
S seeded(float seed, uint8 flags = 0, uint64 cov = 0)
{
    return S{seed, seed + 0.5f, {seed + 0.1f, seed + 0.2f, seed + 0.3f, seed + 0.4f, seed * 10.0f}, flags, cov};
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
    DSL l(chans, 4, true);
    EXPECT_EQ(l.sampleCount(), 4);
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
}

TEST(DeepSampleList, SetSampleCountKeepsContentsWithinCapacityAndDiscardsThemAbove)
{
    ListPtr l = listOf(colourAlphaId(), {seeded(1), seeded(2), seeded(3)});
    const float *block = l->zfrontBuffer();
    l->setSampleCount(2);
    EXPECT_EQ(l->sampleCount(), 2);
    EXPECT_EQ(l->sampleCapacity(), 3);
    l->setSampleCount(3);
    EXPECT_EQ(l->zfrontBuffer(), block);
    EXPECT_EQ(sampleOf(*l, 2), seeded(3));
    l->trimLength(1);
    EXPECT_EQ(l->sampleCount(), 1);
    EXPECT_EQ(l->sampleCapacity(), 3);
    l->setSampleCount(5); // above the capacity: exactly 5, fresh storage
    EXPECT_EQ(l->sampleCount(), 5);
    EXPECT_EQ(l->sampleCapacity(), 5);
    EXPECT_EQ(l->channelBuffer(0), l->zfrontBuffer() + 10);
    l->clear();
    EXPECT_EQ(l->sampleCount() + l->sampleCapacity(), 0);
    l->setSampleCount(2);
    EXPECT_EQ(l->sampleCapacity(), 2);
}

TEST(DeepSampleList, ZeroDataWritesTheEmptySampleOrZeroesTheBlockPrefixNotThePlanes)
{
    ListPtr one = listOf(colourAlphaId(), {seeded(7, 3, ~0ull), seeded(8, 1, 5)});
    one->zeroData(1);
    EXPECT_EQ(sampleOf(*one, 1), (S{kBig, -kBig, {0, 0, 0, 0, 0}, 0, 0}));
    EXPECT_EQ(sampleOf(*one, 0), seeded(7, 3, ~0ull));

    DSL l(colourAlphaId(), 4);
    float *block = l.zfrontBuffer();
    const int floats = (5 + 2) * 4;
    std::fill(block, block + floats, 1.0f);
    std::memset(l.flagBuffer(), 0xff, 4);
    std::fill(l.coverageBuffer(), l.coverageBuffer() + 4, ~0ull);
    l.setSampleCount(2);
    l.zeroData();
    // Deliberately (5 + 2) x 2 = 14 leading floats are zero, the remaining 14
    // are not, although the planes of samples 0 and 1 reach beyond float 14.
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
    S flat = seeded(1, DSL::SAMPLE_VOLUME | DSL::SAMPLE_MATTE);
    flat.zb = flat.zf;
    ListPtr l = listOf(colourAlphaId(), {seeded(1, DSL::SAMPLE_VOLUME), flat, seeded(1), seeded(1, 0x82)});
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(std::make_pair(l->isVolume(i), l->isMatte(i)), std::make_pair(i == 0, i % 2 == 1)) << i;
    EXPECT_EQ(l->zmid(0), (1.5f + 1.0f) * 0.5f);
}

TEST(DeepSampleList, CopyConstructorSharesChannelsAndCopiesTheCountedSamples)
{
    ChannelsPtr chans = colourAlphaId();
    ListPtr a = listOf(chans, {seeded(0), seeded(1, 1, 1 << 7), seeded(2, 2, 1 << 14), seeded(3), seeded(4)}, true);
    a->setSampleCount(3);
    ListPtr b(new DSL(*a));
    EXPECT_EQ(b->use_count(), 1);
    EXPECT_EQ(b->sampleCapacity(), 3);
    EXPECT_TRUE(b->preComposited());
    EXPECT_EQ(b->channels(), chans);
    EXPECT_EQ(samplesOf(b), samplesOf(a));
    EXPECT_NE(b->zfrontBuffer(), a->zfrontBuffer());
}

TEST(DeepSampleList, PlaneCopiesCoverOnlyTheTargetsCount)
{
    ListPtr src = listOf(colourAlphaId(), {seeded(1, 1, 100), seeded(2, 2, 101), seeded(3, 3, 102)});
    const S old = seeded(-1);
    ListPtr dst = listOf(colourAlphaId(), {old, old, old});
    dst->setSampleCount(2);
    dst->copyZfront(*src);
    EXPECT_EQ(sampleOf(*dst, 1), (S{2, -0.5f, old.v, 0, 0}));
    dst->copyZback(*src);
    dst->copyFlags(*src);
    dst->copySampleId(*src);
    dst->copyChannel(1, *src);
    EXPECT_EQ(sampleOf(*dst, 1), (S{2, 2.5f, {-0.9f, -0.8f, -0.7f, 2.4f, -10}, 2, 101}));
    dst->copyAllChannels(*src);
    EXPECT_EQ(sampleOf(*dst, 1), sampleOf(*src, 1));
    dst->setSampleCount(3); // sample 2 was beyond the count and kept its values
    EXPECT_EQ(sampleOf(*dst, 2), old);
    ListPtr both = listOf(colourAlphaId(), {old, old, old});
    both->copyZ(*src);
    EXPECT_EQ(sampleOf(*both, 2), (S{3, 3.5f, old.v, 0, 0}));
}

TEST(DeepSampleList, SampleArithmeticScalesAndAddsColoursButNeverIdentifiers)
{
    ChannelsPtr chans = colourAlphaId();
    const uint8 V = DSL::SAMPLE_VOLUME, M = DSL::SAMPLE_MATTE;
    S vol = seeded(1, V, 0x0F);
    vol.zb = 9;
    ListPtr src = listOf(chans, {seeded(2, 0x81, 0xF0), vol});
    ListPtr dst = listOf(chans, {seeded(3, 0, 0xF0), seeded(3, M | V, 0x100), seeded(6, 2, 2)});

    dst->setConditional(2, *src, 0); // only the ordinal channel
    EXPECT_EQ(sampleOf(*dst, 2), (S{6, 6.5f, {6.1f, 6.2f, 6.3f, 6.4f, 20}, 2, 2}));
    // Adding to a surface keeps its depths and flags; a volume destination
    // widens its range to the source's.
    dst->addSample(0, *src, 1, 0.25f);
    EXPECT_EQ(sampleOf(*dst, 0), (S{3, 3.5f, {3.1f + 0.25f * 1.1f, 3.2f + 0.25f * 1.2f, 3.3f + 0.25f * 1.3f,
                                               3.4f + 0.25f * 1.4f, 30}, 0, 0xFF}));
    dst->addSample(1, *src, 1, 1.0f);
    EXPECT_EQ(sampleOf(*dst, 1), (S{1, 9, {3.1f + 1.1f, 3.2f + 1.2f, 3.3f + 1.3f, 3.4f + 1.4f, 30}, M | V, 0x10F}));
    dst->zeroData(0); // the empty sample takes a volume source's range exactly
    dst->flagBuffer()[0] = V;
    dst->addSample(0, *src, 1, 1.0f);
    EXPECT_EQ(dst->zfront(0), 1.0f);
    EXPECT_EQ(dst->zback(0), 9.0f);

    dst->copySample(1, *src, 0, 1.0f);
    EXPECT_EQ(sampleOf(*dst, 1), sampleOf(*src, 0));
    dst->copySample(0, *src, 0, 0.5f);
    EXPECT_EQ(sampleOf(*dst, 0), (S{2, 2.5f, {0.5f * 2.1f, 0.5f * 2.2f, 0.5f * 2.3f, 0.5f * 2.4f, 20}, 0x81, 0xF0}));
    dst->copySample(0, *src, 0, 0.0f);
    EXPECT_EQ(sampleOf(*dst, 0).v, (std::vector<float>{0, 0, 0, 0, 20}));
}

TEST(DeepSampleList, ArithmeticOnLongTuplesTouchesEveryComponent)
{
    ChannelsPtr chans = channels({{"wide", 11}});
    S one{0, 0, {}, 0, 0}, hundred{0, 0, std::vector<float>(11, 100.0f), 0, 0};
    for (int c = 0; c < 11; ++c)
        one.v.push_back(float(c + 1));
    ListPtr src = listOf(chans, {one}), dst = listOf(chans, {hundred});
    dst->addSample(0, *src, 0, 2.0f);
    for (int c = 0; c < 11; ++c)
        EXPECT_EQ(dst->channelData(0, 0)[c], 100.0f + 2.0f * float(c + 1)) << c;
    dst->copySample(0, *src, 0, 3.0f);
    for (int c = 0; c < 11; ++c)
        EXPECT_EQ(dst->channelData(0, 0)[c], 3.0f * float(c + 1)) << c;
}

TEST(DeepSampleList, DumpPrintsTheLabelledSamplesAndChannelValues)
{
    ChannelsPtr chans = colourAlphaId();
    ListPtr l = listOf(chans, {seeded(1, 0x03, 0x00000000FFFF0000ull), seeded(2, 0x00, ~0ull)});
    const std::string head = "samples[2] (uncomposited) " + addressOf(l.get()) + " = {\n";
    const std::string s0 = "    [0]{\n\t  zfront = 1\n\t   zback = 1.5\n\t   flags = 0x03\n"
                           "\tcoverage = 0x00000000ffff0000\n";
    const std::string c0 = "\t       C = {1.1, 1.2, 1.3}\n\t       A = {1.4}\n\t      id = {10}\n";
    const std::string s1 = "    [1]{\n\t  zfront = 2\n\t   zback = 2.5\n\t   flags = 0x00\n"
                           "\tcoverage = 0xffffffffffffffff\n";
    const std::string c1 = "\t       C = {2.1, 2.2, 2.3}\n\t       A = {2.4}\n\t      id = {20}\n";
    EXPECT_EQ(captured([&] { l->dump(chans, nullptr, 0, -1); }),
              head + s0 + c0 + "    }\n" + s1 + c1 + "    }\n}\n");
    EXPECT_EQ(captured([&] { l->dump(ChannelsPtr(), "", 1, 2); }), head + s1 + "    }\n}\n");
    l->setPreComposited(true);
    EXPECT_EQ(captured([&] { l->dump("mine", 0, 0); }),
              "mine[2] (composited) " + addressOf(l.get()) + " = {\n}\n");

    // Channel names longer than the field are not cut.
    ChannelsPtr wide = channels({{"transmission", 1}});
    DSL w(wide, 1);
    w.zeroData(0);
    const std::string out = captured([&] { w.dump(wide, "x"); });
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
    EXPECT_THROW(DSL(chans, 400000000), std::bad_alloc);
    DSL l(chans, 1);
    EXPECT_THROW(l.setSampleCount(400000000), std::bad_alloc);
    EXPECT_EQ(l.sampleCapacity(), 0); // the old storage was freed first
    EXPECT_EQ(l.sampleCount(), 0);
#endif
}
