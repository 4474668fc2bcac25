// BAS_JSONParser over RapidJSON's Reader.
//
// RapidJSON's non-recursive reader (kParseIterativeFlag) turns the whole text
// into a compact token array once; the parser's calls then walk that array.
// This gives a pull interface, constant stack depth for any nesting, and
// cheap rewinding for readers that go over a value twice.
#include <IMB/platform/BAS_JSONParser.h>

#include "platform/Log.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cmath>
#include <istream>
#include <iterator>
#include <limits>
#include <vector>

namespace
{
using Token = BAS_JSONParser::Token;

enum class Num : uint8
{
    None,
    Signed,   // fits int64 (in i)
    Unsigned, // above INT64_MAX (in u)
    Real      // in d
};

struct Tok
{
    Token type = Token::End;
    Num num = Num::None;
    bool b = false;
    int64 i = 0;
    uint64 u = 0;
    double d = 0.0;
    std::size_t strOffset = 0;
    std::size_t strLength = 0;
};

constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNanAndInfFlag |
                                 rapidjson::kParseFullPrecisionFlag | rapidjson::kParseStopWhenDoneFlag;

// Collects RapidJSON's events as tokens.
struct Collector
{
    std::vector<Tok> &toks;
    std::string &strings;

    bool push(Token t)
    {
        Tok k;
        k.type = t;
        toks.push_back(k);
        return true;
    }
    bool number(Num n, int64 i, uint64 u, double d)
    {
        Tok k;
        k.type = Token::Number;
        k.num = n;
        k.i = i;
        k.u = u;
        k.d = d;
        toks.push_back(k);
        return true;
    }
    bool text(Token t, const char *s, rapidjson::SizeType len)
    {
        Tok k;
        k.type = t;
        k.strOffset = strings.size();
        k.strLength = len;
        strings.append(s, len);
        toks.push_back(k);
        return true;
    }

    bool Null() { return push(Token::Null); }
    bool Bool(bool v)
    {
        Tok k;
        k.type = Token::Bool;
        k.b = v;
        toks.push_back(k);
        return true;
    }
    bool Int(int v) { return number(Num::Signed, v, static_cast<uint64>(v), v); }
    bool Uint(unsigned v) { return number(Num::Signed, v, v, v); }
    bool Int64(int64_t v) { return number(Num::Signed, v, static_cast<uint64>(v), static_cast<double>(v)); }
    bool Uint64(uint64_t v)
    {
        if (v <= static_cast<uint64>(std::numeric_limits<int64>::max()))
            return number(Num::Signed, static_cast<int64>(v), v, static_cast<double>(v));
        return number(Num::Unsigned, 0, v, static_cast<double>(v));
    }
    bool Double(double v) { return number(Num::Real, 0, 0, v); }
    bool RawNumber(const char *s, rapidjson::SizeType len, bool) { return text(Token::String, s, len); }
    bool String(const char *s, rapidjson::SizeType len, bool) { return text(Token::String, s, len); }
    bool StartObject() { return push(Token::BeginMap); }
    bool Key(const char *s, rapidjson::SizeType len, bool) { return text(Token::Key, s, len); }
    bool EndObject(rapidjson::SizeType) { return push(Token::EndMap); }
    bool StartArray() { return push(Token::BeginArray); }
    bool EndArray(rapidjson::SizeType) { return push(Token::EndArray); }
};

// Conversions of a number token; false when it does not fit.
bool toInt64(const Tok &t, int64 &out)
{
    if (t.num == Num::Signed)
    {
        out = t.i;
        return true;
    }
    if (t.num == Num::Real && std::isfinite(t.d) && std::floor(t.d) == t.d && t.d >= -9223372036854775808.0 &&
        t.d < 9223372036854775808.0)
    {
        out = static_cast<int64>(t.d);
        return true;
    }
    return false;
}

bool toUint64(const Tok &t, uint64 &out)
{
    if (t.num == Num::Unsigned)
    {
        out = t.u;
        return true;
    }
    if (t.num == Num::Signed)
    {
        out = static_cast<uint64>(t.i); // negative values wrap, as a bit mask would
        return true;
    }
    if (t.num == Num::Real && std::isfinite(t.d) && std::floor(t.d) == t.d && t.d >= 0.0 && t.d < 18446744073709551616.0)
    {
        out = static_cast<uint64>(t.d);
        return true;
    }
    return false;
}

float toFloat(double d)
{
    // Out-of-range doubles become the infinity (or largest float) that
    // rounding gives, without an undefined conversion.
    constexpr double kMax = std::numeric_limits<float>::max();
    constexpr double kOverflow = 3.4028235677973366e38; // largest float plus half its spacing
    if (d > kMax)
        return d < kOverflow ? std::numeric_limits<float>::max() : std::numeric_limits<float>::infinity();
    if (d < -kMax)
        return d > -kOverflow ? -std::numeric_limits<float>::max() : -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
}

double toDouble(const Tok &t)
{
    switch (t.num)
    {
    case Num::Signed: return static_cast<double>(t.i);
    case Num::Unsigned: return static_cast<double>(t.u);
    default: return t.d;
    }
}
} // namespace

