// The text lookup-table form: what the writer produces, what the reader
// accepts and every message it gives for a malformed file.
#include "LookupTestUtil.h"

namespace
{
using namespace lookup_test;

std::string saveText(const IMB_Lookup &lut)
{
    return writtenBy([&](FILE *fp) { return lut.save(fp); });
}

bool loadText(IMB_Lookup &lut, const std::string &text, std::string *messages = nullptr, bool headerOnly = false)
{
    return readFrom(text, messages, [&](FILE *fp) { return lut.load(fp, headerOnly); });
}

// The value a sample takes after being written with "%g" and read back.
double throughG(double v)
{
    char text[64];
    std::snprintf(text, sizeof text, "%g", v);
    return static_cast<double>(std::strtof(text, nullptr));
}

} // namespace

// tests/data/lookup/cases/text_writer.tsv: type (with the log flag), tracks
// (0: the type's own), samples per track or cube edge, data format, domain,
// range, black and white points, and the whole text written. Track t holds
// 10 t + i, a cube mixingCube (red fastest); the log bias, 3, is never written.
TEST(LookupTextWriter, CaseTableWritesExactlyItsText)
{
    for (const auto &c : readCases("text_writer.tsv"))
    {
        ASSERT_EQ(c.size(), 8u) << c[0];
        const int type = std::stoi(c[0]), n = std::stoi(c[2]);
        IMB_Lookup lut;
        lut.setType(T(type & 0xff));
        if (n && (type & IMB_LUT_3D))
            lut.set3DLUT(n, mixingCube(n).data());
        else if (n)
            lut = fill1D(T(type & 0xff), n, [](int t, int i) { return 10.0 * t + i; }, std::stoi(c[1]));
        lut.setLogSampling(type & IMB_LUT_LOG_SAMPLING);
        lut.setLogBias(3.0f);
        lut.setSpecificFormat(static_cast<IMB_DataFormat>(std::stoi(c[3])));
        float v[6];
        std::istringstream(c[4] + " " + c[5] + " " + c[6]) >> v[0] >> v[1] >> v[2] >> v[3] >> v[4] >> v[5];
        lut.setDomain(v[0], v[1]);
        lut.setRange(v[2], v[3]);
        lut.setBlackWhitePoints(v[4], v[5]);
        EXPECT_EQ(saveText(lut), c[7]) << c[0];
    }
}

// tests/data/lookup/cases/text_reader.tsv: the file ("@name" for a file under
// tests/data/lookup), whether it loads (in full or header only), exactly what
// the reader prints, and the fields and tracks it leaves in the table.
TEST(LookupTextReader, CaseTableLoadsOrFailsWithExactlyItsMessagesFieldsAndTracks)
{
    const auto cases = readCases("text_reader.tsv");
    EXPECT_GE(cases.size(), 55u);
    for (const auto &c : cases)
    {
        ASSERT_GE(c.size(), 3u) << c[0];
        const std::string text = c[2][0] == '@' ? readFile(dataPath(c[2].substr(1))) : c[2];
        IMB_Lookup lut;
        std::string messages;
        EXPECT_EQ(loadText(lut, text, &messages, c[1] == "header"), c[1] != "fail") << c[0];
        EXPECT_EQ(messages, c.size() > 3 ? c[3] : "") << c[0];
        if (c.size() > 4)
            EXPECT_EQ(describe(lut), c[4]) << c[0];
        if (c.size() > 5)
            EXPECT_EQ(describeTracks(lut), c[5]) << c[0];
    }
}

