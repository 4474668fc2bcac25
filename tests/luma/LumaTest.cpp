// Luma conversion: every function, format and layout against a plain scalar
// reference written here from the rules.
#include <IMB/IMB_LumFuncs.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace
{
// ---------------------------------------------------------------- reference
template <class T> double refValue(T c)
{
    if constexpr (std::is_same_v<T, half16>)
        return double(float(c));
    else
        return double(c);
}

template <class T> T refWhite()
{
    if constexpr (std::is_same_v<T, half16>)
        return half16(1.0f);
    else if constexpr (std::is_same_v<T, float>)
        return 1.0f;
    else
        return std::numeric_limits<T>::max();
}

template <class T> T refZero()
{
    if constexpr (std::is_same_v<T, half16>)
        return half16::fromBits(0);
    else
        return T(0);
}

template <class T> T refFromFloat(float f)
{
    if constexpr (std::is_same_v<T, half16>)
        return half16(f);
    else
        return T(f);
}

// One pixel by the rules; c[k] null for an absent channel.
template <class T> T refPixel(int func, const T *c[4])
{
    if (func >= 5)
        return c[func - 5] ? *c[func - 5] : refZero<T>();
    if (func <= 1)
    {
        if constexpr (std::is_same_v<T, uint8>)
        {
            const unsigned w[2][3] = {{79, 156, 21}, {77, 150, 29}};
            unsigned s = 0;
            for (int k = 0; k < 3; ++k)
                if (c[k])
                    s += (unsigned(*c[k]) * w[func][k]) / 256;
            return T(s);
        }
        else if constexpr (std::is_same_v<T, uint16>)
        {
            const uint64_t w[2][3] = {{20224, 39938, 5374}, {19595, 38470, 7471}};
            uint64_t s = 0;
            for (int k = 0; k < 3; ++k)
                if (c[k])
                    s += (uint64_t(*c[k]) * w[func][k]) / 65536;
            return T(s);
        }
        else if constexpr (std::is_same_v<T, uint32>)
        {
            const double w[2][3] = {{0.3086, 0.6094, 0.082}, {0.299, 0.587, 0.114}};
            double s = 0;
            bool first = true;
            for (int k = 0; k < 3; ++k)
                if (c[k])
                {
                    s = first ? double(*c[k]) * w[func][k] : s + double(*c[k]) * w[func][k];
                    first = false;
                }
            double r = std::floor(s + 0.5);
            return r <= 0 ? 0u : r >= 4294967295.0 ? 4294967295u : uint32(r);
        }
        else
        {
            const float w[2][3] = {{0.3086f, 0.6094f, 0.082f}, {0.299f, 0.587f, 0.114f}};
            // Without red the destination starts at 0 and the terms are added.
            float s = c[0] ? float(refValue(*c[0])) * w[func][0] : 0.0f;
            for (int k = 1; k < 3; ++k)
                if (c[k])
                    s = s + float(refValue(*c[k])) * w[func][k];
            return refFromFloat<T>(s);
        }
    }
    if (func == 2 || func == 3)
    {
        T cur = c[0] ? *c[0] : (func == 2 ? refZero<T>() : refWhite<T>());
        for (int k = 1; k < 4; ++k)
            if (c[k] && (func == 2 ? refValue(*c[k]) > refValue(cur) : refValue(*c[k]) < refValue(cur)))
                cur = *c[k];
        return cur;
    }
    // average
    std::vector<T> p;
    for (int k = 0; k < 4; ++k)
        if (c[k])
            p.push_back(*c[k]);
    if (p.empty())
        return refZero<T>();
    if constexpr (std::is_integral_v<T>)
    {
        uint64_t white = std::numeric_limits<T>::max();
        uint64_t s = 0;
        if (p.size() == 1)
            s = p[0];
        else if (p.size() == 2)
            s = (uint64_t(p[0]) + p[1] + 1) / 2; // the pair rounds up
        else if (p.size() == 3)
            for (T v : p)
                s += (uint64_t(v) + 1) / 3;
        else
            for (T v : p)
                s += (uint64_t(v) + 2) / 4;
        return T(std::min(s, white));
    }
    else
    {
        float s = c[0] ? float(refValue(*c[0])) : 0.0f;
        for (int k = 1; k < 4; ++k)
            if (c[k])
                s = s + float(refValue(*c[k]));
        const float f[5] = {0, 1, 0.5f, 0.333333f, 0.25f};
        if (p.size() > 1)
            s *= f[p.size()];
        return refFromFloat<T>(s);
    }
}

template <class T> uint64_t bitsOf(T v)
{
    if constexpr (std::is_same_v<T, half16>)
        return v.bits();
    else if constexpr (std::is_same_v<T, float>)
    {
        uint32_t b;
        std::memcpy(&b, &v, 4);
        return b;
    }
    else
        return v;
}

// Values that hit the boundaries of each format, mixed with random ones.
template <class T> std::vector<T> sampleValues(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<T> v(n);
    for (size_t i = 0; i < n; ++i)
    {
        if constexpr (std::is_integral_v<T>)
        {
            const T edge[] = {0, 1, 2, 3, T(std::numeric_limits<T>::max() - 1), std::numeric_limits<T>::max(),
                              T(std::numeric_limits<T>::max() / 2), T(std::numeric_limits<T>::max() / 2 + 1)};
            v[i] = (rng() % 4 == 0) ? edge[rng() % 8] : T(rng());
        }
        else
        {
            const float edge[] = {0.0f, -0.0f, 1.0f, 0.5f, -1.0f, 65504.0f, 1e-6f,
                                  std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()};
            float f = (rng() % 4 == 0) ? edge[rng() % 9] : std::uniform_real_distribution<float>(-0.5f, 2.0f)(rng);
            v[i] = refFromFloat<T>(f);
        }
    }
    return v;
}

template <class T> class LumaConvert : public ::testing::Test
{
};
using LumaTypes = ::testing::Types<uint8, uint16, uint32, float, half16>;
TYPED_TEST_SUITE(LumaConvert, LumaTypes);

// Converts `count` pixels of the layout and compares with the reference.
template <class T>
void checkLayout(const T *src[4], int32 count, int32 stride, const char *what)
{
    for (int func = 0; func <= 8; ++func)
    {
        std::vector<T> out(count + 1, refFromFloat<T>(0.125f));
        const T sentinel = out[count];
        IMB_LumFuncs::convertToLuma(out.data(), IMB_LumFunction(func), src[0], src[1], src[2], src[3], count, stride);
        for (int32 i = 0; i < count; ++i)
        {
            const T *c[4];
            for (int k = 0; k < 4; ++k)
                c[k] = src[k] ? src[k] + int64_t(i) * stride : nullptr;
            T want = refPixel<T>(func, c);
            ASSERT_EQ(bitsOf(out[i]), bitsOf(want)) << what << " func " << func << " pixel " << i << " of " << count;
        }
        ASSERT_EQ(bitsOf(out[count]), bitsOf(sentinel)) << what << " func " << func << " wrote past the count";
    }
}
} // namespace

