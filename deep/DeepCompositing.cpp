// IMB_DeepSampleList: running composites and their inverse, full-opacity
// search, volume segments and combining two lists.
#include <IMB/IMB_DeepSampleList.h>

#include <algorithm>
#include <cmath>
#include <cstring>
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

// The select loops below compute both arms and pick one per float; telling
// GCC that nothing here traps lets it do that four floats at a time. It does
// not change any value.
#if defined(__GNUC__) && !defined(__clang__)
#define IMB_SELECT_LOOP __attribute__((optimize("no-trapping-math")))
#else
#define IMB_SELECT_LOOP
#endif

// g = 0 where A >= 1, else 1/(1 - A), in place over n opacities.
IMB_SELECT_LOOP void inverseFactors(float *g, std::size_t n)
{
    for (std::size_t k = 0; k < n; ++k)
    {
        const float A = g[k];
        const float q = 1.0f / (1.0f - A);
        g[k] = A >= 1.0f ? 0.0f : q;
    }
}

// The same in double, from n single opacities.
IMB_SELECT_LOOP void inverseFactors(double *g, const float *a, std::size_t n)
{
    for (std::size_t k = 0; k < n; ++k)
    {
        const double q = 1.0 / (1.0 - static_cast<double>(a[k]));
        g[k] = a[k] >= 1.0f ? 0.0 : q;
    }
}

// A channel plane other than the opacity and its tuple size.
struct ChannelPlane
{
    float *v;
    int t;
};

// The other channels of a list, held inline for ordinary channel counts.
class OtherPlanes
{
public:
    OtherPlanes(float *const *planes, const IMB_DeepChannelList &chans, int skip)
    {
        const int nch = chans.channelCount();
        ChannelPlane *p = nch - 1 > kInline ? (myHeap.resize(static_cast<std::size_t>(nch)), myHeap.data()) : myInline;
        for (int ch = 0; ch < nch; ++ch)
            if (ch != skip)
            {
                p[myCount] = ChannelPlane{planes[ch], chans.tupleSize(ch)};
                myWidest = std::max(myWidest, p[myCount].t);
                ++myCount;
            }
        myData = p;
    }
    const ChannelPlane *begin() const { return myData; }
    const ChannelPlane *end() const { return myData + myCount; }
    // The largest tuple size among them (0 when there are none).
    int widest() const { return myWidest; }

private:
    static constexpr int kInline = 16;
    ChannelPlane myInline[kInline];
    std::vector<ChannelPlane> myHeap;
    ChannelPlane *myData = nullptr;
    int myCount = 0;
    int myWidest = 0;
};

// The running rule on sample i of one plane, given the factors (1 - A[i-1])
// of the component classes 0, 1, 2 and "3 and beyond" in w.
inline void runTuple(float *v, int t, exint i, const float *w)
{
    float *cur = v + i * t;
    const float *prev = cur - t;
    switch (t)
    {
    case 1: cur[0] = w[0] * cur[0] + prev[0]; break;
    case 3:
        cur[0] = w[0] * cur[0] + prev[0];
        cur[1] = w[1] * cur[1] + prev[1];
        cur[2] = w[2] * cur[2] + prev[2];
        break;
    case 4:
        cur[0] = w[0] * cur[0] + prev[0];
        cur[1] = w[1] * cur[1] + prev[1];
        cur[2] = w[2] * cur[2] + prev[2];
        cur[3] = w[3] * cur[3] + prev[3];
        break;
    default:
        for (int c = 0; c < t; ++c)
            cur[c] = w[std::min(c, 3)] * cur[c] + prev[c];
        break;
    }
}

// Running rule with a per-component opacity of three floats. All channels
// advance together sample by sample: the opacity, kept in registers, is the
// only chain from one sample to the next, and the other channels' work
// overlaps it. The mean-opacity factor is only formed when some channel
// reaches a fourth component.
template <bool Mean> void compositeRgbOpacity(float *op, const OtherPlanes &others, int count)
{
    float a0 = op[0], a1 = op[1], a2 = op[2];
    for (exint i = 1; i < count; ++i)
    {
        float w[4];
        w[0] = 1.0f - a0;
        w[1] = 1.0f - a1;
        w[2] = 1.0f - a2;
        w[3] = Mean ? 1.0f - static_cast<float>(static_cast<double>(a0 + a1 + a2) * 0.3333333333333333) : 1.0f;
        float *o = op + i * 3;
        a0 = w[0] * o[0] + a0;
        a1 = w[1] * o[1] + a1;
        a2 = w[2] * o[2] + a2;
        o[0] = a0;
        o[1] = a1;
        o[2] = a2;
        for (const ChannelPlane &p : others)
            runTuple(p.v, p.t, i, w);
    }
}

