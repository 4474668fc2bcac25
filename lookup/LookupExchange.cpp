// Exchange files of lookup tables: the entry points, the line reader and
// number helpers the format readers share, the mapping of a file's content
// onto the table model, and the checks that decide what a format can hold.
#include "lookup/LookupExchange.h"

#include <IMB/platform/CRV_Clip.h>

#include "platform/Log.h"
#include "platform/PLT_Math.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <strings.h>

namespace imb_detail
{
// ---------------------------------------------------------------- lines

bool ExchangeLines::fill()
{
    if (myEof || myTooLong || !myFile)
        return false;
    if (myBegin > 0)
    {
        std::memmove(myBuffer.data(), myBuffer.data() + myBegin, myEnd - myBegin);
        myEnd -= myBegin;
        myBegin = 0;
    }
    if (myEnd == myBuffer.size())
    {
        if (myBuffer.size() > kMaxExchangeLine)
        {
            myTooLong = true;
            return false;
        }
        myBuffer.resize(std::min(2 * myBuffer.size(), kMaxExchangeLine + 2));
    }
    const std::size_t got = std::fread(myBuffer.data() + myEnd, 1, myBuffer.size() - myEnd, myFile);
    if (got == 0)
    {
        myEof = true;
        return false;
    }
    myEnd += got;
    return true;
}

bool ExchangeLines::next(std::string_view &line)
{
    if (myTooLong)
        return false;
    std::size_t scanned = 0; // bytes after myBegin already searched
    for (;;)
    {
        const char *start = myBuffer.data() + myBegin;
        const void *nl = std::memchr(start + scanned, '\n', myEnd - myBegin - scanned);
        if (nl)
        {
            std::size_t len = static_cast<const char *>(nl) - start;
            myBegin += len + 1;
            ++myLineNumber;
            if (len > kMaxExchangeLine)
            {
                myTooLong = true;
                return false;
            }
            if (len > 0 && start[len - 1] == '\r')
                --len;
            line = std::string_view(start, len);
            dropByteOrderMark(line);
            return true;
        }
        scanned = myEnd - myBegin;
        if (!fill())
        {
            if (myTooLong || myBegin == myEnd)
                return false;
            // The last line, without a line end.
            start = myBuffer.data() + myBegin;
            std::size_t len = myEnd - myBegin;
            myBegin = myEnd;
            ++myLineNumber;
            if (len > 0 && start[len - 1] == '\r')
                --len;
            line = std::string_view(start, len);
            dropByteOrderMark(line);
            return true;
        }
    }
}

void ExchangeLines::dropByteOrderMark(std::string_view &line) const
{
    // Editors on some systems start text files with a UTF-8 byte-order mark.
    if (myLineNumber == 1 && line.size() >= 3 && line.substr(0, 3) == "\xEF\xBB\xBF")
        line.remove_prefix(3);
}

// ---------------------------------------------------------------- words

namespace
{
inline bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }
} // namespace

bool nextWord(std::string_view &rest, std::string_view &word)
{
    std::size_t p = 0;
    const std::size_t n = rest.size();
    while (p < n && isBlank(rest[p]))
        ++p;
    if (p == n)
    {
        rest = std::string_view();
        return false;
    }
    const std::size_t start = p;
    while (p < n && !isBlank(rest[p]))
        ++p;
    word = rest.substr(start, p - start);
    rest = rest.substr(p);
    return true;
}

std::string_view trimLine(std::string_view line, char comment)
{
    if (comment)
    {
        const std::size_t c = line.find(comment);
        if (c != std::string_view::npos)
            line = line.substr(0, c);
    }
    std::size_t b = 0, e = line.size();
    while (b < e && isBlank(line[b]))
        ++b;
    while (e > b && isBlank(line[e - 1]))
        --e;
    return line.substr(b, e - b);
}

bool sameWord(std::string_view a, const char *keyword)
{
    const std::size_t n = std::strlen(keyword);
    return a.size() == n && strncasecmp(a.data(), keyword, n) == 0;
}

bool parseFinite(std::string_view text, float &value)
{
    return PLTparseFloat(text, value) && std::isfinite(value);
}

