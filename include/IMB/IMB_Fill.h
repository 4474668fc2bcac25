// IMB_Fill: the pixel-transfer engine, and IMB_FillParms, its parameter block.
//
// A transfer moves one component per pixel between two rectangles of raw
// components in a common integer coordinate frame, converting between any two
// IMB_DataFormat values with black and white points, placement, flips, row
// picking and gamma. The arithmetic operations (clear, invert, multiply,
// divide) work in place on the destination rectangle.
//
// Ownership: the caller owns the parameter block and both buffers; the block
// owns its two gamma tables. Thread-safety: the block is not locked and is used
// by one thread at a time; the IMB_Fill operations hold no lock and may run on
// many threads with different blocks. Each gamma table serialises its own build.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Lock.h>
#include <IMB/platform/BAS_Types.h>

#include <iosfwd>

// A 256-entry gamma table for 8-bit components, rebuilt only when the gamma,
// black or white asked for changes.
class IMB_API tbl_gamma8
{
public:
    // An empty table: no storage, black 0, white 0, gamma 1.
    tbl_gamma8() = default;
    ~tbl_gamma8();
    tbl_gamma8(const tbl_gamma8 &) = delete;
    tbl_gamma8 &operator=(const tbl_gamma8 &) = delete;

    // Returns the table for (gamma, black, white), building it under the
    // table's lock unless it was last built for the same three values. With
    // black 0 and white 255, entry i is floor(pow(i / 255, 1 / gamma) * 255 +
    // 0.5); otherwise the curve runs between black and white (values below
    // black mirror it). Entries are clamped to 0-255. The pointer stays valid
    // for the table's life; a later build with other values rewrites it.
    const uint8 *build(float gamma, uint32 black, uint32 white);
    // The entry for v, of the table last built.
    uint8 lookup(uint8 v) const { return myTable[v]; }

    uint8 *myTable = nullptr;
    uint32 myBlack = 0;
    uint32 myWhite = 0;
    float myGamma = 1.0f;
    BAS_Lock myLock;
};

// The 65536-entry table for 16-bit components; as tbl_gamma8 with 65535 as
// full scale.
class IMB_API tbl_gamma16
{
public:
    tbl_gamma16() = default;
    ~tbl_gamma16();
    tbl_gamma16(const tbl_gamma16 &) = delete;
    tbl_gamma16 &operator=(const tbl_gamma16 &) = delete;

    // As tbl_gamma8::build with 16-bit entries (full range 0-65535).
    const uint16 *build(float gamma, uint32 black, uint32 white);
    // The entry for v, of the table last built.
    uint16 lookup(uint16 v) const { return myTable[v]; }

    uint16 *myTable = nullptr;
    uint32 myBlack = 0;
    uint32 myWhite = 0;
    float myGamma = 1.0f;
    BAS_Lock myLock;
};

// An inclusive pixel rectangle; empty when x2 < x1 or y2 < y1.
struct IMB_FillArea
{
    int64 x1 = 0;
    int64 y1 = 0;
    int64 x2 = -1;
    int64 y2 = -1;
};

// The parameter block of every IMB_Fill operation. A plain structure: set the
// fields directly, and use the setters for areas and types, which apply rules.
//
// Buffers are tightly packed: a source row holds (x2 - x1 + 1) * mySourceXInc
// components and rows follow one another without padding (likewise the
// destination). The pointers address the component to move in the first pixel
// of the area, so one call moves one component per pixel. Black and white
// points apply to integer formats only: v stands for (v - black) / (white -
// black).
class IMB_API IMB_FillParms
{
public:
    // The defaults below, two empty gamma tables, and (on the first
    // construction in the process) the processor-capability probe.
    IMB_FillParms();
    ~IMB_FillParms();
    IMB_FillParms(const IMB_FillParms &) = delete;
    IMB_FillParms &operator=(const IMB_FillParms &) = delete;

    // Stores the source rectangle with sorted corners.
    void setSourceArea(int64 x1, int64 y1, int64 x2, int64 y2);
    // Stores the destination rectangle with sorted corners.
    void setDestArea(int64 x1, int64 y1, int64 x2, int64 y2);
    // Stores the source format and decides mySourceFast: a genuine custom
    // range (black != white, an integer format, and not 0 to the format's
    // white) clears the flag and stores black and white; anything else sets
    // the flag and leaves the stored black and white as they were.
    void setSourceType(IMB_DataFormat type, uint32 black, uint32 white);
    // As setSourceType for the destination (myDestType, myDestFast,
    // myDestBlack, myDestWhite).
    void setDestType(IMB_DataFormat type, uint32 black, uint32 white);
    // Prints nothing; kept for interface compatibility.
    void debugPrint(std::ostream &os) const;

