// Colour-space queries: the cached lookup, the well-known spaces, roles,
// information records, colour spaces in file paths and the raster tags.
#include "colour/ColourState.h"

#include <IMB/platform/BAS_EnvControl.h>

#include "platform/Log.h"

#include <strings.h>

#include <cstring>
#include <exception>
#include <string>

namespace imb_detail
{
namespace
{
using ConstSpace = OCIO::ConstColorSpaceRcPtr;

// The configuration's colour space for a name, alias or role; null when
// unknown or on error.
ConstSpace findSpace(const OCIO::ConstConfigRcPtr &config, const char *name)
{
    if (!config || !name || !*name)
        return nullptr;
    try
    {
        return config->getColorSpace(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, format("query error looking up colour space \"{}\"", name), e);
        return nullptr;
    }
}

// Canonical name of the first candidate the configuration knows, or empty.
template <std::size_t N>
BAS_StringHolder firstKnown(const OCIO::ConstConfigRcPtr &config, const char *const (&candidates)[N])
{
    for (const char *c : candidates)
        if (ConstSpace cs = findSpace(config, c))
            return BAS_StringHolder(cs->getName());
    return BAS_StringHolder();
}

BAS_StringHolder canonicalName(const OCIO::ConstConfigRcPtr &config, const char *name)
{
    ConstSpace cs = findSpace(config, name);
    return cs ? BAS_StringHolder(cs->getName()) : BAS_StringHolder();
}

const char *allocationName(OCIO::Allocation a)
{
    switch (a)
    {
    case OCIO::ALLOCATION_UNIFORM: return "uniform";
    case OCIO::ALLOCATION_LG2: return "lg2";
    default: return "<unknown>";
    }
}

std::vector<double> allocationVars(const OCIO::ColorSpace &cs)
{
    const int n = cs.getAllocationNumVars();
    std::vector<float> vars(static_cast<std::size_t>(std::max(n, 3)), 0.0f);
    if (n > 0)
        cs.getAllocationVars(vars.data());
    return {vars[0], vars[1], vars[2]};
}

BAS_Options makeInfo(const OCIO::ColorSpace &cs)
{
    BAS_Options info;
    info.setOptionS("name", cs.getName());
    info.setOptionS("family", cs.getFamily());
    info.setOptionS("equalitygroup", cs.getEqualityGroup());
    info.setOptionS("description", cs.getDescription());
    info.setOptionB("isdata", cs.isData());
    info.setOptionS("allocation", allocationName(cs.getAllocation()));
    info.setOptionV("allocationvars", allocationVars(cs));
    info.setOptionS("bitdepth", OCIO::BitDepthToString(cs.getBitDepth()));
    return info;
}

const OCIO::ColorSpace *ocioSpace(const IMB_OCIO::ColorSpace *cs)
{
    return cs ? static_cast<const OCIO::ColorSpace *>(cs->space().get()) : nullptr;
}

std::unique_ptr<IMB_OCIO::ColorSpace> makeHandle(ConstSpace space)
{
    if (!space)
        return std::make_unique<IMB_OCIO::ColorSpace>(nullptr, BAS_Options());
    BAS_Options info = makeInfo(*space);
    return std::make_unique<IMB_OCIO::ColorSpace>(std::shared_ptr<const void>(space), std::move(info));
}

const BAS_StringHolder &emptyHolder()
{
    static const BAS_StringHolder empty;
    return empty;
}
} // namespace

void findWellKnownSpaces(ColourState &st, const OCIO::ConstConfigRcPtr &config)
{
    static const char *const srgbCandidates[] = {"sRGB - Texture", "Display - sRGB", "sRGB - Display",
                                                 "Input - Generic - sRGB - Texture", "srgb_texture", "srgb_display"};
    static const char *const rec709Candidates[] = {"Gamma 2.4 Rec.709 - Texture", "g24_rec709", "g24_rec709_tx",
                                                   "rec709_display"};
    static const char *const linearCandidates[] = {"Linear Rec.709 (sRGB)", "lin_rec709_srgb", "lin_rec709",
                                                   "lin_srgb"};
    static const char *const rawCandidates[] = {"Raw", "Utility - Raw", "data"};

    BAS_StringHolder srgb = canonicalName(config, BAS_EnvControl::getString(kControlSRGBSpace).c_str());
    if (srgb.isEmpty())
        srgb = firstKnown(config, srgbCandidates);
    if (srgb.isEmpty())
        srgb = canonicalName(config, OCIO::ROLE_COLOR_PICKING);
    if (srgb.isEmpty())
        srgb = canonicalName(config, OCIO::ROLE_REFERENCE);

    BAS_StringHolder raw = firstKnown(config, rawCandidates);
    if (raw.isEmpty())
        raw = canonicalName(config, OCIO::ROLE_DATA);

    st.mySRGB = srgb;
    st.myRec709 = firstKnown(config, rec709Candidates);
    st.myLinearRec709 = firstKnown(config, linearCandidates);
    st.myRaw = raw;

    BAS_StringHolder fileDefault;
    if (config && st.myParseMode != 1)
    {
        try
        {
            fileDefault = BAS_StringHolder(config->getColorSpaceFromFilepath("a.exr"));
        }
        catch (const std::exception &e)
        {
            reportOCIOException(OCIOFailure::Query, "query error applying the file rules to \"a.exr\"", e);
        }
    }
    st.myFileDefault = fileDefault.isEmpty() ? st.myLinearRec709 : fileDefault;
}

void buildFileRuleMap(ColourState &st, const OCIO::ConstConfigRcPtr &config)
{
    std::unordered_map<BAS_StringHolder, BAS_StringHolder> map;
    try
    {
        OCIO::ConstFileRulesRcPtr rules = config->getFileRules();
        for (std::size_t i = 0, n = rules ? rules->getNumEntries() : 0; i < n; ++i)
        {
            BAS_StringHolder space(rules->getColorSpace(i));
            for (const char *text : {rules->getName(i), rules->getPattern(i), rules->getRegex(i)})
                if (text && *text)
                    map.emplace(BAS_StringHolder(text), space);
        }
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error reading the file rules", e);
    }
    st.myFileRuleMap = std::move(map);
}
} // namespace imb_detail

