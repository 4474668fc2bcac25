// Vector kernels of IMB_Raster::getRange, compiled once per instruction set
// (included through hwy/foreach_target.h by RasterRange.cpp). Each scans a
// run of components whose channel is (index mod channels) and widens the
// per-channel extremes it finds into lo[] and hi[]. Minimum and maximum are
// exact on every target, so every target gives the same result.

#if defined(IMB_RASTER_RANGE_KERNELS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_RASTER_RANGE_KERNELS_INL_H_
#undef IMB_RASTER_RANGE_KERNELS_INL_H_
#else
#define IMB_RASTER_RANGE_KERNELS_INL_H_
#endif

#include "raster/RasterRange.h"

#include <hwy/highway.h>

#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// One lane type and its order: how a component becomes a key whose unsigned
// or float order is the value order, which keys stand for "nothing" (NaN),
// and how an extreme key becomes the float that getPixelValue reads.
struct RangeU8
{
    using T = uint8;
    static float value(T k) { return rangeValueU8(k); }
};
struct RangeU16
{
    using T = uint16;
    static float value(T k) { return rangeValueU16(k); }
};
struct RangeU32
{
    using T = uint32;
    static float value(T k) { return rangeValueU32(k); }
};

// Integer formats: no NaN, the stored order is the value order.
template <class F> void rangeInts(const RangeRun &run, RangeAcc &acc)
{
    using T = typename F::T;
    const hn::ScalableTag<T> d;
    const size_t lanes = hn::Lanes(d);
    const T *p = static_cast<const T *>(run.base);
    const int c = run.channels;
    const int64 block = static_cast<int64>(c * lanes);
    int64 i = 0;
    if (run.count >= block)
    {
        hn::Vec<decltype(d)> lo[4], hi[4];
        for (int k = 0; k < c; ++k)
            lo[k] = hi[k] = hn::LoadU(d, p + k * lanes);
        for (i = block; i + block <= run.count; i += block)
            for (int k = 0; k < c; ++k)
            {
                const auto v = hn::LoadU(d, p + i + k * lanes);
                lo[k] = hn::Min(lo[k], v);
                hi[k] = hn::Max(hi[k], v);
            }
        HWY_ALIGN T l[hn::MaxLanes(d)], h[hn::MaxLanes(d)];
        for (int k = 0; k < c; ++k)
        {
            hn::Store(lo[k], d, l);
            hn::Store(hi[k], d, h);
            for (size_t j = 0; j < lanes; ++j)
                acc.add(static_cast<int>((k * lanes + j) % c), F::value(l[j]), F::value(h[j]));
        }
    }
    for (; i < run.count; ++i)
        acc.add(static_cast<int>(i % c), F::value(p[i]), F::value(p[i]));
}

void RangeU8Run(const RangeRun &run, RangeAcc &acc) { rangeInts<RangeU8>(run, acc); }
void RangeU16Run(const RangeRun &run, RangeAcc &acc) { rangeInts<RangeU16>(run, acc); }
void RangeU32Run(const RangeRun &run, RangeAcc &acc) { rangeInts<RangeU32>(run, acc); }

// Floats: NaN lanes are replaced by +inf for the minimum and -inf for the
// maximum, so they never win.
void RangeF32Run(const RangeRun &run, RangeAcc &acc)
{
    const hn::ScalableTag<float> d;
    const size_t lanes = hn::Lanes(d);
    const float *p = static_cast<const float *>(run.base);
    const int c = run.channels;
    const int64 block = static_cast<int64>(c * lanes);
    int64 i = 0;
    if (run.count >= block)
    {
        const auto inf = hn::Set(d, HUGE_VALF), ninf = hn::Set(d, -HUGE_VALF);
        hn::Vec<decltype(d)> lo[4], hi[4];
        for (int k = 0; k < c; ++k)
        {
            lo[k] = inf;
            hi[k] = ninf;
        }
        for (; i + block <= run.count; i += block)
            for (int k = 0; k < c; ++k)
            {
                const auto v = hn::LoadU(d, p + i + k * lanes);
                const auto isNum = hn::Eq(v, v);
                lo[k] = hn::Min(lo[k], hn::IfThenElse(isNum, v, inf));
                hi[k] = hn::Max(hi[k], hn::IfThenElse(isNum, v, ninf));
            }
        HWY_ALIGN float l[hn::MaxLanes(d)], h[hn::MaxLanes(d)];
        for (int k = 0; k < c; ++k)
        {
            hn::Store(lo[k], d, l);
            hn::Store(hi[k], d, h);
            for (size_t j = 0; j < lanes; ++j)
                acc.add(static_cast<int>((k * lanes + j) % c), l[j], h[j]);
        }
    }
    for (; i < run.count; ++i)
        if (p[i] == p[i])
            acc.add(static_cast<int>(i % c), p[i], p[i]);
}

// Halves: each pattern becomes an unsigned key in value order (negative
// patterns inverted, positive ones with the sign bit set); NaN patterns take
// the key that cannot win.
void RangeF16Run(const RangeRun &run, RangeAcc &acc)
{
    const hn::ScalableTag<uint16> d;
    const size_t lanes = hn::Lanes(d);
    const uint16 *p = static_cast<const uint16 *>(run.base);
    const int c = run.channels;
    const int64 block = static_cast<int64>(c * lanes);
    int64 i = 0;
    if (run.count >= block)
    {
        const auto magnitude = hn::Set(d, uint16(0x7fff)), infBits = hn::Set(d, uint16(0x7c00));
        const auto sign = hn::Set(d, uint16(0x8000)), none = hn::Set(d, uint16(0xffff)), zero = hn::Zero(d);
        hn::Vec<decltype(d)> lo[4], hi[4];
        for (int k = 0; k < c; ++k)
        {
            lo[k] = none;
            hi[k] = zero;
        }
        for (; i + block <= run.count; i += block)
            for (int k = 0; k < c; ++k)
            {
                const auto h = hn::LoadU(d, p + i + k * lanes);
                const auto negative = hn::Ne(hn::And(h, sign), zero);
                const auto key = hn::Xor(h, hn::IfThenElse(negative, none, sign));
                const auto isNaN = hn::Gt(hn::And(h, magnitude), infBits);
                lo[k] = hn::Min(lo[k], hn::IfThenElse(isNaN, none, key));
                hi[k] = hn::Max(hi[k], hn::IfThenElse(isNaN, zero, key));
            }
        HWY_ALIGN uint16 l[hn::MaxLanes(d)], h[hn::MaxLanes(d)];
        for (int k = 0; k < c; ++k)
        {
            hn::Store(lo[k], d, l);
            hn::Store(hi[k], d, h);
            for (size_t j = 0; j < lanes; ++j)
                if (l[j] <= h[j]) // else only NaN reached this lane
                    acc.add(static_cast<int>((k * lanes + j) % c), rangeValueHalfKey(l[j]), rangeValueHalfKey(h[j]));
        }
    }
    for (; i < run.count; ++i)
        if ((p[i] & 0x7fff) <= 0x7c00)
        {
            const float v = rangeValueHalfKey(rangeHalfKey(p[i]));
            acc.add(static_cast<int>(i % c), v, v);
        }
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
