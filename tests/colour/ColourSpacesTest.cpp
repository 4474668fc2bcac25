// Colour-space lookups, the well-known spaces, information records, parsing
// modes and the raster tag mappings.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>

#include <string>

using colour_test::dataPath;

namespace
{
std::string nameOf(const IMB_OCIO::ColorSpace *cs)
{
    const char *n = IMB_OCIO::getName(cs);
    return n ? n : "<null>";
}

std::string orNull(const char *s)
{
    return s ? s : "<null>";
}

struct WellKnown
{
    const char *config;
    const char *srgb;
    const char *rec709;
    const char *linear;
    const char *raw;
};

class ColourWellKnown : public testing::TestWithParam<WellKnown>
{
};
} // namespace

TEST_P(ColourWellKnown, FirstKnownCandidateWinsUnderItsCanonicalName)
{
    const WellKnown &w = GetParam();
    COLOUR_CASE({{"OCIO", dataPath(w.config)}});
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(), w.srgb);
    EXPECT_EQ(IMB_OCIO::getRec709ColorSpace(), w.rec709);
    EXPECT_EQ(IMB_OCIO::getLinearRec709ColorSpace(), w.linear);
    EXPECT_EQ(IMB_OCIO::getRawColorSpace(), w.raw);
    // "sRGB" always reaches the well-known sRGB space.
    EXPECT_EQ(nameOf(IMB_OCIO::lookupSpace("sRGB")), w.srgb);
}

INSTANTIATE_TEST_SUITE_P(
    Configs, ColourWellKnown,
    testing::Values(WellKnown{"full.ocio", "srgb_texture", "g24_rec709", "lin_rec709", "Raw"},
                    // The first candidate wins even when a later one exists too.
                    WellKnown{"studio_names.ocio", "sRGB - Texture", "Gamma 2.4 Rec.709 - Texture",
                              "Linear Rec.709 (sRGB)", "Raw"},
                    // Aliases resolve to the space's own name.
                    WellKnown{"utility_names.ocio", "Input - Generic - sRGB - Texture", "video_out", "scene_lin",
                              "Utility - Raw"},
                    // No candidates: colour-picking and data roles.
                    WellKnown{"no_candidates.ocio", "video", "", "", "passthru"},
                    // No candidate and no colour-picking role: the reference role.
                    WellKnown{"reference_only.ocio", "working", "", "", ""}),
    [](const testing::TestParamInfo<WellKnown> &info) {
        std::string n = info.param.config;
        return n.substr(0, n.find('.'));
    });

TEST(ColourSpaces, PreferredSRGBControlWinsWhenTheConfigurationKnowsIt)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_SRGB_SPACE", "g24_rec709"}});
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(), "g24_rec709");
    EXPECT_EQ(nameOf(IMB_OCIO::lookupSpace("sRGB")), "g24_rec709");
}

TEST(ColourSpaces, UnknownPreferredSRGBNameFallsBackToTheCandidates)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_SRGB_SPACE", "no such space"}});
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(), "srgb_texture");
}

TEST(ColourSpaces, LookupsAreCachedPerRequestedName)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const IMB_OCIO::ColorSpace *lin = IMB_OCIO::lookupSpace("lin_rec709");
    ASSERT_NE(lin, nullptr);
    EXPECT_EQ(IMB_OCIO::lookupSpace("lin_rec709"), lin);
    // An alias is its own cache entry but names the same space.
    const IMB_OCIO::ColorSpace *alias = IMB_OCIO::lookupSpace("scene_lin");
    ASSERT_NE(alias, nullptr);
    EXPECT_NE(alias, lin);
    EXPECT_EQ(nameOf(alias), "lin_rec709");
    // Roles resolve too; unknown names answer null, also from the cache.
    EXPECT_EQ(nameOf(IMB_OCIO::lookupSpace("compositing_log")), "log2_space");
    EXPECT_EQ(IMB_OCIO::lookupSpace("nothing"), nullptr);
    EXPECT_EQ(IMB_OCIO::lookupSpace("nothing"), nullptr);
    EXPECT_EQ(IMB_OCIO::lookupSpace(""), nullptr);
    // The configuration has no space called "sRGB": the well-known one stands in.
    const IMB_OCIO::ColorSpace *srgb = IMB_OCIO::lookupSpace("sRGB");
    EXPECT_EQ(nameOf(srgb), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::lookupSpace("sRGB"), srgb);
    EXPECT_STREQ(IMB_OCIO::getDescription(lin), "Scene-linear Rec.709 primaries");
    EXPECT_EQ(IMB_OCIO::getName(nullptr), nullptr);
    EXPECT_EQ(IMB_OCIO::getDescription(nullptr), nullptr);
}

