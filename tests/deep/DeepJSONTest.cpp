// The JSON writer and parser, and the JSON form of sample lists.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace
{
using namespace deeptest;
using Tok = BAS_JSONParser::Token;

ChannelsPtr colourAlpha() { return channels({{"C", 3}, {"A", 1}, {"id", 1, true}}); }

std::string saved(const ListPtr &list, const ChannelsPtr &chans)
{
    BAS_JSONWriter w;
    EXPECT_TRUE(IMB_DeepSampleList::save(w, list, chans));
    EXPECT_TRUE(w.isComplete());
    return w.str();
}

std::vector<std::string> messages(const BAS_StringArray &a)
{
    std::vector<std::string> out;
    for (const auto &s : a)
        out.push_back(s.toStdString());
    return out;
}

ListPtr twoSamples(const ChannelsPtr &chans)
{
    ListPtr l(new IMB_DeepSampleList(chans, 2, true));
    const float zf[2] = {1.5f, 0.1f}, zb[2] = {2.0f, 1e20f};
    for (int i = 0; i < 2; ++i)
    {
        l->zfrontBuffer()[i] = zf[i];
        l->zbackBuffer()[i] = zb[i];
    }
    l->flagBuffer()[0] = 3;
    l->flagBuffer()[1] = 0xff;
    l->coverageBuffer()[0] = ~0ull;
    l->coverageBuffer()[1] = 0x0000FFFF00000000ull;
    const float c[6] = {0.1f, 0.2f, 0.3f, -0.0f, 3.4028235e38f, 1.17549435e-38f};
    std::memcpy(l->channelBuffer(0), c, sizeof c);
    l->channelBuffer(1)[0] = 0.5f;
    l->channelBuffer(1)[1] = 1.0f;
    l->channelBuffer(2)[0] = 7.0f;
    l->channelBuffer(2)[1] = 16777216.0f;
    return l;
}


ListPtr loadText(const std::string &text, const ChannelsPtr &chans, BAS_StringArray *warnings = nullptr,
                 BAS_StringArray *fatals = nullptr)
{
    BAS_JSONParser p(text);
    ListPtr l = IMB_DeepSampleList::load(p, chans);
    if (warnings)
        *warnings = p.warnings();
    if (fatals)
        *fatals = p.fatals();
    return l;
}
} // namespace

// ------------------------------------------------------------------ writer

TEST(JSONWriter, WritesCompactTextWithShortestFloats)
{
    BAS_JSONWriter w;
    ASSERT_TRUE(w.jsonBeginMap());
    EXPECT_TRUE(w.jsonKey("a"));
    EXPECT_TRUE(w.jsonReal(0.1f));
    EXPECT_TRUE(w.jsonKeyToken("b"));
    EXPECT_TRUE(w.jsonBeginArray());
    EXPECT_TRUE(w.jsonKeyToken("k"));
    EXPECT_TRUE(w.jsonInt(-5));
    EXPECT_TRUE(w.jsonUInt(~0ull));
    EXPECT_TRUE(w.jsonBool(false));
    EXPECT_TRUE(w.jsonNull());
    EXPECT_TRUE(w.jsonString("q\"s"));
    EXPECT_TRUE(w.jsonReal(0.5));
    EXPECT_TRUE(w.jsonEndArray());
    EXPECT_FALSE(w.isComplete());
    EXPECT_TRUE(w.jsonEndMap());
    EXPECT_TRUE(w.isComplete());
    EXPECT_TRUE(w.ok());
    EXPECT_EQ(w.str(), "{\"a\":0.1,\"b\":[\"k\",-5,18446744073709551615,false,null,\"q\\\"s\",0.5]}");
}

