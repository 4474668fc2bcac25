// BAS_Rect: an integer rectangle (x, y, width, height).
//
// The storage policy is a template parameter; BAS_DimRectImpl keeps the four
// values as signed 32-bit integers, which is what raster data windows use.
// A plain value type: no allocation, free-threaded when not shared for writes.
#pragma once

#include <IMB/platform/BAS_Types.h>

struct BAS_DimRectImpl
{
    int32 myX = 0;
    int32 myY = 0;
    int32 myW = 0;
    int32 myH = 0;
};

template <typename IMPL> class BAS_Rect : private IMPL
{
public:
    BAS_Rect() = default;
    BAS_Rect(int32 x, int32 y, int32 w, int32 h)
    {
        set(x, y, w, h);
    }

    void set(int32 x, int32 y, int32 w, int32 h)
    {
        this->myX = x;
        this->myY = y;
        this->myW = w;
        this->myH = h;
    }

    int32 x() const { return this->myX; }
    int32 y() const { return this->myY; }
    int32 w() const { return this->myW; }
    int32 h() const { return this->myH; }
    int32 width() const { return this->myW; }
    int32 height() const { return this->myH; }
    // Inclusive corners.
    int32 x2() const { return this->myX + this->myW - 1; }
    int32 y2() const { return this->myY + this->myH - 1; }

    void setX(int32 v) { this->myX = v; }
    void setY(int32 v) { this->myY = v; }
    void setWidth(int32 v) { this->myW = v; }
    void setHeight(int32 v) { this->myH = v; }

    bool isEmpty() const { return this->myW <= 0 || this->myH <= 0; }

    friend bool operator==(const BAS_Rect &a, const BAS_Rect &b)
    {
        return a.x() == b.x() && a.y() == b.y() && a.w() == b.w() && a.h() == b.h();
    }
    friend bool operator!=(const BAS_Rect &a, const BAS_Rect &b) { return !(a == b); }
};

using BAS_DimRect = BAS_Rect<BAS_DimRectImpl>;
