// Sorting short runs without branches on the data, which for the few dozen
// samples of a typical deep pixel beats a comparison sort, whose branches
// on random depths mispredict about half the time. Up to 64 keys go through
// a sorting network; where it cannot decide, and up to 96, every key's rank
// is the number of keys ordering before it, counted with vector compares
// over all pairs.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "deep/DeepRankSort-inl.h"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include "deep/DeepRankSort-inl.h"

#if HWY_ONCE
#include "deep/DeepRankSort.h"

#include <algorithm>

namespace imb_detail
{
HWY_EXPORT(CountLess);
HWY_EXPORT(RankKeys);
HWY_EXPORT(OrderByNetwork);

void rankKeys(const int32 *keys, int n, int32 *rank)
{
    // Distinct keys (the usual case, depths being floats) are ranked by
    // counting smaller keys alone. Equal keys share a count, which shows
    // as a rank taken twice; then they are ranked again with their order.
    HWY_DYNAMIC_DISPATCH(CountLess)(keys, n, rank);
    uint64 taken[(kRankSortMax + 63) / 64] = {};
    for (int i = 0; i < n; ++i)
    {
        const uint64 bit = uint64(1) << (rank[i] & 63);
        uint64 &word = taken[rank[i] >> 6];
        if (word & bit)
        {
            HWY_DYNAMIC_DISPATCH(RankKeys)(keys, n, rank);
            return;
        }
        word |= bit;
    }
}

bool orderByNetwork(const int32 *depth, int n, int32 *order)
{
    return HWY_DYNAMIC_DISPATCH(OrderByNetwork)(depth, n, order);
}

void orderKeys(int32 *keys, int n, int32 *order)
{
    if (n <= kNetworkMax && orderByNetwork(keys, n, order))
        return;
    int32 rank[kRankSortMax + kRankPad];
    std::fill(keys + n, keys + n + kRankPad, 0);
    rankKeys(keys, n, rank);
    for (int i = 0; i < n; ++i)
        order[rank[i]] = i;
}

void sortWords(uint64 *w, int n)
{
    if (n < 2)
        return;
    if (n > kRankSortMax)
    {
        std::sort(w, w + n);
        return;
    }
    // The high halves as signed keys (flipping the top bit keeps their
    // unsigned order).
    int32 keys[kRankSortMax + kRankPad];
    uint64 copy[kRankSortMax];
    for (int i = 0; i < n; ++i)
    {
        keys[i] = static_cast<int32>(static_cast<uint32>(w[i] >> 32) ^ 0x80000000u);
        copy[i] = w[i];
    }
    // Equal high halves come out in position order, which is the order of
    // their low halves.
    int32 order[kRankSortMax + kRankPad];
    orderKeys(keys, n, order);
    for (int j = 0; j < n; ++j)
        w[j] = copy[order[j]];
}
} // namespace imb_detail
#endif
