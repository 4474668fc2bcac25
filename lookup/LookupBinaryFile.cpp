// The binary form of lookup tables (".blut"): writer and reader.
//
// "ZLUT", a version, the header fields, then the 1D section (track length,
// track count, sample kind 'f' or 'h', the samples track after track) and the
// cube section (edge, sample kind, the n^3 real triples, red fastest). Every
// value is little-endian (see platform/BAS_BinaryIO.h); there is no padding
// between fields.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include "lookup/LookupFileForms.h"
#include "platform/BAS_BinaryIO.h"
#include "platform/Log.h"

#include <cstring>
#include <vector>

using namespace imb_detail;

namespace
{
constexpr uint8 kFloatSamples = 'f';
constexpr uint8 kHalfSamples = 'h';

uint16 halfBits(float v)
{
    // Exact zeros (of either sign) are stored as the bit pattern 0.
    return v == 0.0f ? 0 : half16::fromFloat(v);
}

// Writes `count` samples as float32 or half16, little-endian, through one
// buffer (one fwrite per few thousand samples rather than one per sample).
template <typename Get> bool writeSamples(FILE *fp, bool half, int64 count, Get get)
{
    unsigned char buffer[8192];
    std::size_t used = 0;
    for (int64 i = 0; i < count; ++i)
    {
        const float v = get(i);
        if (half)
        {
            const uint16 h = halfBits(v);
            buffer[used++] = static_cast<unsigned char>(h);
            buffer[used++] = static_cast<unsigned char>(h >> 8);
        }
        else
        {
            uint32 bits;
            std::memcpy(&bits, &v, 4);
            for (int b = 0; b < 4; ++b)
                buffer[used++] = static_cast<unsigned char>(bits >> (8 * b));
        }
        if (used + 4 > sizeof buffer)
        {
            if (std::fwrite(buffer, 1, used, fp) != used)
                return false;
            used = 0;
        }
    }
    return used == 0 || std::fwrite(buffer, 1, used, fp) == used;
}

// Reads `count` samples of the given kind into `out` as floats.
bool readSamples(FILE *fp, bool half, float *out, std::size_t count)
{
    const std::size_t width = half ? 2 : 4;
    unsigned char buffer[4096];
    while (count > 0)
    {
        const std::size_t chunk = std::min(count, sizeof buffer / width);
        if (std::fread(buffer, width, chunk, fp) != chunk)
            return false;
        for (std::size_t i = 0; i < chunk; ++i)
        {
            const unsigned char *b = buffer + i * width;
            if (half)
                out[i] = half16::toFloat(static_cast<uint16>(b[0] | (b[1] << 8)));
            else
            {
                const uint32 bits = static_cast<uint32>(b[0]) | (static_cast<uint32>(b[1]) << 8) |
                                    (static_cast<uint32>(b[2]) << 16) | (static_cast<uint32>(b[3]) << 24);
                std::memcpy(out + i, &bits, 4);
            }
        }
        out += chunk;
        count -= chunk;
    }
    return true;
}

// False when the stream is seekable and holds fewer than `bytes` more bytes:
// lets the reader refuse a truncated file before allocating for it. Streams
// that cannot seek (pipes) pass.
bool mayHold(FILE *fp, int64 bytes)
{
    const long here = std::ftell(fp);
    if (here < 0 || std::fseek(fp, 0, SEEK_END) != 0)
        return true;
    const long end = std::ftell(fp);
    std::fseek(fp, here, SEEK_SET);
    return end < 0 || static_cast<int64>(end - here) >= bytes;
}
} // namespace

