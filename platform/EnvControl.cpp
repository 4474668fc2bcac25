#include <IMB/platform/BAS_EnvControl.h>
#include <IMB/platform/hostGetenv.h>

#include <cerrno>
#include <cstdlib>

namespace
{
struct Control
{
    int id;
    const char *variable;
    int intDefault;
};

constexpr Control theControls[] = {
    {43, "IMB_OCIO_SRGB_SPACE", 0},
    {65, "IMB_OCIO_ALWAYS_TAG", 0},
    {72, "IMB_OCIO_PARSE_MODE", 1},
    {97, "IMB_OCIO_VERBOSE", 0},
};

const Control *findControl(int id)
{
    for (const Control &c : theControls)
        if (c.id == id)
            return &c;
    return nullptr;
}
} // namespace

const char *BAS_EnvControl::variableName(int id)
{
    const Control *c = findControl(id);
    return c ? c->variable : nullptr;
}

int BAS_EnvControl::getInt(int id)
{
    const Control *c = findControl(id);
    if (!c)
        return 0;
    const char *v = hostGetenv(c->variable);
    if (!v || !*v)
        return c->intDefault;
    char *end = nullptr;
    errno = 0;
    long n = std::strtol(v, &end, 10);
    if (end == v || *end != '\0' || errno != 0)
        return c->intDefault;
    return static_cast<int>(n);
}

BAS_StringHolder BAS_EnvControl::getString(int id)
{
    const Control *c = findControl(id);
    if (!c)
        return BAS_StringHolder();
    const char *v = hostGetenv(c->variable);
    return v ? BAS_StringHolder(v) : BAS_StringHolder();
}