struct BAS_JSONParser::Impl
{
    std::string input;
    std::string strings;
    std::vector<Tok> toks;
    std::string errorText; // the parse error, recorded as fatal when reached
    std::size_t pos = 0;
    bool errorReported = false;
    BAS_StringArray warnings;
    BAS_StringArray fatals;

    void tokenize()
    {
        Collector c{toks, strings};
        rapidjson::Reader reader;
        rapidjson::MemoryStream ms(input.data(), input.size());
        rapidjson::ParseResult r = reader.Parse<kParseFlags>(ms, c);
        if (r.IsError())
        {
            Tok k;
            k.type = Token::Error;
            toks.push_back(k);
            errorText = imb_detail::format("JSON parse error at offset {}: {}", r.Offset(),
                                           rapidjson::GetParseError_En(r.Code()));
        }
        else
            toks.emplace_back(); // End
    }

    // The next token; reaching an Error token records the fatal message once.
    const Tok &peek()
    {
        const Tok &t = toks[pos];
        if (t.type == Token::Error && !errorReported)
        {
            errorReported = true;
            fatals.append(errorText);
        }
        return t;
    }
    bool isValueStart(Token t) const
    {
        return t == Token::Null || t == Token::Bool || t == Token::Number || t == Token::String ||
               t == Token::BeginArray || t == Token::BeginMap;
    }
    BAS_StringHolder stringOf(const Tok &t) const { return BAS_StringHolder(strings.data() + t.strOffset, t.strLength); }

    // Consumes one whole value from pos (which starts one).
    void skipValue()
    {
        exint depth = 0;
        do
        {
            const Token t = toks[pos].type;
            if (t == Token::Error || t == Token::End)
                return;
            if (t == Token::BeginArray || t == Token::BeginMap)
                ++depth;
            else if (t == Token::EndArray || t == Token::EndMap)
                --depth;
            ++pos;
        } while (depth > 0);
    }

    template <typename T, typename Convert> bool uniform(T *buffer, exint capacity, exint &count, Convert convert)
    {
        count = 0;
        if (peek().type != Token::BeginArray)
            return false;
        ++pos;
        bool warned = false;
        for (;;)
        {
            const Tok &t = peek();
            if (t.type == Token::EndArray)
            {
                ++pos;
                return true;
            }
            if (t.type == Token::Error || t.type == Token::End)
                return false;
            T v{};
            if (t.type == Token::Number && convert(t, v))
            {
                if (count < capacity)
                    buffer[count] = v;
                ++pos;
            }
            else
            {
                if (!warned)
                    warnings.append("Unexpected entry in number array");
                warned = true;
                skipValue();
            }
            ++count;
        }
    }
};

BAS_JSONParser::BAS_JSONParser(std::string_view text) : myImpl(new Impl)
{
    myImpl->input.assign(text.data(), text.size());
    myImpl->tokenize();
}

BAS_JSONParser::BAS_JSONParser(const char *data, exint size) : myImpl(new Impl)
{
    if (data && size > 0)
        myImpl->input.assign(data, static_cast<std::size_t>(size));
    myImpl->tokenize();
}

BAS_JSONParser::BAS_JSONParser(std::istream &is) : myImpl(new Impl)
{
    myImpl->input.assign(std::istreambuf_iterator<char>(is), std::istreambuf_iterator<char>());
    myImpl->tokenize();
}

