// Colour-space lookups, the well-known spaces, information records, parsing
// modes and the raster tag mappings.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>

#include <string>
#include <tuple>

using colour_test::dataPath;
using colour_test::joined;
using colour_test::orNull;
using IMB_OCIO::lookupSpace;

namespace
{
std::string nameOf(const IMB_OCIO::ColorSpace *cs)
{
    return orNull(IMB_OCIO::getName(cs));
}

struct WellKnown
{
    const char *config, *srgbControl;
    const char *srgb, *rec709, *linear, *raw;
};

using ColourWellKnown = testing::TestWithParam<WellKnown>;
} // namespace

TEST_P(ColourWellKnown, FirstKnownCandidateWinsUnderItsCanonicalName)
{
    const WellKnown &w = GetParam();
    COLOUR_CASE({{"OCIO", dataPath(w.config)}, {"IMB_OCIO_SRGB_SPACE", w.srgbControl}});
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(), w.srgb);
    EXPECT_EQ(IMB_OCIO::getRec709ColorSpace(), w.rec709);
    EXPECT_EQ(IMB_OCIO::getLinearRec709ColorSpace(), w.linear);
    EXPECT_EQ(IMB_OCIO::getRawColorSpace(), w.raw);
    // "sRGB" always reaches the well-known sRGB space.
    EXPECT_EQ(nameOf(lookupSpace("sRGB")), w.srgb);
}

INSTANTIATE_TEST_SUITE_P(
    Configs, ColourWellKnown,
    testing::Values(WellKnown{"full.ocio", "", "srgb_texture", "g24_rec709", "lin_rec709", "Raw"},
                    // The preferred sRGB space wins when the configuration knows it.
                    WellKnown{"full.ocio", "g24_rec709", "g24_rec709", "g24_rec709", "lin_rec709", "Raw"},
                    WellKnown{"full.ocio", "no such space", "srgb_texture", "g24_rec709", "lin_rec709", "Raw"},
                    // The first candidate wins even when a later one exists too.
                    WellKnown{"studio_names.ocio", "", "sRGB - Texture", "Gamma 2.4 Rec.709 - Texture",
                              "Linear Rec.709 (sRGB)", "Raw"},
                    // Aliases resolve to the space's own name.
                    WellKnown{"utility_names.ocio", "", "Input - Generic - sRGB - Texture", "video_out", "scene_lin",
                              "Utility - Raw"},
                    // No candidates: colour-picking and data roles.
                    WellKnown{"no_candidates.ocio", "", "video", "", "", "passthru"},
                    // No candidate and no colour-picking role: the reference role.
                    WellKnown{"reference_only.ocio", "", "working", "", "", ""}));

