// Shared layout rules, scalar references and raster builders for the raster
// tests. Everything here is written from the layout rules, independently of
// the library.
#pragma once

#include <IMB/IMB.h>
#include <IMB/platform/half16.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace rastertest
{
inline const IMB_Packing theAllPackings[] = {PACK_SINGLE, PACK_DUAL,   PACK_DUAL_NI, PACK_RGB,
                                             PACK_RGBA,   PACK_RGB_NI, PACK_RGBA_NI, PACK_UV};
inline const IMB_DataFormat theAllFormats[] = {IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16};

inline int64 bytesOf(IMB_DataFormat f)
{
    return f == IMB_INT8 ? 1 : (f == IMB_INT16 || f == IMB_FLOAT16) ? 2 : 4;
}
inline bool isPlanar(IMB_Packing p)
{
    return p == PACK_SINGLE || p == PACK_DUAL_NI || p == PACK_RGB_NI || p == PACK_RGBA_NI;
}
// Planes in the block, and components per pixel within one plane.
inline int64 planesOf(IMB_Packing p)
{
    return p == PACK_DUAL_NI ? 2 : p == PACK_RGB_NI ? 3 : p == PACK_RGBA_NI ? 4 : 1;
}
inline int64 stepOf(IMB_Packing p)
{
    return (p == PACK_DUAL || p == PACK_RGB) ? 3 : p == PACK_RGBA ? 4 : p == PACK_UV ? 2 : 1;
}
// Values a pixel exposes through the value accessors.
inline int valuesOf(IMB_Packing p)
{
    return p == PACK_SINGLE ? 1 : (p == PACK_DUAL || p == PACK_DUAL_NI || p == PACK_UV) ? 2
                              : (p == PACK_RGB || p == PACK_RGB_NI)                        ? 3
                                                                                            : 4;
}

// A raster with every pixel byte set from a counter.
inline IMB_Raster numbered(IMB_Packing p, IMB_DataFormat f, int64 w, int64 h, int seed = 1)
{
    IMB_Raster r(p, f, w, h);
    auto *bytes = static_cast<unsigned char *>(r.getPixels());
    for (int64 i = 0; i < r.getSize(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 13 + seed);
    return r;
}

inline std::vector<unsigned char> bytesOfRaster(const IMB_Raster &r)
{
    const auto *b = static_cast<const unsigned char *>(r.getPixels());
    return std::vector<unsigned char>(b, b + r.getSize());
}

// The bits of a value as another type of the same size.
template <class To, class From> To bitsAs(From v)
{
    static_assert(sizeof(To) == sizeof(From));
    To t;
    std::memcpy(&t, &v, sizeof t);
    return t;
}

inline bool sameBytes(const IMB_Raster &a, const IMB_Raster &b) { return bytesOfRaster(a) == bytesOfRaster(b); }

// Fills every component with values that hit the rules' boundaries: for
// integer formats zero, white and random codes; for float formats 0, 1, in
// between, above 1, negative, both zeros, NaN and the infinities.
inline void fillInteresting(IMB_Raster &r, unsigned seed)
{
    std::mt19937 rng(seed);
    auto *p = static_cast<unsigned char *>(r.getPixels());
    const int64 d = bytesOf(r.getFormat()), n = r.getSize() / d;
    const float specials[] = {0.0f, 1.0f, 0.5f, 0.25f, 0.999f, 1.5f, -0.25f, std::numeric_limits<float>::quiet_NaN(),
                              -0.0f, 1e-3f, 2.0f, HUGE_VALF, -HUGE_VALF};
    for (int64 i = 0; i < n; ++i)
    {
        const float f = rng() % 3 == 0 ? specials[rng() % 13] : std::uniform_real_distribution<float>(-0.5f, 1.5f)(rng);
        const uint32 u = rng() % 4 == 0 ? ((rng() & 1) ? 0xFFFFFFFFu : 0u) : uint32(rng());
        const uint16 h = half16(f).bits();
        std::memcpy(p + d * i, r.getFormat() == IMB_FLOAT32 ? static_cast<const void *>(&f)
                               : r.getFormat() == IMB_FLOAT16 ? static_cast<const void *>(&h)
                                                              : &u,
                    size_t(d));
    }
}

// Fixture of the tests run over every (packing, format).
using ShapeTest = ::testing::TestWithParam<std::tuple<IMB_Packing, IMB_DataFormat>>;

// Test-name suffix for a (packing, format) parameter.
inline std::string shapeName(const ::testing::TestParamInfo<ShapeTest::ParamType> &info)
{
    return std::string(IMBpacking(std::get<0>(info.param))) + "_" + IMBdataFormat(std::get<1>(info.param));
}
} // namespace rastertest

// Declares the suite `Name` of tests run over every packing crossed with every
// format.
#define RASTER_SHAPE_SUITE(Name)                                                                                       \
    using Name = rastertest::ShapeTest;                                                                                \
    INSTANTIATE_TEST_SUITE_P(AllShapes, Name,                                                                          \
                             ::testing::Combine(::testing::ValuesIn(rastertest::theAllPackings),                       \
                                                ::testing::ValuesIn(rastertest::theAllFormats)),                       \
                             rastertest::shapeName)
