// IMB_Lookup: evaluation of single values, blocks and RGB triples, sampling
// grids for baked transforms, inversion and composition of tables.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include "lookup/LookupApplyRules-inl.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

using imb_detail::clampLow;
using imb_detail::lutLog;

namespace
{
constexpr int32 kLogFlag = IMB_LUT_LOG_SAMPLING;
constexpr IMB_LookupType kChannels[4] = {IMB_LUT_R, IMB_LUT_G, IMB_LUT_B, IMB_LUT_A};
// The single-precision value of e that index positions are mapped with.
constexpr double kE = 2.7182819843292236;
// The rounded value of e used for baking grids.
constexpr double kEGrid = 2.718282;
} // namespace

// ---------------------------------------------------------------- single

float IMB_Lookup::evalLUT(IMB_LookupType type, float x) const
{
    const int t = getIndexFor(type);
    const CRV_Track *track = myClip->getTrack(t);
    if (!track || track->getLength() == 0)
        return x;
    const int64 n = track->getLength();
    float pos;
    if (getLogSampling())
    {
        const float lo = lutLog(myDomainMin), hi = lutLog(myDomainMax);
        const float c = clampLow(x, myDomainMin, myDomainMax);
        // N, not N - 1: deliberate and kept, tables in use were made for it;
        // x = dmax asks for one past the last sample.
        pos = static_cast<float>(n) * (lutLog(c) - lo) / (hi - lo);
    }
    else
        pos = static_cast<float>(n - 1) * x;
    const double start = myClip->getStart();
    const float at = static_cast<float>(start + pos);
    const double v = track->evaluateSingle(static_cast<double>(at));
    if (myRangeMin == myRangeMax)
        return static_cast<float>(v);
    return static_cast<float>((v - myRangeMin) / (myRangeMax - myRangeMin));
}

void IMB_Lookup::evalLUT(float rgb[3]) const
{
    if (myType & IMB_LUT_3D)
    {
        eval3DLUT(rgb);
        return;
    }
    rgb[0] = evalLUT(IMB_LUT_R, rgb[0]);
    rgb[1] = evalLUT(IMB_LUT_G, rgb[1]);
    rgb[2] = evalLUT(IMB_LUT_B, rgb[2]);
}

// ---------------------------------------------------------------- blocks

namespace
{
// Maps resampled values from the range to [black, white].
void mapToPoints(float *out, int count, float black, float white, float rmin, float rmax)
{
    const float k = rmax == rmin ? 1.0f : (white - black) / (rmax - rmin);
    for (int i = 0; i < count; ++i)
        out[i] = (out[i] - rmin) * k + black;
}
} // namespace

bool IMB_Lookup::evalLUT(IMB_LookupType type, int count, float *out, unsigned black, unsigned white) const
{
    const CRV_Track *track = myClip->getTrack(getIndexFor(type));
    if (!track || !out || count < 1)
        return false;
    const double s = myClip->getStart();
    std::vector<double> tmp(static_cast<std::size_t>(count));
    track->evaluate(s, s + static_cast<double>(track->getLength()) - 1.0, tmp.data(), count);
    for (int i = 0; i < count; ++i)
        out[i] = static_cast<float>(tmp[i]);
    const float b = static_cast<float>(black), w = static_cast<float>(white);
    if (black != white && !(b == myRangeMin && w == myRangeMax))
        mapToPoints(out, count, b, w, myRangeMin, myRangeMax);
    return true;
}

bool IMB_Lookup::evalLUT(IMB_LookupType type, int count, float *out, float black, float white, float from,
                         float to) const
{
    const CRV_Track *track = myClip->getTrack(getIndexFor(type));
    if (!track || !out || count < 1)
        return false;
    const double s = myClip->getStart();
    const double n = static_cast<double>(track->getLength());
    std::vector<double> tmp(static_cast<std::size_t>(count));
    if (getLogSampling())
        track->evaluate(s, s + n - 1.0, tmp.data(), count);
    else
        track->evaluate(s + n * from, s + n * to - 1.0, tmp.data(), count);
    for (int i = 0; i < count; ++i)
        out[i] = static_cast<float>(tmp[i]);
    if (!(black == myRangeMin && white == myRangeMax))
        mapToPoints(out, count, black, white, myRangeMin, myRangeMax);
    return true;
}

