// IMB_DeepImage: deep OpenEXR files, merging through the pixel accumulator,
// and flattening.
//
// Files are read and written in bands of scan lines: OpenEXR's deep frame
// buffers point straight at the sample lists' planes (every file channel
// other than Z and ZBack is a channel of tuple size 1, so a plane is a plain
// float array). OpenEXR does not convert deep samples between types, so
// half channels pass through one buffer of halves per band, converted
// exactly on reading and to nearest (ties to even) on writing; unsigned
// channels are converted in place. Merging files streams band by band, so
// its memory (and the page faults of fresh memory) stays that of a band.
#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepPixel.h>
#include <IMB/IMB_ImageIO.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include "io/IOSupport.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineInputPart.h>
#include <OpenEXR/ImfDeepScanLineOutputFile.h>
#include <OpenEXR/ImfDeepTiledInputPart.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfMultiPartInputFile.h>
#include <OpenEXR/ImfPartType.h>
#include <Imath/half.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <thread>

using imb_io::fail;

namespace
{
using ListPtr = IMB_DeepImage::ListPtr;
using ChannelsPtr = IMB_DeepImage::ChannelsPtr;

// Scan lines per band when streaming.
constexpr int kBandRows = 64;

int exrThreads() { return static_cast<int>(std::max(1u, std::thread::hardware_concurrency())); }

// Runs fn(first, end) over [0, n) split over the shared pool.
template <typename Fn> void forRanges(int64 n, Fn fn)
{
    BAS_ThreadedAlgorithm runner(n < 4096 ? 1 : 0);
    runner.run([&](int j, int m) {
        const int64 chunk = (n + m - 1) / m, first = chunk * j;
        if (first < n)
            fn(first, std::min(n, first + chunk));
    });
}

// A deep file's windows and channels, as sample lists see them.
struct DeepLayout
{
    Imath::Box2i dw, disp;
    int64 w = 0, h = 0;
    ChannelsPtr channels;
    std::vector<std::string> names; // file channels other than Z and ZBack
    std::vector<Imf::PixelType> types;
    bool hasZBack = true;

