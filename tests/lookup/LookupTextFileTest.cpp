// The text lookup-table form: what the writer produces, what the reader
// accepts and every message it gives for a malformed file.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include <gtest/gtest.h>

#include "LookupTestUtil.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
using namespace lookup_test;

// The text the writer produces for `lut`.
std::string saveText(const IMB_Lookup &lut)
{
    return writtenBy([&](FILE *fp) { return lut.save(fp); });
}

// Loads `text` into `lut`; the reader's messages are returned in `messages`.
bool loadText(IMB_Lookup &lut, const std::string &text, std::string &messages, bool headerOnly = false)
{
    return readFrom(text, messages, [&](FILE *fp) { return lut.load(fp, headerOnly); });
}

bool loadText(IMB_Lookup &lut, const std::string &text)
{
    std::string messages;
    const bool ok = loadText(lut, text, messages);
    EXPECT_EQ(messages, "");
    return ok;
}

// The value a sample takes after being written with "%g" and read back:
// the reference for text round trips.
double throughG(double v)
{
    char text[64];
    std::snprintf(text, sizeof text, "%g", v);
    return static_cast<double>(std::strtof(text, nullptr));
}

// A 1D table of `type` with `size` samples per track, track t holding
// f(t, i).
template <typename F> void fill1D(IMB_Lookup &lut, IMB_LookupType type, int size, F f)
{
    lut.setType(type);
    lut.setTableSize(size);
    CRV_Clip clip = lut.getLUT();
    for (int t = 0; t < clip.getNumTracks(); ++t)
        for (int i = 0; i < size; ++i)
            clip.getTrack(t)->getData()[i] = f(t, i);
    lut.setLUT(clip);
}

// Cube entries of edge n in file order (red fastest): r = i/(n-1) etc.
std::vector<float> rampCube(int n)
{
    std::vector<float> rgb;
    for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
            for (int r = 0; r < n; ++r)
            {
                rgb.push_back(r / float(n - 1));
                rgb.push_back(0.5f * g / float(n - 1));
                rgb.push_back(0.25f * b / float(n - 1) + 0.125f);
            }
    return rgb;
}

} // namespace

// ---------------------------------------------------------------- writer

TEST(LookupTextWriter, AllTableWritesEveryHeaderLineAndOneAllBlock)
{
    IMB_Lookup lut;
    fill1D(lut, IMB_LUT_ALL, 3, [](int t, int i) { return t == 0 ? i / 3.0 : 9.0; });
    lut.setDomain(0.0f, 2.0f);
    lut.setRange(-1.0f, 1.0f);
    lut.setBlackWhitePoints(0.0625f, 0.75f);
    EXPECT_EQ(saveText(lut), "Version\t\t1\n"
                             "Format\t\tany\n"
                             "Type\t\tAll\n"
                             "From\t\t0 2\n"
                             "To\t\t-1 1\n"
                             "Black\t\t0.0625\n"
                             "White\t\t0.75\n"
                             "Length\t\t3\n"
                             "LUT:\n"
                             "All {\n"
                             "\t0\n"
                             "\t0.333333\n"
                             "\t0.666667 }\n");
}

TEST(LookupTextWriter, VersionIsThreeForLogOrCubeWithPreTableTwoForPlainCubeElseOne)
{
    auto firstLine = [](const IMB_Lookup &lut) {
        const std::string text = saveText(lut);
        return text.substr(0, text.find('\n'));
    };
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    EXPECT_EQ(firstLine(lut), "Version\t\t1");
    lut.setLogSampling(true);
    EXPECT_EQ(firstLine(lut), "Version\t\t3");
    EXPECT_NE(saveText(lut).find("Sampling\tLog\n"), std::string::npos);

    IMB_Lookup cube;
    cube.setType(IMB_LUT_3D);
    EXPECT_EQ(firstLine(cube), "Version\t\t2");
    cube.setLogSampling(true); // 320: log cube, version 3 and the "3D" label
    EXPECT_EQ(firstLine(cube), "Version\t\t3");
    EXPECT_NE(saveText(cube).find("LUT:\n 3D {\n }\n"), std::string::npos);

    IMB_Lookup pre;
    pre.setType(IMB_LUT_3D_1D);
    const std::string text = saveText(pre);
    EXPECT_EQ(firstLine(pre), "Version\t\t3");
    EXPECT_NE(text.find("Sampling\tLinear\n"), std::string::npos);
    EXPECT_NE(text.find("Length\t\t0 0\n"), std::string::npos);
}