// ---------------------------------------------------------------- cube

void IMB_Lookup::lerpPreLUT(float &v, float scale, const double *table, int last) const
{
    const float c = clampLow(v, myDomainMin, myDomainMax);
    float p = (c - myDomainMin) * scale;
    p = clampLow(p, 0.0f, static_cast<float>(last));
    const int i = static_cast<int>(std::floor(p));
    if (i < last)
        v = static_cast<float>(table[i] + (table[i + 1] - table[i]) * (p - i));
    else
        v = static_cast<float>(table[last]);
}

void IMB_Lookup::eval3DLUT(float rgb[3]) const
{
    if (!my3DTable || my3DSize < 1)
        return;
    const int n = my3DSize;
    const float top = static_cast<float>(n - 1);
    float pos[3];
    if (getLogSampling())
    {
        const float lo = lutLog(myDomainMin), hi = lutLog(myDomainMax);
        for (int c = 0; c < 3; ++c)
            pos[c] = (lutLog(clampLow(rgb[c], myDomainMin, myDomainMax)) - lo) * top / (hi - lo);
    }
    else if (myType != IMB_LUT_3D_1D)
    {
        for (int c = 0; c < 3; ++c)
            pos[c] = top * clampLow(rgb[c], 0.0f, 1.0f);
    }
    else
    {
        const CRV_Track *pre = myClip->getTrack(0);
        const int64 len = pre ? pre->getLength() : 0;
        for (int c = 0; c < 3; ++c)
        {
            float v = rgb[c];
            if (len > 0)
            {
                const int last = static_cast<int>(len - 1);
                lerpPreLUT(v, static_cast<float>(last) / (myDomainMax - myDomainMin), pre->getData(), last);
            }
            pos[c] = top * v;
        }
    }
    imb_detail::cubeLookup(my3DTable.get(), n, pos[0], pos[1], pos[2], rgb);
}

double IMB_Lookup::indexToValue(int i) const
{
    // Any bit of 127 (the cube bit 64 included) selects the track length;
    // only a type word without those bits uses the cube edge. Kept as is:
    // the baking code that calls this relies on the choice.
    const int m = (myType & 127) ? getTableSize() : my3DSize;
    const double lo = myDomainMin, hi = myDomainMax;
    const double f = m > 1 ? static_cast<double>(i) / static_cast<double>(m - 1) : 0.0;
    if (!getLogSampling())
        return lo + (hi - lo) * f;
    const double llo = lutLog(lo), lhi = lutLog(hi);
    return std::pow(kE, llo + (lhi - llo) * f);
}

// ---------------------------------------------------------------- repair

bool IMB_Lookup::correctLUT()
{
    bool usable = true;
    if (myDomainMin > myDomainMax)
    {
        std::swap(myDomainMin, myDomainMax);
        std::swap(myRangeMin, myRangeMax);
    }
    if (myDomainMin == myDomainMax)
        usable = false;
    if (getLogSampling() && myDomainMin < 1e-6f)
    {
        myDomainMin = 1e-6f;
        if (myDomainMax < 1e-6f)
            usable = false;
    }
    if (myType == IMB_LUT_3D_1D)
    {
        if (CRV_Track *pre = myClip->getTrack(0))
        {
            double *t = pre->getData();
            for (int64 k = 0; k < pre->getLength(); ++k)
                t[k] = t[k] > 0.0 ? (t[k] < 1.0 ? t[k] : 1.0) : 0.0;
        }
    }
    return usable;
}

void IMB_Lookup::clamp3DLUT()
{
    if (!my3DTable)
        return;
    const std::size_t e = static_cast<std::size_t>(my3DSize) + 1;
    float *c = my3DTable.get();
    for (std::size_t k = 0; k < 3 * e * e * e; ++k)
        c[k] = clampLow(c[k], 0.0f, 1.0f);
}

// ---------------------------------------------------------------- grids

