// BAS_EnvControl: numbered controls read from the environment.
#include <IMB/platform/BAS_EnvControl.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{
// Sets a variable for the life of the object and restores the unset state.
struct ScopedEnv
{
    const char *name;
    ScopedEnv(const char *n, const char *value) : name(n) { setenv(n, value, 1); }
    ~ScopedEnv() { unsetenv(name); }
};
} // namespace

TEST(EnvControl, UnsetControlsGiveTheirDefaults)
{
    for (int id : {43, 65, 72, 97})
        unsetenv(BAS_EnvControl::variableName(id));
    EXPECT_EQ(BAS_EnvControl::getInt(65), 0);
    EXPECT_EQ(BAS_EnvControl::getInt(97), 0);
    EXPECT_EQ(BAS_EnvControl::getInt(72), 1);
    EXPECT_TRUE(BAS_EnvControl::getString(43).isEmpty());
}

TEST(EnvControl, UnknownNumbersHaveNoVariable)
{
    EXPECT_EQ(BAS_EnvControl::variableName(1), nullptr);
    EXPECT_EQ(BAS_EnvControl::getInt(1), 0);
    EXPECT_TRUE(BAS_EnvControl::getString(-5).isEmpty());
    EXPECT_STREQ(BAS_EnvControl::variableName(43), "IMB_OCIO_SRGB_SPACE");
    EXPECT_STREQ(BAS_EnvControl::variableName(97), "IMB_OCIO_VERBOSE");
}

TEST(EnvControl, IntegersParseWholeValuesOnly)
{
    {
        ScopedEnv e("IMB_OCIO_VERBOSE", "12");
        EXPECT_EQ(BAS_EnvControl::getInt(97), 12);
    }
    {
        ScopedEnv e("IMB_OCIO_VERBOSE", "-3");
        EXPECT_EQ(BAS_EnvControl::getInt(97), -3);
    }
    for (const char *bad : {"12x", "", "x", "1.5", "99999999999999999999"})
    {
        ScopedEnv e("IMB_OCIO_PARSE_MODE", bad);
        EXPECT_EQ(BAS_EnvControl::getInt(72), 1) << '"' << bad << '"';
    }
    {
        ScopedEnv e("IMB_OCIO_PARSE_MODE", "0");
        EXPECT_EQ(BAS_EnvControl::getInt(72), 0);
    }
}

TEST(EnvControl, ValuesAreReadOnEveryCall)
{
    ScopedEnv e("IMB_OCIO_SRGB_SPACE", "sRGB - Texture");
    EXPECT_EQ(BAS_EnvControl::getString(43), "sRGB - Texture");
    setenv("IMB_OCIO_SRGB_SPACE", "srgb_tx", 1);
    EXPECT_EQ(BAS_EnvControl::getString(43), "srgb_tx");
}
