// The JSON writer and parser, and the JSON form of sample lists.
#include "DeepTestUtil.h"

#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace
{
using namespace deeptest;
using Tok = BAS_JSONParser::Token;
using Strings = std::vector<std::string>;
constexpr float kInf = std::numeric_limits<float>::infinity();

ChannelsPtr colourAlpha() { return channels({{"C", 3}, {"A", 1}, {"id", 1, true}}); }

std::string saved(const ListPtr &list, const ChannelsPtr &chans)
{
    BAS_JSONWriter w;
    EXPECT_TRUE(IMB_DeepSampleList::save(w, list, chans));
    EXPECT_TRUE(w.isComplete());
    return w.str();
}

Strings messages(const BAS_StringArray &a)
{
    Strings out;
    for (const auto &s : a)
        out.push_back(s.toStdString());
    return out;
}

// The list tests/data/deep/two_samples.json holds: extreme and signed values.
ListPtr twoSamples(const ChannelsPtr &chans)
{
    return listOf(chans,
                  {S{1.5f, 2.0f, {0.1f, 0.2f, 0.3f, 0.5f, 7.0f}, 3, ~0ull},
                   S{0.1f, 1e20f, {-0.0f, 3.4028235e38f, 1.17549435e-38f, 1.0f, 16777216.0f}, 0xff,
                     0x0000FFFF00000000ull}},
                  true);
}

// Loads `text`; warnings and fatal errors go to the given arrays.
ListPtr loadText(const std::string &text, const ChannelsPtr &chans, Strings *warnings = nullptr,
                 Strings *fatals = nullptr)
{
    BAS_JSONParser p(text);
    ListPtr l = IMB_DeepSampleList::load(p, chans);
    if (warnings)
        *warnings = messages(p.warnings());
    if (fatals)
        *fatals = messages(p.fatals());
    return l;
}
} // namespace

// ------------------------------------------------------------------ writer

TEST(JSONWriter, WritesCompactTextWithShortestFloatsAndUniformArrays)
{
    BAS_JSONWriter w;
    EXPECT_TRUE(w.jsonBeginMap() && w.jsonKey("a") && w.jsonReal(0.1f) && w.jsonKeyToken("b") && w.jsonBeginArray() &&
                w.jsonKeyToken("k") && w.jsonInt(-5) && w.jsonUInt(~0ull) && w.jsonBool(false) && w.jsonNull() &&
                w.jsonString("q\"s") && w.jsonReal(0.5) && w.jsonEndArray());
    EXPECT_FALSE(w.isComplete());
    EXPECT_TRUE(w.jsonEndMap());
    EXPECT_TRUE(w.isComplete() && w.ok());
    EXPECT_EQ(w.str(), "{\"a\":0.1,\"b\":[\"k\",-5,18446744073709551615,false,null,\"q\\\"s\",0.5]}");

    BAS_JSONWriter u;
    const float f[6] = {1.0f, -2.5f, std::numeric_limits<float>::quiet_NaN(), kInf, -kInf, -0.0f};
    const int32 i32[2] = {-1, 2147483647};
    const int64 i64[2] = {std::numeric_limits<int64>::min(), 3};
    const uint64 u64[1] = {0x8000000000000000ull};
    const uint8 b[3] = {0, 128, 255};
    EXPECT_TRUE(u.jsonBeginArray() && u.jsonUniformArray(f, 6) && u.jsonUniformArray(i32, 2) &&
                u.jsonUniformArray(i64, 2) && u.jsonUniformArray(u64, 1) && u.jsonUniformArray(b, 3) &&
                u.jsonUniformArray(static_cast<const float *>(nullptr), 0) && u.jsonEndArray());
    EXPECT_EQ(u.str(), "[[1,-2.5,NaN,Infinity,-Infinity,-0.0],[-1,2147483647],[-9223372036854775808,3],"
                       "[9223372036854775808],[0,128,255],[]]");
}

TEST(JSONWriter, CallsThatDoNotFitTheStructureFailAndStick)
{
    using W = BAS_JSONWriter;
    // Each sequence must succeed up to its last call, which must fail.
    const std::function<bool(W &)> cases[] = {
        [](W &w) { return !w.jsonEndArray(); },
        [](W &w) { return w.jsonBeginMap() && !w.jsonInt(1); },   // a value where a key is expected
        [](W &w) { return w.jsonBeginArray() && !w.jsonKey("k"); }, // a map key inside an array
        [](W &w) { return w.jsonBeginArray() && !w.jsonEndMap(); },
        [](W &w) { return w.jsonBeginMap() && w.jsonKey("k") && !w.jsonEndMap(); }, // the key has no value yet
        [](W &w) { return w.jsonInt(1) && !w.jsonInt(2) && w.str() == "1"; },      // a second top-level value
        [](W &w) { return !w.jsonString(nullptr); },
        [](W &w) { return !w.jsonUniformArray(static_cast<const float *>(nullptr), 2); },
    };
    for (const auto &c : cases)
    {
        W w;
        EXPECT_TRUE(c(w)) << &c - cases;
        EXPECT_FALSE(w.ok()) << &c - cases;
        EXPECT_FALSE(w.jsonNull()) << &c - cases; // once failed, stays failed
    }
}

