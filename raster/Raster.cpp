// IMB_Raster: construction, memory, shape and plain properties.
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_ProxyPointer.h>

#include <cstdlib>
#include <cstring>

bool (*IMB_IsTexture_cb)(void *texture) = nullptr;
void (*IMB_DeleteTextures_cb)(void *texture) = nullptr;

namespace
{
// Bytes before the first pixel of an owned block.
constexpr int64 theLeadBytes = 16;
// Extra bytes after the spare scanline of an owned block (with the lead, the
// 32 in "stride + size + 32").
constexpr int64 theSlackBytes = 32;
} // namespace

// ---------------------------------------------------------------- life cycle

IMB_Raster::IMB_Raster()
{
    initialize();
}

IMB_Raster::IMB_Raster(IMB_Packing packing, IMB_DataFormat format, int64 xres, int64 yres, int clear, int alloc)
{
    initialize();
    myPacking = packing;
    myFormat = format;
    myXres = xres;
    myYres = yres;
    if (alloc)
        allocRaster(1);
    if (clear && myRaster)
        std::memset(getPixels(), 0, static_cast<std::size_t>(mySize));
}

IMB_Raster::IMB_Raster(const IMB_Raster &src)
{
    initialize();
    // The base version, explicitly: a constructor never dispatches to a
    // subclass anyway, and this says so.
    IMB_Raster::copyProperties(src);
    allocRaster(1);
    if (myRaster && src.myRaster)
    {
        std::memcpy(getPixels(), src.getPixels(), static_cast<std::size_t>(mySize));
        myDataWritten = true;
    }
}

IMB_Raster::IMB_Raster(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2)
{
    initialize();
    IMB_Raster::copyProperties(src);
    myXres = x2 - x1 + 1;
    myYres = y2 - y1 + 1;
    allocRaster(1);
    extract(src, x1, y1, x2, y2);
    if (myRaster)
        myDataWritten = true;
}

IMB_Raster::~IMB_Raster()
{
    BAS_ProxyPointer::freeProxy(myProxyIndex);
    removeInterest();
    freeRaster();
    myOCIOColorSpace.clear();
    myOCIODisplay.clear();
    myOCIOView.clear();
}

void IMB_Raster::initialize()
{
    myFormat = IMB_MAX_DATA_FORMAT;
    myPacking = PACK_UNKNOWN;
    myColorSpace = IMB_CS_UNKNOWN;
    myColorSpaceGamma = 1.0;
    // The colour-management colour-space name is left as it is.
    myOCIODisplay.clear();
    myOCIOView.clear();
    myDataOffset = 0;
    myXres = 0;
    myYres = 0;
    myStride = 0;
    mySize = 0;
    myBlackPoint = 0.0f;
    myWhitePoint = 1.0f;
    myRotation = 0;
    myRaster = nullptr;
    myOwnsMemory = false;
    myDataWritten = false;
    myManagesOwnTextureID = false;
    myTextureID = nullptr;
    myInterestCallback = nullptr;
    myInterestData = nullptr;
    myDataWindow = BAS_Rect<BAS_DimRectImpl>();
    myProxyIndex = BAS_ProxyPointer::allocProxy(this);
}

// ---------------------------------------------------------------- memory

