#include <IMB/platform/BAS_StringHolder.h>

#include <ostream>

std::ostream &operator<<(std::ostream &os, const BAS_StringRef &s)
{
    return os.write(s.c_str(), static_cast<std::streamsize>(s.length()));
}
