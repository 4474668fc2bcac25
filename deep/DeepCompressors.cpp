// The deep compressors ("null", "simple") and the registry of their
// factories.
#include <IMB/IMB_DeepCompressor.h>
#include <IMB/platform/BAS_PriorityQueue.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace imb_detail
{
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;

// A heap item of the merges: one input list and its current sample. Key 0
// orders by the sample's zfront, key 1 by its zback; the key is cached so the
// heap never reaches into the list. The list is borrowed from the merge's
// input array, which keeps it alive.
template <int Key> struct PQueueItemT
{
    const IMB_DeepSampleList *list;
    int listIndex;
    int sample;
    float key;
    // Fills the record's 24 bytes. With padding there, copies move the
    // last word in 4 bytes and later reads take it in 8, which the
    // processor cannot forward from a store still in flight.
    int32 spare = 0;

    PQueueItemT() = default;
    PQueueItemT(const IMB_DeepSampleList *l, int index, int s)
        : list(l), listIndex(index), sample(s), key(Key == 0 ? l->zfront(s) : l->zback(s))
    {
    }
    bool operator<(const PQueueItemT &o) const { return key < o.key; }
};

// The channel list the output is built with: the compressor's, or the first
// non-empty input's when the compressor has none.
static ChannelsPtr outputChannels(const ChannelsPtr &mine, const ListPtr *lists, int count)
{
    if (mine)
        return mine;
    for (int i = 0; i < count; ++i)
        if (lists[i] && lists[i]->sampleCount() > 0)
            return lists[i]->channels();
    return ChannelsPtr();
}

// Inputs are copied sample by sample into a list of the output's layout, so a
// list of another layout cannot take part.
static bool usable(const ListPtr &list, const ChannelsPtr &channels)
{
    if (!list || list->sampleCount() <= 0)
        return false;
    const ChannelsPtr &own = list->channels();
    if (own == channels)
        return true;
    return own && channels && own->isEqual(*channels);
}

// One sample of the plain merge's output: its list and index there.
struct SamplePick
{
    const IMB_DeepSampleList *list;
    int sample;
};

// `out` takes all of `in`'s samples, which number out's count, plane by
// plane; both have the same channel layout.
static void copyPlanes(IMB_DeepSampleList &out, const IMB_DeepSampleList &in)
{
    out.copyZ(in);
    out.copyFlags(in);
    out.copySampleId(in);
    out.copyAllChannels(in);
}

// Sample k of `out` takes picks[k]'s depths, flags, coverage and channel
// tuples unchanged (as copySample with weight 1), one plane at a time.
static void gatherSamples(IMB_DeepSampleList &out, const SamplePick *picks, int n)
{
    float *zf = out.zfrontBuffer();
    float *zb = out.zbackBuffer();
    uint8 *fl = out.flagBuffer();
    uint64 *cov = out.coverageBuffer();
    for (int k = 0; k < n; ++k)
    {
        const IMB_DeepSampleList &l = *picks[k].list;
        const int i = picks[k].sample;
        zf[k] = l.zfront(i);
        zb[k] = l.zback(i);
        fl[k] = l.flags(i);
        cov[k] = l.coverage(i);
    }
    const ChannelsPtr &chans = out.channels();
    const int channelCount = chans ? chans->channelCount() : 0;
    for (int ch = 0; ch < channelCount; ++ch)
    {
        const int size = chans->tupleSize(ch);
        float *plane = out.channelBuffer(ch);
        auto copyTuples = [&](auto fixed) {
            constexpr int fixedLen = decltype(fixed)::value;
            const int len = fixedLen > 0 ? fixedLen : size;
            for (int k = 0; k < n; ++k)
            {
                const float *src = picks[k].list->channelBuffer(ch) + static_cast<exint>(picks[k].sample) * len;
                float *dst = plane + static_cast<exint>(k) * len;
                for (int c = 0; c < len; ++c)
                    dst[c] = src[c];
            }
        };
        switch (size)
        {
        case 1: copyTuples(std::integral_constant<int, 1>()); break;
        case 3: copyTuples(std::integral_constant<int, 3>()); break;
        case 4: copyTuples(std::integral_constant<int, 4>()); break;
        default: copyTuples(std::integral_constant<int, 0>()); break;
        }
    }
}

class baseCompressor : public IMB_DeepCompressor
{
public:
    explicit baseCompressor(const ChannelsPtr &channels) : myChannels(channels) {}

    const ChannelsPtr &channels() const override { return myChannels; }

protected:
    ListPtr doCompress(const ListPtr &list) const override { return list; }

    // Every input sample once, ordered by zfront; nothing combined or dropped.
    ListPtr doMerge(const ListPtr *lists, int count) const override
    {
        if (!lists || count <= 0)
            return ListPtr();
        const ChannelsPtr channels = outputChannels(myChannels, lists, count);
        BAS_PriorityQueue<PQueueItemT<0>> heap;
        heap.reserve(count);
        int total = 0;
        int usableCount = 0;
        int single = -1;
        bool preComposited = false;
        bool first = true;
        for (int i = 0; i < count; ++i)
        {
            if (!usable(lists[i], channels))
                continue;
            heap.push(PQueueItemT<0>(lists[i].get(), i, 0));
            ++usableCount;
            single = i;
            total += lists[i]->sampleCount();
            if (first)
                preComposited = lists[i]->preComposited();
            first = false;
        }
        if (total == 0)
            return ListPtr();

        ListPtr out(new IMB_DeepSampleList(channels, total, preComposited));
        if (usableCount == 1)
        {
            // One list: the merge is that list's own order, plane by plane.
            copyPlanes(*out, *lists[single]);
            return out;
        }
        // The merge order first, then each plane gathered in one pass.
        // The list just taken from usually stays on top for its next sample,
        // which one pass down the heap settles. Picks are written field by
        // field: a whole-record copy of fields just stored stalls the
        // processor's store forwarding.
        std::vector<SamplePick> picks(static_cast<std::size_t>(total));
        for (SamplePick *pick = picks.data(); !heap.isEmpty(); ++pick)
        {
            const PQueueItemT<0> &top = heap.top();
            const IMB_DeepSampleList *list = top.list;
            const int sample = top.sample;
            pick->list = list;
            pick->sample = sample;
            if (sample + 1 < list->sampleCount())
                heap.replaceTop(PQueueItemT<0>(list, top.listIndex, sample + 1));
            else
                heap.pop();
        }
        gatherSamples(*out, picks.data(), total);
        return out;
    }

    ChannelsPtr myChannels;
};

class nullCompressor : public baseCompressor
{
public:
    using baseCompressor::baseCompressor;
    const char *name() const override { return "null"; }
};

class simpleCompressor : public baseCompressor
{
public:
    simpleCompressor(const ChannelsPtr &channels, float zbias, float ofbias, const BAS_StringHolder &ofname)
        : baseCompressor(channels), zbias(zbias), ofbias(ofbias), ofname(ofname)
    {
        _ofidx = channels ? channels->findChannel(ofname.c_str()) : -1;
        ofsize = _ofidx >= 0 ? std::max(3, channels->tupleSize(_ofidx)) : 0;
    }

    const char *name() const override { return "simple"; }

protected:
    ListPtr doMerge(const ListPtr *lists, int count) const override;

    void doDump() const override
    {
        std::printf("{\n");
        std::printf("\tzbias : %g\n", zbias);
        std::printf("\tofname : '%s'\n", ofname.c_str());
        std::printf("\tofsize : %d\n", ofsize);
        std::printf("\tofbias : %g\n", ofbias);
        std::printf("\t_ofidx : %d\n", _ofidx);
        std::printf("}\n");
    }

private:
    float zbias;
    float ofbias;
    BAS_StringHolder ofname;
    int _ofidx;
    int ofsize;
};

namespace
{
// A volume sample between its zfront and its zback while the sweep is inside
// it: `given` is the fraction already handed to earlier output samples and
// `start` the depth where its remaining part begins.
struct OpenVolume
{
    const IMB_DeepSampleList *list;
    int sample;
    float weight;
    float given;
    float start;
};

// Builds the output samples of the simple merge one group at a time.
class GroupWriter
{
public:
    GroupWriter(IMB_DeepSampleList &out) : myOut(out) {}

    int count() const { return myCount; }

    // Adds `weight` of sample si of src, covering zf..zb, to the open group.
    void contribute(const IMB_DeepSampleList &src, int si, float weight, float zf, float zb, bool volumePart)
    {
        if (!(weight > 0.0f))
            return;
        if (!myHasSample)
        {
            myOut.copySample(myCount, src, si, weight);
            myHasSample = true;
            myBestWeight = weight;
            myFront = zf;
            myBack = zb;
            myFlags = src.flags(si);
            myVolume = volumePart;
            return;
        }
        myOut.addSample(myCount, src, si, weight);
        // Identifiers come whole from the heaviest contribution; an earlier
        // one keeps them on a tie.
        if (weight > myBestWeight)
        {
            myOut.setConditional(myCount, src, si);
            myBestWeight = weight;
        }
        myFront = std::min(myFront, zf);
        myBack = std::max(myBack, zb);
        myFlags |= src.flags(si);
        myVolume = myVolume || volumePart;
    }

    // Finishes the open group (if it received anything).
    void close()
    {
        if (!myHasSample)
            return;
        myOut.zfrontBuffer()[myCount] = myFront;
        myOut.zbackBuffer()[myCount] = myBack;
        unsigned char flags = static_cast<unsigned char>(myFlags & ~0x01u);
        if (myVolume && myBack > myFront)
            flags |= 0x01u;
        myOut.flagBuffer()[myCount] = flags;
        ++myCount;
        myHasSample = false;
    }

private:
    IMB_DeepSampleList &myOut;
    int myCount = 0;
    bool myHasSample = false;
    bool myVolume = false;
    float myBestWeight = 0.0f;
    float myFront = 0.0f;
    float myBack = 0.0f;
    unsigned myFlags = 0;
};
} // namespace

ListPtr simpleCompressor::doMerge(const ListPtr *lists, int count) const
{
    if (!lists || count <= 0)
        return ListPtr();
    const ChannelsPtr channels = outputChannels(myChannels, lists, count);
    BAS_PriorityQueue<PQueueItemT<0>> fronts;
    BAS_PriorityQueue<PQueueItemT<1>> backs;
    fronts.reserve(count);
    int total = 0;
    bool preComposited = false;
    bool first = true;
    for (int i = 0; i < count; ++i)
    {
        if (!usable(lists[i], channels))
            continue;
        fronts.push(PQueueItemT<0>(lists[i].get(), i, 0));
        total += lists[i]->sampleCount();
        if (first)
            preComposited = lists[i]->preComposited();
        first = false;
    }
    if (total == 0)
        return ListPtr();

    // Every group opens at a sample's zfront, so there are at most `total`.
    ListPtr out(new IMB_DeepSampleList(channels, total, preComposited));
    GroupWriter writer(*out);
    const float weight = 1.0f / static_cast<float>(count);

    const int ofIndex = (_ofidx >= 0 && channels && _ofidx < channels->channelCount()) ? _ofidx : -1;
    const int ofTuple = ofIndex >= 0 ? channels->tupleSize(ofIndex) : 0;
    const int ofComponents = ofTuple > 0 ? ofsize : 0;
    // Opacity component c of a sample; a shorter tuple repeats its last value.
    auto opacity = [&](const IMB_DeepSampleList &list, int si, int c) {
        return list.channelData(ofIndex, si)[std::min(c, ofTuple - 1)];
    };
    std::vector<float> bound(static_cast<std::size_t>(std::max(ofComponents, 0)), 0.0f);
    std::vector<OpenVolume> open;

    bool groupOpen = false;
    bool groupMatte = false;
    float groupFirst = 0.0f; // g0: the group's first boundary
    float groupLast = 0.0f;  // b: the last boundary the group took in

    while (!fronts.isEmpty() || !backs.isEmpty())
    {
        // A volume ending at the depth where a sample starts closes first.
        if (!backs.isEmpty() && (fronts.isEmpty() || !(fronts.top().key < backs.top().key)))
        {
            PQueueItemT<1> item = backs.popTop();
            auto it = std::find_if(open.begin(), open.end(), [&](const OpenVolume &v) {
                return v.list == item.list && v.sample == item.sample;
            });
            if (it != open.end())
            {
                writer.contribute(*it->list, it->sample, it->weight * (1.0f - it->given), it->start, item.key, true);
                open.erase(it);
            }
            groupLast = std::max(groupLast, item.key);
            continue;
        }

        // The sample on top, and the next of its list in its place.
        const PQueueItemT<0> &top = fronts.top();
        const IMB_DeepSampleList &src = *top.list;
        const int listIndex = top.listIndex;
        const int si = top.sample;
        const float d = top.key;
        if (si + 1 < src.sampleCount())
            fronts.replaceTop(PQueueItemT<0>(&src, listIndex, si + 1));
        else
            fronts.pop();
        const bool matte = src.isMatte(si);
        const bool volume = src.isVolume(si);

        bool join = false;
        if (groupOpen && matte == groupMatte)
        {
            join = d - groupFirst <= zbias;
            if (!join && ofComponents > 0)
            {
                join = true;
                for (int c = 0; c < ofComponents && join; ++c)
                    join = bound[static_cast<std::size_t>(c)] + weight * opacity(src, si, c) <= ofbias;
            }
        }
        if (!join)
        {
            if (groupOpen)
            {
                // Cut the open volumes at the split depth: the part in front
                // goes to the closing group, the rest is carried on.
                const float z = (groupLast + d) * 0.5f;
                for (OpenVolume &v : open)
                {
                    const float zf = v.list->zfront(v.sample);
                    const float zb = v.list->zback(v.sample);
                    const float r = std::max(0.0f, (zb - z) / (zb - zf));
                    const float part = (1.0f - r) - v.given;
                    if (part > 0.0f)
                    {
                        writer.contribute(*v.list, v.sample, v.weight * part, v.start, std::min(z, zb), true);
                        v.given = 1.0f - r;
                        v.start = z;
                    }
                }
                writer.close();
            }
            groupOpen = true;
            groupMatte = matte;
            groupFirst = d;
            groupLast = d;
            std::fill(bound.begin(), bound.end(), 0.0f);
            for (const OpenVolume &v : open)
                for (int c = 0; c < ofComponents; ++c)
                    bound[static_cast<std::size_t>(c)] += v.weight * (1.0f - v.given) * opacity(*v.list, v.sample, c);
        }
        groupLast = std::max(groupLast, d);
        for (int c = 0; c < ofComponents; ++c)
            bound[static_cast<std::size_t>(c)] += weight * opacity(src, si, c);

        if (volume)
        {
            open.push_back(OpenVolume{&src, si, weight, 0.0f, d});
            backs.push(PQueueItemT<1>(&src, listIndex, si));
        }
        else
            writer.contribute(src, si, weight, d, src.zback(si), false);
    }
    writer.close();
    out->trimLength(writer.count());
    return out;
}

class nullFactory : public IMB_DeepCompressor::Factory
{
public:
    std::shared_ptr<IMB_DeepCompressor> create(const ChannelsPtr &channels, const BAS_Options &) const override
    {
        return std::make_shared<nullCompressor>(channels);
    }
};

class simpleFactory : public IMB_DeepCompressor::Factory
{
public:
    std::shared_ptr<IMB_DeepCompressor> create(const ChannelsPtr &channels, const BAS_Options &options) const override
    {
        const int level = static_cast<int>(std::clamp<int64>(options.getOptionI("deepcompression", 5), 0, 10));
        float zbias = static_cast<float>(options.getOptionF("zbias", 0.001));
        if (!(zbias >= 0.0f))
            zbias = 0.0f;
        const double ofdefault = 1.0 / static_cast<double>(1 << (10 - level));
        const float ofbias = static_cast<float>(options.getOptionF("ofbias", ofdefault));
        const BAS_StringHolder ofname = options.getOptionS("ofname", BAS_StringHolder("Of"));
        return std::make_shared<simpleCompressor>(channels, zbias, ofbias, ofname);
    }
};

namespace
{
// The process-wide registry; built on first use, without a lock (see the
// header).
struct Registry
{
    std::unordered_map<std::string, std::shared_ptr<IMB_DeepCompressor::Factory>> factories;
    bool built = false;
};

Registry &registry()
{
    static Registry r;
    return r;
}
} // namespace
} // namespace imb_detail