bool parseCount(std::string_view text, long lo, long hi, long &value)
{
    if (text.empty() || text.size() > 18)
        return false;
    long v = 0;
    for (char c : text)
    {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    if (v < lo || v > hi)
        return false;
    value = v;
    return true;
}

int parseNumbers(std::string_view rest, float *out, int max)
{
    int count = 0;
    std::string_view word;
    while (nextWord(rest, word))
    {
        if (count == max || !parseFinite(word, out[count]))
            return -1;
        ++count;
    }
    return count;
}

bool exchangeFail(ExchangeFormat format, int line, const std::string &what)
{
    const char *ext = IMB_Lookup::exchangeExtension(format);
    if (line > 0)
        printStderr(imb_detail::format("{} file, line {}: {}\n", ext, line, what));
    else
        printStderr(imb_detail::format("{} file: {}\n", ext, what));
    return false;
}

bool ExchangeWriter::flush()
{
    if (myBuffer.size() > 0 && myOk)
        myOk = std::fwrite(myBuffer.data(), 1, myBuffer.size(), myFile) == myBuffer.size();
    myBuffer.clear();
    return myOk;
}

// ---------------------------------------------------------------- content -> model

namespace
{
bool sameForChannels(const float *v) { return v[0] == v[1] && v[1] == v[2]; }

bool columnsEqual(const std::vector<float> &rows, int n)
{
    for (int i = 0; i < n; ++i)
        if (rows[3 * i] != rows[3 * i + 1] || rows[3 * i] != rows[3 * i + 2])
            return false;
    return true;
}
} // namespace

bool buildFromContent(IMB_Lookup &lut, const ExchangeContent &c, ExchangeFormat format, int line)
{
    lut.reset();
    if (c.size3D == 0)
    {
        const int n = c.size1D;
        if (n < 2 || c.rows1D.size() < 3 * static_cast<std::size_t>(n))
            return exchangeFail(format, line, "the file holds no table");
        if (!sameForChannels(c.domain1DMin) || !sameForChannels(c.domain1DMax))
            return exchangeFail(format, line,
                                "the domain differs between channels; a table here has one domain for all");
        const bool shared = columnsEqual(c.rows1D, n);
        lut.setType(shared ? IMB_LUT_C : IMB_LUT_RGB);
        lut.setTableSize(n);
        CRV_Clip clip = lut.getLUT();
        for (int t = 0; t < (shared ? 1 : 3); ++t)
        {
            double *d = clip.getTrack(t)->getData();
            for (int i = 0; i < n; ++i)
                d[i] = c.rows1D[3 * i + t];
        }
        lut.setLUT(clip);
        lut.setDomain(c.domain1DMin[0], c.domain1DMax[0]);
        return true;
    }

    const int n = c.size3D;
    if (c.cube.size() < 3 * static_cast<std::size_t>(n) * n * n)
        return exchangeFail(format, line, "the file holds no cube");
    if (!sameForChannels(c.domain3DMin) || !sameForChannels(c.domain3DMax))
        return exchangeFail(format, line,
                            "the cube's input range differs between channels; a table here has one for all");
    std::vector<double> pre;
    float dmin, dmax;
    if (c.size1D > 0)
    {
        if (!columnsEqual(c.rows1D, c.size1D))
            return exchangeFail(format, line,
                                "the 1D table before the cube differs between channels; a table here has one "
                                "pre-table shared by the channels");
        if (!sameForChannels(c.domain1DMin) || !sameForChannels(c.domain1DMax))
            return exchangeFail(format, line,
                                "the domain differs between channels; a table here has one domain for all");
        // The pre-table gives cube positions in 0-1: the 1D output is read
        // in the cube's input range.
        const double lo = c.domain3DMin[0], span = double(c.domain3DMax[0]) - lo;
        pre.resize(static_cast<std::size_t>(c.size1D));
        for (int i = 0; i < c.size1D; ++i)
            pre[i] = (c.rows1D[3 * i] - lo) / span;
        dmin = c.domain1DMin[0];
        dmax = c.domain1DMax[0];
    }
    else
    {
        pre = {0.0, 1.0};
        dmin = c.domain3DMin[0];
        dmax = c.domain3DMax[0];
    }
    if (pre.size() == 2 && pre[0] == 0.0 && pre[1] == 1.0 && dmin == 0.0f && dmax == 1.0f)
    {
        lut.setType(IMB_LUT_3D);
        lut.set3DLUT(n, c.cube.data());
        return true;
    }
    lut.setType(IMB_LUT_3D_1D);
    lut.setTableSize(static_cast<int>(pre.size()));
    lut.set3DLUT(n, c.cube.data());
    CRV_Clip clip = lut.getLUT();
    std::memcpy(clip.getTrack(0)->getData(), pre.data(), pre.size() * sizeof(double));
    lut.setLUT(clip);
    lut.setDomain(dmin, dmax);
    return true;
}

// ---------------------------------------------------------------- model -> view

namespace
{
bool refuse(ExchangeFormat format, const std::string &why)
{
    printStderr(imb_detail::format("cannot save the table as {}: {}\n", IMB_Lookup::exchangeExtension(format), why));
    return false;
}

bool allFinite(const double *v, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        if (!std::isfinite(v[i]))
            return false;
    return true;
}

// A pre-table rising in a straight line from 0 to 1: the same as a domain.
bool isRamp(const std::vector<double> &pre)
{
    const std::size_t m = pre.size();
    for (std::size_t i = 0; i < m; ++i)
        if (std::fabs(pre[i] - double(i) / double(m - 1)) > 1e-7)
            return false;
    return true;
}
} // namespace

bool viewForExchange(const IMB_Lookup &lut, ExchangeFormat format, const ExchangeOptions &options,
                     ExchangeView &view)
{
    view = ExchangeView();
    if (!lut.isValid())
        return refuse(format, "the table is empty");
    const int32 type = lut.getType();
    const int32 base = type & ~IMB_LUT_LOG_SAMPLING;
    if (type & IMB_LUT_LOG_SAMPLING)
        return refuse(format, "the table samples its input logarithmically; the format samples it evenly");
    float rmin, rmax, dmin, dmax;
    lut.getRange(rmin, rmax);
    lut.getDomain(dmin, dmax);
    if (rmin != 0.0f || rmax != 1.0f)
        return refuse(format, imb_detail::format("its output range is {} to {}; the format has no output range, "
                                                 "only the samples (a range of 0 to 1)",
                                                 rmin, rmax));
    if (!(dmin < dmax) || !std::isfinite(dmin) || !std::isfinite(dmax))
        return refuse(format, imb_detail::format("its domain {} to {} is empty or not finite", dmin, dmax));
    view.domainMin = dmin;
    view.domainMax = dmax;
    const bool domain01 = dmin == 0.0f && dmax == 1.0f;

    switch (base)
    {
    case IMB_LUT_C:
    case IMB_LUT_RGB:
    {
        if (format == IMB_Lookup::EXCHANGE_SPI3D || format == IMB_Lookup::EXCHANGE_3DL)
            return refuse(format, "it is a 1D table and the format holds cubes only");
        const int n = lut.getTableSize();
        if (n < 2)
            return refuse(format, "its 1D table has fewer than 2 samples");
        view.size1D = n;
        view.shared = base == IMB_LUT_C;
        for (int c = 0; c < 3; ++c)
        {
            const CRV_Track *t = lut.getLUT().getTrack(view.shared ? 0 : c);
            if (!t || !t->getData() || t->getLength() < n)
                return refuse(format, "its 1D table lacks a track");
            view.table[c].assign(t->getData(), t->getData() + n);
            if (!allFinite(view.table[c].data(), view.table[c].size()))
                return refuse(format, "a 1D sample is not a finite number");
        }
        return true;
    }
    case IMB_LUT_3D:
    case IMB_LUT_3D_1D:
        break;
    case IMB_LUT_A:
    case IMB_LUT_RGBA:
    case IMB_LUT_ALL:
        return refuse(format, "it has a table for alpha; the format maps red, green and blue only");
    case IMB_LUT_R:
    case IMB_LUT_G:
    case IMB_LUT_B:
        return refuse(format, "it maps one channel and leaves the others; the format maps red, green and blue "
                              "together (make an RGB table)");
    default:
        return refuse(format, imb_detail::format("it has no standard type ({})", base));
    }

    // A cube, with or without a pre-table.
    if (format == IMB_Lookup::EXCHANGE_SPI1D)
        return refuse(format, "it is a cube and the format holds 1D tables only");
    const int n = lut.get3DSize();
    if (!lut.is3DLUT() || n < 2)
        return refuse(format, "its cube has an edge below 2");
    view.size3D = n;
    view.cube.resize(3 * static_cast<std::size_t>(n) * n * n);
    lut.copy3DLUT(view.cube.data());
    for (float v : view.cube)
        if (!std::isfinite(v))
            return refuse(format, "a cube sample is not a finite number");

    std::vector<double> pre;
    if (base == IMB_LUT_3D_1D)
    {
        const CRV_Track *t = lut.getLUT().getTrack(0);
        if (t && t->getData() && t->getLength() >= 2)
            pre.assign(t->getData(), t->getData() + t->getLength());
        if (!allFinite(pre.data(), pre.size()))
            return refuse(format, "a pre-table sample is not a finite number");
    }
    if (pre.empty() && !domain01)
        // Such cubes read their input as 0-1 whatever the domain says.
        return refuse(format, imb_detail::format("the cube has no pre-table, so its domain {} to {} is not used; "
                                                 "set the domain to 0 to 1 or give it a pre-table",
                                                 dmin, dmax));
    if (!pre.empty() && !isRamp(pre))
    {
        view.preTable = true;
        view.size1D = static_cast<int>(pre.size());
        view.shared = true;
        for (auto &t : view.table)
            t = pre;
    }

    if (format == IMB_Lookup::EXCHANGE_SPI3D && (view.preTable || !domain01))
        return refuse(format, "the format has neither a domain nor a pre-table (the table's domain must be 0 to 1 "
                              "and its pre-table, if any, a straight 0 to 1 line)");
    if (format == IMB_Lookup::EXCHANGE_3DL)
    {
        if (!domain01)
            return refuse(format, "the format has no domain (the table's must be 0 to 1)");
        if (view.preTable && view.size1D != n)
            return refuse(format, imb_detail::format("its pre-table has {} samples; the format's mesh has one per "
                                                     "cube edge ({})",
                                                     view.size1D, n));
        if (!options.floatForm)
        {
            const int bits = outBits3DL(view, options);
            if (bits == 0)
                return refuse(format, imb_detail::format("{} bits is not an output depth of the integer form "
                                                         "(8, 10, 12 or 16)",
                                                         options.outBits));
            // Readers without a Mesh line infer the depth from the largest
            // value, so a depth asked for must be the one they find.
            float top = 0.0f;
            for (float v : view.cube)
                top = std::max(top, v);
            const long topValue = std::lround(std::clamp(double(top), 0.0, 1.0) * double((1 << bits) - 1));
            if (bits > 8 && topValue <= (1L << (bits == 16 ? 12 : bits - 2)) - 1)
                return refuse(format, imb_detail::format("its largest value {} is too small for readers, which "
                                                         "infer the depth from the largest value, to read it back "
                                                         "as {} bits (write the float form, or 8 bits)",
                                                         top, bits));
            const double half = 0.5 / double((1 << bits) - 1);
            for (float v : view.cube)
                if (v < -half || v > 1.0 + half)
                    return refuse(format, imb_detail::format("a cube value {} is outside 0 to 1, which the integer "
                                                             "form cannot hold (write the float form)",
                                                             v));
            if (view.preTable)
            {
                double top = 0.0;
                for (double v : view.table[0])
                {
                    if (v < -0.5 / 1023.0 || v > 1.0 + 0.5 / 1023.0)
                        return refuse(format, "a pre-table value is outside 0 to 1, which the integer mesh cannot "
                                              "hold (write the float form)");
                    top = std::max(top, v);
                }
                // Readers infer the mesh's depth from its largest entry.
                if (top < 0.25)
                    return refuse(format, "its pre-table stays below 0.25, too low for a reader to infer the "
                                          "mesh's 10-bit depth (write the float form)");
            }
        }
    }
    if (format == IMB_Lookup::EXCHANGE_CSP)
    {
        std::vector<float> x, y;
        if (!cspShaperPoints(view, x, y))
            return refuse(format, imb_detail::format("its domain {} to {} is too narrow for its offset to place the "
                                                     "shaper's points in float precision",
                                                     dmin, dmax));
    }
    return true;
}
} // namespace imb_detail

