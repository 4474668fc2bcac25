// imbtool convert: read an image, convert every component to another data
// format with IMB_Fill (black and white points, gamma), write it out.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace
{
struct ConvertOptions
{
    std::string input;
    std::string output;
    std::string to = "float32";
    int64 sourceBlack = -1;
    int64 sourceWhite = -1;
    int64 destBlack = -1;
    int64 destWhite = -1;
    float gamma = 1.0f;
};

// The components of one pixel as text, read through fill into floats: the
// fractions of the black-to-white range that fill used for the image.
std::string firstPixel(const IMB_Raster &r, bool fast, uint32 black, uint32 white)
{
    const int channels = imbDefinesPDepth[r.getPacking()];
    const bool planar = !r.isInterleaved();
    std::vector<float> out(static_cast<size_t>(channels));
    std::string text;
    for (int c = 0; c < channels; ++c)
    {
        const auto *base = static_cast<const unsigned char *>(r.getPixels());
        const int64 depth = imbDefinesDepth[r.getFormat()];
        const int64 offset = planar ? c * r.getXres() * r.getYres() * depth : c * depth;
        IMB_FillParms p;
        p.mySource = base + offset;
        p.mySourceType = r.getFormat();
        p.mySourceFast = fast;
        p.mySourceBlack = black;
        p.mySourceWhite = white;
        p.myDest = &out[static_cast<size_t>(c)];
        p.myDestType = IMB_FLOAT32;
        p.setSourceArea(0, 0, 0, 0);
        p.setDestArea(0, 0, 0, 0);
        IMB_Fill::fill(p);
        text += fmt::format("{}{:.6g}", c ? " " : "", out[static_cast<size_t>(c)]);
    }
    return text;
}

IMB_DataFormat formatByName(const std::string &name)
{
    for (int f = 0; f < IMB_MAX_DATA_FORMAT; ++f)
        if (name == IMBdataFormat(static_cast<IMB_DataFormat>(f)))
            return static_cast<IMB_DataFormat>(f);
    throw imbtool::Failure("unknown data format \"" + name + "\" (int8, int16, int32, float32, float16)");
}

// How fill reads or writes a format's values.
std::string rangeText(IMB_DataFormat f, bool fast, uint32 black, uint32 white)
{
    if (f == IMB_FLOAT32 || f == IMB_FLOAT16)
        return "values as they are";
    if (fast)
        return "full range";
    return fmt::format("black {}, white {}", black, white);
}

uint32 pointOrDefault(int64 given, uint32 otherwise)
{
    if (given < 0)
        return otherwise;
    if (given > 0xFFFFFFFFll)
        throw imbtool::Failure(fmt::format("black/white point {} is above 4294967295", given));
    return static_cast<uint32>(given);
}

void runConvert(const ConvertOptions &o)
{
    const IMB_DataFormat to = formatByName(o.to);
    IMB_Raster in;
    imbtool::readImage(o.input, in);
    if (!in.isValid())
        throw imbtool::Failure("\"" + o.input + "\" holds no pixels");
    const IMB_DataFormat from = in.getFormat();

    IMB_Raster out(in.getPacking(), to, in.getXres(), in.getYres(), 0, 1);
    if (!out.isValid())
        throw imbtool::Failure("cannot allocate the converted image");
    out.setColorSpace(in.getColorSpace(), in.getColorSpaceGamma());

    // Every component of the block in one transfer: rows of the image, each
    // holding all its components (planes follow one another, so the count per
    // row is the same for every row).
    const int64 components = in.getSize() / imbDefinesDepth[from];
    const int64 rows = in.getYres();
    const int64 perRow = components / rows;

    IMB_FillParms p;
    p.mySource = in.getPixels();
    p.myDest = out.getPixels();
    p.setSourceArea(0, 0, perRow - 1, rows - 1);
    p.setDestArea(0, 0, perRow - 1, rows - 1);
    const uint32 fromWhite = imbDefinesWhite[from];
    const uint32 toWhite = imbDefinesWhite[to];
    p.setSourceType(from, pointOrDefault(o.sourceBlack, 0), pointOrDefault(o.sourceWhite, fromWhite));
    p.setDestType(to, pointOrDefault(o.destBlack, 0), pointOrDefault(o.destWhite, toWhite));
    // A fast 32-bit destination scales by the stored white, which the type
    // setter does not store for the full range: ask for it explicitly.
    if (to == IMB_INT32 && p.myDestFast)
    {
        p.myDestBlack = 0;
        p.myDestWhite = 0xFFFFFFFFu;
    }
    p.myGamma = o.gamma;
    IMB_Fill::fill(p);

    imbtool::writeImage(o.output, out);
    fmt::print("{}: {} x {} {}, {} ({}) -> {} ({}), gamma {}\n", o.output, in.getXres(), in.getYres(),
               IMBpacking(in.getPacking()), IMBdataFormat(from),
               rangeText(from, p.mySourceFast, p.mySourceBlack, p.mySourceWhite), IMBdataFormat(to),
               rangeText(to, p.myDestFast && to != IMB_INT32, p.myDestBlack, p.myDestWhite), o.gamma);
    fmt::print("  first pixel as fractions: in [{}]  out [{}]\n", firstPixel(in, p.mySourceFast, p.mySourceBlack, p.mySourceWhite),
               firstPixel(out, p.myDestFast, p.myDestBlack, p.myDestWhite));
}

void setupConvert(CLI::App &app)
{
    auto o = std::make_shared<ConvertOptions>();
    CLI::App *cmd = app.add_subcommand("convert", "Convert an image's components to another data format with IMB_Fill");
    cmd->add_option("input", o->input, "Image to read")->required();
    cmd->add_option("output", o->output, "Image to write (type from the extension)")->required();
    cmd->add_option("--to", o->to, "Destination format: int8, int16, int32, float32 or float16")
        ->capture_default_str()
        ->check(CLI::IsMember({"int8", "int16", "int32", "float32", "float16"}));
    cmd->add_option("--source-black", o->sourceBlack, "Integer value that means black in the input (integer inputs)");
    cmd->add_option("--source-white", o->sourceWhite, "Integer value that means white in the input (integer inputs)");
    cmd->add_option("--dest-black", o->destBlack, "Integer value written for black (integer outputs)");
    cmd->add_option("--dest-white", o->destWhite, "Integer value written for white (integer outputs)");
    cmd->add_option("--gamma", o->gamma, "Gamma applied to 8- and 16-bit outputs (1 = none)")->capture_default_str();
    cmd->callback([o] { runConvert(*o); });
}
} // namespace

IMBTOOL_COMMAND("convert", setupConvert);