TEST(LookupTextReader, CubeIsPaddedAsItsTriplesArriveAndEndOfFileInsideItIsASuccess)
{
    const std::vector<float> rgb = mixingCube(3);
    std::string text = "Version 2\nType 3D\nLength 3\nLUT:\n{\n";
    for (std::size_t i = 0; i < rgb.size(); ++i) // one triple a line, each float exact
        text += num(rgb[i]) + (i % 3 == 2 ? "\n" : " ");
    IMB_Lookup lut, cube;
    ASSERT_TRUE(loadText(lut, text + "}\n"));
    expectPaddedCube(lut, rgb, 3);
    EXPECT_TRUE(loadText(cube, "Version 2\nType 3D\nLength 2\nLUT:\n{ 1 1 1 0.5"));
    EXPECT_EQ(cubeAt(cube, 0, 0, 0, 0), 1.0f);
    EXPECT_EQ(cubeAt(cube, 1, 0, 0, 0), 0.0f);
}

TEST(LookupTextRoundTrip, OneDimensionalTablesComeBackAsPrintedWithG)
{
    for (int type : {23, 39, 47, 1, 39 | IMB_LUT_LOG_SAMPLING})
    {
        IMB_Lookup lut =
            fill1D(T(type & 0xff), 17, [](int t, int i) { return std::pow(i / 16.0, 1.0 / (2.2 + t)) * (1 + 1e-7 * i); });
        lut.setLogSampling(type & IMB_LUT_LOG_SAMPLING);
        lut.setSpecificFormat(IMB_INT16);
        lut.setDomain(0.125f, 1.0f / 3.0f);
        IMB_Lookup back;
        ASSERT_TRUE(loadText(back, saveText(lut))) << type;
        // A log-sampled table comes back with white point 0 ("Sampling"
        // after "White").
        EXPECT_EQ(describe(back), "type " + std::to_string(type) + " tracks " + "3x17 cube 0 domain 0.125 " + num(float(throughG(1.0f / 3.0f))) +
                                      " range 0 1 points 0 " + (type & IMB_LUT_LOG_SAMPLING ? "0" : "1") +
                                      " bias 0 format int16");
        // "R" writes all three tracks under "R", and each lands on track 0:
        // the last one written wins.
        for (int t = 0; t < (type == IMB_LUT_RGB ? 3 : 1); ++t)
        {
            const std::vector<double> got = track(back, t), want = track(lut, type == IMB_LUT_R ? 2 : t);
            ASSERT_EQ(got.size(), want.size());
            for (std::size_t i = 0; i < got.size(); ++i)
                EXPECT_EQ(got[i], throughG(want[i])) << type << " track " << t << " sample " << i;
        }
    }
}

TEST(LookupTextRoundTrip, CubeWithPreTableComesBack)
{
    IMB_Lookup pre, back;
    pre.setType(IMB_LUT_3D_1D);
    pre.setTableSize(3);
    pre.set3DLUT(4, mixingCube(4).data());
    pre.getRawLUT(T(32))[1] = 0.125;
    pre.getRawLUT(T(32))[2] = 1.0;
    ASSERT_TRUE(loadText(back, saveText(pre)));
    EXPECT_EQ(describe(back), "type 96 tracks 1x3 cube 4 domain 0 1 range 0 1 points 0 0 bias 0 format any");
    EXPECT_EQ(describeTracks(back), "0 0.125 1");
    for (int i = 0; i < 3 * 125; ++i)
        EXPECT_EQ(back.get3DLUT()[i], float(throughG(pre.get3DLUT()[i]))) << i;
}

TEST(LookupTextReader, OverLongTokenIsCutAndMarkedSoItCannotPassAsANumber)
{
    const std::string digits(5000, '7');
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadText(lut, "Version 1\nType C\nLength 1\nLUT:\nRGB { " + digits + " }\n", &messages));
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
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadText(lut, text + " }\n3D\n", &messages));
    EXPECT_EQ(messages, "Can only have 1 3D LUT\nLUT failed to load: error on line 6\n");
    ASSERT_EQ(lut.get3DSize(), n);
    EXPECT_EQ(cubeAt(lut, n - 1, n - 1, n - 1, 2), float((n * n * n - 1) % 7));
    EXPECT_EQ(cubeAt(lut, 5, 0, 0, 1), 0.5f);
}
