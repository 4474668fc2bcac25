// Raster stream form (binary and uuencoded text), the input stream it reads
// from and the uuencoder, including malformed and hostile input.
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_IStream.h>
#include <IMB/platform/BAS_UUEncode.h>
#include "RasterTestUtil.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace
{
void fillRandom(IMB_Raster &r, unsigned seed)
{
    std::mt19937 rng(seed);
    unsigned char *p = static_cast<unsigned char *>(r.getPixels());
    for (int64 i = 0; i < r.getSize(); ++i)
        p[i] = static_cast<unsigned char>(rng());
}

std::string saved(const IMB_Raster &r, int binary)
{
    std::ostringstream os;
    EXPECT_EQ(r.save(os, binary), 1);
    return os.str();
}

bool loadFrom(IMB_Raster &r, const std::string &bytes, bool binary)
{
    BAS_IStream is(bytes.data(), bytes.size(), binary);
    return r.load(is);
}

// Standard uuencoding of one line, written from the definition.
std::string uuLine(const std::vector<unsigned char> &bytes)
{
    auto ch = [](unsigned v) { return char(v ? v + 32 : '`'); };
    std::string s(1, char(bytes.size() + 32));
    for (size_t i = 0; i < bytes.size(); i += 3)
    {
        unsigned b0 = bytes[i], b1 = i + 1 < bytes.size() ? bytes[i + 1] : 0, b2 = i + 2 < bytes.size() ? bytes[i + 2] : 0;
        unsigned triple = (b0 << 16) | (b1 << 8) | b2;
        for (int k = 3; k >= 0; --k)
            s += ch((triple >> (6 * k)) & 63);
    }
    return s + "\n";
}

std::string binaryHeader(int32 x, int32 y, int32 packing, int32 format)
{
    std::ostringstream os;
    const int32 head[4] = {x, y, packing, format};
    const float points[2] = {0.0f, 1.0f};
    const int32 zero = 0;
    BASwriteBinary(os, head, 4);
    BASwriteBinary(os, points, 2);
    BASwriteBinary(os, &zero, 1);
    return os.str();
}

using StreamCase = std::tuple<IMB_DataFormat, IMB_Packing>;
class RasterStreamRoundTrip : public ::testing::TestWithParam<StreamCase>
{
};

} // namespace

TEST_P(RasterStreamRoundTrip, TextKeepsEveryPlaneAndBinaryTheFirst)
{
    auto [format, packing] = GetParam();
    IMB_Raster r(packing, format, 13, 7);
    fillRandom(r, 17);
    r.setBWPoints(0.125f, 0.75f);

    IMB_Raster text;
    ASSERT_TRUE(loadFrom(text, saved(r, 0), false));
    EXPECT_EQ(text.getFormat(), format);
    EXPECT_EQ(text.getPacking(), packing);
    EXPECT_EQ(text.getXres(), 13);
    EXPECT_EQ(text.getYres(), 7);
    ASSERT_EQ(text.getSize(), r.getSize());
    EXPECT_EQ(std::memcmp(text.getPixels(), r.getPixels(), size_t(r.getSize())), 0);
    float b, w;
    text.getBWPoints(b, w);
    EXPECT_EQ(b, 0.125f);
    EXPECT_EQ(w, 0.75f);

    IMB_Raster bin;
    ASSERT_TRUE(loadFrom(bin, saved(r, 1), true));
    ASSERT_EQ(bin.getSize(), r.getSize());
    const int64 kept = r.getSize() / rastertest::planesOf(packing);
    EXPECT_EQ(std::memcmp(bin.getPixels(), r.getPixels(), size_t(kept)), 0);
    bin.getBWPoints(b, w);
    EXPECT_EQ(b, 0.125f);
    EXPECT_EQ(w, 0.75f);
}

INSTANTIATE_TEST_SUITE_P(FormatsAndPackings, RasterStreamRoundTrip,
                         ::testing::Combine(::testing::Values(IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32,
                                                              IMB_FLOAT16),
                                            ::testing::Values(PACK_SINGLE, PACK_DUAL, PACK_DUAL_NI, PACK_RGB,
                                                              PACK_RGBA, PACK_RGB_NI, PACK_RGBA_NI)),
                         [](const ::testing::TestParamInfo<StreamCase> &info) {
                             return std::string(IMBdataFormat(std::get<0>(info.param))) + "_" +
                                    IMBpacking(std::get<1>(info.param));
                         });

TEST(RasterStream, TextFormIsHeaderUuencodedBlockAndEnd)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 1);
    const unsigned char px[6] = {0, 1, 2, 250, 128, 255};
    std::memcpy(r.getPixels(), px, 6);
    const std::string want = "2 1 3 8 0 1 0\nbegin 0 -\n" + uuLine({0, 1, 2, 250, 128, 255}) + "`\nend\nend\n";
    EXPECT_EQ(saved(r, 0), want);
}

