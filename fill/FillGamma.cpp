// The gamma tables of the fill engine: built under their own lock, cached by
// (gamma, black, white).
#include "platform/FloatContract.h"

#include <IMB/IMB_Fill.h>

#include "fill/FillRules.h"

#include <cmath>

namespace
{
// Fills `table` (white + 1 entries, M = the format's largest value) for
// gamma g between black and white, in single precision.
template <typename T> void buildTable(T *table, float g, uint32 black, uint32 white, int32 M, float inverseM)
{
    const float e = 1.0f / g;
    const float fM = static_cast<float>(M);
    if (black == 0 && white == static_cast<uint32>(M))
    {
        for (int32 i = 0; i <= M; ++i)
            table[i] = imb_detail::roundClamp<T>(std::pow(static_cast<float>(i) * inverseM, e) * fM + 0.5f, fM);
        return;
    }
    const float range = static_cast<float>(imb_detail::rangeOf(black, white));
    const float s = black == white ? 1.0f : 1.0f / range;
    const float fBlack = static_cast<float>(black);
    for (int32 i = 0; i <= M; ++i)
    {
        const float b = static_cast<float>(static_cast<int64>(i) - static_cast<int64>(black)) * s;
        const float p = b >= 0.0f ? std::pow(b, e) : -std::pow(-b, e);
        table[i] = imb_detail::roundClamp<T>(p * range + fBlack + 0.5f, fM);
    }
}

template <typename Table, typename T>
const T *buildCached(Table &t, float gamma, uint32 black, uint32 white, int32 M, float inverseM)
{
    BAS_AutoLock guard(t.myLock);
    if (t.myTable && t.myBlack == black && t.myWhite == white && t.myGamma == gamma)
        return t.myTable;
    t.myGamma = gamma;
    t.myBlack = black;
    t.myWhite = white;
    if (!t.myTable)
        t.myTable = new T[static_cast<size_t>(M) + 1];
    buildTable(t.myTable, gamma, black, white, M, inverseM);
    return t.myTable;
}
} // namespace

tbl_gamma8::~tbl_gamma8()
{
    delete[] myTable;
}

const uint8 *tbl_gamma8::build(float gamma, uint32 black, uint32 white)
{
    return buildCached<tbl_gamma8, uint8>(*this, gamma, black, white, 255, imb_detail::kInv255);
}

tbl_gamma16::~tbl_gamma16()
{
    delete[] myTable;
}

const uint16 *tbl_gamma16::build(float gamma, uint32 black, uint32 white)
{
    return buildCached<tbl_gamma16, uint16>(*this, gamma, black, white, 65535, imb_detail::kInv65535);
}
