// IMB_Raster: the library's two-dimensional image.
//
// A raster has a resolution, one data format, one packing, a colour-space tag
// (with its gamma and optional colour-management names) and one contiguous
// block of pixel memory that it either owns or borrows. Owned blocks are laid
// out with a 16-byte lead before the first pixel and one spare scanline plus
// 16 bytes after the last, so vector kernels may read a little past the image.
// Scanlines are packed with no padding; plane packings (_NI and PACK_SINGLE)
// keep each component's plane after the previous one.
//
// Ownership: the caller owns the raster; the raster frees its block only when
// it owns it (steal() and setRaster() move ownership explicitly).
// Thread-safety: none; one thread at a time may change a raster. Const
// operations may run concurrently.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Rect.h>
#include <IMB/platform/BAS_SmallObject.h>
#include <IMB/platform/BAS_StringHolder.h>
#include <IMB/platform/BAS_Types.h>

#include <iosfwd>

class BAS_IStream;
class IMB_Lookup;
class IMB_Raster;

// How convert8Bit spreads the rounding error when it reduces a raster to 8
// bits. Every method is deterministic: the same pixels give the same bytes.
enum IMB_Dither : int32
{
    IMB_DITHER_NONE = 0,            // round to nearest, exactly as IMB_Fill does
    IMB_DITHER_BAYER4 = 1,          // ordered, 4x4 Bayer matrix
    IMB_DITHER_BAYER8 = 2,          // ordered, 8x8 Bayer matrix
    IMB_DITHER_FLOYD_STEINBERG = 3, // error diffusion, serpentine rows
};

// Display-layer hooks, set by the host: is a texture handle still alive, and
// delete it. Both null until the host stores functions in them.
IMB_API extern bool (*IMB_IsTexture_cb)(void *texture);
IMB_API extern void (*IMB_DeleteTextures_cb)(void *texture);

class IMB_API IMB_Raster : public BAS_SmallObject<0, 250, 1, 128>
{
public:
    // An unconfigured raster: no format (IMB_MAX_DATA_FORMAT), packing
    // PACK_UNKNOWN, tag IMB_CS_UNKNOWN with gamma 1, points 0 and 1, no memory.
    // Every raster registers itself with BAS_ProxyPointer (getProxyIndex()).
    IMB_Raster();
    // A configured raster. With `alloc` non-zero the block is allocated (see
    // init()); with `clear` non-zero and memory obtained, every pixel byte is
    // zeroed. An impossible shape (format or packing out of range, a
    // resolution <= 0) or a failed allocation leaves the raster without
    // memory (isValid() 0); nothing throws.
    IMB_Raster(IMB_Packing packing, IMB_DataFormat format, int64 xres, int64 yres, int clear = 0, int alloc = 1);
    // A copy in its own block: format, packing, resolution, rotation, data
    // window, tag, gamma, the three colour-management names, black and white
    // points and the pixels (when `src` has any; then getDataWritten() is
    // true). Texture, proxy index, observer and ownership are not copied.
    IMB_Raster(const IMB_Raster &src);
    // A crop of the inclusive rectangle (x1, y1)-(x2, y2) of `src`, made by
    // extract(): the result is (x2 - x1 + 1) x (y2 - y1 + 1); parts outside
    // `src` read as zero. An empty rectangle gives a raster without memory.
    IMB_Raster(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2);
    // Frees the proxy index, forgets the observer, frees the block if owned
    // (deleting a live texture through the callbacks first).
    virtual ~IMB_Raster();

    IMB_Raster &operator=(const IMB_Raster &src)
    {
        if (this != &src)
            copy(src);
        return *this;
    }

    // sizeof(IMB_Raster) when `inclusive`, else 0, plus getSize() when the
    // raster owns a block. The 16-byte lead and the tail slack are not
    // counted; borrowed memory counts 0.
    virtual int64 getMemoryUsage(bool inclusive) const;
    // Becomes a copy of `src` as the copy constructor makes it (frees its own
    // memory first). Copying a raster onto itself does nothing.
    virtual void copy(const IMB_Raster &src);
    // Takes everything copy() takes except the pixels, and is left without
    // memory; call init() to allocate.
    virtual void copyProperties(const IMB_Raster &src);
    // Deletes a live texture, frees an owned block, forgets the memory and
    // clears getDataWritten(). With `full` non-zero also forgets the shape:
    // packing PACK_UNKNOWN, no format, resolution, stride, size and rotation
    // 0, not owning. Names, tag, data window and points are kept.
    virtual void reset(int full = 0);

