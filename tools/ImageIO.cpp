#include "ImageIO.h"

#include "Command.h"

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <cstring>
#include <vector>

namespace imbtool
{
namespace
{
IMB_DataFormat formatForType(OIIO::TypeDesc t)
{
    if (t == OIIO::TypeDesc::UINT8)
        return IMB_INT8;
    if (t == OIIO::TypeDesc::UINT16)
        return IMB_INT16;
    if (t == OIIO::TypeDesc::UINT32)
        return IMB_INT32;
    if (t == OIIO::TypeDesc::HALF)
        return IMB_FLOAT16;
    return IMB_FLOAT32;
}

OIIO::TypeDesc typeForFormat(IMB_DataFormat f)
{
    switch (f)
    {
    case IMB_INT8: return OIIO::TypeDesc::UINT8;
    case IMB_INT16: return OIIO::TypeDesc::UINT16;
    case IMB_INT32: return OIIO::TypeDesc::UINT32;
    case IMB_FLOAT16: return OIIO::TypeDesc::HALF;
    case IMB_FLOAT32: return OIIO::TypeDesc::FLOAT;
    default: return OIIO::TypeDesc::UNKNOWN;
    }
}

IMB_Packing packingForChannels(int channels)
{
    switch (channels)
    {
    case 1: return PACK_SINGLE;
    case 2: return PACK_UV;
    case 3: return PACK_RGB;
    default: return PACK_RGBA;
    }
}
} // namespace

void readImage(const std::string &path, IMB_Raster &out)
{
    // Opening through an existing reader fills in the file's description.
    OIIO::ImageSpec imageSpec;
    auto in = OIIO::ImageInput::create(path);
    if (!in || !in->open(path, imageSpec))
        throw Failure("cannot read image \"" + path + "\": " + (in ? in->geterror() : OIIO::geterror()));
    if (imageSpec.width < 1 || imageSpec.height < 1 || imageSpec.nchannels < 1)
        throw Failure("image \"" + path + "\" has no pixels");
    if (imageSpec.depth > 1)
        throw Failure("image \"" + path + "\" is a volume; only flat images are read");

    const int channels = imageSpec.nchannels < 4 ? imageSpec.nchannels : 4;
    const IMB_DataFormat format = formatForType(imageSpec.format);
    out.reset(1);
    out.setPacking(packingForChannels(channels));
    out.setFormat(format);
    out.setRes(imageSpec.width, imageSpec.height);
    out.init();
    if (!out.isValid())
        throw Failure("out of memory for image \"" + path + "\"");

    if (!in->read_image(0, 0, 0, channels, typeForFormat(format), out.getPixels()))
        throw Failure("cannot read pixels of \"" + path + "\": " + in->geterror());
    out.setDataWritten(true);

    std::string cs = imageSpec.get_string_attribute("oiio:ColorSpace");
    if (OIIO::Strutil::iequals(cs, "sRGB"))
        out.setColorSpace(IMB_CS_SRGB);
    else if (OIIO::Strutil::iequals(cs, "Linear") || OIIO::Strutil::iequals(cs, "lin_srgb"))
        out.setColorSpace(IMB_CS_LINEAR);
}

void writeImage(const std::string &path, const IMB_Raster &raster)
{
    const OIIO::TypeDesc type = typeForFormat(raster.getFormat());
    if (!raster.isValid() || type == OIIO::TypeDesc::UNKNOWN || raster.getXres() < 1 || raster.getYres() < 1)
        throw Failure("cannot write \"" + path + "\": the raster has no pixels");

    const IMB_Packing packing = raster.getPacking();
    int channels = 0;
    switch (packing)
    {
    case PACK_SINGLE: channels = 1; break;
    case PACK_DUAL:
    case PACK_DUAL_NI:
    case PACK_UV: channels = 2; break;
    case PACK_RGB:
    case PACK_RGB_NI: channels = 3; break;
    case PACK_RGBA:
    case PACK_RGBA_NI: channels = 4; break;
    default: throw Failure("cannot write \"" + path + "\": the raster's packing is unknown");
    }

    auto out = OIIO::ImageOutput::create(path);
    if (!out)
        throw Failure("cannot write \"" + path + "\": " + OIIO::geterror());
    OIIO::ImageSpec imageSpec(static_cast<int>(raster.getXres()), static_cast<int>(raster.getYres()), channels, type);
    if (raster.getColorSpace() == IMB_CS_SRGB)
        imageSpec.attribute("oiio:ColorSpace", "sRGB");
    else if (raster.getColorSpace() == IMB_CS_LINEAR)
        imageSpec.attribute("oiio:ColorSpace", "Linear");
    if (!out->open(path, imageSpec))
        throw Failure("cannot write \"" + path + "\": " + out->geterror());

    const int64 b = imbDefinesDepth[raster.getFormat()];
    const int64 xres = raster.getXres();
    const int64 yres = raster.getYres();
    bool ok;
    if (raster.isInterleaved() || packing == PACK_SINGLE)
    {
        // PACK_DUAL steps over its unused third component.
        const int64 pixelBytes = b * imbDefinesPDepth[packing];
        ok = out->write_image(type, raster.getPixels(), pixelBytes, raster.getStride());
    }
    else
    {
        // Plane packings: interleave the planes into one buffer first.
        std::vector<unsigned char> buf(static_cast<std::size_t>(xres * yres * channels * b));
        for (int64 y = 0; y < yres; ++y)
            for (int c = 0; c < channels; ++c)
            {
                const auto *src = static_cast<const unsigned char *>(raster.getPixel(0, y, c));
                unsigned char *dst = buf.data() + (y * xres * channels + c) * b;
                for (int64 x = 0; x < xres; ++x)
                    std::memcpy(dst + x * channels * b, src + x * b, static_cast<std::size_t>(b));
            }
        ok = out->write_image(type, buf.data());
    }
    if (!ok || !out->close())
        throw Failure("cannot write \"" + path + "\": " + out->geterror());
}
} // namespace imbtool
