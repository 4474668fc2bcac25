// Raster alpha and saturation operations: the defining pixel walk (written
// here through the public float interface) against the library's fast paths,
// the kept quirks, and saturation against a reference written from the rule.
#include <IMB/IMB_Raster.h>
#include <IMB/platform/half16.h>
#include "RasterTestUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

namespace
{
const float kNaN = std::numeric_limits<float>::quiet_NaN();

bool isInteger(IMB_DataFormat f) { return f == IMB_INT8 || f == IMB_INT16 || f == IMB_INT32; }

// Fills every pixel byte with values that hit the rules' boundaries: for
// integer formats 0, white, mid values and random ones; for float formats
// alphas of 0, 1, in between, above 1, negative and NaN.
void fillInteresting(IMB_Raster &r, unsigned seed)
{
    std::mt19937 rng(seed);
    unsigned char *p = static_cast<unsigned char *>(r.getPixels());
    const int64 n = r.getSize() / imbDefinesDepth[r.getFormat()];
    const float specials[] = {0.0f, 1.0f, 0.5f, 0.25f, 0.999f, 1.5f, -0.25f, kNaN, -0.0f, 1e-3f, 2.0f};
    for (int64 i = 0; i < n; ++i)
    {
        float f = (rng() % 3 == 0) ? specials[rng() % 11] : std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
        switch (r.getFormat())
        {
        case IMB_INT8:
        case IMB_INT16:
        case IMB_INT32:
        {
            // Zero, white or random; the low bytes of a little-endian word.
            const uint32 v = (rng() % 4 == 0) ? ((rng() & 1) ? 0xFFFFFFFFu : 0u) : uint32(rng());
            const int64 d = imbDefinesDepth[r.getFormat()];
            std::memcpy(p + d * i, &v, size_t(d));
            break;
        }
        case IMB_FLOAT16:
        {
            uint16 v = half16(f).bits();
            std::memcpy(p + 2 * i, &v, 2);
            break;
        }
        default:
            std::memcpy(p + 4 * i, &f, 4);
            break;
        }
    }
}

enum Op
{
    PREMULTIPLY,
    UNPREMULTIPLY,
    CLAMP
};

// The defining walk: x outer, y inner, through getPixelValue/setPixelValue.
// A source without alpha supplies its first value; a raster without alpha
// and no source uses alpha 1.
void referenceWalk(IMB_Raster &r, IMB_Raster *src, Op op)
{
    for (int64 x = 0; x < r.getXres(); ++x)
        for (int64 y = 0; y < r.getYres(); ++y)
        {
            float v[4] = {0, 0, 0, 1};
            r.getPixelValue(x, y, v);
            float a = v[3];
            if (src)
            {
                float s[4] = {1, 1, 1, 1};
                src->getPixelValue(x, y, s);
                a = src->hasAlpha() ? s[3] : s[0];
            }
            bool write = true;
            if (op == PREMULTIPLY)
            {
                for (int k = 0; k < 3; ++k)
                    v[k] = v[k] * a;
            }
            else if (op == UNPREMULTIPLY)
            {
                write = a > 0 && a < 1;
                if (write)
                    for (int k = 0; k < 3; ++k)
                    {
                        v[k] = v[k] / a;
                        if (isInteger(r.getFormat()) && v[k] > 1.0f)
                            v[k] = 1.0f;
                    }
            }
            else
            {
                write = v[3] > 0 && v[3] < 1;
                v[3] = 1.0f;
            }
            if (write)
                r.setPixelValue(x, y, v);
        }
}

bool sameBytes(const IMB_Raster &a, const IMB_Raster &b)
{
    return a.getSize() == b.getSize() && std::memcmp(a.getPixels(), b.getPixels(), size_t(a.getSize())) == 0;
}

class RasterAlphaWalk : public ::testing::TestWithParam<std::tuple<IMB_Packing, IMB_DataFormat>>
{
};
} // namespace