TYPED_TEST(LumaConvert, InterleavedAndPlaneLayoutsMatchTheReferenceForEveryFunction)
{
    using T = TypeParam;
    for (int32 count : {1, 2, 7, 16, 33, 64, 257, 1000})
    {
        auto buf = sampleValues<T>(size_t(count) * 4, 11 + count);
        const T *src[4] = {buf.data(), buf.data() + 1, buf.data() + 2, buf.data() + 3};
        checkLayout(src, count, 4, "rgba");
        const T *noAlpha[4] = {buf.data(), buf.data() + 1, buf.data() + 2, nullptr};
        checkLayout(noAlpha, count, 4, "rgbx");
        const T *bgra[4] = {buf.data() + 2, buf.data() + 1, buf.data(), buf.data() + 3};
        checkLayout(bgra, count, 4, "bgra");
    }
    for (int32 count : {1, 5, 31, 100, 513})
    {
        // RGB in an exact-size buffer: the last pixel ends the allocation.
        auto rgb = sampleValues<T>(size_t(count) * 3, 5 + count);
        const T *src3[4] = {rgb.data(), rgb.data() + 1, rgb.data() + 2, nullptr};
        checkLayout(src3, count, 3, "rgb");
        const T *src3a[4] = {rgb.data(), rgb.data() + 1, rgb.data() + 2, rgb.data()};
        checkLayout(src3a, count, 3, "rgb with red as alpha");

        auto planes = sampleValues<T>(size_t(count) * 4, 7 + count);
        const T *src1[4] = {planes.data(), planes.data() + count, planes.data() + 2 * count,
                            planes.data() + 3 * count};
        checkLayout(src1, count, 1, "planes");
        const T *src1n[4] = {planes.data(), planes.data() + count, planes.data() + 2 * count, nullptr};
        checkLayout(src1n, count, 1, "planes without alpha");
    }
}

