// ".cube" files: keyword lines, then rows of three numbers, the 1D rows
// first and then the cube, red fastest. Two dialects share the extension:
// one table per file with DOMAIN_MIN / DOMAIN_MAX, and a 1D table before a
// cube with LUT_1D_INPUT_RANGE / LUT_3D_INPUT_RANGE. The reader takes both
// (and any mix); the writer writes the first whenever the table allows and
// the second for a cube with a pre-table, without TITLE, which readers of
// that dialect refuse.
#include "lookup/LookupExchange.h"

#include "lookup/LookupFileForms.h"

#include <algorithm>
#include <cctype>

namespace imb_detail
{
namespace
{
constexpr ExchangeFormat kCube = IMB_Lookup::EXCHANGE_CUBE;

bool isKeywordStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }

// Three numbers and nothing else.
bool parseRow(std::string_view t, float *v) { return parseNumbers(t, v, 3) == 3; }

// A domain given per channel: every minimum below its maximum.
bool validDomain(const float *lo, const float *hi)
{
    for (int c = 0; c < 3; ++c)
        if (!(lo[c] < hi[c]))
            return false;
    return true;
}

// An interval given per channel, and where. DOMAIN_MIN and DOMAIN_MAX each
// keep their three values in `lo`.
struct GivenDomain
{
    bool given = false;
    int line = 0;
    float lo[3] = {0.0f, 0.0f, 0.0f};
    float hi[3] = {1.0f, 1.0f, 1.0f};
};
} // namespace