bool IMB_Lookup::saveBinary(FILE *fp, bool half) const
{
    if (!fp)
        return false;
    const int32 type = myType;
    const int version = lookupFileVersion(type);
    bool ok = std::fwrite("ZLUT", 1, 4, fp) == 4;
    ok = ok && writeInt32(fp, version) && writeInt32(fp, mySpecificFormat) && writeInt32(fp, type);
    for (float v : {myDomainMin, myDomainMax, myRangeMin, myRangeMax, myBlackPoint, myWhitePoint})
        ok = ok && writeFloat32(fp, v);
    if (version == 3)
        ok = ok && writeFloat32(fp, myLogBias);

    // The kind byte is 2 (half + 51): 'f' for floats, 'h' for halves.
    const uint8 kind = static_cast<uint8>(2 * ((half ? 1 : 0) + 51));
    if (type & 63)
    {
        const int64 n = myClip->getTrackLength();
        const int tracks = myClip->getNumTracks();
        ok = ok && writeInt32(fp, static_cast<int32>(n)) && writeInt32(fp, tracks) && writeByte(fp, kind);
        for (int t = 0; ok && t < tracks; ++t)
        {
            const double *samples = myClip->getTrack(t)->getData();
            if (samples && n > 0)
                ok = writeSamples(fp, half, n, [samples](int64 i) { return narrowSample(samples[i]); });
        }
    }
    if (type & IMB_LUT_3D)
    {
        const float *cube = my3DTable.get();
        const int64 n = cube ? my3DSize : 0;
        const int64 e = n + 1;
        ok = ok && writeInt32(fp, static_cast<int32>(n)) && writeByte(fp, kind);
        for (int64 k = 0; ok && k < n; ++k)
            for (int64 j = 0; ok && j < n; ++j)
            {
                const float *row = cube + 3 * (e * j + e * e * k);
                ok = writeSamples(fp, half, 3 * n, [row](int64 c) { return row[c]; });
            }
    }
    return ok;
}

bool IMB_Lookup::loadBinary(FILE *fp, bool headerOnly)
{
    if (!fp)
        return false;
    char magic[4];
    if (std::fread(magic, 1, 4, fp) != 4 || std::memcmp(magic, "ZLUT", 4) != 0)
        return false;
    int32 version;
    if (!readInt32(fp, version))
        return false;
    if (version >= 4)
    {
        printStderr(format("LUT reader is version {}: LUT is version {}.\n", 3, version));
        return false;
    }

    int32 specificFormat, type;
    float fields[6];
    if (!readInt32(fp, specificFormat) || !readInt32(fp, type))
        return false;
    for (float &f : fields)
        if (!readFloat32(fp, f))
            return false;
    myDomainMin = fields[0];
    myDomainMax = fields[1];
    myRangeMin = fields[2];
    myRangeMax = fields[3];
    myBlackPoint = fields[4];
    myWhitePoint = fields[5];
    myPreShift = 0.0f;
    if (version == 3)
    {
        float bias;
        if (!readFloat32(fp, bias))
            return false;
        setLogBias(bias);
    }
    if (type < 1 || type > 320 || specificFormat < 0 || specificFormat > IMB_MAX_DATA_FORMAT)
        return false;
    myType = static_cast<IMB_LookupType>(type);
    mySpecificFormat = static_cast<IMB_DataFormat>(specificFormat);

    if (type & 63)
    {
        int32 n, tracks;
        uint8 kind;
        if (!readInt32(fp, n) || !readInt32(fp, tracks) || !readByte(fp, kind))
            return false;
        if (n < 1 || n > kMaxLookupLength || tracks < 1 || tracks > 4 ||
            (kind != kFloatSamples && kind != kHalfSamples))
            return false;
        const bool half = kind == kHalfSamples;
        myHalfPrec = half;
        myClip->setTrackLength(n);
        for (int t = 0; t < tracks; ++t)
            myClip->addTrack("lut");
        if (headerOnly)
            return true;
        std::vector<float> samples(static_cast<std::size_t>(n));
        for (int t = 0; t < tracks; ++t)
        {
            if (!readSamples(fp, half, samples.data(), samples.size()))
                return false;
            double *dst = myClip->getTrack(t)->getData();
            for (int32 i = 0; i < n; ++i)
                dst[i] = samples[static_cast<std::size_t>(i)];
        }
    }

    if (type & IMB_LUT_3D)
    {
        int32 n;
        uint8 kind;
        if (!readInt32(fp, n) || !readByte(fp, kind))
            return false;
        if (n < 0 || n > kMaxLookupCubeEdge || (kind != kFloatSamples && kind != kHalfSamples))
            return false;
        const bool half = kind == kHalfSamples;
        myHalfPrec = half;
        if (headerOnly)
            return true;
        const int64 triples = static_cast<int64>(n) * n * n;
        if (!mayHold(fp, triples * 3 * (half ? 2 : 4)))
            return false;
        if (n == 0)
        {
            free3DTable();
            return true;
        }
        alloc3DTable(n);
        PaddedCubeFiller filler(my3DTable.get(), n);
        std::vector<float> row(static_cast<std::size_t>(3 * n));
        for (int64 r = 0; r < triples / n; ++r)
        {
            if (!readSamples(fp, half, row.data(), row.size()))
                return false;
            for (int i = 0; i < n; ++i)
                filler.push(row[3 * i], row[3 * i + 1], row[3 * i + 2]);
        }
    }
    return true;
}
