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
class IMB_Raster;

// Display-layer hooks, set by the host: is a texture handle still alive, and
// delete it. Both null until the host stores functions in them.
IMB_API extern bool (*IMB_IsTexture_cb)(void *texture);
IMB_API extern void (*IMB_DeleteTextures_cb)(void *texture);

class IMB_API IMB_Raster : public BAS_SmallObject<0, 250, 1, 128>
{
public:
    // An unconfigured raster: no format (5), packing PACK_UNKNOWN, no memory.
    IMB_Raster();
    // A configured raster; allocates when `alloc` is non-zero and then zeroes
    // the pixels when `clear` is non-zero.
    IMB_Raster(IMB_Packing packing, IMB_DataFormat format, int64 xres, int64 yres, int clear = 0, int alloc = 1);
    // A copy: shape, tags, names, points and pixels (not texture, proxy index,
    // observer or ownership).
    IMB_Raster(const IMB_Raster &src);
    // A crop of the inclusive rectangle (x1, y1)-(x2, y2) of `src`; parts
    // outside `src` read as zero.
    IMB_Raster(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2);
    virtual ~IMB_Raster();

    IMB_Raster &operator=(const IMB_Raster &src)
    {
        if (this != &src)
            copy(src);
        return *this;
    }

    // Size of this object (when inclusive) plus the owned pixel bytes.
    virtual int64 getMemoryUsage(bool inclusive) const;
    // Becomes a copy of `src` (frees own memory first).
    virtual void copy(const IMB_Raster &src);
    // Takes shape, tags, names and points of `src`; leaves this without memory.
    virtual void copyProperties(const IMB_Raster &src);
    // Frees the memory; with `full` also forgets the shape.
    virtual void reset(int full = 0);

    // ---- memory
    // Allocates for the current shape. Call on a raster without memory.
    void init();
    // Adopts `mem` (freeing the current block first); `hasHeader` says that
    // the block has the library's 16-byte lead, as steal() hands it out.
    void setRaster(void *mem, bool owns, bool hasHeader);
    // Gives up ownership of an owned block and returns its start (16 bytes
    // before getPixels()); null, with nothing changed, when not owned.
    void *steal();

    // ---- shape (setters free the memory; call init() afterwards)
    void setFormat(IMB_DataFormat format);
    void setPacking(IMB_Packing packing);
    void setRes(int64 x, int64 y);
    IMB_DataFormat getFormat() const { return myFormat; }
    IMB_Packing getPacking() const { return myPacking; }
    int64 getXres() const { return myXres; }
    int64 getYres() const { return myYres; }
    int64 getStride() const { return myStride; }
    int64 getSize() const { return mySize; }
    int64 getNumPixels() const { return myXres * myYres; }
    int64 getNonInterleavedSize() const { return myStride * myYres; }
    int getNumChannels() const;
    bool hasAlpha() const { return myPacking == PACK_RGBA || myPacking == PACK_RGBA_NI; }
    bool isInterleaved() const;
    void *getPixels() { return myRaster ? static_cast<char *>(myRaster) + myDataOffset : nullptr; }
    const void *getPixels() const
    {
        return myRaster ? static_cast<const char *>(myRaster) + myDataOffset : nullptr;
    }
    void *getRawPixels() const { return myRaster; }
    int isValid() const { return myRaster != nullptr; }

    // ---- properties without effect on memory
    void setRotation(int degrees) { myRotation = degrees; }
    int getRotation() const { return myRotation; }
    bool isRotated() const { return myRotation != 0; }
    // Width and height as displayed: swapped for odd multiples of 90 degrees.
    int64 getCorrectedXres() const;
    int64 getCorrectedYres() const;

    // Stored only when width and height are both >= 0.
    void setDataWindow(const BAS_Rect<BAS_DimRectImpl> &window);
    const BAS_Rect<BAS_DimRectImpl> &getDataWindow() const { return myDataWindow; }
    bool hasDataWindow() const { return myDataWindow.w() != 0 && myDataWindow.h() != 0; }

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

    void setDataWritten(bool written) { myDataWritten = written; }
    bool getDataWritten() const { return myDataWritten; }
    int getProxyIndex() const { return myProxyIndex; }

    // One observer, kept for the owner; the library never calls it.
    void addInterest(void *data, void (*callback)(IMB_Raster *, void *));
    void removeInterest();

    void setTextureID(void *id) { myTextureID = id; }
    // The handle, when set and IMB_IsTexture_cb says it is alive; else null.
    void *getTextureID() const;
    // Deletes a live handle through IMB_DeleteTextures_cb; always forgets it.
    void clearTextureID();
    void setManagesOwnTextureID(bool manages) { myManagesOwnTextureID = manages; }
    bool managesOwnTextureID() const { return myManagesOwnTextureID; }

    // Stores the tag and sets the gamma by tag: linear 1.0; gamma2.2, srgb and
    // rec709 2.2; custom gamma `gamma`; unknown and OCIO keep the gamma.
    void setColorSpace(IMB_ColorSpace cs, double gamma = 1.0);
    IMB_ColorSpace getColorSpace() const { return myColorSpace; }
    double getColorSpaceGamma() const { return myColorSpaceGamma; }
    // The colour-management colour-space name.
    const BAS_StringHolder &getColorSpaceName() const { return myOCIOColorSpace; }
    // A non-empty name also sets the tag to IMB_CS_OCIO.
    void setOCIOColorSpace(const BAS_StringHolder &name);
    void setOCIODisplayView(const BAS_StringHolder &display, const BAS_StringHolder &view);
    void setOCIOParms(const BAS_StringHolder &colorSpace, const BAS_StringHolder &display,
                      const BAS_StringHolder &view);
    const BAS_StringHolder &getOCIODisplay() const { return myOCIODisplay; }
    const BAS_StringHolder &getOCIOView() const { return myOCIOView; }

    // ---- pixel access and transfers
    // Address of component `comp` of pixel (x, y); null outside the raster or
    // without memory. `comp` is not checked.
    void *getPixel(int64 x, int64 y, int64 comp = 0);
    const void *getPixel(int64 x, int64 y, int64 comp = 0) const;
    // Reads the pixel's values as floats (1 to 4 by packing; integers scaled
    // to 0-1). Coordinates are not checked.
    void getPixelValue(int64 x, int64 y, float *out) const;
    // Writes floats as consecutive components from component 0 of the pixel,
    // whatever the packing: on plane packings value i lands in plane 0 at
    // pixel x + i. Integers are truncated, not rounded or clamped.
    void setPixelValue(int64 x, int64 y, const float *in);
    void readFromRow(int64 y, void *dst) const;
    void writeToRow(int64 y, const void *src);
    void writeToColumn(int64 x, const void *src);
    void extract(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2);
    void insert(const IMB_Raster &src, int64 x, int64 y);
    // Reverses the scanlines (of plane 0 only on plane packings).
    void flipVertical();
    // Fills with one stored pixel, or zero when `pixel` is null.
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