TEST(LookupTextWriter, FormatLineNamesEachDataFormatAndAnyOtherwise)
{
    const char *words[] = {"i8", "i16", "i32", "f32", "f16", "any", "any"};
    for (int f = 0; f <= 6; ++f)
    {
        IMB_Lookup lut;
        lut.setSpecificFormat(static_cast<IMB_DataFormat>(f));
        EXPECT_NE(saveText(lut).find(std::string("\nFormat\t\t") + words[f] + "\n"), std::string::npos) << f;
    }
}

TEST(LookupTextWriter, TypeWordOutsideTheTenKindsWritesNoTypeLineAndNoBlocks)
{
    IMB_Lookup lut;
    fill1D(lut, static_cast<IMB_LookupType>(IMB_LUT_R | IMB_LUT_B), 2, [](int, int) { return 0.5; });
    const std::string text = saveText(lut);
    EXPECT_EQ(text.find("Type"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 5), "LUT:\n");
}

TEST(LookupTextWriter, BlockLabelsFollowTheType)
{
    struct Case
    {
        IMB_LookupType type;
        int tracks;
        const char *blocks;
    };
    const Case cases[] = {
        {IMB_LUT_RGB, 3, "R {\n\t0\n\t1 }\nG {\n\t10\n\t11 }\nB {\n\t20\n\t21 }\n"},
        {IMB_LUT_RGBA, 4, "R {\n\t0\n\t1 }\nG {\n\t10\n\t11 }\nB {\n\t20\n\t21 }\nA {\n\t30\n\t31 }\n"},
        // Single-channel tables write every track under their own letter.
        {IMB_LUT_G, 3, "G {\n\t0\n\t1 }\nG {\n\t10\n\t11 }\nG {\n\t20\n\t21 }\n"},
        {IMB_LUT_A, 4, "A {\n\t0\n\t1 }\nA {\n\t10\n\t11 }\nA {\n\t20\n\t21 }\nA {\n\t30\n\t31 }\n"},
        // Shared tables write track 0 only.
        {IMB_LUT_C, 3, "RGB {\n\t0\n\t1 }\n"},
        {IMB_LUT_ALL, 3, "All {\n\t0\n\t1 }\n"},
    };
    for (const Case &c : cases)
    {
        IMB_Lookup lut;
        fill1D(lut, c.type, 2, [](int t, int i) { return 10.0 * t + i; });
        lut.setNumChannels(c.tracks);
        CRV_Clip clip = lut.getLUT();
        for (int t = 0; t < c.tracks; ++t)
            for (int i = 0; i < 2; ++i)
                clip.getTrack(t)->getData()[i] = 10.0 * t + i;
        lut.setLUT(clip);
        const std::string text = saveText(lut);
        EXPECT_EQ(text.substr(text.find("LUT:\n") + 5), c.blocks) << c.type;
    }
}

