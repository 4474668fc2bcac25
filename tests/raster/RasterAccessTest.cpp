// IMB_Raster pixel access: addresses, value conversions, rows, columns,
// rectangles, flips and fills.
#include <IMB/IMB.h>
#include <IMB/platform/half16.h>
#include "RasterTestUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <tuple>
#include <vector>

namespace
{
using namespace rastertest;

// Byte offset of component c of pixel (x, y) from the first pixel, from the
// layout rule.
int64 offsetOf(const IMB_Raster &r, int64 x, int64 y, int64 c)
{
    const int64 b = bytesOf(r.getFormat());
    if (isPlanar(r.getPacking()) && r.getPacking() != PACK_SINGLE)
        return c * r.getYres() * r.getStride() + y * r.getStride() + x * b;
    return y * r.getStride() + (x * stepOf(r.getPacking()) + c) * b;
}

// Every pixel of every plane of dst holds src's pixel at (x + dx, y + dy), or
// zero where src has no such pixel.
void expectShifted(const IMB_Raster &dst, const IMB_Raster &src, int64 dx, int64 dy)
{
    const auto b = static_cast<std::size_t>(bytesOf(dst.getFormat()) * stepOf(dst.getPacking()));
    const std::vector<unsigned char> zero(b, 0);
    for (int64 k = 0; k < planesOf(dst.getPacking()); ++k)
        for (int64 y = 0; y < dst.getYres(); ++y)
            for (int64 x = 0; x < dst.getXres(); ++x)
            {
                const void *want = src.getPixel(x + dx, y + dy, k);
                ASSERT_EQ(std::memcmp(dst.getPixel(x, y, k), want ? want : zero.data(), b), 0)
                    << x << "," << y << "," << k;
            }
}

uint64 rawAt(const IMB_Raster &r, int64 offset)
{
    uint64 v = 0;
    std::memcpy(&v, static_cast<const char *>(r.getPixels()) + offset, static_cast<std::size_t>(bytesOf(r.getFormat())));
    return v;
}
void putRaw(IMB_Raster &r, int64 offset, uint64 v)
{
    std::memcpy(static_cast<char *>(r.getPixels()) + offset, &v, static_cast<std::size_t>(bytesOf(r.getFormat())));
}

// ---- independent references for the value conversions

// Truncation toward zero; out-of-range and NaN give the x86 "indefinite"
// integer 0x8000000000000000, whose low bits are 0.
uint64 truncBits(double d)
{
    if (std::isnan(d) || d >= 9223372036854775808.0 || d < -9223372036854775808.0)
        return 0x8000000000000000ull;
    return static_cast<uint64>(static_cast<int64>(std::trunc(d)));
}

// The nearest half to |f| with ties away from zero when f is in the normal
// range, nearest-even below it; built with double arithmetic and ldexp.
uint16 refHalf(float f)
{
    if (std::isnan(f))
        return 0x7e00; // any NaN; compared as "is NaN"
    const uint16 sign = std::signbit(f) ? 0x8000 : 0;
    double a = std::fabs(static_cast<double>(f));
    if (a == 0)
        return sign;
    if (a < std::ldexp(1.0, -14))
    {
        double q = std::nearbyint(a / std::ldexp(1.0, -24)); // ties to even
        return static_cast<uint16>(sign | static_cast<uint16>(q));
    }
    int e = std::ilogb(a);
    if (e > 15)
        return sign | 0x7c00;
    double q = std::floor(a / std::ldexp(1.0, e - 10) + 0.5); // ties up in magnitude
    if (q >= 2048)
    {
        q /= 2;
        ++e;
    }
    if (e > 15)
        return sign | 0x7c00;
    return static_cast<uint16>(sign | ((e + 15) << 10) | (static_cast<int>(q) - 1024));
}

// The value stored by setPixelValue, as raw bits.
uint64 refStore(IMB_DataFormat f, float v)
{
    switch (f)
    {
    case IMB_INT8: return truncBits(static_cast<double>(v) * 255.0) & 0xff;
    case IMB_INT16: return truncBits(static_cast<double>(v) * 65535.0) & 0xffff;
    case IMB_INT32: return truncBits(static_cast<double>(v) * 4294967296.0) & 0xffffffffull;
    case IMB_FLOAT16: return v == 0.0f ? 0 : refHalf(v);
    default:
    {
        uint32 b;
        std::memcpy(&b, &v, 4);
        return b;
    }
    }
}

// The value getPixelValue gives for raw bits.
float refLoad(IMB_DataFormat f, uint64 raw)
{
    switch (f)
    {
    case IMB_INT8: return static_cast<float>(raw) * 0.003921569f;
    case IMB_INT16: return static_cast<float>(raw) * 1.5259022e-5f;
    case IMB_INT32: return static_cast<float>(static_cast<double>(raw) / 4294967295.0);
    case IMB_FLOAT16:
    {
        const int e = static_cast<int>((raw >> 10) & 0x1f);
        const int m = static_cast<int>(raw & 0x3ff);
        double v;
        if (e == 0)
            v = std::ldexp(m, -24);
        else if (e == 31)
            v = m ? std::numeric_limits<double>::quiet_NaN() : std::numeric_limits<double>::infinity();
        else
            v = std::ldexp(1024 + m, e - 25);
        return static_cast<float>((raw & 0x8000) ? -v : v);
    }
    default:
    {
        float v;
        uint32 b = static_cast<uint32>(raw);
        std::memcpy(&v, &b, 4);
        return v;
    }
    }
}

bool sameFloat(float a, float b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, 4) == 0;
}

