// Per-value rules shared by lookup evaluation and the application kernels:
// the guarded logarithm, domain clamping, the 1D table interpolation and the
// trilinear cube interpolation. Internal; included by lookup/*.cpp only.
#pragma once

#include <cmath>
#include <cstdint>

namespace imb_detail
{
// The logarithm of a value <= 0 (or NaN) is taken as 0.
inline float lutLog(float x) { return x > 0.0f ? std::log(x) : 0.0f; }
inline double lutLog(double x) { return x > 0.0 ? std::log(x) : 0.0; }

// Clamps to [lo, hi]; NaN becomes lo.
inline float clampLow(float x, float lo, float hi)
{
    x = x > lo ? x : lo;
    return x < hi ? x : hi;
}

// Interpolates `t` (last + 1 samples) at position `pos`, which is first
// clamped to [0, last] (NaN reads sample 0).
inline float lerpTable(const float *t, int last, float pos)
{
    pos = clampLow(pos, 0.0f, static_cast<float>(last));
    const int i = static_cast<int>(pos);
    if (i < last)
        return t[i] + (t[i + 1] - t[i]) * (pos - static_cast<float>(i));
    return t[last];
}

// Fractions this close to a sample take the sample as is.
constexpr float kCubeSkip = 1e-5f;

// Trilinear lookup in a padded cube of edge n (n + 1 samples per edge, red
// fastest). Positions are in samples and are clamped to [0, n - 1] first
// (NaN reads 0). Red is interpolated first, then green, then blue; an axis
// whose fraction is within kCubeSkip takes its lower sample as is.
inline void cubeLookup(const float *cube, int n, float pr, float pg, float pb, float out[3])
{
    const float top = static_cast<float>(n - 1);
    pr = clampLow(pr, 0.0f, top);
    pg = clampLow(pg, 0.0f, top);
    pb = clampLow(pb, 0.0f, top);
    const int ir = static_cast<int>(pr), ig = static_cast<int>(pg), ib = static_cast<int>(pb);
    const float fr = pr - static_cast<float>(ir), fg = pg - static_cast<float>(ig),
                fb = pb - static_cast<float>(ib);
    const bool sr = fr >= -kCubeSkip && fr <= kCubeSkip;
    const bool sg = fg >= -kCubeSkip && fg <= kCubeSkip;
    const bool sb = fb >= -kCubeSkip && fb <= kCubeSkip;
    const std::ptrdiff_t e = n + 1;
    const std::ptrdiff_t dr = 3, dg = 3 * e, db = 3 * e * e;
    const float *c000 = cube + 3 * (ir + e * ig + e * e * ib);
    for (int ch = 0; ch < 3; ++ch)
    {
        const float *p = c000 + ch;
        float v00 = p[0], v10 = p[dg], v01 = p[db], v11 = p[dg + db];
        if (!sr)
        {
            v00 += (p[dr] - v00) * fr;
            v10 += (p[dr + dg] - v10) * fr;
            v01 += (p[dr + db] - v01) * fr;
            v11 += (p[dr + dg + db] - v11) * fr;
        }
        if (!sg)
        {
            v00 += (v10 - v00) * fg;
            v01 += (v11 - v01) * fg;
        }
        if (!sb)
            v00 += (v01 - v00) * fb;
        out[ch] = v00;
    }
}
} // namespace imb_detail