    size_t sampleBytes(size_t c) const { return types[c] == Imf::HALF ? sizeof(Imath::half) : sizeof(float); }
};

bool layoutOf(const Imf::Header &header, DeepLayout &out, const std::string &what)
{
    out.dw = header.dataWindow();
    out.disp = header.displayWindow();
    out.w = int64(out.dw.max.x) - out.dw.min.x + 1;
    out.h = int64(out.dw.max.y) - out.dw.min.y + 1;
    if (out.w < 1 || out.h < 1 || out.w * out.h > (int64(1) << 31))
        return fail(what + "the data window is empty or too large");
    out.channels = new IMB_DeepChannelList;
    bool hasZ = false;
    out.hasZBack = false;
    for (Imf::ChannelList::ConstIterator it = header.channels().begin(); it != header.channels().end(); ++it)
    {
        const std::string name = it.name();
        if (name == "Z")
            hasZ = true;
        else if (name == "ZBack")
            out.hasZBack = true;
        else
        {
            out.names.push_back(name);
            out.types.push_back(it.channel().type);
            out.channels->addChannel(name.c_str(), 1, it.channel().type == Imf::UINT);
        }
    }
    return hasZ ? true : fail(what + "it has no Z channel");
}

// One pointer per pixel of a band of rows, addressed by absolute pixel
// coordinates as OpenEXR's frame buffers are.
struct PointerPlane
{
    std::vector<char *> ptr;
    Imf::DeepSlice slice(Imf::PixelType type, const DeepLayout &l, int y0, size_t sampleBytes)
    {
        char *base = reinterpret_cast<char *>(ptr.data() - l.dw.min.x - static_cast<ptrdiff_t>(y0) * l.w);
        return Imf::DeepSlice(type, base, sizeof(char *), sizeof(char *) * size_t(l.w), sampleBytes);
    }
};

Imf::Slice countSlice(std::vector<unsigned int> &counts, const DeepLayout &l, int y0)
{
    return Imf::Slice(Imf::UINT, reinterpret_cast<char *>(counts.data() - l.dw.min.x - static_cast<ptrdiff_t>(y0) * l.w),
                      sizeof(unsigned int), sizeof(unsigned int) * size_t(l.w));
}

void readCounts(Imf::DeepScanLineInputPart &part, int y0, int y1) { part.readPixelSampleCounts(y0, y1); }
void readCounts(Imf::DeepTiledInputPart &part, int, int)
{
    part.readPixelSampleCounts(0, part.numXTiles(0) - 1, 0, part.numYTiles(0) - 1, 0, 0);
}
void readSamples(Imf::DeepScanLineInputPart &part, int y0, int y1) { part.readPixels(y0, y1); }
void readSamples(Imf::DeepTiledInputPart &part, int, int)
{
    part.readTiles(0, part.numXTiles(0) - 1, 0, part.numYTiles(0) - 1, 0, 0);
}

// Rows y0 to y1 (inclusive, file coordinates) of a deep part into one list
// per pixel, lists[(y - y0) w + x - dw.min.x] (null for no samples). Tiled
// parts are read whole (y0 and y1 the data window's rows).
template <typename Part> void readRows(Part &part, const DeepLayout &l, int y0, int y1, ListPtr *lists)
{
    const size_t pixels = size_t(l.w) * size_t(y1 - y0 + 1), nch = l.names.size();
    std::vector<unsigned int> counts(pixels);
    std::vector<PointerPlane> planes(nch + 2);
    for (PointerPlane &p : planes)
        p.ptr.assign(pixels, nullptr);
    // One frame buffer, set once: the counts, and pointers that are filled
    // in once the counts are known.
    Imf::DeepFrameBuffer fb;
    fb.insertSampleCountSlice(countSlice(counts, l, y0));
    fb.insert("Z", planes[0].slice(Imf::FLOAT, l, y0, sizeof(float)));
    if (l.hasZBack)
        fb.insert("ZBack", planes[1].slice(Imf::FLOAT, l, y0, sizeof(float)));
    for (size_t c = 0; c < nch; ++c)
        fb.insert(l.names[c], planes[c + 2].slice(l.types[c], l, y0, l.sampleBytes(c)));
    part.setFrameBuffer(fb);
    readCounts(part, y0, y1);

    // Half channels land in one buffer each, at every pixel's first sample;
    // unsigned ones in their float planes as 32-bit patterns.
    std::vector<size_t> first(pixels + 1, 0);
    for (size_t i = 0; i < pixels; ++i)
        first[i + 1] = first[i] + counts[i];
    std::vector<std::unique_ptr<Imath::half[]>> halves(nch);
    for (size_t c = 0; c < nch; ++c)
        if (l.types[c] == Imf::HALF)
            halves[c].reset(new Imath::half[first[pixels] + 1]);
    forRanges(int64(pixels), [&](int64 from, int64 to) {
        for (size_t i = size_t(from); i < size_t(to); ++i)
        {
            lists[i] = nullptr;
            if (counts[i] == 0)
                continue;
            ListPtr list(new IMB_DeepSampleList(l.channels, int(counts[i])));
            planes[0].ptr[i] = reinterpret_cast<char *>(list->zfrontBuffer());
            planes[1].ptr[i] = reinterpret_cast<char *>(l.hasZBack ? list->zbackBuffer() : nullptr);
            for (size_t c = 0; c < nch; ++c)
                planes[c + 2].ptr[i] = l.types[c] == Imf::HALF ? reinterpret_cast<char *>(halves[c].get() + first[i])
                                                               : reinterpret_cast<char *>(list->channelBuffer(int(c)));
            lists[i] = list;
        }
    });
    readSamples(part, y0, y1);

    // Flags, coverage, the zback of point samples, halves and unsigned
    // values as floats.
    forRanges(int64(pixels), [&](int64 from, int64 to) {
        for (size_t i = size_t(from); i < size_t(to); ++i)
        {
            IMB_DeepSampleList *list = lists[i].get();
            if (!list)
                continue;
            const int n = list->sampleCount();
            if (!l.hasZBack)
                std::memcpy(list->zbackBuffer(), list->zfrontBuffer(), sizeof(float) * size_t(n));
            for (int s = 0; s < n; ++s)
            {
                list->flagBuffer()[s] = list->zback(s) > list->zfront(s) ? IMB_DeepSampleList::SAMPLE_VOLUME : 0;
                list->coverageBuffer()[s] = ~uint64(0);
            }
            for (size_t c = 0; c < nch; ++c)
            {
                float *v = list->channelBuffer(int(c));
                if (l.types[c] == Imf::HALF)
                    for (int s = 0; s < n; ++s)
                        v[s] = float(halves[c][first[i] + size_t(s)]);
                else if (l.types[c] == Imf::UINT)
                    for (int s = 0; s < n; ++s)
                    {
                        uint32 u;
                        std::memcpy(&u, &v[s], 4);
                        v[s] = static_cast<float>(u);
                    }
            }
        }
    });
}

// A deep scanline header for `l`'s windows and channels (Z and ZBack as
// floats, the others of `l.types`).
Imf::Header headerFor(const DeepLayout &l, Imf::Compression compression)
{
    Imf::Header header(l.disp.isEmpty() ? l.dw : l.disp, l.dw);
    header.setType(Imf::DEEPSCANLINE);
    header.compression() = compression;
    header.channels().insert("Z", Imf::Channel(Imf::FLOAT));
    header.channels().insert("ZBack", Imf::Channel(Imf::FLOAT));
    for (size_t c = 0; c < l.names.size(); ++c)
        header.channels().insert(l.names[c], Imf::Channel(l.types[c]));
    return header;
}

// Writes the next rows of a file, y0 to y1, from one list per pixel.
void writeRows(Imf::DeepScanLineOutputFile &file, const DeepLayout &l, int y0, int y1, const ListPtr *lists)
{
    const size_t pixels = size_t(l.w) * size_t(y1 - y0 + 1), nch = l.names.size();
    std::vector<unsigned int> counts(pixels, 0);
    std::vector<PointerPlane> planes(nch + 2);
    for (PointerPlane &p : planes)
        p.ptr.assign(pixels, nullptr);
    // Unsigned and half channels need their values converted, into one
    // buffer per channel at every pixel's first sample.
    std::vector<size_t> first(pixels + 1, 0);
    for (size_t i = 0; i < pixels; ++i)
        first[i + 1] = first[i] + (lists[i] ? size_t(lists[i]->sampleCount()) : 0);
    std::vector<std::unique_ptr<uint32[]>> uints(nch);
    std::vector<std::unique_ptr<Imath::half[]>> halves(nch);
    for (size_t c = 0; c < nch; ++c)
    {
        if (l.types[c] == Imf::UINT)
            uints[c].reset(new uint32[first[pixels] + 1]);
        else if (l.types[c] == Imf::HALF)
            halves[c].reset(new Imath::half[first[pixels] + 1]);
    }
    forRanges(int64(pixels), [&](int64 from, int64 to) {
        for (size_t i = size_t(from); i < size_t(to); ++i)
        {
            const IMB_DeepSampleList *list = lists[i].get();
            if (!list || list->sampleCount() < 1)
                continue;
            const int n = list->sampleCount();
            counts[i] = unsigned(n);
            planes[0].ptr[i] = reinterpret_cast<char *>(const_cast<float *>(list->zfrontBuffer()));
            planes[1].ptr[i] = reinterpret_cast<char *>(const_cast<float *>(list->zbackBuffer()));
            for (size_t c = 0; c < nch; ++c)
            {
                const float *v = list->channelBuffer(int(c));
                char *&to = planes[c + 2].ptr[i];
                if (l.types[c] == Imf::UINT)
                {
                    uint32 *u = uints[c].get() + first[i];
                    for (int s = 0; s < n; ++s)
                        u[s] = v[s] > 0.0f ? (v[s] < 4294967295.0f ? uint32(v[s]) : 0xffffffffu) : 0u;
                    to = reinterpret_cast<char *>(u);
                }
                else if (l.types[c] == Imf::HALF)
                {
                    Imath::half *hv = halves[c].get() + first[i];
                    for (int s = 0; s < n; ++s)
                        hv[s] = Imath::half(v[s]);
                    to = reinterpret_cast<char *>(hv);
                }
                else
                    to = reinterpret_cast<char *>(const_cast<float *>(v));
            }
        }
    });
    Imf::DeepFrameBuffer fb;
    fb.insertSampleCountSlice(countSlice(counts, l, y0));
    fb.insert("Z", planes[0].slice(Imf::FLOAT, l, y0, sizeof(float)));
    fb.insert("ZBack", planes[1].slice(Imf::FLOAT, l, y0, sizeof(float)));
    for (size_t c = 0; c < nch; ++c)
        fb.insert(l.names[c], planes[c + 2].slice(l.types[c], l, y0, l.sampleBytes(c)));
    file.setFrameBuffer(fb);
    file.writePixels(y1 - y0 + 1);
}

bool compressionOf(const char *name, Imf::Compression &out, const std::string &what)
{
    const std::string want = name ? name : "";
    if (want.empty() || want == "zips")
        out = Imf::ZIPS_COMPRESSION;
    else if (want == "none")
        out = Imf::NO_COMPRESSION;
    else if (want == "rle")
        out = Imf::RLE_COMPRESSION;
    else
        return fail(what + "unknown deep compression \"" + want + "\" (none, rle, zips)");
    return true;
}

// Merges `rows` rows of `count` inputs (lists row-major, `w` per row) into
// `out` through one accumulator per worker.
void mergeRows(const ListPtr *const *inputs, int count, int64 w, int64 rows, const ChannelsPtr &channels,
               const std::shared_ptr<IMB_DeepCompressor> &comp, ListPtr *out)
{
    const int floats = channels->totalSize(), nch = channels->channelCount();
    BAS_ThreadedAlgorithm runner(w * rows < 4096 ? 1 : 0);
    runner.run([&](int j, int m) {
        IMB_DeepPixel acc(channels, 1);
        std::vector<float> values(size_t(std::max(floats, 1)));
        for (int64 y = j; y < rows; y += m) // rows interleaved between workers
            for (int64 x = 0; x < w; ++x)
            {
                const size_t i = size_t(y * w + x);
                acc.startPixel(int(x), int(y), false);
                for (int k = 0; k < count; ++k)
                {
                    const IMB_DeepSampleList *l = inputs[k][i].get();
                    if (!l)
                        continue;
                    for (int s = 0; s < l->sampleCount(); ++s)
                    {
                        for (int c = 0; c < nch; ++c)
                            std::memcpy(&values[size_t(channels->offset(c))], l->channelData(c, s),
                                        sizeof(float) * size_t(channels->tupleSize(c)));
                        acc.store(l->zfront(s), l->zback(s), values.data(), l->flags(s), 0);
                    }
                }
                out[i] = acc.closePixel(comp);
            }
    });
}

std::shared_ptr<IMB_DeepCompressor> compressorFor(const char *name, const ChannelsPtr &channels,
                                                  const BAS_Options &options)
{
    IMB_DeepCompressor::Factory::initCompressors();
    return IMB_DeepCompressor::Factory::create(name ? name : "", channels, options);
}

// The layout of an image in memory: its windows and channels, and the file
// types of its half and unsigned channels.
DeepLayout layoutOfImage(const IMB_DeepImage &im)
{
    DeepLayout l;
    const BAS_Rect<BAS_DimRectImpl> &d = im.windows().data, &p = im.windows().display;
    l.dw = Imath::Box2i(Imath::V2i(d.x(), d.y()), Imath::V2i(d.x2(), d.y2()));
    l.disp = Imath::Box2i(Imath::V2i(p.x(), p.y()), Imath::V2i(p.x2(), p.y2()));
    l.w = d.w();
    l.h = d.h();
    l.channels = im.channels();
    for (int c = 0; l.channels && c < l.channels->channelCount(); ++c)
    {
        l.names.push_back(l.channels->name(c).c_str());
        l.types.push_back(im.uintChannels()[size_t(c)]   ? Imf::UINT
                          : im.halfChannels()[size_t(c)] ? Imf::HALF
                                                         : Imf::FLOAT);
    }
    return l;
}

IMB_ImageWindows windowsOf(const DeepLayout &l)
{
    return IMB_ImageWindows{
        BAS_Rect<BAS_DimRectImpl>(l.dw.min.x, l.dw.min.y, int32(l.w), int32(l.h)),
        BAS_Rect<BAS_DimRectImpl>(l.disp.min.x, l.disp.min.y, l.disp.max.x - l.disp.min.x + 1,
                                  l.disp.max.y - l.disp.min.y + 1)};
}

// Opens a deep file's first part; null after a reported failure.
std::unique_ptr<Imf::MultiPartInputFile> openDeep(const std::string &path, const std::string &what, bool &tiled)
{
    auto file = std::make_unique<Imf::MultiPartInputFile>(path.c_str(), exrThreads());
    const std::string type = file->header(0).hasType() ? file->header(0).type() : std::string();
    tiled = type == Imf::DEEPTILE;
    if (type != Imf::DEEPSCANLINE && !tiled)
    {
        fail(what + "it is not a deep image");
        return nullptr;
    }
    return file;
}
} // namespace

