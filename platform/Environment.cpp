#include <IMB/platform/hostGetenv.h>

#include <cstdlib>

const char *hostGetenv(const char *name)
{
    return name ? std::getenv(name) : nullptr;
}