TEST_P(RasterAlphaWalk, EveryOperationMatchesTheDefiningWalkOnOwnAlpha)
{
    auto [packing, format] = GetParam();
    for (auto [w, h] : {std::pair<int, int>{37, 19}, {1, 1}, {8, 3}, {3, 8}})
    {
        IMB_Raster r(packing, format, w, h);
        fillInteresting(r, unsigned(w * 131 + h));
        for (Op op : {PREMULTIPLY, UNPREMULTIPLY, CLAMP})
        {
            IMB_Raster got(r), want(r);
            bool ok = op == PREMULTIPLY ? got.premultiply() : op == UNPREMULTIPLY ? got.unpremultiply() : got.clampAlpha();
            const bool hasAlpha = packing == PACK_RGBA || packing == PACK_RGBA_NI;
            if (op == CLAMP && !hasAlpha)
            {
                EXPECT_FALSE(ok);
                EXPECT_TRUE(sameBytes(got, r)) << "clampAlpha without alpha changed pixels";
                continue;
            }
            EXPECT_TRUE(ok);
            referenceWalk(want, nullptr, op);
            EXPECT_TRUE(sameBytes(got, want)) << "op " << op << " " << w << "x" << h;
        }
    }
}

TEST_P(RasterAlphaWalk, PremultiplyAndUnpremultiplyByAnotherRasterMatchTheDefiningWalk)
{
    auto [packing, format] = GetParam();
    const bool hasAlpha = packing == PACK_RGBA || packing == PACK_RGBA_NI;
    for (IMB_Packing srcPacking : {PACK_SINGLE, PACK_RGBA, PACK_RGBA_NI, PACK_DUAL})
        for (IMB_DataFormat srcFormat : {IMB_INT8, IMB_FLOAT32, format})
        {
            IMB_Raster src(srcPacking, srcFormat, 21, 13);
            fillInteresting(src, 77);
            IMB_Raster r(packing, format, 21, 13);
            fillInteresting(r, 5);
            const bool accepted = hasAlpha || srcPacking == PACK_RGBA || srcPacking == PACK_RGBA_NI;
            for (Op op : {PREMULTIPLY, UNPREMULTIPLY})
            {
                IMB_Raster got(r), want(r);
                bool ok = op == PREMULTIPLY ? got.premultiply(&src) : got.unpremultiply(&src);
                EXPECT_EQ(ok, accepted);
                if (accepted)
                    referenceWalk(want, &src, op);
                EXPECT_TRUE(sameBytes(got, want))
                    << "op " << op << " source " << IMBpacking(srcPacking) << " " << IMBdataFormat(srcFormat);
            }
        }
}

INSTANTIATE_TEST_SUITE_P(AllShapes, RasterAlphaWalk, RASTER_ALL_SHAPES, rastertest::shapeName);

// The 8-bit memory-order paths against the walk for every (component, alpha)
// pair, each pair in a different lane position of the vector kernels.
TEST(RasterAlpha, EightBitAlphaOperationsMatchTheWalkForEveryComponentAndAlpha)
{
    IMB_Raster r(PACK_RGBA, IMB_INT8, 257, 256);
    uint8 *p = static_cast<uint8 *>(r.getPixels());
    for (int64 i = 0; i < 257 * 256; ++i)
    {
        const int c = int(i % 256), a = int(i / 257);
        const uint8 px[4] = {uint8(c), uint8(255 - c), uint8(c ^ 0x5A), uint8(a)};
        std::memcpy(p + 4 * i, px, 4);
    }
    for (Op op : {PREMULTIPLY, UNPREMULTIPLY})
    {
        IMB_Raster got(r), want(r);
        EXPECT_TRUE(op == PREMULTIPLY ? got.premultiply() : got.unpremultiply());
        referenceWalk(want, nullptr, op);
        EXPECT_TRUE(sameBytes(got, want)) << "op " << op;
    }
}

TEST(RasterAlpha, PremultiplyThenUnpremultiplyRestoresAFloatPixel)
{
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 1, 1);
    const float px[4] = {0.5f, 0.4f, 0.2f, 0.5f};
    r.setPixelValue(0, 0, px);
    ASSERT_TRUE(r.premultiply());
    float v[4];
    r.getPixelValue(0, 0, v);
    EXPECT_EQ(v[0], 0.25f);
    EXPECT_EQ(v[1], 0.2f);
    EXPECT_EQ(v[2], 0.1f);
    EXPECT_EQ(v[3], 0.5f);
    ASSERT_TRUE(r.unpremultiply());
    r.getPixelValue(0, 0, v);
    EXPECT_EQ(v[0], 0.5f);
    EXPECT_EQ(v[1], 0.4f);
    EXPECT_EQ(v[2], 0.2f);
}

