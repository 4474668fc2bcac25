// Image files: flat images to and from IMB_Raster, and deep images to and
// from a grid of IMB_DeepSampleList.
//
// This header belongs to the optional file component, libIMB_IO.so
// (find_package(IMB CONFIG REQUIRED COMPONENTS IO), target IMB::IO). Flat
// files go through OpenImageIO, so every format it reads or writes works
// (OpenEXR, TIFF, PNG, JPEG, DPX, ...); deep files are OpenEXR deep scanline
// or deep tiled images, read and written through OpenEXR. libIMB.so itself
// depends on neither.
//
// Failures: every function returns false and reports why through the
// library's error log (brevanError: "cannot read image \"path\": ...", with
// the message OpenImageIO or OpenEXR gave); no exception leaves the
// component except allocation failure. A failed read leaves the caller's
// raster or deep image as it was. Writes go to a temporary file next to the
// destination that is renamed over it only when complete, so a failed write
// never leaves a partial file at the path.
//
// Thread-safety: reads and writes of different files may run concurrently.
// Reads of deep files use OpenEXR's shared thread pool.
#pragma once

#include <IMB/IMB_DeepSampleList.h>
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_Options.h>
#include <IMB/platform/BAS_Rect.h>
#include <IMB/platform/BAS_StringHolder.h>

#include <vector>

#if defined(_WIN32)
#  define IMB_IO_API __declspec(dllimport)
#else
#  define IMB_IO_API __attribute__((visibility("default")))
#endif

// A file's two windows, in its own pixel coordinates: the data window (the
// pixels the file stores) and the display window (the frame they belong to;
// overscan lies outside it, a render region inside).
struct IMB_ImageWindows
{
    BAS_Rect<BAS_DimRectImpl> data;
    BAS_Rect<BAS_DimRectImpl> display;
};

// What IMB_ImageFile::read reads of a file.
struct IMB_ImageReadOptions
{
    int subimage = 0;    // which subimage (part) of the file
    int miplevel = 0;    // which MIP level of it (0: the full resolution)
    bool planar = false; // plane packings (_NI, PACK_SINGLE) instead of interleaved ones
};

// How IMB_ImageFile::write writes a file.
struct IMB_ImageWriteOptions
{
    // The file's windows; null: both are the raster's rectangle at 0, 0.
    // The data window's width and height must be the raster's.
    const IMB_ImageWindows *windows = nullptr;
    // OpenImageIO's "compression" attribute ("zip", "piz", "dwaa",
    // "lzw", ...); null or empty keeps the format's default.
    const char *compression = nullptr;
};

class IMB_IO_API IMB_ImageFile
{
public:
    // Reads one subimage and MIP level of `path` into `out`, replacing its
    // shape and pixels. The raster holds the file's data window: its width
    // and height, pixel (0, 0) at the window's top-left corner, no data
    // window of its own; `windows`, when given, receives both windows.
    //  - Format: uint8, uint16, uint32, half and float files keep their
    //    type (IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT16, IMB_FLOAT32);
    //    every other type is converted to float by OpenImageIO.
    //  - Packing from the channel count: 1 PACK_SINGLE, 2 PACK_UV
    //    (PACK_DUAL_NI planar), 3 PACK_RGB (PACK_RGB_NI), 4 or more
    //    PACK_RGBA (PACK_RGBA_NI) from the first four channels.
    //  - Components are read as stored: alpha that a file keeps
    //    unassociated (PNG) is not multiplied in.
    //  - Colour: the file's colour-space name (the "colorspace" header
    //    attribute this component writes, else what OpenImageIO reports as
    //    "oiio:ColorSpace") maps to a tag and name as
    //    IMB_OCIO::imbImageColorSpace does (the configuration's spaces
    //    first, then the tag names: "linear", "srgb", "rec709", ...);
    //    "GammaG" gives IMB_CS_CUSTOM_GAMMA with gamma G. When the
    //    configuration knows the space, its name is stored too.
    // False for a missing, unreadable, truncated or corrupt file, a volume
    // (depth > 1), a deep file, or a subimage or MIP level it lacks.
    static bool read(const char *path, IMB_Raster &out, const IMB_ImageReadOptions &options = IMB_ImageReadOptions(),
                     IMB_ImageWindows *windows = nullptr);

    // Writes `raster` to `path`; the file type comes from the extension.
    // Components keep the raster's format where the file type has it
    // (OpenEXR half, float and 32-bit, PNG 8 and 16 bit, TIFF integers and
    // float); otherwise
    // OpenImageIO converts to the nearest type it has. Components are
    // written as they are (no division by alpha for PNG). Plane packings are
    // written interleaved; PACK_DUAL writes its two channels. Channels are
    // named Y, (R, G), (R, G, B) or (R, G, B, A). The colour tag becomes a
    // name through IMB_OCIO::imbImageColorSpace (the configuration's name
    // for the tag, or the raster's colour-management name for IMB_CS_OCIO;
    // without a configuration the tag's own name; "GammaG" for a custom
    // gamma), written as the format's own colour metadata where it has
    // some (PNG's sRGB and gAMA chunks) and as a "colorspace" text
    // attribute where the format keeps one (OpenEXR, PNG). False, leaving nothing at `path`, when
    // the raster has no pixels or an unknown format or packing, the
    // windows do not match the raster, the format is unknown, or the write
    // fails.
    static bool write(const char *path, const IMB_Raster &raster, const IMB_ImageWriteOptions &options = IMB_ImageWriteOptions());
};

