// Shared layout rules, scalar references and raster builders for the raster
// tests. Everything here is written from the layout rules, independently of
// the library.
#pragma once

#include <IMB/IMB.h>

#include <gtest/gtest.h>

#include <cstring>
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

// Test-name suffix for a (packing, format) parameter.
inline std::string shapeName(const ::testing::TestParamInfo<std::tuple<IMB_Packing, IMB_DataFormat>> &info)
{
    return std::string(IMBpacking(std::get<0>(info.param))) + "_" + IMBdataFormat(std::get<1>(info.param));
}
} // namespace rastertest

// Every packing crossed with every format.
#define RASTER_ALL_SHAPES                                                                                              \
    ::testing::Combine(::testing::ValuesIn(rastertest::theAllPackings), ::testing::ValuesIn(rastertest::theAllFormats))
