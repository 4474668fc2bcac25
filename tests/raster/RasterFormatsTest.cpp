// Format, packing and colour-space tables and names; processor probes.
#include <IMB/IMB.h>
#include <IMB/platform/BAS_Processor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{
// What the probes say before anything in this process has asked for the
// processor: taken during static initialisation, before any test runs.
struct ProbesAtStartup
{
    bool mmx = IMBcpuHasMMX();
    bool xmmx = IMBcpuHasXMMX();
    int sse = IMBcpuHasSSE();
    bool cmov = IMBcpuHasCondMov();
};
const ProbesAtStartup theProbesAtStartup;
} // namespace

TEST(RasterFormats, TablesGiveBytesAndWhitePerFormat)
{
    const int32 depth[6] = {1, 2, 4, 4, 2, 0};
    const uint32 white[6] = {255u, 65535u, 4294967295u, 1u, 1u, 0u};
    for (int f = 0; f < 6; ++f)
    {
        EXPECT_EQ(imbDefinesDepth[f], depth[f]) << f;
        EXPECT_EQ(imbDefinesWhite[f], white[f]) << f;
    }
    EXPECT_EQ(imbDefinesDepth[IMB_FLOAT16], 2);
}

TEST(RasterFormats, TablesGiveChannelsAndComponentsPerPacking)
{
    // Kept on purpose: PACK_DUAL stores three components.
    const int32 comp[8] = {1, 3, 2, 3, 4, 3, 4, 2};
    const int32 step[8] = {1, 3, 1, 3, 4, 1, 1, 2};
    for (int p = 0; p < 8; ++p)
    {
        EXPECT_EQ(imbDefinesPComp[p], comp[p]) << p;
        EXPECT_EQ(imbDefinesPDepth[p], step[p]) << p;
    }
}

TEST(RasterFormats, EnumeratorsKeepTheirNumbers)
{
    EXPECT_EQ(static_cast<int>(IMB_MAX_DATA_FORMAT), 5);
    EXPECT_EQ(static_cast<int>(PACK_UV), 7);
    EXPECT_EQ(static_cast<int>(PACK_UNKNOWN), 255);
    EXPECT_EQ(static_cast<int>(IMB_CS_OCIO), 6);
    EXPECT_EQ(sizeof(IMB_DataFormat), 4u);
    EXPECT_EQ(sizeof(IMB_Packing), 4u);
    EXPECT_EQ(sizeof(IMB_ColorSpace), 4u);
}

TEST(RasterFormats, DataFormatNamesAndUndefinedOutsideTheRange)
{
    const char *names[] = {"int8", "int16", "int32", "float32", "float16"};
    for (int f = 0; f < 5; ++f)
        EXPECT_STREQ(IMBdataFormat(static_cast<IMB_DataFormat>(f)), names[f]);
    EXPECT_STREQ(IMBdataFormat(IMB_MAX_DATA_FORMAT), "undefined");
    EXPECT_STREQ(IMBdataFormat(static_cast<IMB_DataFormat>(-1)), "undefined");
    EXPECT_STREQ(IMBdataFormat(static_cast<IMB_DataFormat>(1000)), "undefined");
}

TEST(RasterFormats, PackingNamesAndUnknownOutsideTheRange)
{
    const char *names[] = {"single", "dual", "dual_ni", "rgb", "rgba", "rgb_ni", "rgba_ni", "uv"};
    for (int p = 0; p < 8; ++p)
        EXPECT_STREQ(IMBpacking(static_cast<IMB_Packing>(p)), names[p]);
    EXPECT_STREQ(IMBpacking(PACK_UNKNOWN), "unknown");
    EXPECT_STREQ(IMBpacking(static_cast<IMB_Packing>(8)), "unknown");
    EXPECT_STREQ(IMBpacking(static_cast<IMB_Packing>(-1)), "unknown");
}

