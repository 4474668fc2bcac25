// ".csp" files: "CSPLUTV100", "1D" or "3D", an optional metadata block
// ("BEGIN METADATA" ... "END METADATA"), the pre-LUT shaper of each channel
// (a point count, the inputs, the outputs), then a 1D table (a row count and
// rows of three numbers) or a cube (three equal edge lengths and rows of
// three numbers, red fastest).
//
// The shaper is a smooth curve through its points: on each interval a cubic
// with the end values and slopes of the points, the slope at an inner point
// being that of the chord between its neighbours and at an end point twice
// the interval's slope less the neighbour's (so the end interval is a
// parabola). That is how other readers of the format evaluate it; this
// reader resamples the curve into a pre-table of 65536 samples over the
// shaper's inputs. Two points are a straight line.
//
// The writer gives a cube with a linear pre-table a two-point shaper. Any
// other pre-table is written so that the curve through the shaper's points
// is the pre-table's own broken line: every inner sample gets two extra
// points just beside it on the neighbouring segments, which makes the
// slopes at the segments' ends equal to the segments' own.
#include "lookup/LookupExchange.h"

#include "lookup/LookupFileForms.h"

#include <algorithm>
#include <cmath>

namespace imb_detail
{
namespace
{
constexpr ExchangeFormat kCsp = IMB_Lookup::EXCHANGE_CSP;

// Words across lines, with the line number of the last one.
class Words
{
public:
    explicit Words(ExchangeLines &lines) : myLines(lines) {}
    void setLine(std::string_view rest) { myRest = rest; }
    bool next(std::string_view &word)
    {
        while (!nextWord(myRest, word))
        {
            std::string_view line;
            if (!myLines.next(line))
                return false;
            myRest = line;
        }
        return true;
    }
    int line() const { return myLines.lineNumber(); }
    bool tooLong() const { return myLines.tooLong(); }

private:
    ExchangeLines &myLines;
    std::string_view myRest;
};

bool ended(Words &w, const char *what)
{
    if (w.tooLong())
        return exchangeFail(kCsp, w.line() + 1, "line too long");
    return exchangeFail(kCsp, w.line(), fmt::format("the file ends before {}", what));
}

bool readCount(Words &w, long lo, long hi, long &v, const char *what)
{
    std::string_view word;
    if (!w.next(word))
        return ended(w, what);
    if (!parseCount(word, lo, hi, v))
        return exchangeFail(kCsp, w.line(), fmt::format("{} must be a whole number from {} to {}", what, lo, hi));
    return true;
}

bool readValues(Words &w, float *out, std::size_t count, const char *what)
{
    std::string_view word;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (!w.next(word))
            return ended(w, what);
        if (!parseFinite(word, out[i]))
            return exchangeFail(kCsp, w.line(),
                                fmt::format("{}: '{}' is not a finite number", what, word.substr(0, 64)));
    }
    return true;
}

struct Shaper
{
    std::vector<float> x, y;
};

// Slopes of the smooth curve at the points (see the file comment).
std::vector<double> curveSlopes(const std::vector<double> &x, const std::vector<double> &y)
{
    const std::size_t n = x.size();
    std::vector<double> d(n);
    for (std::size_t i = 1; i + 1 < n; ++i)
        d[i] = (y[i + 1] - y[i - 1]) / (x[i + 1] - x[i - 1]);
    d[0] = 2.0 * (y[1] - y[0]) / (x[1] - x[0]) - d[1];
    d[n - 1] = 2.0 * (y[n - 1] - y[n - 2]) / (x[n - 1] - x[n - 2]) - d[n - 2];
    return d;
}

// The curve through the shaper's points (three or more) sampled at
// `samples` even steps over its inputs.
std::vector<float> resampleShaper(const Shaper &s, int samples)
{
    const std::vector<double> x(s.x.begin(), s.x.end()), y(s.y.begin(), s.y.end());
    const std::vector<double> d = curveSlopes(x, y);
    const std::size_t n = x.size();
    std::vector<float> out(static_cast<std::size_t>(samples));
    std::size_t i = 0;
    for (int k = 0; k < samples; ++k)
    {
        const double at = k == samples - 1 ? x[n - 1] : x[0] + (x[n - 1] - x[0]) * k / double(samples - 1);
        while (i + 2 < n && at > x[i + 1])
            ++i;
        const double h = x[i + 1] - x[i];
        const double t = std::clamp((at - x[i]) / h, 0.0, 1.0);
        const double t2 = t * t, t3 = t2 * t;
        const double v = (2 * t3 - 3 * t2 + 1) * y[i] + (t3 - 2 * t2 + t) * h * d[i] + (-2 * t3 + 3 * t2) * y[i + 1] +
                         (t3 - t2) * h * d[i + 1];
        out[static_cast<std::size_t>(k)] = narrowSample(v);
    }
    return out;
}
} // namespace