TEST(LookupTextWriter, CubeIsWrittenRedFastestWithoutPaddingAndTheLogBiasIsDropped)
{
    IMB_Lookup lut;
    const std::vector<float> rgb = rampCube(2);
    lut.set3DLUT(2, rgb.data());
    lut.setLogBias(3.0f);
    const std::string text = saveText(lut);
    EXPECT_EQ(text.find("LogBias"), std::string::npos);
    EXPECT_NE(text.find("Type\t\t3D\n"), std::string::npos);
    EXPECT_NE(text.find("Length\t\t2\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.find("LUT:\n") + 5), " {\n"
                                                     " 0 0 0.125\n"
                                                     " 1 0 0.125\n"
                                                     " 0 0.5 0.125\n"
                                                     " 1 0.5 0.125\n"
                                                     " 0 0 0.375\n"
                                                     " 1 0 0.375\n"
                                                     " 0 0.5 0.375\n"
                                                     " 1 0.5 0.375\n"
                                                     " }\n");
}

// ---------------------------------------------------------------- reader messages

namespace
{
struct BadFile
{
    const char *name;
    const char *text;
    const char *messages;
};

class LookupTextReaderMessage : public testing::TestWithParam<BadFile>
{
};
} // namespace

TEST_P(LookupTextReaderMessage, IsPrintedExactlyAndTheLoadFails)
{
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadText(lut, GetParam().text, messages));
    EXPECT_EQ(messages, GetParam().messages);
}

namespace
{
const BadFile theBadFiles[] = {
    {"NoVersion", "Format any\n", "LUT failed to load: error on line 1\n"},
    {"VersionFour", "Version 4\n", "LUT failed to load: error on line 1\n"},
    {"VersionWithoutNumber", "\n# comment\nVersion\nFormat any\n", "LUT failed to load: error on line 3\n"},
    {"BadFormat", "Version 1\nFormat i64\n", "Bad format 'i64' at line 2\nLUT failed to load: error on line 2\n"},
    {"MissingFormatWord", "Version 1\n\nFormat\n", "Bad format '' at line 3\nLUT failed to load: error on line 3\n"},
    {"BadType", "Version 1\nType RGBX\n", "Bad type 'RGBX' at line 2\nLUT failed to load: error on line 2\n"},
    {"ZeroLength", "Version 1\nType RGB\nLength 0\n",
     "Bad Length of LUT '0' at line 3\nLUT failed to load: error on line 3\n"},
    {"WordLength", "Version 1\nType RGB\nLength many\n",
     "Bad Length of LUT 'many' at line 3\nLUT failed to load: error on line 3\n"},
    {"TrackLongerThanTheBinaryFormAllows", "Version 1\nType RGB\nLength 65537\n",
     "Bad Length of LUT '65537' at line 3\nLUT failed to load: error on line 3\n"},
    {"CubeEdgeAbove256", "Version 2\nType 3D\nLength 257\n",
     "Bad Length of LUT '257' at line 3\nLUT failed to load: error on line 3\n"},
    {"PreTableLengthZeroGivesOnlyTheGeneralMessage", "Version 3\nType 3D+1D\nLength 2 0\n",
     "LUT failed to load: error on line 3\n"},
    {"PreTableLengthMissing", "Version 3\nType 3D+1D\nLength 2\n", "LUT failed to load: error on line 3\n"},
    {"BadInstruction", "Version 1\nColour red\n", "Bad instruction: 'Colour' at line 2\nLUT failed to load: error on line 2\n"},
    {"MissingBrace", "Version 1\nType RGB\nLength 2\nLUT:\nR\n[ 0 1 ]\n",
     "Missing { on line 6\nLUT failed to load: error on line 6\n"},
    {"BadValue", "Version 1\nType C\nLength 3\nLUT:\nRGB { 0\n 0.5x 1 }\n",
     "Bad LUT value '0.5x' on line 6\nLUT failed to load: error on line 6\n"},
    {"BlockClosedEarly", "Version 1\nType C\nLength 3\nLUT:\nRGB { 0 1 }\n",
     "Bad LUT value '}' on line 5\nLUT failed to load: error on line 5\n"},
    {"MissingCubeBrace", "Version 2\nType 3D\nLength 1\nLUT:\n\n( 0 0 0 )\n",
     "Missing { for 3D LUT on line 6\nLUT failed to load: error on line 6\n"},
    {"MissingCubeBraceAfterLabel", "Version 3\nType 3D+1D\nLength 1 2\nLUT:\nPre { 0 1 }\n3D 0 0 0\n",
     "Missing { for 3D LUT on line 6\nLUT failed to load: error on line 6\n"},
    {"BadCubeEntry", "Version 2\nType 3D\nLength 1\nLUT:\n{\n 0 zero 1\n}\n",
     "Bad 3D LUT entry ' 0 zero 1' on line 6\nLUT failed to load: error on line 6\n"},
    {"CubeOneTripleShort", "Version 2\nType 3D\nLength 2\nLUT:\n{\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n}\n",
     "Not enough values for 3D LUT, need 1 more \nLUT failed to load: error on line 13\n"},
    {"EmptyCubeBlock", "Version 2\nType 3D\nLength 2\nLUT:\n{ }\n",
     "Not enough values for 3D LUT, need 8 more \nLUT failed to load: error on line 5\n"},
    {"SecondCube", "Version 2\nType 3D\nLength 1\nLUT:\n{ 0 0 0 }\n{ 1 1 1 }\n",
     "Can only have 1 3D LUT\nLUT failed to load: error on line 6\n"},
    {"SecondCubeAfterPreTable", "Version 3\nType 3D+1D\nLength 1 2\nLUT:\nPre { 0 1 }\n3D { 0 0 0 }\n3D { 1 1 1 }\n",
     "Can only have 1 3D LUT\nLUT failed to load: error on line 7\n"},
};
} // namespace

INSTANTIATE_TEST_SUITE_P(All, LookupTextReaderMessage, testing::ValuesIn(theBadFiles),
                         [](const testing::TestParamInfo<BadFile> &info) { return info.param.name; });

TEST(LookupTextReader, CheckedInBadFilesFailWithTheirMessages)
{
    struct Case
    {
        const char *file;
        const char *messages;
    };
    const Case cases[] = {
        {"bad_cube_short.lut", "Not enough values for 3D LUT, need 1 more \nLUT failed to load: error on line 13\n"},
        {"bad_value.lut", "Bad LUT value '0.5x' on line 5\nLUT failed to load: error on line 5\n"},
    };
    for (const Case &c : cases)
    {
        const std::string text = readFile(std::string(IMB_TEST_DATA_DIR) + "/lookup/text/" + c.file);
        ASSERT_NE(text, "") << c.file;
        IMB_Lookup lut;
        std::string messages;
        EXPECT_FALSE(loadText(lut, text, messages));
        EXPECT_EQ(messages, c.messages);
    }
}

// ---------------------------------------------------------------- reader rules

TEST(LookupTextReader, VersionKeywordIsCaseInsensitiveAndItsNumberIsReadLikeAtoi)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "version 3\n"));
    EXPECT_TRUE(loadText(lut, "VERSION\t3.9\n"));   // atoi reads 3
    EXPECT_TRUE(loadText(lut, "Version three\n")); // atoi reads 0
    EXPECT_TRUE(loadText(lut, "Version -7\n"));
    std::string messages;
    EXPECT_FALSE(loadText(lut, "Version 99999999999999999999\n", messages));
    EXPECT_EQ(messages, "LUT failed to load: error on line 1\n");
}