IMB_DeepImage::IMB_DeepImage() = default;

IMB_DeepImage::IMB_DeepImage(const IMB_ImageWindows &windows, const ChannelsPtr &channels)
    : myWindows(windows), myChannels(channels),
      myPixels(static_cast<size_t>(std::max(0, windows.data.w())) * static_cast<size_t>(std::max(0, windows.data.h()))),
      myHalf(channels ? size_t(channels->channelCount()) : 0, false),
      myUint(channels ? size_t(channels->channelCount()) : 0, false)
{
}

int64 IMB_DeepImage::sampleCount() const
{
    int64 n = 0;
    for (const ListPtr &l : myPixels)
        if (l)
            n += l->sampleCount();
    return n;
}

bool IMB_DeepImage::read(const char *path)
{
    const std::string p = path ? path : "";
    const std::string what = "cannot read deep image \"" + p + "\": ";
    try
    {
        bool tiled = false;
        std::unique_ptr<Imf::MultiPartInputFile> file = openDeep(p, what, tiled);
        DeepLayout l;
        if (!file || !layoutOf(file->header(0), l, what))
            return false;
        IMB_DeepImage image(windowsOf(l), l.channels);
        for (size_t c = 0; c < l.names.size(); ++c)
        {
            image.myHalf[c] = l.types[c] == Imf::HALF;
            image.myUint[c] = l.types[c] == Imf::UINT;
        }
        if (tiled)
        {
            Imf::DeepTiledInputPart part(*file, 0);
            readRows(part, l, l.dw.min.y, l.dw.max.y, image.myPixels.data());
        }
        else
        {
            Imf::DeepScanLineInputPart part(*file, 0);
            readRows(part, l, l.dw.min.y, l.dw.max.y, image.myPixels.data());
        }
        *this = std::move(image);
        return true;
    }
    catch (const std::bad_alloc &)
    {
        throw;
    }
    catch (const std::exception &e)
    {
        return fail(what + e.what());
    }
}

