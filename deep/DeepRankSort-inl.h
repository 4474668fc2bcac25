// The rank kernel, compiled once per instruction set (included through
// hwy/foreach_target.h by DeepRankSort.cpp).

#if defined(IMB_DEEP_RANK_SORT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_DEEP_RANK_SORT_INL_H_
#undef IMB_DEEP_RANK_SORT_INL_H_
#else
#define IMB_DEEP_RANK_SORT_INL_H_
#endif

#include "deep/DeepRankSort.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace imb_detail
{
namespace HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

static_assert(kRankPad * sizeof(int32) >= 4 * HWY_MAX_BYTES, "the padding must cover four whole vectors");

// rank[i] = #{j : k[j] < k[i]}, four vectors of keys at a time: each key j
// is broadcast once and compared with all of them. Equal keys get equal
// ranks. k and rank are read and written in whole groups of four vectors;
// the padding lanes' ranks mean nothing.
HWY_NOINLINE void CountLess(const int32 *HWY_RESTRICT k, int n, int32 *HWY_RESTRICT rank)
{
    const hn::ScalableTag<int32> d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    for (int b = 0; b < n; b += 4 * lanes)
    {
        const auto K0 = hn::LoadU(d, k + b);
        const auto K1 = hn::LoadU(d, k + b + lanes);
        const auto K2 = hn::LoadU(d, k + b + 2 * lanes);
        const auto K3 = hn::LoadU(d, k + b + 3 * lanes);
        auto a0 = hn::Zero(d), a1 = hn::Zero(d), a2 = hn::Zero(d), a3 = hn::Zero(d);
        // A true mask is -1: subtracting it counts one.
        for (int j = 0; j < n; ++j)
        {
            const auto kj = hn::Set(d, k[j]);
            a0 = hn::Sub(a0, hn::VecFromMask(d, hn::Gt(K0, kj)));
            a1 = hn::Sub(a1, hn::VecFromMask(d, hn::Gt(K1, kj)));
            a2 = hn::Sub(a2, hn::VecFromMask(d, hn::Gt(K2, kj)));
            a3 = hn::Sub(a3, hn::VecFromMask(d, hn::Gt(K3, kj)));
        }
        hn::StoreU(a0, d, rank + b);
        hn::StoreU(a1, d, rank + b + lanes);
        hn::StoreU(a2, d, rank + b + 2 * lanes);
        hn::StoreU(a3, d, rank + b + 3 * lanes);
    }
}

// rank[i] = #{j < i : k[j] <= k[i]} + #{j > i : k[j] < k[i]}: the number of
// keys ordering before key i when equal keys order by position. For runs
// with equal keys, where CountLess gives tied ranks. k and rank are read
// and written in whole vectors; the padding lanes' ranks mean nothing.
HWY_NOINLINE void RankKeys(const int32 *HWY_RESTRICT k, int n, int32 *HWY_RESTRICT rank)
{
    const hn::ScalableTag<int32> d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    const auto iota = hn::Iota(d, 0);
    for (int b = 0; b < n; b += lanes)
    {
        const auto K = hn::LoadU(d, k + b);
        // Keys before the block count unless greater: start from their
        // number and take one off for each greater key.
        auto acc = hn::Set(d, b);
        int j = 0;
        for (; j < b; ++j)
            acc = hn::Add(acc, hn::VecFromMask(d, hn::Gt(hn::Set(d, k[j]), K)));
        // Keys inside the block: lanes past j count an equal key too.
        const int blockEnd = b + lanes < n ? b + lanes : n;
        for (; j < blockEnd; ++j)
        {
            const auto kj = hn::Set(d, k[j]);
            const auto after = hn::Gt(iota, hn::Set(d, j - b));
            acc = hn::Sub(acc, hn::VecFromMask(d, hn::Or(hn::Gt(K, kj), hn::And(hn::Eq(K, kj), after))));
        }
        // Keys after the block count when smaller.
        for (; j < n; ++j)
            acc = hn::Sub(acc, hn::VecFromMask(d, hn::Gt(K, hn::Set(d, k[j]))));
        hn::StoreU(acc, d, rank + b);
    }
}
} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
