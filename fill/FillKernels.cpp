// The transfer kernels of IMB_Fill::fill: one template instantiated for every
// (source format, destination format, source fast, destination fast)
// combination, and the table that dispatches to them.
#include "platform/FloatContract.h"

#include <IMB/IMB_Fill.h>

#include "fill/FillRows.h"
#include "fill/FillRules.h"
#include "fill/FillWalker.h"

#include <array>
#include <utility>

namespace imb_detail
{
namespace
{
// Maps the written 8- or 16-bit components of the transfer through a table.
template <typename T> struct GammaRow
{
    const T *table;
    template <typename S> void operator()(const S *, int64, T *d, int64 dInc, int64 n) const
    {
        for (int64 i = 0; i < n; ++i)
            d[i * dInc] = table[d[i * dInc]];
    }
};

template <IMB_DataFormat S, IMB_DataFormat D, bool SF, bool DF> void fillKernel(const IMB_FillParms &p)
{
    IMBdetermineProcCaps();
    Placement q;
    if (!placeTransfer(p, q))
        return;
    using SrcT = ComponentOf<S>;
    using DstT = ComponentOf<D>;
    const auto *src = static_cast<const SrcT *>(p.mySource);
    auto *dst = static_cast<DstT *>(p.myDest);

    bool identity = false;
    if constexpr (S == D && Format<S>::isInteger)
    {
        // The stored black and white decide, even on fast buffers: a block
        // whose stored points differ converts through floats. Deliberate.
        identity = p.mySourceBlack == p.myDestBlack && p.mySourceWhite == p.myDestWhite;
        // Full range to full range at 32 bits is the value itself either way.
        if constexpr (S == IMB_INT32)
            identity = identity || (SF && DF);
    }
    if (identity)
    {
        if constexpr (S == D)
            walkRows(p, q, src, dst, RowConverter<CopyRule<SrcT>, SrcT, DstT>{CopyRule<SrcT>{}});
    }
    else if constexpr (usesBits<S, D, SF, DF>)
    {
        walkRows(p, q, src, dst, RowConverter<BitsRule<S, D>, SrcT, DstT>{BitsRule<S, D>{}});
    }
    else
    {
        using Rule = ThroughRule<S, SF, D, DF>;
        const Rule rule(p.mySourceBlack, p.mySourceWhite, p.myDestBlack, p.myDestWhite);
        walkRows(p, q, src, dst, RowConverter<Rule, SrcT, DstT>{rule});
    }

    // Gamma after all rows, on 8- and 16-bit destinations only.
    if constexpr (D == IMB_INT8 || D == IMB_INT16)
    {
        if (p.myGamma != 1.0f)
        {
            const uint32 black = DF ? 0u : p.myDestBlack;
            const uint32 white = DF ? Format<D>::white : p.myDestWhite;
            const DstT *table;
            if constexpr (D == IMB_INT8)
                table = p.myGamma8->build(p.myGamma, black, white);
            else
                table = p.myGamma16->build(p.myGamma, black, white);
            walkRows(p, q, src, dst, GammaRow<DstT>{table});
        }
    }
}

using Kernel = void (*)(const IMB_FillParms &);

// Float sources never read their black and white, so only the destination
// flag selects a kernel, except float to 8/16 bits, which keeps one copy per
// source flag (they compute the same): 84 kernels in all.
template <std::size_t Index> constexpr Kernel kernelAt()
{
    constexpr auto S = static_cast<IMB_DataFormat>(Index / 20);
    constexpr auto D = static_cast<IMB_DataFormat>(Index / 4 % 5);
    constexpr bool floatSource = S == IMB_FLOAT32 || S == IMB_FLOAT16;
    constexpr bool keepsSourceFlag = S == IMB_FLOAT32 && (D == IMB_INT8 || D == IMB_INT16);
    constexpr bool SF = (floatSource && !keepsSourceFlag) ? false : (Index / 2 % 2 == 1);
    constexpr bool DF = Index % 2 == 1;
    return &fillKernel<S, D, SF, DF>;
}

template <std::size_t... I> constexpr std::array<Kernel, sizeof...(I)> makeKernels(std::index_sequence<I...>)
{
    return {{kernelAt<I>()...}};
}

// Indexed by ((source * 5 + destination) * 2 + sourceFast) * 2 + destFast.
constexpr std::array<Kernel, 100> theKernels = makeKernels(std::make_index_sequence<100>());
} // namespace
} // namespace imb_detail

void IMB_Fill::fill(const IMB_FillParms &parms)
{
    const int32 s = parms.mySourceType;
    const int32 d = parms.myDestType;
    if (s < 0 || s >= IMB_MAX_DATA_FORMAT || d < 0 || d >= IMB_MAX_DATA_FORMAT)
        return;
    const int index = ((s * 5 + d) * 2 + (parms.mySourceFast ? 1 : 0)) * 2 + (parms.myDestFast ? 1 : 0);
    imb_detail::theKernels[index](parms);
}
