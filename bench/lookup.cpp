// Lookup-table application to a 3840x2160 raster: a 4096-entry 1D table and
// an edge-64 cube on RGBA float, and the 1D table on RGBA 8-bit. Each case is
// measured beside a memcpy of the raster's bytes (vs_memcpy) and, for the
// float cases, beside OpenColorIO's CPU processor applying a Lut1DTransform
// or a trilinear Lut3DTransform holding the same values (vs_peer). Every case
// runs twice (BenchSupport.h): on one thread, where the library's pool has
// one thread and OpenColorIO applies the whole image in one call, and on all
// threads, where the library runs as it does by default and OpenColorIO
// applies one band of rows per pool thread, the memcpy split likewise.
// Loading an edge-65 ".cube" file (written by the library at setup) is
// measured on one thread beside OpenColorIO building a processor from the
// same file, its caches off (vs_peer). Times are wall-clock times.
#include "BenchSupport.h"

#include <IMB/IMB.h>
#include <IMB/platform/CRV_Clip.h>

#include <OpenColorIO/OpenColorIO.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace OCIO = OCIO_NAMESPACE;

namespace
{
constexpr int kW = 3840, kH = 2160, kLen = 4096, kEdge = 64;

using imb_bench::Clock;

// OpenColorIO applying `cpu` to the raster the way an application spreads
// it over its threads: a band of rows per pool thread, each band its own
// packed image (one band, the whole image, on one thread).
void peerApply(const OCIO::ConstCPUProcessorRcPtr &cpu, IMB_Raster &r)
{
    float *pixels = static_cast<float *>(r.getPixels());
    imb_bench::forRowBands(kH, [&](int64_t first, int64_t end) {
        OCIO::PackedImageDesc desc(pixels + first * kW * 4, kW, static_cast<long>(end - first), 4);
        cpu->apply(desc);
    });
}

// The peer's fastest run, each from the same pixels.
double peerSeconds(const OCIO::ConstCPUProcessorRcPtr &cpu, IMB_Raster &r, const std::vector<unsigned char> &pristine)
{
    return imb_bench::bestOfPrepared(
        Clock::wall, [&] { std::memcpy(r.getPixels(), pristine.data(), pristine.size()); },
        [&] { peerApply(cpu, r); });
}

double memcpySeconds(const IMB_Raster &r)
{
    return imb_bench::memcpySeconds(static_cast<std::size_t>(r.getSize()), Clock::wall);
}

// Three gamma-like curves, one per colour channel.
float curve(int c, double x) { return static_cast<float>(std::pow(x, c == 0 ? 1 / 2.2 : c == 1 ? 1 / 1.8 : 2.0)); }

IMB_Lookup makeTable()
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(kLen);
    for (int c = 0; c < 3; ++c)
    {
        double *t = lut.getRawLUT(static_cast<IMB_LookupType>(1 << c));
        for (int i = 0; i < kLen; ++i)
            t[i] = curve(c, static_cast<double>(i) / (kLen - 1));
    }
    return lut;
}

OCIO::ConstCPUProcessorRcPtr peer1D()
{
    auto lut = OCIO::Lut1DTransform::Create(kLen, false);
    lut->setInterpolation(OCIO::INTERP_LINEAR);
    for (int i = 0; i < kLen; ++i)
    {
        const double x = static_cast<double>(i) / (kLen - 1);
        lut->setValue(i, curve(0, x), curve(1, x), curve(2, x));
    }
    auto config = OCIO::Config::CreateRaw();
    return config->getProcessor(lut)->getDefaultCPUProcessor();
}

std::vector<float> cubeValues()
{
    std::vector<float> v(3 * kEdge * kEdge * kEdge);
    for (int b = 0; b < kEdge; ++b)
        for (int g = 0; g < kEdge; ++g)
            for (int r = 0; r < kEdge; ++r)
            {
                const float x[3] = {r / float(kEdge - 1), g / float(kEdge - 1), b / float(kEdge - 1)};
                float *o = &v[3 * (r + kEdge * g + kEdge * kEdge * b)];
                // A colour-mixing transform, so the cube is not separable.
                o[0] = std::sqrt(0.7f * x[0] + 0.2f * x[1] + 0.1f * x[2]);
                o[1] = 0.1f * x[0] + 0.8f * x[1] * x[1] + 0.1f * x[2];
                o[2] = std::min(1.0f, 0.3f * x[0] + 0.3f * x[1] + 0.6f * x[2] * x[0]);
            }
    return v;
}

