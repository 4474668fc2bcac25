// Self-registering imbtool subcommands.
//
// Each command file defines a setup function that adds its subcommand (with
// options and a callback) to the application, and registers it with
// IMBTOOL_COMMAND(setupFunction). Callbacks report failure by throwing
// imbtool::Failure with a message, or CLI::RuntimeError with an exit code.
#pragma once

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

// A command failed; main() prints the message and exits with status 1.
struct Failure : std::runtime_error
{
    using std::runtime_error::runtime_error;
};
} // namespace imbtool

#define IMBTOOL_COMMAND(name, fn) static ::imbtool::Registrar imbtoolRegistrar_##fn(name, fn)
