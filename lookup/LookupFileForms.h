// Pieces shared by the text and binary lookup-table file forms.
#pragma once

#include <IMB/IMB_Lookup.h>

#include <algorithm>
#include <cfloat>
#include <limits>
#include <cstring>

namespace imb_detail
{
// Largest tables either file form accepts: 1D track length and cube edge.
// Readers check sizes against these before allocating.
constexpr int kMaxLookupLength = 65536;
constexpr int kMaxLookupCubeEdge = 256;

// The version a file of this type word is written with: 3 when the table
// is log-sampled or 3D+1D, 2 for a plain cube, 1 for everything else.
inline int lookupFileVersion(int32 typeWord)
{
    if ((typeWord & IMB_LUT_LOG_SAMPLING) || typeWord == IMB_LUT_3D_1D)
        return 3;
    if (typeWord == IMB_LUT_3D)
        return 2;
    return 1;
}

// A 64-bit sample narrowed to float; values beyond the float range become
// infinities (a plain conversion would be undefined).
inline float narrowSample(double v)
{
    if (v > FLT_MAX)
        return std::numeric_limits<float>::infinity();
    if (v < -FLT_MAX)
        return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

// Fills a padded cube of edge n ((n+1)^3 RGB triples, red fastest) from the
// n^3 real triples as they arrive: the padding sample after each row, the
// padding row after each plane and the padding plane after the last plane
// repeat the last real ones, as set3DLUT lays them out.
class PaddedCubeFiller
{
public:
    PaddedCubeFiller(float *table, int n) : myTable(table), myN(n) {}

    // Triples still expected.
    int64 remaining() const { return static_cast<int64>(myN) * myN * myN - myCount; }

    void push(float r, float g, float b)
    {
        if (remaining() <= 0 || !myTable)
            return;
        const int64 n = myN;
        const int64 e = n + 1;
        const int64 i = myCount % n;
        const int64 j = (myCount / n) % n;
        const int64 k = myCount / (n * n);
        float *dst = myTable + 3 * (i + e * j + e * e * k);
        dst[0] = r;
        dst[1] = g;
        dst[2] = b;
        ++myCount;
        if (i != n - 1)
            return;
        std::memcpy(dst + 3, dst, 3 * sizeof(float));
        if (j != n - 1)
            return;
        float *row = myTable + 3 * (e * j + e * e * k);
        std::memcpy(row + 3 * e, row, 3 * e * sizeof(float));
        if (k != n - 1)
            return;
        float *plane = myTable + 3 * (e * e * k);
        std::memcpy(plane + 3 * e * e, plane, 3 * e * e * sizeof(float));
    }

private:
    float *myTable;
    int myN;
    int64 myCount = 0;
};
} // namespace imb_detail
