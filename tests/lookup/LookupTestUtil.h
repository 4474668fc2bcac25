// Helpers shared by the lookup tests, which include this header for the
// library, GoogleTest and the standard headers they all use: a one-line
// summary of a table's fields, track, cube, file and case-table readers, a
// scratch folder, the scalar interpolation references the tests check the
// code against, and the tables and images of the exchange-file tests.
#pragma once

#include <IMB/IMB.h>
#include <IMB/platform/CRV_Clip.h>
#include <IMB/platform/half16.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace lookup_test
{
inline IMB_LookupType T(int v) { return static_cast<IMB_LookupType>(v); }

// The shortest text that reads back as the same float.
inline std::string num(float v)
{
    char text[32];
    for (int digits = 6; digits < 10; ++digits)
        if (std::snprintf(text, sizeof text, "%.*g", digits, double(v)), std::strtof(text, nullptr) == v)
            break;
    return text;
}

// Every field of a table on one line, so one comparison pins them all:
// "type T tracks NxL cube E domain a b range a b points b w bias x format F"
// (N tracks of L samples; "tracks 0" without tracks) and " half" when the
// half flag is set.
inline std::string describe(const IMB_Lookup &lut)
{
    float d0, d1, r0, r1;
    lut.getDomain(d0, d1);
    lut.getRange(r0, r1);
    IMB_DataFormat f;
    const int n = lut.getNumChannels();
    return "type " + std::to_string(lut.getType()) + " tracks " + std::to_string(n) +
           (n ? "x" + std::to_string(lut.getTableSize()) : "") + " cube " + std::to_string(lut.get3DSize()) + " domain " + num(d0) +
           " " + num(d1) + " range " + num(r0) + " " + num(r1) + " points " + num(lut.getBlackPoint()) + " " +
           num(lut.getWhitePoint()) + " bias " + num(lut.getLogBias()) + " format " +
           (lut.hasSpecificFormat(f) ? IMBdataFormat(f) : "any") + (lut.isHalfPrec() ? " half" : "");
}

// The samples of every track, as "1 2 | 3 4 | 5 6".
inline std::string describeTracks(const IMB_Lookup &lut)
{
    std::string out;
    for (int t = 0; t < lut.getNumChannels(); ++t)
    {
        const CRV_Track *track = lut.getLUT().getTrack(t);
        out += t ? " |" : "";
        for (int i = 0; track->getData() && i < track->getLength(); ++i)
            out += (t || i ? " " : "") + num(float(track->getData()[i]));
    }
    return out;
}

// The samples of track `index`, empty when there is none.
inline std::vector<double> track(const IMB_Lookup &lut, int index)
{
    const CRV_Track *t = lut.getLUT().getTrack(index);
    if (!t || !t->getData())
        return {};
    return std::vector<double>(t->getData(), t->getData() + t->getLength());
}

// A 1D table of `type` with `size` samples per track (and `tracks` tracks
// when given), track t holding f(t, i).
template <typename F> IMB_Lookup fill1D(IMB_LookupType type, int size, F f, int tracks = 0)
{
    IMB_Lookup lut;
    lut.setType(type);
    if (tracks)
        lut.setNumChannels(tracks);
    lut.setTableSize(size);
    CRV_Clip clip = lut.getLUT();
    for (int t = 0; t < clip.getNumTracks(); ++t)
        for (int i = 0; i < size; ++i)
            clip.getTrack(t)->getData()[i] = f(t, i);
    lut.setLUT(clip);
    return lut;
}

// The padded cube sample (i, j, k), component c.
inline float cubeAt(const IMB_Lookup &lut, int i, int j, int k, int c)
{
    const int e = lut.get3DSize() + 1;
    return lut.get3DLUT()[3 * (i + e * j + e * e * k) + c];
}

// Every padded index of the cube reads the real sample at min(index, n - 1).
inline void expectPaddedCube(const IMB_Lookup &lut, const std::vector<float> &rgb, int n)
{
    ASSERT_EQ(lut.get3DSize(), n);
    ASSERT_NE(lut.get3DLUT(), nullptr);
    for (int k = 0; k <= n; ++k)
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i)
                for (int c = 0; c < 3; ++c)
                {
                    const int si = std::min(i, n - 1), sj = std::min(j, n - 1), sk = std::min(k, n - 1);
                    ASSERT_EQ(cubeAt(lut, i, j, k, c), rgb[3 * (si + n * sj + n * n * sk) + c])
                        << i << " " << j << " " << k;
                }
}

inline std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
    ASSERT_EQ(readFile(path), bytes) << path;
}

// The path of a file under tests/data/lookup.
inline std::string dataPath(const std::string &name) { return std::string(IMB_TEST_DATA_DIR) + "/lookup/" + name; }

