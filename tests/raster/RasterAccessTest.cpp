// IMB_Raster pixel access: addresses, value conversions, rows, columns,
// rectangles, flips and fills, each checked against the layout rule.
#include "RasterTestUtil.h"

namespace
{
using namespace rastertest;

// Byte offset of component c of pixel (x, y) from the first pixel.
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

// ---- independent references for the value conversions (the half rules are
// half16's own, checked by the platform tests)

// The value stored by setPixelValue, as raw bits: integers are the product
// truncated toward zero, low bits kept; NaN and products beyond the 64-bit
// range give the x86 "indefinite" integer 0x8000000000000000, low bits 0.
uint64 refStore(IMB_DataFormat f, float v)
{
    const double d = double(v) * (f == IMB_INT8 ? 255.0 : f == IMB_INT16 ? 65535.0 : 4294967296.0);
    const uint64 t = std::isnan(d) || std::fabs(d) >= 9223372036854775808.0 ? 0 : uint64(int64(std::trunc(d)));
    if (f == IMB_FLOAT16)
        return v == 0.0f ? 0 : half16(v).bits();
    if (f == IMB_FLOAT32)
        return bitsAs<uint32>(v);
    return t & (f == IMB_INT8 ? 0xff : f == IMB_INT16 ? 0xffff : 0xffffffffull);
}

// The value getPixelValue gives for raw bits.
float refLoad(IMB_DataFormat f, uint64 raw)
{
    switch (f)
    {
    case IMB_INT8: return static_cast<float>(raw) * 0.003921569f;
    case IMB_INT16: return static_cast<float>(raw) * 1.5259022e-5f;
    case IMB_INT32: return static_cast<float>(static_cast<double>(raw) / 4294967295.0);
    case IMB_FLOAT16: return float(half16::fromBits(static_cast<uint16>(raw)));
    default: return bitsAs<float>(static_cast<uint32>(raw));
    }
}

// Inputs that hit the boundaries of every store rule.
std::vector<float> probeValues()
{
    std::vector<float> v = {0.0f, -0.0f, 1.0f, 0.5f, 0.25f, -0.5f, 1.5f, 2.0f, -1.0f, 0.999999f,
                            1.0f / 255.0f, 0.5f / 255.0f, 254.5f / 255.0f, 1.0f / 65535.0f, 32767.5f / 65535.0f,
                            std::nextafter(1.0f, 0.0f), std::nextafter(1.0f, 2.0f), 1e-8f, 6.1e-5f, 6.0e-8f,
                            65504.0f, 65519.0f, 65520.0f, 1e10f, -1e10f, 1e30f,
                            std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::denorm_min(),
                            1.0f + std::ldexp(1.0f, -11), 4095.0f / 1024.0f}; // halfway between halves
    // The floats next to every 8-bit code and to a spread of 16-bit codes:
    // truncation must see the exact product, not one rounded to float.
    auto around = [&v](double x) {
        const float f = static_cast<float>(x);
        v.insert(v.end(), {std::nextafter(f, -1.0f), f, std::nextafter(f, 2.0f)});
    };
    for (int k = 1; k <= 255; ++k)
        around(k / 255.0);
    for (int k = 1; k <= 65535; k += 97)
        around(k / 65535.0);
    return v;
}
} // namespace

// ---------------------------------------------------------------- every shape

RASTER_SHAPE_SUITE(RasterAccessShape);

TEST_P(RasterAccessShape, PixelAddressesFollowTheLayoutAndNothingIsReachedOutside)
{
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 5, 3, 1);
    const char *base = static_cast<const char *>(r.getPixels());
    for (int64 y = 0; y < 3; ++y)
        for (int64 x = 0; x < 5; ++x)
            for (int64 c = 0; c < planesOf(p) * stepOf(p); ++c)
                ASSERT_EQ(static_cast<const char *>(r.getPixel(x, y, c)) - base, offsetOf(r, x, y, c))
                    << x << "," << y << "," << c;
    EXPECT_EQ(static_cast<const IMB_Raster &>(r).getPixel(4, 2, 0), r.getPixel(4, 2, 0));
    const float in[4] = {1, 1, 1, 1};
    float out[4] = {-7, -7, -7, -7};
    for (auto [x, y] : {std::pair<int64, int64>{-1, 0}, {0, -1}, {5, 0}, {0, 3}})
    {
        EXPECT_EQ(r.getPixel(x, y, 0), nullptr);
        r.setPixelValue(x, y, in);
        r.getPixelValue(x, y, out);
    }
    EXPECT_EQ(bytesOfRaster(r), std::vector<unsigned char>(size_t(r.getSize()), 0));
    EXPECT_EQ(out[0], -7.0f);
}