    // ---- memory
    // Allocates a block for the current shape: a 16-byte lead, getSize()
    // pixel bytes, one spare scanline and 16 bytes of slack, from the system
    // allocator (std::malloc). On failure attemptRealloc() is asked once;
    // if that does not cure it the raster stays without memory. PACK_DUAL
    // blocks are zeroed; others are not. Does not free an existing block:
    // call it on a raster without memory. An impossible shape allocates
    // nothing and leaves stride and size as they were.
    void init();
    // Frees the current block (if owned), computes stride and size for the
    // current shape and adopts `mem` without copying. `owns`: the raster
    // frees `mem` with std::free, so it must come from std::malloc (or from
    // steal()). `hasHeader`: the first pixel lies 16 bytes into `mem`, as in
    // the blocks steal() hands out; otherwise at `mem` itself.
    void setRaster(void *mem, bool owns, bool hasHeader);
    // Gives up ownership of an owned block: deletes a live texture and
    // returns the block's start (16 bytes before getPixels(); release it
    // with std::free). The raster still points at the block and can be read,
    // but will not free it. Null, with nothing changed, when the raster has
    // no memory or only borrows it.
    void *steal();

    // ---- shape (setters free the memory; call init() afterwards)
    // Store a new format or packing after freeing the memory. Any value is
    // stored; one out of range makes init() allocate nothing.
    void setFormat(IMB_DataFormat format);
    void setPacking(IMB_Packing packing);
    // Stores a new resolution after freeing the memory and clears the data
    // window to all zeros.
    void setRes(int64 x, int64 y);
    IMB_DataFormat getFormat() const { return myFormat; }
    IMB_Packing getPacking() const { return myPacking; }
    int64 getXres() const { return myXres; }
    int64 getYres() const { return myYres; }
    // Bytes from one scanline to the next: of one plane for the _NI
    // packings, of whole pixels for the others. Packed, no padding.
    int64 getStride() const { return myStride; }
    // Bytes of pixel data, all planes (0 after the memory is freed).
    int64 getSize() const { return mySize; }
    int64 getNumPixels() const { return myXres * myYres; }
    // Bytes of one plane: getStride() * getYres().
    int64 getNonInterleavedSize() const { return myStride * myYres; }
    // imbDefinesPComp of the packing (3 for PACK_DUAL); 0 for an unknown
    // packing.
    int getNumChannels() const;
    // True for PACK_RGBA and PACK_RGBA_NI only.
    bool hasAlpha() const { return myPacking == PACK_RGBA || myPacking == PACK_RGBA_NI; }
    // False for PACK_SINGLE, PACK_DUAL_NI, PACK_RGB_NI and PACK_RGBA_NI; true
    // for every other value, the unknown packing included.
    bool isInterleaved() const;
    // The first pixel, or null without memory.
    void *getPixels() { return myRaster ? static_cast<char *>(myRaster) + myDataOffset : nullptr; }
    const void *getPixels() const
    {
        return myRaster ? static_cast<const char *>(myRaster) + myDataOffset : nullptr;
    }
    // The start of the block (before the 16-byte lead of owned blocks).
    void *getRawPixels() const { return myRaster; }
    // Non-zero when the raster has memory.
    int isValid() const { return myRaster != nullptr; }

    // ---- properties without effect on memory
    // Rotation in degrees, stored as given.
    void setRotation(int degrees) { myRotation = degrees; }
    int getRotation() const { return myRotation; }
    bool isRotated() const { return myRotation != 0; }
    // Width and height as displayed: swapped when the rotation is an odd
    // multiple of 90 degrees (90, 270, -90, 450, ...); a rotation that is no
    // multiple of 90 counts as unrotated.
    int64 getCorrectedXres() const;
    int64 getCorrectedYres() const;