// A case table under tests/data/lookup/cases: one case a line, fields
// separated by tabs, with the escapes \n, \r, \t and \\ inside fields; blank
// lines and lines starting with '#' are skipped.
inline std::vector<std::vector<std::string>> readCases(const std::string &name)
{
    std::istringstream text(readFile(dataPath("cases/" + name)));
    std::vector<std::vector<std::string>> cases;
    for (std::string line; std::getline(text, line);)
    {
        if (line.empty() || line[0] == '#')
            continue;
        cases.emplace_back(1);
        for (std::size_t i = 0; i < line.size(); ++i)
        {
            const char e = line[i] == '\\' && i + 1 < line.size() ? line[++i] : 0;
            if (!e && line[i] == '\t')
                cases.back().emplace_back();
            else
                cases.back().back() += !e ? line[i] : e == 'n' ? '\n' : e == 'r' ? '\r' : e == 't' ? '\t' : e;
        }
    }
    EXPECT_FALSE(cases.empty()) << name;
    return cases;
}

// What `write(FILE *)` writes, captured in memory.
template <typename Write> std::string writtenBy(Write write)
{
    char *buffer = nullptr;
    size_t size = 0;
    FILE *fp = open_memstream(&buffer, &size);
    EXPECT_TRUE(write(fp));
    std::fclose(fp);
    std::string bytes(buffer, size);
    std::free(buffer);
    return bytes;
}

// Runs `read(FILE *)` over `bytes`; what it prints to standard error goes to
// `messages`, or without them is expected to be nothing.
template <typename Read> bool readFrom(const std::string &bytes, std::string *messages, Read read)
{
    std::string copy = bytes;
    FILE *fp = copy.empty() ? std::tmpfile() : fmemopen(copy.data(), copy.size(), "rb");
    testing::internal::CaptureStderr();
    const bool ok = read(fp);
    const std::string said = testing::internal::GetCapturedStderr();
    std::fclose(fp);
    if (messages)
        *messages = said;
    else
        EXPECT_EQ(said, "");
    return ok;
}

// A fresh folder per test, removed afterwards; no "LUTio" filters before or
// after.
class ScratchDir : public testing::Test
{
protected:
    void SetUp() override
    {
        BAS_IOTable::getTable("LUTio").clear();
        std::string pattern = testing::TempDir() + "imb_lut_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        myDir = pattern;
    }
    void TearDown() override
    {
        BAS_IOTable::getTable("LUTio").clear();
        std::system(("rm -rf '" + myDir + "'").c_str());
    }
    std::string path(const std::string &name) const { return myDir + "/" + name; }
    static bool exists(const std::string &p) { return access(p.c_str(), F_OK) == 0; }
    std::string myDir;
};

// Linear interpolation of a sample array at a position clamped to its ends.
inline double refSample(const std::vector<double> &t, double pos)
{
    const int last = static_cast<int>(t.size()) - 1;
    if (!(pos > 0))
        return t[0];
    if (pos >= last)
        return t[last];
    const int i = static_cast<int>(std::floor(pos));
    return t[i] + (t[i + 1] - t[i]) * (pos - i);
}

// Independent trilinear reference over an unpadded cube of edge n (red
// fastest), red then green then blue, skipping fractions up to 1e-5.
struct RefCube
{
    int n;
    std::vector<float> v;
    double at(int r, int g, int b, int c) const
    {
        r = std::min(r, n - 1), g = std::min(g, n - 1), b = std::min(b, n - 1);
        return v[3 * (r + n * g + n * n * b) + c];
    }
    void lookup(const double pos[3], double out[3]) const
    {
        int i[3];
        double f[3];
        for (int k = 0; k < 3; ++k)
        {
            const double p = std::min(std::max(pos[k], 0.0), static_cast<double>(n - 1));
            i[k] = static_cast<int>(std::floor(p));
            f[k] = p - i[k];
            if (f[k] <= 1e-5)
                f[k] = 0.0;
        }
        for (int c = 0; c < 3; ++c)
        {
            auto lr = [&](int g, int b) { return at(i[0], g, b, c) + (at(i[0] + 1, g, b, c) - at(i[0], g, b, c)) * f[0]; };
            const double y0 = lr(i[1], i[2]) + (lr(i[1] + 1, i[2]) - lr(i[1], i[2])) * f[1];
            const double y1 = lr(i[1], i[2] + 1) + (lr(i[1] + 1, i[2] + 1) - lr(i[1], i[2] + 1)) * f[1];
            out[c] = y0 + (y1 - y0) * f[2];
        }
    }
};

