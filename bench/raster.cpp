// Raster pixel access on a UHD RGBA raster: per-pixel getPixelValue and
// setPixelValue in every format, and extract/insert of a large rectangle.
// Times are thread CPU time. Every case also times a memcpy of the same bytes in the same run and
// reports the ratio as vs_memcpy (below 1 is faster than memcpy).
#include <IMB/IMB.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <cstring>
#include <vector>

namespace
{
constexpr int64 theWidth = 3840;
constexpr int64 theHeight = 2160;

// Thread CPU time: the build machines are shared, and wall time there
// measures the neighbours as much as the code.
struct Clock
{
    using time_point = double;
    static double now()
    {
        timespec ts;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
    }
};

// Best of a few memcpy runs of `bytes` bytes between two warm buffers, in
// seconds.
double memcpySeconds(std::size_t bytes)
{
    std::vector<unsigned char> src(bytes, 1), dst(bytes, 2);
    double best = 1e30;
    for (int i = 0; i < 5; ++i)
    {
        auto t0 = Clock::now();
        std::memcpy(dst.data(), src.data(), bytes);
        benchmark::ClobberMemory();
        best = std::min(best, (Clock::now() - t0));
    }
    benchmark::DoNotOptimize(dst.data());
    return best;
}

void report(benchmark::State &state, double loopSeconds, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    const double perIteration = loopSeconds / static_cast<double>(state.iterations());
    state.counters["vs_memcpy"] = perIteration / memcpySeconds(bytes);
}

IMB_Raster makeRamp(IMB_DataFormat f, int64 w, int64 h)
{
    IMB_Raster r(PACK_RGBA, f, w, h);
    for (int64 y = 0; y < h; ++y)
        for (int64 x = 0; x < w; ++x)
        {
            const float v[4] = {float(x) / float(w), float(y) / float(h), 0.5f, 1.0f};
            r.setPixelValue(x, y, v);
        }
    return r;
}

void BM_GetPixelValue(benchmark::State &state)
{
    const auto format = static_cast<IMB_DataFormat>(state.range(0));
    const IMB_Raster r = makeRamp(format, theWidth, theHeight);
    double seconds = 0;
    for (auto _ : state)
    {
        auto t0 = Clock::now();
        float sum = 0;
        float px[4];
        for (int64 y = 0; y < theHeight; ++y)
            for (int64 x = 0; x < theWidth; ++x)
            {
                r.getPixelValue(x, y, px);
                sum += px[0] + px[3];
            }
        benchmark::DoNotOptimize(sum);
        seconds += (Clock::now() - t0);
    }
    state.SetLabel(IMBdataFormat(format));
    report(state, seconds, static_cast<std::size_t>(r.getSize()));
}

void BM_SetPixelValue(benchmark::State &state)
{
    const auto format = static_cast<IMB_DataFormat>(state.range(0));
    IMB_Raster r(PACK_RGBA, format, theWidth, theHeight, 1);
    double seconds = 0;
    float px[4] = {0.25f, 0.5f, 0.75f, 1.0f};
    for (auto _ : state)
    {
        auto t0 = Clock::now();
        for (int64 y = 0; y < theHeight; ++y)
            for (int64 x = 0; x < theWidth; ++x)
            {
                px[0] = float(x) * (1.0f / theWidth);
                r.setPixelValue(x, y, px);
            }
        benchmark::ClobberMemory();
        seconds += (Clock::now() - t0);
    }
    benchmark::DoNotOptimize(r.getPixels());
    state.SetLabel(IMBdataFormat(format));
    report(state, seconds, static_cast<std::size_t>(r.getSize()));
}

// The rectangle: most of the frame, away from every edge.
constexpr int64 theX1 = 200, theY1 = 150, theX2 = 3639, theY2 = 2009;

void BM_Extract(benchmark::State &state)
{
    const auto format = static_cast<IMB_DataFormat>(state.range(0));
    const IMB_Raster src = makeRamp(format, theWidth, theHeight);
    IMB_Raster dst;
    dst.extract(src, theX1, theY1, theX2, theY2); // shape and memory once
    double seconds = 0;
    for (auto _ : state)
    {
        auto t0 = Clock::now();
        dst.extract(src, theX1, theY1, theX2, theY2);
        benchmark::ClobberMemory();
        seconds += (Clock::now() - t0);
    }
    state.SetLabel(IMBdataFormat(format));
    report(state, seconds, static_cast<std::size_t>(dst.getSize()));
}

void BM_Insert(benchmark::State &state)
{
    const auto format = static_cast<IMB_DataFormat>(state.range(0));
    const IMB_Raster src = makeRamp(format, theX2 - theX1 + 1, theY2 - theY1 + 1);
    IMB_Raster dst(PACK_RGBA, format, theWidth, theHeight, 1);
    double seconds = 0;
    for (auto _ : state)
    {
        auto t0 = Clock::now();
        dst.insert(src, theX1, theY1);
        benchmark::ClobberMemory();
        seconds += (Clock::now() - t0);
    }
    state.SetLabel(IMBdataFormat(format));
    report(state, seconds, static_cast<std::size_t>(src.getSize()));
}

void allFormats(benchmark::internal::Benchmark *b)
{
    for (int f : {IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16})
        b->Arg(f);
    b->Unit(benchmark::kMillisecond);
}

void byteFormats(benchmark::internal::Benchmark *b)
{
    for (int f : {IMB_INT8, IMB_FLOAT32})
        b->Arg(f);
    b->Unit(benchmark::kMillisecond);
}
} // namespace

BENCHMARK(BM_GetPixelValue)->Apply(allFormats);
BENCHMARK(BM_SetPixelValue)->Apply(allFormats);
BENCHMARK(BM_Extract)->Apply(byteFormats);
BENCHMARK(BM_Insert)->Apply(byteFormats);

BENCHMARK_MAIN();
