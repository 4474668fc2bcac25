// IMB_Raster::getRange: per-channel extremes over the data window, scanned
// by vector kernels chosen for the running processor.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "raster/RasterRangeKernels-inl.h"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "raster/RasterRangeKernels-inl.h"

#if HWY_ONCE
#include <IMB/IMB_Formats.h>
#include <IMB/IMB_Raster.h>

#include <algorithm>
#include <limits>

namespace imb_detail
{
HWY_EXPORT(RangeU8Run);
HWY_EXPORT(RangeU16Run);
HWY_EXPORT(RangeU32Run);
HWY_EXPORT(RangeF32Run);
HWY_EXPORT(RangeF16Run);

void rangeRunU8(const RangeRun &run, RangeAcc &acc) { HWY_DYNAMIC_DISPATCH(RangeU8Run)(run, acc); }
void rangeRunU16(const RangeRun &run, RangeAcc &acc) { HWY_DYNAMIC_DISPATCH(RangeU16Run)(run, acc); }
void rangeRunU32(const RangeRun &run, RangeAcc &acc) { HWY_DYNAMIC_DISPATCH(RangeU32Run)(run, acc); }
void rangeRunF32(const RangeRun &run, RangeAcc &acc) { HWY_DYNAMIC_DISPATCH(RangeF32Run)(run, acc); }
void rangeRunF16(const RangeRun &run, RangeAcc &acc) { HWY_DYNAMIC_DISPATCH(RangeF16Run)(run, acc); }
} // namespace imb_detail

using namespace imb_detail;

namespace
{
// Values getPixelValue reads per pixel: PACK_DUAL stores three components
// but shows two.
int valuesPerPixel(IMB_Packing packing) { return packing == PACK_DUAL ? 2 : imbDefinesPComp[packing]; }
} // namespace

bool IMB_Raster::getRange(float min[4], float max[4]) const
{
    IMBdetermineProcCaps();
    if (!isValid() || myFormat < IMB_INT8 || myFormat > IMB_FLOAT16 || myPacking < PACK_SINGLE ||
        myPacking > PACK_UV || myXres < 1 || myYres < 1)
        return false;
    // The data window clipped to the raster; the whole raster without one.
    int64 x0 = 0, y0 = 0, x1 = myXres, y1 = myYres;
    if (hasDataWindow())
    {
        x0 = std::max<int64>(0, myDataWindow.x());
        y0 = std::max<int64>(0, myDataWindow.y());
        x1 = std::min<int64>(myXres, int64(myDataWindow.x()) + myDataWindow.w());
        y1 = std::min<int64>(myYres, int64(myDataWindow.y()) + myDataWindow.h());
        if (x0 >= x1 || y0 >= y1)
            return false;
    }
    void (*kernel)(const RangeRun &, RangeAcc &) = nullptr;
    switch (myFormat)
    {
    case IMB_INT8: kernel = rangeRunU8; break;
    case IMB_INT16: kernel = rangeRunU16; break;
    case IMB_INT32: kernel = rangeRunU32; break;
    case IMB_FLOAT32: kernel = rangeRunF32; break;
    default: kernel = rangeRunF16; break;
    }
    RangeAcc acc;
    const int planes = isInterleaved() ? 1 : imbDefinesPComp[myPacking];
    const int interleave = imbDefinesPDepth[myPacking];
    // Whole rows are one run; otherwise each row of the window is one.
    const bool fullRows = x0 == 0 && x1 == myXres;
    for (int k = 0; k < planes; ++k)
    {
        RangeAcc planeAcc;
        for (int64 y = y0; y < y1; y += fullRows ? (y1 - y0) : 1)
        {
            RangeRun run;
            run.base = getPixel(x0, y, k);
            run.channels = interleave;
            run.count = (fullRows ? (y1 - y0) * myXres : (x1 - x0)) * interleave;
            kernel(run, planes == 1 ? acc : planeAcc);
        }
        if (planes > 1)
            acc.add(k, planeAcc.lo[0], planeAcc.hi[0]);
    }
    const int n = valuesPerPixel(myPacking);
    for (int c = 0; c < 4; ++c)
    {
        if (c >= n)
            min[c] = max[c] = 0.0f;
        else if (acc.lo[c] > acc.hi[c]) // every value was NaN
            min[c] = max[c] = std::numeric_limits<float>::quiet_NaN();
        else
        {
            // + 0.0f turns a -0 extreme into +0, whichever zero a target kept.
            min[c] = acc.lo[c] + 0.0f;
            max[c] = acc.hi[c] + 0.0f;
        }
    }
    return true;
}
#endif
