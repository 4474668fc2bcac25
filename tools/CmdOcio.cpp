// imbtool ocio: the colour configuration named by $OCIO: list its contents,
// convert images between colour spaces (directly or through a baked table)
// and bake tables to files.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{
void requireConfig()
{
    if (!IMB_OCIO::configFilePath().isEmpty())
        return;
    // The load's own error, collected by main, follows this line.
    const char *path = std::getenv("OCIO");
    if (path && *path)
        throw imbtool::Failure(std::string("cannot load the colour configuration \"") + path + "\"");
    throw imbtool::Failure("no colour configuration: set OCIO to a configuration file");
}

void printList(const char *title, const BAS_StringArray &items)
{
    fmt::print("{} ({}):\n", title, items.size());
    for (const BAS_StringHolder &s : items)
        fmt::print("  {}\n", s.c_str());
}

const char *orDash(const char *s)
{
    return s && *s ? s : "-";
}

void listWhat(const std::string &what)
{
    requireConfig();
    fmt::print("configuration: {}\n", IMB_OCIO::configFilePath().c_str());
    BAS_StringArray items;
    if (what == "spaces")
    {
        IMB_OCIO::getColorSpaces(items);
        fmt::print("colour spaces ({}):\n", items.size());
        for (const BAS_StringHolder &name : items)
        {
            BAS_Options info;
            IMB_OCIO::getInfo(IMB_OCIO::lookupSpace(name), info);
            BAS_StringHolder tagName;
            const IMB_ColorSpace tag = IMB_OCIO::imbImageColorSpace(name, tagName);
            std::string vars;
            for (double v : info.getOptionV("allocationvars"))
                vars += (vars.empty() ? "" : ", ") + fmt::format("{}", v);
            fmt::print("  {:<34} family {:<10} bitdepth {:<4} allocation {} [{}] tag {}\n", name.c_str(),
                       orDash(info.getOptionS("family").c_str()), info.getOptionS("bitdepth").c_str(),
                       info.getOptionS("allocation").c_str(), vars, IMBgetColorSpaceName(tag));
        }
        fmt::print("well-known: sRGB \"{}\", Rec.709 \"{}\", linear Rec.709 \"{}\", raw \"{}\", files \"{}\"\n",
                   IMB_OCIO::getsRGBColorSpace().c_str(), IMB_OCIO::getRec709ColorSpace().c_str(),
                   IMB_OCIO::getLinearRec709ColorSpace().c_str(), IMB_OCIO::getRawColorSpace().c_str(),
                   IMB_OCIO::getFileDefaultColorSpace().c_str());
    }
    else if (what == "roles")
    {
        IMB_OCIO::getRoles(items);
        fmt::print("roles ({}):\n", items.size());
        for (const BAS_StringHolder &role : items)
            fmt::print("  {:<20} -> {}\n", role.c_str(), orDash(IMB_OCIO::getName(IMB_OCIO::lookupSpace(role))));
    }
    else if (what == "displays")
    {
        IMB_OCIO::getActiveDisplays(items);
        printList("active displays", items);
        fmt::print("default display: {}\n", orDash(IMB_OCIO::getDefaultDisplay()));
        fmt::print("default view of the default display (the default view transform): {}\n",
                   orDash(IMB_OCIO::getDefaultView(nullptr)));
    }
    else if (what == "views")
    {
        BAS_StringArray displays;
        IMB_OCIO::getActiveDisplays(displays);
        for (const BAS_StringHolder &d : displays)
        {
            IMB_OCIO::getViewsForDisplay(d.c_str(), items);
            fmt::print("display {}:\n", d.c_str());
            for (const BAS_StringHolder &v : items)
                fmt::print("  {:<16} colour space {:<24} looks {:<10} view transform {}\n", v.c_str(),
                           orDash(IMB_OCIO::getColorSpaceForDisplayView(d.c_str(), v.c_str())),
                           orDash(IMB_OCIO::getLooksForDisplayView(d.c_str(), v.c_str())),
                           orDash(IMB_OCIO::getTransformNameForDisplayView(d.c_str(), v.c_str())));
        }
        IMB_OCIO::viewingRuleNames(items);
        printList("viewing rules", items);
    }
    else if (what == "looks")
    {
        IMB_OCIO::getLooks(items);
        printList("looks", items);
    }
    else
        throw imbtool::Failure("unknown list \"" + what + "\" (spaces, roles, displays, views, looks)");
}

