// Feeds arbitrary bytes to the text lookup-table reader, then writes the
// result back out, so that whatever the reader accepts the writer can handle.
#include <IMB/IMB_Lookup.h>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    FILE *in = fmemopen(const_cast<uint8_t *>(data), size, "r");
    if (!in)
        return 0;
    IMB_Lookup lut;
    const bool ok = lut.load(in, false);
    std::fclose(in);
    // Write back only modest tables: the writers' time grows with the table
    // (a cube of edge 256 is 16.7 million triples), the readers' is the target.
    if (ok && lut.get3DSize() <= 32 && lut.getTableSize() <= 4096)
    {
        FILE *out = std::fopen("/dev/null", "w");
        if (out)
        {
            lut.save(out);
            lut.saveBinary(out, true);
            std::fclose(out);
        }
        float rgb[3] = {0.25f, 0.5f, 0.75f};
        lut.evalLUT(rgb);
    }
    return 0;
}
