// Raster operations on a 3840 x 2160 RGBA image: alpha, saturation, luma,
// value range and direct-table application, beside a memcpy of the same
// bytes (vs_memcpy) and OpenImageIO doing the same job on one thread
// (vs_peer: ImageBufAlgo::premult and channel_sum with the same weights).
// Manual timing: each case restores its input outside the timed region
// where the operation is not idempotent. Premultiply, saturation, luma and
// range run on the calling thread, so they are one-thread cases
// (BenchSupport.h), timed in the calling thread's processor time. Table
// application runs on the shared pool: it runs on one thread and on all,
// timed by the clock (vs_lookup: IMB_Raster::applyLUT over
// IMB_Lookup::applyLUT on the same pixels and threads).
#include "BenchSupport.h"

#include <IMB/IMB.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

namespace
{
constexpr int64 W = 3840, H = 2160;

using imb_bench::Clock;

// Thread CPU time of one run: the machine may be shared, and every case but
// table application (ours, memcpy, the peer on one thread) runs on the
// calling thread.
template <typename Fn> double secondsOf(Fn &&fn)
{
    return imb_bench::secondsOf(Clock::thread, fn);
}

OIIO::TypeDesc oiioType(IMB_DataFormat f)
{
    switch (f)
    {
    case IMB_INT8: return OIIO::TypeDesc::UINT8;
    case IMB_INT16: return OIIO::TypeDesc::UINT16;
    case IMB_INT32: return OIIO::TypeDesc::UINT32;
    case IMB_FLOAT16: return OIIO::TypeDesc::HALF;
    default: return OIIO::TypeDesc::FLOAT;
    }
}

// An RGBA raster with colour in 0-1 and alpha a mix of 0, 1 and partial.
void fillRGBA(IMB_Raster &r)
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    const float alphas[4] = {0.0f, 1.0f, 0.5f, 0.25f};
    std::vector<float> row(size_t(W) * 4);
    for (int64 y = 0; y < H; ++y)
    {
        for (int64 x = 0; x < W; ++x)
        {
            float *p = &row[size_t(x) * 4];
            p[0] = u(rng), p[1] = u(rng), p[2] = u(rng);
            p[3] = (x & 7) == 0 ? alphas[(x >> 3) & 3] : u(rng);
            r.setPixelValue(x, y, p);
        }
    }
}

struct Image
{
    IMB_Raster raster;
    std::vector<unsigned char> pristine;
    explicit Image(IMB_DataFormat f) : raster(PACK_RGBA, f, W, H)
    {
        fillRGBA(raster);
        const auto *p = static_cast<const unsigned char *>(raster.getPixels());
        pristine.assign(p, p + raster.getSize());
    }
    void restore() { std::memcpy(raster.getPixels(), pristine.data(), pristine.size()); }
    size_t bytes() const { return pristine.size(); }
};

// The ratios compare the fastest run of each side: on a shared machine the
// mean of a few runs mostly measures the other tenants.
void report(benchmark::State &state, size_t bytes, double ours, double peer)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
    imb_bench::setRatio(state, "vs_memcpy", ours, imb_bench::memcpySeconds(bytes, Clock::thread));
    imb_bench::setRatio(state, "vs_peer", ours, peer);
}

// ---------------------------------------------------------------- premultiply
void BM_Premultiply(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    double best = 1e30;
    for (auto _ : state)
    {
        img.restore();
        double t = secondsOf([&] { img.raster.premultiply(); });
        state.SetIterationTime(t);
        best = std::min(best, t);
    }
    const double ours = best;
    OIIO::ImageBuf buf(OIIO::ImageSpec(int(W), int(H), 4, oiioType(format)), img.raster.getPixels());
    const double peer = imb_bench::bestOfPrepared(
        Clock::thread, [&] { img.restore(); }, [&] { OIIO::ImageBufAlgo::premult(buf, buf, {}, 1); });
    report(state, img.bytes(), ours, peer);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Premultiply", [](benchmark::internal::Benchmark *b) {
    b->Arg(IMB_FLOAT32)->Arg(IMB_INT8)->ArgName("format")->UseManualTime()->Unit(benchmark::kMillisecond)
        ->Iterations(5);
}, BM_Premultiply);

