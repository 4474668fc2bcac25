// The process-wide colour configuration: load from the environment, reload,
// and the configuration-change callbacks.
#include "colour/ColourState.h"

#include <IMB/platform/BAS_EnvControl.h>
#include <IMB/platform/BAS_ErrorLog.h>
#include <IMB/platform/hostGetenv.h>

#include "platform/Log.h"

#include <cstring>
#include <exception>

namespace imb_detail
{
namespace
{
bool isSetAndNonEmpty(const char *v)
{
    return v && *v;
}

void captureViewingRules(ColourState &st, const OCIO::ConstConfigRcPtr &config)
{
    std::vector<std::pair<BAS_StringHolder, BAS_Options>> rules;
    OCIO::ConstViewingRulesRcPtr vr = config->getViewingRules();
    const std::size_t n = vr ? vr->getNumEntries() : 0;
    for (std::size_t i = 0; i < n; ++i)
    {
        BAS_Options opts;
        BAS_StringHolder name(vr->getName(i));
        opts.setOptionS("name", name);
        BAS_StringArray spaces;
        for (std::size_t j = 0, m = vr->getNumColorSpaces(i); j < m; ++j)
            spaces.append(vr->getColorSpace(i, j));
        opts.setOptionSArray("spaces", spaces);
        BAS_StringArray encodings;
        for (std::size_t j = 0, m = vr->getNumEncodings(i); j < m; ++j)
            encodings.append(vr->getEncoding(i, j));
        opts.setOptionSArray("encodings", encodings);
        BAS_Options custom;
        for (std::size_t j = 0, m = vr->getNumCustomKeys(i); j < m; ++j)
            custom.setOptionS(vr->getCustomKeyName(i, j), vr->getCustomKeyValue(i, j));
        opts.setOptionDict("custom", custom);
        rules.emplace_back(std::move(name), std::move(opts));
    }
    st.myViewingRules = std::move(rules);
}

// One load of the configuration from the environment, in place.
void loadConfig(ColourState &st)
{
    st.myLoadSerial.fetch_add(1);
    const char *path = hostGetenv("OCIO");
    st.myConfigPath = path ? BAS_StringHolder(path) : BAS_StringHolder();
    if (path)
        st.myEnvConfigSeen = true;
    st.myActiveOverride = false;

    OCIO::ConstConfigRcPtr loaded;
    if (!st.myConfigPath.isEmpty())
    {
        const std::string note = format("OCIO config: {}", st.myConfigPath.c_str());
        if (isBrevanVerbose(6))
            brevanPrintf(6, "%s", note.c_str());
        if (BAS_EnvControl::getInt(kControlVerbose) > 0)
            printStderr(note + "\n");
        try
        {
            OCIO::ConstConfigRcPtr fromFile = OCIO::Config::CreateFromFile(st.myConfigPath.c_str());
            OCIO::ConfigRcPtr config = fromFile->createEditableCopy();
            // The editable copy of OpenColorIO 2.1 loses the default view
            // transform; carry it over.
            config->setDefaultViewTransformName(fromFile->getDefaultViewTransformName());
            st.myParseMode = 0;
            switch (BAS_EnvControl::getInt(kControlParseMode))
            {
            case 0: config->setStrictParsingEnabled(false); break;
            case 2: config->setStrictParsingEnabled(true); break;
            case 3: st.myParseMode = 1; break;
            case 4: st.myParseMode = 2; break;
            case 5: st.myParseMode = 3; break;
            default: break;
            }
            const char *displays = hostGetenv("OCIO_ACTIVE_DISPLAYS");
            if (isSetAndNonEmpty(displays))
            {
                st.myActiveOverride = true;
                // A single name is deliberately not passed on; only lists are.
                if (std::strchr(displays, ','))
                    config->setActiveDisplays(displays);
            }
            const char *views = hostGetenv("OCIO_ACTIVE_VIEWS");
            if (isSetAndNonEmpty(views))
            {
                st.myActiveOverride = true;
                if (std::strchr(views, ','))
                    config->setActiveViews(views);
            }
            OCIO::SetCurrentConfig(config);
            loaded = config;
        }
        catch (const std::exception &e)
        {
            // Also written past the error log: hosts that install their own
            // sink still find this line on the standard error stream.
            printStderr(reportOCIOException(OCIOFailure::Operation, "config load error", e) + "\n");
            loaded.reset();
        }
    }
    std::atomic_store(&st.myConfig, loaded);

    if (loaded)
    {
        try
        {
            captureViewingRules(st, loaded);
        }
        catch (const std::exception &e)
        {
            reportOCIOException(OCIOFailure::Operation, "viewing rules load error", e);
            // The misspelling of this line is deliberate: log scrapers match it.
            printStderr(format("OCIO viewining rules load error: {}\n", e.what()));
            st.myViewingRules.clear();
        }
    }
    findWellKnownSpaces(st, loaded);
    if (loaded)
        buildFileRuleMap(st, loaded);
    else
        st.myFileRuleMap.clear();
}

struct StateHolder
{
    ColourState state;
    StateHolder() { loadConfig(state); }
};
} // namespace

std::string reportOCIOException(OCIOFailure kind, const std::string &context, const std::exception &e)
{
    std::string text = format("OCIO {}: {}", context, e.what());
    if (kind == OCIOFailure::Operation)
        brevanError("%s", text.c_str());
    else
        brevanPrintf(1, "%s", text.c_str());
    return text;
}

ColourState &colourState()
{
    static StateHolder holder;
    return holder.state;
}
} // namespace imb_detail

namespace IMB_OCIO
{
using imb_detail::colourState;
using imb_detail::ColourState;

const BAS_StringRef &configFilePath()
{
    static const BAS_StringRef empty;
    ColourState &st = colourState();
    return st.config() ? st.myConfigPath : empty;
}

bool isOCIOEnvSet(bool allowActiveOverride)
{
    ColourState &st = colourState();
    if (!st.config())
        return false;
    if (st.myEnvConfigSeen)
        return true;
    return allowActiveOverride && st.myActiveOverride;
}

void reload()
{
    ColourState &st = colourState();
    BAS_AutoLock lock(st.myRegistryLock);
    imb_detail::loadConfig(st);
    st.mySpaceCache.clear();
    st.myProcessorCache.clear();
    // Emptied after the load has rebuilt it: a reloaded process reports no
    // viewing rules. Deliberate and kept; hosts rely on it.
    st.myViewingRules.clear();
    for (const auto &entry : st.myCallbacks)
    {
        BAS_Functor<void> clone(entry.second);
        clone();
    }
}

int addConfigChangeCB(BAS_Functor<void> &callback)
{
    ColourState &st = colourState();
    BAS_AutoLock lock(st.myRegistryLock);
    const int id = ++st.myLastCallbackId;
    st.myCallbacks[id] = std::move(callback);
    callback.clear();
    return id;
}

int addConfigChangeCB(BAS_Functor<void> &&callback)
{
    BAS_Functor<void> taken(std::move(callback));
    return addConfigChangeCB(taken);
}

void removeConfigChangeCB(int id)
{
    ColourState &st = colourState();
    BAS_AutoLock lock(st.myRegistryLock);
    st.myCallbacks.erase(id);
}
} // namespace IMB_OCIO
