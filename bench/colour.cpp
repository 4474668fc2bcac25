// Colour management: the processor cache against OpenColorIO's own
// Config::getProcessor, and an sRGB to linear conversion of a UHD float RGBA
// image through a baked table (applyLUT) and through IMB_OCIO::transform,
// both against OpenColorIO's CPU processor applied directly (vs_peer) and a
// memcpy of the image (vs_memcpy).
//
// applyLUT runs on the library's pool, so its case runs on one thread and on
// all (BenchSupport.h), the peer then applying one band of rows per thread.
// The processor cache and IMB_OCIO::transform (one OpenColorIO apply on the
// calling thread) are single-threaded, as is their peer: one thread only.
// Times are wall-clock times.
//
// Uses $OCIO when set, else the repository's share/ocio/config.ocio.
#include "BenchSupport.h"

#include <IMB/IMB.h>

#include <OpenColorIO/OpenColorIO.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace OCIO = OCIO_NAMESPACE;

namespace
{
constexpr int kWidth = 3840;
constexpr int kHeight = 2160;
const char *const kSrc = "sRGB - Texture";
const char *const kDst = "Linear Rec.709 (sRGB)";

// Points OCIO at the shipped configuration before the library loads it.
struct ConfigSetup
{
    ConfigSetup()
    {
        // The source folder comes from the build: __FILE__ may be relative
        // to the build folder (a compiler cache rewrites it so), and the
        // programs run from anywhere.
        if (!std::getenv("OCIO"))
            setenv("OCIO", IMB_SOURCE_DIR "/share/ocio/config.ocio", 1);
    }
} theSetup;

OCIO::ConstConfigRcPtr peerConfig()
{
    static OCIO::ConstConfigRcPtr config = OCIO::Config::CreateFromFile(std::getenv("OCIO"));
    return config;
}

using imb_bench::Clock;

double nowSeconds()
{
    return imb_bench::now(Clock::wall);
}

// A UHD RGBA float image of values spread over [0, 1].
IMB_Raster &sourceImage()
{
    static IMB_Raster image = [] {
        IMB_Raster r(PACK_RGBA, IMB_FLOAT32, kWidth, kHeight);
        float *p = static_cast<float *>(r.getPixels());
        const std::size_t n = static_cast<std::size_t>(kWidth) * kHeight;
        for (std::size_t i = 0; i < n; ++i)
        {
            p[4 * i + 0] = static_cast<float>(i % 4096) / 4095.0f;
            p[4 * i + 1] = static_cast<float>((i * 7) % 4096) / 4095.0f;
            p[4 * i + 2] = static_cast<float>((i * 13) % 4096) / 4095.0f;
            p[4 * i + 3] = 1.0f;
        }
        return r;
    }();
    return image;
}

// OpenColorIO's CPU processor converting `work` in place, a band of rows
// per pool thread (the whole image in one call on one thread).
void peerConvert(const OCIO::ConstCPUProcessorRcPtr &cpu, IMB_Raster &work)
{
    float *pixels = static_cast<float *>(work.getPixels());
    imb_bench::forRowBands(kHeight, [&](int64_t first, int64_t end) {
        OCIO::PackedImageDesc desc(pixels + first * kWidth * 4, kWidth, static_cast<long>(end - first), 4);
        cpu->apply(desc);
    });
}

// Seconds for one direct OpenColorIO CPU conversion of the image (the peer)
// on the pool's threads, measured once per thread count.
double peerConversionSeconds()
{
    static std::map<int, double> cache;
    const int threads = imb_bench::poolThreads();
    const auto it = cache.find(threads);
    if (it != cache.end())
        return it->second;
    OCIO::ConstCPUProcessorRcPtr cpu = peerConfig()->getProcessor(kSrc, kDst)->getDefaultCPUProcessor();
    IMB_Raster work(sourceImage());
    const double seconds = imb_bench::bestOf(Clock::wall, [&] { peerConvert(cpu, work); });
    cache[threads] = seconds;
    return seconds;
}

double memcpySeconds()
{
    return imb_bench::memcpySeconds(static_cast<std::size_t>(sourceImage().getSize()), Clock::wall);
}

// Largest difference between the baked table and the processor on [0, 1].
double bakedMaxDifference(const IMB_Lookup &lut)
{
    const int n = 65536;
    IMB_Raster baked(PACK_RGBA, IMB_FLOAT32, n, 1);
    float *b = static_cast<float *>(baked.getPixels());
    std::vector<float> direct(4 * static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        for (int c = 0; c < 4; ++c)
            b[4 * i + c] = direct[4 * i + c] = c == 3 ? 1.0f : static_cast<float>(i) / (n - 1);
    lut.applyLUT(baked);
    IMB_OCIO::transform(IMB_OCIO::lookupProcessor(kSrc, kDst, "", true), direct.data(), n, 4);
    double worst = 0;
    for (std::size_t i = 0; i < direct.size(); ++i)
        worst = std::max(worst, static_cast<double>(std::fabs(b[i] - direct[i])));
    return worst;
}

void BM_LookupProcessorCached(benchmark::State &state)
{
    const BAS_StringHolder src(kSrc), dst(kDst), looks;
    if (!IMB_OCIO::lookupProcessor(src, dst, looks, true).isValid())
    {
        state.SkipWithError("no processor: is OCIO set?");
        return;
    }
    // Peer: OpenColorIO's own getProcessor for the same pair (it caches too).
    OCIO::ConstConfigRcPtr config = peerConfig();
    config->getProcessor(kSrc, kDst);
    const int peerIters = 20000;
    double t0 = nowSeconds();
    for (int i = 0; i < peerIters; ++i)
        benchmark::DoNotOptimize(config->getProcessor(kSrc, kDst));
    const double peerPerCall = (nowSeconds() - t0) / peerIters;

    t0 = nowSeconds();
    for (auto _ : state)
        benchmark::DoNotOptimize(IMB_OCIO::lookupProcessor(src, dst, looks, true));
    const double perCall = (nowSeconds() - t0) / static_cast<double>(state.iterations());
    state.counters["vs_peer"] = perCall / peerPerCall;
    state.counters["peer_ns"] = peerPerCall * 1e9;
}

void BM_OcioGetProcessorPeer(benchmark::State &state)
{
    OCIO::ConstConfigRcPtr config = peerConfig();
    for (auto _ : state)
        benchmark::DoNotOptimize(config->getProcessor(kSrc, kDst));
}

void BM_ConvertBakedApplyLUT(benchmark::State &state)
{
    IMB_Lookup lut;
    if (!lut.buildOpenColorIO(kSrc, kDst, nullptr, 0))
    {
        state.SkipWithError("cannot bake the table: is OCIO set?");
        return;
    }
    const double peer = peerConversionSeconds();
    IMB_Raster work(sourceImage());
    const double t0 = nowSeconds();
    for (auto _ : state)
        lut.applyLUT(work);
    const double perImage = (nowSeconds() - t0) / static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * work.getSize());
    imb_bench::setRatio(state, "vs_peer", perImage, peer);
    imb_bench::setRatio(state, "vs_memcpy", perImage, memcpySeconds());
    state.counters["max_diff"] = bakedMaxDifference(lut);
}

void BM_ConvertTransform(benchmark::State &state)
{
    IMB_OCIO::PHandle h = IMB_OCIO::lookupProcessor(kSrc, kDst, "", true);
    if (!h.isValid())
    {
        state.SkipWithError("no processor: is OCIO set?");
        return;
    }
    const double peer = peerConversionSeconds();
    IMB_Raster work(sourceImage());
    const double t0 = nowSeconds();
    for (auto _ : state)
        IMB_OCIO::transform(h, static_cast<float *>(work.getPixels()), kWidth * kHeight, 4);
    const double perImage = (nowSeconds() - t0) / static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * work.getSize());
    imb_bench::setRatio(state, "vs_peer", perImage, peer);
    imb_bench::setRatio(state, "vs_memcpy", perImage, memcpySeconds());
}

void BM_ConvertOcioCPUPeer(benchmark::State &state)
{
    OCIO::ConstCPUProcessorRcPtr cpu = peerConfig()->getProcessor(kSrc, kDst)->getDefaultCPUProcessor();
    IMB_Raster work(sourceImage());
    for (auto _ : state)
        peerConvert(cpu, work);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * work.getSize());
}
void wallMilliseconds(benchmark::internal::Benchmark *b)
{
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
} // namespace

IMB_BENCH_CASES(imb_bench::kOneThread, "BM_LookupProcessorCached", nullptr, BM_LookupProcessorCached);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_OcioGetProcessorPeer", nullptr, BM_OcioGetProcessorPeer);
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_ConvertBakedApplyLUT", wallMilliseconds, BM_ConvertBakedApplyLUT);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_ConvertTransform", wallMilliseconds, BM_ConvertTransform);
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_ConvertOcioCPUPeer", wallMilliseconds, BM_ConvertOcioCPUPeer);

BENCHMARK_MAIN();
