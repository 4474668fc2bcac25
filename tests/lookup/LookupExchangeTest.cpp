// The exchange files (".cube", ".spi1d", ".spi3d", ".3dl", ".csp"): header
// facts, the 3dl options, the readers' answers to malformed files, and the
// writers' refusals. What each table shape becomes after a trip through each
// format, and agreement with OpenColorIO, are in LookupExchangeOCIOTest.cpp.
#include "LookupTestUtil.h"

#include <IMB/platform/BAS_ErrorLog.h>

using namespace lookup_test;

namespace
{
using Format = IMB_Lookup::ExchangeFormat;

// Reads the exchange file `path`; `messages` receives what the reader said.
bool loadFile(IMB_Lookup &lut, const std::string &path, IMB_Lookup::ExchangeHeader *header = nullptr,
              bool headerOnly = false, std::string *messages = nullptr)
{
    FILE *fp = std::fopen(path.c_str(), "r");
    EXPECT_NE(fp, nullptr) << path;
    if (!fp)
        return false;
    BAS_ErrorCapture capture;
    const bool ok = lut.loadExchange(fp, IMB_Lookup::exchangeFormatOf(path.c_str()), headerOnly, header);
    std::fclose(fp);
    if (messages)
        *messages = capture.text();
    return ok;
}

using ExchangeFiles = ScratchDir;

IMB_Lookup rgb() { return table1D(false, 9, -0.5f, 2.0f); }
IMB_Lookup shared() { return table1D(true, 9, 0.0f, 1.0f); }
IMB_Lookup cube5() { return cube3D(5); }
IMB_Lookup rampOver() { return cubeWithPre(5, 2, -1.0f, 3.0f, true); }

TEST_F(ExchangeFiles, ExtensionsAreMatchedWithoutRegardToCase)
{
    EXPECT_EQ(IMB_Lookup::exchangeFormatOf("x/Grade.CUBE"), IMB_Lookup::EXCHANGE_CUBE);
    EXPECT_EQ(IMB_Lookup::exchangeFormatOf("a.Spi3D"), IMB_Lookup::EXCHANGE_SPI3D);
    EXPECT_EQ(IMB_Lookup::exchangeFormatOf("a.cube.gz"), IMB_Lookup::EXCHANGE_NONE);
    EXPECT_EQ(IMB_Lookup::exchangeFormatOf("dir.3dl/file"), IMB_Lookup::EXCHANGE_NONE);
    EXPECT_EQ(IMB_Lookup::exchangeFormatOf("a.lut"), IMB_Lookup::EXCHANGE_NONE);
    ASSERT_TRUE(cube3D(3).save(path("UP.CUBE").c_str(), false));
    EXPECT_EQ(readFile(path("UP.CUBE")).rfind("LUT_3D_SIZE 3\n", 0), 0u);
    IMB_Lookup back;
    EXPECT_TRUE(back.load(path("UP.CUBE").c_str(), false));
    EXPECT_EQ(back.get3DSize(), 3);
}

TEST_F(ExchangeFiles, ReadersTakeCarriageReturnsAndAByteOrderMark)
{
    writeFile(path("crlf.cube"), "\xEF\xBB\xBFTITLE \"t\"\r\nLUT_1D_SIZE 2\r\n0 0 0\r\n1 0.5 1");
    IMB_Lookup lut;
    std::string messages;
    EXPECT_TRUE(loadFile(lut, path("crlf.cube"), nullptr, false, &messages)) << messages;
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB);
    EXPECT_EQ(track(lut, 1), (std::vector<double>{0.0, 0.5}));
}

// The facts as "size1D size3D shaperPoints inBits outBits domain title".
TEST(ExchangeHeaders, ReportTheirFactsAndLeaveTheTableEmpty)
{
    const char *const cases[][2] = {
        {"exchange/title_domain.cube", "5 0 0 0 0 0 2 three curves"},
        {"exchange/shaper_range.cube", "4 2 0 0 0 0 4 "},
        {"exchange/one_component.spi1d", "4 0 0 0 0 -0.5 1.5 "},
        {"exchange/uneven_mesh.3dl", "0 4 4 10 12 0 1 "},
        {"baked/graded_lustre.3dl", "0 9 9 10 12 0 1 "},
        {"exchange/three_point.csp", "0 2 3 0 0 0 2 a curved shaper"},
    };
    for (const auto &c : cases)
    {
        IMB_Lookup lut;
        IMB_Lookup::ExchangeHeader h;
        EXPECT_TRUE(loadFile(lut, dataPath(c[0]), &h, true)) << c[0];
        std::ostringstream facts;
        facts << h.size1D << ' ' << h.size3D << ' ' << h.shaperPoints << ' ' << h.inBits << ' ' << h.outBits << ' '
              << h.domainMin[2] << ' ' << h.domainMax[2] << ' ' << h.title;
        EXPECT_EQ(facts.str(), c[1]);
        EXPECT_FALSE(lut.isValid()) << c[0];
    }
}

