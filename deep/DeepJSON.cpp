// IMB_DeepSampleList: the JSON form (save and load).
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include "platform/Log.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace
{
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;

constexpr const char *kChannelPrefix = "ch.";
constexpr std::size_t kChannelPrefixLength = 3;

enum class Key
{
    Composited,
    SampleCount,
    Zfront,
    Zback,
    Coverage,
    Flags,
    Other
};

// The fixed keys of the form (case-sensitive).
Key lookupKey(const char *name)
{
    static const struct
    {
        const char *name;
        Key key;
    } kKeys[] = {{"composited", Key::Composited}, {"sampleCount", Key::SampleCount}, {"zfront", Key::Zfront},
                 {"zback", Key::Zback},           {"coverage", Key::Coverage},       {"flags", Key::Flags}};
    for (const auto &k : kKeys)
        if (std::strcmp(k.name, name) == 0)
            return k.key;
    return Key::Other;
}

const char *tokenName(BAS_JSONParser::Token t)
{
    switch (t)
    {
    case BAS_JSONParser::Token::Null: return "<null>";
    case BAS_JSONParser::Token::Bool: return "<boolean>";
    case BAS_JSONParser::Token::Number: return "<number>";
    case BAS_JSONParser::Token::BeginArray: return "<array>";
    case BAS_JSONParser::Token::BeginMap: return "<map>";
    default: return "<token>";
    }
}

// Walks the items of the list's array (or map) from `start`, calling
// visit(key, missingKey) with the parser at the item's value; visit must
// consume the value or skip it. A non-string where an array expects a key is
// handed to visitStray and skipped. Returns false when visit asks to stop.
template <typename Visit, typename Stray>
bool walkItems(BAS_JSONParser &parser, exint start, Visit &&visit, Stray &&visitStray)
{
    parser.rewind(start);
    if (parser.peek() == BAS_JSONParser::Token::BeginMap)
    {
        for (auto it = parser.beginMap(); !it.atEnd(); it.advance())
        {
            BAS_StringHolder key;
            if (!parser.parseKey(key))
            {
                if (!parser.skipNextObject())
                    break;
                continue;
            }
            if (!visit(key, key.isEmpty()))
                return false;
        }
        return true;
    }
    auto it = parser.beginArray();
    if (!it.isValid())
    {
        parser.skipNextObject();
        return true;
    }
    for (; !it.atEnd(); it.advance())
    {
        BAS_StringHolder key;
        if (!parser.parseString(key))
        {
            visitStray(parser.peek());
            if (!parser.skipNextObject())
                break;
            continue;
        }
        if (!visit(key, false))
            return false;
    }
    return true;
}

// Reads an array of `expected` entries into `buffer`, warning when the array
// has another length (or is not an array at all).
template <typename T> void readArray(BAS_JSONParser &parser, T *buffer, exint expected)
{
    exint count = 0;
    if (!parser.parseUniformArray(buffer, expected, count))
    {
        parser.skipNextObject();
        count = 0;
    }
    if (count != expected)
        parser.addWarning(imb_detail::format("Expected array to be {} entries (not {})", expected, count));
}
} // namespace

bool IMB_DeepSampleList::save(BAS_JSONWriter &writer, const BAS_IntrusivePtr<IMB_DeepChannelList> &channels) const
{
    const ChannelsPtr &names = channels ? channels : myChannels;
    if (!writer.jsonBeginArray())
        return false;
    if (!writer.jsonKeyToken("composited") || !writer.jsonBool(myPreComposited))
        return false;
    if (!writer.jsonKeyToken("sampleCount") || !writer.jsonInt(mySampleCount))
        return false;
    if (mySampleCount > 0)
    {
        const exint n = mySampleCount;
        if (!writer.jsonKeyToken("zfront") || !writer.jsonUniformArray(myZfront, n))
            return false;
        if (!writer.jsonKeyToken("zback") || !writer.jsonUniformArray(myZback, n))
            return false;
        if (!writer.jsonKeyToken("coverage") || !writer.jsonUniformArray(myCoverage, n))
            return false;
        if (!writer.jsonKeyToken("flags") || !writer.jsonUniformArray(myFlags, n))
            return false;
        // Names come from the given list; plane sizes always from this list's
        // own layout, so a foreign list cannot make the writer read past a plane.
        const int nch = names ? std::min(names->channelCount(), channelCount()) : 0;
        for (int ch = 0; ch < nch; ++ch)
        {
            const std::string key = kChannelPrefix + names->name(ch).toStdString();
            if (!writer.jsonKeyToken(key.c_str()) ||
                !writer.jsonUniformArray(myChannelData[ch], n * myChannels->tupleSize(ch)))
                return false;
        }
    }
    return writer.jsonEndArray();
}

