// imbtool make-sample-images and make-deep-sample (hidden): write the sample
// images shipped in share/, so that they can be remade and checked, and deep
// images of any size for benchmarks.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace
{
// HSV (all 0-1) to RGB.
void hsvToRgb(float h, float s, float v, float rgb[3])
{
    float h6 = (h - std::floor(h)) * 6.0f;
    int sector = static_cast<int>(h6) % 6;
    float f = h6 - std::floor(h6);
    float p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
    const float table[6][3] = {{v, t, p}, {q, v, p}, {p, v, t}, {p, q, v}, {t, p, v}, {v, p, q}};
    for (int i = 0; i < 3; ++i)
        rgb[i] = table[sector][i];
}

// 8-bit sRGB chart, 256 x 256: rows 0-175 a hue sweep across with saturation
// falling from 1 to 0 downwards; rows 176-215 a smooth grey ramp 0-255 (one
// code value per column); rows 216-255 eight grey steps of 0, 36, ... 255.
// Values go in through setPixelValue as code / 255 plus half a code, since
// setPixelValue truncates.
void makeChart(const std::string &path)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 256, 256, 1, 1);
    r.setColorSpace(IMB_CS_SRGB);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
        {
            float rgb[3];
            if (y < 176)
                hsvToRgb(x / 256.0f, 1.0f - y / 175.0f, 1.0f, rgb);
            else
            {
                int code = y < 216 ? x : std::min(255, (x / 32) * 255 / 7);
                rgb[0] = rgb[1] = rgb[2] = code / 255.0f;
            }
            float in[3];
            for (int i = 0; i < 3; ++i)
                in[i] = std::min(255.0f, std::floor(rgb[i] * 255.0f + 0.5f)) / 255.0f + 0.5f / 255.0f;
            r.setPixelValue(x, y, in);
        }
    imbtool::writeImage(path, r);
}

// Half-float linear RGBA, 256 x 256, with values above 1: an exposure ramp
// across from 2^-6 to 2^4 (x = 0 gives 1/64, x = 255 gives 16), in four
// bands of 64 rows tinted white, red, green and blue (the tint keeps 0.1 in
// the other channels); a disc of radius 12 at the centre holds 100; alpha is
// 1 except in the bottom band, where it ramps from 0 to 1 across.
void makeHdr(const std::string &path)
{
    IMB_Raster r(PACK_RGBA, IMB_FLOAT16, 256, 256, 1, 1);
    r.setColorSpace(IMB_CS_LINEAR);
    const float tints[4][3] = {{1, 1, 1}, {1, 0.1f, 0.1f}, {0.1f, 1, 0.1f}, {0.1f, 0.1f, 1}};
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
        {
            float stops = -6.0f + 10.0f * x / 255.0f;
            float v = std::exp2(stops);
            const float *tint = tints[y / 64];
            float px[4] = {v * tint[0], v * tint[1], v * tint[2], 1.0f};
            if (y >= 192)
                px[3] = x / 255.0f;
            float dx = x - 127.5f, dy = y - 127.5f;
            if (dx * dx + dy * dy <= 144.0f)
                px[0] = px[1] = px[2] = 100.0f;
            r.setPixelValue(x, y, px);
        }
    imbtool::writeImage(path, r);
}

