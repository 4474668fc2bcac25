// The text form of lookup tables (".lut"): writer and reader.
//
// The form is a header of keyword lines, "LUT:", then the 1D blocks
// ("label { values }") and the cube block ("{ r g b ... }"). Tokens are
// separated by blanks and tabs, "#" starts a comment, keywords are compared
// without regard to case. Sizes are bounded by the limits of the binary form
// (tracks of at most 65536 samples, cubes of at most 256 per edge) so that no
// file makes the reader allocate more than the largest table either form can
// hold.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include "lookup/LookupFileForms.h"
#include "platform/BAS_WorkBuffer.h"
#include "platform/Log.h"
#include "platform/PLT_Math.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <strings.h>
#include <string>
#include <string_view>

using imb_detail::format;
using imb_detail::printStderr;

namespace
{
bool iequals(std::string_view a, const char *b)
{
    const std::size_t n = std::strlen(b);
    return a.size() == n && strncasecmp(a.data(), b, n) == 0;
}

// A number token, 0 when missing or malformed.
float numberOr0(std::string_view token)
{
    float v = 0.0f;
    PLTparseFloat(token, v);
    return v;
}

// The version check reads its number the way atoi does: leading digits with
// an optional sign, anything after them ignored, 0 when there are none.
// Saturates instead of overflowing.
long atoiLike(std::string_view token)
{
    std::size_t p = 0;
    bool negative = false;
    if (p < token.size() && (token[p] == '+' || token[p] == '-'))
        negative = token[p++] == '-';
    long v = 0;
    for (; p < token.size() && token[p] >= '0' && token[p] <= '9'; ++p)
    {
        v = v * 10 + (token[p] - '0');
        if (v > INT_MAX)
            v = INT_MAX;
    }
    return negative ? -v : v;
}

const char *formatWord(int format)
{
    switch (format)
    {
    case IMB_INT8: return "i8";
    case IMB_INT16: return "i16";
    case IMB_INT32: return "i32";
    case IMB_FLOAT32: return "f32";
    case IMB_FLOAT16: return "f16";
    default: return "any";
    }
}

struct TypeWord
{
    const char *word;
    IMB_LookupType type;
};
constexpr TypeWord theTypeWords[] = {
    {"R", IMB_LUT_R},     {"G", IMB_LUT_G},       {"B", IMB_LUT_B},  {"A", IMB_LUT_A},
    {"RGB", IMB_LUT_RGB}, {"RGBA", IMB_LUT_RGBA}, {"C", IMB_LUT_C},  {"All", IMB_LUT_ALL},
    {"3D", IMB_LUT_3D},   {"3D+1D", IMB_LUT_3D_1D},
};

struct FormatWord
{
    const char *word;
    IMB_DataFormat format;
};
constexpr FormatWord theFormatWords[] = {
    {"i8", IMB_INT8},     {"i16", IMB_INT16},   {"i32", IMB_INT32},
    {"f32", IMB_FLOAT32}, {"f16", IMB_FLOAT16}, {"any", IMB_MAX_DATA_FORMAT},
};

// The label of 1D track `index` of a table of type `base` (flag removed), or
// null when the track is not written.
const char *blockLabel(int32 base, int index)
{
    static const char *const channel[] = {"R", "G", "B", "A"};
    switch (base)
    {
    case IMB_LUT_RGB:
    case IMB_LUT_RGBA: return index < 4 ? channel[index] : nullptr;
    case IMB_LUT_R: return "R";
    case IMB_LUT_G: return "G";
    case IMB_LUT_B: return "B";
    case IMB_LUT_A: return "A";
    case IMB_LUT_C: return index == 0 ? "RGB" : nullptr;
    case IMB_LUT_ALL: return index == 0 ? "All" : nullptr;
    case IMB_LUT_3D_1D: return index == 0 ? "Pre" : nullptr;
    default: return nullptr;
    }
}

// Tokens of the block part, with one token of look-ahead that can be put back.
class BlockTokens
{
public:
    explicit BlockTokens(BAS_WorkBuffer &wb) : myBuffer(wb) {}

