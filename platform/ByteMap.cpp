// The byte permutes need the AVX-512 VBMI target, which Highway builds only
// on request.
#define HWY_WANT_AVX3_DL 1
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/ByteMap-inl.h"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "platform/ByteMap-inl.h"

#if HWY_ONCE
#include "platform/ByteMap.h"

namespace imb_detail
{
HWY_EXPORT(MapBytes);

int64 mapBytes(uint8 *p, int64 count, const uint8 *tables, int period)
{
    if (period != 1 && period != 2 && period != 4)
        return 0;
    return HWY_DYNAMIC_DISPATCH(MapBytes)(p, count, tables, period);
}
} // namespace imb_detail
#endif
