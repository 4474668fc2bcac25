// Uuencoding: binary data as printable text lines.
//
// The form written and read is the standard one:
//     begin <mode in octal> <name>
//     <length char><groups of four chars>      (up to 45 bytes a line)
//     `
//     end
// where each character carries six bits as (value + 32), a zero value being
// written as '`' (and a ' ' accepted for it on reading), and the length
// character is (bytes on the line + 32).
//
// Thread-safety: the functions keep no state.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_IStream.h>

#include <cstddef>
#include <iosfwd>

// Encodes everything left in `in` to `out`, with the begin line
// "begin <mode> <name>" (mode in octal; a null or empty name is written as
// "-"), the data lines, a "`" line and "end". Returns 1, or 0 when `out`
// failed.
IMB_API int BASuuencode(BAS_IStream &in, std::ostream &out, const char *name, int mode);

// Decodes one uuencoded block from `in` into `out`: lines before the first
// line that starts with "begin " are skipped; data lines are decoded up to
// the "end" line, which is consumed. Returns false, leaving the stream after
// the offending line, when there is no begin line, a data line is malformed
// (a length character outside ' '..'`', fewer characters than the length
// needs, or a character outside ' '..'`'), the data ends before "end", or
// `out` refuses a write. Bytes decoded before a failure have been written.
IMB_API bool BASuudecode(BAS_IStream &in, std::ostream &out);

// The same into memory: writes at most `capacity` bytes at `dst` and fails
// (without writing past the end) when the data holds more. `written`, when
// not null, receives the number of bytes stored.
IMB_API bool BASuudecode(BAS_IStream &in, void *dst, size_t capacity, size_t *written = nullptr);