TEST(ColourSpaces, InfoRecordHoldsEveryKey)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_Options info;
    ASSERT_TRUE(IMB_OCIO::getInfo(IMB_OCIO::lookupSpace("scene_lin"), info));
    EXPECT_EQ(info.getOptionNames(), (BAS_StringArray{"name", "family", "equalitygroup", "description", "isdata",
                                                      "allocation", "allocationvars", "bitdepth"}));
    EXPECT_EQ(info.getOptionS("name"), "lin_rec709");
    EXPECT_EQ(info.getOptionS("family"), "Linear");
    EXPECT_EQ(info.getOptionS("equalitygroup"), "scene");
    EXPECT_EQ(info.getOptionType("isdata"), BAS_Options::Type::Bool);
    EXPECT_FALSE(info.getOptionB("isdata", true));
    EXPECT_EQ(info.getOptionS("allocation"), "lg2");
    EXPECT_EQ(info.getOptionV("allocationvars"), (std::vector<double>{-8, 5, 0.00390625}));
    EXPECT_EQ(info.getOptionS("bitdepth"), "32f");

    ASSERT_TRUE(IMB_OCIO::getInfo(IMB_OCIO::lookupSpace("Raw"), info));
    EXPECT_TRUE(info.getOptionB("isdata"));
    EXPECT_EQ(info.getOptionS("allocation"), "uniform");
    EXPECT_EQ(info.getOptionV("allocationvars"), (std::vector<double>{0, 0, 0}));
    ASSERT_TRUE(IMB_OCIO::getInfo(IMB_OCIO::lookupSpace("srgb_texture"), info));
    EXPECT_EQ(info.getOptionS("bitdepth"), "8ui");

    BAS_Options untouched;
    untouched.setOptionI("x", 1);
    EXPECT_FALSE(IMB_OCIO::getInfo(nullptr, untouched));
    EXPECT_EQ(untouched.getOptionI("x"), 1);
}

TEST(ColourSpaces, AllocationAndFloatQueries)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    bool uniform = true;
    double mn = 1, mx = 1, off = 1;
    ASSERT_TRUE(IMB_OCIO::getAllocationVars(IMB_OCIO::lookupSpace("lin_rec709"), uniform, mn, mx, off));
    EXPECT_FALSE(uniform);
    EXPECT_EQ(mn, -8);
    EXPECT_EQ(mx, 5);
    EXPECT_EQ(off, 0.00390625);
    ASSERT_TRUE(IMB_OCIO::getAllocationVars(IMB_OCIO::lookupSpace("log2_space"), uniform, mn, mx, off));
    EXPECT_TRUE(uniform);
    EXPECT_EQ(mn, -8);
    EXPECT_EQ(mx, 5);
    EXPECT_EQ(off, 0) << "a missing third variable reads as zero";
    EXPECT_FALSE(IMB_OCIO::getAllocationVars(nullptr, uniform, mn, mx, off));

    bool isFloat = false;
    EXPECT_TRUE(IMB_OCIO::isFloatPointSpace(IMB_OCIO::lookupSpace("lin_rec709"), isFloat));
    EXPECT_TRUE(isFloat);
    EXPECT_TRUE(IMB_OCIO::isFloatPointSpace(IMB_OCIO::lookupSpace("ACEScg"), isFloat)) << "16f";
    EXPECT_FALSE(IMB_OCIO::isFloatPointSpace(IMB_OCIO::lookupSpace("g24_rec709"), isFloat)) << "10ui";
    EXPECT_FALSE(isFloat);
    EXPECT_FALSE(IMB_OCIO::isFloatPointSpace(nullptr, isFloat));
}