TYPED_TEST(LumaConvert, EveryCombinationOfAbsentChannelsMatchesTheReference)
{
    using T = TypeParam;
    const int32 count = 40;
    auto buf = sampleValues<T>(size_t(count) * 5, 3);
    for (int mask = 0; mask < 16; ++mask)
    {
        for (int32 stride : {1, 5})
        {
            const T *src[4];
            for (int k = 0; k < 4; ++k)
                src[k] = (mask & (1 << k)) ? buf.data() + k : nullptr;
            checkLayout(src, stride == 5 ? count : count * 4 / 5, stride, "absent channels");
        }
    }
}

TYPED_TEST(LumaConvert, ACountOfZeroOrLessWritesNothing)
{
    using T = TypeParam;
    auto buf = sampleValues<T>(16, 1);
    for (int func = 0; func <= 8; ++func)
        for (int32 count : {0, -1, -100})
        {
            std::vector<T> out(4, refFromFloat<T>(0.25f));
            IMB_LumFuncs::convertToLuma(out.data(), IMB_LumFunction(func), buf.data(), buf.data() + 1,
                                        buf.data() + 2, buf.data() + 3, count, 4);
            for (T v : out)
                EXPECT_EQ(bitsOf(v), bitsOf(refFromFloat<T>(0.25f)));
        }
}

TYPED_TEST(LumaConvert, TheDispatchingOverloadMatchesTheTypedOne)
{
    using T = TypeParam;
    IMB_DataFormat format = std::is_same_v<T, uint8>    ? IMB_INT8
                            : std::is_same_v<T, uint16> ? IMB_INT16
                            : std::is_same_v<T, uint32> ? IMB_INT32
                            : std::is_same_v<T, float>  ? IMB_FLOAT32
                                                        : IMB_FLOAT16;
    auto buf = sampleValues<T>(400, 9);
    for (int func = 0; func <= 8; ++func)
    {
        std::vector<T> a(100), b(100);
        IMB_LumFuncs::convertToLuma(a.data(), IMB_LumFunction(func), buf.data(), buf.data() + 1, buf.data() + 2,
                                    buf.data() + 3, 100, 4);
        IMB_LumFuncs::convertToLuma(format, b.data(), IMB_LumFunction(func), buf.data(), buf.data() + 1,
                                    buf.data() + 2, buf.data() + 3, 100, 4);
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(bitsOf(a[i]), bitsOf(b[i]));
    }
}

TEST(LumaConvert8, WhiteGives253ForBothWeightedSums)
{
    std::vector<uint8> rgba(4 * 50, 255);
    std::vector<uint8> out(50);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_WEIGHTED, &rgba[0], &rgba[1], &rgba[2], &rgba[3], 50, 4);
    for (uint8 v : out)
        EXPECT_EQ(v, 78 + 155 + 20);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_NTSC, &rgba[0], &rgba[1], &rgba[2], &rgba[3], 50, 4);
    for (uint8 v : out)
        EXPECT_EQ(v, 76 + 149 + 28);
}

