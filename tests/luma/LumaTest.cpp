// Luma conversion: every function, format and layout against a plain scalar
// reference written here from the rules.
#include <IMB/IMB_LumFuncs.h>

#include <gtest/gtest.h>

#include <array>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

namespace
{
// ---------------------------------------------------------------- reference
// Every component type converts to double exactly and is made from a float
// by its own conversion (half16's for halves).
template <class T> T refZero() { return T(0.0f); }
template <class T> T refWhite() { return std::is_integral_v<T> ? std::numeric_limits<T>::max() : T(1.0f); }

// One pixel by the rules; c[k] null for an absent channel.
template <class T> T refPixel(int func, const T *c[4])
{
    if (func >= 5)
        return c[func - 5] ? *c[func - 5] : refZero<T>();
    if (func <= 1)
    {
        if constexpr (std::is_integral_v<T> && sizeof(T) <= 2)
        {
            // Each term truncates on its own.
            const uint64_t w8[2][3] = {{79, 156, 21}, {77, 150, 29}};
            const uint64_t w16[2][3] = {{20224, 39938, 5374}, {19595, 38470, 7471}};
            uint64_t s = 0;
            for (int k = 0; k < 3; ++k)
                if (c[k])
                    s += (uint64_t(*c[k]) * (sizeof(T) == 1 ? w8 : w16)[func][k]) >> (8 * sizeof(T));
            return T(s);
        }
        else if constexpr (std::is_same_v<T, uint32>)
        {
            const double w[2][3] = {{0.3086, 0.6094, 0.082}, {0.299, 0.587, 0.114}};
            double s = 0;
            for (int k = 0; k < 3; ++k)
                if (c[k])
                    s += double(*c[k]) * w[func][k];
            double r = std::floor(s + 0.5);
            return r <= 0 ? 0u : r >= 4294967295.0 ? 4294967295u : uint32(r);
        }
        else
        {
            const float w[2][3] = {{0.3086f, 0.6094f, 0.082f}, {0.299f, 0.587f, 0.114f}};
            // Without red the destination starts at 0 and the terms are added.
            float s = c[0] ? float(double(*c[0])) * w[func][0] : 0.0f;
            for (int k = 1; k < 3; ++k)
                if (c[k])
                    s = s + float(double(*c[k])) * w[func][k];
            return T(s);
        }
    }
    if (func == 2 || func == 3)
    {
        T cur = c[0] ? *c[0] : (func == 2 ? refZero<T>() : refWhite<T>());
        for (int k = 1; k < 4; ++k)
            if (c[k] && (func == 2 ? double(*c[k]) > double(cur) : double(*c[k]) < double(cur)))
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
        // n = 2: the pair rounds up; n = 3 and 4: a rounded share each, the
        // sum clamped to white.
        uint64_t s = p.size() == 2 ? (uint64_t(p[0]) + p[1] + 1) / 2 : 0;
        for (T v : p)
            s += p.size() == 1 ? v : p.size() == 3 ? (uint64_t(v) + 1) / 3 : p.size() == 4 ? (uint64_t(v) + 2) / 4 : 0;
        return T(std::min<uint64_t>(s, std::numeric_limits<T>::max()));
    }
    else
    {
        float s = c[0] ? float(double(*c[0])) : 0.0f;
        for (int k = 1; k < 4; ++k)
            if (c[k])
                s = s + float(double(*c[k]));
        const float f[5] = {0, 1, 0.5f, 0.333333f, 0.25f};
        if (p.size() > 1)
            s *= f[p.size()];
        return T(s);
    }
}

template <class T> uint64_t bitsOf(T v)
{
    uint64_t b = 0;
    if constexpr (std::is_same_v<T, half16>)
        b = v.bits();
    else
        std::memcpy(&b, &v, sizeof v);
    return b;
}

// Values that hit the boundaries of each format, mixed with random ones; the
// first eight are white and the next eight just below, so interleaved
// buffers start with whole pixels at the top of the range (8-bit white gives
// 253, four near-white shares clamp to white instead of wrapping).
template <class T> std::vector<T> sampleValues(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<T> v(n);
    for (size_t i = 0; i < n; ++i)
    {
        if constexpr (std::is_integral_v<T>)
        {
            const T top = std::numeric_limits<T>::max();
            const T edge[] = {0, 1, 2, 3, T(top - 1), top, T(top / 2), T(top / 2 + 1)};
            v[i] = i < 8 ? top : i < 16 ? T(top - 1) : (rng() % 4 == 0) ? edge[rng() % 8] : T(rng());
        }
        else
        {
            const float edge[] = {0.0f, -0.0f, 1.0f, 0.5f, -1.0f, 65504.0f, 1e-6f,
                                  std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()};
            float f = (rng() % 4 == 0) ? edge[rng() % 9] : std::uniform_real_distribution<float>(-0.5f, 2.0f)(rng);
            v[i] = T(i < 8 ? 1.0f : i < 16 ? 65504.0f : f);
        }
    }
    return v;
}

template <class T> class LumaConvert : public ::testing::Test
{
};
using LumaTypes = ::testing::Types<uint8, uint16, uint32, float, half16>;
TYPED_TEST_SUITE(LumaConvert, LumaTypes);

template <class T>
constexpr IMB_DataFormat formatOf = std::is_same_v<T, uint8>    ? IMB_INT8
                                    : std::is_same_v<T, uint16> ? IMB_INT16
                                    : std::is_same_v<T, uint32> ? IMB_INT32
                                    : std::is_same_v<T, float>  ? IMB_FLOAT32
                                                                : IMB_FLOAT16;

// Converts `count` pixels of the layout through the typed and the dispatching
// overload and compares with the reference; nothing is written past them.
template <class T> void checkLayout(const T *src[4], int32 count, int32 stride, const char *what)
{
    for (int func = 0; func <= 8; ++func)
        for (bool dispatched : {false, true})
        {
            std::vector<T> out(size_t(std::max(count, 0)) + 1, T(0.125f));
            const auto f = IMB_LumFunction(func);
            if (dispatched) // the overload that dispatches on the format
                IMB_LumFuncs::convertToLuma(formatOf<T>, out.data(), f, src[0], src[1], src[2], src[3], count,
                                            stride);
            else
                IMB_LumFuncs::convertToLuma(out.data(), f, src[0], src[1], src[2], src[3], count, stride);
            for (int32 i = 0; i < count; ++i)
            {
                const T *c[4];
                for (int k = 0; k < 4; ++k)
                    c[k] = src[k] ? src[k] + int64_t(i) * stride : nullptr;
                ASSERT_EQ(bitsOf(out[i]), bitsOf(refPixel<T>(func, c)))
                    << what << " func " << func << " pixel " << i << " of " << count << " dispatched " << dispatched;
            }
            ASSERT_EQ(bitsOf(out.back()), bitsOf(T(0.125f))) << what << " func " << func << " wrote past";
        }
}
} // namespace