// Inputs that hit the boundaries of every store rule.
std::vector<float> probeValues()
{
    std::vector<float> v = {0.0f, -0.0f, 1.0f, 0.5f, 0.25f, -0.5f, 1.5f, 2.0f, -1.0f, 0.999999f,
                            1.0f / 255.0f, 0.5f / 255.0f, 254.5f / 255.0f, 1.0f / 65535.0f, 32767.5f / 65535.0f,
                            std::nextafter(1.0f, 0.0f), std::nextafter(1.0f, 2.0f), 1e-8f, 6.1e-5f, 6.0e-8f,
                            65504.0f, 65519.0f, 65520.0f, 1e10f, -1e10f, 1e30f,
                            std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::denorm_min()};
    // Floats whose 13 dropped mantissa bits are exactly half, and one below.
    v.push_back(1.0f + std::ldexp(1.0f, -11));
    v.push_back(1.0f + std::ldexp(1.0f, -11) - std::ldexp(1.0f, -23));
    v.push_back(2047.5f / 1024.0f * 2.0f);
    // The floats next to every 8-bit code and to a spread of 16-bit codes:
    // truncation must see the exact product, not one rounded to float.
    auto around = [&v](double x) {
        const float f = static_cast<float>(x);
        v.push_back(std::nextafter(f, -1.0f));
        v.push_back(f);
        v.push_back(std::nextafter(f, 2.0f));
    };
    for (int k = 1; k <= 255; ++k)
        around(k / 255.0);
    for (int k = 1; k <= 65535; k += 97)
        around(k / 65535.0);
    return v;
}

} // namespace

// ---------------------------------------------------------------- every shape

class RasterAccessShape : public ::testing::TestWithParam<std::tuple<IMB_Packing, IMB_DataFormat>>
{
};

TEST_P(RasterAccessShape, PixelAddressesFollowTheLayoutAndAreNullOutside)
{
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 5, 3);
    const char *base = static_cast<const char *>(r.getPixels());
    for (int64 y = 0; y < 3; ++y)
        for (int64 x = 0; x < 5; ++x)
            for (int64 c = 0; c < planesOf(p) * stepOf(p); ++c)
                ASSERT_EQ(static_cast<const char *>(r.getPixel(x, y, c)) - base, offsetOf(r, x, y, c))
                    << x << "," << y << "," << c;
    EXPECT_EQ(r.getPixel(-1, 0, 0), nullptr);
    EXPECT_EQ(r.getPixel(0, -1, 0), nullptr);
    EXPECT_EQ(r.getPixel(5, 0, 0), nullptr);
    EXPECT_EQ(r.getPixel(0, 3, 0), nullptr);
    const IMB_Raster &cr = r;
    EXPECT_EQ(cr.getPixel(4, 2, 0), r.getPixel(4, 2, 0));
}

