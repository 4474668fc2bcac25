// IMB_Raster: construction, sizing and allocation, ownership, shape and
// plain properties.
#include <IMB/IMB.h>
#include <IMB/platform/BAS_ProxyPointer.h>
#include "RasterTestUtil.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

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

// Texture callbacks that record what the raster asked.
struct TextureLog
{
    static inline std::vector<void *> deleted;
    static inline bool alive = true;
    static bool isTexture(void *) { return alive; }
    static void deleteTexture(void *t) { deleted.push_back(t); }
};

struct TextureCallbacks
{
    TextureCallbacks(bool alive)
    {
        TextureLog::deleted.clear();
        TextureLog::alive = alive;
        IMB_IsTexture_cb = &TextureLog::isTexture;
        IMB_DeleteTextures_cb = &TextureLog::deleteTexture;
    }
    ~TextureCallbacks()
    {
        IMB_IsTexture_cb = nullptr;
        IMB_DeleteTextures_cb = nullptr;
    }
};
} // namespace

// ---------------------------------------------------------------- sizing, every shape

class RasterShape : public ::testing::TestWithParam<std::tuple<IMB_Packing, IMB_DataFormat>>
{
};

TEST_P(RasterShape, StrideAndSizeFollowTheLayoutRule)
{
    const auto [p, f] = GetParam();
    for (auto [x, y] : {std::pair<int64, int64>{1, 1}, {7, 3}, {10, 4}, {33, 1}})
    {
        IMB_Raster r(p, f, x, y);
        const int64 stride = bytesOf(f) * x * stepOf(p), size = stride * y * planesOf(p);
        EXPECT_EQ(r.getStride(), stride) << x << "x" << y;
        EXPECT_EQ(r.getSize(), size) << x << "x" << y;
        EXPECT_EQ(r.getNonInterleavedSize(), stride * y);
        EXPECT_EQ(r.getNumPixels(), x * y);
        EXPECT_EQ(r.getNumChannels(), imbDefinesPComp[p]);
        ASSERT_TRUE(r.isValid());
        EXPECT_EQ(static_cast<char *>(r.getPixels()) - static_cast<char *>(r.getRawPixels()), 16);
        EXPECT_EQ(r.getMemoryUsage(false), size);
        EXPECT_EQ(r.getMemoryUsage(true), size + static_cast<int64>(sizeof(IMB_Raster)));
    }
}

TEST_P(RasterShape, OwnedBlockHasASpareScanlineAndSlackAfterThePixels)
{
    // Under AddressSanitizer this catches a block that is too short.
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 9, 5);
    ASSERT_TRUE(r.isValid());
    char *end = static_cast<char *>(r.getPixels()) + r.getSize();
    std::memset(end, 0xab, static_cast<std::size_t>(r.getStride() + 16));
    std::memset(r.getRawPixels(), 0xcd, 16);
    EXPECT_EQ(static_cast<unsigned char>(end[r.getStride() + 15]), 0xab);
}