using namespace imb_detail;

// ---------------------------------------------------------------- entry points

namespace
{
struct ExchangeName
{
    const char *extension;
    IMB_Lookup::ExchangeFormat format;
};
constexpr ExchangeName theExchangeNames[] = {
    {".cube", IMB_Lookup::EXCHANGE_CUBE}, {".spi1d", IMB_Lookup::EXCHANGE_SPI1D},
    {".spi3d", IMB_Lookup::EXCHANGE_SPI3D}, {".3dl", IMB_Lookup::EXCHANGE_3DL},
    {".csp", IMB_Lookup::EXCHANGE_CSP},
};
} // namespace

IMB_Lookup::ExchangeFormat IMB_Lookup::exchangeFormatOf(const char *path)
{
    if (!path)
        return EXCHANGE_NONE;
    const std::string_view p(path);
    const std::size_t dot = p.rfind('.');
    const std::size_t slash = p.rfind('/');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return EXCHANGE_NONE;
    const std::string_view ext = p.substr(dot);
    for (const ExchangeName &e : theExchangeNames)
        if (sameWord(ext, e.extension))
            return e.format;
    return EXCHANGE_NONE;
}

const char *IMB_Lookup::exchangeExtension(ExchangeFormat format)
{
    for (const ExchangeName &e : theExchangeNames)
        if (e.format == format)
            return e.extension;
    return "";
}

