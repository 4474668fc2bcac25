// BAS_ErrorLog: the library's message sink.
//
// brevanPrintf writes informational text when the verbosity level (the
// environment variable IMB_VERBOSE, an integer, 0 when unset) is at least the
// message's level; brevanError always writes. Both go to the standard error
// stream, one message per call, and are safe to call from several threads.
// A host may install its own sink with BASsetErrorLogSink to route messages
// elsewhere (a log window, a test's capture buffer), or collect the messages
// of one thread with a BAS_ErrorCapture.
//
// The library reports a failure that makes a call fail with brevanError,
// with the third-party library's own reason in the text, and keeps the
// failures of routine probes (whose empty answers callers expect) to
// brevanPrintf(1, ...); IMB_OCIO.h spells this out for colour management.
#pragma once

#include <IMB/IMB_API.h>

#include <string>

// True when messages of `level` are to be printed.
IMB_API bool isBrevanVerbose(int level);
// printf-style informational message, printed when isBrevanVerbose(level).
IMB_API void brevanPrintf(int level, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
// printf-style error message, always printed.
IMB_API void brevanError(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Where messages go: `sink(isError, text)`. Null restores the standard error
// stream. Returns the previous sink.
using BAS_ErrorLogSink = void (*)(bool isError, const char *text);
IMB_API BAS_ErrorLogSink BASsetErrorLogSink(BAS_ErrorLogSink sink);

// Collects, on the calling thread and while it lives, the messages the library
// reports there: brevanError's, and the ones that readers of files and
// configurations print to the standard error stream. Collected messages are
// neither printed nor passed to the sink. Informational brevanPrintf output
// and the dump operations are not collected.
//
// A host turns a failed call's messages into its own error this way (the
// Python module raises them), and a fuzzing run keeps quiet. Captures nest:
// the innermost one on a thread collects. Messages reported on other threads
// (workers of a threaded operation) are not collected.
class IMB_API BAS_ErrorCapture
{
public:
    BAS_ErrorCapture();
    ~BAS_ErrorCapture();
    BAS_ErrorCapture(const BAS_ErrorCapture &) = delete;
    BAS_ErrorCapture &operator=(const BAS_ErrorCapture &) = delete;

    // Everything collected so far, in order; every message ends with a
    // newline.
    const std::string &text() const { return myText; }
    bool empty() const { return myText.empty(); }
    void clear() { myText.clear(); }

    // Hands `text` to the innermost capture of the calling thread, adding a
    // newline when it lacks one. False, with nothing done, when the thread
    // has no capture.
    static bool collect(const char *text, std::size_t size);

private:
    BAS_ErrorCapture *myOuter;
    std::string myText;
};