TEST(LumaConvert8, AllChannelsAbsentGiveZeroOrWhiteForMinimum)
{
    std::vector<uint8> out(40, 9);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_WEIGHTED, nullptr, nullptr, nullptr, nullptr, 40, 1);
    for (uint8 v : out)
        EXPECT_EQ(v, 0);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_MIN, nullptr, nullptr, nullptr, nullptr, 40, 1);
    for (uint8 v : out)
        EXPECT_EQ(v, 255);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_AVERAGE, nullptr, nullptr, nullptr, nullptr, 40, 1);
    for (uint8 v : out)
        EXPECT_EQ(v, 0);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_ALPHA, nullptr, nullptr, nullptr, nullptr, 40, 1);
    for (uint8 v : out)
        EXPECT_EQ(v, 0);
}

TEST(LumaConvert8, AverageRoundsPairsUpAndClampsFourNearWhiteChannels)
{
    const uint8 r[2] = {1, 255}, g[2] = {2, 254}, b[2] = {255, 254}, a[2] = {255, 255};
    uint8 out[2];
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_AVERAGE, r, g, nullptr, nullptr, 2, 1);
    EXPECT_EQ(out[0], 2);   // (1 + 2) / 2 = 1.5 rounds up
    EXPECT_EQ(out[1], 255); // 254.5 rounds up
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_AVERAGE, r, g, b, a, 2, 1);
    EXPECT_EQ(out[0], 0 + 1 + 64 + 64);
    EXPECT_EQ(out[1], 255); // four shares of 64 would be 256
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_AVERAGE, r, g, b, nullptr, 2, 1);
    EXPECT_EQ(out[0], 0 + 1 + 85);
    EXPECT_EQ(out[1], 85 + 85 + 85);
}

TEST(LumaConvertFloat, MinimumWithoutRedStartsFromWhite)
{
    const float g[3] = {2.0f, 0.5f, -3.0f};
    float out[3];
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_MIN, nullptr, g, nullptr, nullptr, 3, 1);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 0.5f);
    EXPECT_EQ(out[2], -3.0f);
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_MAX, nullptr, g, nullptr, nullptr, 3, 1);
    EXPECT_EQ(out[2], 0.0f);
}

TEST(LumaConvertFloat, NaNInRedStaysAndNaNLaterNeverReplaces)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> rgba;
    for (int i = 0; i < 64; ++i)
    {
        bool redNaN = i % 2;
        rgba.insert(rgba.end(), {redNaN ? nan : 0.2f, redNaN ? 0.9f : nan, 0.4f, 0.1f});
    }
    std::vector<float> out(64);
    IMB_LumFuncs::convertToLuma(out.data(), IMB_LUM_MAX, &rgba[0], &rgba[1], &rgba[2], &rgba[3], 64, 4);
    for (int i = 0; i < 64; ++i)
    {
        if (i % 2)
            EXPECT_TRUE(std::isnan(out[i]));
        else
            EXPECT_EQ(out[i], 0.4f);
    }
}

TEST(LumaConvert32, WeightedSumsRoundToNearestAndReachWhite)
{
    const uint32 white = 0xFFFFFFFFu;
    const uint32 px[8] = {white, white, white, 0, 10, 10, 10, 0};
    uint32 out[2];
    IMB_LumFuncs::convertToLuma(out, IMB_LUM_WEIGHTED, &px[0], &px[1], &px[2], &px[3], 2, 4);
    EXPECT_EQ(out[0], white);
    EXPECT_EQ(out[1], 10u);
}

TEST(LumaConvertFormat, AnUnknownFormatOrFunctionWritesNothing)
{
    uint8 src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8 out[2] = {42, 42};
    IMB_LumFuncs::convertToLuma(IMB_MAX_DATA_FORMAT, out, IMB_LUM_RED, src, src, src, src, 2, 1);
    EXPECT_EQ(out[0], 42);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out, IMB_LumFunction(9), src, src, src, src, 2, 1);
    EXPECT_EQ(out[0], 42);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out, IMB_LUM_ALPHA, src, src, src, src + 3, 2, 4);
    EXPECT_EQ(out[0], 4);
    EXPECT_EQ(out[1], 8);
}