// ---------------------------------------------------------------- saturation
void BM_AdjustSaturation(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    double best = 1e30;
    for (auto _ : state)
    {
        // Saturation 0.5 again and again converges towards grey; no restore
        // is needed to keep the values ordinary.
        double t = secondsOf([&] { img.raster.adjustSaturation(0.5f); });
        state.SetIterationTime(t);
        best = std::min(best, t);
    }
    report(state, img.bytes(), best, 0);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_AdjustSaturation", [](benchmark::internal::Benchmark *b) {
    b->Arg(IMB_FLOAT32)->Arg(IMB_INT8)->ArgName("format")->UseManualTime()->Unit(benchmark::kMillisecond)
        ->Iterations(5);
}, BM_AdjustSaturation);

// ---------------------------------------------------------------- luma
void BM_WeightedLumaFromRGBA(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    IMB_Raster out(PACK_SINGLE, format, W, H);
    const char *src = static_cast<const char *>(img.raster.getPixels());
    const int64 b = imbDefinesDepth[format];
    double best = 1e30;
    for (auto _ : state)
    {
        double t = secondsOf([&] {
            IMB_LumFuncs::convertToLuma(format, out.getPixels(), IMB_LUM_WEIGHTED, src, src + b, src + 2 * b,
                                        src + 3 * b, int32(W * H), 4);
        });
        benchmark::DoNotOptimize(out.getPixels());
        state.SetIterationTime(t);
        best = std::min(best, t);
    }
    OIIO::ImageBuf in(OIIO::ImageSpec(int(W), int(H), 4, oiioType(format)), img.raster.getPixels());
    OIIO::ImageBuf dst(OIIO::ImageSpec(int(W), int(H), 1, oiioType(format)));
    const float weights[4] = {0.3086f, 0.6094f, 0.082f, 0.0f};
    const double peer =
        imb_bench::bestOf(Clock::thread, [&] { OIIO::ImageBufAlgo::channel_sum(dst, in, weights, {}, 1); });
    report(state, img.bytes(), best, peer);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_WeightedLumaFromRGBA", [](benchmark::internal::Benchmark *b) {
    for (int f : {IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16})
        b->Arg(f);
    b->ArgName("format")->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
}, BM_WeightedLumaFromRGBA);

// ---------------------------------------------------------------- range
void BM_GetRange(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    float lo[4], hi[4];
    double best = 1e30;
    for (auto _ : state)
    {
        double t = secondsOf([&] { img.raster.getRange(lo, hi); });
        benchmark::DoNotOptimize(lo);
        state.SetIterationTime(t);
        best = std::min(best, t);
    }
    report(state, img.bytes(), best, 0);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_GetRange", [](benchmark::internal::Benchmark *b) {
    b->Arg(IMB_FLOAT32)->Arg(IMB_INT8)->Arg(IMB_FLOAT16)->ArgName("format")->UseManualTime()
        ->Unit(benchmark::kMillisecond)->Iterations(10);
}, BM_GetRange);

// ---------------------------------------------------------------- tables
double wallSeconds(const std::function<void()> &fn)
{
    return imb_bench::secondsOf(Clock::wall, fn);
}

// A 4096-sample RGB table of three gamma-like curves on 8-bit RGBA, through
// the raster's direct tables and through IMB_Lookup::applyLUT, alternately,
// on the threads the case is given.
void BM_ApplyLUTInt8(benchmark::State &state)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(4096);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 4096; ++i)
            lut.getRawLUT(IMB_LookupType(1 << c))[i] = std::pow(i / 4095.0, c == 0 ? 1 / 2.2 : c == 1 ? 1 / 1.8 : 2.0);
    Image img(IMB_INT8);
    double ours = 0, theirs = 1e30;
    int64 n = 0;
    for (auto _ : state)
    {
        img.restore();
        const double t = wallSeconds([&] { img.raster.applyLUT(lut); });
        state.SetIterationTime(t);
        ours += t;
        ++n;
        img.restore();
        theirs = std::min(theirs, wallSeconds([&] { lut.applyLUT(img.raster); }));
    }
    const double mean = ours / double(n);
    state.SetBytesProcessed(n * int64_t(img.bytes()));
    // The memcpy reference on the same threads: a band of the image per thread.
    imb_bench::setRatio(state, "vs_memcpy", mean, imb_bench::memcpySeconds(img.bytes(), Clock::wall));
    state.counters["vs_lookup"] = mean / theirs;
    state.counters["lookup_ms"] = theirs * 1e3;
}
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_ApplyLUTInt8", [](benchmark::internal::Benchmark *b) {
    b->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
}, BM_ApplyLUTInt8);
} // namespace

BENCHMARK_MAIN();