    // Stored only when width and height are both >= 0; otherwise ignored.
    void setDataWindow(const BAS_Rect<BAS_DimRectImpl> &window);
    const BAS_Rect<BAS_DimRectImpl> &getDataWindow() const { return myDataWindow; }
    // True when the window's width and height are both non-zero.
    bool hasDataWindow() const { return myDataWindow.w() != 0 && myDataWindow.h() != 0; }

    // Black and white points (0 and 1 by default), carried for the caller.
    void setBWPoints(float black, float white)
    {
        myBlackPoint = black;
        myWhitePoint = white;
    }
    void getBWPoints(float &black, float &white) const
    {
        black = myBlackPoint;
        white = myWhitePoint;
    }

    // Whether pixels have been written (set by copies and extract()).
    void setDataWritten(bool written) { myDataWritten = written; }
    bool getDataWritten() const { return myDataWritten; }
    // This raster's index in BAS_ProxyPointer; lookupProxy() of it gives the
    // raster while it lives.
    int getProxyIndex() const { return myProxyIndex; }

    // One observer, kept for the owner (a later call replaces it); the
    // library never calls it.
    void addInterest(void *data, void (*callback)(IMB_Raster *, void *));
    void removeInterest();

    // Stores an opaque display-texture handle.
    void setTextureID(void *id) { myTextureID = id; }
    // The handle, when set and IMB_IsTexture_cb is set and says it is alive;
    // else null.
    void *getTextureID() const;
    // Deletes the handle through IMB_DeleteTextures_cb when both callbacks
    // are set and IMB_IsTexture_cb says it is alive; always forgets it.
    void clearTextureID();
    // A flag for the texture's owner; only stored.
    void setManagesOwnTextureID(bool manages) { myManagesOwnTextureID = manages; }
    bool managesOwnTextureID() const { return myManagesOwnTextureID; }

    // Stores the tag and sets the gamma by tag: linear 1.0; gamma2.2, srgb and
    // rec709 2.2; custom gamma `gamma`; unknown, OCIO and any other value keep
    // the gamma.
    void setColorSpace(IMB_ColorSpace cs, double gamma = 1.0);
    IMB_ColorSpace getColorSpace() const { return myColorSpace; }
    double getColorSpaceGamma() const { return myColorSpaceGamma; }
    // The colour-management colour-space name.
    const BAS_StringHolder &getColorSpaceName() const { return myOCIOColorSpace; }
    // Stores the name; a non-empty name also sets the tag to IMB_CS_OCIO
    // (gamma unchanged), an empty one clears the name and keeps the tag.
    void setOCIOColorSpace(const BAS_StringHolder &name);
    // Stores the display and view names.
    void setOCIODisplayView(const BAS_StringHolder &display, const BAS_StringHolder &view);
    // setOCIOColorSpace(colorSpace) and setOCIODisplayView(display, view).
    void setOCIOParms(const BAS_StringHolder &colorSpace, const BAS_StringHolder &display,
                      const BAS_StringHolder &view);
    const BAS_StringHolder &getOCIODisplay() const { return myOCIODisplay; }
    const BAS_StringHolder &getOCIOView() const { return myOCIOView; }

