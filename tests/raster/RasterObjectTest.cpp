// IMB_Raster: construction, sizing and allocation, ownership, shape and
// plain properties.
#include <IMB/platform/BAS_ProxyPointer.h>
#include "RasterTestUtil.h"

#include <cstdlib>
#include <memory>
#include <sstream>

// The allocation-failure tests ask for absurd sizes; under AddressSanitizer
// that must give null (as the system allocator does) rather than abort.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace
{
using namespace rastertest;

// Texture callbacks that record what the raster asked, set while it lives.
struct TextureHost
{
    static inline std::vector<void *> deleted;
    static inline bool alive = true;
    TextureHost()
    {
        deleted.clear();
        alive = true;
        IMB_IsTexture_cb = [](void *) { return alive; };
        IMB_DeleteTextures_cb = [](void *t) { deleted.push_back(t); };
    }
    ~TextureHost()
    {
        IMB_IsTexture_cb = nullptr;
        IMB_DeleteTextures_cb = nullptr;
    }
};

// A raster whose allocation-failure hook records what it was asked for and
// can hand over a block of its own.
class HookedRaster : public IMB_Raster
{
public:
    HookedRaster(void *give) : myGive(give)
    {
        setPacking(PACK_SINGLE);
        setFormat(IMB_INT8);
        setRes(int64(1) << 22, int64(1) << 26); // 256 TiB
        init();
    }
    int64 asked = -1;
    void *myGive;

protected:
    void attemptRealloc(int64 bytes) override
    {
        asked = bytes;
        myRaster = myGive;
    }
};

IMB_Raster makeDecorated()
{
    IMB_Raster r = numbered(PACK_RGBA, IMB_INT16, 3, 2);
    r.setRotation(90);
    r.setDataWindow(BAS_DimRect(1, 2, 3, 4));
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 1.8);
    r.setOCIOParms("ACEScg", "sRGB", "Film");
    r.setBWPoints(0.1f, 0.9f);
    return r;
}

// Everything a copy takes but the pixels.
auto contentOf(const IMB_Raster &r)
{
    float b, w;
    r.getBWPoints(b, w);
    return std::make_tuple(r.getFormat(), r.getPacking(), r.getXres(), r.getYres(), r.getRotation(), r.getDataWindow(),
                           r.getColorSpace(), r.getColorSpaceGamma(), r.getColorSpaceName().toStdString(),
                           r.getOCIODisplay().toStdString(), r.getOCIOView().toStdString(), b, w);
}
} // namespace

// ---------------------------------------------------------------- sizing, every shape

RASTER_SHAPE_SUITE(RasterShape);

TEST_P(RasterShape, StrideSizeAndBlockFollowTheLayoutRuleAndTheClearFlagZeroes)
{
    const auto [p, f] = GetParam();
    for (auto [x, y] : {std::pair<int64, int64>{1, 1}, {7, 3}, {10, 4}, {33, 1}})
    {
        {
            // Dirty the pool of freed blocks first so a zero is not an accident.
            IMB_Raster dirty(p, f, x, y);
            std::memset(dirty.getPixels(), 0x5a, static_cast<std::size_t>(dirty.getSize()));
        }
        const int clear = x != 10; // PACK_DUAL blocks are zeroed even without the flag
        IMB_Raster r(p, f, x, y, clear);
        const int64 stride = bytesOf(f) * x * stepOf(p), size = stride * y * planesOf(p);
        EXPECT_EQ(std::make_tuple(r.getStride(), r.getSize(), r.getNonInterleavedSize(), r.getNumPixels()),
                  std::make_tuple(stride, size, stride * y, x * y))
            << x << "x" << y;
        EXPECT_EQ(std::make_tuple(r.getNumChannels(), r.isInterleaved(), r.hasAlpha()),
                  std::make_tuple(imbDefinesPComp[p], !isPlanar(p), p == PACK_RGBA || p == PACK_RGBA_NI));
        ASSERT_TRUE(r.isValid());
        EXPECT_EQ(static_cast<char *>(r.getPixels()) - static_cast<char *>(r.getRawPixels()), 16);
        EXPECT_EQ(std::make_pair(r.getMemoryUsage(false), r.getMemoryUsage(true)),
                  std::make_pair(size, size + static_cast<int64>(sizeof(IMB_Raster))));
        if (clear || p == PACK_DUAL)
            EXPECT_EQ(bytesOfRaster(r), std::vector<unsigned char>(size_t(size), 0)) << clear;
        // A spare scanline and 16 bytes of slack: under AddressSanitizer this
        // catches a block that is too short.
        std::memset(static_cast<char *>(r.getPixels()) + size, 0xab, static_cast<std::size_t>(stride + 16));
    }
}