    const void *mySource = nullptr;       // first component of the source area (not owned)
    IMB_DataFormat mySourceType = IMB_INT8; // format of one source component
    IMB_FillArea mySourceArea;            // source rectangle in the common frame
    uint32 mySourceBlack = 0;             // integer value meaning black in the source
    uint32 mySourceWhite = 255;           // integer value meaning white in the source
    int64 mySourceXInc = 1;               // components from one source pixel to the next
    int64 mySourceYInc = 1;               // take every n-th source row (n >= 1)
    int64 mySourceYOffset = 0;            // first source row taken (>= 0), in the clipped region
    int32 mySourceFast = 1;               // 1: full range of the format, black/white ignored

    void *myDest = nullptr;               // first component of the destination area (not owned)
    IMB_DataFormat myDestType = IMB_INT8; // format of one destination component
    IMB_FillArea myDestArea;              // destination rectangle
    uint32 myDestBlack = 0;               // destination black value
    uint32 myDestWhite = 255;             // destination white value
    int64 myDestXInc = 1;                 // components between destination pixels
    int32 myDestFast = 1;                 // 1: full range of the format

    int64 myXOffset = 0;                  // displacement of the source area in the destination frame
    int64 myYOffset = 0;
    int32 myFlipX = 0;                    // mirror left to right
    int32 myFlipY = 0;                    // mirror top to bottom
    int32 myDestPlanar = 0;               // destination rows hold myDestXInc runs of one component each

    float myValue = 0.0f;                 // clear level / invert scale (fraction of black-to-white)
    float myGamma = 1.0f;                 // gamma of integer destinations in fill; 1 means none
    uint8 myUsePixelFactors = 1;          // multiply/divide: one factor per pixel from myPixelFactors
    const float *myPixelFactors = nullptr; // one float per destination pixel, rows top to bottom (not owned)
    float myFactor = 1.0f;                // constant factor of multiply/divide

    tbl_gamma8 *myGamma8 = nullptr;       // cached 8-bit gamma table (owned)
    tbl_gamma16 *myGamma16 = nullptr;     // cached 16-bit gamma table (owned)
};

// The transfer and arithmetic operations. All static; none reports an error:
// a format outside 0-4, an empty area, no overlap, or a negative clipped size
// does nothing. Buffer pointers and coordinates are the caller's
// responsibility.
class IMB_API IMB_Fill
{
public:
    // Copies one component per pixel from parms.mySource to parms.myDest,
    // converting from mySourceType to myDestType. The source area, displaced
    // by (myXOffset, myYOffset), is clipped against the destination area;
    // myFlipX/myFlipY mirror the transfer; every mySourceYInc-th source row
    // from mySourceYOffset is taken and the taken rows are packed together;
    // myDestPlanar writes each row into all myDestXInc runs of a planar row.
    // Integers round as floor(y + 0.5) and clamp to the format. Afterwards a
    // myGamma other than 1 maps the written 8- and 16-bit components through
    // the block's gamma table. mySourceYInc below 1 or a negative
    // mySourceYOffset does nothing.
    static void fill(const IMB_FillParms &parms);

    // Writes one level, myValue of the black-to-white range, into the
    // destination area, or into its intersection with mySourceArea when the
    // source area is not empty (no offsets, no flips). Honours myDestPlanar.
    // The 32-bit level uses the stored myDestBlack/myDestWhite even on a fast
    // destination.
    static void clear(const IMB_FillParms &parms);
    // Replaces each component of the destination area, as a fraction x of its
    // range, by (1 - x) * myValue. The default myValue of 0 writes black.
    static void invert(const IMB_FillParms &parms);
    // Scales each component by myFactor, or, with myUsePixelFactors, by one
    // float of myPixelFactors per pixel (rows top to bottom, left to right).
    static void multiply(const IMB_FillParms &parms);
    // As multiply with a division. A constant factor multiplies by 1/myFactor
    // (by 0 when myFactor is 0); a per-pixel factor of 0 writes 0.
    static void divide(const IMB_FillParms &parms);
};