bool IMB_Raster::allocRaster(int alloc)
{
    myDataOffset = 0;
    if (static_cast<uint32>(myPacking) > 7 || static_cast<uint32>(myFormat) > 4 || myXres <= 0 || myYres <= 0)
        return myRaster != nullptr;

    const int64 components = imbDefinesPDepth[myPacking];
    int64 planes = 1;
    if (myPacking == PACK_DUAL_NI)
        planes = 2;
    else if (myPacking == PACK_RGB_NI)
        planes = 3;
    else if (myPacking == PACK_RGBA_NI)
        planes = 4;

    // A shape whose byte count does not fit in 64 bits is as impossible as a
    // zero resolution: nothing changes.
    int64 line, stride, size, bytes;
    if (__builtin_mul_overflow(static_cast<int64>(imbDefinesDepth[myFormat]), myXres, &line) ||
        __builtin_mul_overflow(line, components, &stride) || __builtin_mul_overflow(stride, myYres, &size) ||
        __builtin_mul_overflow(size, planes, &size) || __builtin_add_overflow(stride, size, &bytes) ||
        __builtin_add_overflow(bytes, theSlackBytes, &bytes))
        return myRaster != nullptr;
    // Plane packings step one plane's line; PACK_SINGLE has one component, so
    // both rules agree for it.
    myStride = planes > 1 ? line : stride;
    mySize = size;

    if (mySize >= 1 && alloc)
    {
        myOwnsMemory = true;
        // Lead of 16 bytes, the pixels, then one spare scanline and 16 bytes
        // so that vector kernels may read past the last pixel.
        myRaster = static_cast<std::size_t>(bytes) == static_cast<uint64>(bytes)
                       ? std::malloc(static_cast<std::size_t>(bytes))
                       : nullptr;
        if (!myRaster)
            attemptRealloc(bytes);
        myDataOffset = theLeadBytes;
        // The unused third component of PACK_DUAL must read as zero.
        if (myRaster && myPacking == PACK_DUAL)
            std::memset(getPixels(), 0, static_cast<std::size_t>(mySize));
    }
    return myRaster != nullptr;
}

void IMB_Raster::freeRaster()
{
    clearTextureID();
    if (myRaster)
    {
        if (myOwnsMemory)
            std::free(myRaster);
        myRaster = nullptr;
        myOwnsMemory = false;
        mySize = 0;
    }
}

void IMB_Raster::attemptRealloc(int64)
{
}

void IMB_Raster::init()
{
    allocRaster(1);
}

void IMB_Raster::setRaster(void *mem, bool owns, bool hasHeader)
{
    freeRaster();
    allocRaster(0);
    myRaster = mem;
    myDataOffset = hasHeader ? theLeadBytes : 0;
    myOwnsMemory = owns;
}

void *IMB_Raster::steal()
{
    if (!myRaster || !myOwnsMemory)
        return nullptr;
    clearTextureID();
    myOwnsMemory = false;
    return myRaster;
}

int64 IMB_Raster::getMemoryUsage(bool inclusive) const
{
    int64 bytes = inclusive ? static_cast<int64>(sizeof(*this)) : 0;
    if (myRaster && myOwnsMemory)
        bytes += mySize;
    return bytes;
}

// ---------------------------------------------------------------- shape

void IMB_Raster::setFormat(IMB_DataFormat format)
{
    freeRaster();
    myFormat = format;
}

void IMB_Raster::setPacking(IMB_Packing packing)
{
    freeRaster();
    myPacking = packing;
}

void IMB_Raster::setRes(int64 x, int64 y)
{
    freeRaster();
    myXres = x;
    myYres = y;
    myDataWindow = BAS_Rect<BAS_DimRectImpl>();
}

int IMB_Raster::getNumChannels() const
{
    uint32 p = static_cast<uint32>(myPacking);
    return p < 8 ? imbDefinesPComp[p] : 0;
}

bool IMB_Raster::isInterleaved() const
{
    return !(myPacking == PACK_SINGLE || myPacking == PACK_DUAL_NI || myPacking == PACK_RGB_NI ||
             myPacking == PACK_RGBA_NI);
}

// ---------------------------------------------------------------- properties

namespace
{
// Odd multiples of 90 degrees swap width and height; a rotation that is no
// multiple of 90 counts as unrotated.
bool swapsAxes(int rotation)
{
    return rotation % 90 == 0 && rotation % 180 != 0;
}
} // namespace

int64 IMB_Raster::getCorrectedXres() const
{
    return swapsAxes(myRotation) ? myYres : myXres;
}

