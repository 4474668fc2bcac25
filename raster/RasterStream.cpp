// IMB_Raster stream form: save to a std::ostream and load from a
// BAS_IStream, in the binary form or the text form with uuencoded pixels.
//
// Binary form (little-endian, see BAS_IStream.h): int32 xres, int32 yres,
// int32 packing, int32 format, float black, float white, int32 0, then
// imbDefinesPDepth[packing] * yres * xres pixel elements (uint8, uint16 for
// int16 and float16, uint32, float). On plane packings that is the first
// plane only: part of the form, kept.
//
// Text form: "xres yres packingCode formatCode black white 0\n", the pixel
// block (every plane) uuencoded, then "end\n".
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_IStream.h>
#include <IMB/platform/BAS_UUEncode.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>

namespace
{
// File codes of the text form.
const char *packingCode(IMB_Packing p)
{
    switch (p)
    {
    case PACK_SINGLE: return "1";
    case PACK_DUAL: return "2";
    case PACK_DUAL_NI: return "20";
    case PACK_RGB: return "3";
    case PACK_RGBA: return "4";
    case PACK_RGB_NI: return "30";
    case PACK_RGBA_NI: return "40";
    default: return "0";
    }
}

const char *formatCode(IMB_DataFormat f)
{
    switch (f)
    {
    case IMB_INT8: return "8";
    case IMB_INT16: return "16";
    case IMB_FLOAT16: return "17";
    case IMB_INT32: return "320";
    case IMB_FLOAT32: return "321";
    default: return "0";
    }
}

bool packingFromCode(int64 code, IMB_Packing &p)
{
    switch (code)
    {
    case 1: p = PACK_SINGLE; return true;
    case 2: p = PACK_DUAL; return true;
    case 3: p = PACK_RGB; return true;
    case 4: p = PACK_RGBA; return true;
    case 20: p = PACK_DUAL_NI; return true;
    case 30: p = PACK_RGB_NI; return true;
    case 40: p = PACK_RGBA_NI; return true;
    default: return false;
    }
}

bool formatFromCode(int64 code, IMB_DataFormat &f)
{
    switch (code)
    {
    case 8: f = IMB_INT8; return true;
    case 16: f = IMB_INT16; return true;
    case 17: f = IMB_FLOAT16; return true;
    case 320: f = IMB_INT32; return true;
    case 321: f = IMB_FLOAT32; return true;
    default: return false;
    }
}

// Pixel bytes of a shape (all planes), or -1 when the count overflows.
int64 pixelBytes(IMB_Packing p, IMB_DataFormat f, int64 xres, int64 yres, bool firstPlaneOnly)
{
    int64 planes = 1;
    if (!firstPlaneOnly)
        planes = p == PACK_DUAL_NI ? 2 : p == PACK_RGB_NI ? 3 : p == PACK_RGBA_NI ? 4 : 1;
    int64 bytes;
    if (__builtin_mul_overflow(int64(imbDefinesDepth[f]) * imbDefinesPDepth[p], xres, &bytes) ||
        __builtin_mul_overflow(bytes, yres, &bytes) || __builtin_mul_overflow(bytes, planes, &bytes))
        return -1;
    return bytes;
}

// A stream that can tell how much is left must hold at least `bytes` more
// bytes; one that cannot passes (the read then fails when data runs short).
bool mayHold(const BAS_IStream &is, int64 bytes)
{
    const int64 left = is.remaining();
    return left < 0 || bytes <= left;
}

// Parses the next blank-separated integer or float of a header line.
bool nextInt(const char *&p, int64 &v)
{
    char *end;
    errno = 0;
    long long x = std::strtoll(p, &end, 10);
    if (end == p || errno == ERANGE)
        return false;
    v = x;
    p = end;
    return true;
}

bool nextFloat(const char *&p, float &v)
{
    char *end;
    v = std::strtof(p, &end);
    if (end == p)
        return false;
    p = end;
    return true;
}
} // namespace

