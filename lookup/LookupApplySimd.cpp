// Runtime dispatch of the float lookup kernels to the best instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lookup/LookupApplySimd-inl.h"
#include "hwy/foreach_target.h" // IWYU pragma: keep

#include "lookup/LookupApplySimd-inl.h"

#if HWY_ONCE
namespace imb_detail
{
HWY_EXPORT(ApplyFloat1D);
HWY_EXPORT(ApplyFloat3D);

void applyLut1DFloat(const Lut1DParams &p, const LutSpan &span) { HWY_DYNAMIC_DISPATCH(ApplyFloat1D)(p, span); }

void applyLut3DFloat(const Lut3DParams &p, const LutSpan &span) { HWY_DYNAMIC_DISPATCH(ApplyFloat3D)(p, span); }
} // namespace imb_detail
#endif