TEST(JSONWriter, StreamsToAnOstreamAndReportsItsFailure)
{
    std::ostringstream os;
    {
        BAS_JSONWriter w(os);
        ASSERT_TRUE(w.jsonBeginArray() && w.jsonInt(4));
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

TEST(JSONParser, ScalarsOfAnotherTypeAreRefusedWithoutBeingConsumed)
{
    BAS_JSONParser p(R"({"n": true, "list": [2.5, null, [1, {"x": []}]]})");
    BAS_StringHolder key;
    bool b = false;
    int64 n = 0;
    double d = 0;
    auto m = p.beginMap();
    ASSERT_TRUE(m.isValid() && !m.atEnd());
    EXPECT_FALSE(p.parseString(key)); // a key is not a string value
    ASSERT_TRUE(p.parseKey(key) && key == "n");
    EXPECT_FALSE(p.parseInteger(n));
    ASSERT_TRUE(p.parseBool(b) && b);
    m.advance();
    ASSERT_TRUE(!m.atEnd() && p.parseKey(key) && key == "list");
    auto a = p.beginArray();
    EXPECT_FALSE(p.parseInteger(n)); // 2.5 is not an integer
    ASSERT_TRUE(p.parseReal(d) && d == 2.5);
    a.advance();
    EXPECT_EQ(p.peek(), Tok::Null);
    EXPECT_TRUE(p.skipNextObject());
    a.advance();
    EXPECT_TRUE(p.skipNextObject()); // the nested array with its map
    a.advance();
    EXPECT_TRUE(a.atEnd());
    m.advance();
    EXPECT_TRUE(m.atEnd());
    EXPECT_EQ(p.peek(), Tok::End);
    EXPECT_FALSE(p.skipNextObject());
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
    for (int64 big : {int64(4294967296), int64(-2147483649)})
    {
        EXPECT_FALSE(p.parseInteger(i)); // beyond int
        ASSERT_TRUE(p.parseInteger(v));
        EXPECT_EQ(v, big);
    }
    EXPECT_FALSE(p.parseInteger(v)); // above int64
    p.skipNextObject();
    ASSERT_TRUE(p.parseInteger(v));
    EXPECT_EQ(v, 9007199254740993); // exact, not through a double
    EXPECT_TRUE(it.atEnd());
}

TEST(JSONParser, UniformArraysStoreUpToCapacityCountEverythingAndRoundOnce)
{
    BAS_JSONParser p("[[1, 2.5, -3, NaN, Infinity, -Infinity, 1e39, -1e39, 3.4028235e38, 1e-50, -1e-50, 1e-40, 0.1,"
                     " 16777217, 3.40282356e38, 3.4028236e38], [5, 6, 7], [18446744073709551615, -1, 2.0],"
                     " [256, 255, 1.5, \"x\"], [], 1.8e308]");
    auto it = p.beginArray();
    float f[16];
    exint count = 0;
    ASSERT_TRUE(p.parseUniformArray(f, 16, count));
    EXPECT_EQ(count, 16);
    EXPECT_TRUE(std::isnan(f[3]));
    EXPECT_TRUE(std::signbit(f[10]));
    f[3] = 0;
    // Beyond the range: infinite; a subnormal; a tie, to even; within half a
    // spacing of the largest float, and beyond it.
    EXPECT_EQ(std::vector<float>(f, f + 16), (std::vector<float>{1, 2.5f, -3, 0, kInf, -kInf, kInf, -kInf, 3.4028235e38f,
                                                                  0, 0, 1e-40f, 0.1f, 16777216.0f, 3.4028235e38f,
                                                                  kInf}));
    int64 two[2] = {0, 0};
    ASSERT_TRUE(p.parseUniformArray(two, 2, count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(two[1], 6);
    uint64 u[3];
    ASSERT_TRUE(p.parseUniformArray(u, 3, count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(std::vector<uint64>(u, u + 3), (std::vector<uint64>{~0ull, ~0ull, 2})); // -1 as a mask
    EXPECT_TRUE(p.warnings().isEmpty());
    uint8 b[4] = {9, 9, 9, 9};
    ASSERT_TRUE(p.parseUniformArray(b, 4, count));
    EXPECT_EQ(count, 4);
    // Low 8 bits of 256; 1.5 is not an integer: counted, not stored.
    EXPECT_EQ(std::vector<int>(b, b + 4), (std::vector<int>{0, 255, 9, 9}));
    EXPECT_EQ(messages(p.warnings()), Strings{"Unexpected entry in number array"});
    ASSERT_TRUE(p.parseUniformArray(f, 9, count));
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(p.parseUniformArray(f, 9, count)); // a number is not an array
    double d = 0;
    ASSERT_TRUE(p.parseReal(d));
    EXPECT_EQ(d, std::numeric_limits<double>::infinity());
    EXPECT_TRUE(it.atEnd());
}

TEST(JSONParser, MalformedTextIsFatalWhereTheWalkReachesIt)
{
    BAS_JSONParser p("[1, 2, }");
    auto it = p.beginArray();
    int v;
    ASSERT_TRUE(p.parseInteger(v) && p.parseInteger(v));
    EXPECT_FALSE(p.hasFatal());
    EXPECT_TRUE(it.atEnd());
    EXPECT_EQ(messages(p.fatals()), Strings{"JSON parse error at offset 7: Invalid value."});
    EXPECT_EQ(p.peek(), Tok::Error);
    EXPECT_FALSE(p.skipNextObject() || p.beginArray().isValid());
    EXPECT_EQ(p.fatals().size(), 1);
    BAS_JSONParser empty("");
    EXPECT_EQ(empty.peek(), Tok::Error);
    EXPECT_EQ(messages(empty.fatals()), Strings{"JSON parse error at offset 0: The document is empty."});
}

TEST(JSONParser, DeepNestingNeedsNoStack)
{
    const int depth = 200000;
    BAS_JSONParser p(std::string(depth, '[') + std::string(depth, ']'));
    EXPECT_TRUE(p.skipNextObject());
    EXPECT_EQ(p.peek(), Tok::End);
    EXPECT_FALSE(p.hasFatal());
}

// ------------------------------------------------------------------ the deep form

TEST(DeepJSON, RoundTripKeepsEveryBitOfEveryPlane)
{
    // The two extreme samples, then many random finite floats.
    ChannelsPtr chans = colourAlpha();
    ListPtr l = twoSamples(chans);
    const std::string text = saved(l, chans);
    Strings warnings, fatals;
    ListPtr back = loadText(text, chans, &warnings, &fatals);
    ASSERT_TRUE(back) << text;
    EXPECT_TRUE(warnings.empty() && fatals.empty());
    EXPECT_TRUE(back->preComposited());
    EXPECT_EQ(back->channels(), chans);
    EXPECT_EQ(samplesOf(back), samplesOf(l));
    EXPECT_EQ(saved(back, chans), text);

    ChannelsPtr four = channels({{"v", 4}});
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> bits;
    auto randomFloat = [&] {
        uint32_t u = bits(rng);
        if ((u & 0x7F800000u) == 0x7F800000u)
            u &= 0xBFFFFFFFu; // finite
        float f;
        std::memcpy(&f, &u, sizeof f);
        return f;
    };
    std::vector<S> samples;
    for (int i = 0; i < 2000; ++i)
        samples.push_back(S{randomFloat(), randomFloat(), {randomFloat(), randomFloat(), randomFloat(), randomFloat()},
                            uint8(i), (uint64(bits(rng)) << 32) | bits(rng)});
    ListPtr random = listOf(four, samples);
    EXPECT_TRUE(samplesOf(loadText(saved(random, four), four)) == samples);
}

// A missing, repeated or impossible count is fatal before any data is read
// (no warnings); counts up to the input's size in bytes are accepted.
TEST(DeepJSON, ListsWithoutAPossibleCountOrWithMalformedTextCannotBeRead)
{
    ChannelsPtr chans = colourAlpha();
    const std::string empty = saved(ListPtr(new IMB_DeepSampleList(chans, 0, true)), chans);
    EXPECT_EQ(empty, "[\"composited\",true,\"sampleCount\",0]");
    EXPECT_EQ(saved(ListPtr(), chans), "[]");
    const std::string missing = "Missing deep sample count for list";
    const std::pair<std::string, std::string> cases[] = {
        {empty, missing},
        {"[]", missing},
        {"[\"sampleCount\", -4]", missing},
        {"17", missing},
        {"[\"sampleCount\", 1, \"bogus\", 0, \"sampleCount\", 2]", "Multiple deep sample list counts specified"},
        {"[\"sampleCount\", 2000000000]", "Deep sample count 2000000000 is larger than the input can hold"},
        {"[\"sampleCount\", 20]", "Deep sample count 20 is larger than the input can hold"},
        {"[\"sampleCount\", 9000000000000]", "Deep sample count 9000000000000 is larger than the input can hold"},
    };
    for (const auto &[text, message] : cases)
    {
        Strings warnings, fatals;
        EXPECT_FALSE(loadText(text, chans, &warnings, &fatals)) << text;
        EXPECT_EQ(fatals, Strings{message}) << text;
        EXPECT_TRUE(warnings.empty()) << text;
    }
    const std::string ok = "[\"sampleCount\", 19]";
    ASSERT_EQ(ok.size(), 19u);
    EXPECT_EQ(loadText(ok, chans)->sampleCount(), 19);
    Strings fatals;
    EXPECT_FALSE(loadText("[\"sampleCount\", 2, \"zfront\", [1, 2", chans, nullptr, &fatals));
    ASSERT_EQ(fatals.size(), 1u);
    EXPECT_EQ(fatals[0].rfind("JSON parse error at offset", 0), 0u);
    // A failed list leaves the parser after it.
    BAS_JSONParser p("[[\"sampleCount\", 1, \"sampleCount\", 2], 5]");
    auto outer = p.beginArray();
    EXPECT_FALSE(IMB_DeepSampleList::load(p, chans));
    outer.advance();
    int v = 0;
    EXPECT_TRUE(p.parseInteger(v) && v == 5);
}

TEST(DeepJSON, UnknownChannelsTokensAndWrongLengthsWarnAndKeepTheList)
{
    ChannelsPtr chans = colourAlpha();
    Strings warnings, fatals;
    ListPtr l = loadText("[\"sampleCount\", 1, \"ch.Z\", [1, [2]], \"ch.A\", [0.25], \"depth\", {\"a\": 1},"
                         " 12, \"zfront\", [4]]",
                         chans, &warnings, &fatals);
    ASSERT_TRUE(l);
    EXPECT_TRUE(fatals.empty());
    EXPECT_EQ(warnings, (Strings{"Unknown channel: Z", "Unknown pixel token: depth", "Unknown pixel token: <number>"}));
    EXPECT_EQ(l->channelBuffer(1)[0], 0.25f);
    EXPECT_EQ(l->zfront(0), 4.0f);
    EXPECT_FALSE(l->preComposited());

    l = loadText("[\"composited\", false, \"sampleCount\", 3, \"zfront\", [1, 2], \"zback\", [1, 2, 3, 4],"
                 " \"ch.C\", [1, 2, 3, 4, 5, 6, 7, 8, 9], \"flags\", 7, \"coverage\", [1, 2, 3]]",
                 chans, &warnings);
    ASSERT_TRUE(l);
    EXPECT_EQ(warnings, (Strings{"Expected array to be 3 entries (not 2)", "Expected array to be 3 entries (not 4)",
                                 "Expected array to be 3 entries (not 0)"}));
    EXPECT_EQ(l->zfront(0), 1.0f);
    EXPECT_EQ(l->zfront(1), 2.0f);
    EXPECT_EQ(l->zback(2), 3.0f);
    EXPECT_EQ(l->channelData(0, 2)[2], 9.0f);
    EXPECT_EQ(l->coverage(2), 3u);

    // Channels the reader lacks are unknown; a null channel list knows none.
    const std::string text = saved(twoSamples(chans), chans);
    l = loadText(text, channels({{"A", 1}}), &warnings);
    ASSERT_TRUE(l);
    EXPECT_EQ(warnings, (Strings{"Unknown channel: C", "Unknown channel: id"}));
    EXPECT_EQ(l->channelBuffer(0)[1], 1.0f);
    ASSERT_TRUE(loadText(text, ChannelsPtr(), &warnings));
    EXPECT_EQ(warnings.size(), 3u);
}

TEST(DeepJSON, ReadsTheMapFormAndWarnsOnAMissingKey)
{
    Strings warnings, fatals;
    ListPtr l = loadText("{\"zfront\": [5, 6], \"\": 3, \"sampleCount\": 2, \"composited\": true,"
                         " \"ch.id\": [8, 9], \"coverage\": [1, 2], \"flags\": [1, 2], \"zback\": [7, 8]}",
                         colourAlpha(), &warnings, &fatals);
    ASSERT_TRUE(l);
    EXPECT_TRUE(fatals.empty());
    EXPECT_EQ(warnings, Strings{"Missing key while parsing map"});
    EXPECT_TRUE(l->preComposited()); // "composited" after the count still applies
    EXPECT_EQ(l->zfront(1), 6.0f);
    EXPECT_EQ(l->zback(0), 7.0f);
    EXPECT_EQ(l->channelData(2, 1)[0], 9.0f);
    EXPECT_EQ(l->flags(1), 2);
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
    // two_samples.json is exactly what save writes for twoSamples(), the
    // documented keys in order; a null channel list names the list's own.
    std::ifstream in(std::string(IMB_TEST_DATA_DIR) + "/deep/two_samples.json");
    std::string text;
    std::getline(in, text);
    EXPECT_EQ(text, saved(twoSamples(chans), chans));
    EXPECT_EQ(text, saved(twoSamples(chans), ChannelsPtr()));
}
