// Running composites and their inverse over many random lists, against a
// plain reference of the rules that walks one channel and one component at a
// time. The library walks every channel sample by sample and forms the
// factors once per sample; the results must match to the bit.
#include "DeepTestUtil.h"

#include <algorithm>
#include <random>

namespace
{
using namespace deeptest;
using Planes = std::vector<std::vector<float>>;

// The opacity of component c of sample i, read from the opacity plane `op`
// of tuple size ot (1, 3 or more).
float opacityFor(const std::vector<float> &op, int ot, int i, int c)
{
    const float *a = op.data() + static_cast<std::size_t>(i) * ot;
    if (ot == 1)
        return a[0];
    if (c < 3)
        return a[c];
    const float sum = a[0] + a[1] + a[2];
    return static_cast<float>(static_cast<double>(sum) * 0.3333333333333333);
}

// One channel, front to back, with the running rule and the opacity plane as
// it is at that moment.
void refCompositeChannel(std::vector<float> &v, int t, const std::vector<float> &op, int ot, int count)
{
    for (int i = 1; i < count; ++i)
        for (int c = 0; c < t; ++c)
        {
            float &cur = v[static_cast<std::size_t>(i) * t + c];
            const float prev = v[static_cast<std::size_t>(i - 1) * t + c];
            const float A = opacityFor(op, ot, i - 1, c);
            if (ot == 1)
            {
                double f = 1.0;
                if (A < 1.0f)
                    f = 1.0 - 1.0 / (1.0 - static_cast<double>(A));
                cur = static_cast<float>(f * static_cast<double>(cur) + static_cast<double>(prev));
            }
            else
            {
                const float w = 1.0f - A;
                const float scaled = w * cur;
                cur = scaled + prev;
            }
        }
}

void refComposite(Planes &planes, int opacity, const std::vector<int> &sizes, int count)
{
    const int ot = sizes[opacity];
    // The opacity composites itself first, each sample reading its already
    // composited predecessor (the same vector is both plane and opacity).
    std::vector<float> &op = planes[opacity];
    refCompositeChannel(op, ot, op, ot, count);
    for (std::size_t ch = 0; ch < planes.size(); ++ch)
        if (static_cast<int>(ch) != opacity)
            refCompositeChannel(planes[ch], sizes[ch], op, ot, count);
}

// One channel, back to front, with the inverse rule.
void refUncompositeChannel(std::vector<float> &v, int t, const std::vector<float> &op, int ot, int count)
{
    for (int i = count - 1; i >= 1; --i)
        for (int c = 0; c < t; ++c)
        {
            float &cur = v[static_cast<std::size_t>(i) * t + c];
            const float prev = v[static_cast<std::size_t>(i - 1) * t + c];
            const float A = opacityFor(op, ot, i - 1, c);
            if (ot == 1)
            {
                double g = 0.0;
                if (!(A >= 1.0f))
                    g = 1.0 / (1.0 - static_cast<double>(A));
                const float diff = cur - prev;
                cur = static_cast<float>(static_cast<double>(diff) * g);
            }
            else
            {
                float g = 0.0f;
                if (!(A >= 1.0f))
                    g = 1.0f / (1.0f - A);
                if (g != 1.0f)
                    cur = (cur - prev) * g;
            }
        }
}

void refUncomposite(Planes &planes, int opacity, const std::vector<int> &sizes, int count)
{
    const int ot = sizes[opacity];
    for (std::size_t ch = 0; ch < planes.size(); ++ch)
        if (static_cast<int>(ch) != opacity)
            refUncompositeChannel(planes[ch], sizes[ch], planes[opacity], ot, count);
    // The opacity goes last; going back to front it reads its own
    // predecessors before they change.
    std::vector<float> op = planes[opacity];
    refUncompositeChannel(planes[opacity], ot, op, ot, count);
}

// Random opacities mixing ordinary values with exact 0 and 1, values above
// 1 and slightly negative ones; colours of either sign.
struct Generator
{
    std::mt19937 rng;
    explicit Generator(unsigned seed) : rng(seed) {}

