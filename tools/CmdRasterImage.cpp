// imbtool range, convert8, dither and streak: the raster's value range,
// reduction to 8 bits, dithering and edge streaking on real images.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{
const std::map<std::string, IMB_Dither> theDithers = {{"none", IMB_DITHER_NONE},
                                                      {"bayer4", IMB_DITHER_BAYER4},
                                                      {"bayer8", IMB_DITHER_BAYER8},
                                                      {"floyd-steinberg", IMB_DITHER_FLOYD_STEINBERG}};

IMB_Dither ditherByName(const std::string &name)
{
    const auto it = theDithers.find(name);
    if (it == theDithers.end())
        throw imbtool::Failure("unknown dither method \"" + name + "\" (none, bayer4, bayer8, floyd-steinberg)");
    return it->second;
}

void printRange(const IMB_Raster &r)
{
    float lo[4], hi[4];
    if (!r.getRange(lo, hi))
        throw imbtool::Failure("the image has no pixels inside its data window");
    const char *names[] = {"R", "G", "B", "A"};
    const int n = r.getPacking() == PACK_DUAL ? 2 : r.getNumChannels();
    for (int c = 0; c < n && c < 4; ++c)
        fmt::print("  {}  min {:<12.6g} max {:.6g}\n", n == 1 ? "Y" : names[c], lo[c], hi[c]);
}

struct Convert8Options
{
    std::string in, out, dither = "none";
    float black = 0.0f, white = 0.0f, gamma = 1.0f;
};

void runConvert8(const Convert8Options &o)
{
    IMB_Raster src, out;
    imbtool::readImage(o.in, src);
    const IMB_Dither method = ditherByName(o.dither);
    if (!src.convert8Bit(out, o.black, o.white, o.gamma, method))
        throw imbtool::Failure("cannot reduce " + o.in + " to 8 bits");
    fmt::print("{}: {} x {} {} {} -> int8{}\n", o.in, src.getXres(), src.getYres(), IMBpacking(src.getPacking()),
               IMBdataFormat(src.getFormat()), method == IMB_DITHER_NONE ? "" : ", dithered (" + o.dither + ")");
    printRange(out);
    imbtool::writeImage(o.out, out);
    fmt::print("wrote {}\n", o.out);
}

void setupRange(CLI::App &app)
{
    auto in = std::make_shared<std::string>();
    CLI::App *cmd = app.add_subcommand(
        "range", "Print each channel's minimum and maximum over the data window, NaN skipped (IMB_Raster::getRange)");
    cmd->add_option("input", *in, "Image to read")->required();
    cmd->callback([in] {
        IMB_Raster r;
        imbtool::readImage(*in, r);
        fmt::print("{}: {} x {} {} {}\n", *in, r.getXres(), r.getYres(), IMBpacking(r.getPacking()),
                   IMBdataFormat(r.getFormat()));
        printRange(r);
    });
}

void addConvertOptions(CLI::App *cmd, Convert8Options &o, bool withPoints)
{
    cmd->add_option("input", o.in, "Image to read")->required();
    cmd->add_option("output", o.out, "8-bit image to write (PNG, TIFF, ...)")->required();
    if (withPoints)
    {
        cmd->add_option("--black", o.black,
                        "Black point in the input's own units: a code for integer images, a value for float ones "
                        "(with --white 0 as well: the full range)")
            ->capture_default_str();
        cmd->add_option("--white", o.white, "White point, in the same units")->capture_default_str();
        cmd->add_option("--gamma", o.gamma, "Raise the result to 1/gamma")->capture_default_str();
    }
    cmd->add_option("--dither", o.dither, "none, bayer4, bayer8 or floyd-steinberg")->capture_default_str();
}

void setupConvert8(CLI::App &app)
{
    auto o = std::make_shared<Convert8Options>();
    CLI::App *cmd = app.add_subcommand(
        "convert8", "Reduce an image to 8 bits with black and white points, gamma and optional dithering "
                    "(IMB_Raster::convert8Bit)");
    addConvertOptions(cmd, *o, true);
    cmd->callback([o] { runConvert8(*o); });
}

void setupDither(CLI::App &app)
{
    auto o = std::make_shared<Convert8Options>();
    o->dither = "floyd-steinberg";
    CLI::App *cmd = app.add_subcommand("dither", "Reduce an image to 8 bits over its full range, dithered "
                                                 "(IMB_Raster::dither)");
    addConvertOptions(cmd, *o, false);
    cmd->callback([o] { runConvert8(*o); });
}

void setupStreak(CLI::App &app)
{
    struct Options
    {
        std::string in, out;
        std::vector<int> area;
    };
    auto o = std::make_shared<Options>();
    CLI::App *cmd = app.add_subcommand(
        "streak", "Fill everything outside an area by repeating its edge pixels (IMB_Raster::streakEdges)");
    cmd->add_option("input", o->in, "Image to read")->required();
    cmd->add_option("output", o->out, "Image to write")->required();
    cmd->add_option("--area", o->area, "The area kept: X Y WIDTH HEIGHT (pixels, row 0 at the top)")
        ->expected(4)
        ->required();
    cmd->callback([o] {
        IMB_Raster r;
        imbtool::readImage(o->in, r);
        const BAS_Rect<BAS_DimRectImpl> area(o->area[0], o->area[1], o->area[2], o->area[3]);
        if (!r.streakEdges(area))
            throw imbtool::Failure(fmt::format("the area {} {} {}x{} does not overlap the {} x {} image", area.x(),
                                               area.y(), area.w(), area.h(), r.getXres(), r.getYres()));
        fmt::print("{}: kept {} {} {}x{}, streaked the rest of {} x {}\n", o->in, area.x(), area.y(), area.w(),
                   area.h(), r.getXres(), r.getYres());
        imbtool::writeImage(o->out, r);
        fmt::print("wrote {}\n", o->out);
    });
}
} // namespace

IMBTOOL_COMMAND("range", setupRange);
IMBTOOL_COMMAND("convert8", setupConvert8);
IMBTOOL_COMMAND("dither", setupDither);
IMBTOOL_COMMAND("streak", setupStreak);
