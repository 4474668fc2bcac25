// The exchange files (".cube", ".spi1d", ".spi3d", ".3dl", ".csp"): what
// each table shape becomes after a trip through each format, header facts,
// the readers' answers to malformed files, and the writers' refusals.
// Agreement with OpenColorIO is in LookupExchangeOCIOTest.cpp.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <gtest/gtest.h>

#include "LookupExchangeTables.h"
#include "LookupTestUtil.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

using namespace exchange_test;
using lookup_test::readFile;
using lookup_test::track;

namespace
{
using Format = IMB_Lookup::ExchangeFormat;

// Loads `text` as `format`; `messages` receives what the reader said.
bool loadText(IMB_Lookup &lut, Format format, const std::string &text, std::string &messages,
              IMB_Lookup::ExchangeHeader *header = nullptr, bool headerOnly = false)
{
    FILE *fp = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    if (!fp)
        return false;
    BAS_ErrorCapture capture;
    const bool ok = lut.loadExchange(fp, format, headerOnly, header);
    std::fclose(fp);
    messages = capture.text();
    return ok;
}

class ExchangeFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "imb_lut_exchange_unit_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        myDir = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + myDir + "'").c_str()); }
    std::string path(const std::string &name) const { return myDir + "/" + name; }
    std::string myDir;
};

// ---------------------------------------------------------------- shapes

struct ShapeCase
{
    const char *file;
    IMB_Lookup (*make)();
    IMB_LookupType type; // after loading back
    int size1D, size3D;
    float dmin, dmax;
};

IMB_Lookup rgb() { return table1D(false, 9, -0.5f, 2.0f); }
IMB_Lookup shared() { return table1D(true, 9, 0.0f, 1.0f); }
IMB_Lookup cube5() { return cube3D(5); }
IMB_Lookup curvedPre() { return cubeWithPre(5, 7, 0.0f, 4.0f, false); }
IMB_Lookup rampOver() { return cubeWithPre(5, 2, -1.0f, 3.0f, true); }
IMB_Lookup rampOver01() { return cubeWithPre(5, 9, 0.0f, 1.0f, true); }
IMB_Lookup meshPre() { return cubeWithPre(5, 5, 0.0f, 1.0f, false); }
IMB_Lookup longPre01() { return cubeWithPre(5, 7, 0.0f, 1.0f, false); }

const ShapeCase theShapes[] = {
    {"a.cube", rgb, IMB_LUT_RGB, 9, 0, -0.5f, 2.0f},
    {"a.cube", shared, IMB_LUT_C, 9, 0, 0.0f, 1.0f},
    {"a.cube", cube5, IMB_LUT_3D, 0, 5, 0.0f, 1.0f},
    {"a.cube", curvedPre, IMB_LUT_3D_1D, 7, 5, 0.0f, 4.0f},
    {"a.cube", rampOver, IMB_LUT_3D_1D, 2, 5, -1.0f, 3.0f},
    // A straight pre-table over 0-1 is no pre-table at all.
    {"a.cube", rampOver01, IMB_LUT_3D, 0, 5, 0.0f, 1.0f},
    {"a.spi1d", rgb, IMB_LUT_RGB, 9, 0, -0.5f, 2.0f},
    {"a.spi1d", shared, IMB_LUT_C, 9, 0, 0.0f, 1.0f},
    {"a.spi3d", cube5, IMB_LUT_3D, 0, 5, 0.0f, 1.0f},
    {"a.3dl", cube5, IMB_LUT_3D, 0, 5, 0.0f, 1.0f},
    {"a.3dl", meshPre, IMB_LUT_3D_1D, 5, 5, 0.0f, 1.0f},
    {"a.csp", rgb, IMB_LUT_RGB, 9, 0, -0.5f, 2.0f},
    {"a.csp", cube5, IMB_LUT_3D, 0, 5, 0.0f, 1.0f},
    {"a.csp", rampOver, IMB_LUT_3D_1D, 2, 5, -1.0f, 3.0f},
    // A curved pre-table comes back as the shaper's 65536-sample resampling.
    {"a.csp", curvedPre, IMB_LUT_3D_1D, 65536, 5, 0.0f, 4.0f},
};

