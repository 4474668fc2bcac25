// IMB_ImageFile: flat image files through OpenImageIO.
#include <IMB/IMB_ImageIO.h>
#include <IMB/IMB_OCIO.h>

#include "io/IOSupport.h"

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

using imb_io::fail;
using imb_io::reasonOf;

namespace
{
IMB_DataFormat formatOfType(OIIO::TypeDesc t)
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

OIIO::TypeDesc typeOfFormat(IMB_DataFormat f)
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

IMB_Packing packingOf(int channels, bool planar)
{
    switch (channels)
    {
    case 1: return PACK_SINGLE;
    case 2: return planar ? PACK_DUAL_NI : PACK_UV;
    case 3: return planar ? PACK_RGB_NI : PACK_RGB;
    default: return planar ? PACK_RGBA_NI : PACK_RGBA;
    }
}

// Channels a raster exposes (PACK_DUAL shows two of its three components).
int channelsOf(IMB_Packing p)
{
    switch (p)
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

std::string quoted(const std::string &path) { return "\"" + path + "\""; }

// The header attribute that carries the colour space's name in files whose
// formats have no colour-space field of their own.
constexpr const char *kSpaceAttribute = "colorspace";

// The tag (and colour-management name) of a file's colour-space metadata.
void tagFromMetadata(const std::string &space, IMB_Raster &out)
{
    if (space.empty())
        return;
    if (OIIO::Strutil::istarts_with(space, "gamma") && !OIIO::Strutil::iequals(space, "gamma2.2") &&
        !OIIO::Strutil::iequals(space, "gammacorrected2.2"))
    {
        // "GammaG", OpenImageIO's name for a plain power curve.
        char *end = nullptr;
        const double g = std::strtod(space.c_str() + 5, &end);
        if (end && *end == '\0' && g > 0.0)
        {
            out.setColorSpace(IMB_CS_CUSTOM_GAMMA, g);
            return;
        }
    }
    BAS_StringHolder name;
    const IMB_ColorSpace tag = IMB_OCIO::imbImageColorSpace(BAS_StringHolder(space.c_str()), name);
    if (tag == IMB_CS_UNKNOWN)
        return;
    // The configuration's name goes with the tag when it has one.
    if (IMB_OCIO::lookupSpace(name))
        out.setOCIOColorSpace(name);
    if (tag != IMB_CS_OCIO)
        out.setColorSpace(tag);
}

// The colour-space metadata a raster's tag writes; empty for none.
std::string metadataFromTag(const IMB_Raster &r)
{
    const IMB_ColorSpace tag = r.getColorSpace();
    if (tag == IMB_CS_CUSTOM_GAMMA)
        return OIIO::Strutil::fmt::format("Gamma{:g}", r.getColorSpaceGamma());
    const BAS_StringHolder &configured = IMB_OCIO::imbImageColorSpace(tag, r.getColorSpaceName());
    if (!configured.isEmpty())
        return configured.c_str();
    if (tag == IMB_CS_OCIO)
        return r.getColorSpaceName().c_str();
    if (tag == IMB_CS_UNKNOWN)
        return std::string();
    return IMBgetColorSpaceName(tag);
}

bool readFile(const std::string &path, IMB_Raster &out, const IMB_ImageReadOptions &o,
              IMB_ImageWindows *windows)
{
    const std::string what = "cannot read image " + quoted(path) + ": ";
    OIIO::ImageSpec desc, config;
    // Components as stored: no conversion of unassociated alpha (PNG).
    config.attribute("oiio:UnassociatedAlpha", 1);
    std::unique_ptr<OIIO::ImageInput> in = OIIO::ImageInput::create(path);
    if (!in || !in->open(path, desc, config))
        return fail(what + reasonOf(in ? in->geterror() : OIIO::geterror()));
    if ((o.subimage != 0 || o.miplevel != 0) && !in->seek_subimage(o.subimage, o.miplevel, desc))
    {
        // Readers mostly refuse a missing subimage without a word; pass on
        // what a reader did say.
        const std::string said = in->geterror();
        return fail(what + "it has no subimage " + std::to_string(o.subimage) + " at MIP level " +
                    std::to_string(o.miplevel) + (said.empty() ? std::string() : " (" + reasonOf(said) + ")"));
    }
    if (desc.deep)
        return fail(what + "it is a deep image (read it as IMB_DeepImage)");
    if (desc.width < 1 || desc.height < 1 || desc.nchannels < 1)
        return fail(what + "it has no pixels");
    if (desc.depth > 1)
        return fail(what + "it is a volume; only flat images are read");

    const int channels = desc.nchannels < 4 ? desc.nchannels : 4;
    const IMB_DataFormat format = formatOfType(desc.format);
    const IMB_Packing packing = packingOf(channels, o.planar);
    IMB_Raster r(packing, format, desc.width, desc.height);
    if (!r.isValid())
        throw std::bad_alloc();
    const OIIO::TypeDesc type = typeOfFormat(format);
    const int64 bytes = imbDefinesDepth[format];
    bool ok;
    if (r.isInterleaved() || channels == 1)
        ok = in->read_image(o.subimage, o.miplevel, 0, channels, type, r.getPixels());
    else
    {
        // Planes: read the pixels interleaved, then deal the components out.
        std::vector<unsigned char> buf(static_cast<size_t>(desc.width) * desc.height * channels * bytes);
        ok = in->read_image(o.subimage, o.miplevel, 0, channels, type, buf.data());
        for (int c = 0; ok && c < channels; ++c)
        {
            auto *dst = static_cast<unsigned char *>(r.getPixel(0, 0, c));
            const unsigned char *src = buf.data() + c * bytes;
            const int64 n = int64(desc.width) * desc.height;
            for (int64 i = 0; i < n; ++i)
                std::memcpy(dst + i * bytes, src + i * channels * bytes, size_t(bytes));
        }
    }
    if (!ok)
        return fail(what + reasonOf(in->geterror()));
    // The caller's raster takes the block over only now, so a failed read
    // leaves it as it was; no pixel is copied.
    out.reset(1);
    out.setPacking(packing);
    out.setFormat(format);
    out.setRes(desc.width, desc.height);
    out.setRaster(r.steal(), true, true);
    out.setBWPoints(0.0f, 1.0f);
    out.setOCIOParms(BAS_StringHolder(), BAS_StringHolder(), BAS_StringHolder());
    out.setColorSpace(IMB_CS_UNKNOWN, 1.0);
    out.setDataWritten(true);
    // The name this library writes wins over what a reader guessed (the
    // OpenEXR reader says "Linear" of every file).
    const std::string written = desc.get_string_attribute(kSpaceAttribute);
    tagFromMetadata(written.empty() ? std::string(desc.get_string_attribute("oiio:ColorSpace")) : written, out);
    if (windows)
    {
        windows->data.set(desc.x, desc.y, desc.width, desc.height);
        windows->display.set(desc.full_x, desc.full_y, desc.full_width, desc.full_height);
    }
    return true;
}

bool writeFile(const std::string &path, const IMB_Raster &raster, const IMB_ImageWriteOptions &o)
{
    const std::string what = "cannot write image " + quoted(path) + ": ";
    const OIIO::TypeDesc type = typeOfFormat(raster.getFormat());
    const IMB_Packing packing = raster.getPacking();
    const int channels = channelsOf(packing);
    if (!raster.isValid() || type == OIIO::TypeDesc::UNKNOWN || channels == 0 || raster.getXres() < 1 ||
        raster.getYres() < 1)
        return fail(what + "the raster has no pixels, or an unknown format or packing");
    const int64 xres = raster.getXres(), yres = raster.getYres();
    if (o.windows && (o.windows->data.w() != xres || o.windows->data.h() != yres))
        return fail(what + "the data window is not the raster's size");

    std::unique_ptr<OIIO::ImageOutput> out = OIIO::ImageOutput::create(path);
    if (!out)
        return fail(what + reasonOf(OIIO::geterror()));
    OIIO::ImageSpec desc(int(xres), int(yres), channels, type);
    static const char *const names[4][4] = {{"Y"}, {"R", "G"}, {"R", "G", "B"}, {"R", "G", "B", "A"}};
    desc.channelnames.assign(names[channels - 1], names[channels - 1] + channels);
    desc.alpha_channel = channels == 4 ? 3 : -1;
    if (o.windows)
    {
        desc.x = o.windows->data.x();
        desc.y = o.windows->data.y();
        desc.full_x = o.windows->display.x();
        desc.full_y = o.windows->display.y();
        desc.full_width = o.windows->display.w();
        desc.full_height = o.windows->display.h();
    }
    const std::string space = metadataFromTag(raster);
    if (!space.empty())
    {
        desc.attribute("oiio:ColorSpace", space); // the formats' own forms (PNG sRGB and gAMA, ...)
        desc.attribute(kSpaceAttribute, space);   // kept as text where the format has room (OpenEXR, PNG)
    }
    if (o.compression && *o.compression)
        desc.attribute("compression", o.compression);
    // The components go out as they are, alpha included (no division by
    // alpha for files that store unassociated alpha).
    desc.attribute("oiio:UnassociatedAlpha", 1);

    imb_io::TempFile temp(path);
    if (!out->open(temp.name(), desc))
        return fail(what + reasonOf(out->geterror()));
    const int64 b = imbDefinesDepth[raster.getFormat()];
    bool ok;
    if (raster.isInterleaved() || packing == PACK_SINGLE)
    {
        // PACK_DUAL steps over its unused third component.
        ok = out->write_image(type, raster.getPixels(), b * imbDefinesPDepth[packing], raster.getStride());
    }
    else
    {
        std::vector<unsigned char> buf(static_cast<size_t>(xres * yres * channels * b));
        for (int c = 0; c < channels; ++c)
        {
            const auto *src = static_cast<const unsigned char *>(raster.getPixel(0, 0, c));
            for (int64 i = 0; i < xres * yres; ++i)
                std::memcpy(buf.data() + (i * channels + c) * b, src + i * b, size_t(b));
        }
        ok = out->write_image(type, buf.data());
    }
    if (!ok)
        return fail(what + reasonOf(out->geterror()));
    if (!out->close())
        return fail(what + reasonOf(out->geterror()));
    return temp.commit();
}
} // namespace

bool IMB_ImageFile::read(const char *path, IMB_Raster &out, const IMB_ImageReadOptions &options, IMB_ImageWindows *windows)
{
    const std::string p = path ? path : "";
    try
    {
        return readFile(p, out, options, windows);
    }
    catch (const std::bad_alloc &)
    {
        throw;
    }
    catch (const std::exception &e)
    {
        return fail("cannot read image " + quoted(p) + ": " + e.what());
    }
}

bool IMB_ImageFile::write(const char *path, const IMB_Raster &raster, const IMB_ImageWriteOptions &options)
{
    const std::string p = path ? path : "";
    try
    {
        return writeFile(p, raster, options);
    }
    catch (const std::bad_alloc &)
    {
        throw;
    }
    catch (const std::exception &e)
    {
        return fail("cannot write image " + quoted(p) + ": " + e.what());
    }
}