    bool next(std::string &token)
    {
        if (myHasPushed)
        {
            myHasPushed = false;
            token = myPushed;
            return true;
        }
        std::string_view view;
        if (!myBuffer.getToken(view))
            return false;
        token.assign(view.data(), view.size());
        return true;
    }
    void putBack(const std::string &token)
    {
        myPushed = token;
        myHasPushed = true;
    }
    int line() const { return myBuffer.lineNumber(); }

private:
    BAS_WorkBuffer &myBuffer;
    std::string myPushed;
    bool myHasPushed = false;
};

bool failAt(int line)
{
    printStderr(format("LUT failed to load: error on line {}\n", line));
    return false;
}
} // namespace

// ---------------------------------------------------------------- writer

bool IMB_Lookup::save(FILE *fp) const
{
    if (!fp)
        return false;
    const int32 type = myType;
    const int32 base = type & ~IMB_LUT_LOG_SAMPLING;
    const int version = imb_detail::lookupFileVersion(type);

    std::fprintf(fp, "Version\t\t%d\n", version);
    std::fprintf(fp, "Format\t\t%s\n", formatWord(mySpecificFormat));
    for (const TypeWord &t : theTypeWords)
    {
        if (t.type == base)
        {
            std::fprintf(fp, "Type\t\t%s\n", t.word);
            break;
        }
    }
    std::fprintf(fp, "From\t\t%g %g\n", myDomainMin, myDomainMax);
    std::fprintf(fp, "To\t\t%g %g\n", myRangeMin, myRangeMax);
    std::fprintf(fp, "Black\t\t%g\n", myBlackPoint);
    std::fprintf(fp, "White\t\t%g\n", myWhitePoint);
    if (type == IMB_LUT_3D_1D)
        std::fprintf(fp, "Length\t\t%d %d\n", my3DSize, getTableSize());
    else
        std::fprintf(fp, "Length\t\t%d\n", (type & IMB_LUT_3D) ? my3DSize : getTableSize());
    if (type & IMB_LUT_LOG_SAMPLING)
        std::fprintf(fp, "Sampling\tLog\n");
    else if (version == 3)
        std::fprintf(fp, "Sampling\tLinear\n");
    std::fprintf(fp, "LUT:\n");
    if (type & 63)
        save1D(fp);
    if (type & IMB_LUT_3D)
        save3D(fp);
    return true;
}

void IMB_Lookup::save1D(FILE *fp) const
{
    const int32 base = myType & ~IMB_LUT_LOG_SAMPLING;
    const int64 n = myClip->getTrackLength();
    for (int t = 0; t < myClip->getNumTracks(); ++t)
    {
        // The first track without a label ends the blocks: the unused
        // tracks of shared tables are not written.
        const char *label = blockLabel(base, t);
        if (!label)
            break;
        std::fprintf(fp, "%s {\n", label);
        const double *samples = myClip->getTrack(t)->getData();
        if (n <= 0 || !samples)
        {
            std::fprintf(fp, "\t}\n");
            continue;
        }
        for (int64 i = 0; i + 1 < n; ++i)
            std::fprintf(fp, "\t%g\n", samples[i]);
        std::fprintf(fp, "\t%g }\n", samples[n - 1]);
    }
}

void IMB_Lookup::save3D(FILE *fp) const
{
    const int32 type = myType;
    std::fprintf(fp, (type == IMB_LUT_3D_1D || type == (IMB_LUT_3D | IMB_LUT_LOG_SAMPLING)) ? " 3D {\n" : " {\n");
    const float *cube = my3DTable.get();
    const int64 n = cube ? my3DSize : 0;
    const int64 e = n + 1;
    for (int64 k = 0; k < n; ++k)
        for (int64 j = 0; j < n; ++j)
            for (int64 i = 0; i < n; ++i)
            {
                const float *c = cube + 3 * (i + e * j + e * e * k);
                std::fprintf(fp, " %g %g %g\n", c[0], c[1], c[2]);
            }
    std::fprintf(fp, " }\n");
}

