// The processor cache, processor handles and in-place pixel transforms.
#include "colour/ColourState.h"

#include <IMB/platform/BAS_EnvControl.h>

#include "platform/Log.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

namespace imb_detail
{
namespace
{
// Runs of at least this many pixels go through one packed image; shorter runs
// go pixel by pixel, which avoids the packed image's set-up cost.
constexpr int kPackedCutOver = 128;

// Formats a cache key: an inline buffer for the common case, the heap beyond.
BAS_StringHolder formatKey(const char *pattern, ...) __attribute__((format(printf, 1, 2)));
BAS_StringHolder formatKey(const char *pattern, ...)
{
    char inlineBuf[2000];
    va_list args;
    va_start(args, pattern);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(inlineBuf, sizeof inlineBuf, pattern, args);
    va_end(args);
    BAS_StringHolder key;
    if (n < 0)
        key = BAS_StringHolder("");
    else if (static_cast<std::size_t>(n) < sizeof inlineBuf)
        key = BAS_StringHolder(inlineBuf, static_cast<std::size_t>(n));
    else
    {
        std::string big(static_cast<std::size_t>(n) + 1, '\0');
        std::vsnprintf(big.data(), big.size(), pattern, copy);
        key = BAS_StringHolder(big.data(), static_cast<std::size_t>(n));
    }
    va_end(copy);
    return key;
}

char dirChar(bool forward)
{
    return forward ? 'f' : 'r';
}

// Keeps the processor and, unless it changes nothing, its CPU processor.
void finishRecord(IMB_OCIO::ProcessorRecord &rec, OCIO::ConstProcessorRcPtr processor)
{
    rec.processor = std::move(processor);
    if (rec.processor && !rec.processor->isNoOp())
        rec.cpuProcessor = rec.processor->getDefaultCPUProcessor();
    rec.valid = true;
}

void buildSpaceProcessor(IMB_OCIO::ProcessorRecord &rec, const BAS_StringHolder &srcName,
                         const BAS_StringHolder &dstName, const BAS_StringHolder &looks, bool forward)
{
    ColourState &st = colourState();
    OCIO::ConstConfigRcPtr config = st.config();
    const IMB_OCIO::ColorSpace *src = IMB_OCIO::lookupSpace(srcName);
    const IMB_OCIO::ColorSpace *dst = IMB_OCIO::lookupSpace(dstName);
    if (!config || !src || !dst)
        return;
    const char *srcSpace = IMB_OCIO::getName(src);
    const char *dstSpace = IMB_OCIO::getName(dst);
    if (looks.isEmpty() && forward)
    {
        finishRecord(rec, config->getProcessor(srcSpace, dstSpace));
        return;
    }
    OCIO::LookTransformRcPtr lt = OCIO::LookTransform::Create();
    bool lookForward = forward;
    if (!looks.isEmpty())
    {
        const char *look = looks.c_str();
        if (*look == '+')
            ++look;
        else if (*look == '-')
        {
            ++look;
            lookForward = !lookForward;
        }
        if (config->getLook(look))
            lt->setLooks(look);
        else if (BAS_EnvControl::getInt(kControlVerbose) > 0)
            printStderr(format("OCIO unknown look: {}\n", look));
    }
    lt->setSrc(srcSpace);
    lt->setDst(dstSpace);
    finishRecord(rec, config->getProcessor(lt, lookForward ? OCIO::TRANSFORM_DIR_FORWARD
                                                           : OCIO::TRANSFORM_DIR_INVERSE));
}

void buildViewProcessor(IMB_OCIO::ProcessorRecord &rec, const BAS_StringHolder &srcName, const char *display,
                        const char *view, bool forward)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    const IMB_OCIO::ColorSpace *src = IMB_OCIO::lookupSpace(srcName);
    if (!config || !src || !display || !view)
        return;
    OCIO::DisplayViewTransformRcPtr dvt = OCIO::DisplayViewTransform::Create();
    dvt->setSrc(IMB_OCIO::getName(src));
    dvt->setDisplay(display);
    dvt->setView(view);
    finishRecord(rec, config->getProcessor(dvt, forward ? OCIO::TRANSFORM_DIR_FORWARD : OCIO::TRANSFORM_DIR_INVERSE));
}

// Finds the record of `key`, building it with `build` when it is new. One
// builder per key; others wait on the entry's accessor.
template <typename Build> IMB_OCIO::PHandle findOrBuild(const BAS_StringHolder &key, Build &&build)
{
    ColourState &st = colourState();
    {
        ProcessorCache::const_accessor found;
        if (st.myProcessorCache.find(found, key))
            return IMB_OCIO::PHandle(found->second.get(), st.myLoadSerial.load(std::memory_order_relaxed));
    }
    ProcessorCache::accessor entry;
    if (st.myProcessorCache.insert(entry, key))
    {
        try
        {
            entry->second = std::make_unique<IMB_OCIO::ProcessorRecord>();
        }
        catch (...)
        {
            st.myProcessorCache.erase(entry);
            throw;
        }
        IMB_OCIO::ProcessorRecord &rec = *entry->second;
        try
        {
            build(rec);
        }
        catch (const std::bad_alloc &)
        {
            rec = IMB_OCIO::ProcessorRecord();
            throw;
        }
        catch (const std::exception &)
        {
            // An invalid record: OpenColorIO could not build the processor.
            rec = IMB_OCIO::ProcessorRecord();
        }
    }
    return IMB_OCIO::PHandle(entry->second.get(), st.myLoadSerial.load(std::memory_order_relaxed));
}
} // namespace
} // namespace imb_detail

