// BAS_JSONParser over RapidJSON's Reader.
//
// RapidJSON's non-recursive reader (kParseIterativeFlag) turns the whole text
// into a compact token array once; the parser's calls then walk that array.
// This gives a pull interface, constant stack depth for any nesting, and
// cheap rewinding for readers that go over a value twice.
#include <IMB/platform/BAS_JSONParser.h>

#include "platform/Log.h"

// RapidJSON 1.1's internal stack starts out null and does "null + n" before
// its first allocation; the pointer is only compared, never used, so that
// check is switched off for RapidJSON's own functions (and only for them).
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif

#include <charconv>
#include <cmath>
#include <istream>
#include <iterator>
#include <limits>
#include <vector>

namespace
{
using Token = BAS_JSONParser::Token;

struct Tok
{
    Token type = Token::End;
    bool b = false;
    std::size_t strOffset = 0; // strings, keys and the text of numbers
    std::size_t strLength = 0;
};

// Numbers reach the parser as their (already validated) text and are
// converted on demand with std::from_chars: correctly rounded straight to the
// asked type (no double rounding for floats), and clear of RapidJSON 1.1's
// own number conversion, which misbehaves on some long digit strings.
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNanAndInfFlag |
                                 rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseStopWhenDoneFlag;

// Collects RapidJSON's events as tokens.
struct Collector
{
    std::vector<Tok> &toks;
    std::string &strings;

    bool push(Token t, bool b = false)
    {
        Tok k;
        k.type = t;
        k.b = b;
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
    bool Bool(bool v) { return push(Token::Bool, v); }
    // Unused with numbers as text, but part of the handler concept.
    bool Int(int) { return false; }
    bool Uint(unsigned) { return false; }
    bool Int64(int64_t) { return false; }
    bool Uint64(uint64_t) { return false; }
    bool Double(double) { return false; }
    bool RawNumber(const char *s, rapidjson::SizeType len, bool) { return text(Token::Number, s, len); }
    bool String(const char *s, rapidjson::SizeType len, bool) { return text(Token::String, s, len); }
    bool StartObject() { return push(Token::BeginMap); }
    bool Key(const char *s, rapidjson::SizeType len, bool) { return text(Token::Key, s, len); }
    bool EndObject(rapidjson::SizeType) { return push(Token::EndMap); }
    bool StartArray() { return push(Token::BeginArray); }
    bool EndArray(rapidjson::SizeType) { return push(Token::EndArray); }
};

// A real number from its JSON text; values beyond the type's range become
// infinities, values below it zeros (from_chars leaves them unconverted).
template <typename F> F toReal(std::string_view t)
{
    F v = 0;
    const auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    if (r.ec == std::errc::result_out_of_range)
    {
        const bool negative = !t.empty() && t[0] == '-';
        const std::size_t e = t.find_first_of("eE");
        const bool tiny = e != std::string_view::npos && e + 1 < t.size() && t[e + 1] == '-';
        v = tiny ? F(0) : std::numeric_limits<F>::infinity();
        return negative ? -v : v;
    }
    return v;
}

// An integer from the text of an integer, or of an integral real in range.
template <typename I> bool toInteger(std::string_view t, I &out)
{
    I v = 0;
    const auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    if (r.ec == std::errc() && r.ptr == t.data() + t.size())
    {
        out = v;
        return true;
    }
    const double d = toReal<double>(t);
    // The largest value of I plus one, as a double (a power of two: exact).
    const double limit = std::ldexp(1.0, std::numeric_limits<I>::digits);
    const double lowest = std::numeric_limits<I>::is_signed ? -limit : 0.0;
    if (std::isfinite(d) && std::floor(d) == d && d >= lowest && d < limit)
    {
        out = static_cast<I>(d);
        return true;
    }
    return false;
}

bool toInt64(std::string_view t, int64 &out) { return toInteger(t, out); }

bool toUint64(std::string_view t, uint64 &out)
{
    if (toInteger(t, out))
        return true;
    int64 s;
    if (toInteger(t, s))
    {
        out = static_cast<uint64>(s); // negative values wrap, as a bit mask would
        return true;
    }
    return false;
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
    std::string_view textOf(const Tok &t) const { return std::string_view(strings.data() + t.strOffset, t.strLength); }

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
            if (t.type == Token::Number && convert(textOf(t), v))
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
    if (t.type != Token::Number || !toInt64(myImpl->textOf(t), v))
        return false;
    value = v;
    ++myImpl->pos;
    return true;
}

bool BAS_JSONParser::parseInteger(int &value)
{
    const Tok &t = myImpl->peek();
    int64 v;
    if (t.type != Token::Number || !toInt64(myImpl->textOf(t), v) || v < std::numeric_limits<int>::min() ||
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
    value = toReal<double>(myImpl->textOf(t));
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
    return myImpl->uniform(buffer, capacity, count, [](std::string_view t, float &v) {
        v = toReal<float>(t);
        return true;
    });
}

bool BAS_JSONParser::parseUniformArray(int64 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](std::string_view t, int64 &v) { return toInt64(t, v); });
}

bool BAS_JSONParser::parseUniformArray(uint64 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](std::string_view t, uint64 &v) { return toUint64(t, v); });
}

bool BAS_JSONParser::parseUniformArray(uint8 *buffer, exint capacity, exint &count)
{
    return myImpl->uniform(buffer, capacity, count, [](std::string_view t, uint8 &v) {
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
