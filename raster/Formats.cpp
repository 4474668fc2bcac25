// Format, packing and colour-space names, the exported tables and the
// processor-capability probes.
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Lock.h>
#include <IMB/platform/BAS_Processor.h>

#include <atomic>
#include <mutex>

const int32 imbDefinesDepth[6] = {1, 2, 4, 4, 2, 0};
const uint32 imbDefinesWhite[6] = {0xFF, 0xFFFF, 0xFFFFFFFFu, 1, 1, 0};
// PACK_DUAL counts three channels: its pixels hold three components, the
// third always zero. Deliberate; stored buffers and callers rely on it.
const int32 imbDefinesPComp[8] = {1, 3, 2, 3, 4, 3, 4, 2};
const int32 imbDefinesPDepth[8] = {1, 3, 1, 3, 4, 1, 1, 2};

const char *IMBdataFormat(IMB_DataFormat format)
{
    static const char *const names[] = {"int8", "int16", "int32", "float32", "float16"};
    uint32 i = static_cast<uint32>(format);
    return i < 5 ? names[i] : "undefined";
}

const char *IMBpacking(IMB_Packing packing)
{
    static const char *const names[] = {"single", "dual", "dual_ni", "rgb", "rgba", "rgb_ni", "rgba_ni", "uv"};
    uint32 i = static_cast<uint32>(packing);
    return i < 8 ? names[i] : "unknown";
}

namespace
{
// ASCII case-insensitive comparison of whole strings.
bool sameIgnoringCase(const char *a, const char *b)
{
    for (;; ++a, ++b)
    {
        unsigned char ca = static_cast<unsigned char>(*a);
        unsigned char cb = static_cast<unsigned char>(*b);
        if (ca >= 'A' && ca <= 'Z')
            ca = static_cast<unsigned char>(ca - 'A' + 'a');
        if (cb >= 'A' && cb <= 'Z')
            cb = static_cast<unsigned char>(cb - 'A' + 'a');
        if (ca != cb)
            return false;
        if (ca == '\0')
            return true;
    }
}
} // namespace

IMB_ColorSpace IMBgetColorSpace(const char *name)
{
    if (!name)
        return IMB_CS_UNKNOWN;
    if (sameIgnoringCase(name, "linear"))
        return IMB_CS_LINEAR;
    if (sameIgnoringCase(name, "gamma2.2") || sameIgnoringCase(name, "gammacorrected2.2"))
        return IMB_CS_GAMMA2_2;
    if (sameIgnoringCase(name, "gamma"))
        return IMB_CS_CUSTOM_GAMMA;
    if (sameIgnoringCase(name, "srgb"))
        return IMB_CS_SRGB;
    if (sameIgnoringCase(name, "rec709"))
        return IMB_CS_REC709;
    if (sameIgnoringCase(name, "opencolorio"))
        return IMB_CS_OCIO;
    return IMB_CS_UNKNOWN;
}

const char *IMBgetColorSpaceName(IMB_ColorSpace cs)
{
    switch (cs)
    {
    case IMB_CS_LINEAR: return "linear";
    case IMB_CS_GAMMA2_2: return "gamma2.2";
    case IMB_CS_CUSTOM_GAMMA: return "gamma";
    case IMB_CS_SRGB: return "srgb";
    case IMB_CS_REC709: return "rec709";
    case IMB_CS_OCIO: return "opencolorio";
    default: return "unknown";
    }
}

// ---------------------------------------------------------------- processor

namespace
{
// The four capability words, -1 until determined. The MMX word is the
// "determined" marker: it is stored last (release) and read first (acquire),
// so a reader that sees it set also sees the other three.
std::atomic<int32> theMMX{-1};
std::atomic<int32> theXMMX{-1};
std::atomic<int32> theSSE{-1};
std::atomic<int32> theCondMov{-1};
BAS_Lock theCapsLock;
} // namespace

void IMBdetermineProcCaps()
{
    if (theMMX.load(std::memory_order_acquire) != -1)
        return;
    std::lock_guard<BAS_Lock> guard(theCapsLock);
    if (theMMX.load(std::memory_order_relaxed) != -1)
        return;
    int type = 0, features = 0;
    BASgetProcessor(type, features);
    theXMMX.store((features >> 1) & 1, std::memory_order_relaxed);
    theSSE.store(features & 0x84, std::memory_order_relaxed);
    theCondMov.store((features >> 4) & 1, std::memory_order_relaxed);
    theMMX.store(features & 1, std::memory_order_release);
}

bool IMBcpuHasMMX()
{
    return theMMX.load(std::memory_order_acquire) == 1;
}

bool IMBcpuHasXMMX()
{
    return theMMX.load(std::memory_order_acquire) != -1 && theXMMX.load(std::memory_order_relaxed) == 1;
}

bool IMBcpuHasCondMov()
{
    return theMMX.load(std::memory_order_acquire) != -1 && theCondMov.load(std::memory_order_relaxed) == 1;
}

int IMBcpuHasSSE()
{
    if (theMMX.load(std::memory_order_acquire) == -1)
        return 0;
    return theSSE.load(std::memory_order_relaxed);
}
