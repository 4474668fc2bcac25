// IMB_DeepSampleFilter and its concrete filters: null, monochrome and the
// compositing pair.
#include <IMB/IMB_DeepSampleFilter.h>

IMB_DeepSampleFilter::IMB_DeepSampleFilter() = default;
IMB_DeepSampleFilter::~IMB_DeepSampleFilter() = default;

int IMB_DeepSampleFilter::filteredTupleSize(const char *, int tupleSize) const { return tupleSize; }

namespace
{
using ChannelsPtr = IMB_DeepSampleFilter::ChannelsPtr;
using ListPtr = IMB_DeepSampleFilter::ListPtr;

// A new list of `in`'s count with `channels` and `preComposited`, holding
// `in`'s depths, flags and coverage.
ListPtr copyFrame(const IMB_DeepSampleList &in, const ChannelsPtr &channels, bool preComposited)
{
    ListPtr out(new IMB_DeepSampleList(channels, in.sampleCount(), preComposited));
    out->copyZ(in);
    out->copyFlags(in);
    out->copySampleId(in);
    return out;
}

class imb_Null final : public IMB_DeepSampleFilter
{
public:
    ListPtr apply(const ListPtr &list) const override { return list; }

protected:
    void doUpdateChannels(const ChannelsPtr &input) override { setChannels(input); }
};

class imb_Mono final : public IMB_DeepSampleFilter
{
public:
    explicit imb_Mono(const BAS_StringHolder &name) : myName(name) {}

    int filteredTupleSize(const char *name, int tupleSize) const override
    {
        return myName.equal(name) ? 1 : tupleSize;
    }

    ListPtr apply(const ListPtr &list) const override
    {
        if (myIndex < 0 || !list || list->sampleCount() <= 0)
            return list;
        const ChannelsPtr &out = channels();
        const ChannelsPtr &in = list->channels();
        // A list of another layout than the one announced is passed through.
        if (!in || in->channelCount() != out->channelCount() || in->tupleSize(myIndex) != myTupleSize)
            return list;
        ListPtr result = copyFrame(*list, out, list->preComposited());
        for (int ch = 0, n = out->channelCount(); ch < n; ++ch)
            if (ch != myIndex)
                result->copyChannel(ch, *list);
        const float *src = list->channelBuffer(myIndex);
        float *dst = result->channelBuffer(myIndex);
        for (int i = 0, n = list->sampleCount(); i < n; ++i)
        {
            const float *v = src + static_cast<exint>(i) * myTupleSize;
            float sum = 0.0f;
            for (int c = 0; c < myTupleSize; ++c)
                sum += v[c];
            dst[i] = sum * myReciprocal;
        }
        return result;
    }

protected:
    void doUpdateChannels(const ChannelsPtr &input) override
    {
        myIndex = input ? input->findChannel(myName.c_str()) : -1;
        myTupleSize = myIndex >= 0 ? input->tupleSize(myIndex) : 0;
        myReciprocal = myTupleSize > 0 ? 1.0f / static_cast<float>(myTupleSize) : 1.0f;
        if (myIndex < 0 || myTupleSize <= 1)
        {
            setChannels(input);
            return;
        }
        ChannelsPtr reduced(new IMB_DeepChannelList);
        for (int ch = 0, n = input->channelCount(); ch < n; ++ch)
            reduced->addChannel(input->name(ch), ch == myIndex ? 1 : input->tupleSize(ch), input->isOrdinal(ch));
        setChannels(reduced);
    }

private:
    BAS_StringHolder myName;
    int myIndex = -1;
    int myTupleSize = 0;
    float myReciprocal = 1.0f;
};

class imb_Compositor final : public IMB_DeepSampleFilter
{
public:
    imb_Compositor(const BAS_StringHolder &name, bool target) : myName(name), myTarget(target) {}

    ListPtr apply(const ListPtr &list) const override
    {
        if (myTupleSize < 1 || !list || list->sampleCount() <= 0 || list->preComposited() == myTarget)
            return list;
        const ChannelsPtr &in = list->channels();
        if (!in || in->channelCount() <= myIndex || in->tupleSize(myIndex) != myTupleSize)
            return list;
        ListPtr result = copyFrame(*list, channels(), myTarget);
        result->copyAllChannels(*list);
        // The list's own rules do the conversion: when compositing the opacity
        // channel goes first, when uncompositing last.
        if (myTarget)
            result->composite(myIndex, true);
        else
            result->uncomposite(myIndex, true);
        return result;
    }

protected:
    void doUpdateChannels(const ChannelsPtr &input) override
    {
        setChannels(input);
        myIndex = input ? input->findChannel(myName.c_str()) : -1;
        myTupleSize = myIndex >= 0 ? input->tupleSize(myIndex) : 0;
    }

private:
    BAS_StringHolder myName;
    int myIndex = -1;
    int myTupleSize = 0;
    bool myTarget;
};
} // namespace

IMB_DeepSampleFilter::FilterPtr IMB_DeepSampleFilter::nullFilter() { return FilterPtr(new imb_Null); }

IMB_DeepSampleFilter::FilterPtr IMB_DeepSampleFilter::monochrome(const BAS_StringHolder &channelName)
{
    return FilterPtr(new imb_Mono(channelName));
}

IMB_DeepSampleFilter::FilterPtr IMB_DeepSampleFilter::precomposite(const BAS_StringHolder &opacityName)
{
    return FilterPtr(new imb_Compositor(opacityName, true));
}

IMB_DeepSampleFilter::FilterPtr IMB_DeepSampleFilter::uncomposite(const BAS_StringHolder &opacityName)
{
    return FilterPtr(new imb_Compositor(opacityName, false));
}