    // ---- pixel access and transfers
    // Address of component `comp` of pixel (x, y): in plane `comp` for the
    // _NI packings, `comp` components into the pixel otherwise. Null when x
    // or y is outside the raster or the raster has no memory. `comp` is not
    // checked.
    void *getPixel(int64 x, int64 y, int64 comp = 0);
    const void *getPixel(int64 x, int64 y, int64 comp = 0) const;
    // Reads the pixel's values into `out`: 1 (single), 2 (dual, dual_ni, uv;
    // PACK_DUAL shows two of its three components), 3 (rgb, rgb_ni) or 4
    // (rgba, rgba_ni) floats, from consecutive components or, on plane
    // packings, one from each plane. int8 v * float(1/255), int16 v *
    // float(1/65535), int32 v / 4294967295.0 in double, float16 exact,
    // float32 bit for bit. Outside the raster or without memory nothing is
    // written.
    void getPixelValue(int64 x, int64 y, float *out) const;
    // Writes the pixel's values (as many as getPixelValue reads) as
    // consecutive components from component 0, whatever the packing: on plane
    // packings value i lands in plane 0 at pixel x + i (kept: callers rely
    // on it).
    // int8 and int16: f * 255.0 or f * 65535.0 in double, truncated toward
    // zero, low 8 or 16 bits kept (no rounding or clamping: 1.5 stores 126,
    // -0.5 stores 129). int32: f * 2^32 truncated, low 32 bits (1.0 stores
    // 0). float16: 0 for either zero, else the half16 conversion. NaN and
    // values beyond the 64-bit range store 0 in the integer formats. Outside
    // the raster or without memory nothing is written.
    void setPixelValue(int64 x, int64 y, const float *in);
    // Copies scanline `y` to `dst`: xres * imbDefinesPDepth * bytes per
    // component bytes; for the plane packings that many per plane, plane 0
    // first. `y` must lie inside a raster with memory.
    void readFromRow(int64 y, void *dst) const;
    // The reverse of readFromRow: scanline `y` from `src`, same layout.
    void writeToRow(int64 y, const void *src);
    // Writes column `x` from `src`. Interleaved packings: one whole pixel per
    // row, top to bottom. Plane packings: plane by plane, row by row; 8-bit
    // samples advance through `src`, but wider ones do not, so every sample
    // of the column receives the first sample of `src` (kept). `x` must lie
    // inside a raster with memory.
    void writeToColumn(int64 x, const void *src);
    // Makes this raster a copy of the inclusive rectangle (x1, y1)-(x2, y2)
    // of `src`: takes its resolution (clearing the data window when it
    // changes), packing, format, points, tag and gamma, allocates if needed,
    // copies the part inside `src` and zeroes the rest when the rectangle
    // reaches outside. Ends by taking `src`'s data window and setting
    // getDataWritten(). An empty rectangle leaves the raster without memory.
    void extract(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2);
    // Pastes `src` with its first pixel at (x, y) of this raster, clipped to
    // this raster, every plane. Nothing at all unless packing and format
    // match; otherwise takes `src`'s tag and gamma even when nothing
    // overlaps. getDataWritten() is not changed.
    void insert(const IMB_Raster &src, int64 x, int64 y);
    // Reverses the order of the scanlines. On plane packings only plane 0 is
    // flipped; the other planes stay as they were (kept). Nothing without
    // memory.
    void flipVertical();
    // Fills the raster with one stored pixel, or zeroes every pixel byte when
    // `pixel` is null. Interleaved packings repeat a pixel of 3 (dual, rgb),
    // 2 (uv) or 4 (rgba) components; plane packings fill plane k with
    // component k of `pixel`, except that for every format but float32 the
    // first sample of plane 0 keeps its value (kept). Nothing without memory.
    void clear(const void *pixel = nullptr);
    // Fills with a colour of four 0-1 floats, scaled to [black, white] for
    // integer formats (both 0: the format's full range).
    void clearNormal(const float *rgba, unsigned black = 0, unsigned white = 0);

    // ---- alpha and saturation
    // These go through the float interface (getPixelValue/setPixelValue) and
    // inherit its conversions: integers are truncated on the way back, not
    // rounded or clamped, and on plane packings setPixelValue writes a
    // pixel's values into plane 0 at x, x+1, ... (the walk is x outer, y
    // inner, so later reads see those writes). None checks that memory
    // exists; on a raster without memory they change nothing.

