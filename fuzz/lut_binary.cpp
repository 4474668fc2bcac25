// Feeds arbitrary bytes to the binary lookup-table reader, header-only and
// full, then writes an accepted table back out in both forms.
#include <IMB/IMB_Lookup.h>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    for (int headerOnly = 1; headerOnly >= 0; --headerOnly)
    {
        FILE *in = fmemopen(const_cast<uint8_t *>(data), size, "rb");
        if (!in)
            return 0;
        IMB_Lookup lut;
        const bool ok = lut.loadBinary(in, headerOnly != 0);
        std::fclose(in);
        // Write back only modest tables: the writers' time grows with the
        // table (a cube of edge 256 is 16.7 million triples); the readers
        // are the target.
        if (ok && !headerOnly && lut.get3DSize() <= 32 && lut.getTableSize() <= 4096)
        {
            FILE *out = std::fopen("/dev/null", "w");
            if (out)
            {
                lut.saveBinary(out, false);
                lut.save(out);
                std::fclose(out);
            }
            float rgb[3] = {0.25f, 0.5f, 0.75f};
            lut.evalLUT(rgb);
        }
    }
    return 0;
}