TEST(JSONWriter, UniformArraysCoverEveryElementType)
{
    BAS_JSONWriter w;
    const float f[6] = {1.0f, -2.5f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                        -std::numeric_limits<float>::infinity(), -0.0f};
    const int32 i32[2] = {-1, 2147483647};
    const int64 i64[2] = {std::numeric_limits<int64>::min(), 3};
    const uint64 u64[1] = {0x8000000000000000ull};
    const uint8 b[3] = {0, 128, 255};
    ASSERT_TRUE(w.jsonBeginArray());
    EXPECT_TRUE(w.jsonUniformArray(f, 6));
    EXPECT_TRUE(w.jsonUniformArray(i32, 2));
    EXPECT_TRUE(w.jsonUniformArray(i64, 2));
    EXPECT_TRUE(w.jsonUniformArray(u64, 1));
    EXPECT_TRUE(w.jsonUniformArray(b, 3));
    EXPECT_TRUE(w.jsonUniformArray(static_cast<const float *>(nullptr), 0));
    EXPECT_TRUE(w.jsonEndArray());
    EXPECT_EQ(w.str(), "[[1,-2.5,NaN,Infinity,-Infinity,-0.0],[-1,2147483647],[-9223372036854775808,3],"
                       "[9223372036854775808],[0,128,255],[]]");
}

TEST(JSONWriter, CallsThatDoNotFitTheStructureFailAndStick)
{
    {
        BAS_JSONWriter w;
        EXPECT_FALSE(w.jsonEndArray());
        EXPECT_FALSE(w.ok());
        EXPECT_FALSE(w.jsonBeginArray()); // once failed, stays failed
        EXPECT_EQ(w.str(), "");
    }
    {
        BAS_JSONWriter w;
        ASSERT_TRUE(w.jsonBeginMap());
        EXPECT_FALSE(w.jsonInt(1)); // a value where a key is expected
    }
    {
        BAS_JSONWriter w;
        ASSERT_TRUE(w.jsonBeginArray());
        EXPECT_FALSE(w.jsonKey("k")); // a map key inside an array
    }
    {
        BAS_JSONWriter w;
        ASSERT_TRUE(w.jsonBeginArray());
        EXPECT_FALSE(w.jsonEndMap());
    }
    {
        BAS_JSONWriter w;
        ASSERT_TRUE(w.jsonBeginMap());
        ASSERT_TRUE(w.jsonKey("k"));
        EXPECT_FALSE(w.jsonEndMap()); // the key has no value yet
    }
    {
        BAS_JSONWriter w;
        ASSERT_TRUE(w.jsonInt(1));
        EXPECT_FALSE(w.jsonInt(2)); // a second top-level value
        EXPECT_EQ(w.str(), "1");
    }
    {
        BAS_JSONWriter w;
        EXPECT_FALSE(w.jsonString(nullptr));
        BAS_JSONWriter v;
        EXPECT_FALSE(v.jsonUniformArray(static_cast<const float *>(nullptr), 2));
    }
}

TEST(JSONWriter, StreamsToAnOstreamAndReportsItsFailure)
{
    std::ostringstream os;
    {
        BAS_JSONWriter w(os);
        ASSERT_TRUE(w.jsonBeginArray());
        ASSERT_TRUE(w.jsonInt(4));
        EXPECT_TRUE(os.str().empty()); // held until the value is complete
        ASSERT_TRUE(w.jsonEndArray());
        EXPECT_EQ(os.str(), "[4]");
    }
    std::ofstream bad;
    bad.setstate(std::ios::badbit);
    BAS_JSONWriter w(bad);
    EXPECT_FALSE(w.jsonBeginArray() && w.jsonEndArray());
    EXPECT_FALSE(w.ok());
}

// ------------------------------------------------------------------ parser