class ExchangeShapes : public ExchangeFiles, public testing::WithParamInterface<ShapeCase>
{
};

TEST_P(ExchangeShapes, KeepTypeSizesDomainAndSamples)
{
    const ShapeCase &c = GetParam();
    const IMB_Lookup original = c.make();
    ASSERT_TRUE(original.save(path(c.file).c_str(), false));
    IMB_Lookup back;
    ASSERT_TRUE(back.load(path(c.file).c_str(), false));
    EXPECT_EQ(back.getType(), c.type);
    if (c.size1D)
        EXPECT_EQ(back.getTableSize(), c.size1D);
    EXPECT_EQ(back.get3DSize(), c.size3D);
    float lo, hi;
    back.getDomain(lo, hi);
    EXPECT_EQ(lo, c.dmin);
    EXPECT_EQ(hi, c.dmax);
    // The 3dl integer form holds 16-bit outputs and a 10-bit mesh.
    const bool integer3dl = std::string(c.file) == "a.3dl";
    const double tolerance = integer3dl ? 0.5 / 1023 : 1e-6;
    if (c.type == IMB_LUT_RGB || c.type == IMB_LUT_C)
        for (int t = 0; t < (c.type == IMB_LUT_C ? 1 : 3); ++t)
        {
            const std::vector<double> a = track(original, t), b = track(back, t);
            ASSERT_EQ(a.size(), b.size());
            for (std::size_t i = 0; i < a.size(); ++i)
                EXPECT_NEAR(a[i], b[i], tolerance) << t << " " << i;
        }
    if (c.size3D)
    {
        const std::vector<float> want = mixingCube(c.size3D);
        std::vector<float> got(want.size());
        back.copy3DLUT(got.data());
        for (std::size_t i = 0; i < want.size(); ++i)
            ASSERT_NEAR(got[i], want[i], integer3dl ? 0.5 / 65535 + 1e-7 : 0.0) << i;
    }
    if (c.type == IMB_LUT_3D_1D && c.size1D == original.getTableSize())
    {
        const std::vector<double> a = track(original, 0), b = track(back, 0);
        for (std::size_t i = 0; i < a.size(); ++i)
            EXPECT_NEAR(a[i], b[i], tolerance) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, ExchangeShapes, testing::ValuesIn(theShapes));

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

TEST_F(ExchangeFiles, ThreeDLRowsRunBlueFastestAndTheFloatFormKeepsValues)
{
    IMB_Lookup lut = cube3D(2);
    ASSERT_TRUE(lut.save(path("a.3dl").c_str(), false));
    const std::vector<float> cube = mixingCube(2);
    // Row 2 is the sample red 0, green 0, blue 1 (index 4 red fastest).
    const std::string text = readFile(path("a.3dl"));
    const std::size_t row2 = text.find('\n', text.find('\n') + 1) + 1;
    auto q = [](float v) { return std::to_string(std::lround(v * 65535.0)); };
    EXPECT_EQ(text.substr(row2, text.find('\n', row2) - row2), q(cube[12]) + " " + q(cube[13]) + " " + q(cube[14]));

    IMB_Lookup::ExchangeOptions options;
    options.floatForm = true;
    ASSERT_TRUE(lut.save(path("f.3dl").c_str(), options));
    IMB_Lookup back;
    IMB_Lookup::ExchangeHeader header;
    FILE *fp = std::fopen(path("f.3dl").c_str(), "r");
    ASSERT_TRUE(back.loadExchange(fp, IMB_Lookup::EXCHANGE_3DL, false, &header));
    std::fclose(fp);
    EXPECT_TRUE(header.floatForm);
    std::vector<float> got(cube.size());
    back.copy3DLUT(got.data());
    EXPECT_EQ(got, cube);
}

TEST_F(ExchangeFiles, ReadersTakeCarriageReturnsAndAByteOrderMark)
{
    IMB_Lookup lut;
    std::string messages;
    EXPECT_TRUE(loadText(lut, IMB_Lookup::EXCHANGE_CUBE,
                         "\xEF\xBB\xBFTITLE \"t\"\r\nLUT_1D_SIZE 2\r\n0 0 0\r\n1 0.5 1", messages))
        << messages;
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB);
    EXPECT_EQ(track(lut, 1), (std::vector<double>{0.0, 0.5}));
}