TEST(LookupTextReader, EndOfFileAfterTheVersionIsAnEmptySuccessWithTypeZero)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 1"));
    EXPECT_EQ(lut.getType(), 0);
    EXPECT_EQ(lut.getNumChannels(), 0);
    EXPECT_FALSE(lut.is3DLUT());
}

TEST(LookupTextReader, HeaderWithoutLutLineLoadsWithEmptyTables)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 1\nType RGB\nFrom 2 0.5\nTo 1 -1\nLength 4\n"));
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB);
    EXPECT_EQ(lut.getNumChannels(), 3);
    EXPECT_EQ(lut.getTableSize(), 4);
    EXPECT_EQ(track(lut, 1), std::vector<double>(4, 0.0));
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.5f);
    EXPECT_EQ(hi, 2.0f);
    lut.getRange(lo, hi);
    EXPECT_EQ(lo, -1.0f);
    EXPECT_EQ(hi, 1.0f);
}

TEST(LookupTextReader, KeywordsAndWordsIgnoreCaseAndCommentsAndBlankLinesAreSkipped)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "# leading comment\n\nVERSION 1 # trailing\n  FORMAT\tF16\n"
                              "tYpE aLl\nBLACK 0.25\nwhite 0.5\r\nlogbias 3\nlength 2\nlut:\nall { 0.5 # half\n 1 }\n"));
    IMB_DataFormat f;
    ASSERT_TRUE(lut.hasSpecificFormat(f));
    EXPECT_EQ(f, IMB_FLOAT16);
    EXPECT_EQ(lut.getType(), IMB_LUT_ALL);
    EXPECT_EQ(lut.getBlackPoint(), 0.25f);
    EXPECT_EQ(lut.getWhitePoint(), 0.5f);
    EXPECT_EQ(lut.getLogBias(), 3.0f);
    EXPECT_EQ(track(lut, 0), (std::vector<double>{0.5, 1.0}));
}