bool IMB_DeepImage::write(const char *path, const char *compression) const
{
    const std::string p = path ? path : "";
    const std::string what = "cannot write deep image \"" + p + "\": ";
    if (width() < 1 || height() < 1 || !myChannels)
        return fail(what + "the image has no pixels");
    for (int c = 0; c < myChannels->channelCount(); ++c)
        if (myChannels->tupleSize(c) != 1)
            return fail(what + "channel \"" + myChannels->name(c).c_str() +
                        "\" has more than one component; OpenEXR channels hold one each");
    for (const ListPtr &l : myPixels)
        if (l && l->sampleCount() > 0 && !l->channels()->isEqual(*myChannels))
            return fail(what + "a pixel's channel list differs from the image's");
    Imf::Compression comp;
    if (!compressionOf(compression, comp, what))
        return false;
    try
    {
        const DeepLayout l = layoutOfImage(*this);
        imb_io::TempFile temp(p);
        {
            Imf::DeepScanLineOutputFile file(temp.name().c_str(), headerFor(l, comp), exrThreads());
            writeRows(file, l, l.dw.min.y, l.dw.max.y, myPixels.data());
        }
        return temp.commit();
    }
    catch (const std::bad_alloc &)
    {
        throw;
    }
    catch (const std::exception &e)
    {
        return fail(what + e.what());
    }
}