// ---------------------------------------------------------------- impossible shapes, allocation

TEST(RasterObject, ShapeSettersFreeTheMemoryAndImpossibleShapesAllocateNothing)
{
    for (auto [p, f, x, y] : {std::tuple<int, int, int64, int64>{PACK_RGB, IMB_INT8, 0, 10},
                              {PACK_RGB, IMB_INT8, 10, -1}, {PACK_RGB, IMB_MAX_DATA_FORMAT, 4, 4},
                              {PACK_UNKNOWN, IMB_INT8, 4, 4}, {8, IMB_INT8, 4, 4},
                              {PACK_RGBA_NI, IMB_INT32, int64(1) << 40, int64(1) << 30}}) // past 64 bits
    {
        IMB_Raster r(IMB_Packing(p), IMB_DataFormat(f), x, y);
        EXPECT_EQ(r.isValid(), 0) << p << " " << f << " " << x << "x" << y;
    }
    // Shape setters free the memory; init() allocates for the new shape,
    // and nothing for an impossible one, leaving the stride as it was.
    IMB_Raster r(PACK_RGB, IMB_INT8, 4, 4);
    r.setFormat(IMB_INT16);
    EXPECT_EQ(std::make_pair(r.isValid(), r.getSize()), std::make_pair(0, int64(0)));
    r.init();
    EXPECT_EQ(r.getSize(), 4 * 4 * 3 * 2);
    r.setPacking(PACK_RGBA);
    EXPECT_EQ(r.isValid(), 0);
    r.init();
    r.setDataWindow(BAS_DimRect(0, 0, 2, 2));
    r.setRes(8, 2); // also clears the data window
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect());
    EXPECT_EQ(r.getStride(), 4 * 4 * 2); // stride stays until the next init
    r.init();
    EXPECT_EQ(r.getStride(), 8 * 4 * 2);
    r.setFormat(IMB_MAX_DATA_FORMAT);
    r.init();
    EXPECT_EQ(std::make_tuple(r.isValid(), r.getStride(), r.getSize()), std::make_tuple(0, int64(64), int64(0)));
}

TEST(RasterObject, AllocationFailureAsksTheHookForTheFullBlockAndUsesWhatItGives)
{
    const int64 x = int64(1) << 22, y = int64(1) << 26;
    HookedRaster failing(nullptr);
    EXPECT_EQ(failing.asked, x + x * y + 32);
    EXPECT_EQ(failing.isValid(), 0);
    void *block = std::malloc(64);
    HookedRaster cured(block);
    ASSERT_EQ(cured.isValid(), 1);
    EXPECT_EQ(cured.getPixels(), static_cast<char *>(block) + 16);
    cured.setRaster(nullptr, false, false); // frees `block`, which the raster owns
}

// ---------------------------------------------------------------- defaults, copies, reset

TEST(RasterObject, FreshRasterIsUnconfiguredAndRegisteredUntilDestroyed)
{
    auto a = std::make_unique<IMB_Raster>();
    IMB_Raster &r = *a;
    EXPECT_EQ(contentOf(r), std::make_tuple(IMB_MAX_DATA_FORMAT, PACK_UNKNOWN, int64(0), int64(0), 0, BAS_DimRect(),
                                            IMB_CS_UNKNOWN, 1.0, "", "", "", 0.0f, 1.0f));
    EXPECT_EQ(std::make_tuple(r.getStride(), r.getSize(), r.isValid(), r.getNumChannels(), r.getPixels()),
              std::make_tuple(int64(0), int64(0), 0, 0, nullptr));
    EXPECT_FALSE(r.getDataWritten() || r.hasDataWindow() || r.hasAlpha());
    EXPECT_TRUE(r.isInterleaved()); // the unset packing counts as interleaved

    IMB_Raster other, copy(other);
    EXPECT_NE(a->getProxyIndex(), other.getProxyIndex());
    EXPECT_NE(copy.getProxyIndex(), other.getProxyIndex());
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(a->getProxyIndex()), a.get());
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(other.getProxyIndex()), &other);
    const int index = a->getProxyIndex();
    a.reset();
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(index), nullptr);
}

