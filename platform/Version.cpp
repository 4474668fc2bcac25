#include <IMB/IMB_Version.h>

#include <string_view>

#ifdef IMB_PROJECT_VERSION
// The header's version must follow the project version the build was
// configured with.
static_assert(std::string_view(IMB_VERSION_STRING) == std::string_view(IMB_PROJECT_VERSION),
              "IMB_Version.h does not match the project version in CMakeLists.txt");
#endif

const char *IMBversion()
{
    return IMB_VERSION_STRING;
}
