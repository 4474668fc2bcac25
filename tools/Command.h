// Self-registering imbtool subcommands.
//
// Each command file defines a setup function that adds its subcommand (with
// options and a callback) to the application, and registers it with
// IMBTOOL_COMMAND(setupFunction). Callbacks report failure by throwing
// imbtool::Failure with a message, or CLI::RuntimeError with an exit code.
#pragma once

#include <IMB/IMB_ImageIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <CLI/CLI.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace imbtool
{
using SetupFn = void (*)(CLI::App &app);

// Commands in registration order (sorted by name before use).
std::vector<std::pair<const char *, SetupFn>> &registry();

struct Registrar
{
    Registrar(const char *name, SetupFn fn) { registry().emplace_back(name, fn); }
};

// A command failed; main() prints the message, followed by the reasons the
// library reported while the command ran, and exits with status 1.
struct Failure : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// What the library reported on this thread, without the final newline.
inline std::string reported(const BAS_ErrorCapture &messages, const std::string &otherwise)
{
    std::string text = messages.text();
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text.empty() ? otherwise : text;
}

// Image files through the library's file component (any format
// OpenImageIO reads or writes); a failure throws Failure with the
// component's message.
inline void readImage(const std::string &path, IMB_Raster &out)
{
    BAS_ErrorCapture messages;
    if (!IMB_ImageFile::read(path.c_str(), out))
        throw Failure(reported(messages, "cannot read image \"" + path + "\""));
}

inline void writeImage(const std::string &path, const IMB_Raster &raster)
{
    BAS_ErrorCapture messages;
    if (!IMB_ImageFile::write(path.c_str(), raster))
        throw Failure(reported(messages, "cannot write image \"" + path + "\""));
}
} // namespace imbtool

#define IMBTOOL_COMMAND(name, fn) static ::imbtool::Registrar imbtoolRegistrar_##fn(name, fn)
