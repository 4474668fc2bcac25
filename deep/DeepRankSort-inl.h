// The rank and sorting-network kernels, compiled once per instruction set
// (included through hwy/foreach_target.h by DeepRankSort.cpp).

#if defined(IMB_DEEP_RANK_SORT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef IMB_DEEP_RANK_SORT_INL_H_
#undef IMB_DEEP_RANK_SORT_INL_H_
#else
#define IMB_DEEP_RANK_SORT_INL_H_
#endif

#include "deep/DeepRankSort.h"

#include <hwy/highway.h>

#include <algorithm>

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

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// A bitonic sorting network over R vectors of eight keys, element e at
// lane e % 8 of vector e / 8. Every block is merged by first comparing
// mirrored elements (e with e ^ (k - 1)) and then halving the distance, so
// that every compare-exchange sends the minimum to the lower element.
// Distances of eight and more pair whole vectors; shorter ones pair lanes of
// one vector through a fixed shuffle and an immediate blend.
// Every loop here has a constant trip count once R is known, and is unrolled
// whole so that the vectors stay in registers.
#define IMB_UNROLL _Pragma("GCC unroll 16")

using D8 = hn::FixedTag<int32, 8>;
using V8 = hn::Vec<D8>;

// Lanes l and l ^ j of one vector, the lower lane taking the minimum. With
// Mirror, lanes l and l ^ (2j - 1) instead, the lower half of each group of
// 2j taking the minimum.
template <int J, bool Mirror> HWY_INLINE V8 ExchangeLanes(V8 x)
{
    const D8 d;
    const hn::Repartition<int64, D8> d64;
    V8 p;
    if (J == 1)
        p = hn::Shuffle2301(x);
    else if (J == 2)
        p = Mirror ? hn::Shuffle0123(x) : hn::Shuffle1032(x);
    else
        p = Mirror ? hn::Reverse(d, x) : hn::SwapAdjacentBlocks(x);
    const V8 lo = hn::Min(x, p), hi = hn::Max(x, p);
    if (J == 1)
        return hn::OddEven(hi, lo);
    if (J == 2)
        return hn::BitCast(d, hn::OddEven(hn::BitCast(d64, hi), hn::BitCast(d64, lo)));
    return hn::ConcatUpperLower(d, hi, lo);
}

template <int R, int J, bool Mirror = false> HWY_INLINE void ExchangeAllLanes(V8 *v)
{
    IMB_UNROLL
    for (int i = 0; i < R; ++i)
        v[i] = ExchangeLanes<J, Mirror>(v[i]);
}

// The halving stages from distance J down to 1, after a block's mirror
// stage. Templates throughout: every index is a constant, and the vectors
// stay in registers.
template <int R, int J> HWY_INLINE void HalveFrom(V8 *v)
{
    if constexpr (J >= 8)
    {
        constexpr int rj = J / 8;
        IMB_UNROLL
        for (int i = 0; i < R; ++i)
            if ((i & rj) == 0)
            {
                const V8 a = v[i], b = v[i + rj];
                v[i] = hn::Min(a, b);
                v[i + rj] = hn::Max(a, b);
            }
        HalveFrom<R, J / 2>(v);
    }
    else
    {
        if constexpr (J >= 4)
            ExchangeAllLanes<R, 4>(v);
        if constexpr (J >= 2)
            ExchangeAllLanes<R, 2>(v);
        ExchangeAllLanes<R, 1>(v);
    }
}

// Merges the sorted blocks of K / 2 elements into sorted blocks of K, then
// goes on with blocks twice as large.
template <int R, int K> HWY_INLINE void MergeBlocks(V8 *v)
{
    if constexpr (K <= 8 * R)
    {
        const D8 d;
        constexpr int m = K / 8; // vectors per block
        IMB_UNROLL
        for (int i = 0; i < R / 2; ++i)
        {
            // Vector i of the lower half of its block and its mirror.
            const int lo = (i / (m / 2)) * m + i % (m / 2);
            const int hi = (i / (m / 2)) * m + m - 1 - i % (m / 2);
            const V8 a = v[lo], p = hn::Reverse(d, v[hi]);
            v[lo] = hn::Min(a, p);
            v[hi] = hn::Reverse(d, hn::Max(a, p));
        }
        HalveFrom<R, K / 4>(v);
        MergeBlocks<R, 2 * K>(v);
    }
}