int64 IMB_Raster::getCorrectedYres() const
{
    return swapsAxes(myRotation) ? myXres : myYres;
}

void IMB_Raster::setDataWindow(const BAS_Rect<BAS_DimRectImpl> &window)
{
    if (window.w() >= 0 && window.h() >= 0)
        myDataWindow = window;
}

void IMB_Raster::addInterest(void *data, void (*callback)(IMB_Raster *, void *))
{
    myInterestData = data;
    myInterestCallback = callback;
}

void IMB_Raster::removeInterest()
{
    myInterestData = nullptr;
    myInterestCallback = nullptr;
}

void *IMB_Raster::getTextureID() const
{
    if (myTextureID && IMB_IsTexture_cb && IMB_IsTexture_cb(myTextureID))
        return myTextureID;
    return nullptr;
}

void IMB_Raster::clearTextureID()
{
    if (myTextureID && IMB_IsTexture_cb && IMB_DeleteTextures_cb && IMB_IsTexture_cb(myTextureID))
        IMB_DeleteTextures_cb(myTextureID);
    myTextureID = nullptr;
}

void IMB_Raster::setColorSpace(IMB_ColorSpace cs, double gamma)
{
    myColorSpace = cs;
    switch (cs)
    {
    case IMB_CS_LINEAR: myColorSpaceGamma = 1.0; break;
    case IMB_CS_GAMMA2_2:
    case IMB_CS_SRGB:
    case IMB_CS_REC709: myColorSpaceGamma = 2.2; break;
    case IMB_CS_CUSTOM_GAMMA: myColorSpaceGamma = gamma; break;
    default: break; // unknown and colour-managed tags keep the gamma
    }
}

void IMB_Raster::setOCIOColorSpace(const BAS_StringHolder &name)
{
    if (!name.isEmpty())
        myColorSpace = IMB_CS_OCIO;
    myOCIOColorSpace = name;
}

void IMB_Raster::setOCIODisplayView(const BAS_StringHolder &display, const BAS_StringHolder &view)
{
    myOCIODisplay = display;
    myOCIOView = view;
}

void IMB_Raster::setOCIOParms(const BAS_StringHolder &colorSpace, const BAS_StringHolder &display,
                              const BAS_StringHolder &view)
{
    setOCIOColorSpace(colorSpace);
    setOCIODisplayView(display, view);
}

// ---------------------------------------------------------------- copying

void IMB_Raster::copyProperties(const IMB_Raster &src)
{
    if (this == &src)
        return;
    freeRaster();
    myFormat = src.myFormat;
    myPacking = src.myPacking;
    myXres = src.myXres;
    myYres = src.myYres;
    myRotation = src.myRotation;
    myDataWindow = src.myDataWindow;
    myColorSpace = src.myColorSpace;
    myColorSpaceGamma = src.myColorSpaceGamma;
    myOCIOColorSpace = src.myOCIOColorSpace;
    myOCIODisplay = src.myOCIODisplay;
    myOCIOView = src.myOCIOView;
    myBlackPoint = src.myBlackPoint;
    myWhitePoint = src.myWhitePoint;
}

void IMB_Raster::copy(const IMB_Raster &src)
{
    if (this == &src)
        return;
    copyProperties(src);
    allocRaster(1);
    if (myRaster && src.myRaster)
    {
        std::memcpy(getPixels(), src.getPixels(), static_cast<std::size_t>(mySize));
        myDataWritten = true;
    }
}

void IMB_Raster::reset(int full)
{
    clearTextureID();
    if (myRaster && myOwnsMemory)
        std::free(myRaster);
    myRaster = nullptr;
    myDataWritten = false;
    if (full)
    {
        myPacking = PACK_UNKNOWN;
        myFormat = IMB_MAX_DATA_FORMAT;
        myXres = 0;
        myYres = 0;
        myStride = 0;
        mySize = 0;
        myRotation = 0;
        myOwnsMemory = false;
    }
}