// Running rule with any other per-component opacity tuple size (0, 2, 4 and
// more): the factors come from the previous, already composited, opacity.
void compositeAnyOpacity(float *op, int ot, const OtherPlanes &others, int count)
{
    for (exint i = 1; i < count; ++i)
    {
        const float *a = op + (i - 1) * ot;
        float w[4];
        for (int c = 0; c < 4; ++c)
            w[c] = 1.0f - componentOpacity(a, ot, c);
        runTuple(op, ot, i, w);
        for (const ChannelPlane &p : others)
            runTuple(p.v, p.t, i, w);
    }
}

// Running rule with a single opacity, in double.
void compositeSingleOpacity(float *op, const OtherPlanes &others, int count)
{
    float A = op[0];
    for (exint i = 1; i < count; ++i)
    {
        // Deliberate: the single-opacity factor is 1 - 1/(1 - A), not the
        // per-component (1 - A); stored composites depend on this exact form.
        const double f = A < 1.0f ? 1.0 - 1.0 / (1.0 - static_cast<double>(A)) : 1.0;
        const float prevA = A;
        A = static_cast<float>(f * op[i] + prevA);
        op[i] = A;
        for (const ChannelPlane &p : others)
        {
            float *cur = p.v + i * p.t;
            const float *prev = cur - p.t;
            for (int c = 0; c < p.t; ++c)
                cur[c] = static_cast<float>(f * cur[c] + prev[c]);
        }
    }
}

// Inverse rule over one plane, given the per-sample factors g of the
// component classes 0, 1, 2 and "3 and beyond" (four floats per sample,
// sample i using those of sample i - 1). Going back to front, each sample
// still sees its predecessor's composited value.
template <int T> void uncompositeTuples(float *v, int t, const float *g, int count)
{
    const int len = T > 0 ? T : t;
    for (exint i = count - 1; i >= 1; --i)
    {
        float *cur = v + i * len;
        const float *prev = cur - len;
        const float *gi = g + (i - 1) * 4;
        for (int c = 0; c < len; ++c)
        {
            const float gc = gi[c < 3 ? c : 3];
            const float r = (cur[c] - prev[c]) * gc;
            // Deliberate: with g exactly 1 (previous opacity 0) the component
            // keeps its composited value; callers rely on this skip.
            cur[c] = gc == 1.0f ? cur[c] : r;
        }
    }
}

// Inverse rule over a whole plane at once, for a plane whose tuple size t
// matches the factor table: component k of the plane uses factor k - t.
// The composited values are read from `old`, a copy of the plane, so the
// loop has no order between samples and runs several floats at a time.
IMB_SELECT_LOOP void uncompositeFlat(float *__restrict v, const float *__restrict old, const float *__restrict g,
                                     int t, std::size_t len)
{
    for (std::size_t k = static_cast<std::size_t>(t); k < len; ++k)
    {
        const float gk = g[k - static_cast<std::size_t>(t)];
        const float cur = old[k];
        const float r = (cur - old[k - static_cast<std::size_t>(t)]) * gk;
        // Deliberate: with g exactly 1 the component keeps its composited
        // value; callers rely on this skip.
        v[k] = gk == 1.0f ? cur : r;
    }
}

void uncompositePlane(float *v, int t, const float *g, int count)
{
    switch (t)
    {
    case 1: uncompositeTuples<1>(v, t, g, count); break;
    case 3: uncompositeTuples<3>(v, t, g, count); break;
    case 4: uncompositeTuples<4>(v, t, g, count); break;
    default: uncompositeTuples<0>(v, t, g, count); break;
    }
}

// Inverse rule with a single opacity: g in double, no skip.
void uncompositeSinglePlane(float *v, int t, const double *g, int count)
{
    for (exint i = count - 1; i >= 1; --i)
    {
        float *cur = v + i * t;
        const float *prev = cur - t;
        const double gi = g[i - 1];
        for (int c = 0; c < t; ++c)
            cur[c] = static_cast<float>((cur[c] - prev[c]) * gi);
    }
}

