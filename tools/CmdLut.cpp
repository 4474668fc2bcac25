// imbtool lut: build, inspect, convert, invert, merge and apply lookup-table
// files (".lut" text, ".blut" binary, and the exchange formats ".cube",
// ".spi1d", ".spi3d", ".3dl" and ".csp").
#include "Command.h"

#include <IMB/IMB.h>
#include <IMB/platform/CRV_Clip.h>

#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <string>

namespace
{
const char *typeName(int32 type)
{
    switch (type & ~IMB_LUT_LOG_SAMPLING)
    {
    case IMB_LUT_R: return "R";
    case IMB_LUT_G: return "G";
    case IMB_LUT_B: return "B";
    case IMB_LUT_A: return "A";
    case IMB_LUT_RGB: return "RGB";
    case IMB_LUT_RGBA: return "RGBA";
    case IMB_LUT_C: return "C";
    case IMB_LUT_ALL: return "All";
    case IMB_LUT_3D: return "3D";
    case IMB_LUT_3D_1D: return "3D+1D";
    default: return "(no standard type)";
    }
}

const char *formatName(const IMB_Lookup &lut)
{
    IMB_DataFormat f;
    if (!lut.hasSpecificFormat(f))
        return "any";
    switch (f)
    {
    case IMB_INT8: return "i8";
    case IMB_INT16: return "i16";
    case IMB_INT32: return "i32";
    case IMB_FLOAT32: return "f32";
    case IMB_FLOAT16: return "f16";
    default: return "any";
    }
}

void loadOrFail(IMB_Lookup &lut, const std::string &path, bool headerOnly = false)
{
    if (!lut.load(path.c_str(), headerOnly))
        throw imbtool::Failure("cannot load lookup table \"" + path +
                               "\" (a .lut, .blut, .cube, .spi1d, .spi3d, .3dl or .csp file with a usable domain "
                               "is needed)");
}

void saveOrFail(const IMB_Lookup &lut, const std::string &path, bool half)
{
    if (!lut.save(path.c_str(), half))
        throw imbtool::Failure("cannot save lookup table \"" + path + "\"");
}

// One line describing a table.
std::string summary(const IMB_Lookup &lut)
{
    std::string s = fmt::format("type {}", typeName(lut.getType()));
    if (lut.getType() & 63)
        s += fmt::format(", {} track(s) of {} samples", lut.getNumChannels(), lut.getTableSize());
    if (lut.getType() & IMB_LUT_3D)
        s += fmt::format(", cube edge {}", lut.get3DSize());
    if (lut.getLogSampling())
        s += ", log sampling";
    return s;
}

// ------------------------------------------------------------ lut build
struct BuildOptions
{
    std::string kind = "gamma";
    double gamma = 2.2;
    int size = 1024;
    std::string dir = "encode";
    std::string out;
    bool half = false;
};

void runBuild(const BuildOptions &o)
{
    const IMB_Lookup::Dir dir = o.dir == "encode" ? IMB_Lookup::FORWARD : IMB_Lookup::INVERSE;
    IMB_Lookup lut;
    bool ok = false;
    if (o.kind == "gamma")
        ok = lut.buildGamma(o.gamma, dir, o.size);
    else if (o.kind == "srgb")
        ok = lut.buildSRGB(dir, o.size);
    else
        ok = lut.buildREC709(dir, o.size);
    if (!ok)
        throw imbtool::Failure(fmt::format("cannot build a {} table of size {}{}", o.kind, o.size,
                                           o.kind == "gamma" ? fmt::format(" and gamma {}", o.gamma) : ""));
    saveOrFail(lut, o.out, o.half);
    fmt::print("built {} {} table: {}\nwrote {}\n", o.kind, o.dir, summary(lut), o.out);
}

// ------------------------------------------------------------ lut info
// The header facts of an exchange file, then what the table becomes here.
void runExchangeInfo(const std::string &path, IMB_Lookup::ExchangeFormat format)
{
    FILE *fp = std::fopen(path.c_str(), "rb");
    if (!fp)
        throw imbtool::Failure("cannot open \"" + path + "\"");
    IMB_Lookup lut;
    IMB_Lookup::ExchangeHeader h;
    const bool ok = lut.loadExchange(fp, format, true, &h);
    std::fclose(fp);
    if (!ok)
        throw imbtool::Failure("cannot read the header of \"" + path + "\"");
    fmt::print("file      {}\n", path);
    fmt::print("format    {}{}\n", IMB_Lookup::exchangeExtension(format),
               format == IMB_Lookup::EXCHANGE_3DL ? (h.floatForm ? " (float form)" : " (integer form)") : "");
    if (!h.title.empty())
        fmt::print("title     {}\n", h.title);
    if (h.size1D)
        fmt::print("1D        {} entries{}\n", h.size1D,
                   h.components ? fmt::format(", {} component(s)", h.components) : std::string());
    if (h.size3D)
        fmt::print("cube      edge {}\n", h.size3D);
    if (h.shaperPoints)
        fmt::print("{}{} points\n", format == IMB_Lookup::EXCHANGE_3DL ? "mesh      " : "shaper    ", h.shaperPoints);
    if (h.inBits)
        fmt::print("depths    mesh {} bits, output {} bits\n", h.inBits, h.outBits);
    if (h.domainMin[0] == h.domainMin[1] && h.domainMin[1] == h.domainMin[2] && h.domainMax[0] == h.domainMax[1] &&
        h.domainMax[1] == h.domainMax[2])
        fmt::print("domain    {} .. {}\n", h.domainMin[0], h.domainMax[0]);
    else
        fmt::print("domain    {} {} {} .. {} {} {}\n", h.domainMin[0], h.domainMin[1], h.domainMin[2], h.domainMax[0],
                   h.domainMax[1], h.domainMax[2]);
    IMB_Lookup whole;
    loadOrFail(whole, path);
    float lo, hi;
    whole.getDomain(lo, hi);
    fmt::print("as table  {}, domain {} .. {}\n", summary(whole), lo, hi);
}

void runInfo(const std::string &path)
{
    if (const auto format = IMB_Lookup::exchangeFormatOf(path.c_str()); format != IMB_Lookup::EXCHANGE_NONE)
        return runExchangeInfo(path, format);
    IMB_Lookup lut;
    loadOrFail(lut, path, true);
    float lo, hi;
    fmt::print("file      {}\n", path);
    fmt::print("type      {} ({})\n", typeName(lut.getType()), static_cast<int>(lut.getType()));
    fmt::print("format    {}\n", formatName(lut));
    if (lut.getType() & 63)
        fmt::print("1D        {} track(s) of {} samples{}\n", lut.getNumChannels(), lut.getTableSize(),
                   lut.isHalfPrec() ? " (half samples)" : "");
    if (lut.getType() & IMB_LUT_3D)
    {
        // Binary files keep the cube edge with the samples, past what a
        // header read takes: read such files whole.
        int edge = lut.get3DSize();
        if (edge == 0)
        {
            IMB_Lookup whole;
            loadOrFail(whole, path);
            edge = whole.get3DSize();
        }
        fmt::print("cube      edge {}\n", edge);
    }
    lut.getDomain(lo, hi);
    fmt::print("domain    {} .. {}\n", lo, hi);
    lut.getRange(lo, hi);
    fmt::print("range     {} .. {}\n", lo, hi);
    fmt::print("points    black {} white {}\n", lut.getBlackPoint(), lut.getWhitePoint());
    fmt::print("sampling  {}\n", lut.getLogSampling() ? "log" : "linear");
    if (lut.getLogSampling())
        fmt::print("log bias  {}\n", lut.getLogBias());
}

// ------------------------------------------------------------ lut convert
struct ConvertOptions
{
    std::string in, out;
    bool half = false;
    IMB_Lookup::ExchangeOptions exchange;
};

void runConvert(const ConvertOptions &o)
{
    IMB_Lookup lut;
    loadOrFail(lut, o.in);
    // A format that cannot hold the table says why on stderr and writes
    // nothing.
    const bool ok = IMB_Lookup::exchangeFormatOf(o.out.c_str()) != IMB_Lookup::EXCHANGE_NONE
                        ? lut.save(o.out.c_str(), o.exchange)
                        : lut.save(o.out.c_str(), o.half);
    if (!ok)
        throw imbtool::Failure("cannot save lookup table \"" + o.out + "\"");
    fmt::print("read {}: {}\nwrote {}\n", o.in, summary(lut), o.out);
}

// ------------------------------------------------------------ lut invert
void runInvert(const std::string &in, const std::string &out, int size, bool half)
{
    IMB_Lookup lut;
    loadOrFail(lut, in);
    if (lut.getNumChannels() == 0 || lut.getTableSize() < 2)
        throw imbtool::Failure("\"" + in + "\" has no 1D table to invert");
    lut.invert(size);
    saveOrFail(lut, out, half);
    float lo, hi;
    lut.getDomain(lo, hi);
    fmt::print("inverted {}: {}, new domain {} .. {}\nwrote {}\n", in, summary(lut), lo, hi, out);
}

// ------------------------------------------------------------ lut merge
void runMerge(const std::string &a, const std::string &b, const std::string &out, bool half)
{
    IMB_Lookup first, second, merged;
    loadOrFail(first, a);
    loadOrFail(second, b);
    merged.mergeLUTs(first, second);
    saveOrFail(merged, out, half);
    fmt::print("{} then {}: {}\nwrote {}\n", a, b, summary(merged), out);
}

// ------------------------------------------------------------ lut apply
struct ApplyOptions
{
    std::string lut, in, out;
    float gamma = 1.0f;
    float black = 0.0f;
    float white = 1.0f;
    int channel = -1;
};

void runApply(const ApplyOptions &o)
{
    IMB_Lookup lut;
    loadOrFail(lut, o.lut);
    IMB_Raster raster;
    imbtool::readImage(o.in, raster);
    // 8- and 16-bit images go through the raster's direct tables (the same
    // pixels as the table's own application, looked up per value).
    const bool direct = raster.getFormat() == IMB_INT8 || raster.getFormat() == IMB_INT16;
    if (direct)
        raster.applyLUT(lut, o.gamma, o.black, o.white, o.channel);
    else
        lut.applyLUT(raster, o.gamma, o.black, o.white, o.channel);
    imbtool::writeImage(o.out, raster);
    fmt::print("applied {} ({}) to {} ({} x {}, {}{})\nwrote {}\n", o.lut, summary(lut), o.in, raster.getXres(),
               raster.getYres(), IMBdataFormat(raster.getFormat()), direct ? ", direct tables" : "", o.out);
}

void setupLut(CLI::App &app)
{
    CLI::App *lut = app.add_subcommand("lut", "Build, inspect, convert, invert, merge and apply lookup tables");
    lut->require_subcommand(1);

    auto build = std::make_shared<BuildOptions>();
    CLI::App *b = lut->add_subcommand("build", "Build an analytic 1D table and save it (.lut text, .blut binary)");
    b->add_option("--kind", build->kind, "Curve: gamma, srgb or rec709")
        ->check(CLI::IsMember({"gamma", "srgb", "rec709"}))
        ->capture_default_str();
    b->add_option("--gamma", build->gamma, "Gamma of the gamma curve")->capture_default_str();
    b->add_option("--size", build->size, "Samples in the table (at least 2)")->capture_default_str();
    b->add_option("--dir", build->dir, "encode (forward) or decode (inverse)")
        ->check(CLI::IsMember({"encode", "decode"}))
        ->capture_default_str();
    b->add_flag("--half", build->half, "Store half-precision samples (binary files)");
    b->add_option("OUT", build->out, "Output file")->required();
    b->callback([build]() { runBuild(*build); });

    auto infoPath = std::make_shared<std::string>();
    CLI::App *i = lut->add_subcommand("info", "Print the header of a table file (no samples are read, except for the "
                                              "exchange formats, whose table is also loaded and summarised)");
    i->add_option("FILE", *infoPath, "Table file")->required();
    i->callback([infoPath]() { runInfo(*infoPath); });

    struct TwoFiles
    {
        std::string in, out;
        bool half = false;
        int size = 0;
    };
    auto conv = std::make_shared<ConvertOptions>();
    CLI::App *c = lut->add_subcommand("convert", "Read a table and write it in the form of the output's extension "
                                                 "(.lut, .blut, .cube, .spi1d, .spi3d, .3dl, .csp)");
    c->add_option("IN", conv->in, "Input table")->required();
    c->add_option("OUT", conv->out, "Output table")->required();
    c->add_flag("--half", conv->half, "Store half-precision samples (binary files)");
    c->add_flag("--3dl-float", conv->exchange.floatForm, "Write .3dl files in the float form");
    c->add_option("--3dl-bits", conv->exchange.outBits, "Output depth of integer .3dl files: 8, 10, 12 or 16")
        ->check(CLI::IsMember({8, 10, 12, 16}));
    c->callback([conv]() { runConvert(*conv); });

    auto inv = std::make_shared<TwoFiles>();
    CLI::App *v = lut->add_subcommand("invert", "Replace every 1D track by its inverse function");
    v->add_option("IN", inv->in, "Input table")->required();
    v->add_option("OUT", inv->out, "Output table")->required();
    v->add_option("--size", inv->size, "Samples of the inverse (0 keeps the length)")->capture_default_str();
    v->add_flag("--half", inv->half, "Store half-precision samples (binary files)");
    v->callback([inv]() { runInvert(inv->in, inv->out, inv->size, inv->half); });

    struct MergeFiles
    {
        std::string a, b, out;
        bool half = false;
    };
    auto merge = std::make_shared<MergeFiles>();
    CLI::App *m = lut->add_subcommand("merge", "Compose two tables: A followed by B");
    m->add_option("A", merge->a, "First table")->required();
    m->add_option("B", merge->b, "Second table")->required();
    m->add_option("OUT", merge->out, "Output table")->required();
    m->add_flag("--half", merge->half, "Store half-precision samples (binary files)");
    m->callback([merge]() { runMerge(merge->a, merge->b, merge->out, merge->half); });

    auto apply = std::make_shared<ApplyOptions>();
    CLI::App *a = lut->add_subcommand("apply", "Apply a table to every pixel of an image file");
    a->add_option("LUT", apply->lut, "Table file")->required();
    a->add_option("IN", apply->in, "Input image")->required();
    a->add_option("OUT", apply->out, "Output image")->required();
    a->add_option("--gamma", apply->gamma, "Raise the table output to 1/gamma")->capture_default_str();
    a->add_option("--black", apply->black, "Black point of integer images, 0-1")->capture_default_str();
    a->add_option("--white", apply->white, "White point of integer images, 0-1")->capture_default_str();
    a->add_option("--channel", apply->channel, "Only this channel (0-3), copied into the others; -1 for all")
        ->capture_default_str();
    a->callback([apply]() { runApply(*apply); });
}
} // namespace

IMBTOOL_COMMAND("lut", setupLut);
