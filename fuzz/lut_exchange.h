// The body shared by the exchange-file fuzz targets (fuzz/lut_<format>.cpp):
// feeds arbitrary bytes to one reader, header-only and full, then offers an
// accepted table to every exchange writer, so that whatever a reader
// accepts the writers either write or refuse cleanly.
#pragma once

#include <IMB/IMB_Lookup.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <cstdint>
#include <cstdio>

inline int fuzzExchangeReader(IMB_Lookup::ExchangeFormat format, const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    BAS_ErrorCapture quiet; // the readers' messages are expected here
    for (int headerOnly = 1; headerOnly >= 0; --headerOnly)
    {
        FILE *in = fmemopen(const_cast<uint8_t *>(data), size, "r");
        if (!in)
            return 0;
        IMB_Lookup lut;
        IMB_Lookup::ExchangeHeader header;
        const bool ok = lut.loadExchange(in, format, headerOnly != 0, &header);
        std::fclose(in);
        // Write back only modest tables: the writers' time grows with the
        // table; the readers are the target.
        if (ok && !headerOnly && lut.get3DSize() <= 32 && lut.getTableSize() <= 4096)
        {
            FILE *out = std::fopen("/dev/null", "w");
            if (out)
            {
                for (int f = IMB_Lookup::EXCHANGE_CUBE; f <= IMB_Lookup::EXCHANGE_CSP; ++f)
                    lut.saveExchange(out, static_cast<IMB_Lookup::ExchangeFormat>(f));
                std::fclose(out);
            }
            float rgb[3] = {0.25f, 0.5f, 0.75f};
            lut.evalLUT(rgb);
        }
        quiet.clear();
    }
    return 0;
}