// tests/data/lookup/cases/exchange_reader.tsv: format, line, part of the
// message, file.
TEST(ExchangeBadFiles, AreRefusedWithTheLineAndLeaveNoTable)
{
    const auto cases = readCases("exchange_reader.tsv");
    EXPECT_GE(cases.size(), 35u);
    for (const auto &c : cases)
    {
        ASSERT_EQ(c.size(), 4u) << c[0];
        std::string text = c[3];
        FILE *fp = fmemopen(text.data(), text.size(), "r");
        ASSERT_NE(fp, nullptr);
        IMB_Lookup lut = cube3D(3); // replaced, whatever happens
        BAS_ErrorCapture capture;
        EXPECT_FALSE(lut.loadExchange(fp, IMB_Lookup::exchangeFormatOf(("a." + c[0]).c_str()), false)) << text;
        std::fclose(fp);
        EXPECT_NE(capture.text().find("line " + c[1] + ":"), std::string::npos) << capture.text();
        EXPECT_NE(capture.text().find(c[2]), std::string::npos) << capture.text();
        EXPECT_FALSE(lut.isValid()) << text;
    }
}

TEST_F(ExchangeFiles, WritersRefuseWhatTheirFormCannotHoldSayingWhyAndWriteNothing)
{
    const struct
    {
        const char *file;
        IMB_Lookup (*make)();
        const char *saying;
    } cases[] = {
        {"a.cube", [] { IMB_Lookup l = table1D(true, 9, 0.01f, 1.0f); l.setLogSampling(true); return l; },
         "logarithmically"},
        {"a.csp", [] { IMB_Lookup l = shared(); l.setRange(0.0f, 1023.0f); return l; }, "output range is 0 to 1023"},
        {"a.spi1d", [] { IMB_Lookup l = shared(); l.setType(IMB_LUT_ALL); return l; }, "alpha"},
        {"a.cube", [] { IMB_Lookup l = shared(); l.setType(IMB_LUT_R); return l; }, "one channel"},
        {"a.cube", [] { return IMB_Lookup(); }, "empty"},
        {"a.spi3d", rgb, "1D table"},
        {"a.3dl", rgb, "1D table"},
        {"a.spi1d", cube5, "is a cube"},
        {"a.spi3d", [] { return cubeWithPre(5, 7, 0.0f, 4.0f, false); }, "neither a domain nor a pre-table"},
        {"a.spi3d", rampOver, "neither a domain nor a pre-table"},
        {"a.3dl", rampOver, "no domain"},
        {"a.3dl", [] { return cubeWithPre(5, 7, 0.0f, 1.0f, false); }, "one per cube edge"},
        {"a.cube", [] { IMB_Lookup l = cube3D(3); l.setDomain(0.0f, 2.0f); return l; }, "not used"},
        {"a.3dl",
         [] { std::vector<float> v = mixingCube(3); v[5] = 1.5f; IMB_Lookup l; l.set3DLUT(3, v.data()); return l; },
         "outside 0 to 1"},
    };
    for (const auto &c : cases)
    {
        BAS_ErrorCapture capture;
        EXPECT_FALSE(c.make().save(path(c.file).c_str(), false)) << c.saying;
        EXPECT_NE(capture.text().find(c.saying), std::string::npos) << capture.text();
        EXPECT_FALSE(exists(path(c.file))) << c.saying;
    }
}

// (The row order and the 16-bit form are checked against OpenColorIO.)
TEST_F(ExchangeFiles, ThreeDLFloatFormKeepsValuesAndDepthsAreTheOnesReadersInfer)
{
    const std::vector<float> cube = mixingCube(2);
    IMB_Lookup::ExchangeOptions options;
    options.floatForm = true;
    ASSERT_TRUE(cube3D(2).save(path("f.3dl").c_str(), options));
    IMB_Lookup back;
    IMB_Lookup::ExchangeHeader h;
    ASSERT_TRUE(loadFile(back, path("f.3dl"), &h));
    EXPECT_TRUE(h.floatForm);
    std::vector<float> got(cube.size());
    back.copy3DLUT(got.data());
    EXPECT_EQ(got, cube);

    // Readers take the depth from the largest value: a dark cube written at
    // 16 bits would read back as 8, so only 8 bits (or floats) will do.
    std::vector<float> rgb = mixingCube(3);
    for (float &v : rgb)
        v *= 0.05f;
    IMB_Lookup dark;
    dark.set3DLUT(3, rgb.data());
    {
        BAS_ErrorCapture capture;
        EXPECT_FALSE(dark.save(path("dark.3dl").c_str(), false));
        EXPECT_NE(capture.text().find("too small"), std::string::npos);
    }
    IMB_Lookup::ExchangeOptions eight;
    eight.outBits = 8;
    ASSERT_TRUE(dark.save(path("dark.3dl").c_str(), eight));
    ASSERT_TRUE(loadFile(back, path("dark.3dl"), &h));
    EXPECT_EQ(h.outBits, 8);
    got.resize(rgb.size());
    back.copy3DLUT(got.data());
    for (std::size_t i = 0; i < rgb.size(); ++i)
        EXPECT_NEAR(got[i], rgb[i], 0.5 / 255 + 1e-7);
}
} // namespace