// A cube of random entries in [lo, hi), rounded to 1/4096 when `exact` so
// every entry and simple blend of entries is exact in float.
inline RefCube randomCube(int n, unsigned seed, float lo = -0.2f, float hi = 1.2f, bool exact = false)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    RefCube c{n, std::vector<float>(3 * n * n * n)};
    for (float &x : c.v)
        x = exact ? std::round(d(gen) * 4096.0f) / 4096.0f : d(gen);
    return c;
}

// ---------------------------------------------------------------- exchange tables

// A 1D table over [dmin, dmax]: per channel a different curve ("RGB"), or
// the red curve for all ("C").
inline IMB_Lookup table1D(bool shared, int n, float dmin, float dmax)
{
    IMB_Lookup lut;
    lut.setType(shared ? IMB_LUT_C : IMB_LUT_RGB);
    lut.setTableSize(n);
    for (int c = 0; c < (shared ? 1 : 3); ++c)
        for (int i = 0; i < n; ++i)
            lut.getRawLUT(T(1 << c))[i] = std::pow(i / double(n - 1), 0.45 + 0.25 * c) * (1.0 + 0.2 * c) - 0.05;
    lut.setDomain(dmin, dmax);
    return lut;
}

// n^3 triples, red fastest, of a transform that mixes the channels.
inline std::vector<float> mixingCube(int n)
{
    std::vector<float> rgb;
    for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
            for (int r = 0; r < n; ++r)
            {
                const double x = r / double(n - 1), y = g / double(n - 1), z = b / double(n - 1);
                rgb.push_back(float(std::pow(0.8 * x + 0.15 * y + 0.05 * z, 0.6)));
                rgb.push_back(float(std::pow(0.1 * x + 0.85 * y + 0.05 * z, 0.5)));
                rgb.push_back(float(std::pow(0.02 * x + 0.18 * y + 0.8 * z, 0.7) * 0.95 + 0.02 * x));
            }
    return rgb;
}

// A plain cube over 0-1.
inline IMB_Lookup cube3D(int n)
{
    IMB_Lookup lut;
    lut.set3DLUT(n, mixingCube(n).data());
    return lut;
}

// A cube after an m-sample pre-table over [dmin, dmax]: a log-like curve, or
// (ramp) a straight line from 0 to 1.
inline IMB_Lookup cubeWithPre(int n, int m, float dmin, float dmax, bool ramp)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D_1D);
    lut.setTableSize(m);
    lut.set3DLUT(n, mixingCube(n).data());
    for (int i = 0; i < m; ++i)
    {
        const double t = i / double(m - 1);
        lut.getRawLUT(T(32))[i] = ramp ? t : std::log2(1.0 + 15.0 * t) / 4.0;
    }
    lut.setDomain(dmin, dmax);
    return lut;
}

// A w x h float RGB image sweeping [lo, hi] widened by 5% on both sides:
// red along x, green along y, blue scattered by a fixed hash.
inline std::vector<float> sweepImage(int w, int h, float lo, float hi)
{
    const double pad = 0.05 * (double(hi) - lo);
    const double a = lo - pad, span = double(hi) - lo + 2 * pad;
    std::vector<float> px(3 * static_cast<std::size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
        {
            float *p = &px[3 * (static_cast<std::size_t>(y) * w + x)];
            const unsigned hash = (unsigned(x) * 2654435761u) ^ (unsigned(y) * 40503u + 0x9e3779b9u);
            p[0] = float(a + span * x / double(w - 1));
            p[1] = float(a + span * y / double(h - 1));
            p[2] = float(a + span * ((hash >> 8) & 0xffff) / 65535.0);
        }
    return px;
}

// `lut` applied to a copy of the w x h image `px` through a float raster.
inline std::vector<float> applyThroughRaster(const IMB_Lookup &lut, const std::vector<float> &px, int w, int h)
{
    IMB_Raster r(PACK_RGB, IMB_FLOAT32, w, h);
    for (int y = 0; y < h; ++y)
        std::memcpy(r.getPixel(0, y), &px[3 * static_cast<std::size_t>(y) * w], 3 * sizeof(float) * w);
    lut.applyLUT(r);
    std::vector<float> out(px.size());
    for (int y = 0; y < h; ++y)
        std::memcpy(&out[3 * static_cast<std::size_t>(y) * w], r.getPixel(0, y), 3 * sizeof(float) * w);
    return out;
}

inline double maxDifference(const std::vector<float> &a, const std::vector<float> &b)
{
    double worst = a.size() == b.size() ? 0.0 : INFINITY;
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
        worst = std::max(worst, std::fabs(double(a[i]) - double(b[i])));
    return worst;
}
} // namespace lookup_test
