// Binary writers: fixed-width values to a std::ostream, little-endian.
#include <IMB/platform/BAS_IStream.h>

#include "platform/BinaryIO.h"

#include <algorithm>
#include <ostream>

namespace
{
template <class T> bool writeWords(std::ostream &os, const T *src, size_t count)
{
    if constexpr (imb_detail::hostIsLittleEndian)
    {
        if (count)
            os.write(reinterpret_cast<const char *>(src), std::streamsize(count * sizeof(T)));
    }
    else
    {
        // Swap through a small buffer so the caller's values stay as they are.
        T buf[1024];
        for (size_t done = 0; done < count;)
        {
            size_t n = std::min(count - done, sizeof buf / sizeof buf[0]);
            std::copy(src + done, src + done + n, buf);
            imb_detail::swapBytes(buf, n);
            os.write(reinterpret_cast<const char *>(buf), std::streamsize(n * sizeof(T)));
            done += n;
        }
    }
    return bool(os);
}
} // namespace

bool BASwriteBinary(std::ostream &os, const int32 *src, size_t count) { return writeWords(os, src, count); }
bool BASwriteBinary(std::ostream &os, const uint8 *src, size_t count) { return writeWords(os, src, count); }
bool BASwriteBinary(std::ostream &os, const uint16 *src, size_t count) { return writeWords(os, src, count); }
bool BASwriteBinary(std::ostream &os, const uint32 *src, size_t count) { return writeWords(os, src, count); }
bool BASwriteBinary(std::ostream &os, const float *src, size_t count) { return writeWords(os, src, count); }