TEST(RasterObject, CopiesTakeShapeTagsNamesPointsAndPixelsButNoTexture)
{
    IMB_Raster src = makeDecorated();
    src.setTextureID(&src);
    src.setManagesOwnTextureID(true);
    IMB_Raster made(src), copied(PACK_SINGLE, IMB_FLOAT32, 100, 100), assigned, props(PACK_RGB, IMB_INT8, 8, 8);
    copied.copy(src);
    assigned = src;
    assigned = assigned; // self-assignment changes nothing
    for (IMB_Raster *r : {&made, &copied, &assigned})
    {
        EXPECT_EQ(contentOf(*r), contentOf(src));
        ASSERT_TRUE(r->isValid());
        EXPECT_NE(r->getPixels(), src.getPixels());
        EXPECT_EQ(bytesOfRaster(*r), bytesOfRaster(src));
        EXPECT_TRUE(r->getDataWritten());
        EXPECT_EQ(r->getMemoryUsage(false), src.getSize()); // owns its copy
        EXPECT_FALSE(r->managesOwnTextureID());
    }
    TextureHost host;
    EXPECT_EQ(made.getTextureID(), nullptr);
    src.setTextureID(nullptr);

    props.copyProperties(src);
    EXPECT_EQ(contentOf(props), contentOf(src));
    EXPECT_EQ(props.isValid(), 0);
    props.init();
    EXPECT_EQ(props.getSize(), src.getSize());
}

TEST(RasterObject, CropConstructorIsAnExtractOfTheInclusiveRectangle)
{
    IMB_Raster src = numbered(PACK_RGB_NI, IMB_INT16, 4, 3);
    for (auto [x1, y1, x2, y2] : {std::tuple<int64, int64, int64, int64>{1, 1, 3, 2}, {3, 2, 4, 3}, {2, 2, 1, 1}})
    {
        IMB_Raster crop(src, x1, y1, x2, y2), want;
        want.extract(src, x1, y1, x2, y2);
        EXPECT_EQ(std::make_tuple(crop.getXres(), crop.getYres(), crop.isValid()),
                  std::make_tuple(want.getXres(), want.getYres(), want.isValid()));
        EXPECT_EQ(bytesOfRaster(crop), bytesOfRaster(want));
    }
}

TEST(RasterObject, ResetKeepsShapeUnlessFullAndAlwaysTheNamesTagWindowAndPoints)
{
    IMB_Raster r = makeDecorated();
    r.reset(0);
    EXPECT_EQ(std::make_tuple(r.isValid(), r.getDataWritten(), r.getXres(), r.getPacking()),
              std::make_tuple(0, false, int64(3), PACK_RGBA));
    r.init();
    EXPECT_EQ(r.isValid(), 1);

    r.reset(1);
    EXPECT_EQ(std::make_tuple(r.isValid(), r.getPacking(), r.getFormat(), r.getRotation()),
              std::make_tuple(0, PACK_UNKNOWN, IMB_MAX_DATA_FORMAT, 0));
    EXPECT_EQ(std::make_tuple(r.getXres(), r.getYres(), r.getStride(), r.getSize()),
              std::make_tuple(int64(0), int64(0), int64(0), int64(0)));
    float b, w;
    r.getBWPoints(b, w);
    EXPECT_EQ(std::make_tuple(r.getColorSpace(), r.getColorSpaceGamma(), b, w),
              std::make_tuple(IMB_CS_OCIO, 1.8, 0.1f, 0.9f));
    EXPECT_EQ(r.getColorSpaceName(), "ACEScg");
    EXPECT_EQ(r.getOCIOView(), "Film");
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect(1, 2, 3, 4));
}

// ---------------------------------------------------------------- ownership

