// imbtool: the command-line face of libIMB.
#include "Command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace imbtool
{
std::vector<std::pair<const char *, SetupFn>> &registry()
{
    static std::vector<std::pair<const char *, SetupFn>> commands;
    return commands;
}
} // namespace imbtool

int main(int argc, char **argv)
{
    CLI::App app{"imbtool: inspect and exercise the libIMB image library"};
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Print help for every subcommand");

    auto &commands = imbtool::registry();
    std::sort(commands.begin(), commands.end(),
              [](const auto &a, const auto &b) { return std::strcmp(a.first, b.first) < 0; });
    for (const auto &[name, setup] : commands)
        setup(app);

    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &e)
    {
        return app.exit(e);
    }
    catch (const imbtool::Failure &e)
    {
        std::fprintf(stderr, "imbtool: %s\n", e.what());
        return 1;
    }
    return 0;
}
