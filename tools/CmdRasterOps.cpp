// imbtool premult, unpremult, saturation, luma and stream: the raster alpha,
// saturation and stream operations and the luma functions on real images.
#include "Command.h"

#include <IMB/IMB.h>
#include <IMB/platform/BAS_IStream.h>

#include <fmt/format.h>

#include <cctype>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>

namespace
{
struct Paths
{
    std::string in, out;
};

double msSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

void describe(const char *what, const IMB_Raster &r)
{
    fmt::print("{}: {} x {}, packing {}, format {}\n", what, r.getXres(), r.getYres(), IMBpacking(r.getPacking()),
               IMBdataFormat(r.getFormat()));
}

// A pixel's values as floats: at (x, y) given as fractions of the size.
std::string pixelAt(const IMB_Raster &r, double fx, double fy)
{
    float v[4] = {0, 0, 0, 0};
    r.getPixelValue(int64(fx * double(r.getXres() - 1)), int64(fy * double(r.getYres() - 1)), v);
    const int n = r.getNumChannels() == 3 && r.getPacking() == PACK_DUAL ? 2 : r.getNumChannels();
    std::string s;
    for (int i = 0; i < n && i < 4; ++i)
        s += fmt::format("{}{:.6g}", i ? " " : "", v[i]);
    return "[" + s + "]";
}

std::string centre(const IMB_Raster &r) { return pixelAt(r, 0.5, 0.5); }

// ---------------------------------------------------------------- alpha ops
enum class AlphaOp
{
    Premultiply,
    Unpremultiply
};

void runAlpha(const Paths &p, AlphaOp op)
{
    IMB_Raster r;
    imbtool::readImage(p.in, r);
    describe("read", r);
    if (!r.hasAlpha())
        fmt::print("  the image has no alpha channel: colour is taken with alpha 1\n");
    // The centre and a pixel a quarter across, near the bottom.
    const std::string before = centre(r), before2 = pixelAt(r, 0.25, 0.9);
    const auto t0 = std::chrono::steady_clock::now();
    const bool ok = op == AlphaOp::Premultiply ? r.premultiply() : r.unpremultiply();
    const double ms = msSince(t0);
    if (!ok)
        throw imbtool::Failure("the operation refused the raster");
    fmt::print("{} in {:.2f} ms\n  centre {} -> {}\n  (25%, 90%) {} -> {}\n",
               op == AlphaOp::Premultiply ? "premultiplied" : "unpremultiplied", ms, before, centre(r), before2,
               pixelAt(r, 0.25, 0.9));
    imbtool::writeImage(p.out, r);
    fmt::print("wrote {}\n", p.out);
}

void setupAlpha(CLI::App &app, const char *name, const char *help, AlphaOp op)
{
    auto p = std::make_shared<Paths>();
    CLI::App *cmd = app.add_subcommand(name, help);
    cmd->add_option("input", p->in, "Image to read")->required();
    cmd->add_option("output", p->out, "Image to write (type from the extension)")->required();
    cmd->callback([p, op] { runAlpha(*p, op); });
}

void setupPremult(CLI::App &app)
{
    setupAlpha(app, "premult", "Multiply colour by alpha (IMB_Raster::premultiply)", AlphaOp::Premultiply);
}

void setupUnpremult(CLI::App &app)
{
    setupAlpha(app, "unpremult", "Divide colour by alpha where 0 < alpha < 1 (IMB_Raster::unpremultiply)",
               AlphaOp::Unpremultiply);
}

// ---------------------------------------------------------------- saturation
void setupSaturation(CLI::App &app)
{
    auto p = std::make_shared<Paths>();
    auto amount = std::make_shared<float>(1.0f);
    CLI::App *cmd = app.add_subcommand("saturation", "Scale saturation about luminance (IMB_Raster::adjustSaturation)");
    cmd->add_option("input", p->in, "Image to read")->required();
    cmd->add_option("output", p->out, "Image to write")->required();
    cmd->add_option("-s,--amount", *amount, "Saturation factor: 0 grey, 1 unchanged, above 1 stronger")
        ->required();
    cmd->callback([p, amount] {
        IMB_Raster r;
        imbtool::readImage(p->in, r);
        describe("read", r);
        if (r.getPacking() != PACK_RGB && r.getPacking() != PACK_RGBA)
            fmt::print("  saturation applies to RGB and RGBA images only; this one is left as it is\n");
        const std::string before = centre(r);
        const auto t0 = std::chrono::steady_clock::now();
        r.adjustSaturation(*amount);
        fmt::print("saturation x {} in {:.2f} ms; centre pixel {} -> {}\n", *amount, msSince(t0), before, centre(r));
        imbtool::writeImage(p->out, r);
        fmt::print("wrote {}\n", p->out);
    });
}

// ---------------------------------------------------------------- luma
const char *const lumaNames[] = {"weighted", "ntsc", "max", "min", "average", "red", "green", "blue", "alpha"};

IMB_LumFunction lumaByName(const std::string &name)
{
    for (int i = 0; i < 9; ++i)
        if (name == lumaNames[i])
            return IMB_LumFunction(i);
    throw imbtool::Failure("unknown luma function \"" + name +
                           "\" (weighted, ntsc, max, min, average, red, green, blue, alpha)");
}

void setupLuma(CLI::App &app)
{
    auto p = std::make_shared<Paths>();
    auto function = std::make_shared<std::string>("weighted");
    CLI::App *cmd = app.add_subcommand("luma", "Reduce an image to one channel (IMB_LumFuncs::convertToLuma)");
    cmd->add_option("input", p->in, "Image to read")->required();
    cmd->add_option("output", p->out, "One-channel image to write")->required();
    cmd->add_option("-f,--function", *function,
                    "weighted, ntsc, max, min, average, red, green, blue or alpha")
        ->capture_default_str();
    cmd->callback([p, function] {
        const IMB_LumFunction func = lumaByName(*function);
        IMB_Raster r;
        imbtool::readImage(p->in, r);
        describe("read", r);
        IMB_Raster out(PACK_SINGLE, r.getFormat(), r.getXres(), r.getYres());
        if (!out.isValid())
            throw imbtool::Failure("cannot allocate the luma raster");
        // Channel sources: interleaved packings step their components per
        // pixel, plane packings read each plane densely.
        const int channels = r.getPacking() == PACK_DUAL ? 2 : r.getNumChannels();
        const int32 stride = r.isInterleaved() ? imbDefinesPDepth[r.getPacking()] : 1;
        const int64 b = imbDefinesDepth[r.getFormat()];
        const auto t0 = std::chrono::steady_clock::now();
        for (int64 y = 0; y < r.getYres(); ++y)
        {
            const void *src[4] = {nullptr, nullptr, nullptr, nullptr};
            for (int c = 0; c < channels && c < 4; ++c)
                src[c] = r.isInterleaved() ? static_cast<const char *>(r.getPixel(0, y, 0)) + c * b
                                           : r.getPixel(0, y, c);
            IMB_LumFuncs::convertToLuma(r.getFormat(), out.getPixel(0, y, 0), func, src[0], src[1], src[2], src[3],
                                        int32(r.getXres()), stride);
        }
        fmt::print("luma \"{}\" of {} channel(s) in {:.2f} ms; centre {} -> {}\n", *function, channels, msSince(t0),
                   centre(r), centre(out));
        imbtool::writeImage(p->out, out);
        fmt::print("wrote {}\n", p->out);
    });
}

// ---------------------------------------------------------------- stream
void setupStream(CLI::App &app)
{
    CLI::App *cmd = app.add_subcommand("stream", "Save an image as a raster stream, or load one back");
    cmd->require_subcommand(1);

    auto s = std::make_shared<Paths>();
    auto text = std::make_shared<bool>(false);
    CLI::App *save = cmd->add_subcommand("save", "Write IMAGE as a raster stream (binary unless --text)");
    save->add_option("image", s->in, "Image to read")->required();
    save->add_option("stream", s->out, "Stream file to write")->required();
    save->add_flag("--text", *text, "Text form: a header line and uuencoded pixels");
    save->callback([s, text] {
        IMB_Raster r;
        imbtool::readImage(s->in, r);
        describe("read", r);
        std::ofstream os(s->out, std::ios::binary);
        if (!os)
            throw imbtool::Failure("cannot open " + s->out);
        if (!r.save(os, *text ? 0 : 1) || !os.flush())
            throw imbtool::Failure("cannot write " + s->out);
        fmt::print("wrote the {} form to {} ({} bytes)\n", *text ? "text" : "binary", s->out,
                   static_cast<long long>(os.tellp()));
        if (!*text && !r.isInterleaved())
            fmt::print("  note: the binary form keeps only the first plane of a plane packing\n");
    });

    auto l = std::make_shared<Paths>();
    auto form = std::make_shared<std::string>("auto");
    CLI::App *load = cmd->add_subcommand("load", "Read a raster stream and write it as an image");
    load->add_option("stream", l->in, "Stream file to read")->required();
    load->add_option("image", l->out, "Image to write")->required();
    load->add_option("--form", *form, "auto (from the first line), binary or text")
        ->check(CLI::IsMember({"auto", "binary", "text"}))
        ->capture_default_str();
    load->callback([l, form] {
        std::ifstream is(l->in, std::ios::binary);
        if (!is)
            throw imbtool::Failure("cannot open " + l->in);
        // The text form starts with a decimal width; the binary form with a
        // little-endian int32 whose first byte is rarely a digit followed by
        // a blank-separated header line. Peek at the first line to decide.
        std::string first;
        std::getline(is, first);
        bool textForm = !first.empty() && first.size() < 200;
        for (char c : first)
            if (!(std::isdigit(static_cast<unsigned char>(c)) || c == ' ' || c == '.' || c == '-' || c == '+' ||
                  c == 'e' || c == 'E' || c == 'n' || c == 'a' || c == 'i' || c == 'f' || c == '\r'))
                textForm = false;
        if (*form != "auto")
            textForm = *form == "text";
        is.clear();
        is.seekg(0);
        BAS_IStream in(is, !textForm);
        IMB_Raster r;
        if (!r.load(in))
            throw imbtool::Failure("cannot load a raster from " + l->in);
        describe(textForm ? "loaded (text form)" : "loaded (binary form)", r);
        imbtool::writeImage(l->out, r);
        fmt::print("wrote {}\n", l->out);
    });
}
} // namespace

IMBTOOL_COMMAND("premult", setupPremult);
IMBTOOL_COMMAND("unpremult", setupUnpremult);
IMBTOOL_COMMAND("saturation", setupSaturation);
IMBTOOL_COMMAND("luma", setupLuma);
IMBTOOL_COMMAND("stream", setupStream);