bool IMB_DeepImage::merge(const IMB_DeepImage *const *inputs, int count, const char *compressor,
                          const BAS_Options &options, void (*progress)(double, void *), void *progressData)
{
    if (count < 1 || !inputs || !inputs[0])
        return fail("cannot merge deep images: no input");
    const IMB_DeepImage &first = *inputs[0];
    for (int k = 1; k < count; ++k)
    {
        const IMB_DeepImage &in = *inputs[k];
        const auto &a = first.myWindows.data, &b = in.myWindows.data;
        if (a.x() != b.x() || a.y() != b.y() || a.w() != b.w() || a.h() != b.h())
            return fail("cannot merge deep images: input " + std::to_string(k + 1) +
                        " has another data window than the first");
        if (!in.myChannels || !first.myChannels || !in.myChannels->isEqual(*first.myChannels))
            return fail("cannot merge deep images: input " + std::to_string(k + 1) +
                        " has other channels than the first");
    }
    const std::shared_ptr<IMB_DeepCompressor> comp = compressorFor(compressor, first.myChannels, options);
    if (!comp)
        return fail(std::string("cannot merge deep images: no compressor \"") + (compressor ? compressor : "") + "\"");

    IMB_DeepImage result(first.myWindows, first.myChannels);
    result.myHalf = first.myHalf;
    result.myUint = first.myUint;
    const int64 w = first.width(), h = first.height();
    std::vector<const ListPtr *> rows(static_cast<size_t>(count));
    for (int64 y0 = 0; y0 < h; y0 += kBandRows)
    {
        const int64 n = std::min<int64>(kBandRows, h - y0);
        for (int k = 0; k < count; ++k)
            rows[size_t(k)] = inputs[k]->myPixels.data() + y0 * w;
        mergeRows(rows.data(), count, w, n, first.myChannels, comp, result.myPixels.data() + y0 * w);
        if (progress)
            progress(double(y0 + n) / double(h), progressData);
    }
    *this = std::move(result);
    return true;
}

