// Tables baked from colour-management transforms, and the export of a table
// to a curve-file object.
#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_FileLUT.h>
#include <IMB/platform/CRV_Clip.h>

#include <cmath>
#include <initializer_list>
#include <memory>
#include <vector>

namespace
{
constexpr int kBakedTableSize = 8192;

// The fixed log intervals used when neither space reports an allocation,
// indexed by the `large` argument.
constexpr double kFallbackLo[2] = {0.00390625, 0.001};
constexpr double kFallbackHi[2] = {32.0, 16000.0};

// Sampling interval of a bake.
struct Interval
{
    bool linear = true;
    double lo = 0.0;
    double hi = 1.0;
    bool fromAllocation = false; // false: the fixed fallback interval
};

bool is3D(std::initializer_list<const IMB_OCIO::PHandle *> chain)
{
    for (const IMB_OCIO::PHandle *h : chain)
        if (h && h->is3D())
            return true;
    return false;
}

// Pushes `count` RGB triples through every processor of the chain in turn.
bool runChain(std::initializer_list<const IMB_OCIO::PHandle *> chain, float *rgb, int count)
{
    for (const IMB_OCIO::PHandle *h : chain)
        if (h && !IMB_OCIO::transform(*h, rgb, count, 3))
            return false;
    return true;
}
} // namespace

IMB_Lookup::IMB_Lookup(BuildOCIOTag, const char *src, const char *dest, int size) : IMB_Lookup()
{
    buildOpenColorIO(src, dest, nullptr, size);
}

bool IMB_Lookup::fetchAllocationVars(const IMB_OCIO::ColorSpace *src, const IMB_OCIO::ColorSpace *dest, bool &uniform,
                                     double &min, double &max, double &offset)
{
    for (const IMB_OCIO::ColorSpace *cs : {src, dest})
    {
        bool u = true;
        double a = 0, b = 0, c = 0;
        if (IMB_OCIO::getAllocationVars(cs, u, a, b, c) && a != b)
        {
            uniform = u;
            min = a;
            max = b;
            offset = c;
            return true;
        }
    }
    bool isFloat = false;
    if (IMB_OCIO::isFloatPointSpace(dest, isFloat) && isFloat)
    {
        uniform = false;
        min = -5;
        max = 8;
        offset = std::ldexp(1.0, -5);
        return true;
    }
    uniform = true;
    min = 0;
    max = 1;
    offset = 0;
    return false;
}

namespace imb_detail
{
// Bakes the chain of processors into `lut` over the interval chosen from the
// two spaces' allocations; shared by both colour builders.
struct LookupAccess
{
    static bool bakeColour(IMB_Lookup &lut, const IMB_OCIO::ColorSpace *sampled, const IMB_OCIO::ColorSpace *result,
                     std::initializer_list<const IMB_OCIO::PHandle *> chain, int large)
    {
        Interval iv;
        bool uniform = true;
        double min = 0, max = 1, offset = 0;
        if (IMB_Lookup::fetchAllocationVars(sampled, result, uniform, min, max, offset))
        {
            iv.fromAllocation = true;
            iv.linear = uniform;
            iv.lo = uniform ? min : std::exp2(min);
            iv.hi = uniform ? max : std::exp2(max);
        }
        else
        {
            iv.linear = false;
            iv.lo = kFallbackLo[large ? 1 : 0];
            iv.hi = kFallbackHi[large ? 1 : 0];
        }

        // A log grid is transformed as prepared, its values less the pre-shift
        // lo; deliberate and kept: tables baked this way are what callers
        // have stored and compare against.
        if (is3D(chain))
        {
            // Edge 96 only for the fixed fallback interval with `large`.
            lut.prep3DLUT(iv.linear, iv.lo, iv.hi, offset, (!iv.fromAllocation && large) ? 1 : 0);
            const int e = lut.my3DSize + 1;
            if (!runChain(chain, lut.my3DTable.get(), e * e * e))
                return false;
            lut.setType(IMB_LUT_3D);
            lut.setLogSampling(!iv.linear);
            lut.setDomain(static_cast<float>(iv.lo), static_cast<float>(iv.hi));
            return true;
        }

        std::vector<float> grid(3 * static_cast<std::size_t>(kBakedTableSize));
        lut.prep1DLUT(grid.data(), kBakedTableSize, iv.linear, iv.lo, iv.hi);
        if (!runChain(chain, grid.data(), kBakedTableSize))
            return false;
        // The kernels read the table over the domain: make it the interval.
        lut.setDomain(static_cast<float>(iv.lo), static_cast<float>(iv.hi));
        for (int c = 0; c < 3; ++c)
        {
            double *t = lut.myClip->getTrack(c)->getData();
            for (int i = 0; i < kBakedTableSize; ++i)
                t[i] = grid[3 * static_cast<std::size_t>(i) + c];
        }
        return true;
    }