void IMB_Lookup::prep1DLUT(float *grid, int size, bool linear, double lo, double hi)
{
    if (size < 1 || !grid)
        return;
    setType(IMB_LUT_RGB);
    setNumChannels(3);
    setTableSize(size);
    setLogSampling(!linear);
    free3DTable();
    const double step = size > 1 ? 1.0 / static_cast<double>(size - 1) : 0.0;
    if (linear)
    {
        myPreShift = 0.0f;
        for (int i = 0; i < size; ++i)
        {
            double v = lo + i * (hi - lo) * step;
            v = std::min(std::max(v, lo), hi);
            grid[3 * i] = grid[3 * i + 1] = grid[3 * i + 2] = static_cast<float>(v);
        }
        return;
    }
    myDomainMin = static_cast<float>(lo);
    myDomainMax = static_cast<float>(hi);
    const double llo = lutLog(lo), lhi = lutLog(hi);
    for (int i = 0; i < size; ++i)
    {
        double v = std::pow(kEGrid, llo + i * (lhi - llo) * step);
        v = std::min(std::max(v, lo), hi) - lo;
        grid[3 * i] = grid[3 * i + 1] = grid[3 * i + 2] = static_cast<float>(v);
    }
    myPreShift = static_cast<float>(lo);
}

void IMB_Lookup::prep3DLUT(bool linear, double lo, double hi, double, int large)
{
    const int edge = large ? 96 : 64;
    alloc3DTable(edge);
    myClip->destroyAllTracks();
    const int e = edge + 1;
    std::vector<float> coord(static_cast<std::size_t>(e));
    if (linear)
    {
        for (int i = 0; i < e; ++i)
            coord[i] = static_cast<float>(std::min(std::max(lo + i * (hi - lo) / (edge - 1), lo), hi));
        myPreShift = 0.0f;
    }
    else
    {
        myDomainMin = static_cast<float>(lo);
        myDomainMax = static_cast<float>(hi);
        const double llo = lutLog(lo), lhi = lutLog(hi);
        for (int i = 0; i < e; ++i)
            coord[i] = static_cast<float>(std::exp(llo + i * (lhi - llo) / (edge - 1)) - lo);
        myPreShift = static_cast<float>(lo);
    }
    float *c = my3DTable.get();
    for (int b = 0; b < e; ++b)
        for (int g = 0; g < e; ++g)
            for (int r = 0; r < e; ++r)
            {
                *c++ = coord[r];
                *c++ = coord[g];
                *c++ = coord[b];
            }
}

// ---------------------------------------------------------------- invert

void IMB_Lookup::invert(int size)
{
    const int n = getTableSize();
    if (n == 0)
        return;
    const int m = size > 0 ? size : n;
    const CRV_Clip old(*myClip);
    if (size > 0)
        setTableSize(m);
    const bool rounding = mySpecificFormat != IMB_FLOAT32 && mySpecificFormat != IMB_MAX_DATA_FORMAT;
    auto put = [rounding](double v) { return rounding ? std::floor(v + 0.5) : v; };
    const double dmin = myDomainMin, dmax = myDomainMax;
    const double rmin = myRangeMin, rmax = myRangeMax;

    for (int t = 0; t < myClip->getNumTracks(); ++t)
    {
        const double *src = old.getTrack(t)->getData();
        double *out = myClip->getTrack(t)->getData();
        out[0] = dmin;
        int anchor = 0;
        double anchorValue = dmin;
        for (int i = 0; i < m; ++i)
        {
            const int s = m > 1 ? static_cast<int>(std::floor(static_cast<double>(i) * (n - 1) / (m - 1) + 0.5)) : 0;
            // M, not M - 1, in both scalings; kept as designed.
            double jd = std::floor((src[s] - rmin) / (rmax - rmin) * m + 0.5);
            jd = jd > 0.0 ? (jd < m - 1 ? jd : m - 1) : 0.0;
            const int j = static_cast<int>(jd);
            const double v = dmin + (dmax - dmin) * i / m;
            for (int k = anchor + 1; k <= j; ++k)
            {
                const double f = static_cast<double>(k - anchor) / (j - anchor);
                out[k] = put((1.0 - f) * anchorValue + f * v);
            }
            // The anchor moves even when j did not advance, so on flat or
            // falling stretches the last value reaching an index wins.
            anchor = j;
            anchorValue = v;
        }
        for (int k = anchor + 1; k <= m - 2; ++k)
        {
            const double f = static_cast<double>(k - anchor) / (m - anchor - 1);
            out[k] = put((1.0 - f) * anchorValue + f * dmax);
        }
        out[m - 1] = dmax;
    }
    std::swap(myDomainMin, myRangeMin);
    std::swap(myDomainMax, myRangeMax);
}

