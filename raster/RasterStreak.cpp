// IMB_Raster::streakEdges: pads everything outside an area with the area's
// edge pixels (clamp to edge), plane by plane, as stored bytes.
#include <IMB/IMB_Raster.h>

#include <algorithm>
#include <cstring>

namespace
{
// Writes `count` copies of the `size`-byte pixel at `pixel` from `dst` on,
// doubling the copied run each time.
void repeatPixel(char *dst, const char *pixel, int64 count, int64 size)
{
    if (count <= 0)
        return;
    std::memcpy(dst, pixel, static_cast<std::size_t>(size));
    int64 done = 1;
    while (done < count)
    {
        const int64 n = std::min(done, count - done);
        std::memcpy(dst + done * size, dst, static_cast<std::size_t>(n * size));
        done += n;
    }
}
} // namespace

bool IMB_Raster::streakEdges(const BAS_Rect<BAS_DimRectImpl> &area)
{
    if (!isValid() || myFormat < IMB_INT8 || myFormat > IMB_FLOAT16 || myPacking < PACK_SINGLE ||
        myPacking > PACK_UV || area.w() <= 0 || area.h() <= 0)
        return false;
    const int64 x0 = std::max<int64>(0, area.x()), y0 = std::max<int64>(0, area.y());
    const int64 x1 = std::min<int64>(myXres, int64(area.x()) + area.w());
    const int64 y1 = std::min<int64>(myYres, int64(area.y()) + area.h());
    if (x0 >= x1 || y0 >= y1)
        return false;
    const int planes = isInterleaved() ? 1 : imbDefinesPComp[myPacking];
    const int64 pixel = imbDefinesDepth[myFormat] * imbDefinesPDepth[myPacking]; // bytes per pixel per plane
    const int64 rowBytes = pixel * myXres;
    for (int k = 0; k < planes; ++k)
    {
        for (int64 y = y0; y < y1; ++y)
        {
            char *row = static_cast<char *>(getPixel(0, y, k));
            repeatPixel(row, row + x0 * pixel, x0, pixel);
            repeatPixel(row + x1 * pixel, row + (x1 - 1) * pixel, myXres - x1, pixel);
        }
        const char *first = static_cast<const char *>(getPixel(0, y0, k));
        const char *last = static_cast<const char *>(getPixel(0, y1 - 1, k));
        for (int64 y = 0; y < y0; ++y)
            std::memcpy(getPixel(0, y, k), first, static_cast<std::size_t>(rowBytes));
        for (int64 y = y1; y < myYres; ++y)
            std::memcpy(getPixel(0, y, k), last, static_cast<std::size_t>(rowBytes));
    }
    return true;
}
