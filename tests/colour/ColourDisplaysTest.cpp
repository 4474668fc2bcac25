// Displays, views, looks and viewing rules, with and without the active
// display and view environment variables.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>

#include <cmath>
#include <string>

using colour_test::dataPath;

namespace
{
std::string orNull(const char *s)
{
    return s ? s : "<null>";
}

BAS_StringArray activeDisplays()
{
    BAS_StringArray out{"stale"};
    IMB_OCIO::getActiveDisplays(out);
    return out;
}

BAS_StringArray activeViews()
{
    BAS_StringArray out{"stale"};
    IMB_OCIO::getActiveViews(out);
    return out;
}
} // namespace

TEST(ColourDisplays, DisplaysViewsAndTheirSpaces)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_EQ(activeDisplays(), (BAS_StringArray{"sRGB Monitor", "Rec709 Monitor"}));
    EXPECT_EQ(activeViews(), (BAS_StringArray{"Standard", "Film", "Native"}));
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "sRGB Monitor");

    BAS_StringArray views{"stale"};
    EXPECT_TRUE(IMB_OCIO::getViewsForDisplay("Rec709 Monitor", views));
    EXPECT_EQ(views, (BAS_StringArray{"Video", "Raw", "Native"}));
    EXPECT_TRUE(IMB_OCIO::getViewsForDisplay("No Display", views));
    EXPECT_TRUE(views.isEmpty());

    EXPECT_EQ(orNull(IMB_OCIO::getColorSpaceForDisplayView("sRGB Monitor", "Standard")), "srgb_texture");
    EXPECT_EQ(orNull(IMB_OCIO::getColorSpaceForDisplayView("sRGB Monitor", "Film")), "sRGB Monitor");
    // The shared view names its space "<USE_DISPLAY_NAME>": the display itself.
    EXPECT_EQ(orNull(IMB_OCIO::getColorSpaceForDisplayView("Rec709 Monitor", "Native")), "Rec709 Monitor");
    EXPECT_EQ(orNull(IMB_OCIO::getColorSpaceForDisplayView("sRGB Monitor", "Native")), "sRGB Monitor");

    EXPECT_EQ(orNull(IMB_OCIO::getLooksForDisplayView("sRGB Monitor", "Film")), "grade");
    EXPECT_EQ(orNull(IMB_OCIO::getLooksForDisplayView("sRGB Monitor", "Standard")), "");
    EXPECT_EQ(orNull(IMB_OCIO::getTransformNameForDisplayView("sRGB Monitor", "Film")), "film_vt");
    EXPECT_EQ(orNull(IMB_OCIO::getTransformNameForDisplayView("Rec709 Monitor", "Native")), "plain_vt");
    EXPECT_EQ(orNull(IMB_OCIO::getTransformNameForDisplayView("Rec709 Monitor", "Video")), "");

    BAS_StringArray looks{"stale"};
    IMB_OCIO::getLooks(looks);
    EXPECT_EQ(looks, (BAS_StringArray{"grade", "warm"}));
}

TEST(ColourDisplays, DefaultViewOfTheDefaultDisplayIsTheDefaultViewTransform)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    // Deliberate: a view transform name, not the name of a view.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(nullptr)), "plain_vt");
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(IMB_OCIO::getDefaultDisplay())), "plain_vt");
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView("Rec709 Monitor")), "Video");
}

TEST(ColourDisplays, ActiveViewsChooseTheDefaultViewOfOtherDisplays)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"OCIO_ACTIVE_VIEWS", "Raw,Video"}});
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView("Rec709 Monitor")), "Raw");
    // Not for the default display, which keeps the view transform name.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(nullptr)), "plain_vt");
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView("sRGB Monitor")), "plain_vt");
    EXPECT_EQ(activeViews(), (BAS_StringArray{"Raw", "Video"}));
    EXPECT_TRUE(IMB_OCIO::isOCIOEnvSet(false));
}