TEST(ColourSpaces, SceneLinearAndSRGBRecognition)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_TRUE(IMB_OCIO::isSceneLinear(IMB_OCIO::lookupSpace("scene_linear")));
    EXPECT_TRUE(IMB_OCIO::isSceneLinear(IMB_OCIO::lookupSpace("lin_rec709")));
    EXPECT_TRUE(IMB_OCIO::isSceneLinear(IMB_OCIO::lookupSpace("linear_alias"))) << "same name, other handle";
    EXPECT_FALSE(IMB_OCIO::isSceneLinear(IMB_OCIO::lookupSpace("ACEScg")));
    EXPECT_FALSE(IMB_OCIO::isSceneLinear(nullptr));
    EXPECT_TRUE(IMB_OCIO::issRGB(IMB_OCIO::lookupSpace("srgb_tx")));
    EXPECT_TRUE(IMB_OCIO::issRGB(IMB_OCIO::lookupSpace("color_picking")));
    EXPECT_FALSE(IMB_OCIO::issRGB(IMB_OCIO::lookupSpace("g24_rec709")));
    EXPECT_FALSE(IMB_OCIO::issRGB(nullptr));
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace("acescg_ap1"), "ACEScg");
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace("unknown"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(nullptr), "srgb_texture");
}

TEST(ColourSpaces, RolesAndSpacesInConfigurationOrder)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_STREQ(IMB_OCIO::getDefaultRole(), "default");
    EXPECT_STREQ(IMB_OCIO::getReferenceRole(), "reference");
    EXPECT_STREQ(IMB_OCIO::getSceneLinearRole(), "scene_linear");
    EXPECT_STREQ(IMB_OCIO::getDataRole(), "data");
    EXPECT_STREQ(IMB_OCIO::getCompLogRole(), "compositing_log");
    EXPECT_STREQ(IMB_OCIO::getColorPickingRole(), "color_picking");

    BAS_StringArray spaces{"first"};
    IMB_OCIO::getColorSpaces(spaces);
    EXPECT_EQ(spaces, (BAS_StringArray{"first", "sRGB Monitor", "Rec709 Monitor", "lin_rec709", "srgb_texture",
                                       "g24_rec709", "ACEScg", "log2_space", "cube_space", "Raw",
                                       "cube_plain", "plain_8bit", "plain_float"}));
    BAS_StringArray roles;
    IMB_OCIO::getRoles(roles);
    EXPECT_EQ(roles.size(), 7);
    for (const char *r : {"default", "reference", "scene_linear", "data", "color_picking", "compositing_log",
                          "color_timing"})
        EXPECT_GE(roles.find(r), 0) << r;
}

TEST(ColourSpaces, FileDefaultFallsBackToLinearWhenTheRulesAreSkipped)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", "3"}});
    EXPECT_EQ(IMB_OCIO::getFileDefaultColorSpace(), "lin_rec709");
}

// Parse controls 0, 1 (the default) and 2 all use the file rules; 0 and 2
// only change OpenColorIO's strict parsing.
class ColourParseRules : public testing::TestWithParam<const char *>
{
};

TEST_P(ColourParseRules, FileRulesNameTheSpaceOfAPath)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", GetParam()}});
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("shots/plate_log_v001.dpx")), "log2_space");
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("render.exr")), "ACEScg");
    // Nothing else matches: the default rule's space.
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("photo.png")), "default");
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromHolder("render.exr"), "ACEScg");
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString(""), nullptr);
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString(nullptr), nullptr);
    EXPECT_TRUE(IMB_OCIO::parseColorSpaceFromHolder("").isEmpty());
    // The file default follows the file rules too.
    EXPECT_EQ(IMB_OCIO::getFileDefaultColorSpace(), "ACEScg");
}

