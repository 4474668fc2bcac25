// The processor cache, handles, looks and the in-place transform with its
// short-run and packed paths, checked against scalar references.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <atomic>
#include <functional>
#include <string>
#include <cmath>
#include <thread>
#include <vector>

using colour_test::dataPath;

namespace
{
// sRGB decode and encode, written from the transfer function.
double srgbDecode(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
double srgbEncode(double v)
{
    return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

// ACEScg to linear Rec.709, the matrix of the test configuration.
void acescgToLinear(const float in[3], double out[3])
{
    static const double m[3][3] = {
        {1.70505, -0.62179, -0.08326}, {-0.13026, 1.14080, -0.01055}, {-0.02400, -0.12897, 1.15297}};
    for (int r = 0; r < 3; ++r)
        out[r] = m[r][0] * in[0] + m[r][1] * in[1] + m[r][2] * in[2];
}

std::vector<float> ramp(int count, int channels)
{
    std::vector<float> v(static_cast<std::size_t>(count) * channels);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = static_cast<float>((i * 37 % 101) / 100.0);
    return v;
}

constexpr double kTol = 2e-4; // OpenColorIO's CPU renderer uses fast power approximations
} // namespace

TEST(ColourProcessors, SamePairSharesOneRecordAliasesDoNot)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle a = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    IMB_OCIO::PHandle b = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    IMB_OCIO::PHandle viaHandles =
        IMB_OCIO::lookupProcessor(IMB_OCIO::lookupSpace("srgb_tx"), IMB_OCIO::lookupSpace("scene_lin"), "", true);
    IMB_OCIO::PHandle alias = IMB_OCIO::lookupProcessor("srgb_tx", "lin_rec709", "", true);
    IMB_OCIO::PHandle inverse = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", false);
    ASSERT_TRUE(a.isValid());
    EXPECT_EQ(a.record(), b.record());
    EXPECT_EQ(viaHandles.record(), a.record()) << "handles key by their spaces' names";
    EXPECT_NE(alias.record(), a.record());
    EXPECT_TRUE(alias.isValid());
    EXPECT_NE(inverse.record(), a.record());
    EXPECT_EQ(a.serial(), b.serial());

    IMB_OCIO::PHandle copy = a;
    EXPECT_TRUE(copy.isValid());
    copy.clear();
    EXPECT_FALSE(copy.isValid());
    EXPECT_TRUE(copy.isNoOp());
    EXPECT_FALSE(IMB_OCIO::PHandle().isValid());
}

TEST(ColourProcessors, UnknownSpacesGiveInvalidHandles)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("nowhere", "lin_rec709", "", true);
    EXPECT_FALSE(h.isValid());
    EXPECT_FALSE(h.is3D());
    EXPECT_TRUE(h.isNoOp());
    float px[3] = {0.5f, 0.5f, 0.5f};
    EXPECT_FALSE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_FALSE(IMB_OCIO::lookupProcessor(nullptr, IMB_OCIO::lookupSpace("lin_rec709"), "", true).isValid());
}

TEST(ColourProcessors, ChannelIndependentAndCrossTalkingTransforms)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    EXPECT_FALSE(IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true).is3D());
    EXPECT_FALSE(IMB_OCIO::lookupProcessor("log2_space", "lin_rec709", "", true).is3D());
    EXPECT_TRUE(IMB_OCIO::lookupProcessor("ACEScg", "lin_rec709", "", true).is3D());
    EXPECT_TRUE(IMB_OCIO::lookupProcessor("cube_space", "lin_rec709", "", true).is3D());
    IMB_OCIO::PHandle same = IMB_OCIO::lookupProcessor("lin_rec709", "scene_lin", "", true);
    EXPECT_TRUE(same.isValid());
    EXPECT_TRUE(same.isNoOp());
    EXPECT_FALSE(same.is3D());
}

TEST(ColourProcessors, ShortAndPackedRunsDecodeTheFirstThreeChannelsOnly)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    ASSERT_TRUE(h.isValid());
    // Runs shorter than 128 pixels go pixel by pixel, longer ones through the
    // packed image; alpha and extra channels stay.
    const std::pair<int, int> runs[] = {{1, 3}, {127, 3}, {128, 3}, {300, 3}, {10, 4}, {10, 5}, {200, 4}, {200, 6}};
    for (auto [count, channels] : runs)
    {
        std::vector<float> px = ramp(count, channels);
        const std::vector<float> in = px;
        ASSERT_TRUE(IMB_OCIO::transform(h, px.data(), count, channels));
        for (std::size_t i = 0; i < px.size(); ++i)
            if (static_cast<int>(i % channels) < 3)
                ASSERT_NEAR(px[i], srgbDecode(in[i]), kTol) << count << " x " << channels << " at " << i;
            else
                ASSERT_EQ(px[i], in[i]) << count << " x " << channels << " at " << i;
    }
}

