// IMB_Raster::applyLUT: 1D tables on 8- and 16-bit rasters through direct
// tables. The per-value results come from IMB_Lookup::buildValueMaps, the
// same rule IMB_Lookup::applyLUT applies, so only the walk differs: 8-bit
// components go 64 at a time through tables held in vector registers where
// the processor has byte permutes (platform/ByteMap-inl.h), else two at
// a time through 65,536-entry tables of byte pairs (half the lookups of one
// table per byte); 16-bit components one at a time.

#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_Raster.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include "platform/ByteMap.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{
// Rasters up to this many pixels run on the calling thread, as in
// IMB_Lookup::applyLUT.
constexpr int64 kSingleThreadPixels = 100000;

// Byte runs whose byte i belongs to channel i mod `channels` (1 to 4), read
// as 16-bit words; word w goes through pair table w mod kinds, where kinds
// is lcm(2, channels) / 2.
struct PairTables
{
    int kinds = 1;
    int period = 1;
    std::vector<uint16> table; // kinds x 65536 entries
    std::vector<uint8> single; // period x 256 entries, for the vector kernel

    // maps[c] (256 entries each) for the channels of the run.
    PairTables(const uint8 *const maps[4], int channels) : period(channels)
    {
        for (int c = 0; c < channels; ++c)
            single.insert(single.end(), maps[c], maps[c] + 256);
        kinds = channels % 2 == 0 ? channels / 2 : channels;
        table.resize(static_cast<std::size_t>(kinds) * 65536);
        for (int k = 0; k < kinds; ++k)
        {
            const uint8 *lo = maps[(2 * k) % channels], *hi = maps[(2 * k + 1) % channels];
            uint16 *t = &table[static_cast<std::size_t>(k) * 65536];
            for (int b = 0; b < 256; ++b)
                for (int a = 0; a < 256; ++a)
                    t[b * 256 + a] = static_cast<uint16>(lo[a] | (hi[b] << 8));
        }
    }

    // Maps `words` 16-bit words from `p` in place; the first is of kind 0.
    // The vector kernel takes what it can of runs whose channel period is
    // 1, 2 or 4 (its whole vectors keep the pairs aligned).
    template <int K> void mapWords(uint8 *p, int64 words) const
    {
        const uint16 *t = table.data();
        int64 w = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        // K 64-bit loads hold 4K words, a whole number of periods.
        for (; w + 4 * K <= words; w += 4 * K)
            for (int j = 0; j < K; ++j)
            {
                uint64 v;
                std::memcpy(&v, p + 2 * (w + 4 * j), 8);
                uint64 o = 0;
                for (int s = 0; s < 4; ++s)
                {
                    const int kind = (4 * j + s) % K;
                    o |= static_cast<uint64>(t[kind * 65536 + ((v >> (16 * s)) & 0xffff)]) << (16 * s);
                }
                std::memcpy(p + 2 * (w + 4 * j), &o, 8);
            }
#endif
        for (; w < words; ++w)
        {
            uint16 v;
            std::memcpy(&v, p + 2 * w, 2);
            v = t[(w % K) * 65536 + v];
            std::memcpy(p + 2 * w, &v, 2);
        }
    }

    void map(uint8 *p, int64 words) const
    {
        if (period == 1 || period == 2 || period == 4)
        {
            const int64 done = imb_detail::mapBytes(p, 2 * words, single.data(), period);
            p += done;
            words -= done / 2;
        }
        switch (kinds)
        {
        case 1: return mapWords<1>(p, words);
        case 2: return mapWords<2>(p, words);
        default: return mapWords<3>(p, words);
        }
    }
};

// Copies the component of channel c of each pixel into the other colour
// channels (0-2 into the other two of R, G, B; 3 into R, G, B), as
// IMB_Lookup::applyLUT does after computing one channel.
void spreadChannel(IMB_Raster &r, int c, int64 first, int64 count)
{
    const int channels = imbDefinesPComp[r.getPacking()];
    const int64 bytes = imbDefinesDepth[r.getFormat()];
    if (c >= channels)
        return;
    const int64 step = (r.isInterleaved() ? imbDefinesPDepth[r.getPacking()] : 1) * bytes;
    const char *src = static_cast<const char *>(r.getPixel(0, 0, c)) + first * step;
    for (int d = 0; d < 3 && d < channels; ++d)
    {
        if (d == c)
            continue;
        char *dst = static_cast<char *>(r.getPixel(0, 0, d)) + first * step;
        for (int64 i = 0; i < count; ++i)
            std::memcpy(dst + i * step, src + i * step, static_cast<std::size_t>(bytes));
    }
}
} // namespace

