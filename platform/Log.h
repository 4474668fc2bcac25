// Internal logging helpers: fmt-style "{}" messages through the error log.
#pragma once

#include <IMB/platform/BAS_ErrorLog.h>

#include <fmt/format.h>

#include <cstdio>
#include <string>

namespace imb_detail
{
// Formats `pattern` with fmt's "{}" placeholders.
template <typename... Args> std::string format(fmt::format_string<Args...> pattern, Args &&...args)
{
    return fmt::format(pattern, std::forward<Args>(args)...);
}

// Writes text to the standard error stream in one call, so that lines of
// concurrent writers do not interleave. For the dump operations, whose output
// the caller asked for.
inline void dumpStderr(const std::string &text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

// A reader's or the configuration's message: collected by the calling
// thread's BAS_ErrorCapture when it has one, else printed as dumpStderr does.
inline void printStderr(const std::string &text)
{
    if (!BAS_ErrorCapture::collect(text.data(), text.size()))
        dumpStderr(text);
}
} // namespace imb_detail