TEST(ColourProcessors, RunsThatCannotOrNeedNotChangeLeavePixelsAlone)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true);
    IMB_OCIO::PHandle noOp = IMB_OCIO::lookupProcessor("lin_rec709", "lin_rec709", "", true);
    struct Run
    {
        IMB_OCIO::PHandle *h;
        int count, channels;
        bool ok;
    };
    // Short runs of one or two channels are skipped and succeed; OpenColorIO's
    // packed image takes only 3 or 4 channels, so a long two-channel run
    // reports its refusal as failure; a no-op processor succeeds untouched.
    for (const Run &r : {Run{&h, 10, 1, true}, Run{&h, 10, 2, true}, Run{&h, 200, 2, false}, Run{&noOp, 300, 3, true}})
    {
        std::vector<float> px = ramp(r.count, r.channels);
        const std::vector<float> in = px;
        EXPECT_EQ(IMB_OCIO::transform(*r.h, px.data(), r.count, r.channels), r.ok) << r.count << " x " << r.channels;
        EXPECT_EQ(px, in) << r.count << " x " << r.channels;
    }
}

TEST(ColourProcessors, InverseDirectionEncodes)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", false);
    float px[3] = {0.0f, 0.002f, 0.5f};
    ASSERT_TRUE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_NEAR(px[0], 0.0, kTol);
    EXPECT_NEAR(px[1], srgbEncode(0.002), kTol);
    EXPECT_NEAR(px[2], srgbEncode(0.5), kTol);
}

TEST(ColourProcessors, MatrixAndCubeTransformsMixChannels)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    IMB_OCIO::PHandle aces = IMB_OCIO::lookupProcessor("ACEScg", "lin_rec709", "", true);
    const float in[3] = {0.2f, 0.7f, 0.4f};
    float px[3] = {in[0], in[1], in[2]};
    ASSERT_TRUE(IMB_OCIO::transform(aces, px, 1, 3));
    double ref[3];
    acescgToLinear(in, ref);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(px[c], ref[c], 1e-5);

    // The cube swaps red and green and halves blue; trilinear interpolation
    // of a linear map is exact.
    IMB_OCIO::PHandle cube = IMB_OCIO::lookupProcessor("cube_space", "lin_rec709", "", true);
    float c3[3] = {in[0], in[1], in[2]};
    ASSERT_TRUE(IMB_OCIO::transform(cube, c3, 1, 3));
    EXPECT_NEAR(c3[0], 0.7, 1e-5);
    EXPECT_NEAR(c3[1], 0.2, 1e-5);
    EXPECT_NEAR(c3[2], 0.2, 1e-5);
}

TEST(ColourProcessors, LooksWithSignsAndUnknownLooks)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    auto apply = [](const char *looks, bool forward) {
        IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("lin_rec709", "lin_rec709", looks, forward);
        float px[3] = {0.1f, 0.2f, 0.4f};
        EXPECT_TRUE(IMB_OCIO::transform(h, px, 1, 3)) << looks;
        return std::vector<float>{px[0], px[1], px[2]};
    };
    const std::vector<float> doubled{0.2f, 0.4f, 0.8f};
    const std::vector<float> halved{0.05f, 0.1f, 0.2f};
    for (const char *looks : {"grade", "+grade"})
    {
        const std::vector<float> got = apply(looks, true);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(got[c], doubled[c], 1e-6) << looks;
    }
    const std::vector<float> minus = apply("-grade", true);
    const std::vector<float> backwards = apply("grade", false);
    for (int c = 0; c < 3; ++c)
    {
        EXPECT_NEAR(minus[c], halved[c], 1e-6);
        EXPECT_NEAR(backwards[c], halved[c], 1e-6);
    }
    // Each spelling is its own cache entry.
    EXPECT_NE(IMB_OCIO::lookupProcessor("lin_rec709", "lin_rec709", "grade", true).record(),
              IMB_OCIO::lookupProcessor("lin_rec709", "lin_rec709", "+grade", true).record());

    testing::internal::CaptureStderr();
    IMB_OCIO::PHandle unknown = IMB_OCIO::lookupProcessor("lin_rec709", "lin_rec709", "nolook", true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "quiet without control 97";
    EXPECT_TRUE(unknown.isValid());
    EXPECT_TRUE(unknown.isNoOp()) << "the unknown look is left out";
}