bool readCube(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &h)
{
    ExchangeLines lines(fp);
    ExchangeContent c;
    long size1 = 0, size3 = 0;
    GivenDomain domainMin, domainMax, range1, range3;
    bool inData = false;
    std::size_t total = 0, got = 0, rows1 = 0;
    std::string_view line;
    int headerLine = 0;

    // The header's meaning, once the first row (or the end) arrives.
    auto finishHeader = [&](int ln) -> bool {
        if (size1 == 0 && size3 == 0)
            return exchangeFail(kCube, ln, "no LUT_1D_SIZE or LUT_3D_SIZE before the data");
        if (domainMin.given != domainMax.given)
            return exchangeFail(kCube, domainMin.given ? domainMin.line : domainMax.line,
                                "DOMAIN_MIN and DOMAIN_MAX come together");
        GivenDomain dom;
        dom.given = domainMin.given;
        dom.line = domainMin.line;
        std::copy(domainMin.lo, domainMin.lo + 3, dom.lo);
        std::copy(domainMax.lo, domainMax.lo + 3, dom.hi);
        if (dom.given && !validDomain(dom.lo, dom.hi))
            return exchangeFail(kCube, std::max(domainMin.line, domainMax.line),
                                "each DOMAIN_MIN value must be below its DOMAIN_MAX value");
        // DOMAIN_MIN / DOMAIN_MAX give the input domain of the file: that of
        // its first table.
        GivenDomain &first = size1 > 0 ? range1 : range3;
        if (dom.given && first.given)
            return exchangeFail(kCube, first.line,
                                "the domain is given twice (DOMAIN_MIN / DOMAIN_MAX and an input range)");
        if (dom.given)
            first = dom;
        if (size1 > 0)
        {
            std::copy(range1.lo, range1.lo + 3, c.domain1DMin);
            std::copy(range1.hi, range1.hi + 3, c.domain1DMax);
        }
        std::copy(range3.lo, range3.lo + 3, c.domain3DMin);
        std::copy(range3.hi, range3.hi + 3, c.domain3DMax);
        const GivenDomain &shown = size1 > 0 ? range1 : range3;
        std::copy(shown.lo, shown.lo + 3, h.domainMin);
        std::copy(shown.hi, shown.hi + 3, h.domainMax);
        h.size1D = static_cast<int>(size1);
        h.size3D = static_cast<int>(size3);
        c.size1D = static_cast<int>(size1);
        c.size3D = static_cast<int>(size3);
        rows1 = static_cast<std::size_t>(size1);
        total = rows1 + static_cast<std::size_t>(size3 * size3 * size3);
        return true;
    };

    while (lines.next(line))
    {
        const std::string_view t = trimLine(line, '#');
        if (t.empty())
            continue;
        const int ln = lines.lineNumber();
        if (!inData && isKeywordStart(t[0]))
        {
            std::string_view rest = t, key, word;
            nextWord(rest, key);
            if (sameWord(key, "TITLE"))
            {
                std::string_view title = trimLine(rest, 0);
                if (title.size() >= 2 && title.front() == '"' && title.back() == '"')
                    title = title.substr(1, title.size() - 2);
                h.title.assign(title.data(), title.size());
            }
            else if (sameWord(key, "LUT_1D_SIZE") || sameWord(key, "LUT_3D_SIZE"))
            {
                const bool oneD = sameWord(key, "LUT_1D_SIZE");
                const long limit = oneD ? kMaxLookupLength : kMaxLookupCubeEdge;
                long &size = oneD ? size1 : size3;
                long v = 0;
                if (size != 0)
                    return exchangeFail(kCube, ln, fmt::format("{} is given twice", key));
                if (!nextWord(rest, word) || !parseCount(word, 2, limit, v) || nextWord(rest, word))
                    return exchangeFail(kCube, ln, fmt::format("{} needs a whole number from 2 to {}", key, limit));
                size = v;
            }
            else if (sameWord(key, "DOMAIN_MIN") || sameWord(key, "DOMAIN_MAX"))
            {
                GivenDomain &d = sameWord(key, "DOMAIN_MIN") ? domainMin : domainMax;
                if (parseNumbers(rest, d.lo, 3) != 3)
                    return exchangeFail(kCube, ln, fmt::format("{} needs three finite numbers", key));
                d.given = true;
                d.line = ln;
            }
            else if (sameWord(key, "LUT_1D_INPUT_RANGE") || sameWord(key, "LUT_3D_INPUT_RANGE"))
            {
                GivenDomain &d = sameWord(key, "LUT_1D_INPUT_RANGE") ? range1 : range3;
                float v[2];
                if (parseNumbers(rest, v, 2) != 2 || !(v[0] < v[1]))
                    return exchangeFail(kCube, ln,
                                        fmt::format("{} needs two finite numbers, the first below the second", key));
                for (int k = 0; k < 3; ++k)
                {
                    d.lo[k] = v[0];
                    d.hi[k] = v[1];
                }
                d.given = true;
                d.line = ln;
            }
            else
                return exchangeFail(kCube, ln, fmt::format("unknown keyword '{}'", key.substr(0, 64)));
            headerLine = ln;
            continue;
        }
        if (!inData)
        {
            if (!finishHeader(ln))
                return false;
            if (headerOnly)
                return true;
            // Sizes are within the model's limits, checked on their lines.
            c.rows1D.resize(3 * rows1);
            c.cube.resize(3 * (total - rows1));
            inData = true;
        }
        if (got == total)
            return exchangeFail(kCube, ln, fmt::format("more rows than the {} the sizes declare", total));
        float *dst = got < rows1 ? &c.rows1D[3 * got] : &c.cube[3 * (got - rows1)];
        if (!parseRow(t, dst))
            return exchangeFail(kCube, ln,
                                fmt::format("expected three finite numbers, found '{}'", t.substr(0, 80)));
        ++got;
    }
    if (lines.tooLong())
        return exchangeFail(kCube, lines.lineNumber() + 1, "line too long");
    if (!inData)
    {
        if (!finishHeader(headerLine))
            return false;
        if (headerOnly)
            return true;
    }
    if (got < total)
        return exchangeFail(kCube, lines.lineNumber(),
                            fmt::format("the file ends after {} of its {} rows", got, total));
    return buildFromContent(lut, c, kCube, lines.lineNumber());
}

bool writeCube(FILE *fp, const ExchangeView &v)
{
    ExchangeWriter w(fp);
    const bool domain01 = v.domainMin == 0.0f && v.domainMax == 1.0f;
    if (v.size3D > 0 && v.preTable)
    {
        w.print("LUT_1D_SIZE {}\n", v.size1D);
        if (!domain01)
            w.print("LUT_1D_INPUT_RANGE {} {}\n", v.domainMin, v.domainMax);
        w.print("LUT_3D_SIZE {}\n", v.size3D);
    }
    else
    {
        if (v.size3D > 0)
            w.print("LUT_3D_SIZE {}\n", v.size3D);
        else
            w.print("LUT_1D_SIZE {}\n", v.size1D);
        if (!domain01)
        {
            w.print("DOMAIN_MIN {0} {0} {0}\n", v.domainMin);
            w.print("DOMAIN_MAX {0} {0} {0}\n", v.domainMax);
        }
    }
    for (int i = 0; i < v.size1D; ++i)
        w.print("{} {} {}\n", narrowSample(v.table[0][i]), narrowSample(v.table[1][i]), narrowSample(v.table[2][i]));
    const std::size_t n3 = v.cube.size() / 3;
    for (std::size_t i = 0; i < n3; ++i)
        w.print("{} {} {}\n", v.cube[3 * i], v.cube[3 * i + 1], v.cube[3 * i + 2]);
    return w.flush() && !std::ferror(fp);
}
} // namespace imb_detail
