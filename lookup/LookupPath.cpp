// Saving and loading lookup tables by path: variable expansion, the "LUTio"
// filters, and the choice between the text form, the binary form and the
// exchange formats by extension.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/BAS_IOTable.h>
#include <IMB/platform/CRV_Clip.h>

#include "platform/BAS_PathExpand.h"

#include <cstdio>
#include <string>

namespace
{
constexpr const char *kFilterTable = "LUTio";

bool endsWith(const std::string &s, const char *tail)
{
    const std::string t(tail);
    return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

// Closes a pipe after reading: what the reader left unread is drained first,
// so a writer at the other end does not die of a broken pipe (which would
// make the close report an error after a header-only read).
bool closeReadPipe(FILE *pipe)
{
    char sink[4096];
    while (std::fread(sink, 1, sizeof sink, pipe) == sizeof sink)
    {
    }
    return pclose(pipe) == 0;
}
} // namespace

bool IMB_Lookup::save(const char *path, bool half) const
{
    return saveByPath(path, half, ExchangeOptions());
}

bool IMB_Lookup::save(const char *path, const ExchangeOptions &options) const
{
    return saveByPath(path, false, options);
}

bool IMB_Lookup::saveByPath(const char *path, bool half, const ExchangeOptions &options) const
{
    if (!path)
        return false;
    const std::string file = BASexpandPath(path);
    if (file.empty())
        return false;

    BAS_IOTable::Filter filter;
    if (BAS_IOTable::getTable(kFilterTable).findFilter(file.c_str(), true, filter))
    {
        std::string command;
        if (!BAS_IOTable::buildCommand(filter.writeCommand, file.c_str(), command))
            return false;
        FILE *pipe = popen(command.c_str(), "w");
        if (!pipe)
            return false;
        const bool ok = filter.extension.find(".blut") != std::string::npos ? saveBinary(pipe, half) : save(pipe);
        const bool closed = pclose(pipe) == 0;
        return ok && closed;
    }

    // Exchange extensions (matched without regard to case) write their
    // format; a table the format cannot hold is refused before the file is
    // opened, so nothing is left behind.
    const ExchangeFormat exchange = exchangeFormatOf(file.c_str());
    if (exchange != EXCHANGE_NONE)
    {
        if (!canSaveExchange(exchange, options))
            return false;
        FILE *fp = std::fopen(file.c_str(), "wb");
        if (!fp)
            return false;
        bool ok = saveExchange(fp, exchange, options);
        ok = !std::ferror(fp) && ok;
        ok = (std::fclose(fp) == 0) && ok;
        if (!ok)
            std::remove(file.c_str());
        return ok;
    }

    const bool binary = endsWith(file, ".blut");
    // Any name but ".blut" is written as text, although load() refuses names
    // other than ".lut" and ".blut": kept as designed, callers rely on it.
    FILE *fp = std::fopen(file.c_str(), binary ? "wb" : "w");
    if (!fp)
        return false;
    bool ok = binary ? saveBinary(fp, half) : save(fp);
    ok = !std::ferror(fp) && ok;
    return (std::fclose(fp) == 0) && ok;
}

bool IMB_Lookup::load(const char *path, bool headerOnly)
{
    // The table is emptied first, whatever happens next.
    free3DTable();
    myPreShift = 0.0f;
    myClip->destroyAllTracks();
    clearTextureID();

    if (!path)
        return false;
    const std::string file = BASexpandPath(path);
    if (file.empty())
        return false;

    bool ok = false;
    BAS_IOTable::Filter filter;
    if (BAS_IOTable::getTable(kFilterTable).findFilter(file.c_str(), false, filter))
    {
        std::string command;
        if (!BAS_IOTable::buildCommand(filter.readCommand, file.c_str(), command))
            return false;
        FILE *pipe = popen(command.c_str(), "r");
        if (!pipe)
            return false;
        ok = filter.extension.find(".blut") != std::string::npos ? loadBinary(pipe, headerOnly)
                                                                  : load(pipe, headerOnly);
        ok = closeReadPipe(pipe) && ok;
    }
    else if (endsWith(file, ".lut") || endsWith(file, ".blut"))
    {
        const bool binary = endsWith(file, ".blut");
        FILE *fp = std::fopen(file.c_str(), binary ? "rb" : "r");
        if (!fp)
            return false;
        ok = binary ? loadBinary(fp, headerOnly) : load(fp, headerOnly);
        std::fclose(fp);
    }
    else if (const ExchangeFormat exchange = exchangeFormatOf(file.c_str()); exchange != EXCHANGE_NONE)
    {
        FILE *fp = std::fopen(file.c_str(), "rb");
        if (!fp)
            return false;
        ok = loadExchange(fp, exchange, headerOnly);
        std::fclose(fp);
    }
    else
        return false;

    return ok && correctLUT();
}