TEST(ColourSpaces, LookupsAreCachedPerRequestedNameAndDescribeTheirSpace)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const IMB_OCIO::ColorSpace *lin = lookupSpace("lin_rec709");
    ASSERT_NE(lin, nullptr);
    EXPECT_EQ(lookupSpace("lin_rec709"), lin);
    // An alias is its own cache entry but names the same space; roles resolve
    // too; unknown names answer null, also from the cache.
    EXPECT_NE(lookupSpace("scene_lin"), lin);
    EXPECT_EQ(nameOf(lookupSpace("scene_lin")), "lin_rec709");
    EXPECT_EQ(nameOf(lookupSpace("compositing_log")), "log2_space");
    EXPECT_EQ(lookupSpace("nothing"), nullptr);
    EXPECT_EQ(lookupSpace("nothing"), nullptr);
    EXPECT_EQ(lookupSpace(""), nullptr);
    EXPECT_EQ(lookupSpace("sRGB"), lookupSpace("sRGB"));
    EXPECT_STREQ(IMB_OCIO::getDescription(lin), "Scene-linear Rec.709 primaries");
    EXPECT_EQ(IMB_OCIO::getDescription(nullptr), nullptr);

    BAS_Options info;
    ASSERT_TRUE(IMB_OCIO::getInfo(lookupSpace("scene_lin"), info));
    EXPECT_EQ(joined(info.getOptionNames()),
              "name,family,equalitygroup,description,isdata,allocation,allocationvars,bitdepth");
    EXPECT_EQ(info.getOptionS("name"), "lin_rec709");
    EXPECT_EQ(info.getOptionS("family"), "Linear");
    EXPECT_EQ(info.getOptionS("equalitygroup"), "scene");
    EXPECT_EQ(info.getOptionType("isdata"), BAS_Options::Type::Bool);
    EXPECT_FALSE(info.getOptionB("isdata", true));
    EXPECT_EQ(info.getOptionS("allocation"), "lg2");
    EXPECT_EQ(info.getOptionV("allocationvars"), (std::vector<double>{-8, 5, 0.00390625}));
    EXPECT_EQ(info.getOptionS("bitdepth"), "32f");
    ASSERT_TRUE(IMB_OCIO::getInfo(lookupSpace("Raw"), info));
    EXPECT_TRUE(info.getOptionB("isdata"));
    EXPECT_EQ(info.getOptionS("allocation"), "uniform");
    EXPECT_EQ(info.getOptionV("allocationvars"), (std::vector<double>{0, 0, 0}));
    BAS_Options untouched;
    untouched.setOptionI("x", 1);
    EXPECT_FALSE(IMB_OCIO::getInfo(nullptr, untouched));
    EXPECT_EQ(untouched.getOptionI("x"), 1);

    bool uniform = true;
    double mn = 1, mx = 1, off = 1;
    ASSERT_TRUE(IMB_OCIO::getAllocationVars(lin, uniform, mn, mx, off));
    EXPECT_EQ(std::vector<double>({double(uniform), mn, mx, off}), (std::vector<double>{0, -8, 5, 0.00390625}));
    ASSERT_TRUE(IMB_OCIO::getAllocationVars(lookupSpace("log2_space"), uniform, mn, mx, off));
    // A missing third variable reads as zero.
    EXPECT_EQ(std::vector<double>({double(uniform), mn, mx, off}), (std::vector<double>{1, -8, 5, 0}));
    EXPECT_FALSE(IMB_OCIO::getAllocationVars(nullptr, uniform, mn, mx, off));

    BAS_StringArray names{"first"};
    IMB_OCIO::getColorSpaces(names);
    EXPECT_EQ(joined(names), "first,sRGB Monitor,Rec709 Monitor,lin_rec709,srgb_texture,g24_rec709,ACEScg,"
                             "log2_space,cube_space,Raw,cube_plain,plain_8bit,plain_float");
    names.clear();
    IMB_OCIO::getRoles(names);
    names.sort();
    EXPECT_EQ(joined(names), "color_picking,color_timing,compositing_log,data,default,reference,scene_linear");
}

TEST(ColourSpaces, SpacesAreClassifiedAndTaggedByName)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    struct Case
    {
        const char *name;
        bool isFloat, sceneLinear, sRGB;
        IMB_ColorSpace tag;
        const char *canonical;
    };
    const Case cases[] = {
        {"scene_linear", true, true, false, IMB_CS_LINEAR, "lin_rec709"},
        {"linear_alias", true, true, false, IMB_CS_LINEAR, "lin_rec709"}, // same name, other handle
        {"ACEScg", true, false, false, IMB_CS_OCIO, "ACEScg"},            // 16f
        {"g24_rec709", false, false, false, IMB_CS_REC709, "g24_rec709"}, // 10ui
        {"srgb_tx", false, false, true, IMB_CS_SRGB, "srgb_texture"},
        {"color_picking", false, false, true, IMB_CS_SRGB, "srgb_texture"},
        {"nothing", false, false, false, IMB_CS_UNKNOWN, "untouched"},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.name);
        const IMB_OCIO::ColorSpace *cs = lookupSpace(c.name);
        bool isFloat = !c.isFloat;
        EXPECT_EQ(IMB_OCIO::isFloatPointSpace(cs, isFloat), c.isFloat);
        EXPECT_EQ(isFloat, c.isFloat);
        EXPECT_EQ(IMB_OCIO::isSceneLinear(cs), c.sceneLinear);
        EXPECT_EQ(IMB_OCIO::issRGB(cs), c.sRGB);
        BAS_StringHolder name("untouched");
        EXPECT_EQ(IMB_OCIO::imbImageColorSpace(cs, name), c.tag);
        EXPECT_EQ(name, c.canonical);
    }
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace("acescg_ap1"), "ACEScg");
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace("unknown"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::getsRGBColorSpace(nullptr), "srgb_texture");

    // By name: known names as above, unknown ones by the raster tag names.
    using ByName = std::tuple<const char *, IMB_ColorSpace, const char *>;
    for (const auto &[in, tag, out] : {ByName{"srgb_tx", IMB_CS_SRGB, "srgb_texture"},
                                       ByName{"GammaCorrected2.2", IMB_CS_GAMMA2_2, "GammaCorrected2.2"},
                                       ByName{"mystery", IMB_CS_UNKNOWN, "mystery"}})
    {
        BAS_StringHolder name("untouched");
        EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder(in), name), tag) << in;
        EXPECT_EQ(name, out) << in;
    }
    // And back from the tags.
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_LINEAR, "x"), "lin_rec709");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_GAMMA2_2, "x"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_SRGB, "x"), "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_REC709, "x"), "g24_rec709");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "acescg_ap1"), "acescg_ap1");
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_OCIO, "mystery").isEmpty());
    EXPECT_TRUE(IMB_OCIO::imbImageColorSpace(IMB_CS_CUSTOM_GAMMA, "ACEScg").isEmpty());
}

