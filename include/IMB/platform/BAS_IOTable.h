// BAS_IOTable: named tables of I/O filters chosen by file extension.
//
// A filter lets a file form be read from or written to a command instead of a
// plain file, e.g. to keep tables compressed: for the extension ".lut.gz" the
// read command might be "gzip -dc %s" and the write command "gzip -c > %s".
// Readers look up the table of their form by name ("LUTio" for lookup-table
// files); each table starts empty and lives for the rest of the process.
//
// Commands are format strings: every "%s" is replaced by the file's path and
// "%%" by "%"; no other "%" sequence is allowed. The path is inserted in
// single quotes with embedded quotes escaped, so no file name can inject a
// shell command. The caller runs the command (popen) and owns the pipe.
//
// Thread-safety: tables may be read and changed from any number of threads;
// each call takes the table's lock.
#pragma once

#include <IMB/IMB_API.h>

#include <memory>
#include <string>

class IMB_API BAS_IOTable
{
public:
    // One filter: the extension it serves (matched against the end of the
    // path, case-sensitively, so it may hold several dots: ".blut.gz") and
    // its two command formats; an empty command means "no filter for this
    // direction".
    struct Filter
    {
        std::string extension;
        std::string readCommand;
        std::string writeCommand;
    };

    // The table named `name`, created empty on first use. Never null; the
    // table lives until the process ends.
    static BAS_IOTable &getTable(const char *name);

    // Adds a filter for `extension` (non-empty), replacing any filter of the
    // same extension. Either command may be null or empty. Returns false and
    // changes nothing when the extension is empty or a command has a "%"
    // sequence other than "%s" and "%%".
    bool addFilter(const char *extension, const char *readCommand, const char *writeCommand);

    // Removes the filter of `extension`; false when there was none.
    bool removeFilter(const char *extension);

    // Removes every filter.
    void clear();

    // Number of filters.
    int entries() const;

    // Finds the filter for `path` in one direction: among the filters whose
    // extension ends the path and which have a command for that direction
    // (`forWriting` picks the write command), the one with the longest
    // extension. Copies it to `filter` and returns true; false when none.
    bool findFilter(const char *path, bool forWriting, Filter &filter) const;

    // The command that runs `format` on `path`: each "%s" becomes the quoted
    // path, "%%" becomes "%". Returns false for any other "%" sequence.
    static bool buildCommand(const std::string &format, const char *path, std::string &command);

    // `path` in single quotes for a POSIX shell, each embedded "'" written as
    // "'\''".
    static std::string quotePath(const char *path);

    BAS_IOTable(const BAS_IOTable &) = delete;
    BAS_IOTable &operator=(const BAS_IOTable &) = delete;
    ~BAS_IOTable();

private:
    BAS_IOTable();

    struct Impl;
    std::unique_ptr<Impl> myImpl;
};