TEST_P(RasterAccessShape, StoredValuesFollowTheTruncatingRule)
{
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 8, 2, 1);
    const int n = valuesOf(p);
    for (float v : probeValues())
    {
        float in[4] = {v, v, v, v};
        r.setPixelValue(1, 1, in);
        // Consecutive components from component 0, whatever the packing.
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(rawAt(r, offsetOf(r, 1, 1, 0) + i * bytesOf(f)), refStore(f, v)) << v << " value " << i;
    }
}

TEST_P(RasterAccessShape, ReadValuesFollowTheScalingRule)
{
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 4, 2, 1);
    const int n = valuesOf(p);
    const uint64 mask = f == IMB_INT8 ? 0xff : bytesOf(f) == 2 ? 0xffff : 0xffffffffull;
    const uint64 raws[] = {0, 1, 2, 0x7f, 0x80, 0xff, 0x3c00, 0x7bff, 0x7c00, 0x7e00, 0x8001, 0xfbff, 0xffff,
                           0x3f800000, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff, 0x00800000, 0x12345678};
    for (uint64 raw : raws)
    {
        for (int i = 0; i < n; ++i)
        {
            // Plane packings read value i from plane i; the others from
            // consecutive components.
            const int64 off = isPlanar(p) ? offsetOf(r, 2, 1, i) : offsetOf(r, 2, 1, 0) + i * bytesOf(f);
            putRaw(r, off, (raw + i) & mask);
        }
        float out[4] = {-7, -7, -7, -7};
        r.getPixelValue(2, 1, out);
        for (int i = 0; i < n; ++i)
            ASSERT_TRUE(sameFloat(out[i], refLoad(f, (raw + i) & mask))) << std::hex << raw << " value " << i;
        for (int i = n; i < 4; ++i)
            ASSERT_EQ(out[i], -7.0f); // nothing beyond the packing's values
    }
}

TEST_P(RasterAccessShape, RowsRoundTripThroughAPackedBuffer)
{
    const auto [p, f] = GetParam();
    IMB_Raster src = numbered(p, f, 6, 3);
    const int64 lineBytes = bytesOf(f) * imbDefinesPDepth[p] * 6;
    const int64 planes = isPlanar(p) ? imbDefinesPComp[p] : 1;
    std::vector<unsigned char> buf(static_cast<std::size_t>(lineBytes * planes));
    src.readFromRow(1, buf.data());
    for (int64 k = 0; k < planes; ++k)
        EXPECT_EQ(std::memcmp(buf.data() + k * lineBytes, src.getPixel(0, 1, k), static_cast<std::size_t>(lineBytes)),
                  0);

    IMB_Raster dst(p, f, 6, 3, 1);
    dst.writeToRow(2, buf.data());
    for (int64 k = 0; k < planes; ++k)
    {
        EXPECT_EQ(std::memcmp(dst.getPixel(0, 2, k), src.getPixel(0, 1, k), static_cast<std::size_t>(lineBytes)), 0);
        // Other rows untouched.
        const auto *row0 = static_cast<const unsigned char *>(dst.getPixel(0, 0, k));
        for (int64 i = 0; i < lineBytes; ++i)
            ASSERT_EQ(row0[i], 0);
    }
}

