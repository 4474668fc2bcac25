// The processor cache, handles, looks and the in-place transform with its
// short-run and packed paths, checked against scalar references.
#include "colour/ColourTestSupport.h"

#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using colour_test::dataPath;
using colour_test::srgbDecode;
using colour_test::srgbEncode;
using IMB_OCIO::lookupProcessor;
using IMB_OCIO::lookupViewProcessor;

namespace
{
std::vector<float> ramp(int count, int channels)
{
    std::vector<float> v(static_cast<std::size_t>(count) * channels);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = static_cast<float>((i * 37 % 101) / 100.0);
    return v;
}

constexpr double kTol = 2e-4; // OpenColorIO's CPU renderer uses fast power approximations
} // namespace

TEST(ColourProcessors, RequestsAreCachedByTheirTextAndReportTheirKind)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    auto record = [](const std::string &src, const char *looks = "", bool forward = true) {
        return lookupProcessor(src.c_str(), "lin_rec709", looks, forward).record();
    };
    const IMB_OCIO::ProcessorRecord *a = record("srgb_texture");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(record("srgb_texture"), a);
    EXPECT_EQ(lookupProcessor(IMB_OCIO::lookupSpace("srgb_tx"), IMB_OCIO::lookupSpace("scene_lin"), "", true).record(),
              a)
        << "handles key by their spaces' names";
    // An alias, the other direction and every spelling of a look are entries of their own.
    for (const IMB_OCIO::ProcessorRecord *other : {record("srgb_tx"), record("srgb_texture", "", false),
                                                   record("srgb_texture", "grade"), record("srgb_texture", "+grade")})
        EXPECT_NE(other, a);
    EXPECT_NE(record("srgb_texture", "grade"), record("srgb_texture", "+grade"));
    EXPECT_NE(lookupViewProcessor("lin_rec709", true).record(), lookupViewProcessor("lin_rec709", false).record());
    // Keys past the inline buffer are cached too (also invalid ones).
    const std::string longName(3000, 'x'), longLook(2500, 'l');
    EXPECT_EQ(record(longName), record(longName));
    EXPECT_NE(record(longName), record(std::string(2999, 'x') + "y"));
    EXPECT_EQ(record("srgb_texture", longLook.c_str()), record("srgb_texture", longLook.c_str()));
    EXPECT_NE(record("srgb_texture", longLook.c_str()), a);

    struct Kind
    {
        const char *src, *looks;
        bool valid, is3D, noOp;
    };
    // An unknown look is left out, quietly without control 97.
    testing::internal::CaptureStderr();
    for (const Kind &k : {Kind{"srgb_texture", "", true, false, false}, Kind{"log2_space", "", true, false, false},
                          Kind{"ACEScg", "", true, true, false}, Kind{"cube_space", "", true, true, false},
                          Kind{"scene_lin", "", true, false, true}, Kind{"nowhere", "", false, false, true},
                          Kind{"lin_rec709", "nolook", true, false, true},
                          Kind{"srgb_texture", longLook.c_str(), true, false, false}})
    {
        const IMB_OCIO::PHandle h = lookupProcessor(k.src, "lin_rec709", k.looks, true);
        EXPECT_EQ(h.isValid(), k.valid) << k.src;
        EXPECT_EQ(h.is3D(), k.is3D) << k.src;
        EXPECT_EQ(h.isNoOp(), k.noOp) << k.src;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(lookupProcessor(nullptr, IMB_OCIO::lookupSpace("lin_rec709"), "", true).isValid());

    IMB_OCIO::PHandle copy = lookupProcessor("srgb_texture", "lin_rec709", "", true);
    EXPECT_EQ(copy.serial(), lookupProcessor("srgb_texture", "lin_rec709", "", true).serial());
    copy.clear();
    EXPECT_FALSE(copy.isValid());
    EXPECT_TRUE(copy.isNoOp());
}