TEST_P(RasterShape, ClearFlagOfTheConstructorZeroesThePixels)
{
    const auto [p, f] = GetParam();
    // The dual packing is zeroed even without the flag.
    for (int clear : {0, 1})
    {
        if (!clear && p != PACK_DUAL)
            continue;
        // Dirty the pool of freed blocks first so a zero is not an accident.
        {
            IMB_Raster dirty(p, f, 6, 6);
            std::memset(dirty.getPixels(), 0x5a, static_cast<std::size_t>(dirty.getSize()));
        }
        IMB_Raster r(p, f, 6, 6, clear);
        const auto *bytes = static_cast<const unsigned char *>(r.getPixels());
        for (int64 i = 0; i < r.getSize(); ++i)
            ASSERT_EQ(bytes[i], 0) << clear << " " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(AllShapes, RasterShape, RASTER_ALL_SHAPES, shapeName);

// ---------------------------------------------------------------- documented shapes

TEST(RasterObject, DualPackingStoresThreeComponentsAndReadsZeroAfterInit)
{
    IMB_Raster r(PACK_DUAL, IMB_INT8, 5, 2, 0, 0);
    EXPECT_FALSE(r.isValid());
    r.init();
    EXPECT_EQ(r.getStride(), 15);
    EXPECT_EQ(r.getSize(), 30);
    for (int64 y = 0; y < 2; ++y)
        for (int64 x = 0; x < 5; ++x)
        {
            float v[2] = {-1, -1};
            r.getPixelValue(x, y, v);
            EXPECT_EQ(v[0], 0.0f);
            EXPECT_EQ(v[1], 0.0f);
        }
}

TEST(RasterObject, ImpossibleShapesAllocateNothing)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 4, 4, 0, 0);
    r.setRes(0, 10);
    r.init();
    EXPECT_EQ(r.isValid(), 0);
    r.setRes(10, -1);
    r.init();
    EXPECT_EQ(r.isValid(), 0);

    IMB_Raster badFormat(PACK_RGB, IMB_MAX_DATA_FORMAT, 4, 4);
    EXPECT_EQ(badFormat.isValid(), 0);
    IMB_Raster badPacking(PACK_UNKNOWN, IMB_INT8, 4, 4);
    EXPECT_EQ(badPacking.isValid(), 0);
    IMB_Raster packing8(static_cast<IMB_Packing>(8), IMB_INT8, 4, 4);
    EXPECT_EQ(packing8.isValid(), 0);
    IMB_Raster overflow(PACK_RGBA_NI, IMB_INT32, int64(1) << 40, int64(1) << 30); // past 64 bits
    EXPECT_EQ(overflow.isValid(), 0);
}

TEST(RasterObject, ImpossibleShapeKeepsTheEarlierStrideAndSize)
{
    IMB_Raster r(PACK_RGBA, IMB_INT8, 4, 4);
    const int64 stride = r.getStride();
    r.setFormat(IMB_MAX_DATA_FORMAT); // frees the pixels, size becomes 0
    r.init();
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getStride(), stride);
    EXPECT_EQ(r.getSize(), 0);
}

namespace
{
// A raster whose allocation-failure hook records what it was asked for and
// can hand over a block of its own.
class HookedRaster : public IMB_Raster
{
public:
    HookedRaster(void *give) : myGive(give) {}
    int64 asked = -1;
    void *myGive;

protected:
    void attemptRealloc(int64 bytes) override
    {
        asked = bytes;
        myRaster = myGive;
    }
};
} // namespace

TEST(RasterObject, AllocationFailureCallsTheHookWithTheFullBlockSize)
{
    HookedRaster r(nullptr);
    r.setPacking(PACK_SINGLE);
    r.setFormat(IMB_INT8);
    const int64 x = int64(1) << 22, y = int64(1) << 26; // 256 TiB
    r.setRes(x, y);
    r.init();
    EXPECT_EQ(r.asked, x + x * y + 32);
    EXPECT_EQ(r.isValid(), 0);
}

TEST(RasterObject, BlockFromTheHookIsUsedWithTheLibraryLead)
{
    void *block = std::malloc(64);
    HookedRaster r(block);
    r.setPacking(PACK_SINGLE);
    r.setFormat(IMB_INT8);
    r.setRes(int64(1) << 22, int64(1) << 26);
    r.init();
    ASSERT_EQ(r.isValid(), 1);
    EXPECT_EQ(r.getRawPixels(), block);
    EXPECT_EQ(r.getPixels(), static_cast<char *>(block) + 16);
    r.setRaster(nullptr, false, false); // frees `block`, which the raster owns
}

// ---------------------------------------------------------------- defaults, copies

TEST(RasterObject, FreshRasterIsUnconfigured)
{
    IMB_Raster r;
    EXPECT_EQ(r.getFormat(), IMB_MAX_DATA_FORMAT);
    EXPECT_EQ(r.getPacking(), PACK_UNKNOWN);
    EXPECT_EQ(r.getColorSpace(), IMB_CS_UNKNOWN);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.0);
    float b = -1, w = -1;
    r.getBWPoints(b, w);
    EXPECT_EQ(b, 0.0f);
    EXPECT_EQ(w, 1.0f);
    EXPECT_EQ(r.getXres(), 0);
    EXPECT_EQ(r.getStride(), 0);
    EXPECT_EQ(r.getSize(), 0);
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getPixels(), nullptr);
    EXPECT_FALSE(r.getDataWritten());
    EXPECT_FALSE(r.hasDataWindow());
    EXPECT_TRUE(r.getColorSpaceName().isEmpty());
    EXPECT_EQ(r.getNumChannels(), 0);
    EXPECT_TRUE(r.isInterleaved()); // the unset packing counts as interleaved
    EXPECT_FALSE(r.hasAlpha());
}