    // Multiplies red, green and blue of every pixel by alpha (no clamping;
    // alpha is written back through the same conversion). Alpha is the
    // pixel's fourth value, or, with `alphaSource`, the source pixel's fourth
    // value when the source has an alpha packing and its first value when it
    // has not (a single-channel matte). A raster without alpha and no source
    // uses alpha 1. With `alphaSource` given: false, changing nothing, when
    // neither raster has an alpha packing or their resolutions differ;
    // formats are not compared. True otherwise (at once when the width is 0).
    bool premultiply(IMB_Raster *alphaSource = nullptr);
    // Divides red, green and blue by alpha (chosen as for premultiply) where
    // 0 < alpha < 1; integer formats then limit each to at most 1.0. Other
    // pixels are not written. Same argument check and result as premultiply.
    bool unpremultiply(IMB_Raster *alphaSource = nullptr);
    // Sets alpha to 1 where 0 < alpha < 1 (0 and over-range alpha stay).
    // False for a packing without alpha.
    bool clampAlpha();
    // Turns PACK_RGB into PACK_RGBA and PACK_RGB_NI into PACK_RGBA_NI with a
    // new block whose alpha is `alpha` as one stored sample: int8
    // floor(alpha*255+0.5); int16 floor(alpha*65355+0.5) (65355, kept); int32
    // floor(alpha*2147483647+0.5); float16 the half of float(alpha); float32
    // the low 32 bits of the double's bit pattern (1.0 gives 0.0; kept). The
    // pixels are copied byte by byte from the old block's start to the new
    // block's start (not from the first pixels; interleaved even for
    // PACK_RGBA_NI): kept. The old block is NOT freed: steal() it first and
    // free it yourself. Other packings: nothing happens.
    void promoteRGBToRGBA(double alpha);
    // Scales saturation by `s` about the luminance L = (0.3086 R + 0.6094 G +
    // 0.082 B) * (1 - s), all in single precision on raw component values
    // (integers are not scaled to 0-1): each of R, G, B becomes c*s + L.
    // Integer results are floor(y + 0.5) (the + 0.5 in double precision),
    // clamped to [0, 255] or [0, 65535] (NaN gives 0); int32 raises negatives
    // to 0 and keeps the low 32 bits; float16 narrows through half16. Alpha
    // is untouched. Only RGB and RGBA packings (interleaved or planes);
    // nothing when |s - 1| <= 1e-5 or without memory.
    void adjustSaturation(float s);
    // 1 for plane packings; otherwise 1 only when the first pixel lies at
    // least 16 bytes into the block (the raster allocated it itself).
    int areComponentsRenderable() const;

    // ---- image operations

    // Per-channel minimum and maximum over the data window (clipped to the
    // raster; the whole raster when it has no data window), in the units
    // getPixelValue reads: 8-, 16- and 32-bit integers as v / 255,
    // v / 65535 and v / 4294967295, halves and floats as they are. Channels
    // are the values getPixelValue reads (PACK_DUAL: two); entries from
    // there to 3 are set to 0. NaN components are skipped; a channel whose
    // every value is NaN gets NaN for both; infinities count. A zero extreme
    // is +0 whatever the sign of the zero stored. False, writing nothing,
    // without memory, for an unknown format or packing, or when the data
    // window lies outside the raster.
    bool getRange(float min[4], float max[4]) const;

    // Makes `dst` an 8-bit raster of this raster's packing, resolution, data
    // window, colour tag and gamma, with black and white points 0 and 1, and
    // fills it (`dst` may not be this raster). Per component, a value is
    // read as x, the fraction of the way from `black` to `white`:
    //  - black and white are component values of this raster's format:
    //    integer codes (rounded to the nearest integer) for the integer
    //    formats, values for the float formats; both 0 means the format's
    //    full range (0 to 255, 65535 or 4294967295; 0 to 1). As IMB_Fill
    //    reads them: x = v / full scale (with its constants) on the full
    //    range, else (v - black) * (1 / (white - black)), 1 when the two
    //    are equal.
    //  - IMB_DITHER_NONE: stored as floor(x * 255 + 0.5) clamped to 0..255,
    //    then, when `gamma` is not 1, through the 256-entry table of
    //    IMB_Fill's gamma (floor(pow(i / 255, 1 / gamma) * 255 + 0.5)). This
    //    is exactly what IMB_Fill::fill gives for each component (including
    //    its integer narrowing of full-range 16- and 32-bit sources).
    //  - With dithering, x is first raised to 1 / gamma (values <= 0 kept),
    //    y = x * 255 gets the method's offset and is stored as floor(y + 0.5)
    //    clamped to 0..255. Ordered dithering adds (m + 0.5) / n^2 - 0.5 for
    //    the matrix entry m at (x mod n, y mod n); Floyd-Steinberg adds the
    //    error diffused from earlier pixels (7/16 to the next pixel in the
    //    row, 3/16, 5/16 and 1/16 to the row below), rows alternating
    //    direction, each channel on its own. Gamma comes before the
    //    quantisation here: a table after it would turn one-code dither
    //    steps into large ones in the shadows.
    // Alpha (the fourth channel of PACK_RGBA and PACK_RGBA_NI) always takes
    // the full range, no gamma and no dithering. NaN reads as 0. False, with
    // `dst` untouched, without memory, for an unknown format or packing, an
    // unknown method, or when `dst` is this raster; false after reshaping
    // `dst` when its allocation fails.
    bool convert8Bit(IMB_Raster &dst, float black = 0.0f, float white = 0.0f, float gamma = 1.0f,
                     IMB_Dither method = IMB_DITHER_NONE) const;

