// Standard uuencoding and decoding (see BAS_UUEncode.h for the form).
#include <IMB/platform/BAS_UUEncode.h>

#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>

namespace
{
constexpr size_t bytesPerLine = 45;

inline char encodeSix(unsigned v) { return v ? char(v + 32) : '`'; }

// A six-bit value from a data character, or -1 for a character outside
// ' '..'`'.
inline int decodeSix(unsigned char c) { return (c >= 0x20 && c <= 0x60) ? int((c - 0x20) & 0x3F) : -1; }

// Where decoded bytes go: a std::ostream or a bounded memory block.
struct Sink
{
    std::ostream *os = nullptr;
    unsigned char *mem = nullptr;
    size_t capacity = 0;
    size_t written = 0;

    bool put(const unsigned char *bytes, size_t n)
    {
        if (os)
        {
            os->write(reinterpret_cast<const char *>(bytes), std::streamsize(n));
            if (!*os)
                return false;
        }
        else
        {
            if (n > capacity - written)
                return false;
            std::memcpy(mem + written, bytes, n);
        }
        written += n;
        return true;
    }
};

bool isEndLine(const std::string &line)
{
    size_t n = line.size();
    while (n > 3 && (line[n - 1] == ' ' || line[n - 1] == '\t'))
        --n;
    return n == 3 && line.compare(0, 3, "end") == 0;
}

bool decode(BAS_IStream &in, Sink &sink)
{
    std::string line;
    // Skip to the begin line.
    for (;;)
    {
        if (!in.readLine(line))
            return false;
        if (line.compare(0, 6, "begin ") == 0)
            break;
    }
    unsigned char out[64];
    for (;;)
    {
        if (!in.readLine(line))
            return false; // no "end"
        if (isEndLine(line))
            return true;
        if (line.empty())
            return false;
        int len = decodeSix(static_cast<unsigned char>(line[0]));
        if (len < 0)
            return false;
        if (len == 0)
        {
            // The empty data line: "end" must follow.
            return in.readLine(line) && isEndLine(line);
        }
        const size_t groups = (size_t(len) + 2) / 3;
        if (line.size() < 1 + 4 * groups)
            return false;
        size_t n = 0;
        for (size_t g = 0; g < groups; ++g)
        {
            int v[4];
            for (int k = 0; k < 4; ++k)
            {
                v[k] = decodeSix(static_cast<unsigned char>(line[1 + 4 * g + k]));
                if (v[k] < 0)
                    return false;
            }
            out[n++] = static_cast<unsigned char>((v[0] << 2) | (v[1] >> 4));
            out[n++] = static_cast<unsigned char>(((v[1] & 0xF) << 4) | (v[2] >> 2));
            out[n++] = static_cast<unsigned char>(((v[2] & 0x3) << 6) | v[3]);
        }
        if (!sink.put(out, size_t(len)))
            return false;
    }
}
} // namespace

int BASuuencode(BAS_IStream &in, std::ostream &out, const char *name, int mode)
{
    char head[64];
    std::snprintf(head, sizeof head, "begin %o ", unsigned(mode));
    out << head << ((name && *name) ? name : "-") << '\n';
    unsigned char buf[bytesPerLine];
    char text[2 + 4 * (bytesPerLine / 3)];
    for (;;)
    {
        size_t n = in.read(buf, bytesPerLine);
        if (n == 0)
            break;
        size_t t = 0;
        text[t++] = char(n + 32);
        for (size_t i = 0; i < n; i += 3)
        {
            unsigned b0 = buf[i], b1 = i + 1 < n ? buf[i + 1] : 0, b2 = i + 2 < n ? buf[i + 2] : 0;
            text[t++] = encodeSix(b0 >> 2);
            text[t++] = encodeSix(((b0 & 0x3) << 4) | (b1 >> 4));
            text[t++] = encodeSix(((b1 & 0xF) << 2) | (b2 >> 6));
            text[t++] = encodeSix(b2 & 0x3F);
        }
        text[t++] = '\n';
        out.write(text, std::streamsize(t));
        if (!out)
            return 0;
        if (n < bytesPerLine)
            break;
    }
    out << "`\nend\n";
    return out ? 1 : 0;
}

bool BASuudecode(BAS_IStream &in, std::ostream &out)
{
    Sink sink;
    sink.os = &out;
    return decode(in, sink);
}

bool BASuudecode(BAS_IStream &in, void *dst, size_t capacity, size_t *written)
{
    Sink sink;
    sink.mem = static_cast<unsigned char *>(dst);
    sink.capacity = dst ? capacity : 0;
    bool ok = decode(in, sink);
    if (written)
        *written = sink.written;
    return ok;
}
