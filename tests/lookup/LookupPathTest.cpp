// Saving and loading lookup tables by path: extensions, variable expansion,
// emptying before a load, the correction after it, and the "LUTio" filters
// (including file names that try to inject shell commands).
#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_FileLUT.h>
#include <IMB/platform/BAS_IOTable.h>
#include <IMB/platform/CRV_Clip.h>

#include <gtest/gtest.h>

#include "LookupTestUtil.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
using namespace lookup_test;

class LookupPath : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "imb_lut_path_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        myDir = pattern;
        BAS_IOTable::getTable("LUTio").clear();
    }
    void TearDown() override
    {
        BAS_IOTable::getTable("LUTio").clear();
        std::system(("rm -rf '" + myDir + "'").c_str());
    }

    std::string path(const std::string &name) const { return myDir + "/" + name; }

    static void writeFile(const std::string &p, const std::string &bytes)
    {
        FILE *fp = std::fopen(p.c_str(), "wb");
        ASSERT_NE(fp, nullptr) << p;
        std::fwrite(bytes.data(), 1, bytes.size(), fp);
        std::fclose(fp);
    }
    static bool exists(const std::string &p) { return access(p.c_str(), F_OK) == 0; }

    // A "C" table of `size` samples rising from 0 to 1.
    static IMB_Lookup ramp(int size)
    {
        IMB_Lookup lut;
        lut.setType(IMB_LUT_C);
        lut.setTableSize(size);
        CRV_Clip clip = lut.getLUT();
        for (int i = 0; i < size; ++i)
            clip.getTrack(0)->getData()[i] = i / double(size - 1);
        lut.setLUT(clip);
        return lut;
    }

    std::string myDir;
};
} // namespace

TEST_F(LookupPath, ExtensionChoosesTheFormAndOnlyLutOrBlutCanBeLoaded)
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
}

TEST_F(LookupPath, MissingFilesAndUnwritablePathsFail)
{
    IMB_Lookup lut = ramp(2);
    EXPECT_FALSE(lut.load(path("missing.lut").c_str(), false));
    EXPECT_FALSE(lut.load(static_cast<const char *>(nullptr), false));
    EXPECT_FALSE(lut.load("", false));
    EXPECT_FALSE(ramp(2).save(path("no/such/dir.lut").c_str(), false));
    EXPECT_FALSE(ramp(2).save(static_cast<const char *>(nullptr), false));
}

TEST_F(LookupPath, VariablesInThePathAreExpanded)
{
    setenv("IMB_TEST_LUT_DIR", myDir.c_str(), 1);
    setenv("IMB_TEST_LUT_NAME", "named", 1);
    unsetenv("IMB_TEST_LUT_UNSET");
    const IMB_Lookup lut = ramp(3);
    ASSERT_TRUE(lut.save("$IMB_TEST_LUT_DIR/${IMB_TEST_LUT_NAME}.lut", false));
    EXPECT_TRUE(exists(path("named.lut")));
    // Unset variables expand to nothing.
    ASSERT_TRUE(lut.save("${IMB_TEST_LUT_DIR}/x$IMB_TEST_LUT_UNSET.blut", false));
    EXPECT_TRUE(exists(path("x.blut")));
    IMB_Lookup back;
    EXPECT_TRUE(back.load("${IMB_TEST_LUT_DIR}/x${IMB_TEST_LUT_UNSET}.blut", false));
    EXPECT_EQ(track(back, 0), track(lut, 0));
    // A "$" that starts no name, and an unclosed "${", stay as written.
    ASSERT_TRUE(lut.save("$IMB_TEST_LUT_DIR/cost$.lut", false));
    EXPECT_TRUE(exists(path("cost$.lut")));
    ASSERT_TRUE(lut.save("$IMB_TEST_LUT_DIR/${open.lut", false));
    EXPECT_TRUE(exists(path("${open.lut")));
    unsetenv("IMB_TEST_LUT_DIR");
    unsetenv("IMB_TEST_LUT_NAME");
}

