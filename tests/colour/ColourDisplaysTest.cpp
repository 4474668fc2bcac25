// Displays, views, looks and viewing rules, with and without the active
// display and view environment variables.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>

#include <string>

using colour_test::dataPath;
using colour_test::joined;
using colour_test::orNull;

TEST(ColourDisplays, DisplaysViewsLooksAndTheirSpaces)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_StringArray names{"stale"};
    EXPECT_TRUE(IMB_OCIO::getViewsForDisplay("Rec709 Monitor", names));
    EXPECT_EQ(joined(names), "Video,Raw,Native");
    EXPECT_TRUE(IMB_OCIO::getViewsForDisplay("No Display", names));
    EXPECT_TRUE(names.isEmpty());
    IMB_OCIO::getLooks(names);
    EXPECT_EQ(joined(names), "grade,warm");

    struct Case
    {
        const char *display, *view, *space, *looks, *transform;
    };
    // The shared view "Native" names its space "<USE_DISPLAY_NAME>": the display itself.
    for (const Case &c : {Case{"sRGB Monitor", "Standard", "srgb_texture", "", ""},
                          Case{"sRGB Monitor", "Film", "sRGB Monitor", "grade", "film_vt"},
                          Case{"sRGB Monitor", "Native", "sRGB Monitor", "", "plain_vt"},
                          Case{"Rec709 Monitor", "Native", "Rec709 Monitor", "", "plain_vt"},
                          Case{"Rec709 Monitor", "Video", "g24_rec709", "", ""}})
    {
        SCOPED_TRACE(std::string(c.display) + " / " + c.view);
        EXPECT_EQ(orNull(IMB_OCIO::getColorSpaceForDisplayView(c.display, c.view)), c.space);
        EXPECT_EQ(orNull(IMB_OCIO::getLooksForDisplayView(c.display, c.view)), c.looks);
        EXPECT_EQ(orNull(IMB_OCIO::getTransformNameForDisplayView(c.display, c.view)), c.transform);
    }
    using Pair = std::pair<const char *, const char *>;
    for (const auto &[display, view] : {Pair{"sRGB Monitor", nullptr}, Pair{nullptr, "Film"}})
    {
        EXPECT_EQ(IMB_OCIO::getColorSpaceForDisplayView(display, view), nullptr);
        EXPECT_EQ(IMB_OCIO::getLooksForDisplayView(display, view), nullptr);
        EXPECT_EQ(IMB_OCIO::getTransformNameForDisplayView(display, view), nullptr);
    }
}

TEST(ColourDisplays, ViewingRulesAreCapturedAtLoad)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_StringArray names;
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_EQ(joined(names), "linear-rule,video-rule");

    const BAS_Options &linear = IMB_OCIO::viewingRule("linear-rule");
    EXPECT_EQ(joined(linear.getOptionNames()), "name,spaces,encodings,custom");
    EXPECT_EQ(linear.getOptionS("name"), "linear-rule");
    EXPECT_EQ(joined(linear.getOptionSArray("spaces")), "lin_rec709,ACEScg");
    EXPECT_TRUE(linear.getOptionSArray("encodings").isEmpty());
    EXPECT_TRUE(linear.getOptionDict("custom").isEmpty());

    const BAS_Options &video = IMB_OCIO::viewingRule("video-rule");
    EXPECT_TRUE(video.getOptionSArray("spaces").isEmpty());
    EXPECT_EQ(joined(video.getOptionSArray("encodings")), "sdr-video");
    const BAS_Options &custom = video.getOptionDict("custom");
    EXPECT_EQ(joined(custom.getOptionNames()), "grade,tier");
    EXPECT_EQ(custom.getOptionS("grade"), "none");
    EXPECT_EQ(custom.getOptionS("tier"), "2");
    EXPECT_TRUE(IMB_OCIO::viewingRule("no-rule").isEmpty());
}

// The active lists and defaults under OCIO_ACTIVE_DISPLAYS / _VIEWS. The
// configuration active_lists.ocio lists DispA and DispC as active and ViewA
// as the active view; full.ocio has view transforms (plain_vt the default),
// studio_names.ocio none and no viewing rules.
struct ActiveCase
{
    const char *config, *displaysVar, *viewsVar;
    const char *displays, *views, *defaultDisplay, *defaultView;
    const char *other, *otherView; // a display and its default view
    double viewOfHalf;             // the default view processor from scene linear at 0.5
    int viewingRules;
};

using ColourActiveLists = testing::TestWithParam<ActiveCase>;

