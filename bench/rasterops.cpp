// Raster operations on a 3840 x 2160 RGBA image: alpha, saturation, luma,
// value range and direct-table application, beside a memcpy of the same
// bytes (vs_memcpy) and OpenImageIO doing the same job on one thread
// (vs_peer: ImageBufAlgo::premult and channel_sum with the same weights).
// Manual timing: each case restores its input outside the timed region
// where the operation is not idempotent. Times are the calling thread's CPU
// time, except for table application, which runs on the shared pool and is
// timed by the clock (vs_lookup: IMB_Raster::applyLUT over
// IMB_Lookup::applyLUT on the same pixels and threads).
#include <IMB/IMB.h>
#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <vector>

namespace
{
constexpr int64 W = 3840, H = 2160;

// Thread CPU time of one run: the machine may be shared, and every case
// (ours, memcpy, the peer on one thread) runs on the calling thread.
double threadSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

double secondsOf(const std::function<void()> &fn)
{
    const double t0 = threadSeconds();
    fn();
    return threadSeconds() - t0;
}

// Best of a few runs of `fn`, with `prepare` (untimed) before each.
double bestOf(const std::function<void()> &fn, const std::function<void()> &prepare = {}, int runs = 3)
{
    double best = 1e30;
    for (int i = 0; i < runs; ++i)
    {
        if (prepare)
            prepare();
        best = std::min(best, secondsOf(fn));
    }
    return best;
}

// Time of a memcpy of `bytes` bytes between two buffers (measured once).
double memcpySeconds(size_t bytes)
{
    static std::map<size_t, double> cache;
    auto it = cache.find(bytes);
    if (it != cache.end())
        return it->second;
    std::vector<unsigned char> a(bytes, 1), b(bytes, 2);
    double t = bestOf([&] { std::memcpy(b.data(), a.data(), bytes); benchmark::DoNotOptimize(b.data()); });
    cache[bytes] = t;
    return t;
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

void report(benchmark::State &state, size_t bytes, double ours, double peer)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
    state.counters["vs_memcpy"] = ours / memcpySeconds(bytes);
    if (peer > 0)
        state.counters["vs_peer"] = ours / peer;
}

// ---------------------------------------------------------------- premultiply
void BM_Premultiply(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    double total = 0;
    for (auto _ : state)
    {
        img.restore();
        double t = secondsOf([&] { img.raster.premultiply(); });
        state.SetIterationTime(t);
        total += t;
    }
    const double ours = total / double(state.iterations());
    OIIO::ImageBuf buf(OIIO::ImageSpec(int(W), int(H), 4, oiioType(format)), img.raster.getPixels());
    const double peer = bestOf([&] { OIIO::ImageBufAlgo::premult(buf, buf, {}, 1); }, [&] { img.restore(); });
    report(state, img.bytes(), ours, peer);
}
BENCHMARK(BM_Premultiply)
    ->Arg(IMB_FLOAT32)
    ->Arg(IMB_INT8)
    ->ArgName("format")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// ---------------------------------------------------------------- saturation
void BM_AdjustSaturation(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    double total = 0;
    for (auto _ : state)
    {
        // Saturation 0.5 again and again converges towards grey; no restore
        // is needed to keep the values ordinary.
        double t = secondsOf([&] { img.raster.adjustSaturation(0.5f); });
        state.SetIterationTime(t);
        total += t;
    }
    report(state, img.bytes(), total / double(state.iterations()), 0);
}
BENCHMARK(BM_AdjustSaturation)
    ->Arg(IMB_FLOAT32)
    ->Arg(IMB_INT8)
    ->ArgName("format")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// ---------------------------------------------------------------- luma
void BM_WeightedLumaFromRGBA(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    IMB_Raster out(PACK_SINGLE, format, W, H);
    const char *src = static_cast<const char *>(img.raster.getPixels());
    const int64 b = imbDefinesDepth[format];
    double total = 0;
    for (auto _ : state)
    {
        double t = secondsOf([&] {
            IMB_LumFuncs::convertToLuma(format, out.getPixels(), IMB_LUM_WEIGHTED, src, src + b, src + 2 * b,
                                        src + 3 * b, int32(W * H), 4);
        });
        benchmark::DoNotOptimize(out.getPixels());
        state.SetIterationTime(t);
        total += t;
    }
    OIIO::ImageBuf in(OIIO::ImageSpec(int(W), int(H), 4, oiioType(format)), img.raster.getPixels());
    OIIO::ImageBuf dst(OIIO::ImageSpec(int(W), int(H), 1, oiioType(format)));
    const float weights[4] = {0.3086f, 0.6094f, 0.082f, 0.0f};
    const double peer = bestOf([&] { OIIO::ImageBufAlgo::channel_sum(dst, in, weights, {}, 1); });
    report(state, img.bytes(), total / double(state.iterations()), peer);
}
BENCHMARK(BM_WeightedLumaFromRGBA)
    ->Arg(IMB_INT8)
    ->Arg(IMB_INT16)
    ->Arg(IMB_INT32)
    ->Arg(IMB_FLOAT32)
    ->Arg(IMB_FLOAT16)
    ->ArgName("format")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

// ---------------------------------------------------------------- range
void BM_GetRange(benchmark::State &state)
{
    const auto format = IMB_DataFormat(state.range(0));
    Image img(format);
    img.restore();
    float lo[4], hi[4];
    double total = 0;
    for (auto _ : state)
    {
        double t = secondsOf([&] { img.raster.getRange(lo, hi); });
        benchmark::DoNotOptimize(lo);
        state.SetIterationTime(t);
        total += t;
    }
    report(state, img.bytes(), total / double(state.iterations()), 0);
}
BENCHMARK(BM_GetRange)
    ->Arg(IMB_FLOAT32)
    ->Arg(IMB_INT8)
    ->Arg(IMB_FLOAT16)
    ->ArgName("format")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

// ---------------------------------------------------------------- tables
double wallSeconds(const std::function<void()> &fn)
{
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// A 4096-sample RGB table of three gamma-like curves on 8-bit RGBA, through
// the raster's direct tables and through IMB_Lookup::applyLUT, alternately,
// on `threads` pool threads (0: all the pool offers).
void BM_ApplyLUTInt8(benchmark::State &state)
{
    std::unique_ptr<tbb::global_control> limit;
    if (state.range(0) > 0)
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                      size_t(state.range(0)));
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
    // The memcpy reference on the same threads: both halves of the image at once.
    std::vector<unsigned char> copy(img.bytes());
    double mem = 1e30;
    for (int i = 0; i < 3; ++i)
        mem = std::min(mem, wallSeconds([&] {
                  BAS_ThreadedAlgorithm runner(0);
                  runner.run([&](int j, int m) {
                      const size_t chunk = (copy.size() + size_t(m) - 1) / size_t(m), first = chunk * size_t(j);
                      if (first < copy.size())
                          std::memcpy(copy.data() + first, img.pristine.data() + first,
                                      std::min(chunk, copy.size() - first));
                  });
                  benchmark::DoNotOptimize(copy.data());
              }));
    state.counters["vs_memcpy"] = mean / mem;
    state.counters["vs_lookup"] = mean / theirs;
    state.counters["lookup_ms"] = theirs * 1e3;
}
BENCHMARK(BM_ApplyLUTInt8)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("threads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20);
} // namespace

BENCHMARK_MAIN();
