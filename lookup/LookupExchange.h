// Pieces shared by the exchange-file readers and writers (".cube", ".spi1d",
// ".spi3d", ".3dl", ".csp"): the line reader, messages and number parsing,
// the content of a file as read and its mapping onto the table model, the
// view of a table the writers work from, and the buffered writer.
// Internal; included by lookup/LookupExchange*.cpp only.
#pragma once

#include <IMB/IMB_Lookup.h>

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace imb_detail
{
using ExchangeFormat = IMB_Lookup::ExchangeFormat;
using ExchangeOptions = IMB_Lookup::ExchangeOptions;
using ExchangeHeader = IMB_Lookup::ExchangeHeader;

// Longest line a reader takes: a ".csp" shaper of 262,144 points written at
// full precision fits several times over.
constexpr std::size_t kMaxExchangeLine = std::size_t(16) << 20;
// Most shaper points a ".csp" reader takes (the writer needs three per
// pre-table sample, see LookupExchangeCsp.cpp).
constexpr int kMaxShaperPoints = 4 * 65536;
// Samples of the pre-table a smooth ".csp" shaper is resampled into.
constexpr int kShaperSamples = 65536;

// Reads a stream one line at a time through a 64 KiB buffer: the line end
// ("\n", "\r\n" or a last line without one) is removed, and a UTF-8
// byte-order mark before the first line. Memory stays bounded
// by kMaxExchangeLine whatever the input; a longer line ends the reading
// (tooLong() then says so).
class ExchangeLines
{
public:
    explicit ExchangeLines(FILE *fp) : myFile(fp) {}
    ExchangeLines(const ExchangeLines &) = delete;
    ExchangeLines &operator=(const ExchangeLines &) = delete;

    // The next line, valid until the next call; false at the end of the
    // stream or on an over-long line.
    bool next(std::string_view &line);
    // 1-based number of the line last returned (of the last line read at
    // the end of the stream).
    int lineNumber() const { return myLineNumber; }
    bool tooLong() const { return myTooLong; }

private:
    bool fill();
    void dropByteOrderMark(std::string_view &line) const;

    FILE *myFile;
    std::vector<char> myBuffer = std::vector<char>(std::size_t(1) << 16);
    std::size_t myBegin = 0, myEnd = 0;
    int myLineNumber = 0;
    bool myEof = false;
    bool myTooLong = false;
};

// Takes the next word (run of characters other than blanks, tabs and
// carriage returns) off the front of `rest`; false when none is left.
bool nextWord(std::string_view &rest, std::string_view &word);
// `line` with blanks removed at both ends and, when `comment` is not 0,
// everything from `comment` on.
std::string_view trimLine(std::string_view line, char comment);
// Case-insensitive comparison with an ASCII keyword.
bool sameWord(std::string_view a, const char *keyword);

// A finite number (the library's strict parser): false for malformed text,
// infinities and NaN.
bool parseFinite(std::string_view text, float &value);
// A whole decimal count in [lo, hi].
bool parseCount(std::string_view text, long lo, long hi, long &value);
// Reads up to `max` finite numbers from `rest` into `out`: the count read,
// or -1 when a word is not a finite number or more than `max` are present.
int parseNumbers(std::string_view rest, float *out, int max);

// Prints "<ext> file, line N: <what>" (without the line part for line 0)
// through the library's message helper; returns false.
bool exchangeFail(ExchangeFormat format, int line, const std::string &what);

// A file's tables as read, before the mapping onto the model.
struct ExchangeContent
{
    // A 1D table of size1D RGB rows, alone or (with a cube) applied first.
    int size1D = 0;
    std::vector<float> rows1D;
    float domain1DMin[3] = {0.0f, 0.0f, 0.0f};
    float domain1DMax[3] = {1.0f, 1.0f, 1.0f};
    // A cube of edge size3D, red fastest, over its input domain.
    int size3D = 0;
    std::vector<float> cube;
    float domain3DMin[3] = {0.0f, 0.0f, 0.0f};
    float domain3DMax[3] = {1.0f, 1.0f, 1.0f};
};

// Makes `lut` the table `content` describes (see IMB_Lookup.h for the
// rules). False, with a message naming `line`, when the model cannot hold
// it (different domains per channel, a per-channel 1D table before a cube).
bool buildFromContent(IMB_Lookup &lut, const ExchangeContent &content, ExchangeFormat format, int line);

// A table as the writers see it: a 1D table over a domain, a cube over a
// domain, or a pre-table over a domain feeding a cube over 0-1.
struct ExchangeView
{
    int size1D = 0;
    std::vector<double> table[3]; // 1D table per channel, or the pre-table (all three)
    bool shared = false;          // the three columns are one table
    bool preTable = false;        // the 1D part feeds the cube
    int size3D = 0;
    std::vector<float> cube; // size3D^3 triples, red fastest
    float domainMin = 0.0f, domainMax = 1.0f;
};

// Fills `view` from `lut` when `format` can hold it; else prints why and
// returns false.
bool viewForExchange(const IMB_Lookup &lut, ExchangeFormat format, const ExchangeOptions &options,
                     ExchangeView &view);

// Buffered text output through fmt: flushed every 64 KiB and at the end.
class ExchangeWriter
{
public:
    explicit ExchangeWriter(FILE *fp) : myFile(fp) {}
    template <typename... Args> void print(fmt::format_string<Args...> pattern, Args &&...args)
    {
        fmt::format_to(std::back_inserter(myBuffer), pattern, std::forward<Args>(args)...);
        if (myBuffer.size() >= (std::size_t(1) << 16))
            flush();
    }
    void text(std::string_view s)
    {
        myBuffer.append(s.data(), s.data() + s.size());
        if (myBuffer.size() >= (std::size_t(1) << 16))
            flush();
    }
    // Writes what is buffered; true while every write succeeded.
    bool flush();

private:
    FILE *myFile;
    fmt::memory_buffer myBuffer;
    bool myOk = true;
};

// The per-format readers (into `lut`, already reset, and `header`) and
// writers (of a view viewForExchange accepted for the format).
bool readCube(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &header);
bool writeCube(FILE *fp, const ExchangeView &view);
bool readSpi1D(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &header);
bool writeSpi1D(FILE *fp, const ExchangeView &view);
bool readSpi3D(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &header);
bool writeSpi3D(FILE *fp, const ExchangeView &view);
bool read3DL(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &header);
bool write3DL(FILE *fp, const ExchangeView &view, const ExchangeOptions &options);
bool readCsp(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &header);
bool writeCsp(FILE *fp, const ExchangeView &view);
// The ".3dl" integer output depth the writer uses for `view` (see
// ExchangeOptions::outBits); 0 when `options` asks for an unknown depth.
int outBits3DL(const ExchangeView &view, const ExchangeOptions &options);
// The ".csp" shaper points the writer gives `view`; false when the table's
// domain is too narrow for its offset to place them in float precision.
bool cspShaperPoints(const ExchangeView &view, std::vector<float> &x, std::vector<float> &y);
} // namespace imb_detail