template <int R> HWY_INLINE void BitonicSort(V8 *v)
{
    ExchangeAllLanes<R, 1, true>(v);
    ExchangeAllLanes<R, 2, true>(v);
    ExchangeAllLanes<R, 1>(v);
    ExchangeAllLanes<R, 4, true>(v);
    HalveFrom<R, 2>(v);
    MergeBlocks<R, 16>(v);
}

// Packing and unpacking around the network, as orderByNetwork describes:
// each key's top 26 bits above its position, and INT32_MAX in the lanes
// past n, which sort last.
template <int R> HWY_INLINE bool OrderVectors(const int32 *HWY_RESTRICT depth, int n, int32 *HWY_RESTRICT order)
{
    const D8 d;
    const V8 top = hn::Set(d, ~63), low = hn::Set(d, 63), count = hn::Set(d, n);
    V8 v[R];
    IMB_UNROLL
    for (int i = 0; i < R; ++i)
    {
        const V8 pos = hn::Iota(d, 8 * i);
        const auto inRun = hn::Lt(pos, count);
        const V8 packed = hn::Or(hn::And(hn::MaskedLoad(inRun, d, depth + 8 * i), top), pos);
        v[i] = hn::IfThenElse(inRun, packed, hn::Set(d, 0x7fffffff));
    }
    BitonicSort<R>(v);
    // Neighbours j - 1 and j (j < n) with equal top bits are in position
    // order, which the full keys must confirm.
    int32 sorted[8 * R + 8];
    IMB_UNROLL
    for (int i = 0; i < R; ++i)
    {
        hn::StoreU(v[i], d, sorted + 8 * i);
        hn::StoreU(hn::And(v[i], low), d, order + 8 * i);
    }
    hn::StoreU(hn::Set(d, 0x7fffffff), d, sorted + 8 * R);
    auto tied = hn::Zero(d);
    IMB_UNROLL
    for (int i = 0; i < R; ++i)
    {
        const V8 next = hn::LoadU(d, sorted + 8 * i + 1);
        const auto same = hn::Eq(hn::And(hn::Xor(v[i], next), top), hn::Zero(d));
        const auto inRun = hn::Lt(hn::Iota(d, 8 * i + 1), count);
        tied = hn::Or(tied, hn::VecFromMask(d, hn::And(same, inRun)));
    }
    if (hn::AllTrue(d, hn::Eq(tied, hn::Zero(d))))
        return true;
    for (int j = 1; j < n; ++j)
        if (((sorted[j] ^ sorted[j - 1]) & ~63) == 0 && depth[order[j - 1]] > depth[order[j]])
            return false;
    return true;
}

HWY_NOINLINE bool OrderByNetwork(const int32 *HWY_RESTRICT depth, int n, int32 *HWY_RESTRICT order)
{
    if (n <= 8)
        return OrderVectors<1>(depth, n, order);
    if (n <= 16)
        return OrderVectors<2>(depth, n, order);
    if (n <= 32)
        return OrderVectors<4>(depth, n, order);
    return OrderVectors<8>(depth, n, order);
}
#else
// No eight-lane vectors: the packed keys through a comparison sort.
HWY_NOINLINE bool OrderByNetwork(const int32 *HWY_RESTRICT depth, int n, int32 *HWY_RESTRICT order)
{
    if (n < 1)
        return true;
    int32 packed[kNetworkMax];
    for (int i = 0; i < n; ++i)
        packed[i] = (depth[i] & ~63) | i;
    std::sort(packed, packed + n);
    order[0] = packed[0] & 63;
    for (int j = 1; j < n; ++j)
    {
        order[j] = packed[j] & 63;
        if (((packed[j] ^ packed[j - 1]) & ~63) == 0 && depth[order[j - 1]] > depth[order[j]])
            return false;
    }
    return true;
}
#endif
#undef IMB_UNROLL

} // namespace HWY_NAMESPACE
} // namespace imb_detail
HWY_AFTER_NAMESPACE();

#endif