bool IMB_DeepSampleList::save(BAS_JSONWriter &writer, const BAS_IntrusivePtr<IMB_DeepSampleList> &list,
                              const BAS_IntrusivePtr<IMB_DeepChannelList> &channels)
{
    if (list)
        return list->save(writer, channels);
    return writer.jsonBeginArray() && writer.jsonEndArray();
}

BAS_IntrusivePtr<IMB_DeepSampleList> IMB_DeepSampleList::load(BAS_JSONParser &parser,
                                                              const BAS_IntrusivePtr<IMB_DeepChannelList> &channels)
{
    const exint start = parser.position();
    const int fatalsBefore = parser.fatals().size();
    auto failed = [&] { return parser.fatals().size() != fatalsBefore; };

    // First pass: the count and the pre-composited flag.
    ListPtr list;
    bool composited = false;
    bool haveCount = false;
    const bool whole = walkItems(
        parser, start,
        [&](const BAS_StringHolder &key, bool) {
            switch (lookupKey(key.c_str()))
            {
            case Key::SampleCount:
            {
                if (haveCount)
                {
                    parser.addFatal("Multiple deep sample list counts specified");
                    return false;
                }
                haveCount = true;
                int64 count = 0;
                if (!parser.parseInteger(count))
                {
                    parser.skipNextObject();
                    return true;
                }
                // A written list spends more than one byte per sample, so a
                // count above the input's size cannot be genuine; refusing it
                // keeps the allocation proportional to the input.
                if (count > parser.inputSize() || count > std::numeric_limits<int>::max())
                {
                    parser.addFatal(
                        imb_detail::format("Deep sample count {} is larger than the input can hold", count));
                    return false;
                }
                if (count > 0)
                    list.reset(new IMB_DeepSampleList(channels, static_cast<int>(count), composited));
                return true;
            }
            case Key::Composited:
                if (parser.parseBool(composited))
                {
                    // A flag given after the count still applies to the list.
                    if (list)
                        list->setPreComposited(composited);
                }
                else
                    parser.skipNextObject();
                return true;
            default: parser.skipNextObject(); return true;
            }
        },
        [](BAS_JSONParser::Token) {});
    if (!whole || failed())
    {
        // Leave the parser after the value, as a successful load does.
        parser.rewind(start);
        parser.skipNextObject();
        return ListPtr();
    }
    if (!list)
    {
        parser.addFatal("Missing deep sample count for list");
        return ListPtr();
    }

    // Second pass: the data.
    const exint n = list->sampleCount();
    walkItems(
        parser, start,
        [&](const BAS_StringHolder &key, bool missingKey) {
            if (missingKey)
            {
                parser.addWarning("Missing key while parsing map");
                parser.skipNextObject();
                return true;
            }
            switch (lookupKey(key.c_str()))
            {
            case Key::Zfront: readArray(parser, list->zfrontBuffer(), n); break;
            case Key::Zback: readArray(parser, list->zbackBuffer(), n); break;
            case Key::Coverage: readArray(parser, list->coverageBuffer(), n); break;
            case Key::Flags: readArray(parser, list->flagBuffer(), n); break;
            case Key::Composited:
            case Key::SampleCount: parser.skipNextObject(); break; // read by the first pass
            case Key::Other:
            {
                const char *name = key.c_str();
                if (std::strncmp(name, kChannelPrefix, kChannelPrefixLength) == 0)
                {
                    name += kChannelPrefixLength;
                    const int ch = channels ? channels->findChannel(name) : -1;
                    if (ch < 0)
                    {
                        parser.addWarning(imb_detail::format("Unknown channel: {}", name));
                        parser.skipNextObject();
                    }
                    else
                        readArray(parser, list->channelBuffer(ch), n * channels->tupleSize(ch));
                }
                else
                {
                    parser.addWarning(imb_detail::format("Unknown pixel token: {}", name));
                    parser.skipNextObject();
                }
                break;
            }
            }
            return true;
        },
        [&](BAS_JSONParser::Token t) {
            parser.addWarning(imb_detail::format("Unknown pixel token: {}", tokenName(t)));
        });
    return list;
}