TEST_P(RasterAccessShape, StoredValuesFollowTheTruncatingRuleAlongComponentZero)
{
    // Values land as consecutive components from component 0 whatever the
    // packing: on plane packings at plane-0 pixels x, x + 1, ..., here past
    // the end of row 1 (kept); nothing else is written.
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 8, 3, 1);
    const int64 at = offsetOf(r, 7, 1, 0), b = bytesOf(f);
    const std::vector<float> probes = probeValues();
    std::vector<unsigned char> want(size_t(r.getSize()), 0);
    for (size_t j = 0; j < probes.size(); ++j)
    {
        float in[4];
        for (int i = 0; i < 4; ++i)
            in[i] = probes[(j + 7 * i) % probes.size()];
        r.setPixelValue(7, 1, in);
        for (int i = 0; i < valuesOf(p); ++i)
        {
            const uint64 s = refStore(f, in[i]);
            std::memcpy(&want[size_t(at + i * b)], &s, size_t(b));
        }
        ASSERT_EQ(bytesOfRaster(r), want) << in[0];
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
            const uint64 v = (raw + i) & mask;
            const int64 off = isPlanar(p) ? offsetOf(r, 2, 1, i) : offsetOf(r, 2, 1, 0) + i * bytesOf(f);
            std::memcpy(static_cast<char *>(r.getPixels()) + off, &v, size_t(bytesOf(f)));
        }
        float out[4] = {-7, -7, -7, -7};
        r.getPixelValue(2, 1, out);
        for (int i = 0; i < 4; ++i)
        {
            const float want = i < n ? refLoad(f, (raw + i) & mask) : -7.0f; // nothing beyond the packing's values
            ASSERT_TRUE((std::isnan(out[i]) && std::isnan(want)) || std::memcmp(&out[i], &want, 4) == 0)
                << std::hex << raw << " value " << i;
        }
    }
}

TEST_P(RasterAccessShape, RowsRoundTripThroughAPackedBufferPlaneZeroFirst)
{
    const auto [p, f] = GetParam();
    IMB_Raster src = numbered(p, f, 6, 3), dst(p, f, 6, 3, 1), want(p, f, 6, 3, 1);
    const int64 line = bytesOf(f) * stepOf(p) * 6;
    std::vector<unsigned char> buf(size_t(line * planesOf(p)));
    src.readFromRow(1, buf.data());
    dst.writeToRow(2, buf.data());
    for (int64 k = 0; k < planesOf(p); ++k)
    {
        EXPECT_EQ(std::memcmp(buf.data() + k * line, src.getPixel(0, 1, k), size_t(line)), 0) << k;
        std::memcpy(want.getPixel(0, 2, k), src.getPixel(0, 1, k), size_t(line));
    }
    EXPECT_EQ(bytesOfRaster(dst), bytesOfRaster(want)); // other rows untouched
}

TEST_P(RasterAccessShape, ColumnsTakeAPixelPerRowOrPlaneByPlaneSamples)
{
    // Plane packings: 8-bit samples advance through the buffer, wider ones
    // do not, so the whole column gets the first sample (kept).
    const auto [p, f] = GetParam();
    IMB_Raster r(p, f, 3, 4, 1);
    const int64 b = bytesOf(f), px = b * stepOf(p);
    std::vector<unsigned char> col(size_t(planesOf(p) * 4 * px)), zero(size_t(px), 0);
    std::iota(col.begin(), col.end(), static_cast<unsigned char>(1));
    r.writeToColumn(1, col.data());
    for (int64 k = 0; k < planesOf(p); ++k)
        for (int64 y = 0; y < 4; ++y)
            for (int64 x = 0; x < 3; ++x)
            {
                const unsigned char *want = x != 1 ? zero.data() : !isPlanar(p) ? &col[size_t(y * px)]
                                                              : b == 1       ? &col[size_t(k * 4 + y)]
                                                                             : col.data();
                ASSERT_EQ(std::memcmp(r.getPixel(x, y, k), want, size_t(px)), 0) << x << "," << y << "," << k;
            }
}

