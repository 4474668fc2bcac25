// Ranking and sorting the accumulator's short runs of samples by depth.
#pragma once

#include <IMB/platform/BAS_Types.h>

namespace imb_detail
{
// Runs up to this length are ranked with vector compares (where the network
// below cannot sort them); longer ones go to std::sort, whose n log n wins
// past about this size.
constexpr int kRankSortMax = 96;

// Entries that rankKeys may read after the n keys and write after the n
// ranks: four whole vectors of the widest instruction set (x86 and Arm
// NEON; wider vector machines need more, which the build checks).
constexpr int kRankPad = 64;

// rank[i] = the number of keys ordering before key i, where keys order by
// value and equal values by position: a permutation of 0..n-1 that sorts
// the keys stably. keys and rank hold n + kRankPad entries (the padding keys
// are read but not counted). n is at most kRankSortMax.
void rankKeys(const int32 *keys, int n, int32 *rank);

// Runs up to this length are sorted by a sorting network first.
constexpr int kNetworkMax = 64;

// order[j] = the position of the j-th smallest depth key, equal keys in
// position order, for n from 1 to kNetworkMax: the network sorts each key's
// top 26 bits with its position below them. False when two keys that
// differ only in their low 6 bits came out of order (rare: depths within
// 64 units in the last place); order then means nothing. order holds room
// for kNetworkMax entries.
bool orderByNetwork(const int32 *depth, int n, int32 *order);

// order[j] = the position of the j-th smallest key, equal keys in position
// order, for n from 2 to kRankSortMax: the network where it can decide, the
// rank count otherwise. keys holds n + kRankPad entries (the padding is
// overwritten), order kRankSortMax + kRankPad.
void orderKeys(int32 *keys, int n, int32 *order);

// Sorts w[0..n) ascending. The words must be unique and their low 32 bits
// must ascend with their position (the store index), so that words with
// equal high halves are already in order. The result is std::sort's.
void sortWords(uint64 *w, int n);

// The ordered form of a depth as a signed key: integer order is float order
// (negative depths below positive ones, NaNs at the two ends).
inline int32 depthKey(float f)
{
    uint32 u;
    __builtin_memcpy(&u, &f, sizeof u);
    return static_cast<int32>((u & 0x80000000u) ? ~u ^ 0x80000000u : u);
}
} // namespace imb_detail