OCIO::ConstCPUProcessorRcPtr peer3D(const std::vector<float> &v)
{
    auto lut = OCIO::Lut3DTransform::Create(kEdge);
    lut->setInterpolation(OCIO::INTERP_LINEAR); // trilinear for a 3D table
    for (int b = 0; b < kEdge; ++b)
        for (int g = 0; g < kEdge; ++g)
            for (int r = 0; r < kEdge; ++r)
            {
                const float *o = &v[3 * (r + kEdge * g + kEdge * kEdge * b)];
                lut->setValue(r, g, b, o[0], o[1], o[2]);
            }
    auto config = OCIO::Config::CreateRaw();
    return config->getProcessor(lut)->getDefaultCPUProcessor();
}

template <typename V> void fillRandom(IMB_Raster &r, V scale)
{
    std::mt19937 gen(1);
    std::uniform_real_distribution<float> d(0.0f, 1.0f);
    V *p = static_cast<V *>(r.getPixels());
    const int64 n = r.getSize() / static_cast<int64>(sizeof(V));
    for (int64 i = 0; i < n; ++i)
        p[i] = static_cast<V>(d(gen) * scale);
}

// Runs the library case in the timing loop and sets the counters.
// Runs the library case in the timing loop and sets the counters. Each run
// starts from the same pixels (restored untimed): tables applied over and
// over would walk the values somewhere else, into denormals for a squaring
// curve. The ratios compare the fastest runs of each side.
void runCase(benchmark::State &state, IMB_Raster &r, const std::vector<unsigned char> &pristine, const IMB_Lookup &lut,
             double memcpyS, double peerS)
{
    double best = 1e30;
    int64 n = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        std::memcpy(r.getPixels(), pristine.data(), pristine.size());
        state.ResumeTiming();
        const auto a = std::chrono::steady_clock::now();
        lut.applyLUT(r);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count());
        ++n;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(n * r.getSize());
    imb_bench::setRatio(state, "vs_memcpy", best, memcpyS);
    imb_bench::setRatio(state, "vs_peer", best, peerS);
    if (peerS > 0)
        state.counters["peer_ms"] = peerS * 1e3;
    state.counters["memcpy_ms"] = memcpyS * 1e3;
}

std::vector<unsigned char> pixelsOf(const IMB_Raster &r)
{
    const auto *p = static_cast<const unsigned char *>(r.getPixels());
    return std::vector<unsigned char>(p, p + r.getSize());
}

void BM_Apply1DFloatRGBA(benchmark::State &state)
{
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, kW, kH, 0, 1);
    fillRandom<float>(r, 1.0f);
    const std::vector<unsigned char> pristine = pixelsOf(r);
    const IMB_Lookup lut = makeTable();
    auto cpu = peer1D();
    const double peer = peerSeconds(cpu, r, pristine);
    runCase(state, r, pristine, lut, memcpySeconds(r), peer);
}

void BM_Apply3DFloatRGBA(benchmark::State &state)
{
    IMB_Raster r(PACK_RGBA, IMB_FLOAT32, kW, kH, 0, 1);
    fillRandom<float>(r, 1.0f);
    const std::vector<unsigned char> pristine = pixelsOf(r);
    const std::vector<float> v = cubeValues();
    IMB_Lookup lut;
    lut.set3DLUT(kEdge, v.data());
    auto cpu = peer3D(v);
    const double peer = peerSeconds(cpu, r, pristine);
    runCase(state, r, pristine, lut, memcpySeconds(r), peer);
}

