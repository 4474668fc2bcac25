#include "platform/PLT_Math.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace
{
template <typename T> bool parseStrict(std::string_view text, T &value)
{
    value = 0;
    const char *p = text.data();
    const char *end = p + text.size();
    bool negative = false;
    if (p != end && (*p == '+' || *p == '-'))
    {
        negative = *p == '-';
        ++p;
    }
    if (p == end || *p == '+' || *p == '-')
        return false;

    std::chars_format fmt = std::chars_format::general;
    if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))
    {
        fmt = std::chars_format::hex;
        p += 2;
    }
    T v = 0;
    auto [ptr, ec] = std::from_chars(p, end, v, fmt);
    if (ec != std::errc() || ptr != end)
        return false;
    value = negative ? -v : v;
    return true;
}
} // namespace

bool PLTparseFloat(std::string_view text, float &value)
{
    // Parsed in double precision and narrowed once, so that a value below
    // the float range becomes 0 (or a denormal) instead of an error.
    double d;
    value = 0;
    if (!parseStrict(text, d))
        return false;
    if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
        return false;
    value = static_cast<float>(d);
    return true;
}

bool PLTparseFloat(std::string_view text, double &value)
{
    return parseStrict(text, value);
}
