// Pixel data formats, component packings and colour-space tags.
//
// Every image buffer of the library is described by three enumerations: the
// data format of one component (IMB_DataFormat), the layout of components in
// memory (IMB_Packing) and the encoding tag (IMB_ColorSpace). Their numeric
// values are part of the interface (files and client code store them).
// Alongside are the name functions, four exported constant tables indexed by
// format or packing, and the processor-capability probes that pixel kernels
// consult. Everything here is immutable or written once; free-threaded.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Types.h>

// Data format of one component.
enum IMB_DataFormat : int32
{
    IMB_INT8 = 0,            // unsigned 8 bit, white 255
    IMB_INT16 = 1,           // unsigned 16 bit, white 65535
    IMB_INT32 = 2,           // unsigned 32 bit, white 4294967295
    IMB_FLOAT32 = 3,         // 32-bit float, white 1
    IMB_FLOAT16 = 4,         // half16 (IEEE binary16), white 1
    IMB_MAX_DATA_FORMAT = 5, // no format (a fresh raster)
};

// Layout of a pixel's components. The _NI packings keep one full plane per
// component, planes one after another.
enum IMB_Packing : int32
{
    PACK_SINGLE = 0,  // one component
    PACK_DUAL = 1,    // two channels stored as three interleaved components
                      // (the third reads as zero; kept for compatibility)
    PACK_DUAL_NI = 2, // two planes
    PACK_RGB = 3,     // three interleaved components
    PACK_RGBA = 4,    // four interleaved components
    PACK_RGB_NI = 5,  // three planes
    PACK_RGBA_NI = 6, // four planes
    PACK_UV = 7,      // two interleaved components
    PACK_UNKNOWN = 255,
};

// How the values of a raster are encoded.
enum IMB_ColorSpace : int32
{
    IMB_CS_UNKNOWN = 0,
    IMB_CS_LINEAR = 1,
    IMB_CS_GAMMA2_2 = 2,
    IMB_CS_CUSTOM_GAMMA = 3,
    IMB_CS_SRGB = 4,
    IMB_CS_REC709 = 5,
    IMB_CS_OCIO = 6, // named by a colour-management colour-space name
};

// Bytes per component, indexed by IMB_DataFormat 0-5: 1, 2, 4, 4, 2, 0.
IMB_API extern const int32 imbDefinesDepth[6];
// Integer value of full intensity, indexed by IMB_DataFormat 0-5:
// 0xFF, 0xFFFF, 0xFFFFFFFF, 1, 1, 0.
IMB_API extern const uint32 imbDefinesWhite[6];
// Channels of an image, indexed by IMB_Packing 0-7: 1, 3, 2, 3, 4, 3, 4, 2.
IMB_API extern const int32 imbDefinesPComp[8];
// Components per pixel step of a scanline, indexed by IMB_Packing 0-7:
// 1, 3, 1, 3, 4, 1, 1, 2.
IMB_API extern const int32 imbDefinesPDepth[8];

// Name of a data format ("int8", "int16", "int32", "float32", "float16");
// "undefined" for any other value. Static storage.
IMB_API const char *IMBdataFormat(IMB_DataFormat format);
// Name of a packing ("single", "dual", "dual_ni", "rgb", "rgba", "rgb_ni",
// "rgba_ni", "uv"); "unknown" for any other value. Static storage.
IMB_API const char *IMBpacking(IMB_Packing packing);
// Tag for a name, compared case-insensitively against the whole string:
// "linear", "gamma2.2" or "gammacorrected2.2", "gamma", "srgb", "rec709",
// "opencolorio". Null or any other text gives IMB_CS_UNKNOWN.
IMB_API IMB_ColorSpace IMBgetColorSpace(const char *name);
// Name of a tag ("unknown" for IMB_CS_UNKNOWN and any invalid value).
IMB_API const char *IMBgetColorSpaceName(IMB_ColorSpace cs);

// Probes the processor once (thread-safe, double-checked); later calls return
// at once. The probes below report nothing until this has run.
IMB_API void IMBdetermineProcCaps();
// True only once determined and the feature is present.
IMB_API bool IMBcpuHasMMX();
IMB_API bool IMBcpuHasXMMX();
IMB_API bool IMBcpuHasCondMov();
// The SSE feature bits (processor feature word AND 0x84) once determined; 0
// before.
IMB_API int IMBcpuHasSSE();