TEST(RasterStream, TextCodesNameEveryPackingAndFormat)
{
    const std::pair<IMB_Packing, const char *> packings[] = {{PACK_SINGLE, "1"}, {PACK_DUAL, "2"},
                                                             {PACK_DUAL_NI, "20"}, {PACK_RGB, "3"},
                                                             {PACK_RGBA, "4"}, {PACK_RGB_NI, "30"},
                                                             {PACK_RGBA_NI, "40"}, {PACK_UV, "0"}};
    const std::pair<IMB_DataFormat, const char *> formats[] = {
        {IMB_INT8, "8"}, {IMB_INT16, "16"}, {IMB_FLOAT16, "17"}, {IMB_INT32, "320"}, {IMB_FLOAT32, "321"}};
    for (auto [p, pc] : packings)
        for (auto [f, fc] : formats)
        {
            IMB_Raster r(p, f, 1, 1, 1);
            std::string head = saved(r, 0);
            head = head.substr(0, head.find('\n'));
            EXPECT_EQ(head, std::string("1 1 ") + pc + " " + fc + " 0 1 0");
        }
}

TEST(RasterStream, BinaryFormIsLittleEndian)
{
    IMB_Raster r(PACK_SINGLE, IMB_INT16, 2, 1);
    const uint16 px[2] = {0x0102, 0xA0B0};
    std::memcpy(r.getPixels(), px, 4);
    r.setBWPoints(0.0f, 1.0f);
    const std::string s = saved(r, 1);
    const unsigned char want[] = {2, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0,
                                  0, 0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0x02, 0x01, 0xB0, 0xA0};
    ASSERT_EQ(s.size(), sizeof want);
    EXPECT_EQ(std::memcmp(s.data(), want, sizeof want), 0);
}

TEST(RasterStream, PackUVSavesButIsRefusedOnLoad)
{
    IMB_Raster uv(PACK_UV, IMB_INT8, 2, 2, 1);
    IMB_Raster back;
    EXPECT_FALSE(loadFrom(back, saved(uv, 1), true));
    EXPECT_FALSE(loadFrom(back, saved(uv, 0), false)); // packing code 0
}

TEST(RasterStream, BinaryHeadersOutsideTheFormAreRefused)
{
    IMB_Raster r;
    const std::string pixels(64, '\x7f');
    EXPECT_FALSE(loadFrom(r, binaryHeader(2, 2, 7, 0) + pixels, true));
    EXPECT_FALSE(loadFrom(r, binaryHeader(2, 2, -1, 0) + pixels, true));
    EXPECT_FALSE(loadFrom(r, binaryHeader(2, 2, 0, 5) + pixels, true));
    EXPECT_FALSE(loadFrom(r, binaryHeader(0, 2, 0, 0) + pixels, true));
    EXPECT_FALSE(loadFrom(r, binaryHeader(2, -3, 0, 0) + pixels, true));
    EXPECT_TRUE(loadFrom(r, binaryHeader(2, 2, 6, 0) + pixels, true));
    // Data one byte short, and a header cut off.
    EXPECT_FALSE(loadFrom(r, binaryHeader(8, 8, 0, 0) + pixels.substr(1), true));
    EXPECT_FALSE(loadFrom(r, binaryHeader(8, 8, 0, 0).substr(0, 27), true));
    EXPECT_FALSE(loadFrom(r, std::string(), true));
}

TEST(RasterStream, AHugeClaimIsRefusedBeforeAllocating)
{
    IMB_Raster r;
    // 2^31-1 squared float RGBA: the byte count overflows 64 bits.
    EXPECT_FALSE(loadFrom(r, binaryHeader(0x7FFFFFFF, 0x7FFFFFFF, 4, 3) + "abcd", true));
    EXPECT_FALSE(r.isValid());
    // 100000 x 100000 8-bit: 10 GB claimed, 4 bytes present.
    EXPECT_FALSE(loadFrom(r, binaryHeader(100000, 100000, 0, 0) + "abcd", true));
    EXPECT_FALSE(r.isValid());
    EXPECT_FALSE(loadFrom(r, "100000 100000 4 321 0 1 0\nbegin 0 -\n`\nend\n", false));
    EXPECT_FALSE(r.isValid());
    EXPECT_FALSE(loadFrom(r, "9223372036854775807 9223372036854775807 4 321 0 1 0\n", false));
    EXPECT_FALSE(loadFrom(r, "99999999999999999999 1 4 321 0 1 0\n", false));
}