TEST(RasterObject, EachRasterHasItsOwnProxyIndexUntilDestroyed)
{
    auto a = std::make_unique<IMB_Raster>();
    IMB_Raster b;
    EXPECT_NE(a->getProxyIndex(), b.getProxyIndex());
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(a->getProxyIndex()), a.get());
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(b.getProxyIndex()), &b);
    IMB_Raster copy(b);
    EXPECT_NE(copy.getProxyIndex(), b.getProxyIndex());
    const int index = a->getProxyIndex();
    a.reset();
    EXPECT_EQ(BAS_ProxyPointer::lookupProxy(index), nullptr);
}

namespace
{
IMB_Raster makeDecorated()
{
    IMB_Raster r(PACK_RGBA, IMB_INT16, 3, 2);
    for (int64 i = 0; i < r.getSize(); ++i)
        static_cast<unsigned char *>(r.getPixels())[i] = static_cast<unsigned char>(i * 7 + 1);
    r.setRotation(90);
    r.setDataWindow(BAS_DimRect(1, 2, 3, 4));
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 1.8);
    r.setOCIOParms("ACEScg", "sRGB", "Film");
    r.setBWPoints(0.1f, 0.9f);
    return r;
}

void expectSameContent(const IMB_Raster &a, const IMB_Raster &b)
{
    EXPECT_EQ(a.getFormat(), b.getFormat());
    EXPECT_EQ(a.getPacking(), b.getPacking());
    EXPECT_EQ(a.getXres(), b.getXres());
    EXPECT_EQ(a.getYres(), b.getYres());
    EXPECT_EQ(a.getRotation(), b.getRotation());
    EXPECT_EQ(a.getDataWindow(), b.getDataWindow());
    EXPECT_EQ(a.getColorSpace(), b.getColorSpace());
    EXPECT_EQ(a.getColorSpaceGamma(), b.getColorSpaceGamma());
    EXPECT_EQ(a.getColorSpaceName(), b.getColorSpaceName());
    EXPECT_EQ(a.getOCIODisplay(), b.getOCIODisplay());
    EXPECT_EQ(a.getOCIOView(), b.getOCIOView());
    float ab, aw, bb, bw;
    a.getBWPoints(ab, aw);
    b.getBWPoints(bb, bw);
    EXPECT_EQ(ab, bb);
    EXPECT_EQ(aw, bw);
}
} // namespace

TEST(RasterObject, CopyConstructorTakesShapeTagsNamesPointsAndPixels)
{
    IMB_Raster src = makeDecorated();
    src.setTextureID(&src);
    src.setManagesOwnTextureID(true);
    IMB_Raster c(src);
    expectSameContent(c, src);
    ASSERT_TRUE(c.isValid());
    EXPECT_NE(c.getPixels(), src.getPixels());
    EXPECT_EQ(std::memcmp(c.getPixels(), src.getPixels(), static_cast<std::size_t>(src.getSize())), 0);
    EXPECT_TRUE(c.getDataWritten());
    EXPECT_EQ(c.getMemoryUsage(false), src.getSize()); // owns its copy
    EXPECT_FALSE(c.managesOwnTextureID());
    TextureCallbacks cb(true);
    EXPECT_EQ(c.getTextureID(), nullptr);
    src.setTextureID(nullptr);
}

