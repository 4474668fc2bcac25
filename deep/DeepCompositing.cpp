// IMB_DeepSampleList: running composites and their inverse, full-opacity
// search, volume segments and combining two lists.
#include <IMB/IMB_DeepSampleList.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace
{
constexpr float kLargestFloat = 3.4028235e38f;

// The opacity that applies to component c of any channel, read from the
// opacity tuple `a` of tuple size `t` (t != 1): the opacity's own component
// for c < 3, otherwise the mean of the first three, summed in float and
// scaled in double. Narrow opacity tuples (0 or 2 floats) fall back to what
// they have so that nothing is read beyond the tuple.
inline float componentOpacity(const float *a, int t, int c)
{
    if (c < 3 && c < t)
        return a[c];
    if (t >= 3)
        return static_cast<float>(static_cast<double>(a[0] + a[1] + a[2]) * 0.3333333333333333);
    if (t == 2)
        return static_cast<float>(static_cast<double>(a[0] + a[1]) * 0.5);
    return 0.0f;
}

// Running rule over one channel plane, front to back; `op` is the opacity
// plane (possibly the same plane, whose earlier samples are then already
// composited).
void compositeChannel(float *v, int t, const float *op, int ot, int count)
{
    for (int i = 1; i < count; ++i)
    {
        float *cur = v + static_cast<exint>(i) * t;
        const float *prev = v + static_cast<exint>(i - 1) * t;
        const float *a = op + static_cast<exint>(i - 1) * ot;
        if (ot == 1)
        {
            // Deliberate: the single-opacity factor is 1 - 1/(1 - A), not the
            // per-component (1 - A); stored composites depend on this exact form.
            const float A = a[0];
            const double f = A < 1.0f ? 1.0 - 1.0 / (1.0 - static_cast<double>(A)) : 1.0;
            for (int c = 0; c < t; ++c)
                cur[c] = static_cast<float>(f * cur[c] + prev[c]);
        }
        else
        {
            for (int c = 0; c < t; ++c)
                cur[c] = (1.0f - componentOpacity(a, ot, c)) * cur[c] + prev[c];
        }
    }
}

// Inverse rule over one channel plane, back to front.
void uncompositeChannel(float *v, int t, const float *op, int ot, int count)
{
    for (int i = count - 1; i >= 1; --i)
    {
        float *cur = v + static_cast<exint>(i) * t;
        const float *prev = v + static_cast<exint>(i - 1) * t;
        const float *a = op + static_cast<exint>(i - 1) * ot;
        if (ot == 1)
        {
            const float A = a[0];
            const double g = A >= 1.0f ? 0.0 : 1.0 / (1.0 - static_cast<double>(A));
            for (int c = 0; c < t; ++c)
                cur[c] = static_cast<float>((cur[c] - prev[c]) * g);
        }
        else
        {
            for (int c = 0; c < t; ++c)
            {
                const float A = componentOpacity(a, ot, c);
                const float g = A >= 1.0f ? 0.0f : 1.0f / (1.0f - A);
                // Deliberate: with g exactly 1 (previous opacity 0) the component
                // keeps its composited value; callers rely on this skip.
                if (g == 1.0f)
                    continue;
                cur[c] = (cur[c] - prev[c]) * g;
            }
        }
    }
}

bool sameChannels(const BAS_IntrusivePtr<IMB_DeepChannelList> &a, const BAS_IntrusivePtr<IMB_DeepChannelList> &b)
{
    if (!a || !b)
        return !a && !b;
    return a->isEqual(*b);
}
} // namespace

void IMB_DeepSampleList::composite(int opacityChannel, bool force)
{
    if (!force && myPreComposited)
        return;
    const int nch = channelCount();
    if (opacityChannel < 0 || opacityChannel >= nch)
        return;
    if (mySampleCount >= 2)
    {
        const IMB_DeepChannelList &chans = *myChannels;
        const int ot = chans.tupleSize(opacityChannel);
        float *op = myChannelData[opacityChannel];
        compositeChannel(op, ot, op, ot, mySampleCount);
        for (int ch = 0; ch < nch; ++ch)
            if (ch != opacityChannel)
                compositeChannel(myChannelData[ch], chans.tupleSize(ch), op, ot, mySampleCount);
    }
    myPreComposited = true;
}

void IMB_DeepSampleList::uncomposite(int opacityChannel, bool force)
{
    if (!force && !myPreComposited)
        return;
    const int nch = channelCount();
    if (opacityChannel < 0 || opacityChannel >= nch)
        return;
    if (mySampleCount >= 2)
    {
        const IMB_DeepChannelList &chans = *myChannels;
        const int ot = chans.tupleSize(opacityChannel);
        float *op = myChannelData[opacityChannel];
        for (int ch = 0; ch < nch; ++ch)
            if (ch != opacityChannel)
                uncompositeChannel(myChannelData[ch], chans.tupleSize(ch), op, ot, mySampleCount);
        uncompositeChannel(op, ot, op, ot, mySampleCount);
    }
    myPreComposited = false;
}

