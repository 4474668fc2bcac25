// ".spi1d" and ".spi3d" files.
//
// ".spi1d": "Version 1", the keywords From (domain), Length and Components
// (1 or 3) in any order, then the rows between a "{" line and a "}" line.
// ".spi3d": "SPILUT 1.0", "3 3", the three edge lengths (equal here), then
// one "i j k r g b" row per cube sample, i indexing red, in any order; every
// sample must be given exactly once.
#include "lookup/LookupExchange.h"

#include "lookup/LookupFileForms.h"

namespace imb_detail
{
namespace
{
constexpr ExchangeFormat kSpi1D = IMB_Lookup::EXCHANGE_SPI1D;
constexpr ExchangeFormat kSpi3D = IMB_Lookup::EXCHANGE_SPI3D;

// The next line that is not blank, trimmed; false at the end.
bool nextNonBlank(ExchangeLines &lines, std::string_view &t)
{
    std::string_view line;
    while (lines.next(line))
    {
        t = trimLine(line, 0);
        if (!t.empty())
            return true;
    }
    return false;
}

bool endOfFile(ExchangeFormat format, ExchangeLines &lines, const char *what)
{
    if (lines.tooLong())
        return exchangeFail(format, lines.lineNumber() + 1, "line too long");
    return exchangeFail(format, lines.lineNumber(), fmt::format("the file ends before {}", what));
}
} // namespace

bool readSpi1D(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &h)
{
    ExchangeLines lines(fp);
    std::string_view t, rest, word;
    if (!nextNonBlank(lines, t))
        return endOfFile(kSpi1D, lines, "its \"Version 1\" line");
    rest = t;
    long version = 0;
    if (!nextWord(rest, word) || !sameWord(word, "Version") || !nextWord(rest, word) ||
        !parseCount(word, 1, 1, version) || nextWord(rest, word))
        return exchangeFail(kSpi1D, lines.lineNumber(), "the file must start with \"Version 1\"");

    float from[2] = {0.0f, 1.0f};
    long length = 0, components = 1;
    for (;;)
    {
        if (!nextNonBlank(lines, t))
            return endOfFile(kSpi1D, lines, "its \"{\" line");
        const int ln = lines.lineNumber();
        if (t == "{")
            break;
        rest = t;
        nextWord(rest, word);
        if (sameWord(word, "From"))
        {
            if (parseNumbers(rest, from, 2) != 2 || !(from[0] < from[1]))
                return exchangeFail(kSpi1D, ln, "From needs two finite numbers, the first below the second");
        }
        else if (sameWord(word, "Length"))
        {
            std::string_view n;
            if (!nextWord(rest, n) || !parseCount(n, 2, kMaxLookupLength, length) || nextWord(rest, n))
                return exchangeFail(kSpi1D, ln, fmt::format("Length needs a whole number from 2 to {}",
                                                            kMaxLookupLength));
        }
        else if (sameWord(word, "Components"))
        {
            std::string_view n;
            if (!nextWord(rest, n) || !parseCount(n, 1, 3, components) || components == 2 || nextWord(rest, n))
                return exchangeFail(kSpi1D, ln, "Components must be 1 or 3");
        }
        else
            return exchangeFail(kSpi1D, ln, fmt::format("unknown keyword '{}'", word.substr(0, 64)));
    }
    if (length == 0)
        return exchangeFail(kSpi1D, lines.lineNumber(), "no Length before the data");
    h.size1D = static_cast<int>(length);
    h.components = static_cast<int>(components);
    for (int k = 0; k < 3; ++k)
    {
        h.domainMin[k] = from[0];
        h.domainMax[k] = from[1];
    }
    if (headerOnly)
        return true;

    ExchangeContent c;
    c.size1D = static_cast<int>(length);
    c.rows1D.resize(3 * static_cast<std::size_t>(length));
    for (int k = 0; k < 3; ++k)
    {
        c.domain1DMin[k] = from[0];
        c.domain1DMax[k] = from[1];
    }
    for (long i = 0; i < length; ++i)
    {
        if (!nextNonBlank(lines, t))
            return endOfFile(kSpi1D, lines, fmt::format("its {} rows", length).c_str());
        float v[3];
        if (parseNumbers(t, v, 3) != components)
            return exchangeFail(kSpi1D, lines.lineNumber(),
                                fmt::format("expected {} finite number(s), found '{}'", components, t.substr(0, 80)));
        for (int k = 0; k < 3; ++k)
            c.rows1D[3 * i + k] = v[components == 1 ? 0 : k];
    }
    if (!nextNonBlank(lines, t))
        return endOfFile(kSpi1D, lines, "its closing \"}\"");
    if (t != "}")
        return exchangeFail(kSpi1D, lines.lineNumber(),
                            fmt::format("expected the closing \"}}\" after {} rows, found '{}'", length,
                                        t.substr(0, 80)));
    if (nextNonBlank(lines, t))
        return exchangeFail(kSpi1D, lines.lineNumber(), "text after the closing \"}\"");
    if (lines.tooLong())
        return endOfFile(kSpi1D, lines, "its end");
    return buildFromContent(lut, c, kSpi1D, lines.lineNumber());
}

bool writeSpi1D(FILE *fp, const ExchangeView &v)
{
    ExchangeWriter w(fp);
    w.print("Version 1\nFrom {} {}\nLength {}\nComponents {}\n{{\n", v.domainMin, v.domainMax, v.size1D,
            v.shared ? 1 : 3);
    for (int i = 0; i < v.size1D; ++i)
    {
        if (v.shared)
            w.print("    {}\n", narrowSample(v.table[0][i]));
        else
            w.print("    {} {} {}\n", narrowSample(v.table[0][i]), narrowSample(v.table[1][i]),
                    narrowSample(v.table[2][i]));
    }
    w.text("}\n");
    return w.flush() && !std::ferror(fp);
}

bool readSpi3D(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &h)
{
    ExchangeLines lines(fp);
    std::string_view t, rest, word;
    if (!nextNonBlank(lines, t))
        return endOfFile(kSpi3D, lines, "its \"SPILUT 1.0\" line");
    rest = t;
    if (!nextWord(rest, word) || !sameWord(word, "SPILUT"))
        return exchangeFail(kSpi3D, lines.lineNumber(), "the file must start with \"SPILUT 1.0\"");
    if (!nextNonBlank(lines, t))
        return endOfFile(kSpi3D, lines, "its \"3 3\" line");
    rest = t;
    long a = 0, b = 0;
    if (!nextWord(rest, word) || !parseCount(word, 3, 3, a) || !nextWord(rest, word) || !parseCount(word, 3, 3, b) ||
        nextWord(rest, word))
        return exchangeFail(kSpi3D, lines.lineNumber(), "the second line must be \"3 3\"");
    if (!nextNonBlank(lines, t))
        return endOfFile(kSpi3D, lines, "its cube size");
    rest = t;
    long edge[3] = {0, 0, 0};
    for (long &e : edge)
        if (!nextWord(rest, word) || !parseCount(word, 2, kMaxLookupCubeEdge, e))
            return exchangeFail(kSpi3D, lines.lineNumber(),
                                fmt::format("the cube size needs three whole numbers from 2 to {}",
                                            kMaxLookupCubeEdge));
    if (nextWord(rest, word))
        return exchangeFail(kSpi3D, lines.lineNumber(), "the cube size needs three whole numbers");
    if (edge[0] != edge[1] || edge[1] != edge[2])
        return exchangeFail(kSpi3D, lines.lineNumber(),
                            fmt::format("the cube is {}x{}x{}; a cube here has one edge length for all axes",
                                        edge[0], edge[1], edge[2]));
    const long n = edge[0];
    h.size3D = static_cast<int>(n);
    if (headerOnly)
        return true;

    ExchangeContent c;
    c.size3D = static_cast<int>(n);
    const std::size_t count = static_cast<std::size_t>(n * n * n);
    c.cube.resize(3 * count);
    std::vector<unsigned char> seen(count, 0);
    for (std::size_t row = 0; row < count; ++row)
    {
        if (!nextNonBlank(lines, t))
            return endOfFile(kSpi3D, lines, fmt::format("its {} rows", count).c_str());
        const int ln = lines.lineNumber();
        rest = t;
        long idx[3];
        for (long &i : idx)
            if (!nextWord(rest, word) || !parseCount(word, 0, n - 1, i))
                return exchangeFail(kSpi3D, ln,
                                    fmt::format("expected three indices from 0 to {} and three numbers, found '{}'",
                                                n - 1, t.substr(0, 80)));
        const std::size_t at = static_cast<std::size_t>(idx[0] + n * (idx[1] + n * idx[2]));
        if (parseNumbers(rest, &c.cube[3 * at], 3) != 3)
            return exchangeFail(kSpi3D, ln,
                                fmt::format("expected three finite numbers after the indices, found '{}'",
                                            t.substr(0, 80)));
        if (seen[at]++)
            return exchangeFail(kSpi3D, ln,
                                fmt::format("the sample {} {} {} is given twice", idx[0], idx[1], idx[2]));
    }
    if (nextNonBlank(lines, t))
        return exchangeFail(kSpi3D, lines.lineNumber(), fmt::format("more rows than the {} of the cube", count));
    if (lines.tooLong())
        return endOfFile(kSpi3D, lines, "its end");
    return buildFromContent(lut, c, kSpi3D, lines.lineNumber());
}

bool writeSpi3D(FILE *fp, const ExchangeView &v)
{
    ExchangeWriter w(fp);
    const int n = v.size3D;
    w.print("SPILUT 1.0\n3 3\n{0} {0} {0}\n", n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < n; ++k)
            {
                const float *s = &v.cube[3 * (static_cast<std::size_t>(i) + n * (j + static_cast<std::size_t>(n) * k))];
                w.print("{} {} {} {} {} {}\n", i, j, k, s[0], s[1], s[2]);
            }
    return w.flush() && !std::ferror(fp);
}
} // namespace imb_detail