// ---------------------------------------------------------------- merge

bool IMB_Lookup::mergeLUTs(const IMB_Lookup &aIn, const IMB_Lookup &bIn)
{
    // Work on copies when this object is one of the operands.
    std::unique_ptr<IMB_Lookup> keepA, keepB;
    const IMB_Lookup *pa = &aIn, *pb = &bIn;
    if (pa == this)
        pa = (keepA = std::make_unique<IMB_Lookup>(aIn)).get();
    if (pb == this)
        pb = (keepB = std::make_unique<IMB_Lookup>(bIn)).get();
    const IMB_Lookup &a = *pa, &b = *pb;

    float dmin = std::min(a.myDomainMin, a.myDomainMax), dmax = std::max(a.myDomainMin, a.myDomainMax);
    if ((myType & kLogFlag) && dmin < 1e-6f)
    {
        dmin = 1e-6f;
        if (dmax < 1e-6f)
            dmax = 1.0f;
    }
    setRange(b.myRangeMin, b.myRangeMax);
    myBlackPoint = b.myBlackPoint;
    myWhitePoint = b.myWhitePoint;

    const bool aCube = a.is3DLUT(), bCube = b.is3DLUT();
    int32 type;
    int length = 0, edge = 0;
    if (!aCube && !bCube)
    {
        const int32 ta = a.myType & ~kLogFlag, tb = b.myType & ~kLogFlag;
        type = ta | tb;
        if (((ta & 16) != 0) != ((tb & 16) != 0))
            type = (type & 15) | 16;
        length = std::max(a.getTableSize(), b.getTableSize());
    }
    else
    {
        type = IMB_LUT_3D;
        edge = aCube ? std::max(a.my3DSize, b.my3DSize) : b.my3DSize;
    }

    const bool aLog = a.getLogSampling(), bLog = b.getLogSampling();
    if (aLog || bLog)
        myType = static_cast<IMB_LookupType>(myType | kLogFlag);
    // A linear first table moves a domain starting at or below 0 to 0.001;
    // kept as designed, merged tables in use were made this way.
    if (!aLog && dmin <= 0.0f)
        dmin = 0.001f;
    myDomainMin = dmin;
    myDomainMax = dmax;
    setType(static_cast<IMB_LookupType>(type));
    if (aLog)
        setLogBias(a.myLogBias);
    else if (bLog)
        setLogBias(b.myLogBias);

    const bool log = getLogSampling();
    const double lo = log ? lutLog(static_cast<double>(dmin)) : dmin;
    const double hi = log ? lutLog(static_cast<double>(dmax)) : dmax;
    auto gridValue = [&](int i, int count) {
        const double f = count > 1 ? static_cast<double>(i) / (count - 1) : 0.0;
        const double x = lo + (hi - lo) * f;
        return log ? std::exp(x) : x;
    };

    if (edge == 0)
    {
        free3DTable();
        setTableSize(length);
        for (int t = 0; t < myClip->getNumTracks() && t < 4; ++t)
        {
            double *out = myClip->getTrack(t)->getData();
            const IMB_LookupType ch = kChannels[t];
            for (int i = 0; i < length; ++i)
            {
                const float x = static_cast<float>(gridValue(i, length));
                out[i] = b.evalLUT(ch, a.evalLUT(ch, x));
            }
        }
        return true;
    }

    std::vector<float> cube(3 * static_cast<std::size_t>(edge) * edge * edge);
    std::vector<float> coord(static_cast<std::size_t>(edge));
    for (int i = 0; i < edge; ++i)
        coord[i] = static_cast<float>(gridValue(i, edge));
    float *c = cube.data();
    for (int bi = 0; bi < edge; ++bi)
        for (int gi = 0; gi < edge; ++gi)
            for (int ri = 0; ri < edge; ++ri, c += 3)
            {
                c[0] = coord[ri];
                c[1] = coord[gi];
                c[2] = coord[bi];
                a.evalLUT(c);
                b.evalLUT(c);
            }
    set3DLUT(edge, cube.data());
    return true;
}
