// The configuration state: loading from the environment, messages, reload,
// stale handles and change callbacks. Every test runs in its own process.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <mutex>
#include <string>
#include <vector>

using colour_test::dataPath;

namespace
{
struct LogCapture
{
    static std::vector<std::pair<bool, std::string>> &lines()
    {
        static std::vector<std::pair<bool, std::string>> l;
        return l;
    }
    static void sink(bool isError, const char *text) { lines().emplace_back(isError, text); }
};

bool logged(bool isError, const std::string &text)
{
    for (const auto &[err, line] : LogCapture::lines())
        if (err == isError && line == text)
            return true;
    return false;
}
} // namespace

TEST(ColourConfig, WithoutOcioEverythingIsEmpty)
{
    COLOUR_CASE({});
    EXPECT_STREQ(IMB_OCIO::configFilePath().c_str(), "");
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(true));
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(false));
    EXPECT_EQ(IMB_OCIO::lookupSpace("lin_rec709"), nullptr);
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
    EXPECT_FALSE(h.isValid());
    float px[3] = {0.5f, 0.5f, 0.5f};
    EXPECT_FALSE(IMB_OCIO::transform(h, px, 1, 3));
}

TEST(ColourConfig, MissingFileReportsTheLoadErrorAndRunsWithoutConfiguration)
{
    const std::string path = dataPath("does_not_exist.ocio");
    COLOUR_CASE({{"OCIO", path}});
    BASsetErrorLogSink(&LogCapture::sink);
    testing::internal::CaptureStderr();
    const std::string shownPath = IMB_OCIO::configFilePath().c_str();
    const std::string err = testing::internal::GetCapturedStderr();
    BASsetErrorLogSink(nullptr);

    EXPECT_EQ(shownPath, "");
    EXPECT_EQ(err.rfind("OCIO config load error: ", 0), 0u) << err;
    EXPECT_EQ(err.back(), '\n');
    ASSERT_EQ(LogCapture::lines().size(), 1u);
    EXPECT_TRUE(LogCapture::lines()[0].first);
    EXPECT_EQ(LogCapture::lines()[0].second + "\n", err);
    EXPECT_FALSE(IMB_OCIO::isOCIOEnvSet(true));
    EXPECT_EQ(IMB_OCIO::lookupSpace("lin_rec709"), nullptr);
}

TEST(ColourConfig, BrokenFileReportsTheLoadErrorAndRunsWithoutConfiguration)
{
    COLOUR_CASE({{"OCIO", dataPath("broken.ocio")}, {"IMB_OCIO_VERBOSE", "0"}});
    BASsetErrorLogSink(&LogCapture::sink);
    testing::internal::CaptureStderr();
    const bool envSet = IMB_OCIO::isOCIOEnvSet(true);
    const std::string err = testing::internal::GetCapturedStderr();
    BASsetErrorLogSink(nullptr);

    EXPECT_FALSE(envSet);
    EXPECT_EQ(err.rfind("OCIO config load error: ", 0), 0u) << err;
    EXPECT_NE(err.find("yaml"), std::string::npos) << err;
    ASSERT_EQ(LogCapture::lines().size(), 1u);
    EXPECT_EQ(LogCapture::lines()[0].second + "\n", err);
    EXPECT_TRUE(IMB_OCIO::getsRGBColorSpace().isEmpty());
}

TEST(ColourConfig, VerboseControlPrintsTheConfigPathToStderr)
{
    const std::string path = dataPath("full.ocio");
    COLOUR_CASE({{"OCIO", path}, {"IMB_OCIO_VERBOSE", "1"}});
    testing::internal::CaptureStderr();
    IMB_OCIO::configFilePath();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "OCIO config: " + path + "\n");
}

TEST(ColourConfig, VerboseLevelSixLogsTheConfigPath)
{
    const std::string path = dataPath("full.ocio");
    COLOUR_CASE({{"OCIO", path}, {"IMB_VERBOSE", "6"}});
    BASsetErrorLogSink(&LogCapture::sink);
    IMB_OCIO::configFilePath();
    BASsetErrorLogSink(nullptr);
    EXPECT_TRUE(logged(false, "OCIO config: " + path));
}

TEST(ColourConfig, QuietByDefault)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_VERBOSE", "5"}});
    BASsetErrorLogSink(&LogCapture::sink);
    testing::internal::CaptureStderr();
    IMB_OCIO::configFilePath();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    BASsetErrorLogSink(nullptr);
    EXPECT_TRUE(LogCapture::lines().empty());
}