// The shaper the writer gives a view (see the file comment); false when the
// extra points cannot be told apart from their sample in float precision.
bool cspShaperPoints(const ExchangeView &v, std::vector<float> &x, std::vector<float> &y)
{
    x.clear();
    y.clear();
    const double lo = v.domainMin, hi = v.domainMax;
    if (!v.preTable || v.size1D == 2)
    {
        x = {v.domainMin, v.domainMax};
        y = v.preTable ? std::vector<float>{narrowSample(v.table[0][0]), narrowSample(v.table[0][1])}
                       : std::vector<float>{0.0f, 1.0f};
        return true;
    }
    const std::vector<double> &p = v.table[0];
    const int m = v.size1D;
    const double h = (hi - lo) / (m - 1);
    const double ulp = std::max(std::fabs(lo), std::fabs(hi)) * std::ldexp(1.0, -23);
    const double eps = std::max(h * 1e-4, 16.0 * ulp);
    if (eps > h / 8.0)
        return false;
    auto at = [&](int i) { return i == m - 1 ? hi : lo + h * i; };
    auto push = [&](double xi, int seg) {
        // A point on segment `seg` (from sample seg to seg + 1), placed at
        // the float nearest xi and valued on the segment's line there.
        const float xf = static_cast<float>(xi);
        const double slope = (p[seg + 1] - p[seg]) / (at(seg + 1) - at(seg));
        x.push_back(xf);
        y.push_back(narrowSample(p[seg] + (double(xf) - at(seg)) * slope));
    };
    x.push_back(static_cast<float>(lo));
    y.push_back(narrowSample(p[0]));
    for (int i = 1; i < m - 1; ++i)
    {
        push(at(i) - eps, i - 1);
        x.push_back(static_cast<float>(at(i)));
        y.push_back(narrowSample(p[i]));
        push(at(i) + eps, i);
    }
    x.push_back(static_cast<float>(hi));
    y.push_back(narrowSample(p[m - 1]));
    for (std::size_t i = 1; i < x.size(); ++i)
        if (!(x[i] > x[i - 1]))
            return false;
    return true;
}

