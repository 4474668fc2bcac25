// IMB_DeepImage: deep OpenEXR files, merging through the pixel accumulator,
// and flattening.
//
// Reading and writing point OpenEXR's deep frame buffers straight at the
// sample lists' planes (every file channel other than Z and ZBack is a
// channel of tuple size 1, so a plane is a plain float array). OpenEXR does
// not convert deep samples between types, so half channels pass through one
// contiguous buffer of halves, converted exactly on reading and to nearest
// (ties to even) on writing; unsigned channels are converted in place.
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
#include <atomic>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

using imb_io::fail;

namespace
{
using ListPtr = IMB_DeepImage::ListPtr;
using ChannelsPtr = IMB_DeepImage::ChannelsPtr;

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

// The part of the file the frame buffers address: one pointer per pixel,
// at pixel (x, y) of the data window.
struct PointerPlane
{
    std::vector<char *> ptr;
    Imf::DeepSlice slice(Imf::PixelType type, const Imath::Box2i &dw, int w, size_t sampleBytes)
    {
        char *base = reinterpret_cast<char *>(ptr.data() - dw.min.x - static_cast<ptrdiff_t>(dw.min.y) * w);
        return Imf::DeepSlice(type, base, sizeof(char *), sizeof(char *) * static_cast<size_t>(w), sampleBytes);
    }
};

template <typename Part> void readCounts(Part &part, bool tiled, const Imath::Box2i &dw);
template <> void readCounts(Imf::DeepScanLineInputPart &part, bool, const Imath::Box2i &dw)
{
    part.readPixelSampleCounts(dw.min.y, dw.max.y);
}
template <> void readCounts(Imf::DeepTiledInputPart &part, bool, const Imath::Box2i &)
{
    part.readPixelSampleCounts(0, part.numXTiles(0) - 1, 0, part.numYTiles(0) - 1, 0, 0);
}
void readSamples(Imf::DeepScanLineInputPart &part, const Imath::Box2i &dw) { part.readPixels(dw.min.y, dw.max.y); }
void readSamples(Imf::DeepTiledInputPart &part, const Imath::Box2i &)
{
    part.readTiles(0, part.numXTiles(0) - 1, 0, part.numYTiles(0) - 1, 0, 0);
}

template <typename Part> bool readPart(Part &part, IMB_DeepImage &out, const std::string &what)
{
    const Imf::Header &header = part.header();
    const Imath::Box2i dw = header.dataWindow(), disp = header.displayWindow();
    const int64 w = int64(dw.max.x) - dw.min.x + 1, h = int64(dw.max.y) - dw.min.y + 1;
    if (w < 1 || h < 1 || w * h > (int64(1) << 31))
        return fail(what + "the data window is empty or too large");

    // Channels: every one but Z and ZBack, in the file's order.
    ChannelsPtr channels(new IMB_DeepChannelList);
    std::vector<std::string> names;
    std::vector<Imf::PixelType> types;
    bool hasZ = false, hasZBack = false;
    for (Imf::ChannelList::ConstIterator it = header.channels().begin(); it != header.channels().end(); ++it)
    {
        const std::string name = it.name();
        if (name == "Z")
            hasZ = true;
        else if (name == "ZBack")
            hasZBack = true;
        else
        {
            names.push_back(name);
            types.push_back(it.channel().type);
            channels->addChannel(name.c_str(), 1, it.channel().type == Imf::UINT);
        }
    }
    if (!hasZ)
        return fail(what + "it has no Z channel");

    // One frame buffer, set once: the counts, and a pointer per pixel and
    // channel that is filled in once the counts are known.
    const size_t pixels = static_cast<size_t>(w * h);
    const size_t nch = names.size();
    std::vector<unsigned int> counts(pixels);
    std::vector<PointerPlane> planes(nch + 2);
    for (PointerPlane &p : planes)
        p.ptr.assign(pixels, nullptr);
    Imf::DeepFrameBuffer fb;
    fb.insertSampleCountSlice(Imf::Slice(Imf::UINT,
                                         reinterpret_cast<char *>(counts.data() - dw.min.x -
                                                                  static_cast<ptrdiff_t>(dw.min.y) * w),
                                         sizeof(unsigned int), sizeof(unsigned int) * static_cast<size_t>(w)));
    fb.insert("Z", planes[0].slice(Imf::FLOAT, dw, int(w), sizeof(float)));
    if (hasZBack)
        fb.insert("ZBack", planes[1].slice(Imf::FLOAT, dw, int(w), sizeof(float)));
    for (size_t c = 0; c < nch; ++c)
        fb.insert(names[c], planes[c + 2].slice(types[c], dw, int(w),
                                                 types[c] == Imf::HALF ? sizeof(Imath::half) : sizeof(float)));
    part.setFrameBuffer(fb);
    readCounts(part, false, dw);

    IMB_DeepImage image(IMB_ImageWindows{BAS_Rect<BAS_DimRectImpl>(dw.min.x, dw.min.y, int32(w), int32(h)),
                                         BAS_Rect<BAS_DimRectImpl>(disp.min.x, disp.min.y, disp.max.x - disp.min.x + 1,
                                                                   disp.max.y - disp.min.y + 1)},
                        channels);
    for (size_t c = 0; c < nch; ++c)
    {
        image.halfChannels()[c] = types[c] == Imf::HALF;
        image.uintChannels()[c] = types[c] == Imf::UINT;
    }
    // A list per pixel with samples; half channels land in one buffer each,
    // at every pixel's first sample, and unsigned ones in their float planes
    // as 32-bit patterns (both converted afterwards).
    std::vector<size_t> firstSample(pixels + 1, 0);
    for (size_t i = 0; i < pixels; ++i)
        firstSample[i + 1] = firstSample[i] + counts[i];
    std::vector<std::vector<Imath::half>> halves(nch);
    for (size_t c = 0; c < nch; ++c)
        if (types[c] == Imf::HALF)
            halves[c].resize(firstSample[pixels]);
    forRanges(int64(pixels), [&](int64 first, int64 end) {
        for (int64 i = first; i < end; ++i)
        {
            const unsigned n = counts[size_t(i)];
            if (n == 0)
                continue;
            ListPtr list(new IMB_DeepSampleList(channels, int(n)));
            planes[0].ptr[size_t(i)] = reinterpret_cast<char *>(list->zfrontBuffer());
            planes[1].ptr[size_t(i)] = reinterpret_cast<char *>(hasZBack ? list->zbackBuffer() : nullptr);
            for (size_t c = 0; c < nch; ++c)
                planes[c + 2].ptr[size_t(i)] =
                    types[c] == Imf::HALF ? reinterpret_cast<char *>(halves[c].data() + firstSample[size_t(i)])
                                          : reinterpret_cast<char *>(list->channelBuffer(int(c)));
            image.pixel(int(i % w), int(i / w)) = list;
        }
    });
    readSamples(part, dw);

    // Flags, coverage, point samples' zback, and unsigned values as floats.
    forRanges(int64(pixels), [&](int64 first, int64 end) {
        for (int64 i = first; i < end; ++i)
        {
            const ListPtr &list = image.pixel(int(i % w), int(i / w));
            if (!list)
                continue;
            const int n = list->sampleCount();
            if (!hasZBack)
                std::memcpy(list->zbackBuffer(), list->zfrontBuffer(), sizeof(float) * size_t(n));
            for (int s = 0; s < n; ++s)
            {
                list->flagBuffer()[s] = list->zback(s) > list->zfront(s) ? IMB_DeepSampleList::SAMPLE_VOLUME : 0;
                list->coverageBuffer()[s] = ~uint64(0);
            }
            for (size_t c = 0; c < nch; ++c)
                if (types[c] == Imf::HALF)
                {
                    const Imath::half *hv = halves[c].data() + firstSample[size_t(i)];
                    float *v = list->channelBuffer(int(c));
                    for (int s = 0; s < n; ++s)
                        v[s] = float(hv[s]);
                }
                else if (types[c] == Imf::UINT)
                {
                    float *v = list->channelBuffer(int(c));
                    for (int s = 0; s < n; ++s)
                    {
                        uint32 u;
                        std::memcpy(&u, &v[s], 4);
                        v[s] = static_cast<float>(u);
                    }
                }
        }
    });
    out = std::move(image);
    return true;
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
        Imf::MultiPartInputFile file(p.c_str(), exrThreads());
        const std::string type = file.header(0).hasType() ? file.header(0).type() : std::string();
        if (type == Imf::DEEPSCANLINE)
        {
            Imf::DeepScanLineInputPart part(file, 0);
            return readPart(part, *this, what);
        }
        if (type == Imf::DEEPTILE)
        {
            Imf::DeepTiledInputPart part(file, 0);
            return readPart(part, *this, what);
        }
        return fail(what + "it is not a deep image");
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
    const int w = myWindows.data.w(), h = myWindows.data.h();
    if (w < 1 || h < 1 || !myChannels)
        return fail(what + "the image has no pixels");
    const int nch = myChannels->channelCount();
    for (int c = 0; c < nch; ++c)
        if (myChannels->tupleSize(c) != 1)
            return fail(what + "channel \"" + myChannels->name(c).c_str() +
                        "\" has more than one component; OpenEXR channels hold one each");
    for (const ListPtr &l : myPixels)
        if (l && l->sampleCount() > 0 && !l->channels()->isEqual(*myChannels))
            return fail(what + "a pixel's channel list differs from the image's");

    Imf::Compression comp = Imf::ZIPS_COMPRESSION;
    const std::string want = compression ? compression : "";
    if (want == "none")
        comp = Imf::NO_COMPRESSION;
    else if (want == "rle")
        comp = Imf::RLE_COMPRESSION;
    else if (!want.empty() && want != "zips")
        return fail(what + "unknown deep compression \"" + want + "\" (none, rle, zips)");

    try
    {
        const Imath::Box2i dw(Imath::V2i(myWindows.data.x(), myWindows.data.y()),
                              Imath::V2i(myWindows.data.x2(), myWindows.data.y2()));
        const Imath::Box2i disp(Imath::V2i(myWindows.display.x(), myWindows.display.y()),
                                Imath::V2i(myWindows.display.x2(), myWindows.display.y2()));
        Imf::Header header(disp.isEmpty() ? dw : disp, dw);
        header.setType(Imf::DEEPSCANLINE);
        header.compression() = comp;
        header.channels().insert("Z", Imf::Channel(Imf::FLOAT));
        header.channels().insert("ZBack", Imf::Channel(Imf::FLOAT));
        for (int c = 0; c < nch; ++c)
            header.channels().insert(myChannels->name(c).c_str(),
                                     Imf::Channel(myUint[size_t(c)] ? Imf::UINT
                                                  : myHalf[size_t(c)] ? Imf::HALF
                                                                      : Imf::FLOAT));

        const size_t pixels = myPixels.size();
        std::vector<unsigned int> counts(pixels, 0);
        std::vector<PointerPlane> planes(size_t(nch) + 2);
        for (PointerPlane &pl : planes)
            pl.ptr.assign(pixels, nullptr);
        // Unsigned and half channels need their values converted, into one
        // buffer per channel at every pixel's first sample.
        std::vector<size_t> firstSample(pixels + 1, 0);
        for (size_t i = 0; i < pixels; ++i)
            firstSample[i + 1] = firstSample[i] + (myPixels[i] ? size_t(myPixels[i]->sampleCount()) : 0);
        std::vector<std::vector<uint32>> uints(static_cast<size_t>(nch));
        std::vector<std::vector<Imath::half>> halves(static_cast<size_t>(nch));
        for (int c = 0; c < nch; ++c)
        {
            if (myUint[size_t(c)])
                uints[size_t(c)].resize(firstSample[pixels]);
            else if (myHalf[size_t(c)])
                halves[size_t(c)].resize(firstSample[pixels]);
        }
        for (size_t i = 0; i < pixels; ++i)
        {
            const ListPtr &l = myPixels[i];
            if (!l || l->sampleCount() < 1)
                continue;
            const int n = l->sampleCount();
            counts[i] = unsigned(n);
            planes[0].ptr[i] = reinterpret_cast<char *>(const_cast<float *>(l->zfrontBuffer()));
            planes[1].ptr[i] = reinterpret_cast<char *>(const_cast<float *>(l->zbackBuffer()));
            for (int c = 0; c < nch; ++c)
            {
                const float *v = l->channelBuffer(c);
                if (myUint[size_t(c)])
                {
                    uint32 *u = uints[size_t(c)].data() + firstSample[i];
                    for (int s = 0; s < n; ++s)
                        u[s] = v[s] > 0.0f ? (v[s] < 4294967295.0f ? uint32(v[s]) : 0xffffffffu) : 0u;
                    planes[size_t(c) + 2].ptr[i] = reinterpret_cast<char *>(u);
                }
                else if (myHalf[size_t(c)])
                {
                    Imath::half *hv = halves[size_t(c)].data() + firstSample[i];
                    for (int s = 0; s < n; ++s)
                        hv[s] = Imath::half(v[s]);
                    planes[size_t(c) + 2].ptr[i] = reinterpret_cast<char *>(hv);
                }
                else
                    planes[size_t(c) + 2].ptr[i] = reinterpret_cast<char *>(const_cast<float *>(l->channelBuffer(c)));
            }
        }
        Imf::DeepFrameBuffer fb;
        fb.insertSampleCountSlice(Imf::Slice(Imf::UINT,
                                             reinterpret_cast<char *>(counts.data() - dw.min.x -
                                                                      static_cast<ptrdiff_t>(dw.min.y) * w),
                                             sizeof(unsigned int), sizeof(unsigned int) * size_t(w)));
        fb.insert("Z", planes[0].slice(Imf::FLOAT, dw, w, sizeof(float)));
        fb.insert("ZBack", planes[1].slice(Imf::FLOAT, dw, w, sizeof(float)));
        for (int c = 0; c < nch; ++c)
            fb.insert(myChannels->name(c).c_str(),
                      planes[size_t(c) + 2].slice(myUint[size_t(c)]   ? Imf::UINT
                                                  : myHalf[size_t(c)] ? Imf::HALF
                                                                      : Imf::FLOAT,
                                                  dw, w, myHalf[size_t(c)] ? sizeof(Imath::half) : sizeof(float)));

        imb_io::TempFile temp(p);
        {
            Imf::DeepScanLineOutputFile file(temp.name().c_str(), header, exrThreads());
            file.setFrameBuffer(fb);
            file.writePixels(h);
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
    IMB_DeepCompressor::Factory::initCompressors();
    const std::shared_ptr<IMB_DeepCompressor> comp =
        IMB_DeepCompressor::Factory::create(compressor ? compressor : "", first.myChannels, options);
    if (!comp)
        return fail(std::string("cannot merge deep images: no compressor \"") + (compressor ? compressor : "") + "\"");

    IMB_DeepImage result(first.myWindows, first.myChannels);
    result.myHalf = first.myHalf;
    result.myUint = first.myUint;
    const int w = first.width(), h = first.height();
    const int floats = first.myChannels->totalSize();
    const int nch = first.myChannels->channelCount();
    std::atomic<int> rowsDone{0};
    BAS_ThreadedAlgorithm runner(int64(w) * h < 4096 ? 1 : 0);
    runner.run([&](int j, int m) {
        IMB_DeepPixel acc(first.myChannels, 1);
        std::vector<float> values(size_t(std::max(floats, 1)));
        // Rows interleaved between workers, so progress stays even.
        for (int y = j; y < h; y += m)
        {
            for (int x = 0; x < w; ++x)
            {
                acc.startPixel(x, y, false);
                for (int k = 0; k < count; ++k)
                {
                    const ListPtr &l = inputs[k]->pixel(x, y);
                    if (!l)
                        continue;
                    for (int s = 0; s < l->sampleCount(); ++s)
                    {
                        for (int c = 0; c < nch; ++c)
                            std::memcpy(&values[size_t(first.myChannels->offset(c))], l->channelData(c, s),
                                        sizeof(float) * size_t(first.myChannels->tupleSize(c)));
                        acc.store(l->zfront(s), l->zback(s), values.data(), l->flags(s), 0);
                    }
                }
                result.pixel(x, y) = acc.closePixel(comp);
            }
            const int done = rowsDone.fetch_add(1) + 1;
            if (progress && j == 0)
                progress(double(done) / h, progressData);
        }
    });
    if (progress)
        progress(1.0, progressData);
    *this = std::move(result);
    return true;
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