// A deep layer of `samples` samples per pixel over a w x h frame: translucent
// sheets tilted across the frame (point samples and volume slabs in turn)
// in front of an opaque backdrop at depth 100 + seed (only point samples with
// `points`). Channels R, G, B, A as halves. `seed` shifts the sheets' depths and colours, so that two layers
// interleave when merged.
IMB_DeepImage makeDeepLayer(int w, int h, int samples, int seed, bool points)
{
    BAS_IntrusivePtr<IMB_DeepChannelList> channels(new IMB_DeepChannelList);
    for (const char *name : {"R", "G", "B", "A"})
        channels->addChannel(name, 1);
    const BAS_Rect<BAS_DimRectImpl> frame(0, 0, w, h);
    IMB_DeepImage image(IMB_ImageWindows{frame, frame}, channels);
    image.halfChannels().assign(4, true);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
        {
            const float u = (x + 0.5f) / float(w), v = (y + 0.5f) / float(h);
            BAS_IntrusivePtr<IMB_DeepSampleList> list(new IMB_DeepSampleList(channels, samples));
            for (int k = 0; k < samples; ++k)
            {
                const bool back = k == samples - 1;
                const float z = back ? 100.0f + float(seed)
                                     : 2.0f + 3.0f * float(k) + 1.37f * float(seed) + 4.3f * (u - v) * (k % 2 ? 1 : -1);
                const bool volume = !points && !back && (k + seed) % 2 == 1;
                list->zfrontBuffer()[k] = z;
                list->zbackBuffer()[k] = volume ? z + 0.75f : z;
                list->flagBuffer()[k] = volume ? IMB_DeepSampleList::SAMPLE_VOLUME : 0;
                list->coverageBuffer()[k] = ~uint64(0);
                float rgb[3];
                hsvToRgb(std::fmod(0.17f * float(k + 3 * seed) + 0.3f * u, 1.0f), 0.6f, 1.0f, rgb);
                const float a = back ? 1.0f : 0.2f + 0.3f * std::fabs(std::sin(6.0f * u + float(k)) * v);
                const float value[4] = {rgb[0] * a * (back ? 0.25f : 1.0f), rgb[1] * a * (back ? 0.25f : 1.0f),
                                        rgb[2] * a * (back ? 0.25f : 1.0f), a};
                for (int c = 0; c < 4; ++c)
                    list->channelBuffer(c)[k] = float(half16(value[c])); // stored as halves: keep them exact
            }
            image.pixel(x, y) = list;
        }
    return image;
}

void setupMakeDeep(CLI::App &app)
{
    struct Options
    {
        std::string out;
        std::vector<int> size{96, 96};
        int samples = 4, seed = 0;
        bool points = false;
    };
    auto o = std::make_shared<Options>();
    CLI::App *cmd = app.add_subcommand("make-deep-sample", "Write a synthetic deep OpenEXR layer");
    cmd->group(""); // hidden: for the shipped samples and the benchmarks
    cmd->add_option("output", o->out, "Deep .exr to write")->required();
    cmd->add_option("--size", o->size, "Width and height")->expected(2)->capture_default_str();
    cmd->add_option("--samples", o->samples, "Samples per pixel (at least 1)")->capture_default_str();
    cmd->add_option("--seed", o->seed, "Layer variant")->capture_default_str();
    cmd->add_flag("--points", o->points, "Point samples only (no volume slabs)");
    cmd->callback([o] {
        if (o->size[0] < 1 || o->size[1] < 1 || o->samples < 1)
            throw imbtool::Failure("--size and --samples must be positive");
        BAS_ErrorCapture messages;
        if (!makeDeepLayer(o->size[0], o->size[1], o->samples, o->seed, o->points).write(o->out.c_str()))
            throw imbtool::Failure(imbtool::reported(messages, "cannot write " + o->out));
        fmt::print("wrote {} ({} x {}, {} samples per pixel)\n", o->out, o->size[0], o->size[1], o->samples);
    });
}

void setupMakeSamples(CLI::App &app)
{
    auto dir = std::make_shared<std::string>("share/images");
    CLI::App *cmd = app.add_subcommand("make-sample-images", "Write the sample images shipped in share/images");
    cmd->group(""); // hidden: a maintainer's tool
    cmd->add_option("dir", *dir, "Output folder")->capture_default_str();
    cmd->callback([dir] {
        makeChart(*dir + "/chart_srgb8.png");
        makeHdr(*dir + "/ramp_hdr_half.exr");
        fmt::print("wrote {0}/chart_srgb8.png and {0}/ramp_hdr_half.exr\n", *dir);
    });
}
} // namespace

IMBTOOL_COMMAND("make-sample-images", setupMakeSamples);
IMBTOOL_COMMAND("make-deep-sample", setupMakeDeep);
