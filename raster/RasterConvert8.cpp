// IMB_Raster::convert8Bit: reduction of any raster to 8 bits, rounded as
// IMB_Fill rounds or dithered (ordered or error diffusion).
//
// Without dithering every component goes through IMB_Fill::fill itself, so
// the two agree by construction; only float sources with a custom range need
// their values rescaled first. With dithering each row is read as fractions
// through IMB_Fill (float32 destination), raised to 1/gamma and quantised
// with the method's offsets.
#include <IMB/IMB_Fill.h>
#include <IMB/IMB_Raster.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{
constexpr int kAlpha = 3;

bool isFloat(IMB_DataFormat f) { return f == IMB_FLOAT32 || f == IMB_FLOAT16; }

// A black or white code of an integer format: rounded and kept in range.
uint32 integerPoint(float v, IMB_DataFormat format)
{
    const double top = imbDefinesWhite[format];
    const double r = std::floor(static_cast<double>(v) + 0.5);
    return static_cast<uint32>(r < 0.0 ? 0.0 : (r > top ? top : r));
}

// One IMB_Fill of a width x rows block of one component, tightly packed rows
// on both sides, `srcInc`/`dstInc` components between pixels.
void fillRows(IMB_FillParms &p, const void *src, int64 srcInc, void *dst, int64 dstInc, int64 width, int64 rows)
{
    p.mySource = src;
    p.myDest = dst;
    p.mySourceXInc = srcInc;
    p.myDestXInc = dstInc;
    p.setSourceArea(0, 0, width - 1, rows - 1);
    p.setDestArea(0, 0, width - 1, rows - 1);
    IMB_Fill::fill(p);
}

// Ordered dithering offset of matrix entry m of an n x n matrix: the offsets
// average 0, so the mean of a flat area is kept.
float orderedOffset(int m, int n) { return (static_cast<float>(m) + 0.5f) / static_cast<float>(n * n) - 0.5f; }

// The n x n Bayer matrix (n = 4 or 8), row-major, built from the 2 x 2 one.
std::vector<int> bayer(int n)
{
    std::vector<int> m = {0, 2, 3, 1};
    for (int size = 2; size < n; size *= 2)
    {
        std::vector<int> next(static_cast<std::size_t>(4 * size * size));
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
            {
                const int v = 4 * m[static_cast<std::size_t>(y * size + x)];
                const int w = 2 * size;
                next[static_cast<std::size_t>(y * w + x)] = v;
                next[static_cast<std::size_t>(y * w + x + size)] = v + 2;
                next[static_cast<std::size_t>((y + size) * w + x)] = v + 3;
                next[static_cast<std::size_t>((y + size) * w + x + size)] = v + 1;
            }
        m.swap(next);
    }
    return m;
}

uint8 quantise(float y)
{
    const float r = std::floor(y + 0.5f);
    if (!(r > 0.0f))
        return 0;
    return static_cast<uint8>(r < 255.0f ? r : 255.0f);
}

// Dithered rows of one component: a row of fractions becomes bytes `step`
// apart. Floyd-Steinberg keeps the error reaching this row and the next
// (width + 2 entries each, one spare at either end).
class Ditherer
{
public:
    Ditherer(IMB_Dither method, int64 width) : myWidth(width)
    {
        if (method == IMB_DITHER_BAYER4 || method == IMB_DITHER_BAYER8)
        {
            myN = method == IMB_DITHER_BAYER4 ? 4 : 8;
            const std::vector<int> m = bayer(myN);
            for (int v : m)
                myOffsets.push_back(orderedOffset(v, myN));
        }
        else
        {
            myCurrent.assign(static_cast<std::size_t>(width + 2), 0.0f);
            myNext.assign(static_cast<std::size_t>(width + 2), 0.0f);
        }
    }

    void row(const float *x, int64 y, uint8 *out, int64 step)
    {
        if (myN)
        {
            const float *offsets = &myOffsets[static_cast<std::size_t>((y % myN) * myN)];
            for (int64 i = 0; i < myWidth; ++i)
                out[i * step] = quantise(wanted(x[i]) + offsets[i % myN]);
            return;
        }
        // Floyd-Steinberg, serpentine: even rows left to right, odd rows
        // right to left. myCurrent[i + 1] is the error reaching pixel i.
        std::fill(myNext.begin(), myNext.end(), 0.0f);
        const bool forward = (y % 2) == 0;
        const int64 dir = forward ? 1 : -1;
        for (int64 k = 0; k < myWidth; ++k)
        {
            const int64 i = forward ? k : myWidth - 1 - k;
            const float v = wanted(x[i]) + myCurrent[static_cast<std::size_t>(i + 1)];
            const uint8 q = quantise(v);
            const float e = v - static_cast<float>(q);
            out[i * step] = q;
            myCurrent[static_cast<std::size_t>(i + 1 + dir)] += e * (7.0f / 16.0f);
            myNext[static_cast<std::size_t>(i + 1 - dir)] += e * (3.0f / 16.0f);
            myNext[static_cast<std::size_t>(i + 1)] += e * (5.0f / 16.0f);
            myNext[static_cast<std::size_t>(i + 1 + dir)] += e * (1.0f / 16.0f);
        }
        myCurrent.swap(myNext);
    }

private:
    // The value aimed at, in codes: kept inside 0..255 so that out-of-range
    // input does not push error onto its neighbours; NaN is 0.
    static float wanted(float x)
    {
        const float y = x * 255.0f;
        return y > 0.0f ? (y < 255.0f ? y : 255.0f) : 0.0f;
    }