IMB_DeepCompressor::~IMB_DeepCompressor() = default;

void IMB_DeepCompressor::doDump() const {}

void IMB_DeepCompressor::dump(const char *label) const
{
    std::printf("%s %s =\n", (label && *label) ? label : "IMB_DeepCompressor", name());
    doDump();
    std::fflush(stdout);
}

IMB_DeepCompressor::Factory::~Factory() = default;

std::shared_ptr<IMB_DeepCompressor> IMB_DeepCompressor::Factory::create(const char *name,
                                                                        const ChannelsPtr &channels,
                                                                        const BAS_Options &options)
{
    imb_detail::Registry &r = imb_detail::registry();
    if (!r.built)
        initCompressors();
    if (!name)
        return nullptr;
    auto it = r.factories.find(name);
    if (it == r.factories.end() || !it->second)
        return nullptr;
    return it->second->create(channels, options);
}

void IMB_DeepCompressor::Factory::registerCompressor(const char *name, const std::shared_ptr<Factory> &factory)
{
    if (!name)
        return;
    imb_detail::registry().factories[name] = factory;
}

void IMB_DeepCompressor::Factory::getCompressors(BAS_StringArray &names)
{
    names.clear();
    for (const auto &entry : imb_detail::registry().factories)
        names.append(BAS_StringHolder(entry.first));
    names.sort();
}

void IMB_DeepCompressor::Factory::initCompressors()
{
    imb_detail::Registry &r = imb_detail::registry();
    auto simple = std::make_shared<imb_detail::simpleFactory>();
    r.factories["null"] = std::make_shared<imb_detail::nullFactory>();
    r.factories["mip"] = simple;
    r.factories["simple"] = simple;
    r.factories["default"] = simple;
    r.built = true;
}