TEST(ColourProcessors, UnknownLookIsReportedWhenVerbose)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_VERBOSE", "1"}});
    IMB_OCIO::configFilePath();
    testing::internal::CaptureStderr();
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "-nolook", true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "OCIO unknown look: nolook\n");
    // The look is left out, but its '-' still reverses the direction.
    float px[3] = {0.5f, 0.5f, 0.5f};
    ASSERT_TRUE(IMB_OCIO::transform(h, px, 1, 3));
    EXPECT_NEAR(px[0], srgbEncode(0.5), kTol);
    // Cached: asking again builds nothing and prints nothing.
    testing::internal::CaptureStderr();
    IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "-nolook", true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ColourProcessors, ViewProcessorsReachDisplays)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    // Default display "sRGB Monitor", its default view "Standard": sRGB encoding.
    IMB_OCIO::PHandle byDefault = IMB_OCIO::lookupViewProcessor("lin_rec709", true);
    float px[3] = {0.002f, 0.18f, 0.9f};
    ASSERT_TRUE(IMB_OCIO::transform(byDefault, px, 1, 3));
    EXPECT_NEAR(px[0], srgbEncode(0.002), kTol);
    EXPECT_NEAR(px[1], srgbEncode(0.18), kTol);
    EXPECT_NEAR(px[2], srgbEncode(0.9), kTol);

    IMB_OCIO::PHandle video = IMB_OCIO::lookupViewProcessor("lin_rec709", "Rec709 Monitor", "Video", true);
    float v[3] = {0.18f, 0.5f, 1.0f};
    ASSERT_TRUE(IMB_OCIO::transform(video, v, 1, 3));
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(v[c], std::pow(std::vector<double>{0.18, 0.5, 1.0}[c], 1 / 2.4), kTol);

    // Film: the look doubles, the view transform takes the square root and
    // the display encodes as sRGB.
    IMB_OCIO::PHandle film = IMB_OCIO::lookupViewProcessor("lin_rec709", "sRGB Monitor", "Film", true);
    float f[3] = {0.02f, 0.1f, 0.3f};
    ASSERT_TRUE(IMB_OCIO::transform(film, f, 1, 3));
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(f[c], srgbEncode(std::sqrt(2.0 * std::vector<double>{0.02, 0.1, 0.3}[c])), kTol);

    IMB_OCIO::PHandle back = IMB_OCIO::lookupViewProcessor("lin_rec709", "Rec709 Monitor", "Video", false);
    float b[3] = {0.5f, 0.5f, 0.5f};
    ASSERT_TRUE(IMB_OCIO::transform(back, b, 1, 3));
    EXPECT_NEAR(b[0], std::pow(0.5, 2.4), kTol);

    EXPECT_FALSE(IMB_OCIO::lookupViewProcessor("lin_rec709", "No Display", "Video", true).isValid());
    EXPECT_FALSE(IMB_OCIO::lookupViewProcessor("nowhere", true).isValid());
    EXPECT_NE(IMB_OCIO::lookupViewProcessor("lin_rec709", true).record(),
              IMB_OCIO::lookupViewProcessor("lin_rec709", false).record());
}