TEST(JSONParser, WalksArraysAndMapsTokenByToken)
{
    BAS_JSONParser p(R"({"n": -12, "list": ["s", true, 2.5, null, [1, {"x": []}]], "": 1})");
    EXPECT_EQ(p.peek(), Tok::BeginMap);
    auto m = p.beginMap();
    ASSERT_TRUE(m.isValid());
    BAS_StringHolder key;
    ASSERT_FALSE(m.atEnd());
    EXPECT_FALSE(p.parseString(key)); // a key is not a string value
    ASSERT_TRUE(p.parseKey(key));
    EXPECT_EQ(key, "n");
    int64 n = 0;
    bool notBool = false;
    EXPECT_FALSE(p.parseBool(notBool)); // wrong type: nothing consumed
    int small = 0;
    ASSERT_TRUE(p.parseInteger(small));
    EXPECT_EQ(small, -12);
    m.advance();
    ASSERT_FALSE(m.atEnd());
    ASSERT_TRUE(p.parseKey(key));
    EXPECT_EQ(key, "list");
    auto a = p.beginArray();
    ASSERT_TRUE(a.isValid());
    BAS_StringHolder s;
    ASSERT_TRUE(p.parseString(s));
    EXPECT_EQ(s, "s");
    a.advance();
    bool b = false;
    ASSERT_TRUE(p.parseBool(b));
    EXPECT_TRUE(b);
    a.advance();
    EXPECT_FALSE(p.parseInteger(n)); // 2.5 is not an integer
    double d = 0;
    ASSERT_TRUE(p.parseReal(d));
    EXPECT_EQ(d, 2.5);
    a.advance();
    EXPECT_EQ(p.peek(), Tok::Null);
    EXPECT_TRUE(p.skipNextObject());
    a.advance();
    EXPECT_TRUE(p.skipNextObject()); // the nested array with its map
    a.advance();
    EXPECT_TRUE(a.atEnd());
    EXPECT_EQ(a.index(), 5);
    m.advance();
    ASSERT_FALSE(m.atEnd());
    ASSERT_TRUE(p.parseKey(key));
    EXPECT_TRUE(key.isEmpty());
    EXPECT_TRUE(p.skipNextObject());
    m.advance();
    EXPECT_TRUE(m.atEnd());
    EXPECT_EQ(p.peek(), Tok::End);
    EXPECT_FALSE(p.skipNextObject());
    EXPECT_TRUE(p.warnings().isEmpty());
    EXPECT_FALSE(p.hasFatal());
}

TEST(JSONParser, IntegersAcceptIntegralRealsWithinRange)
{
    BAS_JSONParser p("[3.0, 1e30, 4294967296, -2147483649, 18446744073709551615, 9007199254740993]");
    auto it = p.beginArray();
    int64 v = 0;
    int i = 0;
    ASSERT_TRUE(p.parseInteger(i));
    EXPECT_EQ(i, 3);
    EXPECT_FALSE(p.parseInteger(v)); // 1e30 out of range
    p.skipNextObject();
    EXPECT_FALSE(p.parseInteger(i)); // beyond int
    ASSERT_TRUE(p.parseInteger(v));
    EXPECT_EQ(v, 4294967296);
    EXPECT_FALSE(p.parseInteger(i));
    ASSERT_TRUE(p.parseInteger(v));
    EXPECT_EQ(v, -2147483649);
    EXPECT_FALSE(p.parseInteger(v)); // above int64
    p.skipNextObject();
    ASSERT_TRUE(p.parseInteger(v));
    EXPECT_EQ(v, 9007199254740993); // exact, not through a double
    EXPECT_TRUE(it.atEnd());
}

