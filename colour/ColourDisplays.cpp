// Displays, views, looks and the viewing rules captured at load.
#include "colour/ColourState.h"

#include <IMB/platform/hostGetenv.h>

#include "platform/Log.h"

#include <cstring>
#include <exception>
#include <string>

namespace imb_detail
{
namespace
{
// Appends the pieces of a comma-separated list, blanks trimmed from both ends.
void appendSplitTrimmed(const char *list, BAS_StringArray &out)
{
    const std::string s(list);
    std::size_t begin = 0;
    while (begin <= s.size())
    {
        std::size_t comma = s.find(',', begin);
        if (comma == std::string::npos)
            comma = s.size();
        std::size_t a = begin, b = comma;
        while (a < b && (s[a] == ' ' || s[a] == '\t'))
            ++a;
        while (b > a && (s[b - 1] == ' ' || s[b - 1] == '\t'))
            --b;
        out.append(BAS_StringHolder(s.data() + a, b - a));
        begin = comma + 1;
    }
}

// The text of an environment list up to its first comma, or empty.
std::string firstOfList(const char *var)
{
    const char *v = hostGetenv(var);
    if (!v || !*v)
        return std::string();
    const char *comma = std::strchr(v, ',');
    return comma ? std::string(v, static_cast<std::size_t>(comma - v)) : std::string(v);
}

const BAS_Options &emptyOptions()
{
    static const BAS_Options empty;
    return empty;
}
} // namespace
} // namespace imb_detail

namespace IMB_OCIO
{
using imb_detail::colourState;
using imb_detail::OCIOFailure;
using imb_detail::reportOCIOException;

void getActiveDisplays(BAS_StringArray &out)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return;
    out.clear();
    try
    {
        const char *active = config->getActiveDisplays();
        if (active && *active)
        {
            imb_detail::appendSplitTrimmed(active, out);
            return;
        }
        for (int i = 0, n = config->getNumDisplays(); i < n; ++i)
            if (const char *name = config->getDisplay(i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error listing the active displays", e);
    }
}

void getActiveViews(BAS_StringArray &out)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return;
    out.clear();
    try
    {
        const char *active = config->getActiveViews();
        if (active && *active)
        {
            imb_detail::appendSplitTrimmed(active, out);
            return;
        }
        const char *display = getDefaultDisplay();
        if (!display)
            return;
        for (int i = 0, n = config->getNumViews(display); i < n; ++i)
            if (const char *name = config->getView(display, i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error listing the active views", e);
    }
}

const char *getDefaultDisplay()
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return nullptr;
    try
    {
        // Exact comparison of the first listed name; nothing is trimmed.
        const std::string first = imb_detail::firstOfList("OCIO_ACTIVE_DISPLAYS");
        if (!first.empty())
        {
            for (int i = 0, n = config->getNumDisplays(); i < n; ++i)
            {
                const char *name = config->getDisplay(i);
                if (name && first == name)
                    return name;
            }
        }
        return config->getDefaultDisplay();
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error finding the default display", e);
        return nullptr;
    }
}

const char *getDefaultView(const char *display)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return nullptr;
    try
    {
        const char *defaultDisplay = getDefaultDisplay();
        if (!display || (defaultDisplay && std::strcmp(display, defaultDisplay) == 0))
        {
            // For the default display the answer is the default view
            // transform's name, not a view name: deliberate, hosts rely on it.
            try
            {
                const char *vt = config->getDefaultViewTransformName();
                if (vt && *vt)
                    return vt;
            }
            catch (const std::exception &e)
            {
                reportOCIOException(OCIOFailure::Query, "query error reading the default view transform", e);
            }
            if (!display)
                display = defaultDisplay;
            if (!display)
                return nullptr;
        }
        const std::string first = imb_detail::firstOfList("OCIO_ACTIVE_VIEWS");
        if (!first.empty())
        {
            for (int i = 0, n = config->getNumViews(display); i < n; ++i)
            {
                const char *name = config->getView(display, i);
                if (name && first == name)
                    return name;
            }
        }
        return config->getDefaultView(display);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error finding the default view", e);
        return nullptr;
    }
}

bool getViewsForDisplay(const char *display, BAS_StringArray &out)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return false;
    out.clear();
    if (!display)
        return true;
    try
    {
        for (int i = 0, n = config->getNumViews(display); i < n; ++i)
            if (const char *name = config->getView(display, i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error listing the views of display \"{}\"",
                                               display),
                            e);
    }
    return true;
}

const char *getColorSpaceForDisplayView(const char *display, const char *view)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config || !display || !view)
        return nullptr;
    try
    {
        const char *name = config->getDisplayViewColorSpaceName(display, view);
        if (name && std::strcmp(name, OCIO::OCIO_VIEW_USE_DISPLAY_NAME) == 0)
            return display;
        return name;
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error reading the colour space of display \"{}\" view \"{}\"",
                                               display, view),
                            e);
        return nullptr;
    }
}

const char *getLooksForDisplayView(const char *display, const char *view)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config || !display || !view)
        return nullptr;
    try
    {
        return config->getDisplayViewLooks(display, view);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error reading the looks of display \"{}\" view \"{}\"",
                                               display, view),
                            e);
        return nullptr;
    }
}

const char *getTransformNameForDisplayView(const char *display, const char *view)
{
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config || !display || !view)
        return nullptr;
    try
    {
        return config->getDisplayViewTransformName(display, view);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query,
                            imb_detail::format("query error reading the view transform of display \"{}\" view \"{}\"",
                                               display, view),
                            e);
        return nullptr;
    }
}

void getLooks(BAS_StringArray &out)
{
    out.clear();
    OCIO::ConstConfigRcPtr config = colourState().config();
    if (!config)
        return;
    try
    {
        for (int i = 0, n = config->getNumLooks(); i < n; ++i)
            if (const char *name = config->getLookNameByIndex(i))
                out.append(name);
    }
    catch (const std::exception &e)
    {
        reportOCIOException(OCIOFailure::Query, "query error listing the looks", e);
    }
}

const BAS_Options &viewingRule(const BAS_StringRef &name)
{
    for (const auto &rule : colourState().myViewingRules)
        if (rule.first == name)
            return rule.second;
    return imb_detail::emptyOptions();
}

void viewingRuleNames(BAS_StringArray &out)
{
    out.clear();
    for (const auto &rule : colourState().myViewingRules)
        out.append(rule.first);
}
} // namespace IMB_OCIO