int IMB_DeepSampleList::findFullOpacity(int opacityChannel, float threshold) const
{
    if (mySampleCount < 2)
        return mySampleCount;
    if (opacityChannel < 0 || opacityChannel >= channelCount())
        return mySampleCount;
    const int t = myChannels->tupleSize(opacityChannel);
    if (myPreComposited)
    {
        for (int i = 0; i < mySampleCount; ++i)
        {
            const float *a = channelData(opacityChannel, i);
            bool full = true;
            for (int c = 0; c < t && full; ++c)
                full = a[c] >= threshold;
            if (full)
                return i + 1;
        }
        return mySampleCount;
    }
    std::vector<float> acc(static_cast<std::size_t>(std::max(t, 0)), 0.0f);
    for (int i = 0; i < mySampleCount; ++i)
    {
        const float *a = channelData(opacityChannel, i);
        bool full = true;
        for (int c = 0; c < t; ++c)
        {
            acc[c] = (1.0f - acc[c]) * a[c] + acc[c];
            full = full && acc[c] >= threshold;
        }
        if (full)
            return i + 1;
    }
    return mySampleCount;
}

void IMB_DeepSampleList::extractSegment(int dst, const IMB_DeepSampleList &src, int si, float nearDepth,
                                        float farDepth, float)
{
    const float zf = src.zfront(si);
    const float zb = src.zback(si);
    const float front = std::max(zf, nearDepth);
    const float back = std::min(zb, farDepth);
    const float ratio = (1.0f - std::exp(-(back - front))) / (1.0f - std::exp(-(zb - zf)));
    const float w = std::sqrt(ratio);
    copySample(dst, src, si, w);
    myZfront[dst] = front;
    myZback[dst] = back;
}

BAS_IntrusivePtr<IMB_DeepSampleList> IMB_DeepSampleList::splitSegments(const IMB_DeepSampleList &other) const
{
    // Every depth boundary of the other list, ascending, without NaN.
    std::vector<float> cuts;
    cuts.reserve(static_cast<std::size_t>(std::max(other.mySampleCount, 0)) * 2);
    for (int i = 0; i < other.mySampleCount; ++i)
    {
        if (!std::isnan(other.myZfront[i]))
            cuts.push_back(other.myZfront[i]);
        if (!std::isnan(other.myZback[i]))
            cuts.push_back(other.myZback[i]);
    }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());

    // The cuts strictly inside sample i's range, when it is a volume.
    auto inside = [&](int i) {
        if (!isVolume(i))
            return std::make_pair(cuts.end(), cuts.end());
        auto lo = std::upper_bound(cuts.begin(), cuts.end(), myZfront[i]);
        auto hi = std::lower_bound(lo, cuts.end(), myZback[i]);
        return std::make_pair(lo, hi);
    };

    exint total = 0;
    for (int i = 0; i < mySampleCount; ++i)
    {
        auto r = inside(i);
        total += 1 + (r.second - r.first);
    }
    if (total > std::numeric_limits<int>::max())
        total = std::numeric_limits<int>::max(); // the allocation of such a list fails anyway
    BAS_IntrusivePtr<IMB_DeepSampleList> out(
        new IMB_DeepSampleList(myChannels, static_cast<int>(total), myPreComposited));
    int k = 0;
    for (int i = 0; i < mySampleCount; ++i)
    {
        auto r = inside(i);
        if (r.first == r.second)
        {
            out->copySample(k++, *this, i, 1.0f);
            continue;
        }
        float lo = myZfront[i];
        for (auto it = r.first; it != r.second; ++it)
        {
            out->extractSegment(k++, *this, i, lo, *it);
            lo = *it;
        }
        out->extractSegment(k++, *this, i, lo, myZback[i]);
    }
    return out;
}

BAS_IntrusivePtr<IMB_DeepSampleList> IMB_DeepSampleList::combine(const BAS_IntrusivePtr<IMB_DeepSampleList> &a,
                                                                 const BAS_IntrusivePtr<IMB_DeepSampleList> &b)
{
    if (!a || a->mySampleCount <= 0)
        return b;
    if (!b || b->mySampleCount <= 0 || a->myPreComposited != b->myPreComposited ||
        !sameChannels(a->myChannels, b->myChannels))
        return a;

    BAS_IntrusivePtr<IMB_DeepSampleList> sa = a->splitSegments(*b);
    BAS_IntrusivePtr<IMB_DeepSampleList> sb = b->splitSegments(*a);
    const int na = sa->mySampleCount;
    const int nb = sb->mySampleCount;
    BAS_IntrusivePtr<IMB_DeepSampleList> out(new IMB_DeepSampleList(a->myChannels, na + nb, a->myPreComposited));
    int ia = 0, ib = 0;
    for (int k = 0; k < na + nb; ++k)
    {
        // An exhausted list counts as lying at the largest depth; on equal
        // depths the first operand goes first.
        const float za = ia < na ? sa->zmid(ia) : kLargestFloat;
        const float zb = ib < nb ? sb->zmid(ib) : kLargestFloat;
        const bool takeA = ib >= nb || (ia < na && !(zb < za));
        if (takeA)
            out->copySample(k, *sa, ia++, 1.0f);
        else
            out->copySample(k, *sb, ib++, 1.0f);
    }
    return out;
}