bool IMB_Lookup::loadExchange(FILE *fp, ExchangeFormat format, bool headerOnly, ExchangeHeader *header)
{
    reset();
    ExchangeHeader local;
    ExchangeHeader &h = header ? *header : local;
    h = ExchangeHeader();
    h.format = format;
    if (!fp)
        return false;
    bool ok = false;
    switch (format)
    {
    case EXCHANGE_CUBE: ok = readCube(fp, headerOnly, *this, h); break;
    case EXCHANGE_SPI1D: ok = readSpi1D(fp, headerOnly, *this, h); break;
    case EXCHANGE_SPI3D: ok = readSpi3D(fp, headerOnly, *this, h); break;
    case EXCHANGE_3DL: ok = read3DL(fp, headerOnly, *this, h); break;
    case EXCHANGE_CSP: ok = readCsp(fp, headerOnly, *this, h); break;
    default: printStderr(imb_detail::format("not an exchange format: {}\n", static_cast<int>(format))); break;
    }
    if (!ok || headerOnly)
        reset();
    return ok;
}

bool IMB_Lookup::canSaveExchange(ExchangeFormat format, const ExchangeOptions &options) const
{
    if (exchangeExtension(format)[0] == '\0')
    {
        printStderr(imb_detail::format("not an exchange format: {}\n", static_cast<int>(format)));
        return false;
    }
    ExchangeView view;
    return viewForExchange(*this, format, options, view);
}

bool IMB_Lookup::saveExchange(FILE *fp, ExchangeFormat format, const ExchangeOptions &options) const
{
    if (!fp)
        return false;
    if (exchangeExtension(format)[0] == '\0')
    {
        printStderr(imb_detail::format("not an exchange format: {}\n", static_cast<int>(format)));
        return false;
    }
    ExchangeView view;
    if (!viewForExchange(*this, format, options, view))
        return false;
    switch (format)
    {
    case EXCHANGE_CUBE: return writeCube(fp, view);
    case EXCHANGE_SPI1D: return writeSpi1D(fp, view);
    case EXCHANGE_SPI3D: return writeSpi3D(fp, view);
    case EXCHANGE_3DL: return write3DL(fp, view, options);
    case EXCHANGE_CSP: return writeCsp(fp, view);
    default: return false;
    }
}

bool IMB_Lookup::canSaveExchange(ExchangeFormat format) const
{
    return canSaveExchange(format, ExchangeOptions());
}

bool IMB_Lookup::saveExchange(FILE *fp, ExchangeFormat format) const
{
    return saveExchange(fp, format, ExchangeOptions());
}
