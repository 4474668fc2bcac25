// ".3dl" files: an optional "3DMESH" / "Mesh <exponent> <output bits>"
// header, the input mesh line (one entry per input step, in the input's
// integer depth, or reals in the float form), then one "r g b" row per cube
// sample with blue fastest, optionally closed by "LUT8" and "gamma <g>"
// lines. The cube edge is the cube root of the row count.
//
// Integer depths are not declared by every writer: without the header the
// output depth is the smallest of 8, 10, 12 and 16 bits that holds the
// largest value, and the mesh depth likewise from the mesh's largest entry.
// The writer refuses a depth that this inference would not find.
//
// A mesh within 2 steps of even spacing is the plain input grid; any other
// mesh acts as a 1D table (entry / depth) applied before the cube, which is
// how other readers of the format apply it, so it becomes the pre-table.
#include "lookup/LookupExchange.h"

#include "lookup/LookupFileForms.h"

#include <cctype>
#include <algorithm>
#include <cmath>

namespace imb_detail
{
namespace
{
constexpr ExchangeFormat k3DL = IMB_Lookup::EXCHANGE_3DL;
constexpr int kDepths[] = {8, 10, 12, 16};

// Smallest depth whose largest value holds `top`; 0 above 16 bits.
int depthHolding(double top)
{
    for (int bits : kDepths)
        if (top <= double((1 << bits) - 1))
            return bits;
    return 0;
}

bool looksReal(std::string_view word)
{
    return word.find_first_of(".eE") != std::string_view::npos;
}

// Parses the words of `rest` into `out` (appending); false on a word that is
// not a finite number. Notes whether any word is written as a real.
bool appendNumbers(std::string_view rest, std::vector<float> &out, bool &real, std::size_t limit)
{
    std::string_view word;
    while (nextWord(rest, word))
    {
        float v;
        if (out.size() >= limit || !parseFinite(word, v))
            return false;
        real = real || looksReal(word);
        out.push_back(v);
    }
    return true;
}

// A value in the float form: always with a decimal point or an exponent, so
// that a reader sees the form even when every value is whole.
void printReal(ExchangeWriter &w, float v, const char *tail)
{
    const std::string s = fmt::format("{}", v);
    if (s.find_first_of(".e") == std::string::npos)
        w.print("{}.0{}", s, tail);
    else
        w.print("{}{}", s, tail);
}
} // namespace

int outBits3DL(const ExchangeView &view, const ExchangeOptions &options)
{
    if (options.outBits == 0)
        return 16;
    for (int bits : kDepths)
        if (bits == options.outBits)
            return bits;
    return 0;
}

bool read3DL(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &h)
{
    ExchangeLines lines(fp);
    std::string_view line;
    std::vector<float> mesh, rows;
    bool real = false, trailer = false;
    int headerBits = 0, meshLine = 0;
    constexpr std::size_t kMaxRows = std::size_t(kMaxLookupCubeEdge) * kMaxLookupCubeEdge * kMaxLookupCubeEdge;
    while (lines.next(line))
    {
        const std::string_view t = trimLine(line, '#');
        if (t.empty())
            continue;
        const int ln = lines.lineNumber();
        if (mesh.empty() && sameWord(t, "3DMESH"))
            continue;
        if (std::isalpha(static_cast<unsigned char>(t[0])))
        {
            std::string_view rest = t, key, word;
            nextWord(rest, key);
            if (sameWord(key, "Mesh") && mesh.empty())
            {
                long exponent = 0, bits = 0;
                std::string_view e, b;
                if (!nextWord(rest, e) || !parseCount(e, 0, 8, exponent) || !nextWord(rest, b) ||
                    !parseCount(b, 8, 16, bits) || depthHolding(double((1 << bits) - 1)) != bits ||
                    nextWord(rest, word))
                    return exchangeFail(k3DL, ln, "Mesh needs a mesh exponent and an output depth of 8, 10, 12 or "
                                                  "16 bits");
                headerBits = static_cast<int>(bits);
                continue;
            }
            if (sameWord(key, "LUT8") && !rows.empty() && !nextWord(rest, word))
            {
                trailer = true;
                continue;
            }
            if (sameWord(key, "gamma") && trailer)
            {
                float g;
                if (parseNumbers(rest, &g, 1) != 1)
                    return exchangeFail(k3DL, ln, "gamma needs one finite number");
                continue;
            }
            return exchangeFail(k3DL, ln, fmt::format("unexpected '{}'", t.substr(0, 80)));
        }
        if (trailer)
            return exchangeFail(k3DL, ln, "data after the closing LUT8 line");
        if (mesh.empty())
        {
            meshLine = ln;
            if (!appendNumbers(t, mesh, real, kMaxLookupLength) || mesh.size() < 2)
                return exchangeFail(k3DL, ln,
                                    fmt::format("the mesh line needs 2 to {} finite numbers", kMaxLookupLength));
            continue;
        }
        const std::size_t before = rows.size();
        if (rows.size() >= 3 * kMaxRows)
            return exchangeFail(k3DL, ln, fmt::format("more rows than a cube of edge {} has", kMaxLookupCubeEdge));
        if (!appendNumbers(t, rows, real, rows.size() + 4) || rows.size() - before != 3)
            return exchangeFail(k3DL, ln, fmt::format("expected three finite numbers, found '{}'", t.substr(0, 80)));
    }
    if (lines.tooLong())
        return exchangeFail(k3DL, lines.lineNumber() + 1, "line too long");
    if (mesh.empty())
        return exchangeFail(k3DL, lines.lineNumber(), "the file has no mesh line");
    const std::size_t count = rows.size() / 3;
    const long n = std::lround(std::cbrt(double(count)));
    if (n < 2 || static_cast<std::size_t>(n * n * n) != count)
        return exchangeFail(k3DL, lines.lineNumber(),
                            fmt::format("{} rows do not make a cube of edge 2 or more", count));

    // Depths and scales.
    float meshTop = 0.0f, rowTop = 0.0f;
    for (std::size_t i = 0; i < mesh.size(); ++i)
    {
        if (mesh[i] < 0.0f)
            return exchangeFail(k3DL, meshLine, "a mesh entry is negative");
        meshTop = std::max(meshTop, mesh[i]);
    }
    for (float v : rows)
        rowTop = std::max(rowTop, v);
    double inMax = 1.0, outMax = 1.0;
    if (!real)
    {
        for (float v : rows)
            if (v < 0.0f)
                return exchangeFail(k3DL, lines.lineNumber(), "a row value of the integer form is negative");
        const int inBits = depthHolding(meshTop);
        const int outBits = headerBits ? headerBits : depthHolding(rowTop);
        if (!inBits || !outBits || rowTop > double((1 << outBits) - 1))
            return exchangeFail(k3DL, lines.lineNumber(),
                                "an integer value exceeds 65535 (or the Mesh line's output depth)");
        inMax = (1 << inBits) - 1;
        outMax = (1 << outBits) - 1;
        h.inBits = inBits;
        h.outBits = outBits;
    }
    else if (meshTop > 1.0f)
    {
        const int inBits = depthHolding(meshTop);
        if (!inBits)
            return exchangeFail(k3DL, meshLine, "a mesh entry exceeds 65535");
        inMax = (1 << inBits) - 1;
    }
    h.floatForm = real;
    h.size3D = static_cast<int>(n);
    h.shaperPoints = static_cast<int>(mesh.size());
    if (headerOnly)
        return true;

    ExchangeContent c;
    c.size3D = static_cast<int>(n);
    c.cube.resize(rows.size());
    const float scale = static_cast<float>(1.0 / outMax);
    std::size_t t = 0;
    for (long r = 0; r < n; ++r)
        for (long g = 0; g < n; ++g)
            for (long b = 0; b < n; ++b, ++t)
            {
                float *dst = &c.cube[3 * static_cast<std::size_t>(r + n * (g + n * b))];
                for (int k = 0; k < 3; ++k)
                    dst[k] = real ? rows[3 * t + k] : static_cast<float>(rows[3 * t + k] * double(scale));
            }
    const std::size_t m = mesh.size();
    const double tolerance = real ? 2e-3 * inMax : 2.0;
    bool even = true;
    for (std::size_t i = 0; i < m && even; ++i)
        even = std::fabs(double(mesh[i]) - double(i) * inMax / double(m - 1)) < tolerance;
    if (!even)
    {
        c.size1D = static_cast<int>(m);
        c.rows1D.resize(3 * m);
        for (std::size_t i = 0; i < m; ++i)
            for (int k = 0; k < 3; ++k)
                c.rows1D[3 * i + k] = static_cast<float>(mesh[i] / inMax);
    }
    return buildFromContent(lut, c, k3DL, meshLine);
}

bool write3DL(FILE *fp, const ExchangeView &v, const ExchangeOptions &options)
{
    ExchangeWriter w(fp);
    const int n = v.size3D;
    const bool real = options.floatForm;
    for (int i = 0; i < n; ++i)
    {
        const double x = v.preTable ? v.table[0][i] : double(i) / double(n - 1);
        const char *tail = i + 1 < n ? " " : "\n";
        if (real)
            printReal(w, narrowSample(x), tail);
        else
            w.print("{}{}", std::lround(std::clamp(x, 0.0, 1.0) * 1023.0), tail);
    }
    const int bits = real ? 0 : outBits3DL(v, options);
    const double top = real ? 1.0 : double((1 << bits) - 1);
    for (int r = 0; r < n; ++r)
        for (int g = 0; g < n; ++g)
            for (int b = 0; b < n; ++b)
            {
                const float *s = &v.cube[3 * (static_cast<std::size_t>(r) + n * (g + static_cast<std::size_t>(n) * b))];
                if (real)
                {
                    printReal(w, s[0], " ");
                    printReal(w, s[1], " ");
                    printReal(w, s[2], "\n");
                }
                else
                {
                    long q[3];
                    for (int k = 0; k < 3; ++k)
                        q[k] = std::lround(std::clamp(double(s[k]), 0.0, 1.0) * top);
                    w.print("{} {} {}\n", q[0], q[1], q[2]);
                }
            }
    return w.flush() && !std::ferror(fp);
}
} // namespace imb_detail