TEST(RasterStream, TextHeadersMustBeCompleteWithKnownCodes)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 1, 1);
    std::string body = saved(r, 0);
    body = body.substr(body.find('\n') + 1);
    IMB_Raster back;
    EXPECT_TRUE(loadFrom(back, "2 1 3 8 0 1 0\n" + body, false));
    EXPECT_FALSE(loadFrom(back, "2 1 3 8 0 1\n" + body, false));  // trailing integer missing
    EXPECT_FALSE(loadFrom(back, "2 1 5 8 0 1 0\n" + body, false)); // packing code 5
    EXPECT_FALSE(loadFrom(back, "2 1 3 32 0 1 0\n" + body, false)); // format code 32
    EXPECT_FALSE(loadFrom(back, "2 x 3 8 0 1 0\n" + body, false));
    EXPECT_FALSE(loadFrom(back, "", false));
}

TEST(RasterStream, TextPixelBlocksMustMatchThePixelSize)
{
    IMB_Raster back;
    const std::string head = "2 1 3 8 0 1 0\nbegin 0 -\n";
    EXPECT_TRUE(loadFrom(back, head + uuLine({1, 2, 3, 4, 5, 6}) + "`\nend\n", false));
    EXPECT_FALSE(loadFrom(back, head + uuLine({1, 2, 3, 4, 5}) + "`\nend\n", false));
    EXPECT_FALSE(loadFrom(back, head + uuLine({1, 2, 3, 4, 5, 6, 7}) + "`\nend\n", false));
    EXPECT_FALSE(loadFrom(back, head + uuLine({1, 2, 3, 4, 5, 6}), false)); // no end
}

TEST(RasterStream, SavingARasterWithoutMemoryWritesNothing)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 2, 0, 0);
    std::ostringstream os;
    EXPECT_EQ(r.save(os, 1), 0);
    EXPECT_EQ(r.save(os, 0), 0);
    EXPECT_TRUE(os.str().empty());
}

TEST(RasterStream, LoadingReplacesAnEarlierShapeAndBlock)
{
    IMB_Raster small(PACK_SINGLE, IMB_INT8, 1, 1, 1);
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 50, 50, 1);
    ASSERT_TRUE(loadFrom(r, saved(small, 1), true));
    EXPECT_EQ(r.getPacking(), PACK_SINGLE);
    EXPECT_EQ(r.getSize(), 1);
}

// ---------------------------------------------------------------- uuencoding

TEST(UUEncode, RoundTripsEveryLengthAroundTheLineSize)
{
    for (size_t n : {0, 1, 2, 3, 44, 45, 46, 90, 91, 1000})
    {
        std::vector<unsigned char> data(n);
        for (size_t i = 0; i < n; ++i)
            data[i] = static_cast<unsigned char>(i * 37 + n);
        BAS_IStream in(data.data(), data.size());
        std::ostringstream os;
        ASSERT_EQ(BASuuencode(in, os, "pixels.bin", 0644), 1);
        const std::string text = os.str();
        EXPECT_EQ(text.rfind("begin 644 pixels.bin\n", 0), 0u);
        EXPECT_EQ(text.substr(text.size() - 6), "`\nend\n");
        if (n >= 45)
            EXPECT_EQ(text.substr(21, 62), uuLine(std::vector<unsigned char>(data.begin(), data.begin() + 45)));

        BAS_IStream back(text.data(), text.size(), false);
        std::ostringstream decoded;
        ASSERT_TRUE(BASuudecode(back, decoded)) << n;
        EXPECT_EQ(decoded.str(), std::string(data.begin(), data.end()));
    }
}

TEST(UUEncode, TheClassicExampleEncodesAsExpected)
{
    const char cat[] = "Cat";
    BAS_IStream in(cat, 3);
    std::ostringstream os;
    ASSERT_EQ(BASuuencode(in, os, nullptr, 0), 1);
    EXPECT_EQ(os.str(), "begin 0 -\n#0V%T\n`\nend\n");
}

TEST(UUEncode, DecodingRefusesMalformedLines)
{
    auto decodes = [](const std::string &text) {
        BAS_IStream in(text.data(), text.size(), false);
        unsigned char buf[64];
        return BASuudecode(in, buf, sizeof buf);
    };
    EXPECT_TRUE(decodes("junk before\nbegin 644 x\n#0V%T\n`\nend\n"));
    EXPECT_TRUE(decodes("begin 644 x\r\n#0V%T\r\n \r\nend\r\n")); // CRLF, blank as zero
    EXPECT_FALSE(decodes("#0V%T\n`\nend\n"));                       // no begin
    EXPECT_FALSE(decodes("begin 644 x\nM0V%T\n`\nend\n"));          // length 45, 4 chars
    EXPECT_FALSE(decodes("begin 644 x\n#0V%\n`\nend\n"));           // one char short
    EXPECT_FALSE(decodes("begin 644 x\n#0v%T\n`\nend\n"));          // 'v' is outside the alphabet
    EXPECT_FALSE(decodes("begin 644 x\n\x7f"
                         "0V%T\n`\nend\n"));                         // bad length char
    EXPECT_FALSE(decodes("begin 644 x\n\n`\nend\n"));               // empty data line
    EXPECT_FALSE(decodes("begin 644 x\n#0V%T\n"));                  // no end
    EXPECT_FALSE(decodes("begin 644 x\n#0V%T\n`\nfinish\n"));       // something else after `
}

