// Feeds arbitrary bytes to the ".cube" lookup-table reader (see lut_exchange.h).
#include "lut_exchange.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    return fuzzExchangeReader(IMB_Lookup::EXCHANGE_CUBE, data, size);
}