TEST(ColourConfig, LoadedConfigurationReportsItsPathAndTheEnvironment)
{
    const std::string path = dataPath("full.ocio");
    COLOUR_CASE({{"OCIO", path}});
    EXPECT_EQ(std::string(IMB_OCIO::configFilePath().c_str()), path);
    EXPECT_TRUE(IMB_OCIO::isOCIOEnvSet(false));
    EXPECT_TRUE(IMB_OCIO::isOCIOEnvSet(true));
}

TEST(ColourConfig, CallbackIdsCountUpAndAreNeverReused)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    int calls = 0;
    BAS_Functor<void> cb([&calls] { ++calls; });
    EXPECT_EQ(IMB_OCIO::addConfigChangeCB(cb), 1);
    EXPECT_FALSE(cb.isSet()) << "the caller's functor is taken";
    IMB_OCIO::removeConfigChangeCB(1);
    IMB_OCIO::removeConfigChangeCB(42); // unknown: ignored
    EXPECT_EQ(IMB_OCIO::addConfigChangeCB(BAS_Functor<void>([&calls] { calls += 10; })), 2);
    EXPECT_EQ(IMB_OCIO::addConfigChangeCB(BAS_Functor<void>([&calls] { calls += 100; })), 3);
    IMB_OCIO::reload();
    EXPECT_EQ(calls, 110) << "the removed callback is not called, the others once each";
    IMB_OCIO::reload();
    EXPECT_EQ(calls, 220);
}

TEST(ColourConfig, ReloadCallsCallbacksInIdOrderAfterEmptyingTheCaches)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_StringArray rules;
    IMB_OCIO::viewingRuleNames(rules);
    ASSERT_EQ(rules.size(), 2);
    IMB_OCIO::PHandle before = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    ASSERT_TRUE(before.isValid());

    std::vector<std::string> order;
    for (int i = 1; i <= 4; ++i)
        IMB_OCIO::addConfigChangeCB(BAS_Functor<void>([&order, &before, i] {
            BAS_StringArray names;
            IMB_OCIO::viewingRuleNames(names);
            order.push_back(std::to_string(i) + (names.isEmpty() ? "" : "-rules") +
                            (before.isValid() ? "-current" : ""));
        }));
    IMB_OCIO::reload();
    EXPECT_EQ(order, (std::vector<std::string>{"1", "2", "3", "4"}));
}

TEST(ColourConfig, HandlesTurnStaleAtReload)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    IMB_OCIO::PHandle cube = IMB_OCIO::lookupProcessor("ACEScg", "lin_rec709", "", true);
    ASSERT_TRUE(h.isValid());
    ASSERT_FALSE(h.isNoOp());
    ASSERT_TRUE(cube.is3D());

    IMB_OCIO::reload();

    EXPECT_FALSE(h.isValid());
    EXPECT_FALSE(static_cast<bool>(h));
    EXPECT_TRUE(h.isNoOp());
    EXPECT_FALSE(cube.is3D());
    float px[3] = {0.5f, 0.25f, 1.0f};
    EXPECT_FALSE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_EQ(px[0], 0.5f);

    IMB_OCIO::PHandle fresh = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    EXPECT_TRUE(fresh.isValid());
    EXPECT_TRUE(IMB_OCIO::transform(fresh, px, 1, 3));
    EXPECT_NE(px[0], 0.5f);
}

TEST(ColourConfig, ReloadLeavesNoViewingRulesUntilRestart)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_FALSE(IMB_OCIO::viewingRule("linear-rule").isEmpty());
    IMB_OCIO::reload();
    BAS_StringArray names{"stale"};
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_TRUE(names.isEmpty());
    EXPECT_TRUE(IMB_OCIO::viewingRule("linear-rule").isEmpty());
    // The configuration itself is loaded again.
    EXPECT_NE(IMB_OCIO::lookupSpace("lin_rec709"), nullptr);
}

TEST(ColourConfig, ReloadPicksUpAChangedEnvironment)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    ASSERT_EQ(IMB_OCIO::getsRGBColorSpace(), "srgb_texture");
    const IMB_OCIO::ColorSpace *old = IMB_OCIO::lookupSpace("srgb_texture");
    ASSERT_NE(old, nullptr);
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