TEST_P(RasterAccessShape, ExtractAndInsertCopyEveryPlaneOfTheClippedRectangle)
{
    const auto [p, f] = GetParam();
    IMB_Raster src = numbered(p, f, 3, 3, 5), dst(p, f, 4, 4, 1), whole;
    src.setDataWindow(BAS_DimRect(1, 1, 2, 2));
    whole.extract(src, 0, 0, 2, 2);
    EXPECT_EQ(bytesOfRaster(whole), bytesOfRaster(src));
    EXPECT_EQ(whole.getDataWindow(), BAS_DimRect(1, 1, 2, 2));
    EXPECT_TRUE(whole.getDataWritten());
    dst.insert(src, 2, -1); // overhangs right and bottom edges
    expectShifted(dst, src, -2, 1);
    EXPECT_FALSE(dst.getDataWritten()); // insert leaves the written flag alone
}

TEST_P(RasterAccessShape, FlipReversesTheRowsOfPlaneZeroOnly)
{
    // Other planes stay as they were (kept).
    const auto [p, f] = GetParam();
    for (int64 h : {4, 5})
    {
        IMB_Raster r = numbered(p, f, 3, h);
        const IMB_Raster before(r);
        r.flipVertical();
        for (int64 k = 0; k < planesOf(p); ++k)
            for (int64 y = 0; y < h; ++y)
                ASSERT_EQ(std::memcmp(r.getPixel(0, y, k), before.getPixel(0, k ? y : h - 1 - y, k),
                                      size_t(3 * bytesOf(f) * stepOf(p))),
                          0)
                    << h << " " << k << " " << y;
    }
}

