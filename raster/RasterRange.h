// Internal to raster/: what the getRange kernels scan and how they report.
#pragma once

#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

#include <cmath>

namespace imb_detail
{
// A run of components of one data format: component i belongs to channel
// i mod `channels` (1 to 4).
struct RangeRun
{
    const void *base = nullptr;
    int64 count = 0;
    int channels = 1;
};

// Per-channel extremes, as the floats getPixelValue reads. A channel that
// has seen nothing has lo > hi.
struct RangeAcc
{
    float lo[4] = {HUGE_VALF, HUGE_VALF, HUGE_VALF, HUGE_VALF};
    float hi[4] = {-HUGE_VALF, -HUGE_VALF, -HUGE_VALF, -HUGE_VALF};
    void add(int channel, float l, float h)
    {
        lo[channel] = l < lo[channel] ? l : lo[channel];
        hi[channel] = h > hi[channel] ? h : hi[channel];
    }
};

// The value conversions of getPixelValue; each is monotonic, so the extreme
// stored component gives the extreme value.
inline float rangeValueU8(uint8 v) { return static_cast<float>(v) * (1.0f / 255.0f); }
inline float rangeValueU16(uint16 v) { return static_cast<float>(v) * (1.0f / 65535.0f); }
inline float rangeValueU32(uint32 v) { return static_cast<float>(static_cast<double>(v) / 4294967295.0); }

// Halves in value order: negative patterns inverted, positive ones with the
// sign bit set, so -0 sorts just below +0.
inline uint16 rangeHalfKey(uint16 h) { return static_cast<uint16>(h ^ ((h & 0x8000) ? 0xffff : 0x8000)); }
inline float rangeValueHalfKey(uint16 key)
{
    const uint16 h = static_cast<uint16>((key & 0x8000) ? key ^ 0x8000 : key ^ 0xffff);
    return half16::toFloat(h);
}

// The vector kernels (RasterRange.cpp), one per data format; each widens
// `acc` by the run's extremes, NaN skipped.
void rangeRunU8(const RangeRun &run, RangeAcc &acc);
void rangeRunU16(const RangeRun &run, RangeAcc &acc);
void rangeRunU32(const RangeRun &run, RangeAcc &acc);
void rangeRunF32(const RangeRun &run, RangeAcc &acc);
void rangeRunF16(const RangeRun &run, RangeAcc &acc);
} // namespace imb_detail