TEST(ColourSpaces, AlwaysTagControlMakesEveryManagedSpaceOcio)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_ALWAYS_TAG", "1"}});
    BAS_StringHolder name;
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(lookupSpace("srgb_texture"), name), IMB_CS_OCIO);
    EXPECT_EQ(name, "srgb_texture");
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("lin_rec709"), name), IMB_CS_OCIO);
    // Names the configuration lacks still go by the tag names.
    EXPECT_EQ(IMB_OCIO::imbImageColorSpace(BAS_StringHolder("srgb"), name), IMB_CS_SRGB);
}

// The colour space of a path under each parsing control: 0, 1 (the default)
// and 2 use the file rules (0 and 2 only change OpenColorIO's strict
// parsing); 3 the tokens between '.' and '_'; 4 the file-rule name map; 5
// the file rules except the default rule.
struct ParseCase
{
    const char *control;
    std::vector<std::pair<const char *, const char *>> paths; // path, space or null
    const char *fileDefault;
};

using ColourParse = testing::TestWithParam<ParseCase>;

TEST_P(ColourParse, FindsTheSpaceOfAPathByTheControlsRule)
{
    const ParseCase &c = GetParam();
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_PARSE_MODE", c.control}});
    for (const auto &[path, space] : c.paths)
    {
        EXPECT_EQ(orNull(IMB_OCIO::parseColorSpaceFromString(path)), orNull(space)) << path;
        EXPECT_EQ(IMB_OCIO::parseColorSpaceFromHolder(path), space ? space : "") << path;
    }
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString(""), nullptr);
    EXPECT_EQ(IMB_OCIO::parseColorSpaceFromString(nullptr), nullptr);
    EXPECT_EQ(IMB_OCIO::getFileDefaultColorSpace(), c.fileDefault);
}

const std::vector<std::pair<const char *, const char *>> kByFileRules = {
    {"shots/plate_log_v001.dpx", "log2_space"}, {"render.exr", "ACEScg"}, {"photo.png", "default"}};

INSTANTIATE_TEST_SUITE_P(
    Controls, ColourParse,
    testing::Values(ParseCase{"", kByFileRules, "ACEScg"}, ParseCase{"0", kByFileRules, "ACEScg"},
                    ParseCase{"1", kByFileRules, "ACEScg"}, ParseCase{"2", kByFileRules, "ACEScg"},
                    // Tokens match space names ignoring case, the last match
                    // winning; aliases and roles do not match.
                    ParseCase{"3",
                              {{"plate_lin_rec709.exr", nullptr},
                               {"plate.acescg.exr", "ACEScg"},
                               {"RAW", "Raw"},
                               {"raw.ACEScg_v2.Raw.tif", "Raw"},
                               {"shot.scenelinear.exr", nullptr},
                               {"shot.reference.exr", nullptr},
                               {"._.", nullptr}},
                              "lin_rec709"},
                    ParseCase{"4",
                              {{"ExrFiles", "ACEScg"}, {"*_log*", "log2_space"}, {"Default", "default"},
                               {"render.exr", nullptr}},
                              "ACEScg"},
                    ParseCase{"5", {{"photo.png", nullptr}, {"render.exr", "ACEScg"}, {"a_log.tif", "log2_space"}},
                              "ACEScg"}));
