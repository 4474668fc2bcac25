// imbtool info: library version, processor capabilities and the format and
// packing tables.
#include "Command.h"

#include <IMB/IMB.h>

#include <fmt/format.h>

namespace
{
const char *yesNo(bool b)
{
    return b ? "yes" : "no";
}

void printCaps(const char *when)
{
    fmt::print("  {:<28} MMX {:<3}  extended MMX {:<3}  SSE bits 0x{:02x}  conditional move {}\n", when,
               yesNo(IMBcpuHasMMX()), yesNo(IMBcpuHasXMMX()), IMBcpuHasSSE(), yesNo(IMBcpuHasCondMov()));
}

void runInfo()
{
    fmt::print("libIMB {} (headers {})\n\n", IMBversion(), IMB_VERSION_STRING);

    fmt::print("processor capabilities\n");
    // The probes report nothing until the processor has been probed once;
    // show both sides so the difference is visible.
    printCaps("before IMBdetermineProcCaps:");
    IMBdetermineProcCaps();
    printCaps("after IMBdetermineProcCaps:");

    fmt::print("\ndata formats\n");
    fmt::print("  {:>5}  {:<10} {:>5}  {:>10}\n", "value", "name", "bytes", "white");
    for (int f = 0; f <= IMB_MAX_DATA_FORMAT; ++f)
        fmt::print("  {:>5}  {:<10} {:>5}  {:>10}\n", f, IMBdataFormat(static_cast<IMB_DataFormat>(f)),
                   imbDefinesDepth[f], imbDefinesWhite[f]);

    fmt::print("\npackings\n");
    fmt::print("  {:>5}  {:<8} {:>8}  {:>10}  {:<11} {}\n", "value", "name", "channels", "components",
               "interleaved", "alpha");
    for (int p = 0; p < 8; ++p)
    {
        IMB_Raster probe;
        probe.setPacking(static_cast<IMB_Packing>(p));
        fmt::print("  {:>5}  {:<8} {:>8}  {:>10}  {:<11} {}\n", p, IMBpacking(static_cast<IMB_Packing>(p)),
                   imbDefinesPComp[p], imbDefinesPDepth[p], yesNo(probe.isInterleaved()), yesNo(probe.hasAlpha()));
    }
    fmt::print("  {:>5}  {:<8}\n", static_cast<int>(PACK_UNKNOWN), IMBpacking(PACK_UNKNOWN));

    fmt::print("\ncolour-space tags\n");
    for (int c = 0; c <= IMB_CS_OCIO; ++c)
        fmt::print("  {:>5}  {}\n", c, IMBgetColorSpaceName(static_cast<IMB_ColorSpace>(c)));
}

void setupInfo(CLI::App &app)
{
    CLI::App *cmd = app.add_subcommand("info", "Print the library version, processor capabilities and format tables");
    cmd->callback(runInfo);
}
} // namespace

IMBTOOL_COMMAND("info", setupInfo);
