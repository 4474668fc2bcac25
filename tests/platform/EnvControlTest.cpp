// BAS_EnvControl: numbered controls read from the environment.
#include <IMB/platform/BAS_EnvControl.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

// Each case sets (or, with null, unsets) the variable of a control, then reads it: only a whole integer counts,
// anything else gives the default.
TEST(EnvControl, IntegersParseWholeValuesOnlyAndOtherwiseGiveTheDefault)
{
    const std::tuple<int, const char *, int> cases[] = {
        {65, nullptr, 0}, {97, nullptr, 0}, {72, nullptr, 1}, {97, "12", 12}, {97, "-3", -3}, {72, "0", 0},
        {72, "12x", 1},   {72, "", 1},      {72, "x", 1},     {72, "1.5", 1}, {72, "99999999999999999999", 1},
        {1, nullptr, 0}, // an unknown number
    };
    for (auto [id, value, want] : cases)
    {
        if (const char *name = BAS_EnvControl::variableName(id))
            value ? setenv(name, value, 1) : unsetenv(name);
        EXPECT_EQ(BAS_EnvControl::getInt(id), want) << id << " \"" << (value ? value : "(unset)") << '"';
    }
    unsetenv("IMB_OCIO_PARSE_MODE");
    unsetenv("IMB_OCIO_VERBOSE");
}

TEST(EnvControl, StringsAreReadOnEveryCallUnderTheirOwnNames)
{
    EXPECT_EQ(BAS_EnvControl::variableName(1), nullptr);
    EXPECT_TRUE(BAS_EnvControl::getString(-5).isEmpty());
    EXPECT_STREQ(BAS_EnvControl::variableName(97), "IMB_OCIO_VERBOSE");
    ASSERT_STREQ(BAS_EnvControl::variableName(43), "IMB_OCIO_SRGB_SPACE");
    unsetenv("IMB_OCIO_SRGB_SPACE");
    EXPECT_TRUE(BAS_EnvControl::getString(43).isEmpty());
    for (const char *value : {"sRGB - Texture", "srgb_tx"})
    {
        setenv("IMB_OCIO_SRGB_SPACE", value, 1);
        EXPECT_EQ(BAS_EnvControl::getString(43), value);
    }
    unsetenv("IMB_OCIO_SRGB_SPACE");
}