    int64 myWidth;
    int myN = 0;
    std::vector<float> myOffsets;
    std::vector<float> myCurrent, myNext;
};
} // namespace

bool IMB_Raster::convert8Bit(IMB_Raster &dst, float black, float white, float gamma, IMB_Dither method) const
{
    IMBdetermineProcCaps();
    if (&dst == this || !isValid() || myFormat < IMB_INT8 || myFormat > IMB_FLOAT16 || myPacking < PACK_SINGLE ||
        myPacking > PACK_UV || myXres < 1 || myYres < 1 || method < IMB_DITHER_NONE ||
        method > IMB_DITHER_FLOYD_STEINBERG)
        return false;

    dst.reset(1);
    dst.setPacking(myPacking);
    dst.setFormat(IMB_INT8);
    dst.setRes(myXres, myYres);
    dst.setDataWindow(myDataWindow);
    dst.setColorSpace(myColorSpace, myColorSpaceGamma);
    dst.setOCIOParms(myOCIOColorSpace, myOCIODisplay, myOCIOView);
    dst.setBWPoints(0.0f, 1.0f);
    dst.init();
    if (!dst.isValid())
        return false;

    const bool fullRange = black == 0.0f && white == 0.0f;
    const bool floatSource = isFloat(myFormat);
    // Float sources whose range is not 0..1 are rescaled before IMB_Fill.
    const bool rescale = floatSource && !fullRange && !(black == 0.0f && white == 1.0f);
    const float scale = white != black ? 1.0f / (white - black) : 1.0f;
    const int components = isInterleaved() ? imbDefinesPDepth[myPacking] : imbDefinesPComp[myPacking];
    const int64 step = isInterleaved() ? components : 1;
    const int64 bytes = imbDefinesDepth[myFormat];
    std::vector<float> row;
    for (int c = 0; c < components; ++c)
    {
        const bool alpha = c == kAlpha && hasAlpha();
        // Component c of pixel (0, y): in plane c, or c components in.
        auto srcAt = [&](int64 y) {
            return isInterleaved() ? static_cast<const char *>(getPixel(0, y, 0)) + c * bytes : getPixel(0, y, c);
        };
        auto dstAt = [&](int64 y) {
            return isInterleaved() ? static_cast<uint8 *>(dst.getPixel(0, y, 0)) + c
                                   : static_cast<uint8 *>(dst.getPixel(0, y, c));
        };
        IMB_FillParms p;
        if (!floatSource && !fullRange && !alpha)
            p.setSourceType(myFormat, integerPoint(black, myFormat), integerPoint(white, myFormat));
        else
            p.setSourceType(myFormat, 0, 0);
        p.setDestType(IMB_INT8, 0, 0);
        p.myGamma = alpha ? 1.0f : gamma;

        if (method == IMB_DITHER_NONE || alpha)
        {
            if (!rescale || alpha)
            {
                fillRows(p, srcAt(0), step, dstAt(0), step, myXres, myYres);
                continue;
            }
            // A custom float range: the fractions first, then IMB_Fill's
            // float to 8-bit rule and gamma table.
            row.resize(static_cast<std::size_t>(myXres));
            IMB_FillParms toFloat;
            toFloat.setSourceType(myFormat, 0, 0);
            toFloat.setDestType(IMB_FLOAT32, 0, 0);
            p.setSourceType(IMB_FLOAT32, 0, 0);
            for (int64 y = 0; y < myYres; ++y)
            {
                fillRows(toFloat, srcAt(y), step, row.data(), 1, myXres, 1);
                for (float &v : row)
                    v = (v - black) * scale;
                fillRows(p, row.data(), 1, dstAt(y), step, myXres, 1);
            }
            continue;
        }

        // Dithered: fractions through IMB_Fill, gamma, then the method.
        row.resize(static_cast<std::size_t>(myXres));
        p.setDestType(IMB_FLOAT32, 0, 0);
        p.myGamma = 1.0f;
        const float invGamma = 1.0f / std::max(gamma, 1e-6f);
        Ditherer ditherer(method, myXres);
        for (int64 y = 0; y < myYres; ++y)
        {
            fillRows(p, srcAt(y), step, row.data(), 1, myXres, 1);
            for (float &v : row)
            {
                if (rescale)
                    v = (v - black) * scale;
                if (gamma != 1.0f && v > 0.0f)
                    v = std::pow(v, invGamma);
            }
            ditherer.row(row.data(), y, dstAt(y), step);
        }
    }
    dst.setDataWritten(true);
    return true;
}
