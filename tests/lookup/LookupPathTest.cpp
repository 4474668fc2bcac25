// Saving and loading lookup tables by path: extensions, variable expansion,
// emptying before a load, the correction after it, and the "LUTio" filters
// (including file names that try to inject shell commands).
#include "LookupTestUtil.h"

namespace
{
using namespace lookup_test;

using LookupPath = ScratchDir;

// A "C" table of `size` samples rising from 0 to 1.
IMB_Lookup ramp(int size) { return fill1D(IMB_LUT_C, size, [size](int, int i) { return i / double(size - 1); }); }

std::vector<void *> theDeleted;
} // namespace

TEST_F(LookupPath, ExtensionChoosesTheFormOnlyLutOrBlutCanBeLoadedAndMissingPathsFail)
{
    const IMB_Lookup lut = ramp(5);
    ASSERT_TRUE(lut.save(path("a.lut").c_str(), false));
    ASSERT_TRUE(lut.save(path("a.blut").c_str(), true));
    ASSERT_TRUE(lut.save(path("a.txt").c_str(), true)); // any other name: text
    EXPECT_EQ(readFile(path("a.lut")).rfind("Version\t\t1\n", 0), 0u);
    EXPECT_EQ(readFile(path("a.txt")), readFile(path("a.lut")));
    EXPECT_EQ(readFile(path("a.blut")).substr(0, 4), "ZLUT");
    IMB_Lookup text, binary, other;
    EXPECT_TRUE(text.load(path("a.lut").c_str(), false));
    EXPECT_EQ(track(text, 0), track(lut, 0));
    EXPECT_TRUE(binary.load(path("a.blut").c_str(), false));
    EXPECT_TRUE(binary.isHalfPrec());
    EXPECT_EQ(track(binary, 0), track(lut, 0)); // quarters are exact halves
    // Saved as text, but a load by path refuses the name (kept as designed).
    EXPECT_FALSE(other.load(path("a.txt").c_str(), false));
    // Text content under a binary name is not read as text.
    writeFile(path("text.blut"), readFile(path("a.lut")));
    EXPECT_FALSE(other.load(path("text.blut").c_str(), false));
    // A header-only load reads no samples.
    for (const char *name : {"a.lut", "a.blut"})
    {
        IMB_Lookup header;
        ASSERT_TRUE(header.load(path(name).c_str(), true)) << name;
        EXPECT_EQ(track(header, 0), std::vector<double>(5, 0.0)) << name;
    }
    EXPECT_FALSE(other.load(path("missing.lut").c_str(), false));
    EXPECT_FALSE(other.load(static_cast<const char *>(nullptr), false));
    EXPECT_FALSE(other.load("", false));
    EXPECT_FALSE(lut.save(path("no/such/dir.lut").c_str(), false));
    EXPECT_FALSE(lut.save(static_cast<const char *>(nullptr), false));
}

TEST_F(LookupPath, VariablesInThePathAreExpanded)
{
    setenv("IMB_TEST_LUT_DIR", myDir.c_str(), 1);
    setenv("IMB_TEST_LUT_NAME", "named", 1);
    unsetenv("IMB_TEST_LUT_UNSET");
    const IMB_Lookup lut = ramp(3);
    // Unset variables expand to nothing; a "$" that starts no name, and an
    // unclosed "${", stay as written.
    const char *cases[][2] = {{"$IMB_TEST_LUT_DIR/${IMB_TEST_LUT_NAME}.lut", "named.lut"},
                              {"${IMB_TEST_LUT_DIR}/x$IMB_TEST_LUT_UNSET.blut", "x.blut"},
                              {"$IMB_TEST_LUT_DIR/cost$.lut", "cost$.lut"},
                              {"$IMB_TEST_LUT_DIR/${open.lut", "${open.lut"}};
    for (const auto &c : cases)
    {
        ASSERT_TRUE(lut.save(c[0], false)) << c[0];
        EXPECT_TRUE(exists(path(c[1]))) << c[0];
    }
    IMB_Lookup back;
    EXPECT_TRUE(back.load("${IMB_TEST_LUT_DIR}/x${IMB_TEST_LUT_UNSET}.blut", false));
    EXPECT_EQ(track(back, 0), track(lut, 0));
    unsetenv("IMB_TEST_LUT_DIR");
    unsetenv("IMB_TEST_LUT_NAME");
}

TEST_F(LookupPath, LoadEmptiesTheTableFirstEvenWhenItFails)
{
    IMB_Lookup lut = ramp(4);
    const float rgb[3] = {1, 2, 3};
    lut.setType(IMB_LUT_3D_1D);
    lut.set3DLUT(1, rgb);
    int a = 0, b = 0;
    lut.setTextureID(&a);
    lut.setPreLutID(&b);
    theDeleted.clear();
    void (*previous)(void *) = IMB_DeleteTextures_cb;
    IMB_DeleteTextures_cb = [](void *texture) { theDeleted.push_back(texture); };
    EXPECT_FALSE(lut.load(path("refused.txt").c_str(), false));
    IMB_DeleteTextures_cb = previous;
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_EQ(lut.get3DLUT(), nullptr);
    EXPECT_EQ(lut.get3DSize(), 0);
    EXPECT_EQ(theDeleted, (std::vector<void *>{&a, &b}));
}

