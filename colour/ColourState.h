// Internal: the process-wide colour configuration state shared by the colour
// files (configuration, colour spaces, processors, displays).
#pragma once

#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_Lock.h>

#include <OpenColorIO/OpenColorIO.h>
#include <tbb/concurrent_hash_map.h>

#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace OCIO = OCIO_NAMESPACE;

namespace IMB_OCIO
{
// One cached processor; owned by the processor cache until reload() empties it.
struct ProcessorRecord
{
    OCIO::ConstProcessorRcPtr processor;
    OCIO::ConstCPUProcessorRcPtr cpuProcessor;
    bool valid = false;
    // Why OpenColorIO could not build it (the reported message), else empty.
    std::string error;
};
} // namespace IMB_OCIO

namespace imb_detail
{
// tbb hash-compare for string keys.
struct StringHashCompare
{
    static std::size_t hash(const BAS_StringHolder &s) { return s.hash(); }
    static bool equal(const BAS_StringHolder &a, const BAS_StringHolder &b) { return a == b; }
};

using SpaceCache = tbb::concurrent_hash_map<BAS_StringHolder, std::unique_ptr<IMB_OCIO::ColorSpace>, StringHashCompare>;
using ProcessorCache =
    tbb::concurrent_hash_map<BAS_StringHolder, std::unique_ptr<IMB_OCIO::ProcessorRecord>, StringHashCompare>;

struct ColourState
{
    // The loaded configuration or null. Read through config(), which loads it
    // atomically, since reload() may replace it.
    OCIO::ConstConfigRcPtr myConfig;
    BAS_StringHolder myConfigPath;

    // Well-known space names, recomputed at every load.
    BAS_StringHolder mySRGB;
    BAS_StringHolder myRec709;
    BAS_StringHolder myLinearRec709;
    BAS_StringHolder myRaw;
    BAS_StringHolder myFileDefault;

    // Texts of the file rules (rule names, patterns, regexes) -> colour space.
    std::unordered_map<BAS_StringHolder, BAS_StringHolder> myFileRuleMap;
    uint32 myParseMode = 0;

    // Process-wide companions of the configuration.
    std::atomic<uint32> myLoadSerial{0};
    std::atomic<bool> myEnvConfigSeen{false};
    std::atomic<bool> myActiveOverride{false};

    // Change callbacks by id; iterated in id order.
    std::map<int, BAS_Functor<void>> myCallbacks;
    int myLastCallbackId = 0;
    BAS_Lock myRegistryLock;

    SpaceCache mySpaceCache;
    ProcessorCache myProcessorCache;
    // Viewing rules in the configuration's order.
    std::vector<std::pair<BAS_StringHolder, BAS_Options>> myViewingRules;

    OCIO::ConstConfigRcPtr config() const { return std::atomic_load(&myConfig); }
};

// The state, loaded on first use (thread-safe).
ColourState &colourState();

// Load steps owned by the colour-space file: the well-known names (with or
// without configuration) and the file-rule name map.
void findWellKnownSpaces(ColourState &st, const OCIO::ConstConfigRcPtr &config);
void buildFileRuleMap(ColourState &st, const OCIO::ConstConfigRcPtr &config);

// How a caught OpenColorIO exception is reported (the rule is in IMB_OCIO.h).
enum class OCIOFailure
{
    Operation, // loading the configuration, building a processor, transforming pixels
    Query,     // a lookup that answers empty on error and is used to probe
};

// Reports OpenColorIO's text `e.what()`, caught while doing `context`, as
// "OCIO <context>: <text>": an Operation through brevanError, a Query as a
// level-1 message of the library's log. Returns the reported text.
std::string reportOCIOException(OCIOFailure kind, const std::string &context, const std::exception &e);

// Environment control numbers used by the colour files.
constexpr int kControlSRGBSpace = 43;
constexpr int kControlAlwaysTag = 65;
constexpr int kControlParseMode = 72;
constexpr int kControlVerbose = 97;
} // namespace imb_detail