TEST(ColourDisplays, ViewingRulesCapturedAtLoad)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_StringArray names;
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_EQ(names, (BAS_StringArray{"linear-rule", "video-rule"}));

    const BAS_Options &linear = IMB_OCIO::viewingRule("linear-rule");
    EXPECT_EQ(linear.getOptionNames(), (BAS_StringArray{"name", "spaces", "encodings", "custom"}));
    EXPECT_EQ(linear.getOptionS("name"), "linear-rule");
    EXPECT_EQ(linear.getOptionSArray("spaces"), (BAS_StringArray{"lin_rec709", "ACEScg"}));
    EXPECT_TRUE(linear.getOptionSArray("encodings").isEmpty());
    EXPECT_TRUE(linear.getOptionDict("custom").isEmpty());

    const BAS_Options &video = IMB_OCIO::viewingRule("video-rule");
    EXPECT_TRUE(video.getOptionSArray("spaces").isEmpty());
    EXPECT_EQ(video.getOptionSArray("encodings"), (BAS_StringArray{"sdr-video"}));
    const BAS_Options &custom = video.getOptionDict("custom");
    EXPECT_EQ(custom.getOptionNames(), (BAS_StringArray{"grade", "tier"}));
    EXPECT_EQ(custom.getOptionS("grade"), "none");
    EXPECT_EQ(custom.getOptionS("tier"), "2");

    EXPECT_TRUE(IMB_OCIO::viewingRule("no-rule").isEmpty());
    EXPECT_TRUE(IMB_OCIO::viewingRule("").isEmpty());
}

TEST(ColourDisplays, ConfigurationsWithoutViewingRulesHaveNone)
{
    COLOUR_CASE({{"OCIO", dataPath("studio_names.ocio")}});
    BAS_StringArray names{"stale"};
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_TRUE(names.isEmpty());
    // No view transforms: the default view of the default display is its view.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(nullptr)), "Standard");
}

// The configuration active_lists.ocio lists DispA and DispC as active and
// ViewA as the active view.
TEST(ColourActiveDisplays, ConfigurationListsWithoutEnvironment)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}});
    EXPECT_EQ(activeDisplays(), (BAS_StringArray{"DispA", "DispC"}));
    EXPECT_EQ(activeViews(), (BAS_StringArray{"ViewA"}));
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "DispA");
}

TEST(ColourActiveDisplays, SingleNameIsNotPassedToTheConfiguration)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_DISPLAYS", "DispC"}});
    EXPECT_EQ(activeDisplays(), (BAS_StringArray{"DispA", "DispC"}));
    // The default display still follows the variable's first name.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "DispC");
}

TEST(ColourActiveDisplays, CommaListReplacesTheConfigurationList)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_DISPLAYS", "DispC, DispA"}});
    EXPECT_EQ(activeDisplays(), (BAS_StringArray{"DispC", "DispA"})) << "items are trimmed";
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "DispC");
    EXPECT_TRUE(IMB_OCIO::isOCIOEnvSet(false));
}

TEST(ColourActiveDisplays, ListsStartingWithAnUnknownDisplayUseTheConfigurationDefault)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_DISPLAYS", "DispZ,DispB"}});
    EXPECT_EQ(activeDisplays(), (BAS_StringArray{"DispZ", "DispB"}));
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "DispB");
}

TEST(ColourActiveDisplays, UnknownDisplayFallsBackToTheConfigurationDefault)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_DISPLAYS", "DispZ"}});
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "DispA");
}

TEST(ColourActiveDisplays, ActiveViewListsWithAndWithoutComma)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_VIEWS", "ViewB"}});
    EXPECT_EQ(activeViews(), (BAS_StringArray{"ViewA"})) << "a single name is not passed on";
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView("DispB")), "ViewB");
}

TEST(ColourActiveDisplays, ActiveViewCommaListReplacesTheConfigurationList)
{
    COLOUR_CASE({{"OCIO", dataPath("active_lists.ocio")}, {"OCIO_ACTIVE_VIEWS", "ViewB ,ViewA"}});
    EXPECT_EQ(activeViews(), (BAS_StringArray{"ViewB", "ViewA"}));
    // "ViewB " with its blank matches no view: the display's own default.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView("DispB")), "ViewB");
}

TEST(ColourActiveDisplays, DefaultViewProcessorFollowsTheActiveDisplay)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"OCIO_ACTIVE_DISPLAYS", "Rec709 Monitor"}});
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), "Rec709 Monitor");
    // Its default view "Video" encodes with a 2.4 power.
    IMB_OCIO::PHandle h = IMB_OCIO::lookupViewProcessor("lin_rec709", true);
    float px[3] = {0.18f, 0.5f, 0.9f};
    ASSERT_TRUE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_NEAR(px[0], std::pow(0.18, 1 / 2.4), 2e-4);
    EXPECT_NEAR(px[1], std::pow(0.5, 1 / 2.4), 2e-4);
    EXPECT_NEAR(px[2], std::pow(0.9, 1 / 2.4), 2e-4);
}