TEST_P(RasterAccessShape, ExtractOfTheWholeRasterCopiesEveryPlane)
{
    const auto [p, f] = GetParam();
    IMB_Raster src = numbered(p, f, 5, 4);
    src.setDataWindow(BAS_DimRect(1, 1, 2, 2));
    IMB_Raster dst;
    dst.extract(src, 0, 0, 4, 3);
    EXPECT_EQ(bytesOfRaster(dst), bytesOfRaster(src));
    EXPECT_EQ(dst.getDataWindow(), BAS_DimRect(1, 1, 2, 2));
    EXPECT_TRUE(dst.getDataWritten());
}

TEST_P(RasterAccessShape, InsertCopiesEveryPlaneOfTheClippedRectangle)
{
    const auto [p, f] = GetParam();
    IMB_Raster src = numbered(p, f, 3, 3, 5);
    IMB_Raster dst(p, f, 4, 4, 1);
    dst.insert(src, 2, -1); // overhangs right and bottom edges
    expectShifted(dst, src, -2, 1);
    EXPECT_FALSE(dst.getDataWritten()); // insert leaves the written flag alone
}

TEST_P(RasterAccessShape, ClearWritesNothingPastThePixelsAndNullZeroesEveryByte)
{
    const auto [p, f] = GetParam();
    IMB_Raster r = numbered(p, f, 7, 3);
    char *tail = static_cast<char *>(r.getPixels()) + r.getSize();
    std::memset(tail, 0x77, static_cast<std::size_t>(r.getStride() + 16));
    const unsigned char pixel[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    r.clear(pixel);
    for (int64 i = 0; i < r.getStride() + 16; ++i)
        ASSERT_EQ(tail[i], 0x77) << i;
    r.clear(nullptr);
    for (unsigned char b : bytesOfRaster(r))
        ASSERT_EQ(b, 0);
    for (int64 i = 0; i < r.getStride() + 16; ++i)
        ASSERT_EQ(tail[i], 0x77) << i;
}

INSTANTIATE_TEST_SUITE_P(AllShapes, RasterAccessShape, RASTER_ALL_SHAPES, shapeName);

// ---------------------------------------------------------------- documented cases

TEST(RasterAccess, Int32StoresTwoToTheThirtyTwoSoOneWrapsToZero)
{
    IMB_Raster r(PACK_SINGLE, IMB_INT32, 2, 2);
    float in = 1.0f, out = -1;
    r.setPixelValue(0, 0, &in);
    r.getPixelValue(0, 0, &out);
    EXPECT_EQ(out, 0.0f);
    in = 0.25f;
    r.setPixelValue(0, 0, &in);
    r.getPixelValue(0, 0, &out);
    EXPECT_EQ(out, 0.25f);
    in = 0.5f;
    r.setPixelValue(0, 0, &in);
    EXPECT_EQ(*static_cast<const uint32 *>(r.getPixel(0, 0)), 2147483648u);
    *static_cast<uint32 *>(r.getPixel(1, 0)) = 0xffffffffu;
    r.getPixelValue(1, 0, &out);
    EXPECT_EQ(out, 1.0f);
}

TEST(RasterAccess, Int8StoresTheLowByteOfTheTruncatedProduct)
{
    IMB_Raster r(PACK_SINGLE, IMB_INT8, 2, 1);
    const std::pair<float, int> cases[] = {{1.0f, 255}, {-0.5f, 129}, {1.5f, 126}, {0.999f, 254}, {2.0f, 254}};
    for (auto [in, want] : cases)
    {
        r.setPixelValue(0, 0, &in);
        EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(0, 0)), want) << in;
    }
}

TEST(RasterAccess, SetPixelValueOnPlanesWritesAlongPlaneZero)
{
    // Kept on purpose: value i goes to plane 0 at pixel x + i.
    IMB_Raster r(PACK_RGB_NI, IMB_INT8, 4, 2, 1);
    const float in[3] = {1.0f, 0.5f, 0.25f};
    r.setPixelValue(1, 0, in);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(1, 0, 0)), 255);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(2, 0, 0)), 127);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(3, 0, 0)), 63);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(1, 0, 1)), 0);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(1, 0, 2)), 0);
    float out[3];
    r.getPixelValue(1, 0, out); // reads planes, so sees only the first value
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_EQ(out[2], 0.0f);
    // At the end of a row the values run into the next row of plane 0.
    r.setPixelValue(3, 0, in);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(0, 1, 0)), 127);
}

