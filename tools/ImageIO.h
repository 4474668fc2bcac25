// Image files to and from IMB_Raster, through OpenImageIO.
//
// Used by every imbtool command that reads or writes a real image file (PNG,
// TIFF, OpenEXR, JPEG, ... whatever the installed OpenImageIO reads).
//
// Orientation: row 0 of the raster is the file's first stored scanline (the
// top of the image as viewers show it); no flip is applied either way.
// Failures throw imbtool::Failure with a message naming the file.
#pragma once

#include <IMB/IMB_Raster.h>

#include <string>

namespace imbtool
{
// Reads the first subimage of `path` into `out`, replacing its shape and
// pixels. The packing follows the channel count (1 single, 2 uv, 3 rgb,
// 4 or more rgba: the first four channels) and the data format the file's
// pixel type (uint8 int8, uint16 int16, uint32 int32, half float16, anything
// else float32, converted by OpenImageIO). A file that says its pixels are
// sRGB or linear gets the matching colour tag.
void readImage(const std::string &path, IMB_Raster &out);

// Writes `raster` to `path`; the file type comes from the extension. The
// pixel type follows the raster's format where the file type has it (OpenEXR
// keeps half and float, PNG takes 8 and 16 bit, ...); otherwise OpenImageIO
// converts to the nearest type the file type has. Plane packings are
// interleaved on the way out; PACK_DUAL writes its two real channels.
void writeImage(const std::string &path, const IMB_Raster &raster);
} // namespace imbtool
