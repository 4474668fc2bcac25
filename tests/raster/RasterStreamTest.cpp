// Raster stream form (binary and uuencoded text), the input stream it reads
// from and the uuencoder, including malformed and hostile input.
#include <IMB/platform/BAS_IStream.h>
#include <IMB/platform/BAS_UUEncode.h>
#include "RasterTestUtil.h"

#include <cstdio>
#include <sstream>

using namespace rastertest;

namespace
{
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
    const int32 head[7] = {x, y, packing, format, 0, 0x3F800000, 0}; // black 0.0f, white 1.0f
    BASwriteBinary(os, head, 7);
    return os.str();
}

RASTER_SHAPE_SUITE(RasterStreamRoundTrip);
} // namespace

TEST_P(RasterStreamRoundTrip, TextKeepsEveryPlaneAndBinaryTheFirst)
{
    // PACK_UV saves but has no code to load by.
    auto [packing, format] = GetParam();
    IMB_Raster r = numbered(packing, format, 13, 7, 17);
    r.setBWPoints(0.125f, 0.75f);
    for (int binary : {0, 1})
    {
        IMB_Raster back;
        ASSERT_EQ(loadFrom(back, saved(r, binary), binary), packing != PACK_UV);
        if (packing == PACK_UV)
            continue;
        EXPECT_EQ(std::make_tuple(back.getFormat(), back.getPacking(), back.getXres(), back.getYres()),
                  std::make_tuple(format, packing, int64(13), int64(7)));
        ASSERT_EQ(back.getSize(), r.getSize());
        const int64 kept = binary ? r.getSize() / planesOf(packing) : r.getSize();
        EXPECT_EQ(std::memcmp(back.getPixels(), r.getPixels(), size_t(kept)), 0);
        float b, w;
        back.getBWPoints(b, w);
        EXPECT_TRUE(b == 0.125f && w == 0.75f);
    }
}

TEST(RasterStream, TextFormIsHeaderWithCodesUuencodedBlockAndEnd)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 1);
    const unsigned char px[6] = {0, 1, 2, 250, 128, 255};
    std::memcpy(r.getPixels(), px, 6);
    EXPECT_EQ(saved(r, 0), "2 1 3 8 0 1 0\nbegin 0 -\n" + uuLine({0, 1, 2, 250, 128, 255}) + "`\nend\nend\n");
    const std::pair<IMB_Packing, const char *> packings[] = {{PACK_SINGLE, "1"}, {PACK_DUAL, "2"}, {PACK_DUAL_NI, "20"},
                                                             {PACK_RGB, "3"},    {PACK_RGBA, "4"}, {PACK_RGB_NI, "30"},
                                                             {PACK_RGBA_NI, "40"}, {PACK_UV, "0"}};
    const std::pair<IMB_DataFormat, const char *> formats[] = {
        {IMB_INT8, "8"}, {IMB_INT16, "16"}, {IMB_FLOAT16, "17"}, {IMB_INT32, "320"}, {IMB_FLOAT32, "321"}};
    for (auto [p, pc] : packings)
        for (auto [f, fc] : formats)
        {
            const std::string head = saved(IMB_Raster(p, f, 1, 1, 1), 0);
            EXPECT_EQ(head.substr(0, head.find('\n')), std::string("1 1 ") + pc + " " + fc + " 0 1 0");
        }
}

TEST(RasterStream, BinaryFormIsLittleEndian)
{
    IMB_Raster r(PACK_SINGLE, IMB_INT16, 2, 1);
    const uint16 px[2] = {0x0102, 0xA0B0};
    std::memcpy(r.getPixels(), px, 4);
    const unsigned char want[] = {2, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0,    0,    0,    0,
                                  0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0x02, 0x01, 0xB0, 0xA0};
    EXPECT_EQ(saved(r, 1), std::string(reinterpret_cast<const char *>(want), sizeof want));
}