TEST(ColourProcessors, TransformsFollowTheirScalarReferences)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    using Rgb = std::array<double, 3>;
    auto each = [](std::function<double(double)> f) {
        return [f](const Rgb &v) { return Rgb{f(v[0]), f(v[1]), f(v[2])}; };
    };
    struct Case
    {
        const char *what;
        IMB_OCIO::PHandle h;
        Rgb in;
        std::function<Rgb(const Rgb &)> ref;
        double tol = kTol; // matrices and looks are exact up to float rounding
    };
    const Case cases[] = {
        {"decode", lookupProcessor("srgb_texture", "lin_rec709", "", true), {0.01, 0.2, 0.9}, each(srgbDecode)},
        {"encode", lookupProcessor("srgb_texture", "lin_rec709", "", false), {0, 0.002, 0.5}, each(srgbEncode)},
        // The '-' of an unknown look still reverses the direction.
        {"-nolook", lookupProcessor("srgb_texture", "lin_rec709", "-nolook", true), {0, 0.002, 0.5}, each(srgbEncode)},
        {"ACEScg matrix", lookupProcessor("ACEScg", "lin_rec709", "", true), {0.2, 0.7, 0.4},
         [](const Rgb &v) {
             return Rgb{1.70505 * v[0] - 0.62179 * v[1] - 0.08326 * v[2],
                        -0.13026 * v[0] + 1.14080 * v[1] - 0.01055 * v[2],
                        -0.02400 * v[0] - 0.12897 * v[1] + 1.15297 * v[2]};
         },
         1e-5},
        // The cube swaps red and green and halves blue; trilinear
        // interpolation of a linear map is exact.
        {"cube", lookupProcessor("cube_space", "lin_rec709", "", true), {0.2, 0.7, 0.4},
         [](const Rgb &v) { return Rgb{v[1], v[0], v[2] / 2}; }, 1e-5},
        {"grade", lookupProcessor("lin_rec709", "lin_rec709", "grade", true), {0.1, 0.2, 0.4},
         each([](double v) { return 2 * v; }), 1e-6},
        {"+grade", lookupProcessor("lin_rec709", "lin_rec709", "+grade", true), {0.1, 0.2, 0.4},
         each([](double v) { return 2 * v; }), 1e-6},
        {"-grade", lookupProcessor("lin_rec709", "lin_rec709", "-grade", true), {0.1, 0.2, 0.4},
         each([](double v) { return v / 2; }), 1e-6},
        {"grade back", lookupProcessor("lin_rec709", "lin_rec709", "grade", false), {0.1, 0.2, 0.4},
         each([](double v) { return v / 2; }), 1e-6},
        // Default display "sRGB Monitor", its default view "Standard".
        {"default view", lookupViewProcessor("lin_rec709", true), {0.002, 0.18, 0.9}, each(srgbEncode)},
        {"Video", lookupViewProcessor("lin_rec709", "Rec709 Monitor", "Video", true), {0.18, 0.5, 1},
         each([](double v) { return std::pow(v, 1 / 2.4); })},
        {"Video back", lookupViewProcessor("lin_rec709", "Rec709 Monitor", "Video", false), {0.18, 0.5, 1},
         each([](double v) { return std::pow(v, 2.4); })},
        // Film: the look doubles, the view transform takes the square root,
        // the display encodes as sRGB.
        {"Film", lookupViewProcessor("lin_rec709", "sRGB Monitor", "Film", true), {0.02, 0.1, 0.3},
         each([](double v) { return srgbEncode(std::sqrt(2 * v)); })},
    };
    for (const Case &c : cases)
    {
        float px[3] = {float(c.in[0]), float(c.in[1]), float(c.in[2])};
        ASSERT_TRUE(IMB_OCIO::transform(c.h, px, 1, 3)) << c.what;
        const Rgb want = c.ref(c.in);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(px[k], want[k], c.tol) << c.what << " channel " << k;
    }
    EXPECT_FALSE(lookupViewProcessor("lin_rec709", "No Display", "Video", true).isValid());
    EXPECT_FALSE(lookupViewProcessor("nowhere", true).isValid());
}

TEST(ColourProcessors, RunsChangeTheFirstThreeChannelsWhenTheyCan)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const IMB_OCIO::PHandle decode = lookupProcessor("srgb_texture", "lin_rec709", "", true);
    const IMB_OCIO::PHandle noOp = lookupProcessor("lin_rec709", "lin_rec709", "", true);
    struct Run
    {
        int count, channels;
        bool noOp, ok, changes;
    };
    // Runs shorter than 128 pixels go pixel by pixel, longer ones through the
    // packed image; alpha and extra channels stay. Short runs of one or two
    // channels are skipped; the packed image takes only 3 or 4 channels, so a
    // long two-channel run fails untouched. A no-op processor succeeds untouched.
    const Run runs[] = {{1, 3, false, true, true},    {127, 3, false, true, true},  {128, 3, false, true, true},
                        {300, 3, false, true, true},  {10, 4, false, true, true},   {10, 5, false, true, true},
                        {200, 4, false, true, true},  {200, 6, false, true, true},  {10, 1, false, true, false},
                        {10, 2, false, true, false},  {200, 2, false, false, false}, {300, 3, true, true, false},
                        {0, 3, false, true, false}};
    for (const Run &r : runs)
    {
        SCOPED_TRACE(std::to_string(r.count) + " x " + std::to_string(r.channels));
        std::vector<float> px = ramp(r.count, r.channels);
        const std::vector<float> in = px;
        EXPECT_EQ(IMB_OCIO::transform(r.noOp ? noOp : decode, px.data(), r.count, r.channels), r.ok);
        for (std::size_t i = 0; i < px.size(); ++i)
            if (r.changes && static_cast<int>(i % r.channels) < 3)
                ASSERT_NEAR(px[i], srgbDecode(in[i]), kTol) << i;
            else
                ASSERT_EQ(px[i], in[i]) << i;
    }
}

