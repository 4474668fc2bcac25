// IMB_Lookup: application to rasters. Prepares the kernel parameters (float
// copies of the tables, scaled points, positions), splits the raster over the
// threaded-algorithm runner and copies a single computed channel.
#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>
#include <IMB/platform/CRV_Clip.h>

#include "lookup/LookupApplyKernels-inl.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

using namespace imb_detail;

namespace
{
// Rasters up to this many pixels run on the calling thread.
constexpr int64 kSingleThreadPixels = 100000;
// From this many pixels, 16-bit and half rasters go through value maps.
constexpr int64 kMapPixels = 262144;

constexpr IMB_LookupType kChannels[4] = {IMB_LUT_R, IMB_LUT_G, IMB_LUT_B, IMB_LUT_A};

bool hasPixels(const IMB_Raster &r)
{
    return r.isValid() && r.getFormat() >= IMB_INT8 && r.getFormat() <= IMB_FLOAT16 && r.getPacking() >= 0 &&
           r.getPacking() <= PACK_UV && r.getXres() > 0 && r.getYres() > 0;
}

// Component pointers of pixel (0, 0) and the step between pixels.
LutSpan rasterSpan(IMB_Raster &r)
{
    LutSpan s;
    const int channels = imbDefinesPComp[r.getPacking()];
    for (int c = 0; c < 4 && c < channels; ++c)
        s.comp[c] = r.getPixel(0, 0, c);
    s.step = r.isInterleaved() ? imbDefinesPDepth[r.getPacking()] : 1;
    s.count = r.getXres() * r.getYres();
    return s;
}

// The part of `whole` that worker j of m handles.
LutSpan workerSpan(const LutSpan &whole, int bytes, int j, int m)
{
    LutSpan s = whole;
    const int64 chunk = (whole.count + m - 1) / m;
    const int64 first = chunk * j;
    s.count = first >= whole.count ? 0 : std::min(chunk, whole.count - first);
    for (void *&c : s.comp)
        if (c)
            c = static_cast<char *>(c) + first * whole.step * bytes;
    return s;
}

// Runs fn(span) over the raster, split over threads above 100,000 pixels.
template <typename Fn> void runSplit(const LutSpan &whole, int bytes, Fn fn)
{
    BAS_ThreadedAlgorithm runner(whole.count <= kSingleThreadPixels ? 1 : 0);
    runner.run([&](int j, int m) {
        const LutSpan s = workerSpan(whole, bytes, j, m);
        if (s.count > 0)
            fn(s);
    });
}

// Copies the computed channel c into the other colour channels.
void copyChannel(const LutSpan &s, int c, int bytes)
{
    const char *src = static_cast<const char *>(s.comp[c]);
    if (!src)
        return;
    const int64 stepBytes = s.step * bytes;
    for (int d = 0; d < 3; ++d)
    {
        if (d == c || !s.comp[d])
            continue;
        char *dst = static_cast<char *>(s.comp[d]);
        for (int64 i = 0; i < s.count; ++i)
            std::memcpy(dst + i * stepBytes, src + i * stepBytes, static_cast<std::size_t>(bytes));
    }
}

// Points and gamma shared by the 1D and cube kernels.
template <typename Params> void setCommon(Params &p, IMB_DataFormat format, float gamma, float black, float white)
{
    p.points.identity = (black == 0.0f && white == 1.0f);
    switch (format)
    {
    case IMB_INT8:
        p.points.black = std::floor(black * 255.0 + 0.5);
        p.points.white = std::floor(white * 255.0 + 0.5);
        break;
    case IMB_INT16:
        p.points.black = std::floor(black * 65535.0 + 0.5);
        p.points.white = std::floor(white * 65535.0 + 0.5);
        break;
    case IMB_INT32:
        // 2^31 in single precision; deliberate and kept (callers' points for
        // 32-bit rasters are 31-bit).
        p.points.black = std::floor(black * 2147483648.0f + 0.5f);
        p.points.white = std::floor(white * 2147483648.0f + 0.5f);
        break;
    default: // float formats ignore the points
        p.points.black = 0.0;
        p.points.white = 1.0;
        p.points.identity = true;
        break;
    }
    const float g = gamma > 1e-6f ? gamma : 1e-6f; // NaN gamma counts as tiny
    p.gammaOne = (gamma == 1.0f);
    p.invGamma = 1.0f / g;
}

// Table positions per unit over [lo, hi] for `steps` intervals; 0 for an
// empty, reversed or non-finite interval (everything then reads sample 0).
template <typename Calc> Calc positionScale(Calc lo, Calc hi, int steps)
{
    const Calc d = hi - lo;
    if (!(d > Calc(0)) || !std::isfinite(d))
        return Calc(0);
    const Calc s = static_cast<Calc>(steps) / d;
    return std::isfinite(s) ? s : Calc(0);
}

int channelArg(int channel) { return channel < 0 ? -1 : std::min(channel, 3); }
} // namespace