    static void clearForColour(IMB_Lookup &lut)
    {
        lut.myClip->destroyAllTracks();
        lut.free3DTable();
        lut.clearTextureID();
    }
};
} // namespace imb_detail

bool IMB_Lookup::buildOpenColorIO(const char *src, const char *dest, const char *looks, int large)
{
    imb_detail::LookupAccess::clearForColour(*this);
    const BAS_StringHolder srcName(src ? src : "");
    const BAS_StringHolder destName(dest ? dest : "");
    const IMB_OCIO::ColorSpace *srcSpace = IMB_OCIO::lookupSpace(srcName);
    const IMB_OCIO::ColorSpace *destSpace = IMB_OCIO::lookupSpace(destName);
    const IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor(srcName, destName, looks ? looks : "", true);
    if (!h.isValid())
        return false;
    return imb_detail::LookupAccess::bakeColour(*this, srcSpace, destSpace, {&h}, large);
}

bool IMB_Lookup::buildOpenColorIOView(const char *src, const char *display, const char *view, const char *looks,
                                      const char *, bool forward, int large)
{
    imb_detail::LookupAccess::clearForColour(*this);
    if (!display || !view)
        return false;
    const BAS_StringHolder srcName(src ? src : "");
    const IMB_OCIO::ColorSpace *srcSpace = IMB_OCIO::lookupSpace(srcName);
    const char *displaySpaceName = IMB_OCIO::getColorSpaceForDisplayView(display, view);
    const IMB_OCIO::ColorSpace *displaySpace = IMB_OCIO::lookupSpace(displaySpaceName ? displaySpaceName : "");
    const IMB_OCIO::PHandle viewHandle = IMB_OCIO::lookupViewProcessor(srcName, display, view, forward);
    if (!viewHandle.isValid())
        return false;
    // Extra looks are applied in the source space, before the view forwards
    // and after it backwards.
    IMB_OCIO::PHandle lookHandle;
    if (looks && *looks)
    {
        lookHandle = IMB_OCIO::lookupProcessor(srcName, srcName, looks, forward);
        if (!lookHandle.isValid())
            return false;
    }
    const IMB_OCIO::PHandle *first = forward ? &lookHandle : &viewHandle;
    const IMB_OCIO::PHandle *second = forward ? &viewHandle : &lookHandle;
    if (!first->record())
        first = nullptr;
    if (!second->record())
        second = nullptr;
    return forward ? imb_detail::LookupAccess::bakeColour(*this, srcSpace, displaySpace, {first, second}, large)
                   : imb_detail::LookupAccess::bakeColour(*this, displaySpace, srcSpace, {first, second}, large);
}

std::unique_ptr<BAS_FileLUT> IMB_Lookup::getCineonLUT(bool flag, const char *name) const
{
    if (myClip->getNumTracks() == 0)
        return nullptr;
    const CRV_Track *track = myClip->getTrack(0);
    const int n = static_cast<int>(myClip->getTrackLength());
    constexpr int kSamples = 1024;
    std::vector<double> values(kSamples);
    const double start = myClip->getStart();
    track->evaluate(start, start + n - 1, values.data(), kSamples);
    std::vector<float> samples(values.begin(), values.end());
    auto lut = std::make_unique<BAS_FileLUT>();
    lut->create(kSamples, samples.data(), 65536.0, !flag, name,
                static_cast<int>(std::lround(static_cast<double>(myWhitePoint))));
    return lut;
}