// A deep image: one sample list per pixel of the data window, row by row,
// and the channel list they share.
//
// Channels: every file channel except Z and ZBack becomes a channel of
// tuple size 1 with the file's name, in the file's order (alphabetical in
// OpenEXR); unsigned integer channels (ids) are read as floats, exact up to
// 2^24, and marked ordinal. Z is each sample's zfront and ZBack its zback
// (zback = zfront when the file has no ZBack); a sample with zback > zfront
// gets the volume flag. Coverage is full (all bits) on reading; OpenEXR has
// no place for coverage or the holdout flag, so writing drops them.
class IMB_IO_API IMB_DeepImage
{
public:
    using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
    using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;

    // An empty image: no pixels, no channels.
    IMB_DeepImage();
    // An image of the given windows and channels whose every pixel has no
    // samples. `pixelTypes` of the channels default to float.
    IMB_DeepImage(const IMB_ImageWindows &windows, const ChannelsPtr &channels);

    int width() const { return myWindows.data.w(); }
    int height() const { return myWindows.data.h(); }
    const IMB_ImageWindows &windows() const { return myWindows; }
    const ChannelsPtr &channels() const { return myChannels; }

    // The list of pixel (x, y) of the data window (0, 0 is its top-left
    // corner); null when the pixel has no samples. Not checked.
    const ListPtr &pixel(int x, int y) const { return myPixels[static_cast<size_t>(y) * myWindows.data.w() + x]; }
    ListPtr &pixel(int x, int y) { return myPixels[static_cast<size_t>(y) * myWindows.data.w() + x]; }
    // Samples over all pixels.
    int64 sampleCount() const;

    // Per channel (in channel-list order): true to write it as half floats,
    // false for 32-bit floats. Reading sets it from the file (unsigned
    // integer channels are written back as such). Z and ZBack are always
    // 32-bit floats.
    std::vector<bool> &halfChannels() { return myHalf; }
    const std::vector<bool> &halfChannels() const { return myHalf; }
    // The channels that came from unsigned integer file channels.
    std::vector<bool> &uintChannels() { return myUint; }
    const std::vector<bool> &uintChannels() const { return myUint; }

    // Reads a deep scanline or deep tiled OpenEXR file (its first part, the
    // full resolution of a tiled one). Every sample keeps its stored bits.
    // False for a missing, flat, truncated or corrupt file; `*this` is then
    // unchanged.
    bool read(const char *path);

    // Writes a deep scanline OpenEXR file ("zips" compression unless
    // `compression` names another of OpenEXR's deep compressions: "none",
    // "rle", "zips"). Lists whose channel list differs from the image's are
    // refused (false) before anything is written.
    bool write(const char *path, const char *compression = nullptr) const;

    // Replaces this image by the merge of `count` images with equal data
    // windows and equal channel lists: every pixel's samples from all
    // inputs go through one IMB_DeepPixel (raw style, one sub-sample
    // position, so they come out as one list sorted by depth) and are
    // closed with the compressor registered as `compressor`, created with
    // `options`: its compress step gets the pixel's list (the built-in
    // "null" and "default" keep every sample of a single list; see
    // IMB_DeepCompressor.h). The display window and channel types are the first
    // input's. Pixels run on the shared thread pool; `progress`, when
    // given, is called on the calling thread with the fraction of rows done.
    // False, with nothing changed, for no input, differing windows or
    // channel lists, or an unknown compressor.
    bool merge(const IMB_DeepImage *const *inputs, int count, const char *compressor,
               const BAS_Options &options = BAS_Options(), void (*progress)(double done, void *data) = nullptr,
               void *progressData = nullptr);

    // The merge of deep OpenEXR files into another, as merge() does, read,
    // merged and written a band of scan lines at a time, so memory holds a
    // band rather than every image. The inputs need equal data windows and
    // channel names; the output takes the first input's windows and channel
    // types, and `compression` as write() does. Tiled inputs are read whole.
    // False, with nothing at `output`, when a file cannot be read or
    // written, the inputs differ, or the compressor is unknown.
    static bool mergeFiles(const char *const *inputs, int count, const char *output, const char *compressor,
                           const BAS_Options &options = BAS_Options(), const char *compression = nullptr,
                           void (*progress)(double done, void *data) = nullptr, void *progressData = nullptr);

    // Composites every pixel front to back into a flat float raster of the
    // data window's size: PACK_RGBA from the channels R, G, B and A (a
    // missing colour channel reads 0; a missing A reads 1). Samples are
    // taken in depth order (zfront, then zback; ties keep the stored order)
    // and combined with the "over" rule of IMB_DeepSampleList::composite
    // with a three-component opacity (A for each colour): value = (1 -
    // opacity so far) x sample value + value so far, in float, unfused;
    // overlapping volumes are not split.
    // Pixels without samples are 0. False when the image has no pixels or
    // allocation fails.
    bool flatten(IMB_Raster &out) const;

private:
    IMB_ImageWindows myWindows;
    ChannelsPtr myChannels;
    std::vector<ListPtr> myPixels;
    std::vector<bool> myHalf;
    std::vector<bool> myUint;
};