TEST(RasterObject, CopyAndAssignmentReplaceEverythingAndCopyPropertiesLeavesNoMemory)
{
    IMB_Raster src = makeDecorated();
    IMB_Raster c(PACK_SINGLE, IMB_FLOAT32, 100, 100), d, props(PACK_RGB, IMB_INT8, 8, 8);
    c.copy(src);
    d = src;
    for (IMB_Raster *r : {&c, &d})
    {
        expectSameContent(*r, src);
        EXPECT_EQ(std::memcmp(r->getPixels(), src.getPixels(), static_cast<std::size_t>(src.getSize())), 0);
    }
    EXPECT_TRUE(c.getDataWritten());
    d = d; // self-assignment changes nothing
    EXPECT_EQ(std::memcmp(d.getPixels(), src.getPixels(), static_cast<std::size_t>(src.getSize())), 0);

    props.copyProperties(src);
    expectSameContent(props, src);
    EXPECT_EQ(props.isValid(), 0);
    props.init();
    EXPECT_EQ(props.getSize(), src.getSize());
}

TEST(RasterObject, CropConstructorTakesTheInclusiveRectangle)
{
    IMB_Raster src(PACK_SINGLE, IMB_INT8, 4, 3);
    for (int64 y = 0; y < 3; ++y)
        for (int64 x = 0; x < 4; ++x)
            *static_cast<uint8 *>(src.getPixel(x, y)) = static_cast<uint8>(10 * y + x);
    src.setColorSpace(IMB_CS_SRGB);
    IMB_Raster crop(src, 1, 1, 3, 2);
    EXPECT_EQ(crop.getXres(), 3);
    EXPECT_EQ(crop.getYres(), 2);
    EXPECT_EQ(crop.getColorSpace(), IMB_CS_SRGB);
    EXPECT_TRUE(crop.getDataWritten());
    for (int64 y = 0; y < 2; ++y)
        for (int64 x = 0; x < 3; ++x)
            EXPECT_EQ(*static_cast<const uint8 *>(crop.getPixel(x, y)), 10 * (y + 1) + x + 1);

    IMB_Raster outside(src, 3, 2, 4, 3); // three of four pixels outside
    EXPECT_EQ(*static_cast<const uint8 *>(outside.getPixel(0, 0)), 23);
    EXPECT_EQ(*static_cast<const uint8 *>(outside.getPixel(1, 0)), 0);
    EXPECT_EQ(*static_cast<const uint8 *>(outside.getPixel(0, 1)), 0);
    EXPECT_EQ(*static_cast<const uint8 *>(outside.getPixel(1, 1)), 0);

    IMB_Raster empty(src, 2, 2, 1, 1);
    EXPECT_EQ(empty.isValid(), 0);
}

TEST(RasterObject, ResetKeepsShapeUnlessFull)
{
    IMB_Raster r = makeDecorated();
    r.setDataWritten(true);
    r.reset(0);
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_FALSE(r.getDataWritten());
    EXPECT_EQ(r.getXres(), 3);
    EXPECT_EQ(r.getPacking(), PACK_RGBA);
    r.init();
    EXPECT_EQ(r.isValid(), 1);

    r.reset(1);
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getPacking(), PACK_UNKNOWN);
    EXPECT_EQ(r.getFormat(), IMB_MAX_DATA_FORMAT);
    EXPECT_EQ(r.getXres(), 0);
    EXPECT_EQ(r.getYres(), 0);
    EXPECT_EQ(r.getStride(), 0);
    EXPECT_EQ(r.getSize(), 0);
    EXPECT_EQ(r.getRotation(), 0);
    // Names, tag, data window and points survive a full reset.
    EXPECT_EQ(r.getColorSpaceName(), "ACEScg");
    EXPECT_EQ(r.getOCIOView(), "Film");
    EXPECT_EQ(r.getColorSpace(), IMB_CS_OCIO);
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect(1, 2, 3, 4));
    float b, w;
    r.getBWPoints(b, w);
    EXPECT_EQ(b, 0.1f);
}

TEST(RasterObject, ShapeSettersFreeTheMemory)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 4, 4);
    r.setFormat(IMB_INT16);
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getSize(), 0);
    r.init();
    EXPECT_EQ(r.getSize(), 4 * 4 * 3 * 2);
    r.setPacking(PACK_RGBA);
    EXPECT_EQ(r.isValid(), 0);
    r.init();
    r.setDataWindow(BAS_DimRect(0, 0, 2, 2));
    r.setRes(8, 2);
    EXPECT_EQ(r.isValid(), 0);
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect());
    EXPECT_EQ(r.getStride(), 4 * 4 * 2); // stride stays until the next init
    r.init();
    EXPECT_EQ(r.getStride(), 8 * 4 * 2);
}

