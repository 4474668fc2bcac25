// In-place arithmetic on the destination area of an IMB_FillParms: clear,
// invert, multiply and divide. Components are read as fractions and written
// back with the same rules as the transfer kernels.
#include "platform/FloatContract.h"

#include <IMB/IMB_Fill.h>

#include "fill/FillRows.h"
#include "fill/FillRules.h"
#include "platform/ByteMap.h"

#include <algorithm>

namespace imb_detail
{
namespace
{
// Reading and writing a destination component as a fraction. A fast 32-bit
// destination scales by the full range here (unlike clear and fill, which use
// the stored black and white).
template <IMB_DataFormat D, bool DF> struct Codec
{
    using T = ComponentOf<D>;
    explicit Codec(const IMB_FillParms &p)
        : read(p.myDestBlack, p.myDestWhite),
          write(D == IMB_INT32 && DF ? 0u : p.myDestBlack, D == IMB_INT32 && DF ? 0xFFFFFFFFu : p.myDestWhite)
    {
    }
    Normalise<D, DF> read;
    Write<D, DF> write;
};

// Destination area geometry shared by the kernels.
struct Area
{
    int64 width;  // pixels per row
    int64 height; // rows
    int64 inc;    // components between pixels
};

inline bool areaOf(const IMB_FillParms &p, Area &a)
{
    const IMB_FillArea &d = p.myDestArea;
    a.width = d.x2 - d.x1 + 1;
    a.height = d.y2 - d.y1 + 1;
    a.inc = p.myDestXInc;
    return a.width > 0 && a.height > 0;
}

// The per-pixel operations on fractions. `zeroes(i)` marks a pixel whose
// component is set to 0 directly rather than written from a fraction.
struct InvertOp
{
    static constexpr VEC_Math::ArithmeticOp vectorOp = VEC_Math::kInvert;
    float vectorValue() const { return value; }
    const float *vectorFactors() const { return nullptr; }
    float value;
    template <typename X> X operator()(X x, int64) const { return (X(1) - x) * X(value); }
    bool zeroes(int64) const { return false; }
};

struct ScaleOp
{
    static constexpr VEC_Math::ArithmeticOp vectorOp = VEC_Math::kScale;
    float vectorValue() const { return factor; }
    const float *vectorFactors() const { return nullptr; }
    float factor;
    template <typename X> X operator()(X x, int64) const { return x * X(factor); }
    bool zeroes(int64) const { return false; }
};

struct PixelMultiplyOp
{
    static constexpr VEC_Math::ArithmeticOp vectorOp = VEC_Math::kPixelMultiply;
    float vectorValue() const { return 0.0f; }
    const float *vectorFactors() const { return factors; }
    const float *factors;
    template <typename X> X operator()(X x, int64 i) const { return x * X(factors[i]); }
    bool zeroes(int64) const { return false; }
};

// A per-pixel factor of 0 writes 0 for that pixel, never a division by zero.
struct PixelDivideOp
{
    static constexpr VEC_Math::ArithmeticOp vectorOp = VEC_Math::kPixelDivide;
    float vectorValue() const { return 0.0f; }
    const float *vectorFactors() const { return factors; }
    const float *factors;
    template <typename X> X operator()(X x, int64 i) const
    {
        return factors[i] == 0.0f ? X(0) : x / X(factors[i]);
    }
    bool zeroes(int64 i) const { return factors[i] == 0.0f; }
};

template <IMB_DataFormat D, bool DF, typename Op> void applyOp(const IMB_FillParms &p, const Op &op)
{
    IMBdetermineProcCaps();
    Area a;
    if (!areaOf(p, a))
        return;
    using T = ComponentOf<D>;
    const Codec<D, DF> c(p);
    T *dst = static_cast<T *>(p.myDest);
    const int64 n = a.width * a.height;

    // Contiguous 8-bit components under one factor for all: the 256 results
    // of the rule below, mapped in vector registers where the processor can
    // (exact by construction).
    int64 done = 0;
    if constexpr (D == IMB_INT8)
    {
        if (a.inc == 1 && !op.vectorFactors())
        {
            uint8 table[256];
            for (int v = 0; v < 256; ++v)
                table[v] = writeAs(c.write, op(c.read(T(v)), 0));
            done = mapBytes(dst, n, table, 1);
            if (done > 0)
            {
                for (int64 i = done; i < n; ++i)
                    dst[i] = table[dst[i]];
                return;
            }
        }
    }

    // Contiguous 8-bit, 16-bit and half components: whole vectors through
    // VEC_Math, which gives the same results as the loop below; it finishes
    // the tail.
    if constexpr (D == IMB_INT8 || D == IMB_INT16 || D == IMB_FLOAT16)
    {
        if (a.inc == 1)
        {
            VEC_Math::RowTerms t;
            if constexpr (D != IMB_FLOAT16)
            {
                t.readScale = c.read.scale();
                t.readBlack = static_cast<int32>(c.read.black());
                t.writeScale = c.write.scale();
                t.writeBlack = c.write.black();
                t.writeMax = c.write.white();
            }
            done = VEC_Math::arithmeticRow(kindOf<D>, Op::vectorOp, dst, t, op.vectorValue(), op.vectorFactors(), n);
        }
    }
    if (done > 0)
    {
        for (int64 i = done; i < n; ++i)
            dst[i] = op.zeroes(i) ? T(0) : writeAs(c.write, op(c.read(dst[i]), i));
        return;
    }

    for (int64 y = 0; y < a.height; ++y)
    {
        T *row = dst + y * a.width * a.inc;
        for (int64 x = 0; x < a.width; ++x)
        {
            const int64 i = y * a.width + x;
            T &v = row[x * a.inc];
            v = op.zeroes(i) ? T(0) : writeAs(c.write, op(c.read(v), i));
        }
    }
}

template <IMB_DataFormat D, bool DF> void invertKernel(const IMB_FillParms &p)
{
    applyOp<D, DF>(p, InvertOp{p.myValue});
}

template <IMB_DataFormat D, bool DF> void multiplyKernel(const IMB_FillParms &p)
{
    if (p.myUsePixelFactors)
        applyOp<D, DF>(p, PixelMultiplyOp{p.myPixelFactors});
    else
        applyOp<D, DF>(p, ScaleOp{p.myFactor});
}

template <IMB_DataFormat D, bool DF> void divideKernel(const IMB_FillParms &p)
{
    if (p.myUsePixelFactors)
        applyOp<D, DF>(p, PixelDivideOp{p.myPixelFactors});
    else
        // Every format multiplies by the reciprocal; a factor of 0 multiplies
        // by 0.
        applyOp<D, DF>(p, ScaleOp{p.myFactor == 0.0f ? 0.0f : 1.0f / p.myFactor});
}

template <IMB_DataFormat D, bool DF> void clearKernel(const IMB_FillParms &p)
{
    IMBdetermineProcCaps();
    const IMB_FillArea &d = p.myDestArea;
    const IMB_FillArea &s = p.mySourceArea;
    IMB_FillArea r = d;
    if (!(s.x1 > s.x2 && s.y1 > s.y2))
        r = IMB_FillArea{std::max(s.x1, d.x1), std::max(s.y1, d.y1), std::min(s.x2, d.x2), std::min(s.y2, d.y2)};
    if (r.x1 > r.x2 || r.y1 > r.y2 || d.x1 > d.x2 || d.y1 > d.y2)
        return;

    using T = ComponentOf<D>;
    // The 32-bit level uses the stored black and white even on a fast
    // destination, like fill; deliberate.
    const Write<D, DF> write(p.myDestBlack, p.myDestWhite);
    const T level = writeAs(write, p.myValue);

    T *dst = static_cast<T *>(p.myDest);
    const int64 inc = p.myDestXInc;
    const int64 destWidth = d.x2 - d.x1 + 1;
    const int64 rowLength = destWidth * inc;
    const int64 w = r.x2 - r.x1 + 1;
    for (int64 y = r.y1; y <= r.y2; ++y)
    {
        T *row = dst + (y - d.y1) * rowLength;
        if (p.myDestPlanar)
        {
            for (int64 run = 0; run < inc; ++run)
                std::fill_n(row + run * destWidth + (r.x1 - d.x1), w, level);
        }
        else if (inc == 1)
        {
            std::fill_n(row + (r.x1 - d.x1), w, level);
        }
        else
        {
            T *c = row + (r.x1 - d.x1) * inc;
            for (int64 x = 0; x < w; ++x)
                c[x * inc] = level;
        }
    }
}

using AreaKernel = void (*)(const IMB_FillParms &);

// Dispatches on myDestType and, for integer formats, myDestFast. Float
// formats have one kernel each.

void dispatch(const IMB_FillParms &p, const AreaKernel (&table)[5][2])
{
    const int32 d = p.myDestType;
    if (d < 0 || d >= IMB_MAX_DATA_FORMAT)
        return;
    table[d][p.myDestFast ? 1 : 0](p);
}

#define IMB_AREA_KERNELS(K)                                                                                       \
    {                                                                                                             \
        {K<IMB_INT8, false>, K<IMB_INT8, true>}, {K<IMB_INT16, false>, K<IMB_INT16, true>},                       \
            {K<IMB_INT32, false>, K<IMB_INT32, true>}, {K<IMB_FLOAT32, true>, K<IMB_FLOAT32, true>},              \
            {K<IMB_FLOAT16, true>, K<IMB_FLOAT16, true>},                                                         \
    }

const AreaKernel theClear[5][2] = IMB_AREA_KERNELS(clearKernel);
const AreaKernel theInvert[5][2] = IMB_AREA_KERNELS(invertKernel);
const AreaKernel theMultiply[5][2] = IMB_AREA_KERNELS(multiplyKernel);
const AreaKernel theDivide[5][2] = IMB_AREA_KERNELS(divideKernel);

#undef IMB_AREA_KERNELS
} // namespace
} // namespace imb_detail

void IMB_Fill::clear(const IMB_FillParms &parms)
{
    imb_detail::dispatch(parms, imb_detail::theClear);
}

void IMB_Fill::invert(const IMB_FillParms &parms)
{
    imb_detail::dispatch(parms, imb_detail::theInvert);
}

void IMB_Fill::multiply(const IMB_FillParms &parms)
{
    imb_detail::dispatch(parms, imb_detail::theMultiply);
}

void IMB_Fill::divide(const IMB_FillParms &parms)
{
    imb_detail::dispatch(parms, imb_detail::theDivide);
}