TEST(RasterStream, MalformedShortAndHugeStreamsAreRefusedBeforeAllocating)
{
    const std::string pixels(64, '\x7f'), text = "2 1 3 8 0 1 0\nbegin 0 -\n", rgb = uuLine({1, 2, 3, 4, 5, 6});
    const std::string body = "begin 0 -\n" + rgb + "`\nend\n";
    const std::tuple<bool, std::string, int> cases[] = {
        {true, binaryHeader(2, 2, 6, 0) + pixels, 1},
        {true, binaryHeader(2, 2, 7, 0) + pixels, 0}, // PACK_UV and above
        {true, binaryHeader(2, 2, -1, 0) + pixels, 0}, {true, binaryHeader(2, 2, 0, 5) + pixels, 0},
        {true, binaryHeader(0, 2, 0, 0) + pixels, 0},  {true, binaryHeader(2, -3, 0, 0) + pixels, 0},
        {true, binaryHeader(8, 8, 0, 0) + pixels.substr(1), 0}, // one byte short
        {true, binaryHeader(8, 8, 0, 0).substr(0, 27), 0},      // header cut off
        {true, "", 0},
        {true, binaryHeader(0x7FFFFFFF, 0x7FFFFFFF, 4, 3) + "abcd", -1}, // bytes overflow 64 bits
        {true, binaryHeader(100000, 100000, 0, 0) + "abcd", -1},         // 10 GB claimed
        {false, text + rgb + "`\nend\n", 1},
        {false, "2 1 3 8 0 1\n" + body, 0}, // trailing integer missing
        {false, "2 1 5 8 0 1 0\n" + body, 0}, {false, "2 1 3 32 0 1 0\n" + body, 0},
        {false, "2 x 3 8 0 1 0\n" + body, 0}, {false, "", 0},
        {false, text + uuLine({1, 2, 3, 4, 5}) + "`\nend\n", 0}, // block not the pixel size
        {false, text + uuLine({1, 2, 3, 4, 5, 6, 7}) + "`\nend\n", 0},
        {false, text + rgb, 0}, // no end
        {false, "100000 100000 4 321 0 1 0\n" + body, -1},
        {false, "9223372036854775807 9223372036854775807 4 321 0 1 0\n", -1},
        {false, "99999999999999999999 1 4 321 0 1 0\n", -1}};
    for (const auto &[binary, bytes, result] : cases) // 1 loads, 0 is refused, -1 before allocating
    {
        IMB_Raster r;
        EXPECT_EQ(loadFrom(r, bytes, binary), result == 1) << bytes;
        EXPECT_TRUE(result >= 0 || !r.isValid()) << bytes;
    }
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 50, 50, 1); // a load replaces the earlier shape and block
    ASSERT_TRUE(loadFrom(r, saved(IMB_Raster(PACK_SINGLE, IMB_INT8, 1, 1, 1), 1), true));
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
    BAS_IStream cat("Cat", 3);
    std::ostringstream os;
    ASSERT_EQ(BASuuencode(cat, os, nullptr, 0), 1);
    EXPECT_EQ(os.str(), "begin 0 -\n#0V%T\n`\nend\n");
}

TEST(UUEncode, DecodingRefusesMalformedLinesAndNeverWritesPastTheCapacity)
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
    EXPECT_EQ(std::vector<unsigned char>(buf + 60, buf + sizeof buf), std::vector<unsigned char>(12, 0x11));
}

// ---------------------------------------------------------------- input stream

TEST(IStream, EverySourceReadsTheSameLinesAndAPipeCannotTellWhatRemains)
{
    const std::string text = "first line\r\nsecond\n\nlast without newline";
    FILE *fp = std::tmpfile();
    ASSERT_NE(fp, nullptr);
    std::fwrite(text.data(), 1, text.size(), fp);
    std::rewind(fp);
    std::istringstream iss(text);
    BAS_IStream fromMemory(text.data(), text.size(), false), fromStd(iss, false), fromFile(fp, false);
    for (BAS_IStream *s : {&fromMemory, &fromStd, &fromFile})
    {
        EXPECT_EQ(std::make_pair(s->isBinary(), s->remaining()), std::make_pair(false, int64(text.size())));
        std::string line;
        for (const char *want : {"first line", "second", "", "last without newline"})
            EXPECT_TRUE(s->readLine(line) && line == want) << want;
        EXPECT_FALSE(s->readLine(line));
        EXPECT_TRUE(s->atEnd());
    }
    std::fclose(fp);

    FILE *pipe = popen("printf abc", "r");
    ASSERT_NE(pipe, nullptr);
    BAS_IStream in(pipe);
    EXPECT_EQ(in.remaining(), -1);
    char buf[8];
    EXPECT_EQ(in.read(buf, 8), 3u);
    pclose(pipe);
}

TEST(IStream, BinaryReadersAreLittleEndianAndReportShortReads)
{
    std::ostringstream os;
    const int32 i[2] = {-2, 0x01020304};
    const uint16 h = 0xBEEF;
    const uint32 u = 0xDEADBEEF;
    const float f = -1.5f;
    const uint8 b[3] = {1, 2, 3};
    BASwriteBinary(os, i, 2);
    BASwriteBinary(os, &h, 1);
    BASwriteBinary(os, &u, 1);
    BASwriteBinary(os, &f, 1);
    BASwriteBinary(os, b, 3);
    const std::string bytes = os.str();
    ASSERT_EQ(bytes, std::string("\xfe\xff\xff\xff\x04\x03\x02\x01\xef\xbe" // least significant byte first
                                 "\xef\xbe\xad\xde\x00\x00\xc0\xbf\x01\x02\x03", 21));
    BAS_IStream in(bytes.data(), bytes.size());
    int32 ri[2];
    uint16 rh;
    uint32 ru;
    float rf;
    uint8 rb[4];
    ASSERT_TRUE(in.readBinary(ri, 2) && in.readBinary(&rh, 1) && in.readBinary(&ru, 1) && in.readBinary(&rf, 1) &&
                in.readBinary(rb, 0));
    EXPECT_EQ(std::make_tuple(ri[0], ri[1], rh, ru, rf), std::make_tuple(-2, 0x01020304, h, u, f));
    EXPECT_FALSE(in.readBinary(rb, 4)); // three left
    EXPECT_EQ(rb[2], 3);
    EXPECT_EQ(in.remaining(), 0);
}
