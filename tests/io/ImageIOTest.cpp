// Flat image files: round trips of every format and packing through the
// file types that hold them, colour metadata both ways, windows, subimages
// and MIP levels, and failures that leave the caller's raster and the
// destination alone.
#include <IMB/IMB.h>
#include <IMB/IMB_ImageIO.h>
#include <IMB/platform/BAS_ErrorLog.h>
#include "io/IoTestSupport.h"
#include "raster/RasterTestUtil.h"

#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

using iotest::Scratch;
using namespace rastertest;
namespace fs = std::filesystem;

namespace
{
// The colour configuration is loaded on the first colour call.
struct UseShippedConfig
{
    UseShippedConfig() { setenv("OCIO", IMB_SHARE_DIR "/ocio/config.ocio", 1); }
} theConfig;

// Random stored components that every file type keeps exactly (finite).
IMB_Raster randomRaster(IMB_Packing p, IMB_DataFormat f, int64 w, int64 h, unsigned seed)
{
    IMB_Raster r(p, f, w, h, 1);
    std::mt19937 rng(seed);
    auto *b = static_cast<unsigned char *>(r.getPixels());
    for (int64 i = 0; i < r.getSize() / bytesOf(f); ++i)
    {
        const float v = std::uniform_real_distribution<float>(-2.0f, 4.0f)(rng);
        const uint32 u = uint32(rng());
        if (f == IMB_FLOAT32)
            std::memcpy(b + 4 * i, &v, 4);
        else if (f == IMB_FLOAT16)
        {
            const uint16 hb = half16(v).bits();
            std::memcpy(b + 2 * i, &hb, 2);
        }
        else
            std::memcpy(b + bytesOf(f) * i, &u, size_t(bytesOf(f)));
    }
    if (p == PACK_DUAL) // the unused third component is not written
        for (int64 i = 0; i < w * h; ++i)
            std::memset(b + (3 * i + 2) * bytesOf(f), 0, size_t(bytesOf(f)));
    return r;
}

void expectSamePixels(const IMB_Raster &a, const IMB_Raster &b)
{
    ASSERT_EQ(a.getXres(), b.getXres());
    ASSERT_EQ(a.getYres(), b.getYres());
    for (int64 y = 0; y < a.getYres(); ++y)
        for (int64 x = 0; x < a.getXres(); ++x)
        {
            float va[4] = {}, vb[4] = {};
            a.getPixelValue(x, y, va);
            b.getPixelValue(x, y, vb);
            ASSERT_EQ(std::memcmp(va, vb, sizeof va), 0) << x << "," << y;
        }
}

std::string readBack(const std::string &path, IMB_Raster &r, const IMB_ImageReadOptions &o = {})
{
    BAS_ErrorCapture messages;
    EXPECT_TRUE(IMB_ImageFile::read(path.c_str(), r, o)) << messages.text();
    return messages.text();
}
} // namespace

TEST(ImageFile, EveryFormatAndPackingRoundTripsThroughTheFileTypesThatHoldIt)
{
    Scratch dir;
    const std::pair<const char *, std::vector<IMB_DataFormat>> types[] = {
        {"exr", {IMB_FLOAT16, IMB_FLOAT32, IMB_INT32}},
        {"tif", {IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32}},
        {"png", {IMB_INT8, IMB_INT16}}};
    for (const auto &[ext, formats] : types)
        for (IMB_DataFormat f : formats)
            for (IMB_Packing p : theAllPackings)
            {
                SCOPED_TRACE(std::string(ext) + " " + IMBdataFormat(f) + " " + IMBpacking(p));
                const IMB_Raster r = randomRaster(p, f, 13, 5, unsigned(f * 8 + p));
                const std::string path = dir / (std::string("img.") + ext);
                ASSERT_TRUE(IMB_ImageFile::write(path.c_str(), r));
                IMB_Raster back;
                IMB_ImageReadOptions o;
                o.planar = isPlanar(p);
                readBack(path, back, o);
                EXPECT_EQ(back.getFormat(), f);
                EXPECT_EQ(back.getPacking(), p == PACK_DUAL ? PACK_UV : p);
                expectSamePixels(r, back);
            }
    EXPECT_EQ(dir.files(), (std::vector<std::string>{"img.exr", "img.png", "img.tif"}));
}

TEST(ImageFile, ColourTagsAndNamesTravelThroughTheFilesMetadata)
{
    Scratch dir;
    struct Case
    {
        IMB_ColorSpace tag;
        double gamma;
        const char *ocioName, *ext, *written;
    };
    const Case cases[] = {{IMB_CS_SRGB, 2.2, "", "png", "sRGB - Texture"},
                          {IMB_CS_LINEAR, 1.0, "", "exr", "Linear Rec.709 (sRGB)"},
                          {IMB_CS_CUSTOM_GAMMA, 1.8, "", "png", "Gamma1.8"},
                          {IMB_CS_OCIO, 1.0, "Raw", "exr", "Raw"}};
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.written);
        IMB_Raster r = randomRaster(PACK_RGB, c.ext == std::string("exr") ? IMB_FLOAT16 : IMB_INT8, 4, 4, 3);
        r.setColorSpace(c.tag, c.gamma);
        if (*c.ocioName)
            r.setOCIOColorSpace(c.ocioName);
        const std::string path = dir / (std::string("tag.") + c.ext);
        ASSERT_TRUE(IMB_ImageFile::write(path.c_str(), r));
        OIIO::ImageSpec desc;
        auto in = OIIO::ImageInput::create(path);
        ASSERT_TRUE(in && in->open(path, desc));
        EXPECT_EQ(desc.get_string_attribute("colorspace"), c.written);
        IMB_Raster back;
        readBack(path, back);
        EXPECT_EQ(back.getColorSpace(), c.tag);
        EXPECT_DOUBLE_EQ(back.getColorSpaceGamma(), c.tag == IMB_CS_CUSTOM_GAMMA ? 1.8 : back.getColorSpaceGamma());
        EXPECT_STREQ(back.getColorSpaceName().c_str(), c.tag == IMB_CS_CUSTOM_GAMMA ? "" : c.written);
    }
}

