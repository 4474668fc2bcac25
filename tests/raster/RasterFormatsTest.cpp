// Format, packing and colour-space tables and names; processor probes.
#include <IMB/platform/BAS_Processor.h>
#include "RasterTestUtil.h"

#include <atomic>
#include <thread>

namespace
{
// What the probes say before anything in this process has asked for the
// processor: taken during static initialisation, before any test runs.
const bool theProbesAtStartup = IMBcpuHasMMX() || IMBcpuHasXMMX() || IMBcpuHasSSE() || IMBcpuHasCondMov();
} // namespace

TEST(RasterFormats, TablesAndNamesFollowTheNumberingOfFormatsAndPackings)
{
    // Kept on purpose: PACK_DUAL stores three components.
    const int32 depth[6] = {1, 2, 4, 4, 2, 0}, comp[8] = {1, 3, 2, 3, 4, 3, 4, 2}, step[8] = {1, 3, 1, 3, 4, 1, 1, 2};
    const uint32 white[6] = {255u, 65535u, 4294967295u, 1u, 1u, 0u};
    const char *formats[] = {"int8", "int16", "int32", "float32", "float16", "undefined"};
    const char *packings[] = {"single", "dual", "dual_ni", "rgb", "rgba", "rgb_ni", "rgba_ni", "uv", "unknown"};
    for (int f = 0; f < 6; ++f)
    {
        EXPECT_EQ(std::make_pair(imbDefinesDepth[f], imbDefinesWhite[f]), std::make_pair(depth[f], white[f])) << f;
        EXPECT_STREQ(IMBdataFormat(static_cast<IMB_DataFormat>(f)), formats[f]);
    }
    for (int p = 0; p < 9; ++p)
    {
        EXPECT_STREQ(IMBpacking(static_cast<IMB_Packing>(p)), packings[p]);
        if (p < 8)
            EXPECT_EQ(std::make_pair(imbDefinesPComp[p], imbDefinesPDepth[p]), std::make_pair(comp[p], step[p])) << p;
    }
    for (int outside : {-1, 255, 1000})
        EXPECT_EQ(std::string(IMBdataFormat(IMB_DataFormat(outside))) + IMBpacking(IMB_Packing(outside)),
                  "undefinedunknown");
    // The numbers and sizes are part of the interface.
    EXPECT_EQ(std::make_tuple(int(IMB_MAX_DATA_FORMAT), int(PACK_UV), int(PACK_UNKNOWN), int(IMB_CS_OCIO)),
              std::make_tuple(5, 7, 255, 6));
    EXPECT_EQ(sizeof(IMB_DataFormat) + sizeof(IMB_Packing) + sizeof(IMB_ColorSpace), 12u);
}

TEST(RasterFormats, ColorSpaceNamesMatchCaseInsensitivelyAndWholeAndRoundTrip)
{
    const std::pair<const char *, IMB_ColorSpace> cases[] = {
        {"linear", IMB_CS_LINEAR},   {"LiNeAr", IMB_CS_LINEAR},   {"gamma2.2", IMB_CS_GAMMA2_2},
        {"GammaCorrected2.2", IMB_CS_GAMMA2_2},                   {"gamma", IMB_CS_CUSTOM_GAMMA},
        {"srgb", IMB_CS_SRGB},       {"SRGB", IMB_CS_SRGB},       {"rec709", IMB_CS_REC709},
        {"OpenColorIO", IMB_CS_OCIO}, {"srgb ", IMB_CS_UNKNOWN},  {" srgb", IMB_CS_UNKNOWN},
        {"gamma2", IMB_CS_UNKNOWN},  {"gamma2.22", IMB_CS_UNKNOWN}, {"lin", IMB_CS_UNKNOWN},
        {"unknown", IMB_CS_UNKNOWN}, {"", IMB_CS_UNKNOWN},        {nullptr, IMB_CS_UNKNOWN},
        {"srg\xc2\xa0", IMB_CS_UNKNOWN}}; // only ASCII letters fold
    for (auto [name, cs] : cases)
        EXPECT_EQ(IMBgetColorSpace(name), cs) << (name ? name : "null");
    const char *names[] = {"unknown", "linear", "gamma2.2", "gamma", "srgb", "rec709", "opencolorio", "unknown"};
    for (int c = -1; c <= 7; ++c)
    {
        EXPECT_STREQ(IMBgetColorSpaceName(static_cast<IMB_ColorSpace>(c)), names[c < 0 ? 0 : c]);
        if (c >= 0 && c < 7)
            EXPECT_EQ(IMBgetColorSpace(names[c]), c);
    }
}

// ---------------------------------------------------------------- processor

TEST(RasterFormats, ProbesReportNothingBeforeTheProcessorIsDeterminedThenTheFeatureWord)
{
    EXPECT_FALSE(theProbesAtStartup);
    IMBdetermineProcCaps();
    int type = -1, features = -1;
    BASgetProcessor(type, features);
    // The SSE probe gives the masked bits themselves, not a boolean.
    EXPECT_EQ(std::make_tuple(IMBcpuHasMMX(), IMBcpuHasXMMX(), IMBcpuHasCondMov(), IMBcpuHasSSE()),
              std::make_tuple((features & 1) != 0, (features & 2) != 0, (features & 0x10) != 0, features & 0x84));
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    EXPECT_NE(type, 0);
    EXPECT_EQ((features & 0x01) != 0, __builtin_cpu_supports("mmx") != 0);
    EXPECT_EQ((features & 0x04) != 0, __builtin_cpu_supports("sse") != 0);
    EXPECT_EQ((features & 0x10) != 0, __builtin_cpu_supports("cmov") != 0);
    EXPECT_EQ((features & 0x80) != 0, __builtin_cpu_supports("sse2") != 0);
    EXPECT_EQ(features & ~0x9f, 0); // undocumented bits stay clear
#endif
}

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
                disagreements += IMBcpuHasSSE() != (features & 0x84) || IMBcpuHasMMX() != ((features & 1) != 0);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(disagreements.load(), 0);
}