// Scratch of n values, on the stack for ordinary sample counts.
template <typename T, int Inline> class Scratch
{
public:
    explicit Scratch(std::size_t n)
    {
        if (n > static_cast<std::size_t>(Inline))
        {
            myHeap.resize(n);
            myData = myHeap.data();
        }
    }
    T *data() { return myData; }

private:
    T myInline[Inline];
    std::vector<T> myHeap;
    T *myData = myInline;
};

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
        // The opacity is composited first and every other channel uses the
        // composited opacity of the previous sample; walking all channels
        // sample by sample gives the same values as a channel at a time.
        const IMB_DeepChannelList &chans = *myChannels;
        const int ot = chans.tupleSize(opacityChannel);
        float *op = myChannelData[opacityChannel];
        const OtherPlanes others(myChannelData, chans, opacityChannel);
        if (ot == 1)
            compositeSingleOpacity(op, others, mySampleCount);
        else if (ot == 3 && others.widest() > 3)
            compositeRgbOpacity<true>(op, others, mySampleCount);
        else if (ot == 3)
            compositeRgbOpacity<false>(op, others, mySampleCount);
        else
            compositeAnyOpacity(op, ot, others, mySampleCount);
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
        // The factors of every sample are formed first from the composited
        // opacity, which the opacity channel keeps until it is done last.
        const IMB_DeepChannelList &chans = *myChannels;
        const int ot = chans.tupleSize(opacityChannel);
        float *op = myChannelData[opacityChannel];
        const std::size_t steps = static_cast<std::size_t>(mySampleCount - 1);
        if (ot == 1)
        {
            Scratch<double, 512> scratch(steps);
            double *g = scratch.data();
            inverseFactors(g, op, steps);
            for (int ch = 0; ch < nch; ++ch)
                if (ch != opacityChannel)
                    uncompositeSinglePlane(myChannelData[ch], chans.tupleSize(ch), g, mySampleCount);
            uncompositeSinglePlane(op, 1, g, mySampleCount);
        }
        else
        {
            // Factor tables laid out like the planes that use them: four
            // per sample (classes 0, 1, 2 and "3 and beyond") for tuples of
            // four and the general case, three for tuples of three, one for
            // single floats. Each is made when a plane first needs it.
            Scratch<float, 1024> g4Scratch(steps * 4);
            Scratch<float, 768> g3Scratch(steps * 3);
            Scratch<float, 256> g1Scratch(steps);
            Scratch<float, 1024> copyScratch(static_cast<std::size_t>(mySampleCount) * 4);
            float *g4 = nullptr, *g3 = nullptr, *g1 = nullptr;
            auto table4 = [&] {
                if (!g4)
                {
                    g4 = g4Scratch.data();
                    for (std::size_t i = 0; i < steps; ++i)
                        for (int c = 0; c < 4; ++c)
                            g4[i * 4 + c] = componentOpacity(op + i * static_cast<std::size_t>(ot), ot, c);
                    inverseFactors(g4, steps * 4);
                }
                return g4;
            };
            auto table3 = [&] {
                if (!g3)
                {
                    g3 = g3Scratch.data();
                    if (ot == 3)
                    {
                        // The opacity plane itself, minus its last sample.
                        std::memcpy(g3, op, steps * 3 * sizeof(float));
                        inverseFactors(g3, steps * 3);
                    }
                    else
                    {
                        const float *t4 = table4();
                        for (std::size_t i = 0; i < steps; ++i)
                            for (int c = 0; c < 3; ++c)
                                g3[i * 3 + c] = t4[i * 4 + c];
                    }
                }
                return g3;
            };
            auto table1 = [&] {
                if (!g1)
                {
                    g1 = g1Scratch.data();
                    const int from = ot == 3 ? 3 : 4;
                    const float *t = ot == 3 ? table3() : table4();
                    for (std::size_t i = 0; i < steps; ++i)
                        g1[i] = t[i * static_cast<std::size_t>(from)];
                }
                return g1;
            };
            auto runPlane = [&](float *v, int t) {
                if (t != 1 && t != 3 && t != 4)
                {
                    uncompositePlane(v, t, table4(), mySampleCount);
                    return;
                }
                const float *table = t == 4 ? table4() : t == 3 ? table3() : table1();
                const std::size_t len = static_cast<std::size_t>(mySampleCount) * static_cast<std::size_t>(t);
                float *old = copyScratch.data();
                std::memcpy(old, v, len * sizeof(float));
                uncompositeFlat(v, old, table, t, len);
            };
            for (int ch = 0; ch < nch; ++ch)
                if (ch != opacityChannel)
                    runPlane(myChannelData[ch], chans.tupleSize(ch));
            runPlane(op, ot);
        }
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