TEST(RasterAlpha, UnpremultiplyClampsIntegerColourAboveAlphaButNotFloat)
{
    IMB_Raster i8(PACK_RGBA, IMB_INT8, 1, 1);
    uint8 *p = static_cast<uint8 *>(i8.getPixels());
    p[0] = 200, p[1] = 100, p[2] = 10, p[3] = 100;
    ASSERT_TRUE(i8.unpremultiply());
    EXPECT_EQ(p[0], 255); // 2.0 limited to 1.0
    // 100/255 / (100/255) is 1 in float, and 1 * 255 truncates to 255 or 254.
    float one = float(100) * (1.0f / 255.0f);
    EXPECT_EQ(p[1], uint8(int64_t((one / one) * 255.0)));
    EXPECT_EQ(p[2], uint8(int64_t((float(10) * (1.0f / 255.0f) / one) * 255.0)));

    IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 1, 1);
    const float px[4] = {0.8f, 0.1f, 0.0f, 0.4f};
    f.setPixelValue(0, 0, px);
    ASSERT_TRUE(f.unpremultiply());
    float v[4];
    f.getPixelValue(0, 0, v);
    EXPECT_EQ(v[0], 0.8f / 0.4f);
    EXPECT_GT(v[0], 1.0f);
}

TEST(RasterAlpha, UnpremultiplyLeavesAlphaZeroAndOnePixelsUntouched)
{
    // 8-bit pixels whose values would change by a float round trip must not
    // even be rewritten when alpha is 0 or 255.
    for (uint8 alpha : {uint8(0), uint8(255)})
    {
        IMB_Raster r(PACK_RGBA, IMB_INT8, 64, 2);
        uint8 *p = static_cast<uint8 *>(r.getPixels());
        for (int i = 0; i < 128; ++i)
        {
            p[4 * i] = uint8(i * 2 + 1), p[4 * i + 1] = 200, p[4 * i + 2] = 7, p[4 * i + 3] = alpha;
        }
        IMB_Raster before(r);
        ASSERT_TRUE(r.unpremultiply());
        EXPECT_TRUE(sameBytes(r, before));
    }
    IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 2, 1);
    const float zero[4] = {0.3f, 0.2f, 0.1f, 0.0f}, nanAlpha[4] = {0.3f, 0.2f, 0.1f, kNaN};
    f.setPixelValue(0, 0, zero);
    f.setPixelValue(1, 0, nanAlpha);
    IMB_Raster before(f);
    ASSERT_TRUE(f.unpremultiply());
    EXPECT_TRUE(sameBytes(f, before));
}

TEST(RasterAlpha, PremultiplyKeepsAlphaBitsAndPropagatesNaN)
{
    IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 9, 1);
    for (int x = 0; x < 9; ++x)
    {
        const float px[4] = {1.0f, -2.0f, kNaN, x == 4 ? kNaN : 0.5f};
        f.setPixelValue(x, 0, px);
    }
    ASSERT_TRUE(f.premultiply());
    for (int x = 0; x < 9; ++x)
    {
        float v[4];
        f.getPixelValue(x, 0, v);
        EXPECT_TRUE(std::isnan(v[2]));
        if (x == 4)
        {
            EXPECT_TRUE(std::isnan(v[0]) && std::isnan(v[3]));
            continue;
        }
        EXPECT_EQ(v[0], 0.5f);
        EXPECT_EQ(v[1], -1.0f);
        EXPECT_EQ(v[3], 0.5f);
    }
}

TEST(RasterAlpha, ClampAlphaMakesOnlyPartialCoverageOpaque)
{
    IMB_Raster rgb(PACK_RGB, IMB_FLOAT32, 2, 2);
    EXPECT_FALSE(rgb.clampAlpha());
    IMB_Raster f(PACK_RGBA, IMB_FLOAT32, 4, 1);
    const float alphas[4] = {0.0f, 0.3f, 1.0f, 1.5f}, want[4] = {0.0f, 1.0f, 1.0f, 1.5f};
    for (int x = 0; x < 4; ++x)
    {
        const float px[4] = {0.1f, 0.2f, 0.3f, alphas[x]};
        f.setPixelValue(x, 0, px);
    }
    ASSERT_TRUE(f.clampAlpha());
    for (int x = 0; x < 4; ++x)
    {
        float v[4];
        f.getPixelValue(x, 0, v);
        EXPECT_EQ(v[3], want[x]);
        EXPECT_EQ(v[0], 0.1f);
    }
}