TYPED_TEST(LumaConvert, EveryLayoutAndCombinationOfAbsentChannelsMatchesTheReference)
{
    using T = TypeParam;
    for (int32 count : {-3, 0, 1, 2, 5, 7, 16, 31, 33, 64, 257, 513})
    {
        // Exact-size buffers: the last pixel ends the allocation.
        const size_t n = size_t(std::max(count, 1));
        const auto rgba = sampleValues<T>(n * 4, 11 + count), rgb = sampleValues<T>(n * 3, 5 + count);
        const T *p = rgba.data(), *q = rgb.data();
        const std::tuple<std::array<const T *, 4>, int32, const char *> layouts[] = {
            {{p, p + 1, p + 2, p + 3}, 4, "rgba"},
            {{p + 2, p + 1, p, p + 3}, 4, "bgra"},
            {{q, q + 1, q + 2, q}, 3, "rgb with red as alpha"},
            {{p, p + n, p + 2 * n, p + 3 * n}, 1, "planes"}};
        for (const auto &[src, stride, what] : layouts)
            for (int mask = 0; mask < 16; ++mask)
            {
                const T *c[4];
                for (int k = 0; k < 4; ++k)
                    c[k] = (mask >> k) & 1 ? src[k] : nullptr;
                SCOPED_TRACE(mask);
                checkLayout(c, count, stride, what);
            }
    }
}

TEST(LumaConvertFormat, EightBitWhiteGives253AndAnUnknownFormatOrFunctionWritesNothing)
{
    // Each 8-bit term truncates on its own: intended, callers rely on it.
    const uint8 src[8] = {255, 255, 255, 255, 5, 6, 7, 8};
    uint8 out[2] = {42, 42};
    IMB_LumFuncs::convertToLuma(IMB_MAX_DATA_FORMAT, out, IMB_LUM_RED, src, src, src, src, 2, 1);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out, IMB_LumFunction(9), src, src, src, src, 2, 1);
    EXPECT_EQ(out[0], 42);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out, IMB_LUM_WEIGHTED, src, src + 1, src + 2, src + 3, 1, 4);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out + 1, IMB_LUM_NTSC, src, src + 1, src + 2, src + 3, 1, 4);
    EXPECT_EQ(out[0], 78 + 155 + 20);
    EXPECT_EQ(out[1], 76 + 149 + 28);
    IMB_LumFuncs::convertToLuma(IMB_INT8, out, IMB_LUM_ALPHA, src, src, src, src + 3, 2, 4);
    EXPECT_TRUE(out[0] == 255 && out[1] == 8);
}