namespace IMB_OCIO
{
using imb_detail::colourState;

bool PHandle::isCurrent() const
{
    return myRecord && mySerial == colourState().myLoadSerial.load(std::memory_order_relaxed);
}

bool PHandle::isValid() const
{
    return isCurrent() && myRecord->valid;
}

bool PHandle::is3D() const
{
    if (!isCurrent() || !myRecord->processor)
        return false;
    try
    {
        return myRecord->processor->hasChannelCrosstalk();
    }
    catch (const std::exception &)
    {
        return false;
    }
}

bool PHandle::isNoOp() const
{
    if (!isCurrent() || !myRecord->processor)
        return true;
    try
    {
        return myRecord->processor->isNoOp();
    }
    catch (const std::exception &)
    {
        return true;
    }
}

PHandle lookupProcessor(const BAS_StringHolder &src, const BAS_StringHolder &dst, const BAS_StringHolder &looks,
                        bool forward)
{
    const BAS_StringHolder key = imb_detail::formatKey("src:%s dst:%s lks:%s fwd:%c", src.c_str(), dst.c_str(),
                                                       looks.c_str(), imb_detail::dirChar(forward));
    return imb_detail::findOrBuild(key, [&](ProcessorRecord &rec) {
        imb_detail::buildSpaceProcessor(rec, src, dst, looks, forward);
    });
}

PHandle lookupProcessor(const ColorSpace *src, const ColorSpace *dst, const BAS_StringHolder &looks, bool forward)
{
    const char *s = getName(src);
    const char *d = getName(dst);
    return lookupProcessor(BAS_StringHolder(s ? s : ""), BAS_StringHolder(d ? d : ""), looks, forward);
}

PHandle lookupViewProcessor(const BAS_StringHolder &src, const BAS_StringHolder &display,
                            const BAS_StringHolder &view, bool forward)
{
    const BAS_StringHolder key = imb_detail::formatKey("View: src:%s dsp:%s vw:%s fwd:%c", src.c_str(),
                                                       display.c_str(), view.c_str(), imb_detail::dirChar(forward));
    return imb_detail::findOrBuild(key, [&](ProcessorRecord &rec) {
        imb_detail::buildViewProcessor(rec, src, display.c_str(), view.c_str(), forward);
    });
}

PHandle lookupViewProcessor(const BAS_StringHolder &src, bool forward)
{
    const BAS_StringHolder key =
        imb_detail::formatKey("View: src:%s %c", src.c_str(), imb_detail::dirChar(forward));
    return imb_detail::findOrBuild(key, [&](ProcessorRecord &rec) {
        OCIO::ConstConfigRcPtr config = colourState().config();
        const char *display = getDefaultDisplay();
        if (!config || !display)
            return;
        imb_detail::buildViewProcessor(rec, src, display, config->getDefaultView(display), forward);
    });
}

bool transform(const PHandle &h, float *pixels, int count, int channels)
{
    if (!h.isValid())
        return false;
    const ProcessorRecord &rec = *h.record();
    if (!rec.processor || rec.processor->isNoOp())
        return true;
    if (!rec.cpuProcessor)
        return false;
    if (count <= 0 || !pixels)
        return true;
    try
    {
        if (count >= imb_detail::kPackedCutOver)
        {
            OCIO::PackedImageDesc desc(pixels, count, 1, channels);
            rec.cpuProcessor->apply(desc);
            return true;
        }
        if (channels == 3)
        {
            for (int i = 0; i < count; ++i)
                rec.cpuProcessor->applyRGB(pixels + 3 * i);
        }
        else if (channels >= 4)
        {
            for (int i = 0; i < count; ++i)
                rec.cpuProcessor->applyRGBA(pixels + static_cast<std::size_t>(channels) * i);
        }
        return true;
    }
    catch (const std::exception &)
    {
        return false;
    }
}
} // namespace IMB_OCIO