TEST(LookupTextReader, MalformedOrMissingHeaderNumbersReadAsZero)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 1\nBlack 1e999\nWhite\nFrom 0.5 two\nLogBias -30\n"));
    EXPECT_EQ(lut.getBlackPoint(), 0.0f);
    EXPECT_EQ(lut.getWhitePoint(), 0.0f);
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 0.5f);
    EXPECT_EQ(lut.getLogBias(), -20.0f);
}

TEST(LookupTextReader, SamplingWordIsAlsoReadAsTheWhitePoint)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 3\nWhite 0.5\nSampling Log\n"));
    EXPECT_TRUE(lut.getLogSampling());
    EXPECT_EQ(lut.getWhitePoint(), 0.0f);

    IMB_Lookup numeric;
    EXPECT_TRUE(loadText(numeric, "Version 3\nWhite 0.5\nSampling 0.75\n"));
    EXPECT_FALSE(numeric.getLogSampling());
    EXPECT_EQ(numeric.getWhitePoint(), 0.75f);

    // Before "White" the word does no lasting harm.
    IMB_Lookup before;
    EXPECT_TRUE(loadText(before, "Version 3\nSampling LOG\nWhite 0.5\n"));
    EXPECT_TRUE(before.getLogSampling());
    EXPECT_EQ(before.getWhitePoint(), 0.5f);
}

TEST(LookupTextReader, LogDomainMinimumIsRaisedToOneMillionth)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 3\nType C\nSampling Log\nFrom 0 0.5\n"));
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 1e-6f);
    EXPECT_EQ(hi, 0.5f);
    EXPECT_TRUE(loadText(lut, "Version 3\nType C\nSampling Log\nFrom 0 1e-7\n"));
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 1e-6f);
    EXPECT_EQ(hi, 1.0f);
    // Without the flag (yet) the domain is stored as given.
    EXPECT_TRUE(loadText(lut, "Version 3\nType C\nFrom 0 1e-7\n"));
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 0.0f);
    EXPECT_EQ(hi, 1e-7f);
}

TEST(LookupTextReader, TypeKeepsTheLogFlagExceptForCubeWithPreTable)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 3\nSampling Log\nType RGB\n"));
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB | IMB_LUT_LOG_SAMPLING);
    IMB_Lookup pre;
    EXPECT_TRUE(loadText(pre, "Version 3\nSampling Log\nType 3D+1D\n"));
    EXPECT_EQ(pre.getType(), IMB_LUT_3D_1D);
    EXPECT_EQ(pre.getNumChannels(), 1);
}