TEST(RasterAlpha, AnAlphaSourceNeedsAlphaSomewhereAndTheSameSize)
{
    IMB_Raster matte(PACK_SINGLE, IMB_FLOAT32, 3, 2);
    IMB_Raster rgb(PACK_RGB, IMB_FLOAT32, 3, 2), rgba(PACK_RGBA, IMB_FLOAT32, 3, 2);
    IMB_Raster wide(PACK_RGBA, IMB_FLOAT32, 4, 2);
    rgb.clear();
    rgba.clear();
    EXPECT_FALSE(rgb.premultiply(&matte));
    EXPECT_FALSE(rgb.unpremultiply(&matte));
    EXPECT_TRUE(rgba.premultiply(&matte));
    EXPECT_FALSE(rgba.premultiply(&wide));
    EXPECT_FALSE(wide.unpremultiply(&rgba));
    EXPECT_TRUE(rgb.premultiply(&rgba)); // the source has alpha
}

TEST(RasterAlpha, ASingleChannelMatteSuppliesItsOnlyValueAsAlpha)
{
    IMB_Raster matte(PACK_SINGLE, IMB_FLOAT32, 2, 1);
    const float m0 = 0.5f, m1 = 0.25f;
    matte.setPixelValue(0, 0, &m0);
    matte.setPixelValue(1, 0, &m1);
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, 2, 1);
    const float px[4] = {1.0f, 0.5f, 0.25f, 1.0f};
    r.setPixelValue(0, 0, px);
    r.setPixelValue(1, 0, px);
    ASSERT_TRUE(r.premultiply(&matte));
    float v[4];
    r.getPixelValue(0, 0, v);
    EXPECT_EQ(v[0], 0.5f);
    EXPECT_EQ(v[3], 1.0f);
    r.getPixelValue(1, 0, v);
    EXPECT_EQ(v[0], 0.25f);
    EXPECT_EQ(v[2], 0.0625f);
}

TEST(RasterAlpha, PlanePackingsWriteBackIntoPlaneZeroAndLaterReadsSeeIt)
{
    // setPixelValue writes the four values at plane-0 pixels x .. x+3, so the
    // walk (x outer, y inner) spills into plane 1 and reads its own writes.
    IMB_Raster r(PACK_RGBA_NI, IMB_FLOAT32, 4, 2);
    float *p = static_cast<float *>(r.getPixels());
    for (int i = 0; i < 32; ++i)
        p[i] = 0.5f;
    ASSERT_TRUE(r.premultiply());
    // (2, 1) wrote 0.25, 0.25, 0.25, 0.5 at offsets 6-9; (3, 1) then read
    // 0.25 from offset 7 and wrote 0.125, 0.25, 0.25, 0.5 at offsets 7-10.
    EXPECT_EQ(p[7], 0.125f);
    EXPECT_EQ(p[8], 0.25f);
    EXPECT_EQ(p[9], 0.25f);
    EXPECT_EQ(p[10], 0.5f);
    for (int i = 11; i < 32; ++i)
        EXPECT_EQ(p[i], 0.5f) << i;
}

TEST(RasterAlpha, AZeroWidthOrARasterWithoutMemoryIsDoneAtOnce)
{
    IMB_Raster zeroWidth(PACK_RGBA, IMB_FLOAT32, 0, 4), noMemory(PACK_RGBA, IMB_FLOAT32, 4, 4, 0, 0);
    for (IMB_Raster *r : {&zeroWidth, &noMemory})
    {
        EXPECT_TRUE(r->premultiply());
        EXPECT_TRUE(r->unpremultiply());
        EXPECT_TRUE(r->clampAlpha());
    }
    noMemory.adjustSaturation(0.5f);
    EXPECT_FALSE(noMemory.isValid());
}

// ---------------------------------------------------------------- promote