TEST(RasterFormats, ColorSpaceNamesMatchCaseInsensitivelyAndWhole)
{
    EXPECT_EQ(IMBgetColorSpace("linear"), IMB_CS_LINEAR);
    EXPECT_EQ(IMBgetColorSpace("LiNeAr"), IMB_CS_LINEAR);
    EXPECT_EQ(IMBgetColorSpace("gamma2.2"), IMB_CS_GAMMA2_2);
    EXPECT_EQ(IMBgetColorSpace("GammaCorrected2.2"), IMB_CS_GAMMA2_2);
    EXPECT_EQ(IMBgetColorSpace("gamma"), IMB_CS_CUSTOM_GAMMA);
    EXPECT_EQ(IMBgetColorSpace("srgb"), IMB_CS_SRGB);
    EXPECT_EQ(IMBgetColorSpace("SRGB"), IMB_CS_SRGB);
    EXPECT_EQ(IMBgetColorSpace("rec709"), IMB_CS_REC709);
    EXPECT_EQ(IMBgetColorSpace("OpenColorIO"), IMB_CS_OCIO);

    EXPECT_EQ(IMBgetColorSpace("srgb "), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace(" srgb"), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace("gamma2"), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace("gamma2.22"), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace("lin"), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace("unknown"), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace(""), IMB_CS_UNKNOWN);
    EXPECT_EQ(IMBgetColorSpace(nullptr), IMB_CS_UNKNOWN);
    // Only ASCII letters fold: a byte above 127 is not a letter.
    EXPECT_EQ(IMBgetColorSpace("srg\xc2\xa0"), IMB_CS_UNKNOWN);
}

TEST(RasterFormats, ColorSpaceNamesRoundTripExceptTheLongGammaAlias)
{
    const char *names[] = {"unknown", "linear", "gamma2.2", "gamma", "srgb", "rec709", "opencolorio"};
    for (int c = 0; c <= 6; ++c)
    {
        IMB_ColorSpace cs = static_cast<IMB_ColorSpace>(c);
        EXPECT_STREQ(IMBgetColorSpaceName(cs), names[c]);
        EXPECT_EQ(IMBgetColorSpace(IMBgetColorSpaceName(cs)), cs);
    }
    EXPECT_STREQ(IMBgetColorSpaceName(IMBgetColorSpace("gammacorrected2.2")), "gamma2.2");
    EXPECT_STREQ(IMBgetColorSpaceName(static_cast<IMB_ColorSpace>(7)), "unknown");
    EXPECT_STREQ(IMBgetColorSpaceName(static_cast<IMB_ColorSpace>(-1)), "unknown");
}

// ---------------------------------------------------------------- processor

TEST(RasterFormats, ProbesReportNothingBeforeTheProcessorIsDetermined)
{
    EXPECT_FALSE(theProbesAtStartup.mmx);
    EXPECT_FALSE(theProbesAtStartup.xmmx);
    EXPECT_EQ(theProbesAtStartup.sse, 0);
    EXPECT_FALSE(theProbesAtStartup.cmov);
}

TEST(RasterFormats, ProbesFollowTheFeatureWordOnceDetermined)
{
    IMBdetermineProcCaps();
    int type = -1, features = -1;
    BASgetProcessor(type, features);
    EXPECT_EQ(IMBcpuHasMMX(), (features & 1) != 0);
    EXPECT_EQ(IMBcpuHasXMMX(), (features & 2) != 0);
    EXPECT_EQ(IMBcpuHasCondMov(), (features & 0x10) != 0);
    // The SSE probe is the masked feature bits themselves, not a boolean.
    EXPECT_EQ(IMBcpuHasSSE(), features & 0x84);
}

#if defined(__x86_64__) || defined(__i386__)
TEST(RasterFormats, ProcessorFeaturesAgreeWithTheCompilersOwnQuery)
{
    int type = 0, features = 0;
    BASgetProcessor(type, features);
    __builtin_cpu_init();
    EXPECT_NE(type, 0);
    EXPECT_EQ((features & 0x01) != 0, __builtin_cpu_supports("mmx") != 0);
    EXPECT_EQ((features & 0x04) != 0, __builtin_cpu_supports("sse") != 0);
    EXPECT_EQ((features & 0x10) != 0, __builtin_cpu_supports("cmov") != 0);
    EXPECT_EQ((features & 0x80) != 0, __builtin_cpu_supports("sse2") != 0);
    // Undocumented bits stay clear.
    EXPECT_EQ(features & ~0x9f, 0);
#if defined(__x86_64__)
    // Every x86-64 processor has SSE2, so the SSE probe reads 0x84.
    IMBdetermineProcCaps();
    EXPECT_EQ(IMBcpuHasSSE(), 0x84);
#endif
}
#endif

TEST(RasterFormats, ProbingFromManyThreadsAgreesWithOneProbe)
{
    std::atomic<int> disagreements{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i)
            {
                IMBdetermineProcCaps();
                int type = 0, features = 0;
                BASgetProcessor(type, features);
                if (IMBcpuHasSSE() != (features & 0x84) || IMBcpuHasMMX() != ((features & 1) != 0))
                    ++disagreements;
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(disagreements.load(), 0);
}