TEST(LookupTextReader, BlockLabelsSelectTracks)
{
    struct Case
    {
        const char *text;
        std::vector<std::vector<double>> tracks;
    };
    const Case cases[] = {
        // "RGBA" gets three tracks, so its alpha block overwrites red.
        {"Version 1\nType RGBA\nLength 2\nLUT:\nR { 1 2 }\nG { 3 4 }\nB { 5 6 }\nA { 7 8 }\n", {{7, 8}, {3, 4}, {5, 6}}},
        // Labels ignore case; an unknown label selects track 0.
        {"Version 1\nType RGB\nLength 1\nLUT:\nb { 3 }\ng { 2 }\nRed { 1 }\n", {{1}, {2}, {3}}},
        // Blocks may start on the "LUT:" line.
        {"Version 1\nType C\nLength 2\nLUT: RGB { 0.5 1 }\n", {{0.5, 1}, {0, 0}, {0, 0}}},
    };
    for (const Case &c : cases)
    {
        IMB_Lookup lut;
        EXPECT_TRUE(loadText(lut, c.text)) << c.text;
        ASSERT_EQ(lut.getNumChannels(), static_cast<int>(c.tracks.size())) << c.text;
        for (std::size_t t = 0; t < c.tracks.size(); ++t)
            EXPECT_EQ(track(lut, static_cast<int>(t)), c.tracks[t]) << c.text << " track " << t;
    }
}




TEST(LookupTextReader, HeaderOnlyStopsAtTheLutLine)
{
    IMB_Lookup lut;
    std::string messages;
    EXPECT_TRUE(loadText(lut, "Version 1\nType C\nFrom 0 4\nLength 3\nLUT:\nRGB { 0 0.5 1 }\nnot even read\n", messages,
                         true));
    EXPECT_EQ(messages, "");
    EXPECT_EQ(lut.getTableSize(), 3);
    EXPECT_EQ(track(lut, 0), std::vector<double>(3, 0.0));
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(hi, 4.0f);
}

TEST(LookupTextReader, EndOfFileInsideABlockEndsTheLoadWithSuccess)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 1\nType C\nLength 3\nLUT:\nRGB { 0.25 0.5"));
    EXPECT_EQ(track(lut, 0), (std::vector<double>{0.25, 0.5, 0.0}));
    IMB_Lookup cube;
    EXPECT_TRUE(loadText(cube, "Version 2\nType 3D\nLength 2\nLUT:\n{ 1 1 1 0.5"));
    EXPECT_EQ(cubeAt(cube, 0, 0, 0, 0), 1.0f);
    EXPECT_EQ(cubeAt(cube, 1, 0, 0, 0), 0.0f);
}

TEST(LookupTextReader, CubeIsPaddedAsItsTriplesArrive)
{
    const int n = 3;
    const std::vector<float> rgb = rampCube(n);
    std::string text = "Version 2\nType 3D\nLength 3\nLUT:\n{\n";
    for (std::size_t i = 0; i < rgb.size(); i += 3)
    {
        char line[96];
        std::snprintf(line, sizeof line, "%.9g %.9g %.9g\n", rgb[i], rgb[i + 1], rgb[i + 2]);
        text += line;
    }
    text += "}\n";
    IMB_Lookup lut;
    ASSERT_TRUE(loadText(lut, text));
    expectPaddedCube(lut, rgb, n);
}

TEST(LookupTextReader, PreTableValuesAreClampedToTheUnitInterval)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 3\nType 3D+1D\nLength 1 4\nLUT:\nPre { -0.5 0.25 1 7 }\n3D { 0.5 0.5 0.5 }\n"));
    EXPECT_EQ(lut.getTableSize(), 4);
    EXPECT_EQ(track(lut, 0), (std::vector<double>{0.0, 0.25, 1.0, 1.0}));
    EXPECT_EQ(lut.get3DSize(), 1);
    EXPECT_EQ(cubeAt(lut, 1, 1, 1, 2), 0.5f);
}

TEST(LookupTextReader, LargestLengthsAreAccepted)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadText(lut, "Version 1\nType RGB\nLength 65536\n"));
    EXPECT_EQ(lut.getTableSize(), 65536);
    EXPECT_TRUE(loadText(lut, "Version 3\nType 3D+1D\nLength 2 65536\n"));
    EXPECT_EQ(lut.getTableSize(), 65536);
    EXPECT_EQ(lut.get3DSize(), 2);
    // Repeated lengths: the last one counts.
    EXPECT_TRUE(loadText(lut, "Version 2\nType 3D\nLength 7\nLength 5\nLength 3\n"));
    EXPECT_EQ(lut.get3DSize(), 3);
}