TEST_F(ExchangeFiles, HeadersReportTheirFactsAndLeaveTheTableEmpty)
{
    struct Case
    {
        const char *file;
        int size1D, size3D, shaperPoints, inBits, outBits;
        float dmin, dmax;
        const char *title;
    };
    const Case cases[] = {
        {"exchange/title_domain.cube", 5, 0, 0, 0, 0, 0.0f, 2.0f, "three curves"},
        {"exchange/shaper_range.cube", 4, 2, 0, 0, 0, 0.0f, 4.0f, ""},
        {"exchange/one_component.spi1d", 4, 0, 0, 0, 0, -0.5f, 1.5f, ""},
        {"exchange/uneven_mesh.3dl", 0, 4, 4, 10, 12, 0.0f, 1.0f, ""},
        {"baked/graded_lustre.3dl", 0, 9, 9, 10, 12, 0.0f, 1.0f, ""},
        {"exchange/three_point.csp", 0, 2, 3, 0, 0, 0.0f, 2.0f, "a curved shaper"},
    };
    for (const Case &c : cases)
    {
        const std::string file = std::string(IMB_TEST_DATA_DIR) + "/lookup/" + c.file;
        FILE *fp = std::fopen(file.c_str(), "r");
        ASSERT_NE(fp, nullptr) << file;
        IMB_Lookup lut;
        IMB_Lookup::ExchangeHeader h;
        EXPECT_TRUE(lut.loadExchange(fp, IMB_Lookup::exchangeFormatOf(c.file), true, &h)) << c.file;
        std::fclose(fp);
        EXPECT_EQ(h.size1D, c.size1D) << c.file;
        EXPECT_EQ(h.size3D, c.size3D) << c.file;
        EXPECT_EQ(h.shaperPoints, c.shaperPoints) << c.file;
        EXPECT_EQ(h.inBits, c.inBits) << c.file;
        EXPECT_EQ(h.outBits, c.outBits) << c.file;
        EXPECT_EQ(h.domainMin[2], c.dmin) << c.file;
        EXPECT_EQ(h.domainMax[2], c.dmax) << c.file;
        EXPECT_EQ(h.title, c.title) << c.file;
        EXPECT_FALSE(lut.isValid()) << c.file;
    }
}

// ---------------------------------------------------------------- malformed files

struct BadCase
{
    Format format;
    const char *text;
    int line;           // the line the message names
    const char *saying; // part of the message
};

