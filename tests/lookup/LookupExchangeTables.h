// Tables and images shared by the exchange-file tests: one table of each
// shape the exchange formats map onto, and float RGB images that sweep a
// domain (with a margin on both sides, to cover the clamping).
#pragma once

#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_Raster.h>
#include <IMB/platform/CRV_Clip.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace exchange_test
{
// A 1D table over [dmin, dmax]: per channel a different curve ("RGB"), or
// the red curve for all ("C").
inline IMB_Lookup table1D(bool shared, int n, float dmin, float dmax)
{
    IMB_Lookup lut;
    lut.setType(shared ? IMB_LUT_C : IMB_LUT_RGB);
    lut.setTableSize(n);
    CRV_Clip clip = lut.getLUT();
    for (int c = 0; c < (shared ? 1 : 3); ++c)
        for (int i = 0; i < n; ++i)
            clip.getTrack(c)->getData()[i] = std::pow(i / double(n - 1), 0.45 + 0.25 * c) * (1.0 + 0.2 * c) - 0.05;
    lut.setLUT(clip);
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
    lut.setType(IMB_LUT_3D);
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
    CRV_Clip clip = lut.getLUT();
    for (int i = 0; i < m; ++i)
    {
        const double t = i / double(m - 1);
        clip.getTrack(0)->getData()[i] = ramp ? t : std::log2(1.0 + 15.0 * t) / 4.0;
    }
    lut.setLUT(clip);
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
} // namespace exchange_test