// ---------------------------------------------------------------- ownership

TEST(RasterObject, StealHandsOverTheBlockWithItsLead)
{
    IMB_Raster owner(PACK_RGB, IMB_INT8, 4, 2);
    std::memset(owner.getPixels(), 0x42, static_cast<std::size_t>(owner.getSize()));
    void *pixels = owner.getPixels();
    void *block = owner.steal();
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(static_cast<char *>(pixels) - static_cast<char *>(block), 16);
    EXPECT_EQ(owner.getPixels(), pixels); // still readable
    EXPECT_EQ(owner.getMemoryUsage(false), 0);
    EXPECT_EQ(owner.steal(), nullptr); // no longer owned

    IMB_Raster taker(PACK_RGB, IMB_INT8, 4, 2, 0, 0);
    taker.setRaster(block, true, true);
    EXPECT_EQ(taker.getPixels(), pixels);
    EXPECT_EQ(*static_cast<const uint8 *>(taker.getPixel(3, 1, 2)), 0x42);
    EXPECT_EQ(taker.getMemoryUsage(false), taker.getSize());
    EXPECT_EQ(taker.getSize(), 24);
}

TEST(RasterObject, BorrowedMemoryIsNeitherCountedNorFreed)
{
    std::vector<unsigned char> mem(64, 9);
    {
        IMB_Raster r(PACK_SINGLE, IMB_INT8, 8, 8, 0, 0);
        r.setRaster(mem.data(), false, false);
        EXPECT_EQ(r.getPixels(), mem.data());
        EXPECT_EQ(r.getSize(), 64);
        EXPECT_EQ(r.getMemoryUsage(false), 0);
        EXPECT_EQ(r.getMemoryUsage(true), static_cast<int64>(sizeof(IMB_Raster)));
        EXPECT_EQ(r.steal(), nullptr);
        r.reset(0);
        EXPECT_EQ(r.isValid(), 0);
    }
    EXPECT_EQ(mem[63], 9); // still ours and intact
}

// ---------------------------------------------------------------- properties

TEST(RasterObject, CorrectedResolutionSwapsForOddMultiplesOfNinety)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 640, 480, 0, 0);
    for (int rot : {90, 270, -90, -270, 450})
    {
        r.setRotation(rot);
        EXPECT_TRUE(r.isRotated());
        EXPECT_EQ(r.getCorrectedXres(), 480) << rot;
        EXPECT_EQ(r.getCorrectedYres(), 640) << rot;
    }
    for (int rot : {0, 180, -180, 360, 45, 135, 1})
    {
        r.setRotation(rot);
        EXPECT_EQ(r.getCorrectedXres(), 640) << rot;
        EXPECT_EQ(r.getCorrectedYres(), 480) << rot;
    }
}

TEST(RasterObject, DataWindowWithNegativeSizeIsIgnored)
{
    IMB_Raster r;
    r.setDataWindow(BAS_DimRect(1, 2, 30, 40));
    EXPECT_TRUE(r.hasDataWindow());
    r.setDataWindow(BAS_DimRect(0, 0, -1, 5));
    r.setDataWindow(BAS_DimRect(0, 0, 5, -1));
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect(1, 2, 30, 40));
    r.setDataWindow(BAS_DimRect(7, 7, 0, 5)); // zero is stored, but is no window
    EXPECT_EQ(r.getDataWindow(), BAS_DimRect(7, 7, 0, 5));
    EXPECT_FALSE(r.hasDataWindow());
}