struct ConvertOptions
{
    std::string in;
    std::string out;
    std::string from;
    std::string to;
    std::string looks;
    bool direct = false;
    bool baked = false;
};

double secondsSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// A float copy of `src` with 3 or 4 interleaved channels, for the direct path.
IMB_Raster toFloat(const IMB_Raster &src)
{
    const IMB_Packing packing = src.hasAlpha() ? PACK_RGBA : PACK_RGB;
    if (src.getFormat() == IMB_FLOAT32 && src.getPacking() == packing)
        return IMB_Raster(src);
    IMB_Raster dst(packing, IMB_FLOAT32, src.getXres(), src.getYres());
    const int channels = packing == PACK_RGBA ? 4 : 3;
    const int srcValues = src.getNumChannels() >= 4 ? 4 : (src.getNumChannels() == 1 ? 1 : 3);
    float px[4];
    for (int64 y = 0; y < src.getYres(); ++y)
        for (int64 x = 0; x < src.getXres(); ++x)
        {
            src.getPixelValue(x, y, px);
            if (srcValues == 1)
                px[1] = px[2] = px[0];
            float *d = static_cast<float *>(dst.getPixel(x, y));
            for (int c = 0; c < channels; ++c)
                d[c] = px[c];
        }
    dst.setColorSpace(src.getColorSpace());
    return dst;
}

void runConvert(const ConvertOptions &o)
{
    requireConfig();
    if (o.direct && o.baked)
        throw imbtool::Failure("--direct and --baked exclude each other");
    if (!IMB_OCIO::lookupSpace(o.from.c_str()))
        throw imbtool::Failure("unknown colour space \"" + o.from + "\"");
    if (!IMB_OCIO::lookupSpace(o.to.c_str()))
        throw imbtool::Failure("unknown colour space \"" + o.to + "\"");
    IMB_Raster image;
    imbtool::readImage(o.in, image);
    fmt::print("read {}: {} x {}, {} {}\n", o.in, image.getXres(), image.getYres(), IMBpacking(image.getPacking()),
               IMBdataFormat(image.getFormat()));

    // Both paths work on float pixels, so that their results compare and a
    // linear result keeps its precision.
    image = toFloat(image);
    const auto t0 = std::chrono::steady_clock::now();
    if (o.direct)
    {
        IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor(o.from.c_str(), o.to.c_str(), o.looks.c_str(), true);
        if (!h.isValid())
            throw imbtool::Failure("no processor from \"" + o.from + "\" to \"" + o.to + "\"");
        const int channels = image.getPacking() == PACK_RGBA ? 4 : 3;
        for (int64 y = 0; y < image.getYres(); ++y)
            if (!IMB_OCIO::transform(h, static_cast<float *>(image.getPixel(0, y)), static_cast<int>(image.getXres()),
                                     channels))
                throw imbtool::Failure("the transform failed");
        fmt::print("converted {} -> {} directly through the processor ({}{}) in {:.3f} s\n", o.from, o.to,
                   h.is3D() ? "3D" : "per channel", h.isNoOp() ? ", no-op" : "", secondsSince(t0));
    }
    else
    {
        IMB_Lookup lut;
        if (!lut.buildOpenColorIO(o.from.c_str(), o.to.c_str(), o.looks.empty() ? nullptr : o.looks.c_str(), 0))
            throw imbtool::Failure("cannot bake a table from \"" + o.from + "\" to \"" + o.to + "\"");
        const double bakeTime = secondsSince(t0);
        const auto t1 = std::chrono::steady_clock::now();
        lut.applyLUT(image);
        float dmin, dmax;
        lut.getDomain(dmin, dmax);
        fmt::print("converted {} -> {} through a baked table ({}, domain {} .. {}{}): baked in {:.3f} s, applied "
                   "in {:.3f} s\n",
                   o.from, o.to, lut.is3DLUT() ? fmt::format("cube of edge {}", lut.get3DSize())
                                               : fmt::format("{} samples per channel", lut.getTableSize()),
                   dmin, dmax, lut.getLogSampling() ? ", log sampled" : "", bakeTime, secondsSince(t1));
    }
    BAS_StringHolder tagName;
    const IMB_ColorSpace tag = IMB_OCIO::imbImageColorSpace(BAS_StringHolder(o.to.c_str()), tagName);
    if (tag == IMB_CS_OCIO)
        image.setOCIOColorSpace(tagName);
    else
        image.setColorSpace(tag);
    imbtool::writeImage(o.out, image);
    fmt::print("wrote {} (tag {})\n", o.out, IMBgetColorSpaceName(tag));
}