TEST_P(RasterAccessShape, ClearRepeatsThePixelAndWritesNothingPastTheBlock)
{
    // Interleaved packings repeat the whole pixel; plane k takes component k,
    // and every format but float32 keeps the first sample of plane 0 (kept).
    const auto [p, f] = GetParam();
    IMB_Raster r = numbered(p, f, 7, 3);
    const IMB_Raster before(r);
    char *tail = static_cast<char *>(r.getPixels()) + r.getSize();
    std::memset(tail, 0x77, static_cast<std::size_t>(r.getStride() + 16));
    const unsigned char pixel[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    r.clear(pixel);
    const int64 b = bytesOf(f);
    for (int64 k = 0; k < planesOf(p); ++k)
        for (int64 i = 0; i < 7 * 3 * b * stepOf(p); ++i)
        {
            const bool kept = isPlanar(p) && k == 0 && i < b && f != IMB_FLOAT32;
            const int64 want = kept ? static_cast<const unsigned char *>(before.getPixel(0, 0, 0))[i]
                                    : pixel[isPlanar(p) ? k * b + i % b : i % (b * stepOf(p))];
            ASSERT_EQ(static_cast<const unsigned char *>(r.getPixel(0, 0, k))[i], want) << k << " byte " << i;
        }
    r.clear(nullptr);
    EXPECT_EQ(bytesOfRaster(r), std::vector<unsigned char>(size_t(r.getSize()), 0));
    for (int64 i = 0; i < r.getStride() + 16; ++i)
        ASSERT_EQ(tail[i], 0x77) << i;
}

// ---------------------------------------------------------------- rectangles

TEST(RasterAccess, ExtractReshapesTakesTheTagsAndZeroesWhatLiesOutside)
{
    const std::tuple<IMB_Packing, IMB_DataFormat, int64, int64, int64, int64> cases[] = {
        {PACK_SINGLE, IMB_INT8, -2, -2, 1, 1},   {PACK_RGBA_NI, IMB_INT16, 2, 1, 5, 4},
        {PACK_RGB, IMB_FLOAT32, 10, 10, 11, 12}, {PACK_RGB, IMB_FLOAT32, -5, 0, -1, 1},
        {PACK_DUAL_NI, IMB_INT8, 1, 2, 2, 3}};
    for (auto [p, f, x1, y1, x2, y2] : cases)
    {
        IMB_Raster src = numbered(p, f, 4, 3), dst(PACK_SINGLE, IMB_INT8, 4, 4);
        src.setColorSpace(IMB_CS_CUSTOM_GAMMA, 2.6);
        src.setBWPoints(0.25f, 0.5f);
        std::memset(dst.getPixels(), 0xee, 16);
        dst.extract(src, x1, y1, x2, y2);
        float b, w;
        dst.getBWPoints(b, w);
        ASSERT_EQ(std::make_tuple(dst.getXres(), dst.getYres(), dst.getPacking(), dst.getFormat()),
                  std::make_tuple(x2 - x1 + 1, y2 - y1 + 1, p, f));
        EXPECT_EQ(std::make_tuple(dst.getColorSpace(), dst.getColorSpaceGamma(), b, w),
                  std::make_tuple(IMB_CS_CUSTOM_GAMMA, 2.6, 0.25f, 0.5f));
        expectShifted(dst, src, x1, y1);
    }
    const IMB_Raster before = numbered(PACK_RGB_NI, IMB_INT8, 4, 4);
    IMB_Raster r(before);
    r.extract(r, 1, 2, 2, 3); // from itself: a crop
    ASSERT_EQ(std::make_pair(r.getXres(), r.getYres()), std::make_pair(int64(2), int64(2)));
    expectShifted(r, before, 1, 2);
}

TEST(RasterAccess, InsertNeedsTheSameShapeAndTakesTheTagEvenWithoutOverlap)
{
    IMB_Raster dst = numbered(PACK_RGB, IMB_INT8, 4, 4);
    dst.setColorSpace(IMB_CS_LINEAR);
    const auto before = bytesOfRaster(dst);
    IMB_Raster wide(PACK_RGB, IMB_INT16, 2, 2, 1), rgba(PACK_RGBA, IMB_INT8, 2, 2, 1);
    IMB_Raster same(PACK_RGB, IMB_INT8, 2, 2, 1);
    wide.setColorSpace(IMB_CS_SRGB);
    rgba.setColorSpace(IMB_CS_SRGB);
    dst.insert(wide, 0, 0);
    dst.insert(rgba, 0, 0);
    EXPECT_EQ(bytesOfRaster(dst), before);
    EXPECT_EQ(dst.getColorSpace(), IMB_CS_LINEAR);
    same.setColorSpace(IMB_CS_CUSTOM_GAMMA, 1.7);
    for (auto [x, y] : {std::pair<int64, int64>{4, 0}, {0, 4}, {-2, 0}, {0, -2}})
    {
        dst.insert(same, x, y);
        EXPECT_EQ(bytesOfRaster(dst), before) << x << "," << y;
    }
    EXPECT_EQ(dst.getColorSpace(), IMB_CS_CUSTOM_GAMMA);
    EXPECT_EQ(dst.getColorSpaceGamma(), 1.7);
    dst.insert(same, -1, -1); // one pixel overlaps
    EXPECT_EQ(bytesOfRaster(dst)[0], 0);
    EXPECT_EQ(bytesOfRaster(dst)[3], before[3]);
}

// ---------------------------------------------------------------- clearNormal

TEST(RasterAccess, ClearNormalScalesIntoTheRangeAndConvertsFloats)
{
    // Integers: trunc(v * float(white - black)) + black in single precision:
    // float(2^32 - 1) is 2^32, so 1.0 wraps to 0 in int32.
    const std::tuple<IMB_DataFormat, float, unsigned, unsigned, uint32> cases[] = {
        {IMB_INT8, 0.5f, 0, 0, 127},      {IMB_INT8, 1.0f, 0, 0, 255},        {IMB_INT8, 0.999f, 0, 0, 254},
        {IMB_INT8, 0.5f, 16, 235, 125},   {IMB_INT8, 1.0f, 16, 235, 235},     {IMB_INT8, 0.0f, 16, 235, 16},
        {IMB_INT16, 0.5f, 0, 0, 32767},   {IMB_INT16, 1.0f, 0, 0, 65535},     {IMB_INT32, 0.5f, 0, 0, 1u << 31},
        {IMB_INT32, 1.0f, 0, 0, 0},       {IMB_FLOAT16, -0.0f, 0, 0, 0},      {IMB_FLOAT16, 0.1f, 0, 0, 0x2e66},
        {IMB_FLOAT16, 1.0f, 0, 0, 0x3c00}, {IMB_FLOAT16, 65520.0f, 0, 0, 0x7c00}, // rounds past the largest half
        {IMB_FLOAT32, -0.0f, 0, 0, 0x80000000u}, {IMB_FLOAT32, 0.1f, 0, 0, 0x3dcccccdu}};
    for (auto [f, v, black, white, want] : cases)
    {
        IMB_Raster r(PACK_RGBA, f, 2, 2);
        const float rgba[4] = {0.0f, v, 0.0f, v};
        r.clearNormal(rgba, black, white);
        for (int i = 0; i < 4; ++i)
        {
            uint32 got = 0;
            std::memcpy(&got, r.getPixel(1, 1, i), size_t(bytesOf(f)));
            EXPECT_EQ(got, i % 2 ? want : black) << IMBdataFormat(f) << " " << v;
        }
    }
}