namespace IMB_OCIO
{
using imb_detail::colourState;
using imb_detail::ColourState;
using imb_detail::OCIOFailure;
using imb_detail::reportOCIOException;
using imb_detail::ocioSpace;

ColorSpace::ColorSpace(std::shared_ptr<const void> space, BAS_Options info)
    : mySpace(std::move(space)), myInfo(std::move(info))
{
}

ColorSpace::~ColorSpace() = default;

const ColorSpace *lookupSpace(const BAS_StringHolder &name)
{
    ColourState &st = colourState();
    {
        // The cache is empty without configuration, so look there first.
        imb_detail::SpaceCache::const_accessor found;
        if (st.mySpaceCache.find(found, name))
            return found->second->hasSpace() ? found->second.get() : nullptr;
    }
    OCIO::ConstConfigRcPtr config = st.config();
    if (!config)
        return nullptr;
    imb_detail::SpaceCache::accessor entry;
    if (st.mySpaceCache.insert(entry, name))
    {
        imb_detail::ConstSpace space = imb_detail::findSpace(config, name.c_str());
        // An unknown "sRGB" stands for the configuration's own sRGB space.
        if (!space && name == "sRGB")
            space = imb_detail::findSpace(config, st.mySRGB.c_str());
        try
        {
            entry->second = imb_detail::makeHandle(space);
        }
        catch (const std::bad_alloc &)
        {
            st.mySpaceCache.erase(entry);
            throw;
        }
        catch (const std::exception &e)
        {
            reportOCIOException(OCIOFailure::Query,
                                imb_detail::format("query error reading colour space \"{}\"",
                                                   name.c_str()),
                                e);
            entry->second = imb_detail::makeHandle(nullptr);
        }
    }
    return entry->second->hasSpace() ? entry->second.get() : nullptr;
}

const char *getName(const ColorSpace *cs)
{
    const OCIO::ColorSpace *s = ocioSpace(cs);
    return s ? s->getName() : nullptr;
}

const char *getDescription(const ColorSpace *cs)
{
    const OCIO::ColorSpace *s = ocioSpace(cs);
    return s ? s->getDescription() : nullptr;
}

bool getInfo(const ColorSpace *cs, BAS_Options &out)
{
    if (!cs || !cs->hasSpace())
        return false;
    out = cs->info();
    return true;
}

bool getAllocationVars(const ColorSpace *cs, bool &uniform, double &min, double &max, double &offset)
{
    const OCIO::ColorSpace *s = ocioSpace(cs);
    if (!s)
        return false;
    try
    {
        std::vector<double> vars = imb_detail::allocationVars(*s);
        uniform = s->getAllocation() == OCIO::ALLOCATION_UNIFORM;
        min = vars[0];
        max = vars[1];
        offset = vars[2];
        return true;
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error reading the allocation of colour space \"{}\"",
                                               s->getName()),
                            e);
        return false;
    }
}

bool isFloatPointSpace(const ColorSpace *cs, bool &isFloat)
{
    const OCIO::ColorSpace *s = ocioSpace(cs);
    isFloat = s && (s->getBitDepth() == OCIO::BIT_DEPTH_F16 || s->getBitDepth() == OCIO::BIT_DEPTH_F32);
    return isFloat;
}

bool isSceneLinear(const ColorSpace *cs)
{
    if (!cs || !cs->hasSpace())
        return false;
    const ColorSpace *linear = lookupSpace(OCIO::ROLE_SCENE_LINEAR);
    if (!linear)
        return false;
    return linear == cs || std::strcmp(getName(linear), getName(cs)) == 0;
}

bool issRGB(const ColorSpace *cs)
{
    const char *name = getName(cs);
    return name && colourState().mySRGB == name;
}

