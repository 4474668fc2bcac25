// Fuzzes the JSON form of deep sample lists: arbitrary bytes are parsed as a
// sample list with a fixed channel list; a loaded list is written back and
// read again, and the second reading must succeed and agree.
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
BAS_IntrusivePtr<IMB_DeepChannelList> channels()
{
    static BAS_IntrusivePtr<IMB_DeepChannelList> chans = [] {
        BAS_IntrusivePtr<IMB_DeepChannelList> c(new IMB_DeepChannelList);
        c->addChannel("C", 3);
        c->addChannel("A", 1);
        c->addChannel("id", 1, true);
        return c;
    }();
    return chans;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    BAS_JSONParser parser(reinterpret_cast<const char *>(data), static_cast<exint>(size));
    BAS_IntrusivePtr<IMB_DeepSampleList> list = IMB_DeepSampleList::load(parser, channels());
    if (!list)
        return 0;
    if (list->sampleCount() <= 0)
        std::abort();

    // Write the list back and read it again.
    BAS_JSONWriter writer;
    if (!IMB_DeepSampleList::save(writer, list, channels()))
        std::abort();
    const std::string text = writer.str();
    BAS_JSONParser again(text);
    BAS_IntrusivePtr<IMB_DeepSampleList> back = IMB_DeepSampleList::load(again, channels());
    if (!back || back->sampleCount() != list->sampleCount() || back->preComposited() != list->preComposited() ||
        again.hasFatal() || !again.warnings().isEmpty())
        std::abort();
    for (int i = 0; i < list->sampleCount(); ++i)
        if (back->coverage(i) != list->coverage(i) || back->flags(i) != list->flags(i))
            std::abort();
    return 0;
}