TEST_F(LookupPath, LoadByPathCorrectsTheTableAndLoadFromAFileDoesNot)
{
    // A reversed domain: the path load swaps domain and range ends.
    IMB_Lookup reversed = ramp(2);
    reversed.setRange(0.25f, 0.75f);
    ASSERT_TRUE(reversed.save(path("fwd.blut").c_str(), false));
    const std::string bytes = readFile(path("fwd.blut"));
    // Domain minimum and maximum are at offsets 16 and 20: exchange them.
    writeFile(path("rev.blut"), bytes.substr(0, 16) + bytes.substr(20, 4) + bytes.substr(16, 4) + bytes.substr(24));
    IMB_Lookup byFile, byPath;
    FILE *fp = std::fopen(path("rev.blut").c_str(), "rb");
    ASSERT_TRUE(byFile.loadBinary(fp, false));
    std::fclose(fp);
    EXPECT_EQ(describe(byFile), "type 39 tracks 3x2 cube 0 domain 1 0 range 0.25 0.75 points 0 1 bias 0 format any");
    ASSERT_TRUE(byPath.load(path("rev.blut").c_str(), false));
    EXPECT_EQ(describe(byPath), "type 39 tracks 3x2 cube 0 domain 0 1 range 0.75 0.25 points 0 1 bias 0 format any");

    // An empty domain loads from a file but fails by path.
    writeFile(path("empty.lut"), "Version 1\nType C\nFrom 0.5 0.5\nLength 2\nLUT:\nRGB { 0 1 }\n");
    IMB_Lookup empty;
    EXPECT_FALSE(empty.load(path("empty.lut").c_str(), false));
    fp = std::fopen(path("empty.lut").c_str(), "r");
    EXPECT_TRUE(empty.load(fp, false));
    std::fclose(fp);
}

TEST(IOTable, CommandsMayHoldOnlyPathAndPercentSequences)
{
    BAS_IOTable &table = BAS_IOTable::getTable("imb_test_formats");
    table.clear();
    EXPECT_TRUE(table.addFilter(".x", "cat %s", "cat > %s; echo 100%%"));
    EXPECT_FALSE(table.addFilter(".y", "cat %d", nullptr));
    EXPECT_FALSE(table.addFilter(".y", nullptr, "cat > %"));
    EXPECT_FALSE(table.addFilter("", "cat %s", nullptr));
    EXPECT_FALSE(table.addFilter(nullptr, "cat %s", nullptr));
    EXPECT_EQ(table.entries(), 1);
    std::string command;
    EXPECT_TRUE(BAS_IOTable::buildCommand("cat > %s; echo 100%%", "a b", command));
    EXPECT_EQ(command, "cat > 'a b'; echo 100%");
    EXPECT_FALSE(BAS_IOTable::buildCommand("cat %n", "a", command));
    EXPECT_EQ(BAS_IOTable::quotePath("it's"), "'it'\\''s'");
    EXPECT_EQ(BAS_IOTable::quotePath(""), "''");
    table.clear();
    EXPECT_EQ(table.entries(), 0);
}

TEST(IOTable, TablesAreSharedByNameAndTheLongestMatchingExtensionWins)
{
    BAS_IOTable &table = BAS_IOTable::getTable("imb_test_match");
    EXPECT_EQ(&table, &BAS_IOTable::getTable("imb_test_match"));
    EXPECT_NE(&table, &BAS_IOTable::getTable("imb_test_other"));
    table.clear();
    table.addFilter(".gz", "gzip -dc %s", "gzip -c > %s");
    table.addFilter(".lut.gz", "zcat %s", "");
    BAS_IOTable::Filter f;
    ASSERT_TRUE(table.findFilter("/a/b.lut.gz", false, f));
    EXPECT_EQ(f.extension, ".lut.gz");
    // ".lut.gz" has no write command: writing falls back to ".gz".
    ASSERT_TRUE(table.findFilter("/a/b.lut.gz", true, f));
    EXPECT_EQ(f.extension, ".gz");
    EXPECT_FALSE(table.findFilter("/a/b.lut", false, f));
    EXPECT_FALSE(table.findFilter("/a/b.GZ", false, f)); // case matters
    // Adding the same extension again replaces the filter.
    table.addFilter(".gz", "other %s", "");
    EXPECT_EQ(table.entries(), 2);
    EXPECT_FALSE(table.findFilter("x.gz", true, f));
    EXPECT_TRUE(table.removeFilter(".gz"));
    EXPECT_FALSE(table.removeFilter(".gz"));
    table.clear();
}