const BAS_StringHolder &getsRGBColorSpace() { return colourState().mySRGB; }
const BAS_StringHolder &getRec709ColorSpace() { return colourState().myRec709; }
const BAS_StringHolder &getLinearRec709ColorSpace() { return colourState().myLinearRec709; }
const BAS_StringHolder &getRawColorSpace() { return colourState().myRaw; }
const BAS_StringHolder &getFileDefaultColorSpace() { return colourState().myFileDefault; }

BAS_StringHolder getsRGBColorSpace(const char *name)
{
    ColourState &st = colourState();
    BAS_StringHolder known = imb_detail::canonicalName(st.config(), name);
    return known.isEmpty() ? st.mySRGB : known;
}

const char *getDefaultRole() { return OCIO::ROLE_DEFAULT; }
const char *getReferenceRole() { return OCIO::ROLE_REFERENCE; }
const char *getSceneLinearRole() { return OCIO::ROLE_SCENE_LINEAR; }
const char *getDataRole() { return OCIO::ROLE_DATA; }
const char *getCompLogRole() { return OCIO::ROLE_COMPOSITING_LOG; }
const char *getColorPickingRole() { return OCIO::ROLE_COLOR_PICKING; }

void getRoles(BAS_StringArray &out)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return;
    try
    {
        for (int i = 0, n = config->getNumRoles(); i < n; ++i)
            if (const char *name = config->getRoleName(i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error listing the roles", e);
    }
}

void getColorSpaces(BAS_StringArray &out)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return;
    try
    {
        for (int i = 0, n = config->getNumColorSpaces(); i < n; ++i)
            if (const char *name = config->getColorSpaceNameByIndex(i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error listing the colour spaces", e);
    }
}

const char *parseColorSpaceFromString(const char *text)
{
    if (!text || !*text)
        return nullptr;
    ColourState &st = colourState();
    OCIO::ConstConfigRcPtr config = st.config();
    if (!config)
        return nullptr;
    try
    {
        switch (st.myParseMode)
        {
        case 1:
        {
            // Tokens between '.' and '_', tried from the last one backwards.
            const std::string s(text);
            std::size_t end = s.size();
            while (true)
            {
                const std::size_t sep = end == 0 ? std::string::npos : s.find_last_of("._", end - 1);
                const std::size_t begin = sep == std::string::npos ? 0 : sep + 1;
                const std::string token = s.substr(begin, end - begin);
                if (!token.empty())
                {
                    OCIO::ConstColorSpaceRcPtr cs = config->getColorSpace(token.c_str());
                    if (cs && strcasecmp(cs->getName(), token.c_str()) == 0)
                        return cs->getName();
                }
                if (sep == std::string::npos)
                    break;
                end = sep;
            }
            return nullptr;
        }
        case 2:
        {
            auto it = st.myFileRuleMap.find(BAS_StringHolder(text));
            return it == st.myFileRuleMap.end() ? nullptr : it->second.c_str();
        }
        case 3:
            if (config->filepathOnlyMatchesDefaultRule(text))
                return nullptr;
            return config->getColorSpaceFromFilepath(text);
        default: return config->getColorSpaceFromFilepath(text);
        }
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error finding the colour space of \"{}\"",
                                               text),
                            e);
        return nullptr;
    }
}

BAS_StringHolder parseColorSpaceFromHolder(const BAS_StringHolder &text)
{
    const char *name = parseColorSpaceFromString(text.c_str());
    return name ? BAS_StringHolder(name) : BAS_StringHolder();
}

IMB_ColorSpace imbImageColorSpace(const ColorSpace *cs, BAS_StringHolder &name)
{
    const char *spaceName = getName(cs);
    if (!spaceName)
        return IMB_CS_UNKNOWN;
    name = BAS_StringHolder(spaceName);
    if (BAS_EnvControl::getInt(imb_detail::kControlAlwaysTag) == 1)
        return IMB_CS_OCIO;
    ColourState &st = colourState();
    if (name == st.mySRGB)
        return IMB_CS_SRGB;
    if (name == st.myRec709)
        return IMB_CS_REC709;
    if (name == st.myLinearRec709)
        return IMB_CS_LINEAR;
    return IMB_CS_OCIO;
}

IMB_ColorSpace imbImageColorSpace(const BAS_StringHolder &spaceName, BAS_StringHolder &name)
{
    if (const ColorSpace *cs = lookupSpace(spaceName))
        return imbImageColorSpace(cs, name);
    name = spaceName;
    return IMBgetColorSpace(spaceName.nonNullOrNull());
}

const BAS_StringHolder &imbImageColorSpace(IMB_ColorSpace tag, const BAS_StringHolder &ocioName)
{
    ColourState &st = colourState();
    switch (tag)
    {
    case IMB_CS_LINEAR: return st.myLinearRec709;
    case IMB_CS_GAMMA2_2:
    case IMB_CS_SRGB: return st.mySRGB;
    case IMB_CS_REC709: return st.myRec709;
    case IMB_CS_OCIO: return lookupSpace(ocioName) ? ocioName : imb_detail::emptyHolder();
    default: return imb_detail::emptyHolder();
    }
}
} // namespace IMB_OCIO