BAS_JSONParser::~BAS_JSONParser() = default;

BAS_JSONParser::Token BAS_JSONParser::peek() { return myImpl->peek().type; }

BAS_JSONParser::Iterator BAS_JSONParser::beginArray()
{
    if (myImpl->peek().type != Token::BeginArray)
        return Iterator(this, false, false);
    ++myImpl->pos;
    return Iterator(this, true, false);
}

BAS_JSONParser::Iterator BAS_JSONParser::beginMap()
{
    if (myImpl->peek().type != Token::BeginMap)
        return Iterator(this, false, true);
    ++myImpl->pos;
    return Iterator(this, true, true);
}

bool BAS_JSONParser::Iterator::atEnd()
{
    if (myDone)
        return true;
    Impl &m = *myParser->myImpl;
    const Token t = m.peek().type;
    if (t == (myMap ? Token::EndMap : Token::EndArray))
    {
        ++m.pos;
        myDone = true;
    }
    else if (t == Token::Error || t == Token::End || t == (myMap ? Token::EndArray : Token::EndMap))
        myDone = true; // malformed or misused: stop without consuming
    return myDone;
}

bool BAS_JSONParser::parseKey(BAS_StringHolder &key)
{
    const Tok &t = myImpl->peek();
    if (t.type != Token::Key)
        return false;
    key = myImpl->stringOf(t);
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseString(BAS_StringHolder &value)
{
    const Tok &t = myImpl->peek();
    if (t.type != Token::String)
        return false;
    value = myImpl->stringOf(t);
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseInteger(int64 &value)
{
    const Tok &t = myImpl->peek();
    int64 v;
    if (t.type != Token::Number || !toInt64(t, v))
        return false;
    value = v;
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseInteger(int &value)
{
    const Tok &t = myImpl->peek();
    int64 v;
    if (t.type != Token::Number || !toInt64(t, v) || v < std::numeric_limits<int>::min() ||
        v > std::numeric_limits<int>::max())
        return false;
    value = static_cast<int>(v);
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseBool(bool &value)
{
    const Tok &t = myImpl->peek();
    if (t.type != Token::Bool)
        return false;
    value = t.b;
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseReal(double &value)
{
    const Tok &t = myImpl->peek();
    if (t.type != Token::Number)
        return false;
    value = toDouble(t);
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::skipNextObject()
{
    const Token t = myImpl->peek().type;
    if (t == Token::Key)
    {
        // A map entry: its key and its value.
        ++myImpl->pos;
        if (!myImpl->isValueStart(myImpl->peek().type))
            return false;
    }
    else if (!myImpl->isValueStart(t))
        return false;
    myImpl->skipValue();
    return true;
}

bool BAS_JSONParser::parseUniformArray(float *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](const Tok &t, float &v) {
        v = toFloat(toDouble(t));
        return true;
    });
}

bool BAS_JSONParser::parseUniformArray(int64 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](const Tok &t, int64 &v) { return toInt64(t, v); });
}

bool BAS_JSONParser::parseUniformArray(uint64 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](const Tok &t, uint64 &v) { return toUint64(t, v); });
}

bool BAS_JSONParser::parseUniformArray(uint8 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](const Tok &t, uint8 &v) {
        uint64 u;
        if (!toUint64(t, u))
            return false;
        v = static_cast<uint8>(u);
        return true;
    });
}

exint BAS_JSONParser::position() const { return static_cast<exint>(myImpl->pos); }

void BAS_JSONParser::rewind(exint position)
{
    if (position >= 0 && static_cast<std::size_t>(position) < myImpl->toks.size())
        myImpl->pos = static_cast<std::size_t>(position);
}

exint BAS_JSONParser::inputSize() const { return static_cast<exint>(myImpl->input.size()); }

void BAS_JSONParser::addWarning(const char *message) { myImpl->warnings.append(message ? message : ""); }

void BAS_JSONParser::addFatal(const char *message) { myImpl->fatals.append(message ? message : ""); }

const BAS_StringArray &BAS_JSONParser::warnings() const { return myImpl->warnings; }

const BAS_StringArray &BAS_JSONParser::fatals() const { return myImpl->fatals; }

bool BAS_JSONParser::hasFatal() const { return !myImpl->fatals.isEmpty(); }