// ---------------------------------------------------------------- reader

bool IMB_Lookup::load(FILE *fp, bool headerOnly)
{
    if (!fp)
        return false;
    BAS_WorkBuffer wb(fp, '#', " \t");

    // "Version" and a number no greater than 3 (read as atoi reads it, so a
    // word counts as 0; deliberate, files with such lines exist).
    std::string_view token;
    if (!wb.getToken(token) || !iequals(token, "Version"))
        return failAt(wb.lineNumber());
    if (!wb.nextToken(token) || atoiLike(token) > 3)
        return failAt(wb.lineNumber());
    myType = static_cast<IMB_LookupType>(0);

    // A cube's allocation waits for the end of the header, so a header that
    // repeats "Length" does not allocate more than once.
    int pendingCube = 0;
    auto commitCube = [&]() {
        if (pendingCube > 0)
            alloc3DTable(pendingCube);
        pendingCube = 0;
    };
    auto fail = [&](int line) {
        commitCube();
        return failAt(line);
    };

    bool sawLutLine = false;
    while (wb.readLine())
    {
        if (!wb.nextToken(token))
            continue;
        const int line = wb.lineNumber();
        if (iequals(token, "LUT:"))
        {
            sawLutLine = true;
            break;
        }
        std::string_view arg;
        if (!wb.nextToken(arg))
            arg = std::string_view();

        if (iequals(token, "Format"))
        {
            bool found = false;
            for (const FormatWord &f : theFormatWords)
            {
                if (iequals(arg, f.word))
                {
                    mySpecificFormat = f.format;
                    found = true;
                    break;
                }
            }
            if (!found)
            {
                printStderr(format("Bad format '{}' at line {}\n", arg, line));
                return fail(line);
            }
        }
        else if (iequals(token, "Type"))
        {
            bool found = false;
            for (const TypeWord &t : theTypeWords)
            {
                if (iequals(arg, t.word))
                {
                    // setType keeps the log flag except for 3D+1D, and sets
                    // the track count: "RGBA" gets three tracks, so its "A"
                    // block later lands on track 0 (kept as designed).
                    setType(t.type);
                    found = true;
                    break;
                }
            }
            if (!found)
            {
                printStderr(format("Bad type '{}' at line {}\n", arg, line));
                return fail(line);
            }
        }
        else if (iequals(token, "From"))
        {
            std::string_view b;
            wb.nextToken(b);
            setDomain(numberOr0(arg), numberOr0(b));
        }
        else if (iequals(token, "To"))
        {
            std::string_view b;
            wb.nextToken(b);
            setRange(numberOr0(arg), numberOr0(b));
        }
        else if (iequals(token, "Black"))
            myBlackPoint = numberOr0(arg);
        else if (iequals(token, "White"))
            myWhitePoint = numberOr0(arg);
        else if (iequals(token, "LogBias"))
            setLogBias(numberOr0(arg));
        else if (iequals(token, "Sampling"))
        {
            if (iequals(arg, "log"))
                setLogSampling(true);
            // The sampling word is also read as the white point (0 for
            // "Log"/"Linear"): required by the format, files rely on it.
            myWhitePoint = numberOr0(arg);
        }
        else if (iequals(token, "Length"))
        {
            const int32 type = myType;
            const bool cube = (type & IMB_LUT_3D) != 0;
            const float limit = cube ? imb_detail::kMaxLookupCubeEdge : imb_detail::kMaxLookupLength;
            const float n = numberOr0(arg);
            if (!(n >= 1.0f && n <= limit))
            {
                printStderr(format("Bad Length of LUT '{}' at line {}\n", arg, line));
                return fail(line);
            }
            int length = static_cast<int>(n);
            if (cube)
                pendingCube = length;
            if (type == IMB_LUT_3D_1D)
            {
                std::string_view second;
                wb.nextToken(second);
                const float m = numberOr0(second);
                if (!(m >= 1.0f && m <= imb_detail::kMaxLookupLength))
                    return fail(line);
                length = static_cast<int>(m);
            }
            if (type & 63)
                setTableSize(length);
        }
        else
        {
            printStderr(format("Bad instruction: '{}' at line {}\n", token, line));
            return fail(line);
        }
    }
    commitCube();
    if (!sawLutLine || headerOnly)
        return true;

    // Blocks.
    BlockTokens tokens(wb);
    std::string tok;
    int cubesRead = 0;
    for (;;)
    {
        if (!tokens.next(tok))
            return true;
        const int32 type = myType;
        const bool hasCube = (type & IMB_LUT_3D) != 0;
        const bool has1D = (type & 63) != 0;

        bool isCube = false;
        if (hasCube && (!has1D || iequals(tok, "3D")))
        {
            isCube = true;
            if (++cubesRead > 1)
            {
                printStderr("Can only have 1 3D LUT\n");
                return failAt(tokens.line());
            }
            if (iequals(tok, "3D") && !tokens.next(tok))
                return true;
            if (tok != "{")
            {
                printStderr(format("Missing {{ for 3D LUT on line {}\n", tokens.line()));
                return failAt(tokens.line());
            }
        }

        if (isCube)
        {
            imb_detail::PaddedCubeFiller filler(my3DTable.get(), my3DTable ? my3DSize : 0);
            std::string g, b;
            while (filler.remaining() > 0)
            {
                if (!tokens.next(tok))
                    return true;
                if (tok == "}")
                {
                    printStderr(format("Not enough values for 3D LUT, need {} more \n", filler.remaining()));
                    return failAt(tokens.line());
                }
                if (!tokens.next(g) || !tokens.next(b))
                    return true;
                float rv, gv, bv;
                const bool okR = PLTparseFloat(tok, rv);
                const bool okG = PLTparseFloat(g, gv);
                const bool okB = PLTparseFloat(b, bv);
                if (!okR || !okG || !okB)
                {
                    printStderr(format("Bad 3D LUT entry ' {} {} {}' on line {}\n", tok, g, b, tokens.line()));
                    return failAt(tokens.line());
                }
                filler.push(rv, gv, bv);
            }
            // The closing brace; anything else starts the next block.
            if (!tokens.next(tok))
                return true;
            if (tok != "}")
                tokens.putBack(tok);
            continue;
        }

        // A 1D block: label, "{", the track's samples, "}".
        int index = 0;
        if (iequals(tok, "G"))
            index = 1;
        else if (iequals(tok, "B"))
            index = 2;
        else if (iequals(tok, "A"))
            index = 3;
        if (index >= myClip->getNumTracks())
            index = 0;
        if (!tokens.next(tok))
            return true;
        if (tok != "{")
        {
            printStderr(format("Missing {{ on line {}\n", tokens.line()));
            return failAt(tokens.line());
        }
        CRV_Track *track = myClip->getTrack(index);
        double *samples = track ? track->getData() : nullptr;
        const int64 n = samples ? myClip->getTrackLength() : 0;
        const bool preTable = type == IMB_LUT_3D_1D;
        for (int64 i = 0; i < n; ++i)
        {
            if (!tokens.next(tok))
                return true;
            float v;
            if (!PLTparseFloat(tok, v))
            {
                printStderr(format("Bad LUT value '{}' on line {}\n", tok, tokens.line()));
                return failAt(tokens.line());
            }
            if (preTable)
                v = v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
            samples[i] = v;
        }
        if (!tokens.next(tok))
            return true;
        if (tok != "}")
            tokens.putBack(tok);
    }
}