    float opacity()
    {
        switch (std::uniform_int_distribution<int>(0, 9)(rng))
        {
        case 0: return 0.0f;
        case 1: return 1.0f;
        case 2: return std::uniform_real_distribution<float>(1.0f, 3.0f)(rng);
        case 3: return std::uniform_real_distribution<float>(-0.5f, 0.0f)(rng);
        case 4: return 0.999999f;
        default: return std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
        }
    }
    float colour() { return std::uniform_real_distribution<float>(-2.0f, 4.0f)(rng); }
    int count() { return std::uniform_int_distribution<int>(0, 40)(rng); }
};

struct Case
{
    ChannelsPtr chans;
    std::vector<int> sizes;
    int opacity;
};

// Channels of tuple sizes 3, 1, 4, 2 and 5 around an opacity of size ot
// placed at `opacity`; the last one is ordinal (composited like the rest).
Case makeCase(int ot, int opacity)
{
    Case k;
    k.chans = new IMB_DeepChannelList;
    const int others[] = {3, 1, 4, 2, 5};
    int other = 0;
    for (int ch = 0; ch < 6; ++ch)
    {
        if (ch == opacity)
        {
            k.chans->addChannel("A", ot);
            k.sizes.push_back(ot);
        }
        else
        {
            const int t = others[other++];
            k.chans->addChannel(("c" + std::to_string(ch)).c_str(), t, ch == 5);
            k.sizes.push_back(t);
        }
    }
    k.opacity = opacity;
    return k;
}

Planes randomPlanes(Generator &gen, const Case &k, int count)
{
    Planes planes(k.sizes.size());
    for (std::size_t ch = 0; ch < planes.size(); ++ch)
        for (int n = 0; n < count * k.sizes[ch]; ++n)
            planes[ch].push_back(static_cast<int>(ch) == k.opacity ? gen.opacity() : gen.colour());
    return planes;
}

ListPtr listOf(const Case &k, const Planes &planes, int count, bool composited)
{
    ListPtr l(new IMB_DeepSampleList(k.chans, count, composited));
    for (int i = 0; i < count; ++i)
    {
        l->zfrontBuffer()[i] = static_cast<float>(i);
        l->zbackBuffer()[i] = static_cast<float>(i);
        l->flagBuffer()[i] = 0;
        l->coverageBuffer()[i] = ~0ull;
    }
    // An empty list has no channel planes to fill.
    for (std::size_t ch = 0; count > 0 && ch < planes.size(); ++ch)
        std::copy(planes[ch].begin(), planes[ch].end(), l->channelBuffer(static_cast<int>(ch)));
    return l;
}

// Counts the values of `l` that differ from `want`, reporting the first.
int mismatches(const IMB_DeepSampleList &l, const Planes &want, const std::string &what)
{
    int bad = 0;
    for (std::size_t ch = 0; ch < want.size(); ++ch)
        for (std::size_t n = 0; n < want[ch].size(); ++n)
        {
            const float got = l.channelBuffer(static_cast<int>(ch))[n];
            if (!sameBits(got, want[ch][n], true) && bad++ == 0)
                ADD_FAILURE() << what << ": channel " << ch << " value " << n << " is " << got << ", want "
                              << want[ch][n];
        }
    return bad;
}

class DeepCompositingRandom : public ::testing::TestWithParam<int>
{
};

// Composite, uncomposite, and composite then uncomposite (composited random
// lists reach large and infinite values behind opaque samples).
TEST_P(DeepCompositingRandom, CompositeUncompositeAndRoundTripMatchTheRulesToTheBit)
{
    const int ot = GetParam();
    for (int mode = 0; mode < 3; ++mode)
    {
        Generator gen(1000u * unsigned(mode + 1) + static_cast<unsigned>(ot));
        for (int round = 0; round < (mode == 2 ? 200 : 300); ++round)
        {
            const Case k = makeCase(ot, round % 6);
            const int count = gen.count();
            Planes planes = randomPlanes(gen, k, count);
            ListPtr l = listOf(k, planes, count, mode == 1);
            if (mode != 1)
            {
                l->composite(k.opacity);
                refComposite(planes, k.opacity, k.sizes, count);
                EXPECT_TRUE(l->preComposited());
            }
            if (mode != 0)
            {
                l->uncomposite(k.opacity);
                refUncomposite(planes, k.opacity, k.sizes, count);
                EXPECT_FALSE(l->preComposited());
            }
            ASSERT_EQ(mismatches(*l, planes, "mode " + std::to_string(mode) + " round " + std::to_string(round)), 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OpacityTupleSizes, DeepCompositingRandom, ::testing::Values(1, 3, 4),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return "OpacityOf" + std::to_string(info.param);
                         });
} // namespace