struct BakeOptions
{
    std::string from;
    std::string to;
    std::string looks;
    std::string out;
    bool large = false;
    bool half = false;
};

void runBake(const BakeOptions &o)
{
    requireConfig();
    const bool binary = o.out.size() >= 5 && o.out.compare(o.out.size() - 5, 5, ".blut") == 0;
    const bool text = o.out.size() >= 4 && o.out.compare(o.out.size() - 4, 4, ".lut") == 0;
    if (!binary && !text)
        throw imbtool::Failure("the output must end in .lut (text) or .blut (binary)");
    IMB_Lookup lut;
    if (!lut.buildOpenColorIO(o.from.c_str(), o.to.c_str(), o.looks.empty() ? nullptr : o.looks.c_str(),
                              o.large ? 1 : 0))
        throw imbtool::Failure("cannot bake a table from \"" + o.from + "\" to \"" + o.to + "\"");
    if (!lut.save(o.out.c_str(), o.half))
        throw imbtool::Failure("cannot write " + o.out);
    float dmin, dmax;
    lut.getDomain(dmin, dmax);
    fmt::print("baked {} -> {}{}: {}, domain {} .. {}{}\n", o.from, o.to, o.looks.empty() ? "" : " with " + o.looks,
               lut.is3DLUT() ? fmt::format("cube of edge {}", lut.get3DSize())
                             : fmt::format("{} tracks of {} samples", lut.getNumChannels(), lut.getTableSize()),
               dmin, dmax, lut.getLogSampling() ? ", log sampled" : "");
    fmt::print("wrote {} ({} form)\n", o.out, binary ? "binary" : "text");
}

void setupOcio(CLI::App &app)
{
    CLI::App *cmd = app.add_subcommand("ocio", "Colour management through the configuration named by $OCIO");
    cmd->require_subcommand(1);

    auto what = std::make_shared<std::string>();
    CLI::App *list = cmd->add_subcommand("list", "List colour spaces, roles, displays, views or looks");
    list->add_option("what", *what, "spaces, roles, displays, views or looks")
        ->required()
        ->check(CLI::IsMember({"spaces", "roles", "displays", "views", "looks"}));
    list->callback([what] { listWhat(*what); });

    auto conv = std::make_shared<ConvertOptions>();
    CLI::App *convert = cmd->add_subcommand("convert", "Convert an image file from one colour space to another");
    convert->add_option("in", conv->in, "Input image")->required();
    convert->add_option("out", conv->out, "Output image (type from the extension)")->required();
    convert->add_option("--from", conv->from, "Source colour space")->required();
    convert->add_option("--to", conv->to, "Destination colour space")->required();
    convert->add_option("--looks", conv->looks, "A look to apply ('-' before the name inverts it)");
    convert->add_flag("--direct", conv->direct, "Apply the processor to every pixel (float)");
    convert->add_flag("--baked", conv->baked, "Bake a lookup table and apply it (the default)");
    convert->callback([conv] { runConvert(*conv); });

    auto bake = std::make_shared<BakeOptions>();
    CLI::App *bakeCmd = cmd->add_subcommand("bake", "Bake a colour transform into a .lut or .blut file");
    bakeCmd->add_option("--from", bake->from, "Source colour space")->required();
    bakeCmd->add_option("--to", bake->to, "Destination colour space")->required();
    bakeCmd->add_option("--looks", bake->looks, "A look to apply");
    bakeCmd->add_flag("--large", bake->large, "Larger fallback interval and cube (edge 96)");
    bakeCmd->add_flag("--half", bake->half, "Binary files: store half-precision samples");
    bakeCmd->add_option("out", bake->out, "Output file, .lut or .blut")->required();
    bakeCmd->callback([bake] { runBake(*bake); });
}
} // namespace

IMBTOOL_COMMAND("ocio", setupOcio);
