// The configuration state: loading from the environment, messages, reload,
// stale handles and change callbacks. Every test runs in its own process.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <string>
#include <vector>

using colour_test::dataPath;

namespace
{
std::vector<std::pair<bool, std::string>> logLines;

void logSink(bool isError, const char *text)
{
    logLines.emplace_back(isError, text);
}

// The standard error text of the first colour call (the load), the log lines
// going to logLines.
std::string loadAndCapture()
{
    BASsetErrorLogSink(&logSink);
    testing::internal::CaptureStderr();
    IMB_OCIO::configFilePath();
    const std::string err = testing::internal::GetCapturedStderr();
    BASsetErrorLogSink(nullptr);
    return err;
}
} // namespace

TEST(ColourConfig, WithoutOcioEveryQueryGivesItsEmptyAnswer)
{
    COLOUR_CASE({});
    EXPECT_STREQ(IMB_OCIO::configFilePath().c_str(), "");
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(true));
    EXPECT_EQ(IMB_OCIO::lookupSpace("sRGB"), nullptr);
    EXPECT_TRUE(IMB_OCIO::getsRGBColorSpace().isEmpty());
    EXPECT_TRUE(IMB_OCIO::getLinearRec709ColorSpace().isEmpty());
    EXPECT_TRUE(IMB_OCIO::getRawColorSpace().isEmpty());
    BAS_StringArray names{"kept"};
    IMB_OCIO::getColorSpaces(names);
    IMB_OCIO::getRoles(names);
    IMB_OCIO::getActiveDisplays(names);
    IMB_OCIO::getActiveViews(names);
    EXPECT_EQ(names, (BAS_StringArray{"kept"}));
    EXPECT_FALSE(IMB_OCIO::getViewsForDisplay("sRGB", names));
    EXPECT_EQ(IMB_OCIO::getDefaultDisplay(), nullptr);
    EXPECT_EQ(IMB_OCIO::getDefaultView(nullptr), nullptr);
    EXPECT_EQ(IMB_OCIO::getColorSpaceForDisplayView("a", "b"), nullptr);
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("plate.exr"), nullptr);
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("a", "b", "", true);
    float px[3] = {0.5f, 0.5f, 0.5f};
    EXPECT_FALSE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_FALSE(IMB_Lookup(IMB_Lookup::BuildOCIO, "srgb", "linear", 0).isValid());
    EXPECT_FALSE(IMB_Lookup().buildOpenColorIOView("srgb", "sRGB", "Standard", nullptr, nullptr, true, 1));
    // Raster tags still go by their names.
    BAS_StringHolder name;
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("srgb"), name), IMB_CS_SRGB);
    EXPECT_EQ(name, "srgb");
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_SRGB, "x").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "x").isEmpty());
}

using ColourConfigLoadError = testing::TestWithParam<std::pair<const char *, const char *>>;

TEST_P(ColourConfigLoadError, IsReportedOnceAndTheLibraryRunsWithoutConfiguration)
{
    const auto [file, reason] = GetParam();
    COLOUR_CASE({{"OCIO", dataPath(file)}, {"IMB_OCIO_VERBOSE", "0"}});
    const std::string err = loadAndCapture();
    EXPECT_STREQ(IMB_OCIO::configFilePath().c_str(), "");
    EXPECT_EQ(err.rfind("OCIO config load error: ", 0), 0u) << err;
    EXPECT_NE(err.find(reason), std::string::npos) << err;
    // Logged as an error, and written past the sink to the stream as well.
    ASSERT_EQ(logLines.size(), 1u);
    EXPECT_TRUE(logLines[0].first);
    EXPECT_EQ(logLines[0].second + "\n", err);
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(true));
    EXPECT_EQ(IMB_OCIO::lookupSpace("lin_rec709"), nullptr);
    EXPECT_TRUE(IMB_OCIO::getsRGBColorSpace().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Files, ColourConfigLoadError,
                         testing::Values(std::pair{"does_not_exist.ocio", "does_not_exist.ocio"},
                                         std::pair{"broken.ocio", "yaml"}));

struct Verbosity
{
    const char *var, *value;
    bool toStderr, toLog;
};