namespace
{
// Promotes a raster of the given format filled with a byte ramp and returns
// the first pixel's alpha sample bytes; checks the byte walk on the way.
std::vector<unsigned char> promoteAndCheck(IMB_DataFormat format, IMB_Packing packing, double alpha)
{
    IMB_Raster r(packing, format, 3, 2);
    const int64 d = imbDefinesDepth[format];
    unsigned char *block = static_cast<unsigned char *>(r.steal()); // the old block is not freed by promote
    const int64 oldBytes = r.getSize();
    for (int64 i = 0; i < oldBytes + 16; ++i)
        block[i] = static_cast<unsigned char>(i * 7 + 1);
    r.promoteRGBToRGBA(alpha);
    EXPECT_EQ(r.getPacking(), packing == PACK_RGB ? PACK_RGBA : PACK_RGBA_NI);
    const unsigned char *dst = static_cast<const unsigned char *>(r.getRawPixels());
    std::vector<unsigned char> sample(dst + 3 * d, dst + 4 * d);
    // From the blocks' starts, 3d bytes copied and one sample added per pixel.
    for (int64 px = 0; px < 6; ++px)
    {
        EXPECT_EQ(std::memcmp(dst + px * 4 * d, block + px * 3 * d, size_t(3 * d)), 0) << "pixel " << px;
        EXPECT_EQ(std::memcmp(dst + px * 4 * d + 3 * d, sample.data(), size_t(d)), 0) << "pixel " << px;
    }
    std::free(block);
    return sample;
}

template <class T> T sampleAs(const std::vector<unsigned char> &bytes)
{
    T v;
    std::memcpy(&v, bytes.data(), sizeof v);
    return v;
}
} // namespace

TEST(RasterPromote, AlphaSamplesFollowTheKeptScalesPerFormat)
{
    EXPECT_EQ(sampleAs<uint8>(promoteAndCheck(IMB_INT8, PACK_RGB, 1.0)), 255);
    EXPECT_EQ(sampleAs<uint8>(promoteAndCheck(IMB_INT8, PACK_RGB, 0.5)), 128); // 127.5 rounds up
    EXPECT_EQ(sampleAs<uint16>(promoteAndCheck(IMB_INT16, PACK_RGB, 1.0)), 65355);
    EXPECT_EQ(sampleAs<uint32>(promoteAndCheck(IMB_INT32, PACK_RGB, 1.0)), 0x7FFFFFFFu);
    EXPECT_EQ(sampleAs<uint16>(promoteAndCheck(IMB_FLOAT16, PACK_RGB, 0.5)), 0x3800);
    EXPECT_EQ(sampleAs<uint16>(promoteAndCheck(IMB_FLOAT16, PACK_RGB, 0.0)), 0);
    // float32: the low 32 bits of the double.
    EXPECT_EQ(sampleAs<uint32>(promoteAndCheck(IMB_FLOAT32, PACK_RGB, 1.0)), 0u);
    EXPECT_EQ(sampleAs<uint32>(promoteAndCheck(IMB_FLOAT32, PACK_RGB, 0.0)), 0u);
    double odd = 1.0 + std::ldexp(1.0, -40);
    uint64_t bits;
    std::memcpy(&bits, &odd, 8);
    EXPECT_EQ(sampleAs<uint32>(promoteAndCheck(IMB_FLOAT32, PACK_RGB, odd)), uint32(bits));
    // Planes become an interleaved walk too.
    EXPECT_EQ(sampleAs<uint8>(promoteAndCheck(IMB_INT8, PACK_RGB_NI, 0.0)), 0);
    EXPECT_EQ(sampleAs<uint16>(promoteAndCheck(IMB_INT16, PACK_RGB_NI, 0.5)), 32678);
}

TEST(RasterPromote, OtherPackingsAreUnchanged)
{
    for (IMB_Packing p : {PACK_SINGLE, PACK_RGBA, PACK_UV, PACK_RGBA_NI})
    {
        IMB_Raster r(p, IMB_INT8, 2, 2, 1);
        const void *before = r.getPixels();
        r.promoteRGBToRGBA(1.0);
        EXPECT_EQ(r.getPacking(), p);
        EXPECT_EQ(r.getPixels(), before);
    }
}

TEST(RasterAlpha, ComponentsAreRenderableForPlanesOrAnOwnBlock)
{
    IMB_Raster own(PACK_RGBA, IMB_INT8, 4, 4);
    EXPECT_EQ(own.areComponentsRenderable(), 1);
    std::vector<unsigned char> mem(64);
    IMB_Raster borrowed(PACK_RGBA, IMB_INT8, 4, 4, 0, 0);
    borrowed.setRaster(mem.data(), false, false);
    EXPECT_EQ(borrowed.areComponentsRenderable(), 0);
    IMB_Raster planes(PACK_RGB_NI, IMB_INT8, 4, 4, 0, 0);
    planes.setRaster(mem.data(), false, false);
    EXPECT_EQ(planes.areComponentsRenderable(), 1);
}

