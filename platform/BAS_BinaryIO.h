// Binary readers and writers for the library's own file forms.
//
// Every multi-byte value is stored little-endian (least significant byte
// first), whatever the host's byte order, so files move between machines
// unchanged. Floats are stored as their IEEE 754 bit patterns; half16 values
// as their 16-bit patterns. Each function reports false when the stream ends
// or fails; a failed read leaves the output 0.
#pragma once

#include <IMB/platform/BAS_Types.h>

#include <cstdio>
#include <cstring>

namespace imb_detail
{
inline bool writeBytesLE(FILE *fp, uint64 bits, int count)
{
    unsigned char b[8];
    for (int i = 0; i < count; ++i)
        b[i] = static_cast<unsigned char>(bits >> (8 * i));
    return std::fwrite(b, 1, count, fp) == static_cast<std::size_t>(count);
}

inline bool readBytesLE(FILE *fp, uint64 &bits, int count)
{
    unsigned char b[8];
    bits = 0;
    if (std::fread(b, 1, count, fp) != static_cast<std::size_t>(count))
        return false;
    for (int i = 0; i < count; ++i)
        bits |= static_cast<uint64>(b[i]) << (8 * i);
    return true;
}

inline bool writeByte(FILE *fp, uint8 v)
{
    return std::fputc(v, fp) != EOF;
}
inline bool writeUInt16(FILE *fp, uint16 v)
{
    return writeBytesLE(fp, v, 2);
}
inline bool writeInt32(FILE *fp, int32 v)
{
    return writeBytesLE(fp, static_cast<uint32>(v), 4);
}
inline bool writeFloat32(FILE *fp, float v)
{
    uint32 bits;
    std::memcpy(&bits, &v, 4);
    return writeBytesLE(fp, bits, 4);
}

inline bool readByte(FILE *fp, uint8 &v)
{
    int c = std::fgetc(fp);
    v = c == EOF ? 0 : static_cast<uint8>(c);
    return c != EOF;
}
inline bool readUInt16(FILE *fp, uint16 &v)
{
    uint64 bits;
    bool ok = readBytesLE(fp, bits, 2);
    v = static_cast<uint16>(bits);
    return ok;
}
inline bool readInt32(FILE *fp, int32 &v)
{
    uint64 bits;
    bool ok = readBytesLE(fp, bits, 4);
    v = static_cast<int32>(static_cast<uint32>(bits));
    return ok;
}
inline bool readFloat32(FILE *fp, float &v)
{
    uint64 bits;
    bool ok = readBytesLE(fp, bits, 4);
    uint32 b32 = static_cast<uint32>(bits);
    std::memcpy(&v, &b32, 4);
    return ok;
}
} // namespace imb_detail