void IMB_Lookup::applyLUT(IMB_Raster &r, float gamma, float black, float white, int channel) const
{
    if (myType & IMB_LUT_3D)
        apply3DLUT(r, gamma, black, white, channel);
    else
        apply1DLUT(r, gamma, black, white, channel);
}

namespace
{
// A 1D table prepared for the kernels: float copies of the tracks, each
// padded with a copy of its last sample, and the kernel parameters.
struct Prepared1D
{
    // Small tables go into a per-thread buffer that keeps its memory, so
    // that applying a table to a small raster does not cost an allocation
    // (and the allocator's return of the memory to the system) every call.
    // A thread may start another application while it waits for the pool
    // (the pool lends waiting threads other work), so the buffer is taken
    // only when no application on this thread holds it.
    static constexpr std::size_t kReusedFloats = 4 * 4097;
    std::vector<float> own;
    Lut1DParams p;
    bool anyTable = false;
    bool holdsReused = false;

    Prepared1D() = default;
    Prepared1D(const Prepared1D &) = delete;
    Prepared1D &operator=(const Prepared1D &) = delete;
    ~Prepared1D()
    {
        if (holdsReused)
            reusedBusy() = false;
    }

    static std::vector<float> &reused()
    {
        static thread_local std::vector<float> v;
        return v;
    }
    static bool &reusedBusy()
    {
        static thread_local bool busy = false;
        return busy;
    }

    float *storage(std::size_t floats)
    {
        if (floats <= kReusedFloats && (holdsReused || !reusedBusy()))
        {
            holdsReused = reusedBusy() = true;
            std::vector<float> &v = reused();
            if (v.size() < floats)
                v.resize(kReusedFloats);
            return v.data();
        }
        own.resize(floats);
        return own.data();
    }
};

// Prepares `lut`'s tracks for a raster of `format`: the channels with a table
// (getIndexFor; only `only` when it is 0..3), the domain, the points and
// the gamma. The table has n >= 1 samples. Channels that share a track share
// one padded copy; p.table[c] is the copy without its padding sample.
void prepare1D(const IMB_Lookup &lut, IMB_DataFormat format, float gamma, float black, float white, int only,
               Prepared1D &out)
{
    const int n = lut.getTableSize();
    Lut1DParams &p = out.p;
    const double *source[4] = {nullptr, nullptr, nullptr, nullptr};
    int trackOf[4] = {-1, -1, -1, -1};
    int copies = 0;
    for (int c = 0; c < 4; ++c)
    {
        if (only >= 0 && c != only)
            continue;
        const int t = lut.getIndexFor(kChannels[c]);
        const CRV_Track *track = lut.getLUT().getTrack(t);
        if (!track || !track->getData())
            continue;
        trackOf[c] = t;
        for (int k = 0; k < c; ++k)
            if (trackOf[k] == t)
                p.slot[c] = p.slot[k];
        if (p.slot[c] < 0)
        {
            p.slot[c] = copies * (n + 1);
            source[c] = track->getData();
            ++copies;
        }
    }
    float *padded = out.storage(static_cast<std::size_t>(copies) * static_cast<std::size_t>(n + 1));
    for (int c = 0; c < 4; ++c)
    {
        if (p.slot[c] < 0)
            continue;
        float *t = padded + p.slot[c];
        if (source[c])
        {
            std::copy(source[c], source[c] + n, t);
            t[n] = t[n - 1];
        }
        p.table[c] = t;
    }
    p.padded = padded;
    out.anyTable = p.table[0] || p.table[1] || p.table[2] || p.table[3];
    float dmin, dmax;
    lut.getDomain(dmin, dmax);
    p.last = n - 1;
    p.log = lut.getLogSampling();
    p.dmin = dmin;
    p.dmax = dmax;
    p.dminD = dmin;
    p.dmaxD = dmax;
    if (p.log)
    {
        p.lnMin = lutLog(dmin);
        p.scale = positionScale(p.lnMin, lutLog(dmax), n - 1);
        p.lnMinD = lutLog(static_cast<double>(dmin));
        p.scaleD = positionScale(p.lnMinD, lutLog(static_cast<double>(dmax)), n - 1);
    }
    else
    {
        p.scale = positionScale(dmin, dmax, n - 1);
        p.scaleD = positionScale(p.dminD, p.dmaxD, n - 1);
    }
    setCommon(p, format, gamma, black, white);
    p.invGammaD = 1.0 / static_cast<double>(gamma > 1e-6f ? gamma : 1e-6f);
}
} // namespace

