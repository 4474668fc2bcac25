// The processor cache, processor handles and in-place pixel transforms.
#include "colour/ColourState.h"

#include <IMB/platform/BAS_EnvControl.h>

#include "platform/Log.h"

#include <cstring>
#include <exception>
#include <string>
#include <string_view>

namespace imb_detail
{
namespace
{
// Runs of at least this many pixels go through one packed image; shorter runs
// go pixel by pixel, which avoids the packed image's set-up cost.
constexpr int kPackedCutOver = 128;

// Builds a cache key from its pieces in an inline buffer of 2000 bytes that
// moves to the heap for longer keys. Plain concatenation: the keys are the
// texts of the printf patterns "src:%s dst:%s lks:%s fwd:%c",
// "View: src:%s dsp:%s vw:%s fwd:%c" and "View: src:%s %c", without the cost
// of parsing a pattern on every cached lookup.
class KeyBuffer
{
public:
    KeyBuffer &operator<<(std::string_view text)
    {
        if (!myOnHeap && myLength + text.size() <= sizeof myInline)
        {
            std::memcpy(myInline + myLength, text.data(), text.size());
            myLength += text.size();
            return *this;
        }
        if (!myOnHeap)
        {
            myHeap.assign(myInline, myLength);
            myOnHeap = true;
        }
        myHeap.append(text.data(), text.size());
        return *this;
    }
    KeyBuffer &operator<<(char c) { return *this << std::string_view(&c, 1); }

    BAS_StringHolder holder() const
    {
        return myOnHeap ? BAS_StringHolder(myHeap.data(), myHeap.size()) : BAS_StringHolder(myInline, myLength);
    }

private:
    char myInline[2000];
    std::size_t myLength = 0;
    bool myOnHeap = false;
    std::string myHeap;
};

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

// What a processor request asks for, in the words of its failure message.
std::string describeRequest(std::string_view src, std::string_view target, std::string_view looks, bool forward)
{
    std::string text = format("processor error from \"{}\" to {}", src, target);
    if (!looks.empty())
        text += format(" with look \"{}\"", looks);
    return forward ? text : text + " (inverse)";
}

std::string quoted(std::string_view name)
{
    return format("\"{}\"", name);
}

// Hands the reason a cached record failed to the calling thread's capture.
void repeatFailure(const IMB_OCIO::ProcessorRecord &rec)
{
    if (!rec.valid && !rec.error.empty())
        BAS_ErrorCapture::collect(rec.error.data(), rec.error.size());
}

// Finds the record of `key`, building it with `build` when it is new. One
// builder per key; others wait on the entry's accessor. A build that
// OpenColorIO refuses is reported once, as a failed operation described by
// `describe()`; handing the failed record out again repeats the reason to the
// calling thread's BAS_ErrorCapture only, so a host that asks why learns it
// and the standard error stream is not flooded.
template <typename Build, typename Describe>
IMB_OCIO::PHandle findOrBuild(const BAS_StringHolder &key, Build &&build, Describe &&describe)
{
    ColourState &st = colourState();
    {
        ProcessorCache::const_accessor found;
        if (st.myProcessorCache.find(found, key))
        {
            repeatFailure(*found->second);
            return IMB_OCIO::PHandle(found->second.get(), st.myLoadSerial.load(std::memory_order_relaxed));
        }
    }
    ProcessorCache::accessor entry;
    if (!st.myProcessorCache.insert(entry, key))
        repeatFailure(*entry->second); // another thread built it meanwhile
    else
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
        catch (const std::exception &e)
        {
            // An invalid record: OpenColorIO could not build the processor.
            rec = IMB_OCIO::ProcessorRecord();
            rec.error = reportOCIOException(OCIOFailure::Operation, describe(), e);
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
    catch (const std::exception &e)
    {
        imb_detail::reportOCIOException(imb_detail::OCIOFailure::Query, "processor query error", e);
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
    catch (const std::exception &e)
    {
        imb_detail::reportOCIOException(imb_detail::OCIOFailure::Query, "processor query error", e);
        return true;
    }
}

PHandle lookupProcessor(const BAS_StringHolder &src, const BAS_StringHolder &dst, const BAS_StringHolder &looks,
                        bool forward)
{
    imb_detail::KeyBuffer buf;
    buf << "src:" << src.view() << " dst:" << dst.view() << " lks:" << looks.view() << " fwd:"
        << imb_detail::dirChar(forward);
    const BAS_StringHolder key = buf.holder();
    return imb_detail::findOrBuild(
        key, [&](ProcessorRecord &rec) { imb_detail::buildSpaceProcessor(rec, src, dst, looks, forward); },
        [&] {
            return imb_detail::describeRequest(src.view(), imb_detail::quoted(dst.view()), looks.view(), forward);
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
    imb_detail::KeyBuffer buf;
    buf << "View: src:" << src.view() << " dsp:" << display.view() << " vw:" << view.view() << " fwd:"
        << imb_detail::dirChar(forward);
    const BAS_StringHolder key = buf.holder();
    return imb_detail::findOrBuild(
        key,
        [&](ProcessorRecord &rec) {
            imb_detail::buildViewProcessor(rec, src, display.c_str(), view.c_str(), forward);
        },
        [&] {
            return imb_detail::describeRequest(
                src.view(), imb_detail::format("display \"{}\" view \"{}\"", display.view(), view.view()), "",
                forward);
        });
}

PHandle lookupViewProcessor(const BAS_StringHolder &src, bool forward)
{
    imb_detail::KeyBuffer buf;
    buf << "View: src:" << src.view() << ' ' << imb_detail::dirChar(forward);
    const BAS_StringHolder key = buf.holder();
    return imb_detail::findOrBuild(
        key,
        [&](ProcessorRecord &rec) {
            OCIO::ConstConfigRcPtr config = colourState().config();
            const char *display = getDefaultDisplay();
            if (!config || !display)
                return;
            imb_detail::buildViewProcessor(rec, src, display, config->getDefaultView(display), forward);
        },
        [&] { return imb_detail::describeRequest(src.view(), "the default display and view", "", forward); });
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
            // OpenColorIO's packed images hold three or four channels: a
            // narrower run is refused up front (asking OpenColorIO to describe
            // it throws from inside its constructor, which leaks), and a wider
            // one is described as RGBA pixels `channels` floats apart, so the
            // channels past the fourth stay as they are, as on short runs.
            if (channels < 3)
                return false;
            if (channels <= 4)
            {
                OCIO::PackedImageDesc desc(pixels, count, 1, channels);
                rec.cpuProcessor->apply(desc);
            }
            else
            {
                const std::ptrdiff_t pixelBytes = static_cast<std::ptrdiff_t>(channels) * sizeof(float);
                OCIO::PackedImageDesc desc(pixels, count, 1, OCIO::CHANNEL_ORDERING_RGBA, OCIO::BIT_DEPTH_F32,
                                           sizeof(float), pixelBytes, pixelBytes * count);
                rec.cpuProcessor->apply(desc);
            }
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
    catch (const std::exception &e)
    {
        imb_detail::reportOCIOException(imb_detail::OCIOFailure::Operation, "transform error", e);
        return false;
    }
}
} // namespace IMB_OCIO