const BadCase theBadFiles[] = {
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_3D_SIZE 2\nLUT_2D_SIZE 4\n", 2, "unknown keyword"},
    // Sizes beyond the model are refused on their line, before any row.
    {IMB_Lookup::EXCHANGE_CUBE, "# big\nLUT_3D_SIZE 257\n0 0 0\n", 2, "from 2 to 256"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 65537\n", 1, "from 2 to 65536"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 2\n0 0 0\n1 1\n", 3, "three finite numbers"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 2\n0 0 0\n1 nan 1\n", 3, "three finite numbers"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n1 1 1\n", 4, "more rows"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 3\n0 0 0\n\n1 1 1\n", 4, "ends after 2 of its 3 rows"},
    {IMB_Lookup::EXCHANGE_CUBE, "0 0 0\n", 1, "no LUT_1D_SIZE"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 2\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 0 1\n0 0 0\n1 1 1\n", 3,
     "below its DOMAIN_MAX"},
    {IMB_Lookup::EXCHANGE_CUBE, "LUT_1D_SIZE 2\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 2 1\n0 0 0\n1 1 1\n", 5,
     "domain differs between channels"},
    {IMB_Lookup::EXCHANGE_CUBE,
     "LUT_1D_SIZE 2\nLUT_3D_SIZE 2\n0 0 0\n1 0.5 1\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n",
     12, "differs between channels"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 2\n", 1, "Version 1"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 1\nLength 2\nComponents 2\n{\n", 3, "1 or 3"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 1\nLength 70000\n", 2, "from 2 to 65536"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 1\nLength 2\n{\n0\n1 2\n}\n", 5, "1 finite number"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 1\nLength 2\n{\n0\n1\n", 5, "closing"},
    {IMB_Lookup::EXCHANGE_SPI1D, "Version 1\nFrom 1 0\n", 2, "first below the second"},
    {IMB_Lookup::EXCHANGE_SPI3D, "SPILUT 1.0\n3 3\n2 2 3\n", 3, "one edge length"},
    {IMB_Lookup::EXCHANGE_SPI3D, "SPILUT 1.0\n3 3\n300 300 300\n", 3, "from 2 to 256"},
    {IMB_Lookup::EXCHANGE_SPI3D, "SPILUT 1.0\n3 3\n2 2 2\n0 0 2 0 0 0\n", 4, "indices from 0 to 1"},
    {IMB_Lookup::EXCHANGE_SPI3D, "SPILUT 1.0\n3 3\n2 2 2\n0 0 0 0 0 0\n0 0 0 1 1 1\n", 5, "given twice"},
    {IMB_Lookup::EXCHANGE_SPI3D, "SPILUT 1.0\n3 3\n2 2 2\n0 0 0 0 0 0\n", 4, "ends before"},
    {IMB_Lookup::EXCHANGE_3DL, "0\n", 1, "mesh line"},
    {IMB_Lookup::EXCHANGE_3DL, "0 1023\n0 0 0\n0 0 1\n", 3, "do not make a cube"},
    {IMB_Lookup::EXCHANGE_3DL, "0 1023\n0 0 0\n0 0 x\n", 3, "three finite numbers"},
    {IMB_Lookup::EXCHANGE_3DL, "0 1023\n0 0 70000\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n", 9,
     "exceeds 65535"},
    {IMB_Lookup::EXCHANGE_3DL, "3DMESH\nMesh 1 11\n", 2, "8, 10, 12 or 16"},
    {IMB_Lookup::EXCHANGE_3DL, "0 1023\nLUT8\n", 2, "unexpected"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n2D\n", 2, "\"1D\" or \"3D\""},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n3D\n2\n1 0\n0 1\n", 5, "rise"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n3D\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 2\n0 1\n", 11,
     "shaper differs between channels"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n3D\nBEGIN METADATA\n", 3, "END METADATA"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n3D\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 1\n0 1\n9 9 300\n", 12,
     "from 2 to 256"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n1D\n3\n0 1 2\n0 0.5 1\n3\n0 1 2\n0 0.5 1\n3\n0 1 2\n0 0.5 1\n2\n0 0 0\n1 1 1\n",
     12, "no pre-table before a 1D table"},
    {IMB_Lookup::EXCHANGE_CSP, "CSPLUTV100\n1D\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 0 0\n1 1 1\nextra\n", 15,
     "unexpected 'extra'"},
};

class ExchangeBadFiles : public testing::TestWithParam<BadCase>
{
};

TEST_P(ExchangeBadFiles, AreRefusedWithTheLineAndLeaveNoTable)
{
    const BadCase &c = GetParam();
    IMB_Lookup lut = cube3D(3); // replaced, whatever happens
    std::string messages;
    EXPECT_FALSE(loadText(lut, c.format, c.text, messages)) << c.text;
    EXPECT_NE(messages.find("line " + std::to_string(c.line) + ":"), std::string::npos) << messages;
    EXPECT_NE(messages.find(c.saying), std::string::npos) << messages;
    EXPECT_FALSE(lut.isValid());
}

INSTANTIATE_TEST_SUITE_P(Readers, ExchangeBadFiles, testing::ValuesIn(theBadFiles));

// ---------------------------------------------------------------- refusals

IMB_Lookup logSampled()
{
    IMB_Lookup lut = table1D(true, 9, 0.01f, 1.0f);
    lut.setLogSampling(true);
    return lut;
}
IMB_Lookup withRange()
{
    IMB_Lookup lut = table1D(true, 9, 0.0f, 1.0f);
    lut.setRange(0.0f, 1023.0f);
    return lut;
}
IMB_Lookup sharedWithAlpha()
{
    IMB_Lookup lut = table1D(true, 9, 0.0f, 1.0f);
    lut.setType(IMB_LUT_ALL);
    return lut;
}
IMB_Lookup redOnly()
{
    IMB_Lookup lut = table1D(true, 9, 0.0f, 1.0f);
    lut.setType(IMB_LUT_R);
    return lut;
}
IMB_Lookup cubeWithUnusedDomain()
{
    IMB_Lookup lut = cube3D(3);
    lut.setDomain(0.0f, 2.0f);
    return lut;
}
IMB_Lookup brightCube()
{
    std::vector<float> rgb = mixingCube(3);
    rgb[5] = 1.5f;
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D);
    lut.set3DLUT(3, rgb.data());
    return lut;
}
IMB_Lookup empty() { return IMB_Lookup(); }

struct RefusalCase
{
    const char *file;
    IMB_Lookup (*make)();
    const char *saying;
};

const RefusalCase theRefusals[] = {
    {"a.cube", logSampled, "logarithmically"},
    {"a.csp", withRange, "output range is 0 to 1023"},
    {"a.spi1d", sharedWithAlpha, "alpha"},
    {"a.cube", redOnly, "one channel"},
    {"a.cube", empty, "empty"},
    {"a.spi3d", rgb, "1D table"},
    {"a.3dl", rgb, "1D table"},
    {"a.spi1d", cube5, "is a cube"},
    {"a.spi3d", curvedPre, "neither a domain nor a pre-table"},
    {"a.spi3d", rampOver, "neither a domain nor a pre-table"},
    {"a.3dl", rampOver, "no domain"},
    {"a.3dl", longPre01, "one per cube edge"},
    {"a.cube", cubeWithUnusedDomain, "not used"},
    {"a.3dl", brightCube, "outside 0 to 1"},
};

class ExchangeRefusals : public ExchangeFiles, public testing::WithParamInterface<RefusalCase>
{
};

TEST_P(ExchangeRefusals, SayWhyAndWriteNothing)
{
    const RefusalCase &c = GetParam();
    BAS_ErrorCapture capture;
    EXPECT_FALSE(c.make().save(path(c.file).c_str(), false));
    EXPECT_NE(capture.text().find(c.saying), std::string::npos) << capture.text();
    EXPECT_NE(access(path(c.file).c_str(), F_OK), 0);
}

INSTANTIATE_TEST_SUITE_P(Writers, ExchangeRefusals, testing::ValuesIn(theRefusals));

TEST_F(ExchangeFiles, ThreeDLDepthsAreTheOnesReadersInfer)
{
    // Readers take the depth from the largest value: a dark cube written at
    // 16 bits would read back as 8, so only 8 bits (or floats) will do.
    std::vector<float> rgb = mixingCube(3);
    for (float &v : rgb)
        v *= 0.05f;
    IMB_Lookup dark;
    dark.setType(IMB_LUT_3D);
    dark.set3DLUT(3, rgb.data());
    {
        BAS_ErrorCapture capture;
        EXPECT_FALSE(dark.save(path("dark.3dl").c_str(), false));
        EXPECT_NE(capture.text().find("too small"), std::string::npos);
    }
    IMB_Lookup::ExchangeOptions eight;
    eight.outBits = 8;
    ASSERT_TRUE(dark.save(path("dark.3dl").c_str(), eight));
    IMB_Lookup back;
    IMB_Lookup::ExchangeHeader h;
    FILE *fp = std::fopen(path("dark.3dl").c_str(), "r");
    ASSERT_TRUE(back.loadExchange(fp, IMB_Lookup::EXCHANGE_3DL, false, &h));
    std::fclose(fp);
    EXPECT_EQ(h.outBits, 8);
    std::vector<float> got(rgb.size());
    back.copy3DLUT(got.data());
    for (std::size_t i = 0; i < rgb.size(); ++i)
        EXPECT_NEAR(got[i], rgb[i], 0.5 / 255 + 1e-7);
}
} // namespace