int IMB_Raster::save(std::ostream &os, int binary) const
{
    const void *pixels = getPixels();
    if (!pixels || static_cast<uint32>(myPacking) > 7 || static_cast<uint32>(myFormat) > 4)
        return 0;
    if (binary)
    {
        const int32 head[4] = {int32(myXres), int32(myYres), int32(myPacking), int32(myFormat)};
        const float points[2] = {myBlackPoint, myWhitePoint};
        const int32 reserved = 0;
        BASwriteBinary(os, head, 4);
        BASwriteBinary(os, points, 2);
        BASwriteBinary(os, &reserved, 1);
        const size_t n = size_t(imbDefinesPDepth[myPacking]) * size_t(myYres) * size_t(myXres);
        switch (myFormat)
        {
        case IMB_INT8: BASwriteBinary(os, static_cast<const uint8 *>(pixels), n); break;
        case IMB_INT16:
        case IMB_FLOAT16: BASwriteBinary(os, static_cast<const uint16 *>(pixels), n); break;
        case IMB_INT32: BASwriteBinary(os, static_cast<const uint32 *>(pixels), n); break;
        case IMB_FLOAT32: BASwriteBinary(os, static_cast<const float *>(pixels), n); break;
        default: break;
        }
        return 1;
    }
    os << myXres << ' ' << myYres << ' ' << packingCode(myPacking) << ' ' << formatCode(myFormat) << ' '
       << myBlackPoint << ' ' << myWhitePoint << " 0\n";
    BAS_IStream pixelStream(pixels, size_t(mySize), true);
    if (!BASuuencode(pixelStream, os, nullptr, 0))
        return 0;
    os << "end\n";
    os.flush();
    return 1;
}

bool IMB_Raster::load(BAS_IStream &is)
{
    IMB_Packing packing;
    IMB_DataFormat format;
    int64 xres, yres;
    float black, white;
    if (is.isBinary())
    {
        int32 v[2];
        if (!is.readBinary(v, 2) || v[0] < 1 || v[1] < 1)
            return false;
        xres = v[0];
        yres = v[1];
        // Packings above 6 are refused, PACK_UV included although it saves.
        int32 p, f;
        if (!is.readBinary(&p, 1) || p < 0 || p > 6)
            return false;
        if (!is.readBinary(&f, 1) || f < 0 || f > 4)
            return false;
        packing = IMB_Packing(p);
        format = IMB_DataFormat(f);
        float points[2];
        int32 reserved;
        if (!is.readBinary(points, 2) || !is.readBinary(&reserved, 1))
            return false;
        black = points[0];
        white = points[1];
    }
    else
    {
        std::string line;
        if (!is.readLine(line, 4096))
            return false;
        const char *p = line.c_str();
        int64 pc, fc, trailing;
        if (!nextInt(p, xres) || !nextInt(p, yres) || !nextInt(p, pc) || !nextInt(p, fc) || !nextFloat(p, black) ||
            !nextFloat(p, white) || !nextInt(p, trailing))
            return false;
        if (!packingFromCode(pc, packing) || !formatFromCode(fc, format))
            return false;
    }

    setFormat(format);
    setPacking(packing);
    setRes(xres, yres);
    setBWPoints(black, white);
    // Refuse a shape whose data the stream cannot hold before allocating it:
    // a short header must not make us allocate gigabytes. The text form
    // needs at least as many stream bytes as pixel bytes (uuencoding grows).
    const int64 needed = pixelBytes(packing, format, xres, yres, is.isBinary());
    if (needed < 0 || !mayHold(is, needed))
        return false;
    if (!allocRaster(1))
        return false;

    void *pixels = getPixels();
    if (!is.isBinary())
    {
        // Exactly the pixel block must be decoded; more is refused without
        // writing past the pixels, less leaves the load failed.
        size_t written = 0;
        return BASuudecode(is, pixels, size_t(mySize), &written) && written == size_t(mySize);
    }
    const size_t n = size_t(imbDefinesPDepth[packing]) * size_t(yres) * size_t(xres);
    switch (format)
    {
    case IMB_INT8: return is.readBinary(static_cast<uint8 *>(pixels), n);
    case IMB_INT16:
    case IMB_FLOAT16: return is.readBinary(static_cast<uint16 *>(pixels), n);
    case IMB_INT32: return is.readBinary(static_cast<uint32 *>(pixels), n);
    case IMB_FLOAT32: return is.readBinary(static_cast<float *>(pixels), n);
    default: return false;
    }
}