TEST(LookupTextReader, CheckedInFilesLoad)
{
    auto load = [](IMB_Lookup &lut, const char *name) {
        const std::string text = readFile(std::string(IMB_TEST_DATA_DIR) + "/lookup/text/" + name);
        return !text.empty() && loadText(lut, text);
    };
    IMB_Lookup all;
    ASSERT_TRUE(load(all, "all_square.lut"));
    EXPECT_EQ(all.getType(), IMB_LUT_ALL);
    EXPECT_EQ(track(all, 0), (std::vector<double>{0, 0.0625, 0.25, 0.5625, 1}));

    IMB_Lookup rgb;
    ASSERT_TRUE(load(rgb, "rgb_comments.lut"));
    IMB_DataFormat f;
    ASSERT_TRUE(rgb.hasSpecificFormat(f));
    EXPECT_EQ(f, IMB_INT16);
    EXPECT_EQ(rgb.getBlackPoint(), 0.125f);
    EXPECT_EQ(rgb.getWhitePoint(), 0.875f);
    EXPECT_EQ(track(rgb, 1), (std::vector<double>{0, 0.25, 1}));
    EXPECT_EQ(track(rgb, 2), (std::vector<double>{1, 0.5, 0}));

    IMB_Lookup cube;
    ASSERT_TRUE(load(cube, "cube2.lut"));
    EXPECT_EQ(cube.getType(), IMB_LUT_3D);
    EXPECT_EQ(cubeAt(cube, 1, 0, 1, 0), 1.0f);
    EXPECT_EQ(cubeAt(cube, 1, 0, 1, 1), 0.0f);
    EXPECT_EQ(cubeAt(cube, 1, 0, 1, 2), 1.0f);

    IMB_Lookup pre;
    ASSERT_TRUE(load(pre, "cube_pre.lut"));
    EXPECT_EQ(pre.getType(), IMB_LUT_3D_1D);
    EXPECT_EQ(pre.getWhitePoint(), 0.0f); // "Sampling Linear" after "White 1"
    EXPECT_EQ(track(pre, 0), (std::vector<double>{0, 0.25, 1}));

    IMB_Lookup log;
    ASSERT_TRUE(load(log, "log.lut"));
    EXPECT_EQ(log.getType(), IMB_LUT_C | IMB_LUT_LOG_SAMPLING);
    EXPECT_EQ(track(log, 0), (std::vector<double>{0, 0.25, 0.75, 1}));
}

// ---------------------------------------------------------------- round trips

TEST(LookupTextRoundTrip, OneDimensionalTablesComeBackAsPrintedWithG)
{
    for (IMB_LookupType type : {IMB_LUT_RGB, IMB_LUT_C, IMB_LUT_ALL, IMB_LUT_R})
    {
        IMB_Lookup lut;
        fill1D(lut, type, 17, [](int t, int i) { return std::pow(i / 16.0, 1.0 / (2.2 + t)) * (1 + 1e-7 * i); });
        lut.setSpecificFormat(IMB_INT16);
        lut.setDomain(-0.125f, 1.0f / 3.0f);
        IMB_Lookup back;
        ASSERT_TRUE(loadText(back, saveText(lut))) << type;
        EXPECT_EQ(back.getType(), type);
        EXPECT_EQ(back.getTableSize(), 17);
        float lo, hi;
        back.getDomain(lo, hi);
        EXPECT_EQ(lo, -0.125f);
        EXPECT_EQ(hi, float(throughG(1.0f / 3.0f)));
        // "R" writes all three tracks under "R", and each lands on track 0:
        // the last one written wins.
        const int written = type == IMB_LUT_RGB ? 3 : 1;
        for (int t = 0; t < written; ++t)
        {
            const std::vector<double> got = track(back, t), want = track(lut, type == IMB_LUT_R ? 2 : t);
            ASSERT_EQ(got.size(), want.size());
            for (std::size_t i = 0; i < got.size(); ++i)
                EXPECT_EQ(got[i], throughG(want[i])) << type << " track " << t << " sample " << i;
        }
    }
}

