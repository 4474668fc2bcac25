// imbtool raster: create a raster, fill it with a ramp through setPixelValue
// and show what reads back.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{
struct RasterOptions
{
    std::string packing = "rgba";
    std::string format = "int8";
    int64 width = 8;
    int64 height = 4;
    std::string save;
};

IMB_Packing packingByName(const std::string &name)
{
    for (int p = 0; p < 8; ++p)
        if (name == IMBpacking(static_cast<IMB_Packing>(p)))
            return static_cast<IMB_Packing>(p);
    throw imbtool::Failure("unknown packing \"" + name +
                           "\" (single, dual, dual_ni, rgb, rgba, rgb_ni, rgba_ni, uv)");
}

IMB_DataFormat formatByName(const std::string &name)
{
    for (int f = 0; f < IMB_MAX_DATA_FORMAT; ++f)
        if (name == IMBdataFormat(static_cast<IMB_DataFormat>(f)))
            return static_cast<IMB_DataFormat>(f);
    throw imbtool::Failure("unknown data format \"" + name + "\" (int8, int16, int32, float32, float16)");
}

// Values per pixel that getPixelValue/setPixelValue exchange.
int valuesPerPixel(IMB_Packing p)
{
    switch (p)
    {
    case PACK_SINGLE: return 1;
    case PACK_DUAL:
    case PACK_DUAL_NI:
    case PACK_UV: return 2;
    case PACK_RGB:
    case PACK_RGB_NI: return 3;
    default: return 4;
    }
}

// The stored bytes of a pixel, in hex: its components in order, one plane
// after another for the plane packings.
std::string storedHex(const IMB_Raster &r, int64 x, int64 y)
{
    const int b = imbDefinesDepth[r.getFormat()];
    const int n = valuesPerPixel(r.getPacking());
    const bool planes = !r.isInterleaved();
    std::string s;
    for (int c = 0; c < n; ++c)
    {
        const auto *p = static_cast<const unsigned char *>(planes ? r.getPixel(x, y, c) : r.getPixel(x, y, 0)) +
                        (planes ? 0 : c * b);
        if (c)
            s += ' ';
        for (int i = 0; i < b; ++i)
            s += fmt::format("{:02x}", p[i]);
    }
    return s;
}

void runRaster(const RasterOptions &o)
{
    const IMB_Packing packing = packingByName(o.packing);
    const IMB_DataFormat format = formatByName(o.format);
    if (o.width < 1 || o.height < 1)
        throw imbtool::Failure("width and height must be at least 1");

    IMB_Raster r(packing, format, o.width, o.height, 1, 1);
    if (!r.isValid())
        throw imbtool::Failure(fmt::format("cannot allocate a {} x {} raster", o.width, o.height));

    fmt::print("raster {} x {}, packing {} ({}), format {} ({})\n", r.getXres(), r.getYres(), IMBpacking(packing),
               static_cast<int>(packing), IMBdataFormat(format), static_cast<int>(format));
    fmt::print("  channels {}, interleaved {}, alpha {}\n", r.getNumChannels(), r.isInterleaved() ? "yes" : "no",
               r.hasAlpha() ? "yes" : "no");
    fmt::print("  stride {} bytes, size {} bytes, one plane {} bytes, memory {} bytes\n", r.getStride(), r.getSize(),
               r.getNonInterleavedSize(), r.getMemoryUsage(false));

    // Ramp: red across, green down, blue the mean, alpha 1.
    const int n = valuesPerPixel(packing);
    for (int64 y = 0; y < r.getYres(); ++y)
        for (int64 x = 0; x < r.getXres(); ++x)
        {
            float u = r.getXres() > 1 ? float(x) / float(r.getXres() - 1) : 0.0f;
            float v = r.getYres() > 1 ? float(y) / float(r.getYres() - 1) : 0.0f;
            float in[4] = {u, v, 0.5f * (u + v), 1.0f};
            if (n == 1)
                in[0] = 0.5f * (u + v);
            r.setPixelValue(x, y, in);
        }
    fmt::print("filled with a ramp (red = x, green = y, blue = mean, alpha = 1) through setPixelValue\n");
    if (!r.isInterleaved() && n > 1)
        fmt::print("  note: on plane packings setPixelValue writes its {} values along plane 0\n", n);

    fmt::print("read back with getPixelValue:\n");
    const int64 xs[] = {0, r.getXres() / 2, r.getXres() - 1};
    const int64 ys[] = {0, r.getYres() / 2, r.getYres() - 1};
    std::set<std::pair<int64, int64>> shown;
    for (int64 y : ys)
        for (int64 x : xs)
        {
            if (!shown.insert({y, x}).second)
                continue;
            float out[4] = {0, 0, 0, 0};
            r.getPixelValue(x, y, out);
            std::string values;
            for (int i = 0; i < n; ++i)
                values += fmt::format("{}{:.6g}", i ? " " : "", out[i]);
            fmt::print("  ({:>4}, {:>4})  [{}]  stored {}\n", x, y, values, storedHex(r, x, y));
        }

    if (!o.save.empty())
    {
        imbtool::writeImage(o.save, r);
        fmt::print("saved to {}\n", o.save);
    }
}

void setupRaster(CLI::App &app)
{
    auto opts = std::make_shared<RasterOptions>();
    CLI::App *cmd = app.add_subcommand("raster", "Create a raster, fill it with a ramp and read pixels back");
    cmd->add_option("-p,--packing", opts->packing, "Packing: single, dual, dual_ni, rgb, rgba, rgb_ni, rgba_ni, uv")
        ->capture_default_str();
    cmd->add_option("-f,--format", opts->format, "Data format: int8, int16, int32, float32, float16")
        ->capture_default_str();
    cmd->add_option("-W,--width", opts->width, "Width in pixels")->capture_default_str();
    cmd->add_option("-H,--height", opts->height, "Height in pixels")->capture_default_str();
    cmd->add_option("-o,--save", opts->save, "Also save the raster as an image file (type from the extension)");
    cmd->callback([opts] { runRaster(*opts); });
}
} // namespace

IMBTOOL_COMMAND("raster", setupRaster);