bool IMB_DeepImage::mergeFiles(const char *const *inputs, int count, const char *output, const char *compressor,
                               const BAS_Options &options, const char *compression,
                               void (*progress)(double, void *), void *progressData)
{
    const std::string out = output ? output : "";
    if (count < 1 || !inputs)
        return fail("cannot merge deep images: no input");
    Imf::Compression comp;
    if (!compressionOf(compression, comp, "cannot write deep image \"" + out + "\": "))
        return false;
    std::string what;
    try
    {
        std::vector<std::unique_ptr<Imf::MultiPartInputFile>> files;
        std::vector<DeepLayout> layouts(static_cast<size_t>(count));
        bool anyTiled = false;
        for (int k = 0; k < count; ++k)
        {
            const std::string in = inputs[k] ? inputs[k] : "";
            what = "cannot read deep image \"" + in + "\": ";
            bool tiled = false;
            files.push_back(openDeep(in, what, tiled));
            if (!files.back() || !layoutOf(files.back()->header(0), layouts[size_t(k)], what))
                return false;
            anyTiled = anyTiled || tiled;
            const DeepLayout &a = layouts[0], &b = layouts[size_t(k)];
            if (a.dw != b.dw)
                return fail("cannot merge deep images: " + in + " has another data window than the first input");
            if (!a.channels->isEqual(*b.channels))
                return fail("cannot merge deep images: " + in + " has other channels than the first input");
        }
        if (anyTiled)
        {
            // Tiled inputs are read whole, then merged in memory.
            files.clear();
            std::vector<IMB_DeepImage> images(static_cast<size_t>(count));
            std::vector<const IMB_DeepImage *> pointers;
            for (int k = 0; k < count; ++k)
            {
                if (!images[size_t(k)].read(inputs[k]))
                    return false;
                pointers.push_back(&images[size_t(k)]);
            }
            IMB_DeepImage merged;
            return merged.merge(pointers.data(), count, compressor, options, progress, progressData) &&
                   merged.write(output, compression);
        }
        const DeepLayout &l = layouts[0];
        const std::shared_ptr<IMB_DeepCompressor> merger = compressorFor(compressor, l.channels, options);
        if (!merger)
            return fail(std::string("cannot merge deep images: no compressor \"") + (compressor ? compressor : "") +
                        "\"");
        what = "cannot write deep image \"" + out + "\": ";
        imb_io::TempFile temp(out);
        {
            Imf::DeepScanLineOutputFile file(temp.name().c_str(), headerFor(l, comp), exrThreads());
            std::vector<std::unique_ptr<Imf::DeepScanLineInputPart>> parts;
            for (auto &f : files)
                parts.push_back(std::make_unique<Imf::DeepScanLineInputPart>(*f, 0));
            const size_t band = size_t(l.w) * kBandRows;
            std::vector<std::vector<ListPtr>> in(static_cast<size_t>(count), std::vector<ListPtr>(band));
            std::vector<const ListPtr *> rows(static_cast<size_t>(count));
            std::vector<ListPtr> merged(band);
            for (int y0 = l.dw.min.y; y0 <= l.dw.max.y; y0 += kBandRows)
            {
                const int y1 = std::min(l.dw.max.y, y0 + kBandRows - 1);
                for (int k = 0; k < count; ++k)
                {
                    what = std::string("cannot read deep image \"") + inputs[k] + "\": ";
                    readRows(*parts[size_t(k)], layouts[size_t(k)], y0, y1, in[size_t(k)].data());
                    rows[size_t(k)] = in[size_t(k)].data();
                }
                mergeRows(rows.data(), count, l.w, y1 - y0 + 1, l.channels, merger, merged.data());
                what = "cannot write deep image \"" + out + "\": ";
                writeRows(file, l, y0, y1, merged.data());
                if (progress)
                    progress(double(y1 - l.dw.min.y + 1) / double(l.h), progressData);
            }
        }
        return temp.commit();
    }
    catch (const std::bad_alloc &)
    {
        throw;
    }
    catch (const std::exception &e)
    {
        return fail(what + e.what());
    }
}