TEST(RasterAccess, DualPackingExposesTwoOfItsThreeComponents)
{
    IMB_Raster r(PACK_DUAL, IMB_FLOAT32, 2, 1);
    const float in[4] = {0.25f, 0.75f, 9.0f, 9.0f};
    r.setPixelValue(0, 0, in);
    EXPECT_EQ(*static_cast<const float *>(r.getPixel(0, 0, 2)), 0.0f);
    EXPECT_EQ(*static_cast<const float *>(r.getPixel(1, 0, 0)), 0.0f);
    float out[4] = {-1, -1, -1, -1};
    r.getPixelValue(0, 0, out);
    EXPECT_EQ(out[0], 0.25f);
    EXPECT_EQ(out[1], 0.75f);
    EXPECT_EQ(out[2], -1.0f);
}

TEST(RasterAccess, ValueAccessOutsideTheRasterDoesNothing)
{
    IMB_Raster r(PACK_RGBA, IMB_INT8, 2, 2, 1);
    const float in[4] = {1, 1, 1, 1};
    r.setPixelValue(2, 0, in);
    r.setPixelValue(0, -1, in);
    for (unsigned char b : bytesOfRaster(r))
        EXPECT_EQ(b, 0);
    float out[4] = {-1, -1, -1, -1};
    r.getPixelValue(-1, 0, out);
    EXPECT_EQ(out[0], -1.0f);
    IMB_Raster empty;
    empty.setPixelValue(0, 0, in);
    empty.getPixelValue(0, 0, out);
    EXPECT_EQ(out[0], -1.0f);
}

// ---------------------------------------------------------------- columns

TEST(RasterAccess, ColumnOfAnInterleavedRasterTakesOnePixelPerRow)
{
    IMB_Raster r(PACK_RGB, IMB_INT16, 3, 4, 1);
    std::vector<uint16> col(12);
    for (int i = 0; i < 12; ++i)
        col[i] = static_cast<uint16>(100 + i);
    r.writeToColumn(1, col.data());
    for (int64 y = 0; y < 4; ++y)
        for (int64 c = 0; c < 3; ++c)
        {
            EXPECT_EQ(*static_cast<const uint16 *>(r.getPixel(1, y, c)), 100 + 3 * y + c);
            EXPECT_EQ(*static_cast<const uint16 *>(r.getPixel(0, y, c)), 0);
        }
}

TEST(RasterAccess, EightBitPlaneColumnAdvancesThroughEveryPlane)
{
    IMB_Raster r(PACK_DUAL_NI, IMB_INT8, 3, 3, 1);
    const uint8 col[6] = {1, 2, 3, 4, 5, 6};
    r.writeToColumn(2, col);
    for (int64 k = 0; k < 2; ++k)
        for (int64 y = 0; y < 3; ++y)
        {
            EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(2, y, k)), col[k * 3 + y]);
            EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(1, y, k)), 0);
        }
}

