// BAS_Options: typed reads with conversion, defaults, key order, nesting.
#include <IMB/platform/BAS_Options.h>

#include <gtest/gtest.h>

#include <tuple>

TEST(Options, NumericValuesConvertBetweenIntFloatAndBool)
{
    BAS_Options o;
    o.setOptionI("i", 3);
    o.setOptionF("f", 2.75);
    o.setOptionB("b", true);
    o.setOptionF("small", 0.25);
    o.setOptionI("neg", -1);
    auto read = [&](const char *k) { return std::make_tuple(o.getOptionI(k), o.getOptionF(k), o.getOptionB(k)); };
    EXPECT_EQ(read("i"), std::make_tuple(3, 3.0, true));
    EXPECT_EQ(read("f"), std::make_tuple(2, 2.75, true)); // truncated
    EXPECT_EQ(read("b"), std::make_tuple(1, 1.0, true));
    EXPECT_EQ(read("small"), std::make_tuple(0, 0.25, false)); // bool through the integer value 0
    EXPECT_EQ(read("neg"), std::make_tuple(-1, -1.0, true));
}

TEST(Options, MissingOrMistypedKeysGiveTheDefault)
{
    BAS_Options o;
    o.setOptionS("s", "12");
    o.setOptionV("v", {1.0, 2.0});
    // Strings are not parsed as numbers.
    EXPECT_EQ(std::make_tuple(o.getOptionI("missing", 7), o.getOptionI("s", 7), o.getOptionF("v", 1.5)),
              std::make_tuple(7, 7, 1.5));
    EXPECT_TRUE(o.getOptionB("missing", true));
    EXPECT_EQ(std::make_tuple(o.getOptionS("missing", "def"), o.getOptionS("v", "def"), o.getOptionS("s")),
              std::make_tuple(BAS_StringHolder("def"), BAS_StringHolder("def"), BAS_StringHolder("12")));
    EXPECT_TRUE(o.getOptionSArray("s").isEmpty() && o.getOptionV("s").empty() && o.getOptionDict("s").isEmpty());
    int out = 42;
    BAS_StringHolder str("keep");
    EXPECT_FALSE(o.importOption("s", out) || o.importOption("v", str));
    EXPECT_EQ(out, 42);
    EXPECT_EQ(str, "keep");
    EXPECT_TRUE(o.importOption("s", str));
    EXPECT_EQ(str, "12");
}

TEST(Options, KeysKeepTheOrderOfFirstSettingAndEqualityNeedsIt)
{
    BAS_Options o, same;
    o.setOptionI("c", 1);
    o.setOptionI("a", 2);
    o.setOptionI("b", 3);
    o.setOptionS("a", "now a string"); // replaced in place, type and all
    same = o;
    EXPECT_EQ(same, o);
    ASSERT_EQ(o.getNumOptions(), 3);
    EXPECT_EQ(std::make_tuple(o.getOptionName(0), o.getOptionName(1), o.getOptionName(2)),
              std::make_tuple(BAS_StringHolder("c"), BAS_StringHolder("a"), BAS_StringHolder("b")));
    EXPECT_EQ(o.getOptionType("a"), BAS_Options::Type::String);
    EXPECT_EQ(o.getOptionType("zz"), BAS_Options::Type::None);
    EXPECT_TRUE(o.removeOption("c"));
    EXPECT_FALSE(o.removeOption("c"));
    BAS_StringArray names = o.getOptionNames();
    ASSERT_EQ(names.entries(), 2);
    EXPECT_TRUE(names(0) == "a" && names(1) == "b");
    // The same entries in another order, or another type, differ.
    BAS_Options swapped, retyped;
    swapped.setOptionI("b", 3);
    swapped.setOptionS("a", "now a string");
    retyped.setOptionS("a", "now a string");
    retyped.setOptionF("b", 3.0);
    EXPECT_NE(swapped, o);
    EXPECT_NE(retyped, o);
    same.clear();
    EXPECT_TRUE(same.isEmpty());
}

TEST(Options, NestedOptionsAreCopiedDeeplyAndCompared)
{
    BAS_Options inner, outer;
    inner.setOptionI("depth", 2);
    outer.setOptionDict("inner", inner);
    BAS_Options copy = outer;
    EXPECT_EQ(copy, outer);
    inner.setOptionI("depth", 3); // the stored copy is independent
    EXPECT_EQ(outer.getOptionDict("inner").getOptionI("depth"), 2);
    copy.setOptionDict("inner", inner);
    EXPECT_NE(copy, outer);
    EXPECT_EQ(outer.getOptionDict("inner").getOptionI("depth"), 2);
}
