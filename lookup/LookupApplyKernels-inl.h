// Internal interface between IMB_Lookup's application entry points and the
// per-format kernels: the prepared parameters, the per-component rules and
// the kernel entry points. Included by lookup/LookupApply*.cpp only.
#pragma once

#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

#include "lookup/LookupApplyRules-inl.h"

#include <cmath>

namespace imb_detail
{
// Black and white points scaled to an integer format, and the derived
// divisor (1 when the points coincide) and output span.
struct LutPoints
{
    double black = 0.0, white = 1.0;
    bool identity = true; // the caller's points were exactly 0 and 1
};

// Everything a 1D kernel needs; tables are float copies of the tracks, one
// pointer per channel (null leaves the channel alone).
struct Lut1DParams
{
    const float *table[4] = {nullptr, nullptr, nullptr, nullptr};
    int last = 0; // table length - 1
    bool log = false;
    float dmin = 0.0f, dmax = 1.0f;
    float lnMin = 0.0f; // log of dmin (0 when dmin <= 0)
    float scale = 0.0f; // table positions per unit of x (or of ln x)
    bool gammaOne = true;
    float invGamma = 1.0f;
    LutPoints points;
};

// Everything a cube kernel needs.
enum class CubeInput
{
    Linear, // pos = (n - 1) clamp(c, 0, 1)
    Log,    // pos = (ln clamp(c, dmin, dmax) - ln dmin) (n - 1)/(ln dmax - ln dmin)
    PreLut, // pos = (n - 1) pre(c)
};
struct Lut3DParams
{
    const float *cube = nullptr; // padded, edge n + 1
    int n = 0;
    CubeInput input = CubeInput::Linear;
    float dmin = 0.0f, dmax = 1.0f;
    float lnMin = 0.0f, logScale = 0.0f; // (n - 1)/(ln dmax - ln dmin)
    const float *pre = nullptr;          // pre-table (PreLut only)
    int preLast = 0;
    float preScale = 0.0f; // preLast / (dmax - dmin)
    float logBias = 0.0f;  // carried for display layers; not used on the CPU
    bool gammaOne = true;
    float invGamma = 1.0f;
    LutPoints points;
};

// The pixels one worker processes: component pointers of its first pixel
// (null when the raster lacks the component) and the step between pixels in
// components.
struct LutSpan
{
    void *comp[4] = {nullptr, nullptr, nullptr, nullptr};
    int64 step = 1;
    int64 count = 0;
};

// Gamma of the table output: values <= 0 (and NaN) pass unchanged.
template <typename Calc> inline Calc applyGamma(Calc y, Calc invGamma)
{
    return y > Calc(0) ? static_cast<Calc>(std::pow(y, invGamma)) : y;
}

// Clamps to [lo, hi]; NaN becomes lo.
template <typename Calc> inline Calc clampLowT(Calc x, Calc lo, Calc hi)
{
    x = x > lo ? x : lo;
    return x < hi ? x : hi;
}

// Table position of x for a 1D kernel.
template <bool LOG, typename Calc> inline Calc lut1DPosition(Calc x, const Lut1DParams &p)
{
    x = clampLowT<Calc>(x, p.dmin, p.dmax);
    if (LOG)
        return (lutLog(x) - Calc(p.lnMin)) * Calc(p.scale);
    return (x - Calc(p.dmin)) * Calc(p.scale);
}

// Interpolates a float table at a position (clamped to [0, last]; NaN 0).
template <typename Calc> inline Calc lut1DValue(const float *t, int last, Calc pos)
{
    pos = clampLowT<Calc>(pos, Calc(0), Calc(last));
    const int i = static_cast<int>(pos);
    if (i < last)
        return Calc(t[i]) + (Calc(t[i + 1]) - Calc(t[i])) * (pos - Calc(i));
    return Calc(t[last]);
}

// Kernel entry points (LookupApply1D.cpp, LookupApply3D.cpp). Each applies
// to span.count pixels of the given format.
void applyLut1D(IMB_DataFormat format, const Lut1DParams &p, const LutSpan &span);
void applyLut3D(IMB_DataFormat format, const Lut3DParams &p, const LutSpan &span);
// Maps every 8-bit value (256 entries) or every 16-bit pattern (65536
// entries; int16 values or half16 bits) of each channel with a table into
// `maps` (4 arrays of `entries` values, of the format's type), by the same
// rule as applyLut1D; then applies the maps. Used where that is cheaper.
void buildLut1DMaps(IMB_DataFormat format, const Lut1DParams &p, void *maps[4]);
void applyLut1DMaps(IMB_DataFormat format, const void *const maps[4], const LutSpan &span);
} // namespace imb_detail