TEST(RasterObject, StealHandsOverTheBlockWithItsLeadAndBorrowedMemoryIsNeitherCountedNorFreed)
{
    // Components are renderable for plane packings or an own block.
    IMB_Raster owner = numbered(PACK_RGB, IMB_INT8, 4, 2);
    EXPECT_EQ(owner.areComponentsRenderable(), 1);
    void *pixels = owner.getPixels();
    void *block = owner.steal();
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(static_cast<char *>(pixels) - static_cast<char *>(block), 16);
    // Still readable, no longer owned.
    EXPECT_EQ(std::make_tuple(owner.getPixels(), owner.getMemoryUsage(false), owner.steal()),
              std::make_tuple(pixels, int64(0), nullptr));
    IMB_Raster taker(PACK_RGB, IMB_INT8, 4, 2, 0, 0);
    taker.setRaster(block, true, true);
    EXPECT_EQ(std::make_tuple(taker.getPixels(), taker.getSize(), taker.getMemoryUsage(false)),
              std::make_tuple(pixels, int64(24), int64(24)));
    EXPECT_EQ(bytesOfRaster(taker), bytesOfRaster(numbered(PACK_RGB, IMB_INT8, 4, 2)));

    std::vector<unsigned char> mem(64, 9);
    {
        IMB_Raster r(PACK_RGBA, IMB_INT8, 4, 4, 0, 0), planes(PACK_SINGLE, IMB_INT8, 8, 8, 0, 0);
        r.setRaster(mem.data(), false, false);
        planes.setRaster(mem.data(), false, false);
        EXPECT_EQ(std::make_pair(r.areComponentsRenderable(), planes.areComponentsRenderable()), std::make_pair(0, 1));
        EXPECT_EQ(std::make_tuple(r.getPixels(), r.getSize(), r.getMemoryUsage(true), r.steal()),
                  std::make_tuple(static_cast<void *>(mem.data()), int64(64), int64(sizeof(IMB_Raster)), nullptr));
        r.reset(0);
        EXPECT_EQ(r.isValid(), 0);
    }
    EXPECT_EQ(mem[63], 9); // still ours and intact
}

TEST(RasterObject, EveryOperationOnARasterWithoutMemoryDoesNothing)
{
    for (auto [p, f] : {std::pair{PACK_RGBA, IMB_INT8}, std::pair{PACK_RGB_NI, IMB_FLOAT32}})
    {
        IMB_Raster r(p, f, 4, 4, 0, 0), eight;
        const float rgba[4] = {1, 1, 1, 1};
        float out[4] = {-1, -1, -1, -1};
        r.clear(rgba);
        r.clear(nullptr);
        r.clearNormal(rgba);
        r.flipVertical();
        r.setPixelValue(0, 0, rgba);
        r.getPixelValue(0, 0, out);
        EXPECT_EQ(out[0], -1.0f);
        EXPECT_TRUE(r.premultiply() && r.unpremultiply());
        r.adjustSaturation(0.5f);
        EXPECT_FALSE(r.getRange(out, out) || r.convert8Bit(eight) || r.streakEdges(BAS_DimRect(0, 0, 2, 2)));
        std::ostringstream os;
        EXPECT_EQ(r.save(os, 1) + r.save(os, 0), 0);
        EXPECT_TRUE(os.str().empty());
        EXPECT_EQ(r.isValid(), 0);
    }
    IMB_Raster zeroWidth(PACK_RGBA, IMB_FLOAT32, 0, 4), noMemory(PACK_RGBA, IMB_FLOAT32, 4, 4, 0, 0);
    EXPECT_TRUE(zeroWidth.premultiply() && zeroWidth.unpremultiply() && zeroWidth.clampAlpha() &&
                noMemory.clampAlpha());
}

// ---------------------------------------------------------------- properties

TEST(RasterObject, CorrectedResolutionSwapsForOddMultiplesOfNinety)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 640, 480, 0, 0);
    for (int rot : {90, 270, -90, -270, 450, 0, 180, -180, 360, 45, 135, 1})
    {
        r.setRotation(rot);
        const bool swapped = rot % 90 == 0 && (rot / 90) % 2 != 0;
        EXPECT_EQ(r.isRotated(), rot != 0);
        EXPECT_EQ(r.getCorrectedXres(), swapped ? 480 : 640) << rot;
        EXPECT_EQ(r.getCorrectedYres(), swapped ? 640 : 480) << rot;
    }
}

