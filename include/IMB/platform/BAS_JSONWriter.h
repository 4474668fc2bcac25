// BAS_JSONWriter: a streaming JSON writer.
//
// Values are written one call at a time in document order: arrays and maps
// are opened and closed explicitly, map entries are a key followed by a
// value. Inside an array a "key token" is written as a plain string item, so
// that an array can hold alternating keys and values. Floats are written in
// their shortest form that reads back to the same float; NaN and infinities
// are written as NaN, Infinity and -Infinity (which BAS_JSONParser reads).
//
// Every call returns false, and writes nothing, when it does not fit the
// document's structure (a value where a map key is expected, a close that
// does not match, a second top-level value) or when the output stream has
// failed; once a call has failed, ok() stays false.
//
// The writer either streams to a std::ostream (text is passed on at the end
// of every top-level value, at flush() and at least every 64 KB) or collects
// the text, available through str(). One writer belongs to one thread.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Types.h>

#include <iosfwd>
#include <memory>
#include <string>

class IMB_API BAS_JSONWriter
{
public:
    // Collects the text in memory (see str()).
    BAS_JSONWriter();
    // Streams the text to `os`, which must outlive the writer.
    explicit BAS_JSONWriter(std::ostream &os);
    ~BAS_JSONWriter();
    BAS_JSONWriter(const BAS_JSONWriter &) = delete;
    BAS_JSONWriter &operator=(const BAS_JSONWriter &) = delete;

    bool jsonBeginArray();
    bool jsonEndArray();
    bool jsonBeginMap();
    bool jsonEndMap();
    // A map key (only where a map expects one).
    bool jsonKey(const char *key);
    // A key token: a map key inside a map, a string item inside an array.
    bool jsonKeyToken(const char *key);
    bool jsonString(const char *value);
    bool jsonBool(bool value);
    bool jsonInt(int64 value);
    bool jsonUInt(uint64 value);
    bool jsonReal(double value);
    bool jsonReal(float value);
    bool jsonNull();

    // An array of `n` numbers in one call.
    bool jsonUniformArray(const float *values, exint n);
    bool jsonUniformArray(const int32 *values, exint n);
    bool jsonUniformArray(const int64 *values, exint n);
    bool jsonUniformArray(const uint64 *values, exint n);
    // Bytes are written as integers 0..255.
    bool jsonUniformArray(const uint8 *values, exint n);

    // Passes pending text to the stream; false when the stream failed.
    bool flush();
    // False once any call has failed.
    bool ok() const;
    // True when a complete top-level value has been written.
    bool isComplete() const;
    // The text written so far (in-memory writers; for a streaming writer the
    // text not yet passed on).
    std::string str() const;

private:
    struct Impl;
    std::unique_ptr<Impl> myImpl;
};
