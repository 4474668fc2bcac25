// imbtool: the command-line face of libIMB.
#include "Command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace imbtool
{
std::vector<std::pair<const char *, SetupFn>> &registry()
{
    static std::vector<std::pair<const char *, SetupFn>> commands;
    return commands;
}
} // namespace imbtool

namespace
{
// The distinct lines of what the library reported, in order: the reasons a
// command failed. A reason can reach the log twice (the configuration's load
// error goes to the error log and to the standard error stream), once is
// enough here.
std::vector<std::string> reasonsOf(const BAS_ErrorCapture &reports)
{
    std::vector<std::string> lines;
    const std::string &text = reports.text();
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 1)
    {
        end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(begin, end - begin);
        if (!line.empty() && std::find(lines.begin(), lines.end(), line) == lines.end())
            lines.push_back(std::move(line));
    }
    return lines;
}

// The command's own line with the library's reasons: on the same line after
// a colon when there is one, else indented on the lines below.
void printFailure(const char *message, const BAS_ErrorCapture &reports)
{
    const std::vector<std::string> reasons = reasonsOf(reports);
    std::string text = std::string("imbtool: ") + message;
    if (reasons.size() == 1)
        text += ": " + reasons[0];
    else if (!reasons.empty())
    {
        text += ':';
        for (const std::string &r : reasons)
            text += "\n  " + r;
    }
    std::fprintf(stderr, "%s\n", text.c_str());
}

// What the library reported while a command went on, printed where the
// library would have printed it.
void passOn(const BAS_ErrorCapture &reports)
{
    std::fputs(reports.text().c_str(), stderr);
}
} // namespace

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

    // The library's messages are collected while the command runs, so that
    // a failure is told in one place with the library's reasons (OpenColorIO's
    // or OpenImageIO's text). Messages reported on worker threads are printed
    // as they come.
    BAS_ErrorCapture reports;
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &e)
    {
        passOn(reports);
        return app.exit(e);
    }
    catch (const imbtool::Failure &e)
    {
        printFailure(e.what(), reports);
        return 1;
    }
    passOn(reports);
    return 0;
}