TEST(LookupTextRoundTrip, LogSampledTableComesBackWithWhitePointZero)
{
    IMB_Lookup lut;
    fill1D(lut, IMB_LUT_C, 4, [](int, int i) { return i * 0.25; });
    lut.setLogSampling(true);
    lut.setDomain(0.001f, 100.0f);
    lut.setBlackWhitePoints(0.0f, 1.0f);
    IMB_Lookup back;
    ASSERT_TRUE(loadText(back, saveText(lut)));
    EXPECT_TRUE(back.getLogSampling());
    EXPECT_EQ(back.getWhitePoint(), 0.0f);
    EXPECT_EQ(track(back, 0), track(lut, 0));
}

TEST(LookupTextRoundTrip, CubesWithAndWithoutPreTableComeBack)
{
    const std::vector<float> rgb = rampCube(4);
    IMB_Lookup cube;
    cube.set3DLUT(4, rgb.data());
    IMB_Lookup back;
    ASSERT_TRUE(loadText(back, saveText(cube)));
    ASSERT_EQ(back.get3DSize(), 4);
    for (int i = 0; i < 3 * 125; ++i)
        EXPECT_EQ(back.get3DLUT()[i], float(throughG(cube.get3DLUT()[i]))) << i;

    IMB_Lookup pre;
    pre.setType(IMB_LUT_3D_1D);
    pre.setTableSize(3);
    pre.set3DLUT(4, rgb.data());
    CRV_Clip clip = pre.getLUT();
    clip.getTrack(0)->getData()[1] = 0.125;
    clip.getTrack(0)->getData()[2] = 1.0;
    pre.setLUT(clip);
    IMB_Lookup back2;
    ASSERT_TRUE(loadText(back2, saveText(pre)));
    EXPECT_EQ(back2.getType(), IMB_LUT_3D_1D);
    EXPECT_EQ(track(back2, 0), (std::vector<double>{0, 0.125, 1}));
    ASSERT_EQ(back2.get3DSize(), 4);
    EXPECT_EQ(back2.get3DLUT()[3 * 124 + 1], float(throughG(pre.get3DLUT()[3 * 124 + 1])));
}

// ---------------------------------------------------------------- bounded memory

TEST(LookupTextReader, OverLongTokenIsCutAndMarkedSoItCannotPassAsANumber)
{
    const std::string digits(5000, '7');
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadText(lut, "Version 1\nType C\nLength 1\nLUT:\nRGB { " + digits + " }\n", messages));
    EXPECT_EQ(messages, "Bad LUT value '" + digits.substr(0, 4096) + "...' on line 5\n"
                        "LUT failed to load: error on line 5\n");
}

TEST(LookupTextReader, LineLongerThanTheBufferIsReadInPiecesWithItsLineNumber)
{
    // A whole cube of edge 48 on one line (about 2.3 MB), then a bad entry.
    const int n = 48;
    std::string text = "Version 2\nType 3D\nLength 48\nLUT:\n{";
    for (int i = 0; i < n * n * n; ++i)
        text += " 0.25 0.5 " + std::to_string(i % 7);
    text += " }\n3D\n";
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadText(lut, text, messages));
    EXPECT_EQ(messages, "Can only have 1 3D LUT\nLUT failed to load: error on line 6\n");
    ASSERT_EQ(lut.get3DSize(), n);
    EXPECT_EQ(cubeAt(lut, n - 1, n - 1, n - 1, 2), float((n * n * n - 1) % 7));
    EXPECT_EQ(cubeAt(lut, 5, 0, 0, 1), 0.5f);
}
