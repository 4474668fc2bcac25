// Bytes mapped through 256-entry tables in vector registers, where the
// processor has byte permutes over two registers (AVX-512 VBMI). Internal.
#pragma once

#include <IMB/platform/BAS_Types.h>

namespace imb_detail
{
// Maps the first whole vectors of `count` bytes at `p` in place: byte i goes
// through the 256-entry table (i mod period) of `tables` (period 1, 2 or 4;
// `tables` holds period x 256 entries). Returns how many bytes it mapped, 0
// on processors without byte permutes; the caller maps the rest.
int64 mapBytes(uint8 *p, int64 count, const uint8 *tables, int period);
} // namespace imb_detail
