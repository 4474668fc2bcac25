// BAS_JSONWriter over RapidJSON's Writer.
//
// The structure of the document is tracked here, so that a call that does not
// fit it fails instead of reaching RapidJSON's internal assertions.
#include <IMB/platform/BAS_JSONWriter.h>

// RapidJSON 1.1's internal stack starts out null and does "null + n" before
// its first allocation; the pointer is only compared, never used, so that
// check is switched off for RapidJSON's own functions (and only for them).
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/writer.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif

#include <fmt/format.h>

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

namespace
{
// RapidJSON output stream: collects text, hands it on to an ostream when one
// is given (at Flush and in 64 KB chunks).
class Sink
{
public:
    typedef char Ch;
    explicit Sink(std::ostream *os) : myStream(os) {}

    void Put(char c)
    {
        myText.push_back(c);
        if (myStream && myText.size() >= 65536)
            Flush();
    }
    void Flush()
    {
        if (myStream && !myText.empty())
        {
            myStream->write(myText.data(), static_cast<std::streamsize>(myText.size()));
            myText.clear();
            if (!myStream->good())
                myFailed = true;
        }
    }
    bool failed() const { return myFailed || (myStream && !myStream->good()); }
    const std::string &text() const { return myText; }

    // Unused by the Writer but part of RapidJSON's stream concept.
    Ch Peek() const { return 0; }
    Ch Take() { return 0; }
    std::size_t Tell() const { return 0; }
    Ch *PutBegin() { return nullptr; }
    std::size_t PutEnd(Ch *) { return 0; }

private:
    std::ostream *myStream;
    std::string myText;
    bool myFailed = false;
};

using Writer = rapidjson::Writer<Sink, rapidjson::UTF8<>, rapidjson::UTF8<>, rapidjson::CrtAllocator,
                                 rapidjson::kWriteNanAndInfFlag>;

enum class Frame
{
    Array,
    MapKey,  // a map expecting a key (or its end)
    MapValue // a map expecting the value of the key just written
};
} // namespace

struct BAS_JSONWriter::Impl
{
    explicit Impl(std::ostream *os) : sink(os), writer(sink) {}

    Sink sink;
    Writer writer;
    std::vector<Frame> frames;
    bool complete = false;
    bool failed = false;

    // Whether a value may be written now.
    bool valueAllowed() const
    {
        if (failed)
            return false;
        if (frames.empty())
            return !complete;
        return frames.back() != Frame::MapKey;
    }
    // Bookkeeping after a complete value (scalar or closed container).
    void valueWritten()
    {
        if (frames.empty())
            complete = true;
        else if (frames.back() == Frame::MapValue)
            frames.back() = Frame::MapKey;
    }
    bool finish(bool written)
    {
        if (!written || sink.failed())
            failed = true;
        return !failed;
    }
    template <typename F> bool value(F &&write)
    {
        if (!valueAllowed())
            return fail();
        const bool r = write();
        valueWritten();
        return finish(r);
    }
    bool fail()
    {
        failed = true;
        return false;
    }
    bool realFloat(float v)
    {
        if (std::isnan(v))
            return writer.RawValue("NaN", 3, rapidjson::kNumberType);
        if (std::isinf(v))
            return v > 0 ? writer.RawValue("Infinity", 8, rapidjson::kNumberType)
                         : writer.RawValue("-Infinity", 9, rapidjson::kNumberType);
        // Negative zero needs a fraction: "-0" reads back as the integer 0.
        if (v == 0.0f && std::signbit(v))
            return writer.RawValue("-0.0", 4, rapidjson::kNumberType);
        // The shortest text that reads back as the same float.
        char buf[32];
        const auto end = fmt::format_to_n(buf, sizeof buf, "{}", v).out;
        return writer.RawValue(buf, static_cast<std::size_t>(end - buf), rapidjson::kNumberType);
    }
    template <typename T, typename F> bool uniform(const T *values, exint n, F &&one)
    {
        if (!valueAllowed() || n < 0 || (n > 0 && !values))
            return fail();
        bool r = writer.StartArray();
        for (exint i = 0; i < n && r; ++i)
            r = one(values[i]);
        r = r && writer.EndArray(static_cast<rapidjson::SizeType>(n));
        valueWritten();
        return finish(r);
    }
};