bool readCsp(FILE *fp, bool headerOnly, IMB_Lookup &lut, ExchangeHeader &h)
{
    ExchangeLines lines(fp);
    std::string_view line, t;
    auto nextNonBlank = [&]() {
        while (lines.next(line))
        {
            t = trimLine(line, 0);
            if (!t.empty())
                return true;
        }
        return false;
    };
    Words words(lines);
    if (!nextNonBlank() || t != "CSPLUTV100")
        return lines.tooLong() ? ended(words, "") : exchangeFail(kCsp, lines.lineNumber(), "the file must start with \"CSPLUTV100\"");
    if (!nextNonBlank() || (t != "1D" && t != "3D"))
        return lines.tooLong() ? ended(words, "") : exchangeFail(kCsp, lines.lineNumber(), "the second line must be \"1D\" or \"3D\"");
    const bool cube = t == "3D";
    if (!nextNonBlank())
        return ended(words, "the shaper");
    if (t == "BEGIN METADATA")
    {
        bool closed = false;
        while (lines.next(line))
        {
            const std::string_view m = trimLine(line, 0);
            if (m == "END METADATA")
            {
                closed = true;
                break;
            }
            if (h.title.empty() && !m.empty())
                h.title.assign(m.data(), m.size());
        }
        if (!closed)
            return ended(words, "\"END METADATA\"");
    }
    else
        words.setLine(t);

    Shaper shaper[3];
    for (int c = 0; c < 3; ++c)
    {
        long points = 0;
        if (!readCount(words, 2, kMaxShaperPoints, points, "the shaper's point count"))
            return false;
        Shaper &s = shaper[c];
        s.x.resize(static_cast<std::size_t>(points));
        s.y.resize(static_cast<std::size_t>(points));
        if (!readValues(words, s.x.data(), s.x.size(), "a shaper input") ||
            !readValues(words, s.y.data(), s.y.size(), "a shaper output"))
            return false;
        for (std::size_t i = 1; i < s.x.size(); ++i)
            if (!(s.x[i] > s.x[i - 1]))
                return exchangeFail(kCsp, words.line(), "the shaper's inputs must rise from point to point");
        if (c > 0 && (s.x != shaper[0].x || s.y != shaper[0].y))
            return exchangeFail(kCsp, words.line(),
                                "the shaper differs between channels; a table here has one pre-table shared by "
                                "the channels");
    }
    const Shaper &s = shaper[0];
    h.shaperPoints = static_cast<int>(s.x.size());
    for (int k = 0; k < 3; ++k)
    {
        h.domainMin[k] = s.x.front();
        h.domainMax[k] = s.x.back();
    }

    ExchangeContent c;
    int sizeLine = 0;
    if (cube)
    {
        long e[3];
        for (long &v : e)
            if (!readCount(words, 2, kMaxLookupCubeEdge, v, "a cube edge length"))
                return false;
        sizeLine = words.line();
        if (e[0] != e[1] || e[1] != e[2])
            return exchangeFail(kCsp, sizeLine,
                                fmt::format("the cube is {}x{}x{}; a cube here has one edge length for all axes", e[0],
                                            e[1], e[2]));
        c.size3D = static_cast<int>(e[0]);
        h.size3D = c.size3D;
    }
    else
    {
        long n = 0;
        if (!readCount(words, 2, kMaxLookupLength, n, "the 1D row count"))
            return false;
        sizeLine = words.line();
        c.size1D = static_cast<int>(n);
        h.size1D = c.size1D;
    }
    if (headerOnly)
        return true;

    if (cube)
    {
        c.cube.resize(3 * static_cast<std::size_t>(c.size3D) * c.size3D * c.size3D);
        if (!readValues(words, c.cube.data(), c.cube.size(), "a cube row"))
            return false;
    }
    else
    {
        c.rows1D.resize(3 * static_cast<std::size_t>(c.size1D));
        if (!readValues(words, c.rows1D.data(), c.rows1D.size(), "a 1D row"))
            return false;
    }
    std::string_view extra;
    if (words.next(extra))
        return exchangeFail(kCsp, words.line(), fmt::format("unexpected '{}' after the table", extra.substr(0, 64)));
    if (words.tooLong())
        return ended(words, "its end");

    if (!cube)
    {
        // The 1D table reads its input in 0-1: only a straight shaper onto
        // 0-1 is a domain.
        if (s.x.size() != 2 || s.y[0] != 0.0f || s.y[1] != 1.0f)
            return exchangeFail(kCsp, sizeLine,
                                "a 1D table after a shaper other than a straight line onto 0 to 1; a table here "
                                "has no pre-table before a 1D table");
        for (int k = 0; k < 3; ++k)
        {
            c.domain1DMin[k] = s.x[0];
            c.domain1DMax[k] = s.x[1];
        }
        return buildFromContent(lut, c, kCsp, sizeLine);
    }
    const std::vector<float> pre = s.x.size() == 2 ? s.y : resampleShaper(s, kShaperSamples);
    c.size1D = static_cast<int>(pre.size());
    c.rows1D.resize(3 * pre.size());
    for (std::size_t i = 0; i < pre.size(); ++i)
        c.rows1D[3 * i] = c.rows1D[3 * i + 1] = c.rows1D[3 * i + 2] = pre[i];
    for (int k = 0; k < 3; ++k)
    {
        c.domain1DMin[k] = s.x.front();
        c.domain1DMax[k] = s.x.back();
    }
    return buildFromContent(lut, c, kCsp, sizeLine);
}

bool writeCsp(FILE *fp, const ExchangeView &v)
{
    std::vector<float> x, y;
    if (!cspShaperPoints(v, x, y))
        return false;
    ExchangeWriter w(fp);
    w.text(v.size3D > 0 ? "CSPLUTV100\n3D\n\nBEGIN METADATA\nEND METADATA\n\n"
                        : "CSPLUTV100\n1D\n\nBEGIN METADATA\nEND METADATA\n\n");
    for (int c = 0; c < 3; ++c)
    {
        w.print("{}\n", x.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            w.print("{}{}", x[i], i + 1 < x.size() ? " " : "\n");
        for (std::size_t i = 0; i < y.size(); ++i)
            w.print("{}{}", y[i], i + 1 < y.size() ? " " : "\n");
    }
    if (v.size3D > 0)
    {
        w.print("\n{0} {0} {0}\n", v.size3D);
        const std::size_t n3 = v.cube.size() / 3;
        for (std::size_t i = 0; i < n3; ++i)
            w.print("{} {} {}\n", v.cube[3 * i], v.cube[3 * i + 1], v.cube[3 * i + 2]);
    }
    else
    {
        w.print("\n{}\n", v.size1D);
        for (int i = 0; i < v.size1D; ++i)
            w.print("{} {} {}\n", narrowSample(v.table[0][i]), narrowSample(v.table[1][i]),
                    narrowSample(v.table[2][i]));
    }
    return w.flush() && !std::ferror(fp);
}
} // namespace imb_detail
