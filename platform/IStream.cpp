// BAS_IStream over a std::istream, a memory buffer or a C FILE.
#include <IMB/platform/BAS_IStream.h>

#include "platform/BinaryIO.h"

#include <sys/stat.h>

#include <cstring>
#include <istream>

BAS_IStream::BAS_IStream(std::istream &is, bool binary) : myKind(STD_STREAM), myBinary(binary), myStream(&is) {}

BAS_IStream::BAS_IStream(const void *data, size_t size, bool binary)
    : myKind(MEMORY), myBinary(binary), myData(static_cast<const unsigned char *>(data)), mySize(data ? size : 0)
{
}

BAS_IStream::BAS_IStream(FILE *fp, bool binary) : myKind(CFILE), myBinary(binary), myFile(fp) {}

BAS_IStream::~BAS_IStream() = default;

size_t BAS_IStream::read(void *dst, size_t bytes)
{
    if (bytes == 0)
        return 0;
    size_t got = 0;
    switch (myKind)
    {
    case MEMORY:
        got = std::min(bytes, mySize - myPos);
        if (got)
            std::memcpy(dst, myData + myPos, got);
        myPos += got;
        break;
    case STD_STREAM:
        if (myStream->good())
        {
            myStream->read(static_cast<char *>(dst), std::streamsize(bytes));
            got = size_t(myStream->gcount());
        }
        break;
    case CFILE:
        got = myFile ? std::fread(dst, 1, bytes, myFile) : 0;
        break;
    }
    if (got < bytes)
        myAtEnd = true;
    return got;
}

int BAS_IStream::getChar()
{
    unsigned char c;
    return read(&c, 1) == 1 ? int(c) : EOF;
}

bool BAS_IStream::readLine(std::string &line, size_t maxLength)
{
    line.clear();
    bool any = false;
    while (line.size() < maxLength)
    {
        int c = getChar();
        if (c == EOF)
            break;
        any = true;
        if (c == '\n')
            break;
        line.push_back(char(c));
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return any;
}

int64 BAS_IStream::remaining() const
{
    switch (myKind)
    {
    case MEMORY:
        return int64(mySize - myPos);
    case STD_STREAM:
    {
        if (!myStream->good())
            return 0;
        std::streambuf *buf = myStream->rdbuf();
        if (!buf)
            return 0;
        auto here = buf->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
        if (here == std::streampos(-1))
            return -1;
        auto end = buf->pubseekoff(0, std::ios_base::end, std::ios_base::in);
        buf->pubseekpos(here, std::ios_base::in);
        if (end == std::streampos(-1))
            return -1;
        return int64(end - here);
    }
    case CFILE:
    {
        if (!myFile)
            return 0;
        struct stat st;
        long here = std::ftell(myFile);
        if (here < 0 || fstat(fileno(myFile), &st) != 0 || !S_ISREG(st.st_mode))
            return -1;
        return st.st_size > here ? int64(st.st_size - here) : 0;
    }
    }
    return -1;
}

template <class T> bool BAS_IStream::readWords(T *dst, size_t count)
{
    if (count == 0)
        return true;
    if (count > SIZE_MAX / sizeof(T))
        return false;
    const size_t bytes = count * sizeof(T);
    const size_t got = read(dst, bytes);
    imb_detail::fromLittleEndian(dst, got / sizeof(T));
    return got == bytes;
}

bool BAS_IStream::readBinary(int32 *dst, size_t count) { return readWords(dst, count); }
bool BAS_IStream::readBinary(uint8 *dst, size_t count) { return readWords(dst, count); }
bool BAS_IStream::readBinary(uint16 *dst, size_t count) { return readWords(dst, count); }
bool BAS_IStream::readBinary(uint32 *dst, size_t count) { return readWords(dst, count); }
bool BAS_IStream::readBinary(float *dst, size_t count) { return readWords(dst, count); }