BAS_JSONWriter::BAS_JSONWriter() : myImpl(new Impl(nullptr)) {}
BAS_JSONWriter::BAS_JSONWriter(std::ostream &os) : myImpl(new Impl(&os)) {}
BAS_JSONWriter::~BAS_JSONWriter()
{
    if (myImpl)
        myImpl->sink.Flush();
}

bool BAS_JSONWriter::jsonBeginArray()
{
    Impl &m = *myImpl;
    if (!m.valueAllowed())
        return m.fail();
    const bool r = m.writer.StartArray();
    m.frames.push_back(Frame::Array);
    return m.finish(r);
}

bool BAS_JSONWriter::jsonEndArray()
{
    Impl &m = *myImpl;
    if (m.failed || m.frames.empty() || m.frames.back() != Frame::Array)
        return m.fail();
    const bool r = m.writer.EndArray();
    m.frames.pop_back();
    m.valueWritten();
    return m.finish(r);
}

bool BAS_JSONWriter::jsonBeginMap()
{
    Impl &m = *myImpl;
    if (!m.valueAllowed())
        return m.fail();
    const bool r = m.writer.StartObject();
    m.frames.push_back(Frame::MapKey);
    return m.finish(r);
}

bool BAS_JSONWriter::jsonEndMap()
{
    Impl &m = *myImpl;
    if (m.failed || m.frames.empty() || m.frames.back() != Frame::MapKey)
        return m.fail();
    const bool r = m.writer.EndObject();
    m.frames.pop_back();
    m.valueWritten();
    return m.finish(r);
}

bool BAS_JSONWriter::jsonKey(const char *key)
{
    Impl &m = *myImpl;
    if (m.failed || !key || m.frames.empty() || m.frames.back() != Frame::MapKey)
        return m.fail();
    const bool r = m.writer.Key(key);
    m.frames.back() = Frame::MapValue;
    return m.finish(r);
}

bool BAS_JSONWriter::jsonKeyToken(const char *key)
{
    Impl &m = *myImpl;
    if (!m.frames.empty() && m.frames.back() == Frame::MapKey)
        return jsonKey(key);
    return jsonString(key);
}

bool BAS_JSONWriter::jsonString(const char *value)
{
    if (!value)
        return myImpl->fail();
    return myImpl->value([&] { return myImpl->writer.String(value); });
}

bool BAS_JSONWriter::jsonBool(bool value)
{
    return myImpl->value([&] { return myImpl->writer.Bool(value); });
}

bool BAS_JSONWriter::jsonInt(int64 value)
{
    return myImpl->value([&] { return myImpl->writer.Int64(value); });
}

bool BAS_JSONWriter::jsonUInt(uint64 value)
{
    return myImpl->value([&] { return myImpl->writer.Uint64(value); });
}

bool BAS_JSONWriter::jsonReal(double value)
{
    return myImpl->value([&] { return myImpl->writer.Double(value); });
}

bool BAS_JSONWriter::jsonReal(float value)
{
    return myImpl->value([&] { return myImpl->realFloat(value); });
}

bool BAS_JSONWriter::jsonNull()
{
    return myImpl->value([&] { return myImpl->writer.Null(); });
}

bool BAS_JSONWriter::jsonUniformArray(const float *values, exint n)
{
    return myImpl->uniform(values, n, [&](float v) { return myImpl->realFloat(v); });
}

bool BAS_JSONWriter::jsonUniformArray(const int32 *values, exint n)
{
    return myImpl->uniform(values, n, [&](int32 v) { return myImpl->writer.Int(v); });
}

bool BAS_JSONWriter::jsonUniformArray(const int64 *values, exint n)
{
    return myImpl->uniform(values, n, [&](int64 v) { return myImpl->writer.Int64(v); });
}

bool BAS_JSONWriter::jsonUniformArray(const uint64 *values, exint n)
{
    return myImpl->uniform(values, n, [&](uint64 v) { return myImpl->writer.Uint64(v); });
}

bool BAS_JSONWriter::jsonUniformArray(const uint8 *values, exint n)
{
    return myImpl->uniform(values, n, [&](uint8 v) { return myImpl->writer.Uint(v); });
}

bool BAS_JSONWriter::flush()
{
    myImpl->sink.Flush();
    return myImpl->finish(true);
}

bool BAS_JSONWriter::ok() const { return !myImpl->failed && !myImpl->sink.failed(); }

bool BAS_JSONWriter::isComplete() const { return myImpl->complete; }

std::string BAS_JSONWriter::str() const { return myImpl->sink.text(); }