TEST_F(LookupPath, FiltersRunThroughAPipeAndBlutInTheExtensionSelectsBinary)
{
    BAS_IOTable &table = BAS_IOTable::getTable("LUTio");
    // The filter stores files gzip-compressed.
    ASSERT_TRUE(table.addFilter(".lut.gz", "gzip -dc %s", "gzip -c > %s"));
    ASSERT_TRUE(table.addFilter(".blut.gz", "gzip -dc %s", "gzip -c > %s"));
    const IMB_Lookup lut = ramp(6);
    for (const char *name : {"t.lut.gz", "b.blut.gz"})
    {
        ASSERT_TRUE(lut.save(path(name).c_str(), false));
        EXPECT_EQ(readFile(path(name)).substr(0, 2), "\x1f\x8b");
        ASSERT_EQ(std::system(("gzip -dc '" + path(name) + "' > '" + path("plain") + "'").c_str()), 0);
        EXPECT_EQ(readFile(path("plain")).substr(0, 4), name[0] == 'b' ? "ZLUT" : "Vers");
        IMB_Lookup back;
        ASSERT_TRUE(back.load(path(name).c_str(), false));
        ASSERT_EQ(track(back, 0).size(), 6u);
        for (int i = 0; i < 6; ++i) // fifths print exactly with "%g"; both forms read them as floats
            EXPECT_EQ(track(back, 0)[i], double(float(i / 5.0))) << name << " " << i;
    }
}

TEST_F(LookupPath, FilterThatFailsFailsTheOperationAndAHeaderOnlyReadDrainsThePipe)
{
    BAS_IOTable &table = BAS_IOTable::getTable("LUTio");
    ASSERT_TRUE(table.addFilter(".lut", "cat %s; exit 3", "cat > %s; exit 3"));
    EXPECT_FALSE(ramp(2).save(path("f.lut").c_str(), false));
    EXPECT_TRUE(exists(path("f.lut"))); // the command ran; its status counts
    IMB_Lookup back, header;
    EXPECT_FALSE(back.load(path("f.lut").c_str(), false));
    table.clear();
    EXPECT_TRUE(back.load(path("f.lut").c_str(), false));
    // Large enough that the filter cannot write it all into the pipe before
    // the reader stops.
    ASSERT_TRUE(table.addFilter(".lut.gz", "gzip -dc %s", "gzip -c > %s"));
    ASSERT_TRUE(ramp(60000).save(path("big.lut.gz").c_str(), false));
    EXPECT_TRUE(header.load(path("big.lut.gz").c_str(), true));
    EXPECT_EQ(header.getTableSize(), 60000);
}

TEST_F(LookupPath, HostileFileNamesReachTheFilterAsOneQuotedArgument)
{
    ASSERT_TRUE(BAS_IOTable::getTable("LUTio").addFilter(".lut.f", "cat %s", "cat > %s"));
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(myDir.c_str()), 0);
    const char *names[] = {
        "a'; touch pwned1; echo '.lut.f", "b\"; touch pwned2; echo \".lut.f", "c$(touch pwned3).lut.f",
        "d`touch pwned4`.lut.f",          "e;touch pwned5;.lut.f",            "f' '|| touch pwned6 #.lut.f",
        "g\\'; touch pwned7 #.lut.f",
    };
    const IMB_Lookup lut = ramp(3);
    for (const char *name : names)
    {
        EXPECT_TRUE(lut.save(name, false)) << name;
        EXPECT_TRUE(exists(name)) << name;
        IMB_Lookup back;
        EXPECT_TRUE(back.load(name, false)) << name;
        EXPECT_EQ(track(back, 0), track(lut, 0)) << name;
    }
    for (int i = 1; i <= 7; ++i)
        EXPECT_FALSE(exists("pwned" + std::to_string(i))) << i;
    ASSERT_EQ(chdir(cwd), 0);
}

TEST(FileLUT, EvaluatesBetweenSamplesHoldsTheEndsAndRefusesEmptyInput)
{
    BAS_FileLUT curve;
    EXPECT_EQ(curve.evaluate(0.5f), 0.0f); // no samples
    const float samples[3] = {0.0f, 0.25f, 1.0f};
    ASSERT_TRUE(curve.create(3, samples, 65536.0, true, "film", 1023));
    EXPECT_NE(curve.getSamples(), samples);
    EXPECT_EQ(curve.getSample(3), 0.0f);
    const float at[] = {0.25f, 0.75f, -1.0f, 2.0f}, want[] = {0.125f, 0.625f, 0.0f, 1.0f};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(curve.evaluate(at[i]), want[i]) << at[i];
    EXPECT_FALSE(curve.create(0, samples, 1.0, false, "x", 1));
    EXPECT_FALSE(curve.create(3, nullptr, 1.0, false, "x", 1));
    EXPECT_EQ(curve.getName(), "film"); // unchanged by the refused calls
    EXPECT_EQ(curve.getSize(), 3);
}