TEST(RasterAccess, WidePlaneColumnRepeatsTheFirstSample)
{
    // Kept on purpose: samples wider than a byte do not advance the buffer.
    for (IMB_Packing p : {PACK_SINGLE, PACK_RGBA_NI})
    {
        IMB_Raster r(p, IMB_FLOAT32, 2, 3, 1);
        const float col[12] = {0.5f, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
        r.writeToColumn(0, col);
        for (int64 k = 0; k < planesOf(p); ++k)
            for (int64 y = 0; y < 3; ++y)
            {
                EXPECT_EQ(*static_cast<const float *>(r.getPixel(0, y, k)), 0.5f);
                EXPECT_EQ(*static_cast<const float *>(r.getPixel(1, y, k)), 0.0f);
            }
    }
}

// ---------------------------------------------------------------- extract, insert

TEST(RasterAccess, ExtractAboveAndLeftOfTheSourceFillsTheRestWithZero)
{
    IMB_Raster src = numbered(PACK_SINGLE, IMB_INT8, 4, 4);
    IMB_Raster dst(PACK_SINGLE, IMB_INT8, 4, 4);
    std::memset(dst.getPixels(), 0xee, 16);
    dst.extract(src, -2, -2, 1, 1);
    EXPECT_EQ(dst.getXres(), 4);
    expectShifted(dst, src, -2, -2);
}

TEST(RasterAccess, ExtractPastTheFarEdgesClipsEveryPlane)
{
    IMB_Raster src = numbered(PACK_RGBA_NI, IMB_INT16, 4, 3);
    IMB_Raster dst;
    dst.extract(src, 2, 1, 5, 4);
    ASSERT_EQ(dst.getXres(), 4);
    ASSERT_EQ(dst.getYres(), 4);
    expectShifted(dst, src, 2, 1);
}

TEST(RasterAccess, ExtractEntirelyOutsideGivesZerosAndTakesTheSourceTags)
{
    IMB_Raster src = numbered(PACK_RGB, IMB_FLOAT32, 4, 4);
    src.setColorSpace(IMB_CS_CUSTOM_GAMMA, 2.6);
    src.setBWPoints(0.25f, 0.5f);
    IMB_Raster dst(PACK_SINGLE, IMB_INT8, 2, 2);
    dst.extract(src, 10, 10, 11, 12);
    EXPECT_EQ(dst.getPacking(), PACK_RGB);
    EXPECT_EQ(dst.getFormat(), IMB_FLOAT32);
    EXPECT_EQ(dst.getYres(), 3);
    EXPECT_EQ(dst.getColorSpace(), IMB_CS_CUSTOM_GAMMA);
    EXPECT_EQ(dst.getColorSpaceGamma(), 2.6);
    float b, w;
    dst.getBWPoints(b, w);
    EXPECT_EQ(b, 0.25f);
    EXPECT_EQ(w, 0.5f);
    for (unsigned char byte : bytesOfRaster(dst))
        EXPECT_EQ(byte, 0);

    IMB_Raster left;
    left.extract(src, -5, 0, -1, 1); // all columns left of the source
    for (unsigned char byte : bytesOfRaster(left))
        EXPECT_EQ(byte, 0);
}

TEST(RasterAccess, ExtractFromItselfCrops)
{
    IMB_Raster r = numbered(PACK_SINGLE, IMB_INT8, 4, 4);
    const uint8 want = *static_cast<const uint8 *>(r.getPixel(2, 3));
    r.extract(r, 1, 2, 2, 3);
    ASSERT_EQ(r.getXres(), 2);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(1, 1)), want);
}

TEST(RasterAccess, InsertOfAnotherFormatChangesNothing)
{
    IMB_Raster src(PACK_RGB, IMB_INT16, 2, 2, 1);
    src.setColorSpace(IMB_CS_SRGB);
    IMB_Raster dst = numbered(PACK_RGB, IMB_INT8, 4, 4);
    dst.setColorSpace(IMB_CS_LINEAR);
    const auto before = bytesOfRaster(dst);
    dst.insert(src, 0, 0);
    EXPECT_EQ(bytesOfRaster(dst), before);
    EXPECT_EQ(dst.getColorSpace(), IMB_CS_LINEAR);
    IMB_Raster other(PACK_RGBA, IMB_INT8, 2, 2, 1);
    dst.insert(other, 0, 0);
    EXPECT_EQ(bytesOfRaster(dst), before);
}