TEST(UUEncode, DecodingNeverWritesPastTheCapacity)
{
    std::vector<unsigned char> data(100, 0xAB);
    BAS_IStream in(data.data(), data.size());
    std::ostringstream os;
    BASuuencode(in, os, "x", 0);
    const std::string text = os.str();
    unsigned char buf[64 + 8];
    std::memset(buf, 0x11, sizeof buf);
    BAS_IStream back(text.data(), text.size(), false);
    size_t written = 0;
    EXPECT_FALSE(BASuudecode(back, buf, 60, &written));
    EXPECT_EQ(written, 45u); // the first line fitted, the second did not
    for (size_t i = 60; i < sizeof buf; ++i)
        EXPECT_EQ(buf[i], 0x11);
}

// ---------------------------------------------------------------- input stream

TEST(IStream, EverySourceReadsTheSameLinesAndValues)
{
    const std::string text = "first line\r\nsecond\n\nlast without newline";
    char path[] = "/tmp/imb_istream_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    FILE *fp = fdopen(fd, "w+b");
    std::fwrite(text.data(), 1, text.size(), fp);
    std::rewind(fp);
    std::istringstream iss(text);

    BAS_IStream fromMemory(text.data(), text.size(), false), fromStd(iss, false), fromFile(fp, false);
    for (BAS_IStream *s : {&fromMemory, &fromStd, &fromFile})
    {
        EXPECT_FALSE(s->isBinary());
        EXPECT_EQ(s->remaining(), int64(text.size()));
        std::string line;
        ASSERT_TRUE(s->readLine(line));
        EXPECT_EQ(line, "first line");
        ASSERT_TRUE(s->readLine(line));
        EXPECT_EQ(line, "second");
        ASSERT_TRUE(s->readLine(line));
        EXPECT_EQ(line, "");
        ASSERT_TRUE(s->readLine(line));
        EXPECT_EQ(line, "last without newline");
        EXPECT_FALSE(s->readLine(line));
        EXPECT_TRUE(s->atEnd());
    }
    std::fclose(fp);
    std::remove(path);
}

TEST(IStream, BinaryReadersReportShortReads)
{
    std::ostringstream os;
    const int32 i[2] = {-2, 0x01020304};
    const uint16 h[1] = {0xBEEF};
    const uint32 u[1] = {0xDEADBEEF};
    const float f[1] = {-1.5f};
    const uint8 b[3] = {1, 2, 3};
    BASwriteBinary(os, i, 2);
    BASwriteBinary(os, h, 1);
    BASwriteBinary(os, u, 1);
    BASwriteBinary(os, f, 1);
    BASwriteBinary(os, b, 3);
    const std::string bytes = os.str();
    ASSERT_EQ(bytes.size(), 8u + 2 + 4 + 4 + 3);
    EXPECT_EQ(static_cast<unsigned char>(bytes[4]), 0x04); // least significant byte first

    BAS_IStream in(bytes.data(), bytes.size());
    int32 ri[2];
    uint16 rh;
    uint32 ru;
    float rf;
    uint8 rb[4];
    ASSERT_TRUE(in.readBinary(ri, 2));
    ASSERT_TRUE(in.readBinary(&rh, 1));
    ASSERT_TRUE(in.readBinary(&ru, 1));
    ASSERT_TRUE(in.readBinary(&rf, 1));
    EXPECT_EQ(ri[0], -2);
    EXPECT_EQ(ri[1], 0x01020304);
    EXPECT_EQ(rh, 0xBEEF);
    EXPECT_EQ(ru, 0xDEADBEEFu);
    EXPECT_EQ(rf, -1.5f);
    EXPECT_TRUE(in.readBinary(rb, 0));
    EXPECT_FALSE(in.readBinary(rb, 4)); // three left
    EXPECT_EQ(rb[2], 3);
    EXPECT_EQ(in.remaining(), 0);
}

TEST(IStream, APipeCannotTellWhatRemains)
{
    FILE *fp = popen("printf abc", "r");
    ASSERT_NE(fp, nullptr);
    BAS_IStream in(fp);
    EXPECT_EQ(in.remaining(), -1);
    char buf[8];
    EXPECT_EQ(in.read(buf, 8), 3u);
    pclose(fp);
}
