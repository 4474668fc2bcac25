// Helpers shared by the lookup tests: track and cube readers, a file reader
// and the scalar interpolation references the tests check the code against.
#pragma once

#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace lookup_test
{
inline IMB_LookupType T(int v) { return static_cast<IMB_LookupType>(v); }

// The samples of track `index`, empty when there is none.
inline std::vector<double> track(const IMB_Lookup &lut, int index)
{
    const CRV_Track *t = lut.getLUT().getTrack(index);
    if (!t || !t->getData())
        return {};
    return std::vector<double>(t->getData(), t->getData() + t->getLength());
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
    std::string bytes;
    FILE *fp = std::fopen(path.c_str(), "rb");
    if (!fp)
        return bytes;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, fp)) > 0)
        bytes.append(buffer, n);
    std::fclose(fp);
    return bytes;
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
// `messages`.
template <typename Read> bool readFrom(const std::string &bytes, std::string &messages, Read read)
{
    std::string copy = bytes;
    FILE *fp = copy.empty() ? std::tmpfile() : fmemopen(copy.data(), copy.size(), "rb");
    testing::internal::CaptureStderr();
    const bool ok = read(fp);
    messages = testing::internal::GetCapturedStderr();
    std::fclose(fp);
    return ok;
}

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
    void lookup(double pr, double pg, double pb, float out[3]) const
    {
        const double pos[3] = {pr, pg, pb};
        double o[3];
        lookup(pos, o);
        for (int c = 0; c < 3; ++c)
            out[c] = static_cast<float>(o[c]);
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
} // namespace lookup_test