TEST(RasterAccess, InsertEntirelyOutsideTakesOnlyTheTag)
{
    IMB_Raster src(PACK_SINGLE, IMB_INT8, 2, 2, 1);
    src.setColorSpace(IMB_CS_REC709);
    IMB_Raster dst = numbered(PACK_SINGLE, IMB_INT8, 4, 4);
    const auto before = bytesOfRaster(dst);
    for (auto [x, y] : {std::pair<int64, int64>{4, 0}, {0, 4}, {-2, 0}, {0, -2}})
    {
        dst.insert(src, x, y);
        EXPECT_EQ(bytesOfRaster(dst), before) << x << "," << y;
    }
    EXPECT_EQ(dst.getColorSpace(), IMB_CS_REC709);
    dst.insert(src, -1, -1); // one pixel overlaps
    EXPECT_EQ(*static_cast<const uint8 *>(dst.getPixel(0, 0)), 0);
    EXPECT_EQ(*static_cast<const uint8 *>(dst.getPixel(1, 0)), before[1]);
}

// ---------------------------------------------------------------- flip

TEST(RasterAccess, FlipReversesRowsAndKeepsTheMiddleRow)
{
    for (int64 h : {4, 5})
    {
        IMB_Raster r = numbered(PACK_RGBA, IMB_INT16, 3, h);
        const IMB_Raster before(r);
        r.flipVertical();
        const int64 line = r.getStride();
        for (int64 y = 0; y < h; ++y)
            EXPECT_EQ(std::memcmp(r.getPixel(0, y), before.getPixel(0, h - 1 - y), static_cast<std::size_t>(line)), 0);
    }
}

TEST(RasterAccess, FlipOfAPlaneRasterFlipsPlaneZeroOnly)
{
    // Kept on purpose: the other planes stay as they were.
    IMB_Raster r = numbered(PACK_RGB_NI, IMB_INT8, 3, 4);
    const IMB_Raster before(r);
    r.flipVertical();
    for (int64 y = 0; y < 4; ++y)
    {
        EXPECT_EQ(std::memcmp(r.getPixel(0, y, 0), before.getPixel(0, 3 - y, 0), 3), 0);
        EXPECT_EQ(std::memcmp(r.getPixel(0, y, 1), before.getPixel(0, y, 1), 3), 0);
        EXPECT_EQ(std::memcmp(r.getPixel(0, y, 2), before.getPixel(0, y, 2), 3), 0);
    }
}

// ---------------------------------------------------------------- clear

TEST(RasterAccess, ClearRepeatsThePixelOfTheInterleavedPacking)
{
    const std::pair<IMB_Packing, int> cases[] = {{PACK_DUAL, 3}, {PACK_RGB, 3}, {PACK_RGBA, 4}, {PACK_UV, 2}};
    for (auto [p, k] : cases)
    {
        IMB_Raster r(p, IMB_INT16, 3, 2);
        const uint16 pixel[4] = {11, 22, 33, 44};
        r.clear(pixel);
        const auto *v = static_cast<const uint16 *>(r.getPixels());
        for (int64 i = 0; i < r.getSize() / 2; ++i)
            ASSERT_EQ(v[i], pixel[i % k]) << IMBpacking(p) << " " << i;
    }
}

TEST(RasterAccess, ClearOfPlanesKeepsTheFirstSampleOfPlaneZero)
{
    // Kept on purpose for every format but float32.
    IMB_Raster r(PACK_SINGLE, IMB_INT8, 3, 3);
    std::memset(r.getPixels(), 0x55, 9);
    const uint8 seven = 7;
    r.clear(&seven);
    EXPECT_EQ(*static_cast<const uint8 *>(r.getPixel(0, 0)), 0x55);
    for (int64 i = 1; i < 9; ++i)
        EXPECT_EQ(static_cast<const uint8 *>(r.getPixels())[i], 7);

    for (IMB_DataFormat f : theAllFormats)
    {
        IMB_Raster planes(PACK_RGBA_NI, f, 4, 3);
        std::memset(planes.getPixels(), 0x55, static_cast<std::size_t>(planes.getSize()));
        const uint32 pixel[4] = {0x01010101u, 0x02020202u, 0x03030303u, 0x04040404u};
        std::vector<unsigned char> stored(16);
        for (int c = 0; c < 4; ++c)
            std::memcpy(stored.data() + c * bytesOf(f), &pixel[c], static_cast<std::size_t>(bytesOf(f)));
        planes.clear(stored.data());
        for (int64 k = 0; k < 4; ++k)
            for (int64 y = 0; y < 3; ++y)
                for (int64 x = 0; x < 4; ++x)
                {
                    const auto *s = static_cast<const unsigned char *>(planes.getPixel(x, y, k));
                    const bool kept = k == 0 && x == 0 && y == 0 && f != IMB_FLOAT32;
                    for (int64 i = 0; i < bytesOf(f); ++i)
                        ASSERT_EQ(s[i], kept ? 0x55 : k + 1) << IMBdataFormat(f) << " " << k << " " << x << "," << y;
                }
    }
}

