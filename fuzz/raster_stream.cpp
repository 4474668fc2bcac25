// Fuzzes IMB_Raster::load on both stream forms: the first byte selects the
// form (even: binary, odd: text), the rest is the stream. A raster that loads
// must save in the text form and load back to the same shape and pixels.
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_IStream.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const bool binary = (data[0] & 1) == 0;
    BAS_IStream is(data + 1, size - 1, binary);
    IMB_Raster r;
    if (!r.load(is))
        return 0;

    std::ostringstream os;
    if (r.save(os, 0) != 1)
        std::abort();
    const std::string text = os.str();
    BAS_IStream back(text.data(), text.size(), false);
    IMB_Raster again;
    if (!again.load(back))
        std::abort();
    if (again.getFormat() != r.getFormat() || again.getPacking() != r.getPacking() ||
        again.getXres() != r.getXres() || again.getYres() != r.getYres() || again.getSize() != r.getSize())
        std::abort();
    // Compare only what the stream defined: a binary load fills the first
    // plane of the plane packings.
    int64 defined = r.getSize();
    if (binary)
        defined = r.getSize() / (r.getPacking() == PACK_DUAL_NI   ? 2
                                 : r.getPacking() == PACK_RGB_NI  ? 3
                                 : r.getPacking() == PACK_RGBA_NI ? 4
                                                                  : 1);
    if (std::memcmp(again.getPixels(), r.getPixels(), size_t(defined)) != 0)
        std::abort();
    return 0;
}