void IMB_Lookup::apply1DLUT(IMB_Raster &r, float gamma, float black, float white, int channel) const
{
    if (!hasPixels(r))
        return;
    const IMB_DataFormat format = r.getFormat();
    const int bytes = imbDefinesDepth[format];
    const int only = channelArg(channel);
    if (getTableSize() < 1)
    {
        // No table to apply; a given channel is still spread.
        if (only >= 0)
            runSplit(rasterSpan(r), bytes, [&](const LutSpan &s) { copyChannel(s, only, bytes); });
        return;
    }
    const LutSpan whole = rasterSpan(r);
    // 8-bit rasters, and 16-bit ones large enough to repay 65,536-entry
    // tables, go through the raster's direct tables: the same per-value
    // rule, applied by the fastest walk the processor has.
    if (!(myType & IMB_LUT_3D) && (format == IMB_INT8 || (format == IMB_INT16 && whole.count >= kMapPixels)))
    {
        r.applyLUT(*this, gamma, black, white, channel);
        return;
    }
    Prepared1D prep;
    prepare1D(*this, format, gamma, black, white, only, prep);
    const Lut1DParams &p = prep.p;
    const bool anyTable = prep.anyTable;

    std::unique_ptr<unsigned char[]> mapStore;
    void *maps[4] = {nullptr, nullptr, nullptr, nullptr};
    const bool useMaps = format == IMB_FLOAT16 && whole.count >= kMapPixels;
    if (useMaps)
    {
        const std::size_t entries = 65536;
        mapStore.reset(new unsigned char[4 * entries * bytes]);
        for (int c = 0; c < 4; ++c)
            if (p.table[c] && whole.comp[c])
                maps[c] = mapStore.get() + c * entries * bytes;
        buildLut1DMaps(format, p, maps);
    }

    runSplit(whole, bytes, [&](const LutSpan &s) {
        // Without any table nothing is mapped; a given channel is still spread.
        if (anyTable && useMaps)
            applyLut1DMaps(format, maps, s);
        else if (anyTable)
            applyLut1D(format, p, s);
        if (only >= 0)
            copyChannel(s, only, bytes);
    });
}

int IMB_Lookup::buildValueMaps(IMB_DataFormat format, void *maps[4], float gamma, float black, float white,
                               int channel) const
{
    if ((format != IMB_INT8 && format != IMB_INT16) || (myType & IMB_LUT_3D) || getTableSize() < 1)
        return 0;
    Prepared1D prep;
    prepare1D(*this, format, gamma, black, white, channelArg(channel), prep);
    void *wanted[4] = {nullptr, nullptr, nullptr, nullptr};
    int filled = 0;
    for (int c = 0; c < 4; ++c)
        if (maps[c] && prep.p.table[c])
        {
            wanted[c] = maps[c];
            filled |= 1 << c;
        }
    if (filled)
        buildLut1DMaps(format, prep.p, wanted);
    return filled;
}

void IMB_Lookup::apply3DLUT(IMB_Raster &r, float gamma, float black, float white, int channel) const
{
    if (!hasPixels(r) || !my3DTable || my3DSize < 1)
        return;
    const IMB_DataFormat format = r.getFormat();
    // No cube kernel for 32-bit integers: such rasters stay unchanged (kept
    // as designed; callers convert first).
    if (format == IMB_INT32)
        return;
    const int bytes = imbDefinesDepth[format];
    const int only = channelArg(channel);

    Lut3DParams p;
    p.cube = my3DTable.get();
    p.n = my3DSize;
    p.dmin = myDomainMin;
    p.dmax = myDomainMax;
    p.logBias = myLogBias;
    std::vector<float> pre;
    if (getLogSampling())
    {
        p.input = CubeInput::Log;
        p.lnMin = lutLog(myDomainMin);
        p.logScale = positionScale(p.lnMin, lutLog(myDomainMax), my3DSize - 1);
    }
    else if (myType == IMB_LUT_3D_1D)
    {
        const CRV_Track *track = myClip->getTrack(0);
        if (track && track->getData())
        {
            pre.assign(track->getData(), track->getData() + track->getLength());
            p.input = CubeInput::PreLut;
            p.pre = pre.data();
            p.preLast = static_cast<int>(pre.size()) - 1;
            p.preScale = positionScale(myDomainMin, myDomainMax, p.preLast);
        }
    }
    setCommon(p, format, gamma, black, white);

    const LutSpan whole = rasterSpan(r);
    runSplit(whole, bytes, [&](const LutSpan &s) {
        // Channel 3 only spreads alpha; the cube is not applied.
        if (only != 3)
            applyLut3D(format, p, s);
        if (only >= 0)
            copyChannel(s, only, bytes);
    });
}