using ColourConfigVerbosity = testing::TestWithParam<Verbosity>;

TEST_P(ColourConfigVerbosity, TheConfigPathIsToldOnlyWhenAsked)
{
    const Verbosity &v = GetParam();
    const std::string path = dataPath("full.ocio");
    COLOUR_CASE({{"OCIO", path}, {v.var, v.value}});
    EXPECT_EQ(loadAndCapture(), v.toStderr ? "OCIO config: " + path + "\n" : "");
    EXPECT_EQ(logLines, (v.toLog ? std::vector{std::pair{false, "OCIO config: " + path}}
                                 : std::vector<std::pair<bool, std::string>>{}));
    EXPECT_EQ(std::string(IMB_OCIO::configFilePath().c_str()), path);
    EXPECT_TRUE(IMB_OCIO::isOCIOEnvSet(false));
}

INSTANTIATE_TEST_SUITE_P(Controls, ColourConfigVerbosity,
                         testing::Values(Verbosity{"IMB_OCIO_VERBOSE", "1", true, false},
                                         Verbosity{"IMB_VERBOSE", "6", false, true},
                                         Verbosity{"IMB_VERBOSE", "5", false, false}));

TEST(ColourConfig, CallbacksGetFreshIdsAndRunInIdOrderAfterTheCachesAreEmptied)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle before = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    ASSERT_TRUE(before.isValid());
    std::string calls;
    BAS_Functor<void> removed([&calls] { calls += "removed"; });
    EXPECT_EQ(IMB_OCIO::addConfigChangeCB(removed), 1);
    EXPECT_FALSE(removed.isSet()) << "the caller's functor is taken";
    IMB_OCIO::removeConfigChangeCB(1);
    IMB_OCIO::removeConfigChangeCB(42); // unknown: ignored
    for (int i = 2; i <= 4; ++i)
        EXPECT_EQ(IMB_OCIO::addConfigChangeCB(BAS_Functor<void>([&calls, &before, i] {
                      BAS_StringArray rules;
                      IMB_OCIO::viewingRuleNames(rules);
                      calls += std::to_string(i) + (rules.isEmpty() ? "" : "rules") + (before ? "current" : "");
                  })),
                  i);
    IMB_OCIO::reload();
    EXPECT_EQ(calls, "234");
    IMB_OCIO::reload();
    EXPECT_EQ(calls, "234234");
}

TEST(ColourConfig, ReloadStalesHandlesDropsViewingRulesAndRereadsTheEnvironment)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    IMB_OCIO::PHandle cube = IMB_OCIO::lookupProcessor("ACEScg", "lin_rec709", "", true);
    ASSERT_TRUE(h.isValid() && !h.isNoOp() && cube.is3D());
    ASSERT_FALSE(IMB_OCIO::viewingRule("linear-rule").isEmpty());

    IMB_OCIO::reload();
    EXPECT_FALSE(h.isValid());
    EXPECT_TRUE(h.isNoOp());
    EXPECT_FALSE(cube.is3D());
    float px[3] = {0.5f, 0.25f, 1.0f};
    EXPECT_FALSE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_EQ(px[0], 0.5f);
    EXPECT_TRUE(IMB_OCIO::transform(IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true), px, 1, 3));
    EXPECT_NE(px[0], 0.5f);
    // Deliberate: a reloaded process reports no viewing rules.
    BAS_StringArray names{"stale"};
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_TRUE(names.isEmpty());
    EXPECT_TRUE(IMB_OCIO::viewingRule("linear-rule").isEmpty());

    setenv("OCIO", dataPath("studio_names.ocio").c_str(), 1);
    IMB_OCIO::reload();
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(), "sRGB - Texture");
    EXPECT_EQ(std::string(IMB_OCIO::configFilePath().c_str()), dataPath("studio_names.ocio"));
    unsetenv("OCIO");
    IMB_OCIO::reload();
    EXPECT_STREQ(IMB_OCIO::configFilePath().c_str(), "");
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(true));
    EXPECT_EQ(IMB_OCIO::lookupSpace("srgb_texture"), nullptr);
    EXPECT_TRUE(IMB_OCIO::getsRGBColorSpace().isEmpty());
}
