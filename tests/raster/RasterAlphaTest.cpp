// Raster alpha and saturation operations: the defining pixel walk (written
// here through the public float interface) against the library's fast paths,
// alpha promotion, and saturation against a reference written from the rule.
#include "RasterTestUtil.h"

#include <cstdlib>

using namespace rastertest;

namespace
{
enum Op { PREMULTIPLY, UNPREMULTIPLY, CLAMP };

bool run(IMB_Raster &r, Op op, IMB_Raster *src = nullptr)
{
    return op == PREMULTIPLY ? r.premultiply(src) : op == UNPREMULTIPLY ? r.unpremultiply(src) : r.clampAlpha();
}

// The defining walk: x outer, y inner, through getPixelValue/setPixelValue.
// A source without alpha supplies its first value (a matte); a raster
// without alpha and no source uses alpha 1. On plane packings setPixelValue
// writes along plane 0, so the walk reads its own earlier writes (kept).
void referenceWalk(IMB_Raster &r, IMB_Raster *src, Op op)
{
    for (int64 x = 0; x < r.getXres(); ++x)
        for (int64 y = 0; y < r.getYres(); ++y)
        {
            float v[4] = {0, 0, 0, 1}, s[4] = {1, 1, 1, 1};
            r.getPixelValue(x, y, v);
            if (src)
                src->getPixelValue(x, y, s);
            const float a = !src ? v[3] : src->hasAlpha() ? s[3] : s[0];
            bool write = op == PREMULTIPLY || (op == UNPREMULTIPLY ? a > 0 && a < 1 : v[3] > 0 && v[3] < 1);
            for (int k = 0; k < 3 && op != CLAMP; ++k)
                v[k] = op == PREMULTIPLY ? v[k] * a : v[k] / a;
            for (int k = 0; k < 3 && op == UNPREMULTIPLY; ++k)
                if (r.getFormat() != IMB_FLOAT32 && r.getFormat() != IMB_FLOAT16 && v[k] > 1.0f)
                    v[k] = 1.0f; // integer formats limit to white
            v[3] = op == CLAMP ? 1.0f : v[3];
            if (write)
                r.setPixelValue(x, y, v);
        }
}

RASTER_SHAPE_SUITE(RasterAlphaWalk);
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
            const bool ok = run(got, op), accepted = op != CLAMP || got.hasAlpha();
            EXPECT_EQ(ok, accepted);
            if (accepted)
                referenceWalk(want, nullptr, op);
            EXPECT_TRUE(sameBytes(got, want)) << "op " << op << " " << w << "x" << h;
        }
    }
}

TEST_P(RasterAlphaWalk, PremultiplyAndUnpremultiplyByAnotherRasterMatchTheDefiningWalk)
{
    // A source is refused, changing nothing, when neither raster has alpha
    // or the sizes differ; formats need not match.
    auto [packing, format] = GetParam();
    for (IMB_Packing srcPacking : {PACK_SINGLE, PACK_RGBA, PACK_RGBA_NI, PACK_DUAL})
        for (IMB_DataFormat srcFormat : {IMB_INT8, IMB_FLOAT32, format})
            for (int srcWidth : {21, 22})
            {
                IMB_Raster src(srcPacking, srcFormat, srcWidth, 13), r(packing, format, 21, 13);
                fillInteresting(src, 77);
                fillInteresting(r, 5);
                const bool accepted = (r.hasAlpha() || src.hasAlpha()) && srcWidth == 21;
                for (Op op : {PREMULTIPLY, UNPREMULTIPLY})
                {
                    IMB_Raster got(r), want(r);
                    EXPECT_EQ(run(got, op, &src), accepted);
                    if (accepted)
                        referenceWalk(want, &src, op);
                    EXPECT_TRUE(sameBytes(got, want))
                        << "op " << op << " source " << IMBpacking(srcPacking) << " " << IMBdataFormat(srcFormat);
                }
            }
}

// The 8-bit memory-order paths against the walk for every (component, alpha)
// pair, each pair in a different lane position of the vector kernels.
TEST(RasterAlpha, EightBitAlphaOperationsMatchTheWalkForEveryComponentAndAlpha)
{
    IMB_Raster r(PACK_RGBA, IMB_INT8, 257, 256);
    uint8 *p = static_cast<uint8 *>(r.getPixels());
    for (int64 i = 0; i < 257 * 256; ++i)
        for (int k = 0; k < 4; ++k)
            p[4 * i + k] = uint8(k == 0 ? i % 256 : k == 1 ? 255 - i % 256 : k == 2 ? (i % 256) ^ 0x5A : i / 257);
    for (Op op : {PREMULTIPLY, UNPREMULTIPLY})
    {
        IMB_Raster got(r), want(r);
        EXPECT_TRUE(run(got, op));
        referenceWalk(want, nullptr, op);
        EXPECT_TRUE(sameBytes(got, want)) << "op " << op;
    }
}

// ---------------------------------------------------------------- promote

