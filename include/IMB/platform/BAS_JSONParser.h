// BAS_JSONParser: a pull parser for JSON text.
//
// The caller walks the document one value at a time: it looks at the next
// token (peek), enters arrays and maps through an Iterator, reads scalars with
// the parse* calls, reads arrays of numbers straight into its own buffers,
// and skips values it does not want with skipNextObject. Besides strict JSON
// it reads NaN, Infinity and -Infinity (as BAS_JSONWriter writes them).
//
// Failures: a parse* call whose next value is not of the asked type returns
// false and consumes nothing, so the caller can skip the value. Malformed
// text records a fatal error ("JSON parse error at offset N: reason"); every
// call fails from then on. Readers built on the parser report their own
// problems through addWarning and addFatal; callers read all messages back
// with warnings() and fatals().
//
// The parser holds a copy of the whole input and its tokens (RapidJSON's
// non-recursive reader turns the text into tokens up front, so nesting depth
// costs no stack); a parse error becomes an Error token at the place where it
// occurred and is recorded as fatal when the walk reaches it. One parser
// belongs to one thread.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_StringArray.h>
#include <IMB/platform/BAS_StringHolder.h>
#include <IMB/platform/BAS_Types.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

class IMB_API BAS_JSONParser
{
public:
    enum class Token
    {
        End,        // the document is complete
        Error,      // malformed text (a fatal error has been recorded)
        Null,
        Bool,
        Number,
        String,
        Key,        // a map key
        BeginArray,
        EndArray,
        BeginMap,
        EndMap
    };

    // Walks the items of an array or the entries of a map:
    //   for (auto it = parser.beginArray(); !it.atEnd(); it.advance()) { read one item }
    // Each step must consume exactly one item (or, in a map, one key and its
    // value). atEnd consumes the closing bracket; it is also true after a
    // parse error, and at once when the value was not an array (map).
    class IMB_API Iterator
    {
    public:
        bool atEnd();
        void advance() { ++myIndex; }
        Iterator &operator++()
        {
            advance();
            return *this;
        }
        // Number of items advanced over so far.
        exint index() const { return myIndex; }
        // False when the value was not an array (map) at all.
        bool isValid() const { return myValid; }

    private:
        friend class BAS_JSONParser;
        Iterator(BAS_JSONParser *parser, bool valid, bool map) : myParser(parser), myValid(valid), myMap(map) {}
        BAS_JSONParser *myParser;
        exint myIndex = 0;
        bool myValid;
        bool myMap;
        bool myDone = !myValid;
    };

    // Parses `text` (copied).
    explicit BAS_JSONParser(std::string_view text);
    BAS_JSONParser(const char *data, exint size);
    // Reads the rest of `is` and parses it.
    explicit BAS_JSONParser(std::istream &is);
    ~BAS_JSONParser();
    BAS_JSONParser(const BAS_JSONParser &) = delete;
    BAS_JSONParser &operator=(const BAS_JSONParser &) = delete;

    // The kind of the next token, without consuming it.
    Token peek();

    // Consumes '[' ('{') and returns an iterator over its items (entries).
    // When the next value is not an array (map), nothing is consumed and the
    // iterator is invalid and at its end.
    Iterator beginArray();
    Iterator beginMap();

    // A map key.
    bool parseKey(BAS_StringHolder &key);
    // A string value (also a key token inside an array).
    bool parseString(BAS_StringHolder &value);
    // An integer (an integral real number within range is accepted).
    bool parseInteger(int64 &value);
    bool parseInteger(int &value);
    bool parseBool(bool &value);
    // Any number.
    bool parseReal(double &value);
    // Consumes the next value whole (a scalar, or an array or map with all
    // it holds). False, consuming nothing, at the end of an array or map, at
    // the end of the document or after a parse error.
    bool skipNextObject();

    // Reads an array of numbers into `buffer`: the first `capacity` entries
    // are stored, `count` receives the number of entries the array has.
    // Entries that are not numbers (or not integers, or out of range, for the
    // integer forms) are counted but not stored, with the warning
    // "Unexpected entry in number array". Bytes take the low 8 bits of an
    // integer. False, consuming nothing, when the next value is not an array.
    bool parseUniformArray(float *buffer, exint capacity, exint &count);
    bool parseUniformArray(int64 *buffer, exint capacity, exint &count);
    bool parseUniformArray(uint64 *buffer, exint capacity, exint &count);
    bool parseUniformArray(uint8 *buffer, exint capacity, exint &count);

    // The current position, and a return to a position taken earlier, so
    // that a reader can go over a value more than once. Messages are kept.
    exint position() const;
    void rewind(exint position);

    // Size of the input in bytes.
    exint inputSize() const;

    // Messages: warnings leave the document usable, fatal errors do not.
    void addWarning(const char *message);
    void addWarning(const std::string &message) { addWarning(message.c_str()); }
    void addFatal(const char *message);
    void addFatal(const std::string &message) { addFatal(message.c_str()); }
    const BAS_StringArray &warnings() const;
    const BAS_StringArray &fatals() const;
    bool hasFatal() const;

private:
    struct Impl;
    std::unique_ptr<Impl> myImpl;
};