TEST(JSONParser, UniformArraysStoreUpToCapacityAndCountEverything)
{
    BAS_JSONParser p("[[1, 2.5, -3, NaN, Infinity, -Infinity, 1e39, -1e39, 3.4028235e38], [5, 6, 7],"
                     " [18446744073709551615, -1, 2.0], [256, 255, 1.5, \"x\"], [], 4]");
    auto it = p.beginArray();
    float f[9];
    exint count = 0;
    ASSERT_TRUE(p.parseUniformArray(f, 9, count));
    EXPECT_EQ(count, 9);
    EXPECT_EQ(f[0], 1.0f);
    EXPECT_EQ(f[1], 2.5f);
    EXPECT_EQ(f[2], -3.0f);
    EXPECT_TRUE(std::isnan(f[3]));
    EXPECT_EQ(f[4], std::numeric_limits<float>::infinity());
    EXPECT_EQ(f[5], -std::numeric_limits<float>::infinity());
    EXPECT_EQ(f[6], std::numeric_limits<float>::infinity());
    EXPECT_EQ(f[7], -std::numeric_limits<float>::infinity());
    EXPECT_EQ(f[8], 3.4028235e38f);
    int64 two[2] = {0, 0};
    ASSERT_TRUE(p.parseUniformArray(two, 2, count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(two[1], 6);
    uint64 u[3];
    ASSERT_TRUE(p.parseUniformArray(u, 3, count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(u[0], ~0ull);
    EXPECT_EQ(u[1], ~0ull); // -1 as a mask
    EXPECT_EQ(u[2], 2u);
    uint8 b[4] = {9, 9, 9, 9};
    ASSERT_TRUE(p.parseUniformArray(b, 4, count));
    EXPECT_EQ(count, 4);
    EXPECT_EQ(b[0], 0);   // low 8 bits of 256
    EXPECT_EQ(b[1], 255);
    EXPECT_EQ(b[2], 9);   // 1.5 is not an integer: counted, not stored
    EXPECT_EQ(b[3], 9);
    EXPECT_EQ(messages(p.warnings()), std::vector<std::string>{"Unexpected entry in number array"});
    ASSERT_TRUE(p.parseUniformArray(f, 9, count));
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(p.parseUniformArray(f, 9, count)); // 4 is not an array
    EXPECT_EQ(p.peek(), Tok::Number);
    p.skipNextObject();
    EXPECT_TRUE(it.atEnd());
}

TEST(JSONParser, RealsRoundOnceAndSaturateOutsideTheRange)
{
    BAS_JSONParser p("[[1e-50, -1e-50, 1e-40, 0.1, 16777217, 3.40282356e38, 3.4028236e38], [1.8e308]]");
    auto it = p.beginArray();
    float f[7];
    exint count = 0;
    ASSERT_TRUE(p.parseUniformArray(f, 7, count));
    EXPECT_EQ(count, 7);
    EXPECT_EQ(f[0], 0.0f);
    EXPECT_TRUE(std::signbit(f[1]) && f[1] == 0.0f);
    EXPECT_EQ(f[2], 1e-40f); // subnormal
    EXPECT_EQ(f[3], 0.1f);
    EXPECT_EQ(f[4], 16777216.0f); // a tie, to even
    EXPECT_EQ(f[5], 3.4028235e38f); // within half a spacing of the largest float
    EXPECT_EQ(f[6], std::numeric_limits<float>::infinity()); // beyond it
    double d = 0;
    auto inner = p.beginArray();
    ASSERT_TRUE(p.parseReal(d));
    EXPECT_EQ(d, std::numeric_limits<double>::infinity());
    EXPECT_TRUE(inner.atEnd());
    EXPECT_TRUE(it.atEnd());
    EXPECT_TRUE(p.warnings().isEmpty());
}

TEST(JSONParser, MalformedTextIsFatalWhereTheWalkReachesIt)
{
    BAS_JSONParser p("[1, 2, }");
    auto it = p.beginArray();
    int v;
    ASSERT_TRUE(p.parseInteger(v));
    it.advance();
    EXPECT_FALSE(p.hasFatal());
    ASSERT_TRUE(p.parseInteger(v));
    it.advance();
    EXPECT_TRUE(it.atEnd());
    ASSERT_TRUE(p.hasFatal());
    EXPECT_EQ(messages(p.fatals()),
              std::vector<std::string>{"JSON parse error at offset 7: Invalid value."});
    EXPECT_EQ(p.peek(), Tok::Error);
    EXPECT_FALSE(p.skipNextObject());
    EXPECT_FALSE(p.beginArray().isValid());
    EXPECT_EQ(p.fatals().size(), 1);

    BAS_JSONParser empty("");
    EXPECT_EQ(empty.peek(), Tok::Error);
    EXPECT_EQ(messages(empty.fatals()),
              std::vector<std::string>{"JSON parse error at offset 0: The document is empty."});
}

TEST(JSONParser, DeepNestingNeedsNoStack)
{
    const int depth = 200000;
    std::string text(depth, '[');
    text += std::string(depth, ']');
    BAS_JSONParser p(text);
    EXPECT_TRUE(p.skipNextObject());
    EXPECT_EQ(p.peek(), Tok::End);
    EXPECT_FALSE(p.hasFatal());
}

TEST(JSONParser, RewindGoesOverAValueAgainAndKeepsMessages)
{
    BAS_JSONParser p("[\"a\", 1]");
    const exint start = p.position();
    p.addWarning("first");
    EXPECT_TRUE(p.skipNextObject());
    EXPECT_EQ(p.peek(), Tok::End);
    p.rewind(start);
    EXPECT_EQ(p.peek(), Tok::BeginArray);
    p.addFatal(std::string("second"));
    EXPECT_EQ(messages(p.warnings()), std::vector<std::string>{"first"});
    EXPECT_EQ(messages(p.fatals()), std::vector<std::string>{"second"});
    EXPECT_EQ(p.inputSize(), 8);
    std::istringstream is(" [true] ");
    BAS_JSONParser fromStream(is);
    auto it = fromStream.beginArray();
    bool b = false;
    EXPECT_TRUE(fromStream.parseBool(b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(it.atEnd());
}

// ------------------------------------------------------------------ the deep form

TEST(DeepJSON, SavesTheDocumentedKeysInOrder)
{
    ChannelsPtr chans = colourAlpha();
    ListPtr l(new IMB_DeepSampleList(chans, 1, false));
    l->zfrontBuffer()[0] = 1.5f;
    l->zbackBuffer()[0] = 2.0f;
    l->flagBuffer()[0] = 3;
    l->coverageBuffer()[0] = ~0ull;
    const float c[3] = {0.1f, 0.2f, 0.3f};
    std::memcpy(l->channelBuffer(0), c, sizeof c);
    l->channelBuffer(1)[0] = 1.0f;
    l->channelBuffer(2)[0] = 42.0f;
    EXPECT_EQ(saved(l, chans), "[\"composited\",false,\"sampleCount\",1,\"zfront\",[1.5],\"zback\",[2],"
                               "\"coverage\",[18446744073709551615],\"flags\",[3],"
                               "\"ch.C\",[0.1,0.2,0.3],\"ch.A\",[1],\"ch.id\",[42]]");
    // A null channel list names the list's own channels.
    EXPECT_EQ(saved(l, ChannelsPtr()), saved(l, chans));
}

TEST(DeepJSON, RoundTripKeepsEveryBitOfEveryPlane)
{
    ChannelsPtr chans = colourAlpha();
    ListPtr l = twoSamples(chans);
    const std::string text = saved(l, chans);
    BAS_StringArray warnings, fatals;
    ListPtr back = loadText(text, chans, &warnings, &fatals);
    ASSERT_TRUE(back) << text;
    EXPECT_TRUE(warnings.isEmpty());
    EXPECT_TRUE(fatals.isEmpty());
    EXPECT_TRUE(back->preComposited());
    ASSERT_EQ(back->sampleCount(), 2);
    EXPECT_EQ(back->channels(), chans);
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_TRUE(sameBits(back->zfront(i), l->zfront(i)));
        EXPECT_TRUE(sameBits(back->zback(i), l->zback(i)));
        EXPECT_EQ(back->flags(i), l->flags(i));
        EXPECT_EQ(back->coverage(i), l->coverage(i));
    }
    for (int k = 0; k < 6; ++k)
        EXPECT_TRUE(sameBits(back->channelBuffer(0)[k], l->channelBuffer(0)[k])) << k;
    EXPECT_EQ(back->channelBuffer(2)[1], 16777216.0f);
    EXPECT_EQ(saved(back, chans), text);
}

TEST(DeepJSON, RoundTripOfRandomFloatsIsExact)
{
    ChannelsPtr chans(new IMB_DeepChannelList);
    chans->addChannel("v", 4);
    const int n = 2000;
    ListPtr l(new IMB_DeepSampleList(chans, n, false));
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> bits;
    auto randomFloat = [&] {
        for (;;)
        {
            uint32_t u = bits(rng);
            float f;
            std::memcpy(&f, &u, sizeof f);
            if (std::isfinite(f))
                return f;
        }
    };
    for (int i = 0; i < n; ++i)
    {
        l->zfrontBuffer()[i] = randomFloat();
        l->zbackBuffer()[i] = randomFloat();
        l->flagBuffer()[i] = uint8(i);
        l->coverageBuffer()[i] = (uint64(bits(rng)) << 32) | bits(rng);
        for (int c = 0; c < 4; ++c)
            l->channelData(0, i)[c] = randomFloat();
    }
    ListPtr back = loadText(saved(l, chans), chans);
    ASSERT_TRUE(back);
    for (int i = 0; i < n; ++i)
    {
        ASSERT_TRUE(sameBits(back->zfront(i), l->zfront(i))) << i;
        ASSERT_TRUE(sameBits(back->zback(i), l->zback(i))) << i;
        ASSERT_EQ(back->coverage(i), l->coverage(i));
        ASSERT_EQ(back->flags(i), l->flags(i));
        for (int c = 0; c < 4; ++c)
            ASSERT_TRUE(sameBits(back->channelData(0, i)[c], l->channelData(0, i)[c])) << i;
    }
}

TEST(DeepJSON, EmptyAndNullListsCannotBeReadBack)
{
    ChannelsPtr chans = colourAlpha();
    ListPtr empty(new IMB_DeepSampleList(chans, 0, true));
    const std::string text = saved(empty, chans);
    EXPECT_EQ(text, "[\"composited\",true,\"sampleCount\",0]");
    BAS_StringArray warnings, fatals;
    EXPECT_FALSE(loadText(text, chans, &warnings, &fatals));
    EXPECT_EQ(messages(fatals), std::vector<std::string>{"Missing deep sample count for list"});
    EXPECT_TRUE(warnings.isEmpty());

    EXPECT_EQ(saved(ListPtr(), chans), "[]");
    EXPECT_FALSE(loadText("[]", chans, &warnings, &fatals));
    EXPECT_EQ(messages(fatals), std::vector<std::string>{"Missing deep sample count for list"});
    EXPECT_FALSE(loadText("[\"sampleCount\", -4]", chans, nullptr, &fatals));
    EXPECT_EQ(messages(fatals), std::vector<std::string>{"Missing deep sample count for list"});
    EXPECT_FALSE(loadText("17", chans, nullptr, &fatals));
    EXPECT_EQ(messages(fatals), std::vector<std::string>{"Missing deep sample count for list"});
}

TEST(DeepJSON, SecondCountIsFatal)
{
    BAS_JSONParser p("[[\"sampleCount\", 1, \"bogus\", 0, \"sampleCount\", 2], 5]");
    auto outer = p.beginArray();
    ASSERT_FALSE(outer.atEnd());
    EXPECT_FALSE(IMB_DeepSampleList::load(p, colourAlpha()));
    EXPECT_EQ(messages(p.fatals()), std::vector<std::string>{"Multiple deep sample list counts specified"});
    EXPECT_TRUE(p.warnings().isEmpty()); // the data pass never ran
    // The parser was left after the list.
    outer.advance();
    int v = 0;
    EXPECT_TRUE(p.parseInteger(v));
    EXPECT_EQ(v, 5);
}

TEST(DeepJSON, UnknownChannelsAndTokensAreSkippedWithWarnings)
{
    ChannelsPtr chans = colourAlpha();
    BAS_StringArray warnings, fatals;
    ListPtr l = loadText("[\"sampleCount\", 1, \"ch.Z\", [1, [2]], \"ch.A\", [0.25], \"depth\", {\"a\": 1},"
                         " 12, \"zfront\", [4]]",
                         chans, &warnings, &fatals);
    ASSERT_TRUE(l);
    EXPECT_TRUE(fatals.isEmpty());
    EXPECT_EQ(messages(warnings), (std::vector<std::string>{"Unknown channel: Z", "Unknown pixel token: depth",
                                                            "Unknown pixel token: <number>"}));
    EXPECT_EQ(l->channelBuffer(1)[0], 0.25f);
    EXPECT_EQ(l->zfront(0), 4.0f);
    EXPECT_FALSE(l->preComposited());
}

TEST(DeepJSON, WrongArrayLengthsWarnAndKeepTheList)
{
    ChannelsPtr chans = colourAlpha();
    BAS_StringArray warnings;
    ListPtr l = loadText("[\"composited\", false, \"sampleCount\", 3, \"zfront\", [1, 2],"
                         " \"zback\", [1, 2, 3, 4], \"ch.C\", [1, 2, 3, 4, 5, 6, 7, 8, 9], \"flags\", 7,"
                         " \"coverage\", [1, 2, 3]]",
                         chans, &warnings);
    ASSERT_TRUE(l);
    EXPECT_EQ(messages(warnings), (std::vector<std::string>{"Expected array to be 3 entries (not 2)",
                                                            "Expected array to be 3 entries (not 4)",
                                                            "Expected array to be 3 entries (not 0)"}));
    EXPECT_EQ(l->zfront(0), 1.0f);
    EXPECT_EQ(l->zfront(1), 2.0f);
    EXPECT_EQ(l->zback(2), 3.0f);
    EXPECT_EQ(l->channelData(0, 2)[2], 9.0f);
    EXPECT_EQ(l->coverage(2), 3u);
}

TEST(DeepJSON, ReadsTheMapFormAndWarnsOnAMissingKey)
{
    ChannelsPtr chans = colourAlpha();
    BAS_StringArray warnings, fatals;
    ListPtr l = loadText("{\"zfront\": [5, 6], \"\": 3, \"sampleCount\": 2, \"composited\": true,"
                         " \"ch.id\": [8, 9], \"coverage\": [1, 2], \"flags\": [1, 2], \"zback\": [7, 8]}",
                         chans, &warnings, &fatals);
    ASSERT_TRUE(l);
    EXPECT_TRUE(fatals.isEmpty());
    EXPECT_EQ(messages(warnings), std::vector<std::string>{"Missing key while parsing map"});
    // "composited" after the count still applies.
    EXPECT_TRUE(l->preComposited());
    EXPECT_EQ(l->zfront(1), 6.0f);
    EXPECT_EQ(l->zback(0), 7.0f);
    EXPECT_EQ(l->channelData(2, 1)[0], 9.0f);
    EXPECT_EQ(l->flags(1), 2);
}

TEST(DeepJSON, CountsBeyondTheInputAreRefusedBeforeAllocating)
{
    ChannelsPtr chans = colourAlpha();
    BAS_StringArray fatals;
    EXPECT_FALSE(loadText("[\"sampleCount\", 2000000000]", chans, nullptr, &fatals));
    EXPECT_EQ(messages(fatals),
              std::vector<std::string>{"Deep sample count 2000000000 is larger than the input can hold"});
    EXPECT_FALSE(loadText("[\"sampleCount\", 9000000000000]", chans, nullptr, &fatals));
    EXPECT_EQ(fatals.size(), 1);
    // Up to the input's size in bytes is accepted.
    const std::string ok = "[\"sampleCount\", 19]";
    ASSERT_EQ(ok.size(), 19u);
    ListPtr l = loadText(ok, chans);
    ASSERT_TRUE(l);
    EXPECT_EQ(l->sampleCount(), 19);
    EXPECT_FALSE(loadText("[\"sampleCount\", 20]", chans));
}

TEST(DeepJSON, MalformedTextGivesNullWithTheParseError)
{
    BAS_StringArray fatals;
    EXPECT_FALSE(loadText("[\"sampleCount\", 2, \"zfront\", [1, 2", colourAlpha(), nullptr, &fatals));
    ASSERT_EQ(fatals.size(), 1);
    EXPECT_EQ(fatals[0].toStdString().rfind("JSON parse error at offset", 0), 0u);
}

TEST(DeepJSON, ChannelsMissingFromTheReaderAreUnknown)
{
    ChannelsPtr chans = colourAlpha();
    const std::string text = saved(twoSamples(chans), chans);
    ChannelsPtr fewer(new IMB_DeepChannelList);
    fewer->addChannel("A", 1);
    BAS_StringArray warnings;
    ListPtr l = loadText(text, fewer, &warnings);
    ASSERT_TRUE(l);
    EXPECT_EQ(messages(warnings), (std::vector<std::string>{"Unknown channel: C", "Unknown channel: id"}));
    EXPECT_EQ(l->channelBuffer(0)[1], 1.0f);
    ListPtr none = loadText(text, ChannelsPtr(), &warnings);
    ASSERT_TRUE(none);
    EXPECT_EQ(warnings.size(), 3);
}

TEST(DeepJSON, SeedFilesLoadWithoutFatalErrors)
{
    ChannelsPtr chans = colourAlpha();
    for (const char *name : {"two_samples.json", "map_form.json", "warnings.json"})
    {
        std::ifstream in(std::string(IMB_TEST_DATA_DIR) + "/deep/" + name);
        ASSERT_TRUE(in.good()) << name;
        BAS_JSONParser p(in);
        EXPECT_TRUE(IMB_DeepSampleList::load(p, chans)) << name;
        EXPECT_FALSE(p.hasFatal()) << name;
    }
    // two_samples.json is exactly what save writes for twoSamples().
    std::ifstream in(std::string(IMB_TEST_DATA_DIR) + "/deep/two_samples.json");
    std::string text;
    std::getline(in, text);
    EXPECT_EQ(text, saved(twoSamples(chans), chans));
}
