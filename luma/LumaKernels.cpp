// Runtime dispatch of the vector luma kernels to the best instruction set
// of the running processor.

// Fused multiply-add would change float results against the scalar rules.
#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "luma/LumaKernels-inl.h"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "luma/LumaKernels-inl.h"

#if HWY_ONCE
namespace imb_detail
{
HWY_EXPORT(LumaU8);
HWY_EXPORT(LumaU16);
HWY_EXPORT(LumaU32);
HWY_EXPORT(LumaF32);
HWY_EXPORT(LumaF16);

int64 lumaKernelU8(const LumaJob &job) { return HWY_DYNAMIC_DISPATCH(LumaU8)(job); }
int64 lumaKernelU16(const LumaJob &job) { return HWY_DYNAMIC_DISPATCH(LumaU16)(job); }
int64 lumaKernelU32(const LumaJob &job) { return HWY_DYNAMIC_DISPATCH(LumaU32)(job); }
int64 lumaKernelF32(const LumaJob &job) { return HWY_DYNAMIC_DISPATCH(LumaF32)(job); }
int64 lumaKernelF16(const LumaJob &job) { return HWY_DYNAMIC_DISPATCH(LumaF16)(job); }
} // namespace imb_detail
#endif