TEST_P(ColourActiveLists, ChooseTheListsAndDefaultsOfDisplaysAndViews)
{
    const ActiveCase &c = GetParam();
    colour_test::EnvList env{{"OCIO", dataPath(c.config)}};
    if (*c.displaysVar)
        env.emplace_back("OCIO_ACTIVE_DISPLAYS", c.displaysVar);
    if (*c.viewsVar)
        env.emplace_back("OCIO_ACTIVE_VIEWS", c.viewsVar);
    COLOUR_CASE((env));
    BAS_StringArray names{"stale"};
    IMB_OCIO::getActiveDisplays(names);
    EXPECT_EQ(joined(names), c.displays);
    IMB_OCIO::getActiveViews(names);
    EXPECT_EQ(joined(names), c.views);
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultDisplay()), c.defaultDisplay);
    // Deliberate: with view transforms, the default display's default view is
    // the default view transform's name, not the name of a view.
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(nullptr)), c.defaultView);
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(IMB_OCIO::getDefaultDisplay())), c.defaultView);
    EXPECT_EQ(orNull(IMB_OCIO::getDefaultView(c.other)), c.otherView);

    float px[3] = {0.5f, 0.5f, 0.5f};
    ASSERT_TRUE(IMB_OCIO::transform(IMB_OCIO::lookupViewProcessor("scene_linear", true), px, 1, 3));
    EXPECT_NEAR(px[1], c.viewOfHalf, 2e-4);
    IMB_OCIO::viewingRuleNames(names);
    EXPECT_EQ(names.size(), c.viewingRules);
}

const double kSRGBHalf = colour_test::srgbEncode(0.5), kVideoHalf = std::pow(0.5, 1 / 2.4);

INSTANTIATE_TEST_SUITE_P(
    Cases, ColourActiveLists,
    testing::Values(
        ActiveCase{"full.ocio", "", "", "sRGB Monitor,Rec709 Monitor", "Standard,Film,Native", "sRGB Monitor",
                   "plain_vt", "Rec709 Monitor", "Video", kSRGBHalf, 2},
        // Active views choose the default view of the other displays only.
        ActiveCase{"full.ocio", "", "Raw,Video", "sRGB Monitor,Rec709 Monitor", "Raw,Video", "sRGB Monitor",
                   "plain_vt", "Rec709 Monitor", "Raw", kSRGBHalf, 2},
        // A single name is not passed on, but still picks the default display
        // (and OpenColorIO's own list of displays follows the variable).
        ActiveCase{"full.ocio", "Rec709 Monitor", "", "Rec709 Monitor", "Video,Raw,Native",
                   "Rec709 Monitor", "plain_vt", "sRGB Monitor", "Standard", kVideoHalf, 2},
        ActiveCase{"active_lists.ocio", "", "", "DispA,DispC", "ViewA", "DispA", "ViewA", "DispB", "ViewA", 0.5, 0},
        ActiveCase{"active_lists.ocio", "DispC", "", "DispA,DispC", "ViewA", "DispC", "ViewA", "DispB", "ViewA", 0.5,
                   0},
        // A comma list replaces the configuration's, its items trimmed.
        ActiveCase{"active_lists.ocio", "DispC, DispA", "", "DispC,DispA", "ViewA", "DispC", "ViewA", "DispB",
                   "ViewA", 0.5, 0},
        // A list starting with an unknown display: the configuration's default.
        ActiveCase{"active_lists.ocio", "DispZ,DispB", "", "DispZ,DispB", "ViewA", "DispB", "ViewA", "DispA",
                   "ViewA", 0.5, 0},
        ActiveCase{"active_lists.ocio", "DispZ", "", "DispA,DispC", "ViewA", "DispA", "ViewA", "DispB", "ViewA",
                   0.5, 0},
        ActiveCase{"active_lists.ocio", "", "ViewB", "DispA,DispC", "ViewA", "DispA", "ViewB", "DispB", "ViewB",
                   kSRGBHalf, 0},
        // "ViewB " with its blank matches no view: the display's own default.
        ActiveCase{"active_lists.ocio", "", "ViewB ,ViewA", "DispA,DispC", "ViewB,ViewA", "DispA", "ViewB", "DispB",
                   "ViewB", kSRGBHalf, 0},
        ActiveCase{"studio_names.ocio", "", "", "sRGB - Display", "Standard,Raw", "sRGB - Display", "Standard",
                   "sRGB - Display", "Standard", kSRGBHalf, 0}));