namespace
{
std::vector<void *> theDeleted;
void recordDelete(void *texture)
{
    theDeleted.push_back(texture);
}
} // namespace

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
    IMB_DeleteTextures_cb = recordDelete;
    EXPECT_FALSE(lut.load(path("refused.txt").c_str(), false));
    IMB_DeleteTextures_cb = previous;
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_FALSE(lut.is3DLUT());
    EXPECT_EQ(lut.get3DLUT(), nullptr);
    EXPECT_EQ(theDeleted, (std::vector<void *>{&a, &b}));
}

TEST_F(LookupPath, HeaderOnlyLoadByPathReadsNoSamples)
{
    ASSERT_TRUE(ramp(9).save(path("h.lut").c_str(), false));
    ASSERT_TRUE(ramp(9).save(path("h.blut").c_str(), false));
    for (const char *name : {"h.lut", "h.blut"})
    {
        IMB_Lookup lut;
        ASSERT_TRUE(lut.load(path(name).c_str(), true)) << name;
        EXPECT_EQ(lut.getTableSize(), 9) << name;
        EXPECT_EQ(track(lut, 0), std::vector<double>(9, 0.0)) << name;
    }
}

TEST_F(LookupPath, LoadByPathCorrectsTheTableAndLoadFromAFileDoesNot)
{
    // A reversed domain: the path load swaps domain and range ends.
    IMB_Lookup reversed = ramp(2);
    reversed.setRange(0.25f, 0.75f);
    ASSERT_TRUE(reversed.save(path("fwd.blut").c_str(), false));
    const std::string bytes = readFile(path("fwd.blut"));
    // Domain minimum and maximum are at offsets 16 and 20: exchange them.
    std::string swapped = bytes;
    swapped.replace(16, 4, bytes.substr(20, 4));
    swapped.replace(20, 4, bytes.substr(16, 4));
    writeFile(path("rev.blut"), swapped);

    IMB_Lookup byFile;
    FILE *fp = std::fopen(path("rev.blut").c_str(), "rb");
    ASSERT_TRUE(byFile.loadBinary(fp, false));
    std::fclose(fp);
    float lo, hi;
    byFile.getDomain(lo, hi);
    EXPECT_EQ(lo, 1.0f);
    EXPECT_EQ(hi, 0.0f);

    IMB_Lookup byPath;
    ASSERT_TRUE(byPath.load(path("rev.blut").c_str(), false));
    byPath.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 1.0f);
    byPath.getRange(lo, hi);
    EXPECT_EQ(lo, 0.75f);
    EXPECT_EQ(hi, 0.25f);

    // An empty domain loads from a file but fails by path.
    writeFile(path("empty.lut"), "Version 1\nType C\nFrom 0.5 0.5\nLength 2\nLUT:\nRGB { 0 1 }\n");
    IMB_Lookup empty;
    EXPECT_FALSE(empty.load(path("empty.lut").c_str(), false));
    fp = std::fopen(path("empty.lut").c_str(), "r");
    EXPECT_TRUE(empty.load(fp, false));
    std::fclose(fp);
}

