// Raster pixel access on a UHD RGBA raster: per-pixel getPixelValue and
// setPixelValue in every format, and extract/insert of a large rectangle.
// Times are thread CPU time: the build machines are shared, and wall time
// there measures the neighbours as much as the code. Every case also times a
// memcpy of the same bytes in the same run and reports the ratio as vs_memcpy
// (below 1 is faster than memcpy). Raster access runs on the calling thread:
// every case is a one-thread case (BenchSupport.h); none has a peer.
#include "BenchSupport.h"

#include <IMB/IMB.h>

#include <benchmark/benchmark.h>

namespace
{
constexpr int64 theWidth = 3840;
constexpr int64 theHeight = 2160;

// Calling-thread processor time, as the cases read it.
double threadNow()
{
    return imb_bench::now(imb_bench::Clock::thread);
}

void report(benchmark::State &state, double loopSeconds, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    const double perIteration = loopSeconds / static_cast<double>(state.iterations());
    imb_bench::setRatio(state, "vs_memcpy", perIteration, imb_bench::memcpySeconds(bytes, imb_bench::Clock::thread));
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
        auto t0 = threadNow();
        float sum = 0;
        float px[4];
        for (int64 y = 0; y < theHeight; ++y)
            for (int64 x = 0; x < theWidth; ++x)
            {
                r.getPixelValue(x, y, px);
                sum += px[0] + px[3];
            }
        benchmark::DoNotOptimize(sum);
        seconds += (threadNow() - t0);
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
        auto t0 = threadNow();
        for (int64 y = 0; y < theHeight; ++y)
            for (int64 x = 0; x < theWidth; ++x)
            {
                px[0] = float(x) * (1.0f / theWidth);
                r.setPixelValue(x, y, px);
            }
        benchmark::ClobberMemory();
        seconds += (threadNow() - t0);
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
        auto t0 = threadNow();
        dst.extract(src, theX1, theY1, theX2, theY2);
        benchmark::ClobberMemory();
        seconds += (threadNow() - t0);
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
        auto t0 = threadNow();
        dst.insert(src, theX1, theY1);
        benchmark::ClobberMemory();
        seconds += (threadNow() - t0);
    }
    state.SetLabel(IMBdataFormat(format));
    report(state, seconds, static_cast<std::size_t>(src.getSize()));
}

void allFormats(benchmark::internal::Benchmark *b)
{
    for (int f : {IMB_INT8, IMB_INT16, IMB_INT32, IMB_FLOAT32, IMB_FLOAT16})
        b->Arg(f);
    b->ArgName("format")->Unit(benchmark::kMillisecond);
}

void byteFormats(benchmark::internal::Benchmark *b)
{
    for (int f : {IMB_INT8, IMB_FLOAT32})
        b->Arg(f);
    b->ArgName("format")->Unit(benchmark::kMillisecond);
}
} // namespace

IMB_BENCH_CASES(imb_bench::kOneThread, "BM_GetPixelValue", allFormats, BM_GetPixelValue);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_SetPixelValue", allFormats, BM_SetPixelValue);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Extract", byteFormats, BM_Extract);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Insert", byteFormats, BM_Insert);

BENCHMARK_MAIN();