TEST(RasterObject, DataWindowWithNegativeSizeIsIgnoredAndZeroIsNoWindow)
{
    IMB_Raster r;
    r.setDataWindow(BAS_DimRect(1, 2, 30, 40));
    EXPECT_TRUE(r.hasDataWindow());
    r.setDataWindow(BAS_DimRect(0, 0, -1, 5));
    r.setDataWindow(BAS_DimRect(0, 0, 5, -1));
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect(1, 2, 30, 40));
    for (const BAS_DimRect &zero : {BAS_DimRect(7, 7, 0, 5), BAS_DimRect(7, 7, 5, 0)})
    {
        r.setDataWindow(zero);
        EXPECT_EQ(r.getDataWindow(), zero);
        EXPECT_FALSE(r.hasDataWindow());
    }
}

TEST(RasterObject, ColourTagSetsTheGammaByTagAndANonEmptyNameSetsTheTag)
{
    IMB_Raster r;
    // Each step: tag and gamma given, gamma expected.
    const std::tuple<int, double, double> steps[] = {{IMB_CS_CUSTOM_GAMMA, 1.8, 1.8}, {IMB_CS_OCIO, 3.0, 1.8},
                                                     {IMB_CS_UNKNOWN, 3.0, 1.8},      {IMB_CS_GAMMA2_2, 5.0, 2.2},
                                                     {IMB_CS_SRGB, 5.0, 2.2},         {IMB_CS_REC709, 5.0, 2.2},
                                                     {IMB_CS_LINEAR, 5.0, 1.0},       {42, 5.0, 1.0}};
    for (auto [cs, gamma, want] : steps)
    {
        r.setColorSpace(IMB_ColorSpace(cs), gamma);
        EXPECT_EQ(std::make_pair(int(r.getColorSpace()), r.getColorSpaceGamma()), std::make_pair(cs, want));
    }
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 2.4);
    r.setOCIOColorSpace("ACES2065-1");
    EXPECT_EQ(std::make_tuple(r.getColorSpace(), r.getColorSpaceGamma(), r.getColorSpaceName().toStdString()),
              std::make_tuple(IMB_CS_OCIO, 2.4, "ACES2065-1"));
    r.setColorSpace(IMB_CS_SRGB);
    r.setOCIOColorSpace(""); // clears the name, keeps the tag
    EXPECT_EQ(r.getColorSpace(), IMB_CS_SRGB);
    EXPECT_TRUE(r.getColorSpaceName().isEmpty());
    r.setOCIODisplayView("sRGB", "Raw");
    EXPECT_EQ(r.getOCIODisplay().toStdString() + "/" + r.getOCIOView().toStdString(), "sRGB/Raw");
}

TEST(RasterObject, TextureHandleIsReportedOnlyWhileTheHostSaysItLives)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 2);
    int handle = 0;
    r.setTextureID(&handle);
    EXPECT_EQ(r.getTextureID(), nullptr); // no callbacks set
    {
        TextureHost host;
        EXPECT_EQ(r.getTextureID(), &handle);
        TextureHost::alive = false;
        EXPECT_EQ(r.getTextureID(), nullptr);
        r.clearTextureID(); // dead: forgotten, not deleted
        EXPECT_TRUE(TextureHost::deleted.empty());
        TextureHost::alive = true;
        EXPECT_EQ(r.getTextureID(), nullptr);

        r.setTextureID(&handle);
        r.setFormat(IMB_INT16); // freeing the memory deletes a live texture
        EXPECT_EQ(TextureHost::deleted, std::vector<void *>{&handle});
        EXPECT_EQ(r.getTextureID(), nullptr);

        r.init();
        r.setTextureID(&handle);
        EXPECT_NE(r.steal(), nullptr);
        EXPECT_EQ(TextureHost::deleted.size(), 2u);
        std::free(r.getRawPixels());
        r.setRaster(nullptr, false, false);
    }
    r.setTextureID(&handle);
    r.clearTextureID(); // no callbacks: only forgotten
    EXPECT_EQ(r.getTextureID(), nullptr);
}