    // convert8Bit(dst) over the format's full range with `method`.
    bool dither(IMB_Raster &dst, IMB_Dither method = IMB_DITHER_FLOYD_STEINBERG) const
    {
        return convert8Bit(dst, 0.0f, 0.0f, 1.0f, method);
    }

    // Fills every pixel outside `area` (x, y, width, height, clipped to the
    // raster) by repeating the area's edge pixels outwards: each row of the
    // area copies its first pixel to the columns on its left and its last
    // to those on its right, then the rows above copy the area's first row
    // and the rows below its last, across the whole width (so the corners
    // take the area's corner pixels). Every component of every plane is
    // copied as stored bytes, so all formats and packings behave alike.
    // False, changing nothing, without memory, for an unknown packing or
    // format, or when the clipped area is empty.
    bool streakEdges(const BAS_Rect<BAS_DimRectImpl> &area);

    // Applies a 1D table to an 8- or 16-bit raster through direct tables:
    // per channel, the result for each of the 256 or 65,536 possible
    // component values is computed once (IMB_Lookup::buildValueMaps) and
    // every component is then looked up. The pixels equal what
    // lut.applyLUT(*this, gamma, black, white, channel) gives (same
    // arguments, same channel copy). Other formats and cube tables go
    // through lut.applyLUT itself. Nothing happens without memory or for an
    // unknown format or packing.
    void applyLUT(const IMB_Lookup &lut, float gamma = 1.0f, float black = 0.0f, float white = 1.0f,
                  int channel = -1);

    // ---- stream form
    // Writes the binary form when `binary` is non-zero (little-endian: int32
    // xres, yres, packing, format; float black, white; int32 0; then the
    // first plane's pixel elements), else the text form ("xres yres
    // packingCode formatCode black white 0" on one line, every plane's bytes
    // uuencoded, "end"). Returns 1; 0 when the uuencoder fails, or, writing
    // nothing, for a raster without memory or with an unknown format or
    // packing.
    int save(std::ostream &os, int binary) const;
    // Reads the form that matches the stream's binary flag, reshapes and
    // allocates the raster and fills it. False on a malformed header, on
    // PACK_UV or any packing above 6 in the binary form, on an unknown code
    // in the text form, when allocation fails, when the data is short, or
    // (text) when the decoded block is not exactly the pixel size. A stream
    // that can tell how much it holds (memory, regular file, seekable
    // istream) is checked against the claimed shape before anything is
    // allocated; on other streams a huge claim fails when allocation or the
    // read fails. After a failure the raster may hold a new shape without
    // memory or with partial pixels; discard it.
    bool load(BAS_IStream &is);

protected:
    bool allocRaster(int alloc);
    void freeRaster();
    virtual void initialize();
    // Called when the system allocator fails; a subclass may free caches and
    // store a block of `bytes` bytes in myRaster.
    virtual void attemptRealloc(int64 bytes);

    IMB_DataFormat myFormat;
    IMB_Packing myPacking;
    IMB_ColorSpace myColorSpace;
    double myColorSpaceGamma;
    BAS_StringHolder myOCIOColorSpace;
    BAS_StringHolder myOCIODisplay;
    BAS_StringHolder myOCIOView;
    int64 myDataOffset;
    int64 myXres;
    int64 myYres;
    int64 myStride;
    int64 mySize;
    float myBlackPoint;
    float myWhitePoint;
    int32 myRotation;
    void *myRaster;
    bool myOwnsMemory;
    int32 myProxyIndex;
    bool myDataWritten;
    bool myManagesOwnTextureID;
    void *myTextureID;
    void (*myInterestCallback)(IMB_Raster *, void *);
    void *myInterestData;
    BAS_Rect<BAS_DimRectImpl> myDataWindow;
};
