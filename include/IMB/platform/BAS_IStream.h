// BAS_IStream: the utility layer's input stream, and its binary writers.
//
// An input stream reads from one of three sources: a std::istream, a memory
// buffer or a C FILE. It carries a binary flag that tells readers which of a
// format's two forms (binary or text) to expect. It offers raw reads, line
// reads and binary readers for arrays of fixed-width values.
//
// Byte order: every binary reader and writer here uses little-endian order
// (least significant byte first), whatever the host; floats are their IEEE
// 754 bit patterns in that order.
//
// Ownership: the stream borrows its source (the caller keeps the std::istream,
// the buffer or the FILE alive and closes it). Thread-safety: none; one thread
// at a time per stream.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Types.h>

#include <cstddef>
#include <cstdio>
#include <iosfwd>
#include <string>

class IMB_API BAS_IStream
{
public:
    // Reads from `is` (from its current position).
    explicit BAS_IStream(std::istream &is, bool binary = true);
    // Reads the `size` bytes at `data`.
    BAS_IStream(const void *data, size_t size, bool binary = true);
    // Reads from `fp` (from its current position).
    explicit BAS_IStream(FILE *fp, bool binary = true);
    ~BAS_IStream();

    BAS_IStream(const BAS_IStream &) = delete;
    BAS_IStream &operator=(const BAS_IStream &) = delete;

    // Whether readers should expect the binary form.
    bool isBinary() const { return myBinary; }
    void setBinary(bool binary) { myBinary = binary; }

    // Reads up to `bytes` bytes into `dst`; returns how many were read
    // (fewer only at the end of the source or on a read error).
    size_t read(void *dst, size_t bytes);
    // The next byte (0-255), or EOF at the end.
    int getChar();
    // Reads one line into `line`, without its newline (a "\r" before the
    // newline is dropped as well). False when the source was already at its
    // end; a last line without a newline is returned. Lines longer than
    // `maxLength` bytes are cut there and the rest is left unread.
    bool readLine(std::string &line, size_t maxLength = 1 << 20);
    // True once a read has hit the end of the source.
    bool atEnd() const { return myAtEnd; }

    // Bytes left to read when the source can tell (memory buffers, regular
    // files, seekable std::istreams); -1 when it cannot (pipes, sockets).
    // Readers use it to refuse a header that claims more data than exists.
    int64 remaining() const;

    // Binary readers: `count` little-endian values into `dst`. True when all
    // of them were read; on a short read the values read so far are stored
    // and the rest of `dst` is unspecified. A count of 0 succeeds.
    bool readBinary(int32 *dst, size_t count);
    bool readBinary(uint8 *dst, size_t count);
    bool readBinary(uint16 *dst, size_t count);
    bool readBinary(uint32 *dst, size_t count);
    bool readBinary(float *dst, size_t count);

private:
    template <class T> bool readWords(T *dst, size_t count);

    enum Kind
    {
        STD_STREAM,
        MEMORY,
        CFILE
    };
    Kind myKind;
    bool myBinary;
    bool myAtEnd = false;
    std::istream *myStream = nullptr;
    const unsigned char *myData = nullptr;
    size_t mySize = 0;
    size_t myPos = 0;
    FILE *myFile = nullptr;
};

// Binary writers: `count` values to `os` in little-endian order. True when the
// stream is still good afterwards.
IMB_API bool BASwriteBinary(std::ostream &os, const int32 *src, size_t count);
IMB_API bool BASwriteBinary(std::ostream &os, const uint8 *src, size_t count);
IMB_API bool BASwriteBinary(std::ostream &os, const uint16 *src, size_t count);
IMB_API bool BASwriteBinary(std::ostream &os, const uint32 *src, size_t count);
IMB_API bool BASwriteBinary(std::ostream &os, const float *src, size_t count);
