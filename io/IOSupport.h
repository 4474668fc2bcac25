// Internal to io/: error reporting and the temporary-file commit shared by
// the flat and deep readers and writers.
#pragma once

#include <IMB/platform/BAS_ErrorLog.h>

#include <string>

namespace imb_io
{
// Reports `what` through the library's error log; returns false so that
// callers can write `return fail(...)`.
bool fail(const std::string &what);

// OpenImageIO's error text as a message's reason: trailing line breaks
// removed, and a stand-in when the library gave none, so that no message
// ends in a bare colon.
std::string reasonOf(std::string text);

// A temporary name next to `path` (same folder, same extension, so that
// writers that choose the file type by extension pick the same one), and
// the rename that puts it in place. A TempFile that is neither committed nor
// released removes its file.
class TempFile
{
public:
    explicit TempFile(const std::string &path);
    ~TempFile();
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;

    const std::string &name() const { return myName; }
    // Renames the temporary file to the destination; false (reported) when
    // the rename fails.
    bool commit();

private:
    std::string myPath, myName;
    bool myDone = false;
};
} // namespace imb_io
