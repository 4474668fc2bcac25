// BAS_ErrorLog: the library's message sink.
//
// brevanPrintf writes informational text when the verbosity level (the
// environment variable IMB_VERBOSE, an integer, 0 when unset) is at least the
// message's level; brevanError always writes. Both go to the standard error
// stream, one message per call, and are safe to call from several threads.
// A host may install its own sink with BASsetErrorLogSink to route messages
// elsewhere (a log window, a test's capture buffer).
#pragma once

#include <IMB/IMB_API.h>

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
