// BAS_Options: typed reads with conversion, defaults, key order, nesting.
#include <IMB/platform/BAS_Options.h>

#include <gtest/gtest.h>

TEST(Options, NumericValuesConvertBetweenIntFloatAndBool)
{
    BAS_Options o;
    o.setOptionI("i", 3);
    o.setOptionF("f", 2.75);
    o.setOptionB("b", true);
    EXPECT_EQ(o.getOptionI("i"), 3);
    EXPECT_EQ(o.getOptionF("i"), 3.0);
    EXPECT_TRUE(o.getOptionB("i"));
    EXPECT_EQ(o.getOptionI("f"), 2); // truncated
    EXPECT_EQ(o.getOptionF("f"), 2.75);
    EXPECT_EQ(o.getOptionI("b"), 1);
    EXPECT_EQ(o.getOptionF("b"), 1.0);
    o.setOptionF("small", 0.25);
    EXPECT_FALSE(o.getOptionB("small")); // through the integer value 0
    o.setOptionI("neg", -1);
    EXPECT_TRUE(o.getOptionB("neg"));
}

TEST(Options, MissingOrNonNumericKeysGiveTheDefault)
{
    BAS_Options o;
    o.setOptionS("s", "12");
    o.setOptionV("v", {1.0, 2.0});
    EXPECT_EQ(o.getOptionI("missing", 7), 7);
    EXPECT_EQ(o.getOptionI("s", 7), 7); // strings are not parsed
    EXPECT_EQ(o.getOptionF("v", 1.5), 1.5);
    EXPECT_TRUE(o.getOptionB("missing", true));
    EXPECT_EQ(o.getOptionS("missing", "def"), "def");
    EXPECT_EQ(o.getOptionS("v", "def"), "def");
    EXPECT_EQ(o.getOptionS("s"), "12");
    EXPECT_TRUE(o.getOptionSArray("s").isEmpty());
    EXPECT_TRUE(o.getOptionV("s").empty());
    EXPECT_TRUE(o.getOptionDict("s").isEmpty());

    int out = 42;
    EXPECT_FALSE(o.importOption("s", out));
    EXPECT_EQ(out, 42);
    BAS_StringHolder str("keep");
    EXPECT_FALSE(o.importOption("v", str));
    EXPECT_EQ(str, "keep");
    EXPECT_TRUE(o.importOption("s", str));
    EXPECT_EQ(str, "12");
}

TEST(Options, KeysKeepTheOrderOfFirstSetting)
{
    BAS_Options o;
    o.setOptionI("c", 1);
    o.setOptionI("a", 2);
    o.setOptionI("b", 3);
    o.setOptionS("a", "now a string"); // replaced in place, type and all
    ASSERT_EQ(o.getNumOptions(), 3);
    EXPECT_EQ(o.getOptionName(0), "c");
    EXPECT_EQ(o.getOptionName(1), "a");
    EXPECT_EQ(o.getOptionName(2), "b");
    EXPECT_EQ(o.getOptionType("a"), BAS_Options::Type::String);
    EXPECT_EQ(o.getOptionType("zz"), BAS_Options::Type::None);
    EXPECT_TRUE(o.removeOption("c"));
    EXPECT_FALSE(o.removeOption("c"));
    BAS_StringArray names = o.getOptionNames();
    ASSERT_EQ(names.entries(), 2);
    EXPECT_EQ(names(0), "a");
    EXPECT_EQ(names(1), "b");
}

TEST(Options, NestedOptionsAreCopiedDeeply)
{
    BAS_Options inner;
    inner.setOptionI("depth", 2);
    BAS_Options outer;
    outer.setOptionDict("inner", inner);
    BAS_Options copy = outer;
    EXPECT_EQ(copy, outer);
    inner.setOptionI("depth", 3); // the stored copy is independent
    EXPECT_EQ(outer.getOptionDict("inner").getOptionI("depth"), 2);

    BAS_Options changed = outer;
    BAS_Options inner2;
    inner2.setOptionI("depth", 5);
    changed.setOptionDict("inner", inner2);
    EXPECT_NE(changed, outer);
    EXPECT_EQ(outer.getOptionDict("inner").getOptionI("depth"), 2);
}

TEST(Options, EqualityNeedsTheSameOrderAndTypes)
{
    BAS_Options a, b;
    a.setOptionI("x", 1);
    a.setOptionI("y", 2);
    b.setOptionI("y", 2);
    b.setOptionI("x", 1);
    EXPECT_NE(a, b);
    BAS_Options c;
    c.setOptionF("x", 1.0);
    c.setOptionI("y", 2);
    EXPECT_NE(a, c);
    BAS_Options d = a;
    EXPECT_EQ(a, d);
    d.clear();
    EXPECT_TRUE(d.isEmpty());
}