// Quiet by default: RequestsAreCachedByTheirTextAndReportTheirKind checks that.
TEST(ColourProcessors, AnUnknownLookIsReportedOnceWhenVerbose)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}, {"IMB_OCIO_VERBOSE", "1"}});
    IMB_OCIO::configFilePath();
    testing::internal::CaptureStderr();
    lookupProcessor("srgb_texture", "lin_rec709", "-nolook", true);
    lookupProcessor("srgb_texture", "lin_rec709", "-nolook", true); // cached: nothing built, nothing printed
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "OCIO unknown look: nolook\n");
}

TEST(ColourProcessorsStress, EightThreadsLookUpAndTransformTogether)
{
    COLOUR_CASE({{"OCIO", dataPath("full.ocio")}});
    const char *const spaces[] = {"srgb_texture", "lin_rec709", "ACEScg", "g24_rec709", "log2_space", "cube_space",
                                  "sRGB",         "scene_lin"};
    std::atomic<int> failures{0}, ready{0};
    std::vector<const void *> firstSpace(8), firstRecord(8);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            // All threads make the same first requests at once: one entry each.
            for (++ready; ready.load() < 8;)
                std::this_thread::yield();
            firstSpace[t] = IMB_OCIO::lookupSpace("acescg_ap1");
            firstRecord[t] = lookupProcessor("acescg_ap1", "srgb_tx", "warm", true).record();
            std::vector<float> px = ramp(256, 4);
            for (int i = 0; i < 200; ++i)
            {
                const char *src = spaces[(t + i) % 8], *dst = spaces[(t * 3 + i) % 8];
                const IMB_OCIO::PHandle h = lookupProcessor(src, dst, i % 5 == 0 ? "grade" : "", i % 2 == 0);
                if (!IMB_OCIO::lookupSpace(src) || !h.isValid() ||
                    !IMB_OCIO::transform(h, px.data(), i % 3 == 0 ? 256 : 17, 4) ||
                    (i % 50 == 0 && !lookupViewProcessor(src, true).isValid()))
                    ++failures;
                for (float &v : px)
                    v = std::isfinite(v) ? std::fabs(std::fmod(v, 1.0f)) : 0.5f;
            }
        });
    for (std::thread &th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
    ASSERT_NE(firstSpace[0], nullptr);
    ASSERT_NE(firstRecord[0], nullptr);
    EXPECT_EQ(firstSpace, std::vector<const void *>(8, firstSpace[0]));
    EXPECT_EQ(firstRecord, std::vector<const void *>(8, firstRecord[0]));
}

TEST(ColourProcessors, RefusedBuildsArePrintedOnceAndRepeatedToEveryCapture)
{
    COLOUR_CASE({{"OCIO", dataPath("missing_lut.ocio")}});
    IMB_OCIO::configFilePath();
    const std::pair<std::string, std::function<IMB_OCIO::PHandle()>> cases[] = {
        {R"(OCIO processor error from "lin" to "lut": )", [] { return lookupProcessor("lin", "lut", "", true); }},
        {R"(OCIO processor error from "lut" to "lin" (inverse): )",
         [] { return lookupProcessor("lut", "lin", "", false); }},
        {R"(OCIO processor error from "lin" to display "Monitor" view "Lut": )",
         [] { return lookupViewProcessor("lin", "Monitor", "Lut", true); }},
    };
    for (const auto &[prefix, lookup] : cases)
    {
        SCOPED_TRACE(prefix);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(lookup().isValid());
        const std::string first = testing::internal::GetCapturedStderr();
        // One line: OpenColorIO's own words, naming the file it could not find.
        EXPECT_EQ(first.rfind(prefix, 0), 0u) << first;
        EXPECT_NE(first.find("'missing.spi1d' could not be located"), std::string::npos) << first;
        EXPECT_EQ(first.find('\n'), first.size() - 1) << first;

        // The cached failure is not printed again, but a capture still hears why.
        testing::internal::CaptureStderr();
        {
            BAS_ErrorCapture messages;
            EXPECT_FALSE(lookup().isValid());
            EXPECT_EQ(messages.text(), first);
        }
        EXPECT_FALSE(lookup().isValid());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
    testing::internal::CaptureStderr();
    EXPECT_TRUE(lookupProcessor("lin", "lin", "", true).isValid());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
