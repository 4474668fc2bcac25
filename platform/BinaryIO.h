// Byte-order helpers of the binary readers and writers: the stored order is
// little-endian, so on little-endian hosts these do nothing.
#pragma once

#include <IMB/platform/BAS_Types.h>

#include <cstddef>
#include <cstring>

namespace imb_detail
{
inline constexpr bool hostIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Reverses the bytes of each of `count` values of T in place.
template <class T> void swapBytes(T *values, size_t count)
{
    if constexpr (sizeof(T) > 1)
    {
        unsigned char *p = reinterpret_cast<unsigned char *>(values);
        for (size_t i = 0; i < count; ++i, p += sizeof(T))
            for (size_t k = 0; k < sizeof(T) / 2; ++k)
            {
                unsigned char t = p[k];
                p[k] = p[sizeof(T) - 1 - k];
                p[sizeof(T) - 1 - k] = t;
            }
    }
}

// Turns `count` values read in stored order into host order, in place.
template <class T> void fromLittleEndian(T *values, size_t count)
{
    if constexpr (!hostIsLittleEndian)
        swapBytes(values, count);
}
} // namespace imb_detail
