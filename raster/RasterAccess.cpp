// IMB_Raster pixel access: addresses, single values, rows, columns,
// rectangles, flips and fills. Plain address arithmetic and block copies; the
// only conversions are the fixed scalings between stored samples and floats,
// one rule per format in SampleRule below.
#include <IMB/IMB_Raster.h>
#include <IMB/platform/half16.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <vector>

namespace
{
// ---------------------------------------------------------------- layout

int64 bytesPerComponent(IMB_DataFormat format)
{
    uint32 f = static_cast<uint32>(format);
    return f < 6 ? imbDefinesDepth[f] : 0;
}

// Components per pixel step of a scanline.
int64 stepComponents(IMB_Packing packing)
{
    switch (packing)
    {
    case PACK_DUAL:
    case PACK_RGB: return 3;
    case PACK_RGBA: return 4;
    case PACK_UV: return 2;
    default: return 1;
    }
}

bool isPlanePacking(IMB_Packing packing)
{
    return packing == PACK_SINGLE || packing == PACK_DUAL_NI || packing == PACK_RGB_NI || packing == PACK_RGBA_NI;
}

// Planes of a plane packing; 1 for every other packing.
int64 planeCount(IMB_Packing packing)
{
    switch (packing)
    {
    case PACK_DUAL_NI: return 2;
    case PACK_RGB_NI: return 3;
    case PACK_RGBA_NI: return 4;
    default: return 1;
    }
}

// Values that getPixelValue and setPixelValue exchange. PACK_DUAL exposes two
// of its three stored components.
int valueCount(IMB_Packing packing)
{
    switch (packing)
    {
    case PACK_SINGLE: return 1;
    case PACK_DUAL:
    case PACK_DUAL_NI:
    case PACK_UV: return 2;
    case PACK_RGB:
    case PACK_RGB_NI: return 3;
    case PACK_RGBA:
    case PACK_RGBA_NI: return 4;
    default: return 0;
    }
}

// The table entries for a packing, 0 where the tables have no row.
int64 tablePDepth(IMB_Packing packing)
{
    uint32 p = static_cast<uint32>(packing);
    return p < 8 ? imbDefinesPDepth[p] : 0;
}
int64 tablePComp(IMB_Packing packing)
{
    uint32 p = static_cast<uint32>(packing);
    return p < 8 ? imbDefinesPComp[p] : 0;
}

// ---------------------------------------------------------------- samples

// Truncation toward zero to 64 bits as the x86 conversion instruction does it:
// NaN, infinities and values outside the 64-bit range give 0x8000000000000000,
// whose low 32 bits are zero. Written out so that it is defined behaviour.
int64 truncateToInt64(double d)
{
    if (!(std::fabs(d) < 9223372036854775808.0))
        return INT64_MIN;
    return static_cast<int64>(d);
}

// half16 store rule shared by setPixelValue and clearNormal: zero of either
// sign stores 0, everything else the half16 conversion.
uint16 toHalfBits(float f)
{
    return f == 0.0f ? 0 : half16::fromFloat(f);
}

// One rule per format: the stored sample type and its conversions to and from
// float.
template <IMB_DataFormat F> struct SampleRule;

template <> struct SampleRule<IMB_INT8>
{
    using Stored = uint8;
    static float toFloat(Stored v) { return static_cast<float>(v) * (1.0f / 255.0f); }
    // Truncated, not rounded or clamped; only the low byte is kept (1.5 stores
    // 126). Deliberate: stored files and callers rely on these exact values.
    static Stored fromFloat(float f) { return static_cast<Stored>(truncateToInt64(f * 255.0)); }
};

template <> struct SampleRule<IMB_INT16>
{
    using Stored = uint16;
    static float toFloat(Stored v) { return static_cast<float>(v) * (1.0f / 65535.0f); }
    static Stored fromFloat(float f) { return static_cast<Stored>(truncateToInt64(f * 65535.0)); }
};

template <> struct SampleRule<IMB_INT32>
{
    using Stored = uint32;
    static float toFloat(Stored v) { return static_cast<float>(static_cast<double>(v) / 4294967295.0); }
    // Scaled by 2^32, not 2^32 - 1, so 1.0 stores 0 and 0.5 stores 2^31.
    // Deliberate: callers rely on it.
    static Stored fromFloat(float f) { return static_cast<Stored>(truncateToInt64(f * 4294967296.0)); }
};

template <> struct SampleRule<IMB_FLOAT16>
{
    using Stored = uint16;
    static float toFloat(Stored v) { return half16::toFloat(v); }
    static Stored fromFloat(float f) { return toHalfBits(f); }
};

template <> struct SampleRule<IMB_FLOAT32>
{
    using Stored = float;
    static float toFloat(Stored v) { return v; }
    static Stored fromFloat(float f) { return f; }
};

template <IMB_DataFormat F> typename SampleRule<F>::Stored loadSample(const void *p)
{
    typename SampleRule<F>::Stored v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <IMB_DataFormat F> void storeSample(void *p, typename SampleRule<F>::Stored v)
{
    std::memcpy(p, &v, sizeof v);
}

// Reads n values; `planeStep` is 0 for consecutive components, else the
// distance between planes.
template <IMB_DataFormat F> void readValues(const char *p, int n, int64 planeStep, float *out)
{
    const int64 step = planeStep ? planeStep : static_cast<int64>(sizeof(typename SampleRule<F>::Stored));
    for (int i = 0; i < n; ++i)
        out[i] = SampleRule<F>::toFloat(loadSample<F>(p + i * step));
}

template <IMB_DataFormat F> void writeValues(char *p, int n, const float *in)
{
    using Stored = typename SampleRule<F>::Stored;
    for (int i = 0; i < n; ++i)
        storeSample<F>(p + i * static_cast<int64>(sizeof(Stored)), SampleRule<F>::fromFloat(in[i]));
}

// Copies bit patterns (float32 and unknown formats).
void copyRawValues(void *dst, const void *src, int n, int64 bytes, int64 dstStep, int64 srcStep)
{
    for (int i = 0; i < n; ++i)
        std::memcpy(static_cast<char *>(dst) + i * dstStep, static_cast<const char *>(src) + i * srcStep,
                    static_cast<std::size_t>(bytes));
}

// Fills `count` samples of `bytes` bytes each with the sample at `value`.
void fillSamples(char *dst, int64 count, const void *value, int64 bytes)
{
    switch (bytes)
    {
    case 1: std::memset(dst, *static_cast<const uint8 *>(value), static_cast<std::size_t>(count)); return;
    case 2:
    {
        uint16 v;
        std::memcpy(&v, value, 2);
        std::fill_n(reinterpret_cast<uint16 *>(dst), count, v);
        return;
    }
    case 4:
    {
        uint32 v;
        std::memcpy(&v, value, 4);
        std::fill_n(reinterpret_cast<uint32 *>(dst), count, v);
        return;
    }
    default:
        for (int64 i = 0; i < count; ++i)
            std::memcpy(dst + i * bytes, value, static_cast<std::size_t>(bytes));
    }
}
} // namespace

// ---------------------------------------------------------------- addresses

namespace
{
// The address rule of getPixel, inline for the per-pixel paths below.
inline const char *pixelAddress(const char *base, IMB_Packing packing, IMB_DataFormat format, int64 yres,
                                int64 stride, int64 x, int64 y, int64 comp)
{
    const int64 b = bytesPerComponent(format);
    if (packing == PACK_DUAL_NI || packing == PACK_RGB_NI || packing == PACK_RGBA_NI)
        return base + (yres * comp + y) * stride + b * x;
    return base + (stepComponents(packing) * x + comp) * b + y * stride;
}

// Integer reads ask for the processor capabilities on entry; once they are
// known, skip the call.
std::atomic<bool> theCapsKnown{false};
inline void ensureProcCaps()
{
    if (!theCapsKnown.load(std::memory_order_relaxed))
    {
        IMBdetermineProcCaps();
        theCapsKnown.store(true, std::memory_order_relaxed);
    }
}
} // namespace

const void *IMB_Raster::getPixel(int64 x, int64 y, int64 comp) const
{
    if (x < 0 || y < 0 || x >= myXres || y >= myYres || !myRaster)
        return nullptr;
    return pixelAddress(static_cast<const char *>(getPixels()), myPacking, myFormat, myYres, myStride, x, y, comp);
}

void *IMB_Raster::getPixel(int64 x, int64 y, int64 comp)
{
    return const_cast<void *>(static_cast<const IMB_Raster *>(this)->getPixel(x, y, comp));
}

// ---------------------------------------------------------------- values

void IMB_Raster::getPixelValue(int64 x, int64 y, float *out) const
{
    const int n = valueCount(myPacking);
    if (x < 0 || y < 0 || x >= myXres || y >= myYres || !myRaster || n == 0)
        return;
    const char *p =
        pixelAddress(static_cast<const char *>(getPixels()), myPacking, myFormat, myYres, myStride, x, y, 0);
    // Plane packings read value i from plane i; the others read consecutive
    // components.
    const int64 planeStep = (isPlanePacking(myPacking) && n > 1) ? myYres * myStride : 0;
    switch (myFormat)
    {
    case IMB_INT8: ensureProcCaps(); readValues<IMB_INT8>(p, n, planeStep, out); break;
    case IMB_INT16: ensureProcCaps(); readValues<IMB_INT16>(p, n, planeStep, out); break;
    case IMB_INT32: ensureProcCaps(); readValues<IMB_INT32>(p, n, planeStep, out); break;
    case IMB_FLOAT16: readValues<IMB_FLOAT16>(p, n, planeStep, out); break;
    default: copyRawValues(out, p, n, 4, 4, planeStep ? planeStep : 4); break;
    }
}

void IMB_Raster::setPixelValue(int64 x, int64 y, const float *in)
{
    const int n = valueCount(myPacking);
    if (x < 0 || y < 0 || x >= myXres || y >= myYres || !myRaster || n == 0)
        return;
    char *p = const_cast<char *>(
        pixelAddress(static_cast<const char *>(getPixels()), myPacking, myFormat, myYres, myStride, x, y, 0));
    // Always consecutive components from component 0, whatever the packing:
    // on plane packings value i lands in plane 0 at pixel x + i, not in plane
    // i. Deliberate asymmetry with getPixelValue; callers rely on it.
    switch (myFormat)
    {
    case IMB_INT8: writeValues<IMB_INT8>(p, n, in); break;
    case IMB_INT16: writeValues<IMB_INT16>(p, n, in); break;
    case IMB_INT32: writeValues<IMB_INT32>(p, n, in); break;
    case IMB_FLOAT16: writeValues<IMB_FLOAT16>(p, n, in); break;
    default: copyRawValues(p, in, n, 4, 4, 4); break;
    }
}

// ---------------------------------------------------------------- rows, columns

void IMB_Raster::readFromRow(int64 y, void *dst) const
{
    const int64 lineBytes = bytesPerComponent(myFormat) * tablePDepth(myPacking) * myXres;
    if (lineBytes < 1)
        return;
    char *out = static_cast<char *>(dst);
    if (isInterleaved())
    {
        if (const void *row = getPixel(0, y, 0))
            std::memcpy(out, row, static_cast<std::size_t>(lineBytes));
        return;
    }
    for (int64 k = 0, planes = tablePComp(myPacking); k < planes; ++k, out += lineBytes)
        if (const void *row = getPixel(0, y, k))
            std::memcpy(out, row, static_cast<std::size_t>(lineBytes));
}

void IMB_Raster::writeToRow(int64 y, const void *src)
{
    const int64 lineBytes = bytesPerComponent(myFormat) * tablePDepth(myPacking) * myXres;
    if (lineBytes < 1)
        return;
    const char *in = static_cast<const char *>(src);
    if (isInterleaved())
    {
        if (void *row = getPixel(0, y, 0))
            std::memcpy(row, in, static_cast<std::size_t>(lineBytes));
        return;
    }
    for (int64 k = 0, planes = tablePComp(myPacking); k < planes; ++k, in += lineBytes)
        if (void *row = getPixel(0, y, k))
            std::memcpy(row, in, static_cast<std::size_t>(lineBytes));
}

void IMB_Raster::writeToColumn(int64 x, const void *src)
{
    const int64 s = bytesPerComponent(myFormat) * tablePDepth(myPacking);
    if (s < 1)
        return;
    const char *in = static_cast<const char *>(src);
    if (isInterleaved())
    {
        for (int64 y = 0; y < myYres; ++y, in += s)
            if (void *p = getPixel(x, y, 0))
                std::memcpy(p, in, static_cast<std::size_t>(s));
        return;
    }
    for (int64 k = 0, planes = tablePComp(myPacking); k < planes; ++k)
        for (int64 y = 0; y < myYres; ++y)
        {
            if (void *p = getPixel(x, y, k))
                std::memcpy(p, in, static_cast<std::size_t>(s));
            // 8-bit samples advance through the buffer; wider samples do not,
            // so every sample of the column gets the buffer's first sample.
            // Deliberate: callers rely on it to fill a column with one value.
            if (s == 1)
                ++in;
        }
}

// ---------------------------------------------------------------- rectangles

void IMB_Raster::extract(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2)
{
    if (&src == this)
    {
        // Reshaping would free the pixels being read: work from a copy.
        IMB_Raster copyOfSrc(src);
        extract(copyOfSrc, x1, y1, x2, y2);
        return;
    }
    const int64 w = x2 - x1 + 1;
    const int64 h = y2 - y1 + 1;
    if (w != myXres || h != myYres)
        setRes(w, h);
    if (myPacking != src.myPacking || myFormat != src.myFormat)
    {
        freeRaster();
        myPacking = src.myPacking;
        myFormat = src.myFormat;
    }
    myBlackPoint = src.myBlackPoint;
    myWhitePoint = src.myWhitePoint;
    myColorSpace = src.myColorSpace;
    myColorSpaceGamma = src.myColorSpaceGamma;

    int64 columns = w;
    if (x1 < 0)
        columns -= -x1;
    if (x2 >= src.myXres)
        columns -= x2 - src.myXres + 1;
    const int64 lastRow = y2 >= src.myYres ? src.myYres - 1 : y2;
    const bool clipped = x1 < 0 || y1 < 0 || x2 >= src.myXres || y2 >= src.myYres;

    if (!myRaster)
        allocRaster(1);
    if (!myRaster)
        return;

    const int64 planes = planeCount(myPacking);
    if (clipped)
        for (int64 k = 0; k < planes; ++k)
            std::memset(getPixel(0, 0, k), 0, static_cast<std::size_t>(myStride * myYres));

    const int64 rowBytes = columns * (myStride / myXres);
    if (rowBytes >= 1 && src.myRaster)
        for (int64 k = 0; k < planes; ++k)
            for (int64 sy = std::max<int64>(y1, 0); sy <= lastRow; ++sy)
                std::memcpy(getPixel(std::max<int64>(-x1, 0), sy - y1, k),
                            src.getPixel(std::max<int64>(x1, 0), sy, k), static_cast<std::size_t>(rowBytes));

    myDataWindow = src.myDataWindow;
    myDataWritten = true;
}

void IMB_Raster::insert(const IMB_Raster &src, int64 x, int64 y)
{
    if (src.myPacking != myPacking || src.myFormat != myFormat)
        return;
    myColorSpace = src.myColorSpace;
    myColorSpaceGamma = src.myColorSpaceGamma;
    if (x >= myXres || y >= myYres || x + src.myXres - 1 < 0 || y + src.myYres < 1)
        return;
    if (!myRaster || !src.myRaster || src.myXres <= 0)
        return;
    if (&src == this)
    {
        // Rows would overlap: paste from a copy.
        IMB_Raster copyOfSrc(src);
        insert(copyOfSrc, x, y);
        return;
    }

    int64 columns = src.myXres - std::max<int64>(-x, 0);
    const int64 overhang = x + src.myXres - myXres;
    if (overhang > 0)
        columns -= overhang;
    const int64 rowBytes = columns * (src.myStride / src.myXres);
    if (rowBytes < 1)
        return;

    const int64 planes = planeCount(myPacking);
    const int64 lastRow = std::min<int64>(y + src.myYres, myYres) - 1;
    for (int64 k = 0; k < planes; ++k)
        for (int64 dy = std::max<int64>(y, 0); dy <= lastRow; ++dy)
            std::memcpy(getPixel(std::max<int64>(x, 0), dy, k), src.getPixel(std::max<int64>(-x, 0), dy - y, k),
                        static_cast<std::size_t>(rowBytes));
}

// ---------------------------------------------------------------- flip, fill

void IMB_Raster::flipVertical()
{
    const int64 lineBytes = bytesPerComponent(myFormat) * tablePDepth(myPacking) * myXres;
    if (!myRaster || lineBytes < 1)
        return;
    // Rows are addressed as component 0, so plane packings flip plane 0 only
    // and leave the other planes as they were. Deliberate: callers rely on it.
    std::vector<char> temp(static_cast<std::size_t>(lineBytes), 0);
    for (int64 y = 0; y < myYres / 2; ++y)
    {
        char *a = static_cast<char *>(getPixel(0, y, 0));
        char *b = static_cast<char *>(getPixel(0, myYres - 1 - y, 0));
        std::memcpy(temp.data(), a, temp.size());
        std::memcpy(a, b, temp.size());
        std::memcpy(b, temp.data(), temp.size());
    }
}

void IMB_Raster::clear(const void *pixel)
{
    if (!myRaster || mySize < 1)
        return;
    char *base = static_cast<char *>(getPixels());
    if (!pixel)
    {
        std::memset(base, 0, static_cast<std::size_t>(mySize));
        return;
    }
    const int64 b = bytesPerComponent(myFormat);
    if (b < 1)
        return;
    if (isInterleaved())
    {
        int64 k = 4;
        if (myPacking == PACK_DUAL || myPacking == PACK_RGB)
            k = 3;
        else if (myPacking == PACK_UV)
            k = 2;
        const int64 pixelBytes = b * k;
        for (int64 off = 0; off < mySize; off += pixelBytes)
            std::memcpy(base + off, pixel, static_cast<std::size_t>(std::min(pixelBytes, mySize - off)));
        return;
    }
    const int64 samples = std::min(myXres * myYres, myStride * myYres / b);
    const char *value = static_cast<const char *>(pixel);
    for (int64 k = 0, planes = planeCount(myPacking); k < planes; ++k)
    {
        char *plane = static_cast<char *>(getPixel(0, 0, k));
        // Except for float32, the first sample of plane 0 keeps its earlier
        // value. Deliberate: callers rely on it.
        const int64 first = (k == 0 && myFormat != IMB_FLOAT32) ? 1 : 0;
        if (samples > first)
            fillSamples(plane + first * b, samples - first, value + k * b, b);
    }
}

void IMB_Raster::clearNormal(const float *rgba, unsigned black, unsigned white)
{
    if (black == 0 && white == 0)
    {
        uint32 f = static_cast<uint32>(myFormat);
        white = f < 6 ? imbDefinesWhite[f] : 0;
    }
    switch (myFormat)
    {
    case IMB_FLOAT32: clear(rgba); return;
    case IMB_FLOAT16:
    {
        uint16 h[4];
        for (int i = 0; i < 4; ++i)
            h[i] = toHalfBits(rgba[i]);
        clear(h);
        return;
    }
    case IMB_INT8:
    case IMB_INT16:
    case IMB_INT32:
    {
        // trunc(f * float(white - black)) + black, in 32-bit float and kept
        // to the format's width (so 1.0 on the full int32 range wraps to 0).
        const float range = static_cast<float>(white - black);
        uint32 v[4];
        for (int i = 0; i < 4; ++i)
            v[i] = static_cast<uint32>(truncateToInt64(rgba[i] * range) + black);
        if (myFormat == IMB_INT8)
        {
            uint8 p[4];
            for (int i = 0; i < 4; ++i)
                p[i] = static_cast<uint8>(v[i]);
            clear(p);
        }
        else if (myFormat == IMB_INT16)
        {
            uint16 p[4];
            for (int i = 0; i < 4; ++i)
                p[i] = static_cast<uint16>(v[i]);
            clear(p);
        }
        else
            clear(v);
        return;
    }
    default: return;
    }
}