INSTANTIATE_TEST_SUITE_P(Controls, ColourParseRules, testing::Values("0", "1", "2", ""),
                         [](const testing::TestParamInfo<const char *> &info) {
                             return *info.param ? std::string("Control") + info.param : std::string("Unset");
                         });

TEST(ColourParseTokens, NamesBetweenDotsAndUnderscoresMatchIgnoringCase)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", "3"}});
    // Tokens are plate, lin, rec709, exr: none is a space name.
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("plate_lin_rec709.exr"), nullptr);
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("plate.acescg.exr")), "ACEScg");
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("RAW")), "Raw");
    // The last matching token wins.
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("raw.ACEScg_v2.Raw.tif")), "Raw");
    // An alias finds a space, but its name differs from the token: no match.
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("shot.scenelinear.exr"), nullptr);
    // Roles likewise.
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("shot.reference.exr"), nullptr);
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("._."), nullptr);
}

TEST(ColourParseRuleMap, WholeTextIsLookedUpInTheRuleMap)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", "4"}});
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("ExrFiles")), "ACEScg");
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("*_log*")), "log2_space");
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("Default")), "default");
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("render.exr"), nullptr);
}

TEST(ColourParseNonDefault, PathsOnlyMatchingTheDefaultRuleGiveNothing)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", "5"}});
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString("photo.png"), nullptr);
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("render.exr")), "ACEScg");
    EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString("a_log.tif")), "log2_space");
}

TEST(ColourTags, HandlesMapToRasterTags)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    BAS_StringHolder name("untouched");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(static_cast<const IMB_OCIO::ColorSpace *>(nullptr), name),
              IMB_CS_UNKNOWN);
    EXPECT_EQ(name, "untouched");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_OCIO::lookupSpace("srgb_tx"), name), IMB_CS_SRGB);
    EXPECT_EQ(name, "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_OCIO::lookupSpace("g24_rec709"), name), IMB_CS_REC709);
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_OCIO::lookupSpace("scene_linear"), name), IMB_CS_LINEAR);
    EXPECT_EQ(name, "lin_rec709");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_OCIO::lookupSpace("ACEScg"), name), IMB_CS_OCIO);
    EXPECT_EQ(name, "ACEScg");

    // By name: known names as above, unknown ones by the tag names.
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("srgb_tx"), name), IMB_CS_SRGB);
    EXPECT_EQ(name, "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("GammaCorrected2.2"), name), IMB_CS_GAMMA2_2);
    EXPECT_EQ(name, "GammaCorrected2.2");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("mystery"), name), IMB_CS_UNKNOWN);

    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_LINEAR, "x"), "lin_rec709");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_GAMMA2_2, "x"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_SRGB, "x"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_REC709, "x"), "g24_rec709");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "acescg_ap1"), "acescg_ap1");
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "mystery").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_CUSTOM_GAMMA, "ACEScg").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_UNKNOWN, "ACEScg").isEmpty());
}

TEST(ColourTags, AlwaysTagControlMakesEveryManagedSpaceOcio)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_ALWAYS_TAG", "1"}});
    BAS_StringHolder name;
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_OCIO::lookupSpace("srgb_texture"), name), IMB_CS_OCIO);
    EXPECT_EQ(name, "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("lin_rec709"), name), IMB_CS_OCIO);
    // Names the configuration lacks still go by the tag names.
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("srgb"), name), IMB_CS_SRGB);
}

TEST(ColourTags, WithoutConfigurationTagNamesStillWork)
{
    COLOUR_CASE({});
    BAS_StringHolder name;
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("srgb"), name), IMB_CS_SRGB);
    EXPECT_EQ(name, "srgb");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("linear"), name), IMB_CS_LINEAR);
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_CUSTOM_GAMMA, "x").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_SRGB, "x").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "x").isEmpty());
}