TEST_F(LookupPath, ReaderMessagesOfAPathLoadGoToStandardError)
{
    writeFile(path("bad.lut"), "Version 1\nType Q\n");
    IMB_Lookup lut;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(lut.load(path("bad.lut").c_str(), false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Bad type 'Q' at line 2\nLUT failed to load: error on line 2\n");
}

// ---------------------------------------------------------------- filters

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
    ASSERT_TRUE(lut.save(path("t.lut.gz").c_str(), false));
    ASSERT_TRUE(lut.save(path("b.blut.gz").c_str(), false));
    EXPECT_EQ(readFile(path("t.lut.gz")).substr(0, 2), "\x1f\x8b");
    ASSERT_EQ(std::system(("gzip -dc '" + path("b.blut.gz") + "' > '" + path("plain.blut") + "'").c_str()), 0);
    EXPECT_EQ(readFile(path("plain.blut")).substr(0, 4), "ZLUT");
    ASSERT_EQ(std::system(("gzip -dc '" + path("t.lut.gz") + "' > '" + path("plain.lut") + "'").c_str()), 0);
    EXPECT_EQ(readFile(path("plain.lut")).substr(0, 8), "Version\t");

    IMB_Lookup text, binary;
    ASSERT_TRUE(text.load(path("t.lut.gz").c_str(), false));
    ASSERT_TRUE(binary.load(path("b.blut.gz").c_str(), false));
    ASSERT_EQ(track(text, 0).size(), 6u);
    ASSERT_EQ(track(binary, 0).size(), 6u);
    for (int i = 0; i < 6; ++i)
    {
        // Fifths print exactly with "%g"; both forms read them as floats.
        EXPECT_EQ(track(text, 0)[i], double(float(i / 5.0))) << i;
        EXPECT_EQ(track(binary, 0)[i], double(float(i / 5.0))) << i;
    }
}

TEST_F(LookupPath, FilterThatFailsMakesTheOperationFail)
{
    BAS_IOTable &table = BAS_IOTable::getTable("LUTio");
    ASSERT_TRUE(table.addFilter(".lut", "cat %s; exit 3", "cat > %s; exit 3"));
    const IMB_Lookup lut = ramp(2);
    EXPECT_FALSE(lut.save(path("f.lut").c_str(), false));
    EXPECT_TRUE(exists(path("f.lut"))); // the command ran; its status counts
    IMB_Lookup back;
    EXPECT_FALSE(back.load(path("f.lut").c_str(), false));
    table.clear();
    EXPECT_TRUE(back.load(path("f.lut").c_str(), false));
}

TEST_F(LookupPath, HeaderOnlyReadThroughAFilterDrainsThePipe)
{
    BAS_IOTable &table = BAS_IOTable::getTable("LUTio");
    ASSERT_TRUE(table.addFilter(".lut.gz", "gzip -dc %s", "gzip -c > %s"));
    // Large enough that the filter cannot write it all into the pipe before
    // the reader stops.
    const IMB_Lookup lut = ramp(60000);
    ASSERT_TRUE(lut.save(path("big.lut.gz").c_str(), false));
    IMB_Lookup header;
    EXPECT_TRUE(header.load(path("big.lut.gz").c_str(), true));
    EXPECT_EQ(header.getTableSize(), 60000);
}

TEST_F(LookupPath, HostileFileNamesReachTheFilterAsOneQuotedArgument)
{
    BAS_IOTable &table = BAS_IOTable::getTable("LUTio");
    ASSERT_TRUE(table.addFilter(".lut.f", "cat %s", "cat > %s"));
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(myDir.c_str()), 0);
    const char *names[] = {
        "a'; touch pwned1; echo '.lut.f",
        "b\"; touch pwned2; echo \".lut.f",
        "c$(touch pwned3).lut.f",
        "d`touch pwned4`.lut.f",
        "e;touch pwned5;.lut.f",
        "f' '|| touch pwned6 #.lut.f",
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

// ---------------------------------------------------------------- curve files

TEST(FileLUT, CreateCopiesTheCurveAndRefusesEmptyInput)
{
    BAS_FileLUT curve;
    EXPECT_EQ(curve.getSize(), 0);
    EXPECT_EQ(curve.getSamples(), nullptr);
    EXPECT_EQ(curve.evaluate(0.5f), 0.0f);
    const float samples[3] = {0.0f, 0.25f, 1.0f};
    ASSERT_TRUE(curve.create(3, samples, 65536.0, true, "film", 1023));
    EXPECT_EQ(curve.getSize(), 3);
    EXPECT_NE(curve.getSamples(), samples);
    EXPECT_EQ(curve.getSample(2), 1.0f);
    EXPECT_EQ(curve.getSample(3), 0.0f);
    EXPECT_EQ(curve.getScale(), 65536.0);
    EXPECT_TRUE(curve.getFlag());
    EXPECT_EQ(curve.getName(), "film");
    EXPECT_EQ(curve.getWhite(), 1023);
    EXPECT_EQ(curve.evaluate(0.25f), 0.125f);
    EXPECT_EQ(curve.evaluate(0.75f), 0.625f);
    EXPECT_EQ(curve.evaluate(-1.0f), 0.0f);
    EXPECT_EQ(curve.evaluate(2.0f), 1.0f);
    EXPECT_FALSE(curve.create(0, samples, 1.0, false, "x", 1));
    EXPECT_FALSE(curve.create(3, nullptr, 1.0, false, "x", 1));
    EXPECT_EQ(curve.getName(), "film"); // unchanged by the refused calls
}