TEST(RasterAccess, ClearWithoutMemoryDoesNothing)
{
    IMB_Raster r(PACK_RGB, IMB_INT8, 4, 4, 0, 0);
    const uint8 px[4] = {1, 2, 3, 4};
    r.clear(px);
    r.clear(nullptr);
    const float rgba[4] = {1, 1, 1, 1};
    r.clearNormal(rgba);
    r.flipVertical();
    EXPECT_EQ(r.isValid(), 0);
}

TEST(RasterAccess, ClearNormalScalesIntegersIntoTheGivenRange)
{
    const float rgba[4] = {0.5f, 1.0f, 0.0f, 0.999f};
    IMB_Raster r8(PACK_RGBA, IMB_INT8, 2, 2);
    r8.clearNormal(rgba);
    const auto *p8 = static_cast<const uint8 *>(r8.getPixel(1, 1));
    EXPECT_EQ(p8[0], 127);
    EXPECT_EQ(p8[1], 255);
    EXPECT_EQ(p8[2], 0);
    EXPECT_EQ(p8[3], 254);

    r8.clearNormal(rgba, 16, 235);
    EXPECT_EQ(p8[0], 16 + 109);
    EXPECT_EQ(p8[1], 235);
    EXPECT_EQ(p8[2], 16);

    IMB_Raster r16(PACK_RGB, IMB_INT16, 2, 2);
    r16.clearNormal(rgba);
    const auto *p16 = static_cast<const uint16 *>(r16.getPixel(0, 1));
    EXPECT_EQ(p16[0], 32767);
    EXPECT_EQ(p16[1], 65535);

    // The product is formed in single precision: float(2^32 - 1) is 2^32, so
    // 1.0 wraps to 0 and 0.5 gives 2^31.
    IMB_Raster r32(PACK_RGBA, IMB_INT32, 2, 2);
    r32.clearNormal(rgba);
    const auto *p32 = static_cast<const uint32 *>(r32.getPixel(1, 0));
    EXPECT_EQ(p32[0], 2147483648u);
    EXPECT_EQ(p32[1], 0u);
}

TEST(RasterAccess, ClearNormalConvertsFloatsForTheFloatFormats)
{
    const float rgba[4] = {-0.0f, 0.1f, 65520.0f, 1.0f};
    IMB_Raster h(PACK_RGBA, IMB_FLOAT16, 2, 1);
    h.clearNormal(rgba);
    const auto *ph = static_cast<const uint16 *>(h.getPixel(1, 0));
    EXPECT_EQ(ph[0], 0);      // either zero stores plain 0
    EXPECT_EQ(ph[1], 0x2e66); // 0.1 rounded half up
    EXPECT_EQ(ph[2], 0x7c00); // rounds past the largest half
    EXPECT_EQ(ph[3], 0x3c00);

    IMB_Raster f(PACK_RGB, IMB_FLOAT32, 2, 1);
    f.clearNormal(rgba);
    const auto *pf = static_cast<const float *>(f.getPixel(1, 0));
    EXPECT_TRUE(std::signbit(pf[0]));
    EXPECT_EQ(pf[1], 0.1f);
    EXPECT_EQ(pf[2], 65520.0f);
}
