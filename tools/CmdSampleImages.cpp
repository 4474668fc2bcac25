// imbtool make-sample-images (hidden): writes the sample images shipped in
// share/images, so that they can be remade and checked.
#include "Command.h"
#include "ImageIO.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

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