void BM_Apply1DInt8RGBA(benchmark::State &state)
{
    IMB_Raster r(PACK_RGBA, IMB_INT8, kW, kH, 0, 1);
    fillRandom<uint8>(r, 255.0f);
    const IMB_Lookup lut = makeTable();
    runCase(state, r, pixelsOf(r), lut, memcpySeconds(r), 0.0);
}

// An edge-65 cube of the mixing transform, as a ".cube" text file (about
// 7.6 MB), loaded into a table; the peer is OpenColorIO reading the same
// file into a processor through a FileTransform, with its processor cache
// off and every cache cleared before each build, so both parse the file.
void BM_LoadCube65(benchmark::State &state)
{
    constexpr int kCubeEdge = 65;
    std::vector<float> v(3 * kCubeEdge * kCubeEdge * kCubeEdge);
    for (int b = 0; b < kCubeEdge; ++b)
        for (int g = 0; g < kCubeEdge; ++g)
            for (int r = 0; r < kCubeEdge; ++r)
            {
                float *o = &v[3 * (r + kCubeEdge * g + kCubeEdge * kCubeEdge * b)];
                const float x = r / float(kCubeEdge - 1), y = g / float(kCubeEdge - 1), z = b / float(kCubeEdge - 1);
                o[0] = std::sqrt(0.7f * x + 0.2f * y + 0.1f * z);
                o[1] = 0.1f * x + 0.8f * y * y + 0.1f * z;
                o[2] = std::min(1.0f, 0.3f * x + 0.3f * y + 0.6f * z * x);
            }
    IMB_Lookup cube;
    cube.set3DLUT(kCubeEdge, v.data());
    char dir[] = "/tmp/imb_bench_cube_XXXXXX";
    if (!mkdtemp(dir))
    {
        state.SkipWithError("no temporary folder");
        return;
    }
    const std::string path = std::string(dir) + "/edge65.cube";
    if (!cube.save(path.c_str(), false))
    {
        state.SkipWithError("cannot write the cube file");
        return;
    }
    FILE *fp = std::fopen(path.c_str(), "rb");
    std::fseek(fp, 0, SEEK_END);
    const long bytes = std::ftell(fp);
    std::fclose(fp);

    OCIO::ConfigRcPtr config = OCIO::Config::CreateRaw()->createEditableCopy();
    config->setSearchPath(dir);
    config->setProcessorCacheFlags(OCIO::PROCESSOR_CACHE_OFF);
    OCIO::FileTransformRcPtr ft = OCIO::FileTransform::Create();
    ft->setSrc("edge65.cube");
    ft->setInterpolation(OCIO::INTERP_LINEAR);
    const double peer = imb_bench::bestOf(
        Clock::wall,
        [&] {
            OCIO::ClearAllCaches();
            OCIO::ConstProcessorRcPtr p = config->getProcessor(ft);
            benchmark::DoNotOptimize(p.get());
        },
        5);

    double total = 0.0;
    int64 n = 0;
    for (auto _ : state)
    {
        IMB_Lookup lut;
        const auto a = std::chrono::steady_clock::now();
        const bool ok = lut.load(path.c_str(), false);
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count();
        ++n;
        if (!ok || lut.get3DSize() != kCubeEdge)
        {
            state.SkipWithError("the cube did not load");
            break;
        }
    }
    std::remove(path.c_str());
    rmdir(dir);
    const double mean = total / static_cast<double>(std::max<int64>(n, 1));
    state.SetBytesProcessed(n * bytes);
    imb_bench::setRatio(state, "vs_peer", mean, peer);
    state.counters["peer_ms"] = peer * 1e3;
}

void wallMilliseconds(benchmark::internal::Benchmark *b)
{
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
} // namespace

IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_Apply1DFloatRGBA", wallMilliseconds, BM_Apply1DFloatRGBA);
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_Apply3DFloatRGBA", wallMilliseconds, BM_Apply3DFloatRGBA);
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_Apply1DInt8RGBA", wallMilliseconds, BM_Apply1DInt8RGBA);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_LoadCube65", wallMilliseconds, BM_LoadCube65);
BENCHMARK_MAIN();