void IMB_Raster::applyLUT(const IMB_Lookup &lut, float gamma, float black, float white, int channel)
{
    if (!isValid() || myFormat < IMB_INT8 || myFormat > IMB_FLOAT16 || myPacking < PACK_SINGLE ||
        myPacking > PACK_UV || myXres < 1 || myYres < 1)
        return;
    const int channels = imbDefinesPComp[myPacking];
    const int only = channel < 0 ? -1 : std::min(channel, 3);
    const bool eightBit = myFormat == IMB_INT8;
    if ((myFormat != IMB_INT8 && myFormat != IMB_INT16) || (lut.getType() & IMB_LUT_3D) || lut.getTableSize() < 1)
    {
        // Cubes, float, half and 32-bit rasters, and tables without samples.
        lut.applyLUT(*this, gamma, black, white, channel);
        return;
    }
    const std::size_t entries = eightBit ? 256 : 65536;
    std::vector<uint16> store(eightBit ? 4 * 256 / 2 : 4 * 65536);
    void *maps[4] = {nullptr, nullptr, nullptr, nullptr};
    for (int c = 0; c < channels && c < 4; ++c)
        maps[c] = reinterpret_cast<uint8 *>(store.data()) + c * entries * (eightBit ? 1 : 2);
    // No channel with a table (filled 0) still spreads a given channel.
    const int filled = lut.buildValueMaps(myFormat, maps, gamma, black, white, channel);

    // Channels the table leaves alone map each value to itself.
    for (int c = 0; c < channels && c < 4; ++c)
        if (!(filled & (1 << c)))
        {
            if (eightBit)
                for (int v = 0; v < 256; ++v)
                    static_cast<uint8 *>(maps[c])[v] = static_cast<uint8>(v);
            else
                for (int v = 0; v < 65536; ++v)
                    static_cast<uint16 *>(maps[c])[v] = static_cast<uint16>(v);
        }

    const int64 pixels = myXres * myYres;
    const bool interleaved = isInterleaved();
    const int step = interleaved ? imbDefinesPDepth[myPacking] : 1;
    const int planes = interleaved ? 1 : channels;
    // 8-bit: pair tables per plane (interleaved: one run over every channel).
    std::vector<PairTables> pairs;
    if (eightBit && filled)
        for (int k = 0; k < planes; ++k)
        {
            const uint8 *m[4];
            for (int c = 0; c < 4; ++c)
                m[c] = static_cast<const uint8 *>(maps[interleaved ? std::min(c, channels - 1) : k]);
            pairs.emplace_back(m, interleaved ? step : 1);
        }

    BAS_ThreadedAlgorithm runner(pixels <= kSingleThreadPixels ? 1 : 0);
    runner.run([&](int j, int m) {
        // An even number of pixels per worker keeps the byte pairs aligned.
        int64 chunk = (pixels + m - 1) / m;
        chunk += chunk & 1;
        const int64 first = std::min(pixels, chunk * j);
        const int64 count = std::min(chunk, pixels - first);
        if (count <= 0)
            return;
        for (int k = 0; k < planes && filled; ++k)
        {
            const int64 components = count * step;
            if (eightBit)
            {
                uint8 *p = static_cast<uint8 *>(getPixel(0, 0, k)) + first * step;
                pairs[static_cast<std::size_t>(k)].map(p, components / 2);
                if (components & 1) // the run's last byte, of the last channel
                {
                    const uint8 *map = static_cast<const uint8 *>(maps[interleaved ? step - 1 : k]);
                    p[components - 1] = map[p[components - 1]];
                }
            }
            else
            {
                uint16 *p = static_cast<uint16 *>(getPixel(0, 0, k)) + first * step;
                for (int64 i = 0; i < components; ++i)
                    p[i] = static_cast<const uint16 *>(maps[interleaved ? i % step : k])[p[i]];
            }
        }
        if (only >= 0)
            spreadChannel(*this, only, first, count);
    });
}