TEST(ColourProcessorsStress, EightThreadsLookUpAndTransformTogether)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const char *const spaces[] = {"srgb_texture", "lin_rec709", "ACEScg", "g24_rec709", "log2_space", "cube_space",
                                  "sRGB",         "scene_lin"};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::vector<float> px = ramp(256, 4);
            for (int i = 0; i < 200; ++i)
            {
                const char *src = spaces[(t + i) % 8];
                const char *dst = spaces[(t * 3 + i) % 8];
                if (!IMB_OCIO::lookupSpace(src) || !IMB_OCIO::lookupSpace(dst))
                    ++failures;
                IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor(src, dst, i % 5 == 0 ? "grade" : "", i % 2 == 0);
                if (!h.isValid())
                    ++failures;
                const int count = i % 3 == 0 ? 256 : 17;
                if (!IMB_OCIO::transform(h, px.data(), count, 4))
                    ++failures;
                for (float &v : px)
                    v = std::isfinite(v) ? std::fabs(std::fmod(v, 1.0f)) : 0.5f;
                if (i % 50 == 0 && !IMB_OCIO::lookupViewProcessor(src, true).isValid())
                    ++failures;
            }
        });
    for (std::thread &th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST(ColourProcessorsStress, ConcurrentFirstRequestsShareOneEntry)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    std::vector<const IMB_OCIO::ColorSpace *> spaces(8);
    std::vector<const IMB_OCIO::ProcessorRecord *> records(8);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() < 8)
                std::this_thread::yield();
            spaces[t] = IMB_OCIO::lookupSpace("acescg_ap1");
            records[t] = IMB_OCIO::lookupProcessor("acescg_ap1", "srgb_tx", "warm", true).record();
        });
    for (std::thread &th : threads)
        th.join();
    ASSERT_NE(spaces[0], nullptr);
    ASSERT_NE(records[0], nullptr);
    for (int t = 1; t < 8; ++t)
    {
        EXPECT_EQ(spaces[t], spaces[0]);
        EXPECT_EQ(records[t], records[0]);
    }
}

TEST(ColourProcessors, KeysLongerThanTheInlineBufferAreCachedToo)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const std::string longName(3000, 'x');
    const std::string otherName = std::string(2999, 'x') + "y";
    IMB_OCIO::PHandle a = IMB_OCIO::lookupProcessor(longName.c_str(), "lin_rec709", "", true);
    IMB_OCIO::PHandle b = IMB_OCIO::lookupProcessor(longName.c_str(), "lin_rec709", "", true);
    IMB_OCIO::PHandle c = IMB_OCIO::lookupProcessor(otherName.c_str(), "lin_rec709", "", true);
    ASSERT_NE(a.record(), nullptr);
    EXPECT_FALSE(a.isValid());
    EXPECT_EQ(a.record(), b.record());
    EXPECT_NE(a.record(), c.record());
    // A long looks text on a known pair: the unknown look is left out.
    const std::string longLook(2500, 'l');
    IMB_OCIO::PHandle d = IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", longLook.c_str(), true);
    EXPECT_TRUE(d.isValid());
    EXPECT_EQ(d.record(), IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", longLook.c_str(), true).record());
    EXPECT_NE(d.record(), IMB_OCIO::lookupProcessor("srgb_texture", "lin_rec709", "", true).record());
}

TEST(ColourProcessors, RefusedBuildsArePrintedOnceAndRepeatedToEveryCapture)
{
    COLOUR_CASE({{"OCIO", dataPath("missing_lut.ocio")}});
    IMB_OCIO::configFilePath();
    struct Case
    {
        std::string prefix;
        std::function<IMB_OCIO::PHandle()> lookup;
    };
    const Case cases[] = {
        {R"(OCIO processor error from "lin" to "lut": )",
         [] { return IMB_OCIO::lookupProcessor("lin", "lut", "", true); }},
        {R"(OCIO processor error from "lut" to "lin" (inverse): )",
         [] { return IMB_OCIO::lookupProcessor("lut", "lin", "", false); }},
        {R"(OCIO processor error from "lin" to display "Monitor" view "Lut": )",
         [] { return IMB_OCIO::lookupViewProcessor("lin", "Monitor", "Lut", true); }},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.prefix);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(c.lookup().isValid());
        const std::string first = testing::internal::GetCapturedStderr();
        // OpenColorIO's own words, naming the file it could not find.
        EXPECT_EQ(first.rfind(c.prefix, 0), 0u) << first;
        EXPECT_NE(first.find("'missing.spi1d' could not be located"), std::string::npos) << first;
        EXPECT_EQ(first.find('\n'), first.size() - 1) << first;

        // The cached failure is not printed again, but a capture still hears why.
        testing::internal::CaptureStderr();
        {
            BAS_ErrorCapture messages;
            EXPECT_FALSE(c.lookup().isValid());
            EXPECT_EQ(messages.text(), first);
        }
        EXPECT_FALSE(c.lookup().isValid());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
    testing::internal::CaptureStderr();
    EXPECT_TRUE(IMB_OCIO::lookupProcessor("lin", "lin", "", true).isValid());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