TEST(RasterObject, ColorSpaceTagSetsTheGammaByTag)
{
    IMB_Raster r;
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 1.8);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.8);
    r.setColorSpace(IMB_CS_OCIO, 3.0);
    EXPECT_EQ(r.getColorSpace(), IMB_CS_OCIO);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.8);
    r.setColorSpace(IMB_CS_UNKNOWN, 3.0);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.8);
    for (IMB_ColorSpace cs : {IMB_CS_GAMMA2_2, IMB_CS_SRGB, IMB_CS_REC709})
    {
        r.setColorSpace(cs, 5.0);
        EXPECT_EQ(r.getColorSpaceGamma(), 2.2);
    }
    r.setColorSpace(IMB_CS_LINEAR, 5.0);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.0);
    r.setColorSpace(static_cast<IMB_ColorSpace>(42), 5.0);
    EXPECT_EQ(r.getColorSpace(), 42);
    EXPECT_EQ(r.getColorSpaceGamma(), 1.0);
}

TEST(RasterObject, ColourManagedNameSetsTheTagOnlyWhenNotEmpty)
{
    IMB_Raster r;
    r.setColorSpace(IMB_CS_CUSTOM_GAMMA, 2.4);
    r.setOCIOColorSpace("ACES2065-1");
    EXPECT_EQ(r.getColorSpace(), IMB_CS_OCIO);
    EXPECT_EQ(r.getColorSpaceGamma(), 2.4);
    EXPECT_EQ(r.getColorSpaceName(), "ACES2065-1");
    r.setColorSpace(IMB_CS_SRGB);
    r.setOCIOColorSpace("");
    EXPECT_TRUE(r.getColorSpaceName().isEmpty());
    EXPECT_EQ(r.getColorSpace(), IMB_CS_SRGB);
    r.setOCIODisplayView("sRGB", "Raw");
    EXPECT_EQ(r.getOCIODisplay(), "sRGB");
    EXPECT_EQ(r.getOCIOView(), "Raw");
}

TEST(RasterObject, TextureHandleIsReportedOnlyWhileTheHostSaysItLives)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 2);
    int handle = 0;
    r.setTextureID(&handle);
    EXPECT_EQ(r.getTextureID(), nullptr); // no callbacks set
    {
        TextureCallbacks cb(true);
        EXPECT_EQ(r.getTextureID(), &handle);
        TextureLog::alive = false;
        EXPECT_EQ(r.getTextureID(), nullptr);
        r.clearTextureID(); // dead: forgotten, not deleted
        EXPECT_TRUE(TextureLog::deleted.empty());
        TextureLog::alive = true;
        EXPECT_EQ(r.getTextureID(), nullptr);

        r.setTextureID(&handle);
        r.setFormat(IMB_INT16); // freeing the memory deletes a live texture
        ASSERT_EQ(TextureLog::deleted.size(), 1u);
        EXPECT_EQ(TextureLog::deleted[0], &handle);
        EXPECT_EQ(r.getTextureID(), nullptr);

        r.init();
        r.setTextureID(&handle);
        EXPECT_NE(r.steal(), nullptr);
        EXPECT_EQ(TextureLog::deleted.size(), 2u);
        std::free(r.getRawPixels());
        r.setRaster(nullptr, false, false);
    }
    r.setTextureID(&handle);
    r.clearTextureID(); // no callbacks: only forgotten
    EXPECT_EQ(r.getTextureID(), nullptr);
}

TEST(RasterObject, RastersAreCreatedAndDestroyedFromManyThreads)
{
    // Through the class allocator and the proxy registry at once.
    std::vector<std::thread> threads;
    std::atomic<int> bad{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::vector<IMB_Raster *> live;
            for (int i = 0; i < 2000; ++i)
            {
                auto *r = new IMB_Raster(PACK_SINGLE, IMB_INT8, 1 + (i % 5), 1);
                *static_cast<uint8 *>(r->getPixels()) = static_cast<uint8>(t);
                live.push_back(r);
                if (i % 3 == 2)
                {
                    IMB_Raster *old = live.front();
                    live.erase(live.begin());
                    if (*static_cast<uint8 *>(old->getPixels()) != t)
                        ++bad;
                    delete old;
                }
            }
            for (IMB_Raster *r : live)
            {
                if (BAS_ProxyPointer::lookupProxy(r->getProxyIndex()) != r)
                    ++bad;
                delete r;
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
}