TEST(RasterPromote, AlphaSamplesFollowTheKeptScalesAndPixelsAreCopiedFromTheBlockStart)
{
    // int16 scales by 65355 and float32 stores the low half of the double's
    // bits (kept); the copy walks bytes from the old block's start,
    // interleaved even for planes (kept).
    const double odd = 1.0 + std::ldexp(1.0, -40);
    const std::tuple<IMB_DataFormat, IMB_Packing, double, uint32> cases[] = {
        {IMB_INT8, PACK_RGB, 1.0, 255},          {IMB_INT8, PACK_RGB, 0.5, 128}, // 127.5 rounds up
        {IMB_INT16, PACK_RGB, 1.0, 65355},       {IMB_INT32, PACK_RGB, 1.0, 0x7FFFFFFFu},
        {IMB_FLOAT16, PACK_RGB, 0.5, 0x3800},    {IMB_FLOAT16, PACK_RGB, 0.0, 0},
        {IMB_FLOAT32, PACK_RGB, 1.0, 0},         {IMB_FLOAT32, PACK_RGB, 0.0, 0},
        {IMB_FLOAT32, PACK_RGB, odd, uint32(bitsAs<uint64_t>(odd))}, {IMB_INT8, PACK_RGB_NI, 0.0, 0},
        {IMB_INT16, PACK_RGB_NI, 0.5, 32678}};
    for (auto [format, packing, alpha, want] : cases)
    {
        IMB_Raster r(packing, format, 3, 2);
        const int64 d = imbDefinesDepth[format];
        auto *block = static_cast<unsigned char *>(r.steal()); // the old block is not freed by promote
        for (int64 i = 0; i < r.getSize() + 16; ++i)
            block[i] = static_cast<unsigned char>(i * 7 + 1);
        r.promoteRGBToRGBA(alpha);
        EXPECT_EQ(r.getPacking(), packing == PACK_RGB ? PACK_RGBA : PACK_RGBA_NI);
        const auto *dst = static_cast<const unsigned char *>(r.getRawPixels());
        for (int64 px = 0; px < 6; ++px)
        {
            EXPECT_EQ(std::memcmp(dst + px * 4 * d, block + px * 3 * d, size_t(3 * d)), 0) << "pixel " << px;
            EXPECT_EQ(std::memcmp(dst + px * 4 * d + 3 * d, &want, size_t(d)), 0) << IMBdataFormat(format) << alpha;
        }
        std::free(block);
    }
    for (IMB_Packing p : {PACK_SINGLE, PACK_RGBA, PACK_UV, PACK_RGBA_NI})
    {
        IMB_Raster r(p, IMB_INT8, 2, 2, 1);
        void *before = r.getPixels();
        r.promoteRGBToRGBA(1.0);
        EXPECT_EQ(std::make_pair(r.getPacking(), r.getPixels()), std::make_pair(p, before));
    }
}

// ---------------------------------------------------------------- saturation

namespace
{
// The saturation rule over raw components, pixel by pixel.
void referenceSaturation(IMB_Raster &r, float s)
{
    const int64 d = bytesOf(r.getFormat()), count = r.getXres() * r.getYres();
    auto *base = static_cast<unsigned char *>(r.getPixels());
    const int64 step = r.getPacking() == PACK_RGB ? 3 : r.getPacking() == PACK_RGBA ? 4 : 1;
    for (int64 i = 0; i < count; ++i)
    {
        unsigned char *c[3];
        float in[3];
        for (int k = 0; k < 3; ++k)
        {
            c[k] = step == 1 ? base + (k * count + i) * d : base + (i * step + k) * d;
            uint32 u = 0;
            std::memcpy(&u, c[k], size_t(d));
            in[k] = r.getFormat() == IMB_FLOAT32   ? bitsAs<float>(u)
                    : r.getFormat() == IMB_FLOAT16 ? float(half16::fromBits(uint16(u)))
                                                   : float(u);
        }
        const float L = (in[0] * 0.3086f + in[1] * 0.6094f + in[2] * 0.082f) * (1.0f - s);
        for (int k = 0; k < 3; ++k)
        {
            const float y = in[k] * s + L;
            const double n = std::floor(double(y) + 0.5);
            const uint32 u = r.getFormat() == IMB_INT8      ? (!(n >= 0) ? 0 : n >= 255 ? 255 : uint32(n))
                             : r.getFormat() == IMB_INT16   ? (!(n >= 0) ? 0 : n >= 65535 ? 65535 : uint32(n))
                             : r.getFormat() == IMB_INT32   ? (n >= 0 && n < 9.2e18 ? uint32(uint64_t(n)) : 0)
                             : r.getFormat() == IMB_FLOAT32 ? bitsAs<uint32>(y)
                                                            : (y == 0.0f ? 0 : half16(y).bits());
            std::memcpy(c[k], &u, size_t(d));
        }
    }
}
} // namespace

TEST_P(RasterAlphaWalk, AdjustSaturationMatchesTheRuleOnRawComponents)
{
    // Non-colour packings and s within 1e-5 of one change nothing; alpha and
    // padding are never touched.
    auto [packing, format] = GetParam();
    const bool colour = valuesOf(packing) >= 3; // RGB and RGBA, interleaved or planes
    for (float s : {0.0f, 0.5f, 1.0f, 2.0f, -1.0f, 1.5e-5f + 1.0f, std::nanf(""), 1.000005f, 1000.0f})
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

