// Cube lookup kernels for int8, int16, float and half rasters: one per-pixel
// rule templated over the format, the input mode (linear, log, pre-table),
// identity points and gamma 1, and one walker over a strided span. There is
// no 32-bit integer kernel (such rasters are left unchanged).
#include "lookup/LookupApplyKernels-inl.h"

namespace imb_detail
{
namespace
{
template <IMB_DataFormat F> struct CubeFormat;
template <> struct CubeFormat<IMB_INT8>
{
    using T = uint8;
    static constexpr float kInvWhite = 0.003921569f;
    static constexpr float kWhite = 255.0f;
    static constexpr bool kInt = true;
};
template <> struct CubeFormat<IMB_INT16>
{
    using T = uint16;
    static constexpr float kInvWhite = 1.5259022e-5f;
    static constexpr float kWhite = 65535.0f;
    static constexpr bool kInt = true;
};
template <> struct CubeFormat<IMB_FLOAT32>
{
    using T = float;
    static constexpr bool kInt = false;
};
template <> struct CubeFormat<IMB_FLOAT16>
{
    using T = half16;
    static constexpr bool kInt = false;
};

struct CubePoints
{
    float black, div, span;
    explicit CubePoints(const LutPoints &p)
        : black(static_cast<float>(p.black)),
          div(p.white == p.black ? 1.0f : static_cast<float>(p.white) - static_cast<float>(p.black)),
          span(static_cast<float>(p.white) - static_cast<float>(p.black))
    {
    }
};

template <CubeInput IN> inline float cubePosition(float c, const Lut3DParams &p, float top)
{
    if constexpr (IN == CubeInput::Log)
        return (lutLog(clampLow(c, p.dmin, p.dmax)) - p.lnMin) * p.logScale;
    else if constexpr (IN == CubeInput::PreLut)
    {
        const float v = lerpTable(p.pre, p.preLast, (clampLow(c, p.dmin, p.dmax) - p.dmin) * p.preScale);
        return top * v;
    }
    else
        return top * clampLow(c, 0.0f, 1.0f);
}

template <IMB_DataFormat F, CubeInput IN, bool IDENT, bool GAMMA1>
void walk3D(const Lut3DParams &p, const LutSpan &span)
{
    using Fmt = CubeFormat<F>;
    using T = typename Fmt::T;
    const CubePoints pt(p.points);
    const float top = static_cast<float>(p.n - 1);
    T *r = static_cast<T *>(span.comp[0]);
    T *g = static_cast<T *>(span.comp[1]);
    T *b = static_cast<T *>(span.comp[2]);
    const int64 step = span.step;
    for (int64 i = 0; i < span.count; ++i, r += step, g += step, b += step)
    {
        float in[3] = {static_cast<float>(*r), static_cast<float>(*g), static_cast<float>(*b)};
        if constexpr (!Fmt::kInt)
        {
            // Pixels with a NaN component keep their values.
            if (std::isnan(in[0]) || std::isnan(in[1]) || std::isnan(in[2]))
                continue;
        }
        else
        {
            for (float &c : in)
                c = IDENT ? c * Fmt::kInvWhite : (c - pt.black) / pt.div;
        }
        float out[3];
        cubeLookup(p.cube, p.n, cubePosition<IN>(in[0], p, top), cubePosition<IN>(in[1], p, top),
                   cubePosition<IN>(in[2], p, top), out);
        if (!GAMMA1)
            for (float &c : out)
                c = applyGamma(c, p.invGamma);
        if constexpr (Fmt::kInt)
        {
            for (float &c : out)
            {
                float o = IDENT ? c * Fmt::kWhite + 0.5f : c * pt.span + pt.black + 0.5f;
                c = clampLow(std::floor(o), 0.0f, Fmt::kWhite);
            }
        }
        *r = static_cast<T>(out[0]);
        *g = static_cast<T>(out[1]);
        *b = static_cast<T>(out[2]);
    }
}

template <IMB_DataFormat F, CubeInput IN> void dispatchFlags(const Lut3DParams &p, const LutSpan &span)
{
    const bool ident = p.points.identity || !CubeFormat<F>::kInt;
    if (ident)
        return p.gammaOne ? walk3D<F, IN, true, true>(p, span) : walk3D<F, IN, true, false>(p, span);
    return p.gammaOne ? walk3D<F, IN, false, true>(p, span) : walk3D<F, IN, false, false>(p, span);
}

template <IMB_DataFormat F> void dispatch3D(const Lut3DParams &p, const LutSpan &span)
{
    switch (p.input)
    {
    case CubeInput::Log: return dispatchFlags<F, CubeInput::Log>(p, span);
    case CubeInput::PreLut: return dispatchFlags<F, CubeInput::PreLut>(p, span);
    default: return dispatchFlags<F, CubeInput::Linear>(p, span);
    }
}
} // namespace

void applyLut3D(IMB_DataFormat format, const Lut3DParams &p, const LutSpan &span)
{
    if (!p.cube || p.n < 1 || !span.comp[0] || !span.comp[1] || !span.comp[2])
        return;
    switch (format)
    {
    case IMB_INT8: return dispatch3D<IMB_INT8>(p, span);
    case IMB_INT16: return dispatch3D<IMB_INT16>(p, span);
    case IMB_FLOAT32: return dispatch3D<IMB_FLOAT32>(p, span);
    case IMB_FLOAT16: return dispatch3D<IMB_FLOAT16>(p, span);
    default: return; // no cube kernel for 32-bit integers: kept as designed
    }
}
} // namespace imb_detail
