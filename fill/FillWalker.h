// The row walker of the fill engine: clipping and placement of the source
// area in the destination, flips, row picking and planar destinations. It
// hands each transferred row to a row function as
//     row(const S *src, int64 srcInc, D *dst, int64 dstInc, int64 count)
// and never looks at component values.
#pragma once

#include <IMB/IMB_Fill.h>

namespace imb_detail
{
// Where the transfer lands: skip (kx, ky) source pixels, start at destination
// pixel (ux, uy), move w x h pixels.
struct Placement
{
    int64 kx = 0, ky = 0;
    int64 ux = 0, uy = 0;
    int64 w = 0, h = 0;
};

// Clips the displaced source area against the destination area. False when
// nothing is to be done.
inline bool placeTransfer(const IMB_FillParms &p, Placement &out)
{
    const IMB_FillArea &s = p.mySourceArea;
    const IMB_FillArea &d = p.myDestArea;
    const int64 tx1 = s.x1 + p.myXOffset, tx2 = s.x2 + p.myXOffset;
    const int64 ty1 = s.y1 + p.myYOffset, ty2 = s.y2 + p.myYOffset;
    if (d.x1 > tx2 || d.x2 < tx1 || d.y1 > ty2 || d.y2 < ty1)
        return false;

    Placement q;
    if (d.x1 <= tx1)
    {
        q.ux = tx1 - d.x1;
        q.w = s.x2 - s.x1 + 1;
    }
    else
    {
        q.kx = d.x1 - tx1;
        q.w = s.x2 - s.x1 + 1 - q.kx;
    }
    if (d.y1 <= ty1)
    {
        q.uy = ty1 - d.y1;
        q.h = s.y2 - s.y1 + 1;
    }
    else
    {
        q.ky = d.y1 - ty1;
        q.h = s.y2 - s.y1 + 1 - q.ky;
    }
    if (q.w < 0 || q.h < 0 || d.x2 - d.x1 + 1 - q.ux < 0 || d.y2 - d.y1 + 1 - q.uy < 0)
        return false;
    if (tx2 > d.x2)
        q.w -= tx2 - d.x2;
    if (ty2 > d.y2)
        q.h -= ty2 - d.y2;
    if (q.w <= 0 || q.h <= 0)
        return false;

    // A mirrored transfer that is clipped reads the other end of the source.
    if (p.myFlipX)
    {
        const int64 W = s.x2 - s.x1 + 1;
        if (W > q.w)
            q.kx = W - q.kx - q.w > 0 ? W - q.kx - q.w : 0;
    }
    if (p.myFlipY)
    {
        const int64 H = s.y2 - s.y1 + 1;
        if (H > q.h)
            q.ky = H - q.ky - q.h > 0 ? H - q.ky - q.h : 0;
    }
    out = q;
    return true;
}

// Walks the placed rows. Source rows ky + r for r = mySourceYOffset,
// + mySourceYInc, ... below h; destination rows are consecutive from uy (or
// from uy + h - 1 upwards with myFlipY). When source and destination rows are
// both whole and contiguous, all rows go to the row function in one call.
template <typename S, typename D, typename RowFn>
void walkRows(const IMB_FillParms &p, const Placement &q, const S *src, D *dst, RowFn &&row)
{
    const int64 sInc = p.mySourceXInc;
    const int64 dInc = p.myDestXInc;
    const int64 yInc = p.mySourceYInc;
    const int64 yOff = p.mySourceYOffset;
    if (yInc < 1 || yOff < 0)
        return;
    const int64 srcWidth = p.mySourceArea.x2 - p.mySourceArea.x1 + 1;
    const int64 dstWidth = p.myDestArea.x2 - p.myDestArea.x1 + 1;
    const int64 S_ = srcWidth * sInc;
    const int64 D_ = dstWidth * dInc;

    if (sInc == 1 && dInc == 1 && !p.myFlipX && !p.myFlipY && !p.myDestPlanar && yInc == 1 && yOff == 0 &&
        q.kx == 0 && q.ux == 0 && q.w == srcWidth && q.w == dstWidth)
    {
        row(src + q.ky * S_, int64(1), dst + q.uy * D_, int64(1), q.w * q.h);
        return;
    }

    int64 j = 0;
    for (int64 r = yOff; r < q.h; r += yInc, ++j)
    {
        const S *s = src + (q.ky + r) * S_ + q.kx * sInc;
        const int64 dRow = p.myFlipY ? q.uy + q.h - 1 - j : q.uy + j;
        D *dRowStart = dst + dRow * D_;
        if (p.myDestPlanar)
        {
            // Each of the myDestXInc runs of the row receives the whole row.
            for (int64 run = 0; run < dInc; ++run)
            {
                D *d = dRowStart + run * dstWidth + q.ux;
                if (p.myFlipX)
                    row(s, sInc, d + (q.w - 1), int64(-1), q.w);
                else
                    row(s, sInc, d, int64(1), q.w);
            }
        }
        else
        {
            D *d = dRowStart + q.ux * dInc;
            if (p.myFlipX)
                row(s, sInc, d + (q.w - 1) * dInc, -dInc, q.w);
            else
                row(s, sInc, d, dInc, q.w);
        }
    }
}
} // namespace imb_detail