TEST(ImageFile, WindowsSubimagesAndMipLevelsAreKeptAndChosen)
{
    Scratch dir;
    const IMB_Raster r = randomRaster(PACK_RGBA, IMB_FLOAT32, 20, 10, 5);
    const IMB_ImageWindows windows{BAS_Rect<BAS_DimRectImpl>(-3, 7, 20, 10), BAS_Rect<BAS_DimRectImpl>(0, 0, 64, 48)};
    IMB_ImageWriteOptions wo;
    wo.windows = &windows;
    wo.compression = "piz";
    ASSERT_TRUE(IMB_ImageFile::write((dir / "win.exr").c_str(), r, wo));
    IMB_Raster back;
    IMB_ImageWindows got;
    ASSERT_TRUE(IMB_ImageFile::read((dir / "win.exr").c_str(), back, {}, &got));
    expectSamePixels(r, back);
    EXPECT_EQ(got.data, windows.data);
    EXPECT_EQ(got.display, windows.display);

    // A MIP-mapped texture (8x4, 4x2, 2x1, 1x1) made by OpenImageIO: level 1
    // is chosen by the options; level 4 is missing.
    const std::string mip = dir / "mip.exr";
    OIIO::ImageBuf ramp(OIIO::ImageSpec(8, 4, 1, OIIO::TypeDesc::HALF));
    for (int x = 0; x < 8; ++x)
        for (int y = 0; y < 4; ++y)
            ramp.setpixel(x, y, std::vector<float>{x < 4 ? 0.25f : 0.75f});
    ASSERT_TRUE(OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, ramp, mip, OIIO::ImageSpec()));
    IMB_ImageReadOptions level;
    level.miplevel = 1;
    readBack(mip, back, level);
    EXPECT_EQ(back.getXres(), 4);
    float v[4];
    back.getPixelValue(3, 1, v);
    EXPECT_EQ(v[0], 0.75f);
    level.miplevel = 4;
    BAS_ErrorCapture messages;
    EXPECT_FALSE(IMB_ImageFile::read(mip.c_str(), back, level));
    EXPECT_NE(messages.text().find("MIP level 4"), std::string::npos);
    EXPECT_EQ(back.getXres(), 4);
}

TEST(ImageFile, FailuresSayWhyAndLeaveTheRasterAndTheDestinationAlone)
{
    Scratch dir;
    const IMB_Raster good = randomRaster(PACK_RGBA, IMB_FLOAT16, 64, 64, 9);
    ASSERT_TRUE(IMB_ImageFile::write((dir / "good.exr").c_str(), good));
    const auto size = fs::file_size(dir / "good.exr");
    fs::copy_file(dir / "good.exr", dir / "cut.exr");
    fs::resize_file(dir / "cut.exr", size / 2);
    std::ofstream(dir / "junk.png") << "not a png at all";

    IMB_Raster kept = randomRaster(PACK_RGB, IMB_INT8, 3, 2, 1);
    const std::vector<unsigned char> before = bytesOfRaster(kept);
    for (const char *name : {"missing.exr", "cut.exr", "junk.png"})
    {
        BAS_ErrorCapture messages;
        EXPECT_FALSE(IMB_ImageFile::read((dir / name).c_str(), kept)) << name;
        // The file named, then OpenImageIO's reason.
        const std::string prefix = "cannot read image \"" + (dir / name) + "\": ";
        EXPECT_EQ(messages.text().rfind(prefix, 0), 0u) << messages.text();
        EXPECT_GT(messages.text().size(), prefix.size() + 1) << messages.text();
        EXPECT_EQ(messages.text().find("gave no reason"), std::string::npos) << messages.text();
        EXPECT_EQ(bytesOfRaster(kept), before);
        EXPECT_EQ(kept.getXres(), 3);
    }

    // Writes that fail leave nothing at the destination, not even a
    // temporary file.
    const IMB_ImageWindows wrongSize{BAS_Rect<BAS_DimRectImpl>(0, 0, 5, 5), BAS_Rect<BAS_DimRectImpl>(0, 0, 5, 5)};
    IMB_ImageWriteOptions wo;
    wo.windows = &wrongSize;
    BAS_ErrorCapture messages;
    EXPECT_FALSE(IMB_ImageFile::write((dir / "nodir/out.exr").c_str(), good));
    EXPECT_FALSE(IMB_ImageFile::write((dir / "windows.exr").c_str(), good, wo));
    EXPECT_FALSE(IMB_ImageFile::write((dir / "empty.exr").c_str(), IMB_Raster()));
    EXPECT_FALSE(IMB_ImageFile::write((dir / "out.unknownext").c_str(), good));
    EXPECT_NE(messages.text().find("windows.exr"), std::string::npos);
    // The two that OpenImageIO refused carry its reason.
    for (const char *name : {"nodir/out.exr", "out.unknownext"})
    {
        const std::string prefix = "cannot write image \"" + (dir / name) + "\": ";
        const std::size_t at = messages.text().find(prefix);
        ASSERT_NE(at, std::string::npos) << messages.text();
        const std::size_t reason = at + prefix.size();
        EXPECT_GT(messages.text().find('\n', reason), reason) << messages.text();
    }
    EXPECT_EQ(messages.text().find("gave no reason"), std::string::npos) << messages.text();
    EXPECT_EQ(dir.files(), (std::vector<std::string>{"cut.exr", "good.exr", "junk.png"}));
}
