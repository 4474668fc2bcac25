// What the vector luma kernels are handed: the destination, the sources and
// how they are laid out. Internal to luma/.
#pragma once

#include <IMB/platform/BAS_Types.h>

#include <cstddef>

namespace imb_detail
{
// One run of pixels whose red, green and blue are all present and either in
// separate dense streams (stride 1) or interleaved in one buffer of 3 or 4
// components per pixel, starting at `base`, at component offsets `off`.
struct LumaJob
{
    void *dst;
    const void *src[4]; // red, green, blue, alpha (alpha may be null)
    const void *base;   // interleaved layouts: the lowest source pointer
    int off[4];         // interleaved layouts: offset of each source from base
    int func;           // IMB_LumFunction value, 0-4
    int stride;         // 1, 3 or 4 components per pixel
    int64 count;        // pixels
};

// Each kernel converts a leading part of the run and returns how many pixels
// it did; the caller finishes the rest with the scalar rules. Kernels never
// read components of the last pixel through vector loads, so a caller's
// buffer that ends right after the last used component is safe.
int64 lumaKernelU8(const LumaJob &job);
int64 lumaKernelU16(const LumaJob &job);
int64 lumaKernelU32(const LumaJob &job);
int64 lumaKernelF32(const LumaJob &job);
int64 lumaKernelF16(const LumaJob &job);
} // namespace imb_detail