bool IMB_DeepImage::flatten(IMB_Raster &out) const
{
    const int w = width(), h = height();
    if (w < 1 || h < 1 || !myChannels)
        return fail("cannot flatten a deep image without pixels");
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, w, h, 1, 1);
    if (!r.isValid())
        throw std::bad_alloc();
    const int idx[4] = {myChannels->findChannel("R"), myChannels->findChannel("G"), myChannels->findChannel("B"),
                        myChannels->findChannel("A")};
    forRanges(int64(w) * h, [&](int64 first, int64 end) {
        std::vector<int> order;
        std::vector<uint32> keys;
        for (int64 i = first; i < end; ++i)
        {
            const ListPtr &l = myPixels[size_t(i)];
            if (!l || l->sampleCount() < 1)
                continue;
            const int n = l->sampleCount();
            // Depth order as the accumulator closes: zfront in float order,
            // -0 before +0, NaNs at the ends; ties keep the stored order.
            keys.resize(size_t(n));
            order.resize(size_t(n));
            for (int s = 0; s < n; ++s)
            {
                uint32 b;
                const float z = l->zfront(s);
                std::memcpy(&b, &z, 4);
                keys[size_t(s)] = b ^ ((b >> 31) ? 0xffffffffu : 0x80000000u);
                order[size_t(s)] = s;
            }
            if (!std::is_sorted(keys.begin(), keys.end()))
                std::stable_sort(order.begin(), order.end(),
                                 [&](int a, int b) { return keys[size_t(a)] < keys[size_t(b)]; });
            float acc[4] = {0, 0, 0, 0};
            for (int k = 0; k < n; ++k)
            {
                const int s = order[size_t(k)];
                float v[4];
                for (int c = 0; c < 4; ++c)
                    v[c] = idx[c] >= 0 ? l->channelData(idx[c], s)[0] : (c == 3 ? 1.0f : 0.0f);
                // value = (1 - opacity so far) x sample value + value so far.
                const float keep = 1.0f - acc[3];
                for (int c = 0; c < 4; ++c)
                {
                    const float t = keep * v[c];
                    acc[c] = t + acc[c];
                }
            }
            std::memcpy(r.getPixel(int(i % w), int(i / w), 0), acc, sizeof acc);
        }
    });
    r.setDataWritten(true);
    out = r;
    return true;
}