// ---------------------------------------------------------------- saturation

namespace
{
float satRead(const IMB_Raster &r, const unsigned char *p)
{
    switch (r.getFormat())
    {
    case IMB_INT8: return float(*p);
    case IMB_INT16: { uint16 v; std::memcpy(&v, p, 2); return float(v); }
    case IMB_INT32: { uint32 v; std::memcpy(&v, p, 4); return float(v); }
    case IMB_FLOAT16: { uint16 v; std::memcpy(&v, p, 2); return float(half16::fromBits(v)); }
    default: { float v; std::memcpy(&v, p, 4); return v; }
    }
}

void satWrite(const IMB_Raster &r, unsigned char *p, float y)
{
    const double n = std::floor(double(y) + 0.5);
    switch (r.getFormat())
    {
    case IMB_INT8: *p = !(n >= 0) ? 0 : n >= 255 ? 255 : uint8(n); break;
    case IMB_INT16: { uint16 v = !(n >= 0) ? 0 : n >= 65535 ? 65535 : uint16(n); std::memcpy(p, &v, 2); break; }
    case IMB_INT32:
    {
        uint32 v = 0;
        if (n >= 0 && n < 9.2e18)
            v = uint32(uint64_t(n));
        std::memcpy(p, &v, 4);
        break;
    }
    case IMB_FLOAT16: { uint16 v = y == 0.0f ? 0 : half16(y).bits(); std::memcpy(p, &v, 2); break; }
    default: std::memcpy(p, &y, 4); break;
    }
}

// The saturation rule over raw components, pixel by pixel.
void referenceSaturation(IMB_Raster &r, float s)
{
    const int64 d = imbDefinesDepth[r.getFormat()], count = r.getXres() * r.getYres();
    unsigned char *base = static_cast<unsigned char *>(r.getPixels());
    const bool planes = r.getPacking() == PACK_RGB_NI || r.getPacking() == PACK_RGBA_NI;
    const int64 step = r.getPacking() == PACK_RGB ? 3 : r.getPacking() == PACK_RGBA ? 4 : 1;
    for (int64 i = 0; i < count; ++i)
    {
        unsigned char *c[3];
        for (int k = 0; k < 3; ++k)
            c[k] = planes ? base + (k * count + i) * d : base + (i * step + k) * d;
        const float R = satRead(r, c[0]), G = satRead(r, c[1]), B = satRead(r, c[2]);
        const float L = (R * 0.3086f + G * 0.6094f + B * 0.082f) * (1.0f - s);
        const float out[3] = {R * s + L, G * s + L, B * s + L};
        for (int k = 0; k < 3; ++k)
            satWrite(r, c[k], out[k]);
    }
}
} // namespace

TEST_P(RasterAlphaWalk, AdjustSaturationMatchesTheRuleOnRawComponents)
{
    // Non-colour packings and s within 1e-5 of one change nothing; alpha and
    // padding are never touched.
    auto [packing, format] = GetParam();
    const bool colour = packing == PACK_RGB || packing == PACK_RGBA || packing == PACK_RGB_NI || packing == PACK_RGBA_NI;
    for (float s : {0.0f, 0.5f, 1.0f, 2.0f, -1.0f, 1.5e-5f + 1.0f, kNaN, 1.000005f, 1000.0f})
    {
        IMB_Raster r(packing, format, 37, 9);
        fillInteresting(r, 99);
        IMB_Raster want(r);
        r.adjustSaturation(s);
        if (colour && !(std::fabs(double(s) - 1.0) <= double(1e-5f)))
            referenceSaturation(want, s);
        EXPECT_TRUE(sameBytes(r, want)) << "s = " << s;
    }
}

TEST(RasterSaturation, ZeroTurnsAnEightBitPixelGreyByTheWeights)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 2, 1);
    uint8 *p = static_cast<uint8 *>(r.getPixels());
    const uint8 px[6] = {255, 0, 0, 10, 200, 30};
    std::memcpy(p, px, 6);
    r.adjustSaturation(0.0f);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(p[k], 79); // 255 * 0.3086 = 78.69
    const int grey = int(std::floor(0.3086 * 10 + 0.6094 * 200 + 0.082 * 30 + 0.5));
    for (int k = 3; k < 6; ++k)
        EXPECT_EQ(p[k], grey);
}
