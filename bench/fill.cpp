// imb_bench_fill: IMB_Fill on a 3840 x 2160 image of 4 components.
//
// Conversions: every (source, destination) format pair on contiguous, full
// range buffers, beside a memcpy of the larger buffer (vs_memcpy) and beside
// OpenImageIO converting the same data to the same type on one thread
// (ImageBufAlgo::copy into an ImageBuf of the destination type; vs_peer).
// Arithmetic: clear, invert and multiply beside a memcpy of the same bytes and
// beside OpenImageIO's fill, invert and mul on one thread. IMB_Fill runs on
// the calling thread, so every case is a one-thread case (BenchSupport.h).
// All times are the benchmark thread's processor time (manual time),
// references included: the machines these run on are often shared, and wall
// time then measures the neighbours as much as the code.
#include "BenchSupport.h"

#include <IMB/IMB_Fill.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{
constexpr int64 kWidth = 3840;
constexpr int64 kHeight = 2160;
constexpr int64 kChannels = 4;
constexpr int64 kCount = kWidth * kHeight * kChannels;

const char *kNames[] = {"int8", "int16", "int32", "float32", "float16"};

size_t bytesOf(IMB_DataFormat f)
{
    return static_cast<size_t>(imbDefinesDepth[f]);
}

OIIO::TypeDesc oiioType(IMB_DataFormat f)
{
    switch (f)
    {
    case IMB_INT8:
        return OIIO::TypeDesc::UINT8;
    case IMB_INT16:
        return OIIO::TypeDesc::UINT16;
    case IMB_INT32:
        return OIIO::TypeDesc::UINT32;
    case IMB_FLOAT32:
        return OIIO::TypeDesc::FLOAT;
    default:
        return OIIO::TypeDesc::HALF;
    }
}

// A 64-byte aligned block of components.
struct Block
{
    std::unique_ptr<unsigned char[]> storage;
    unsigned char *data = nullptr;
    size_t bytes = 0;

    explicit Block(size_t n) : storage(new unsigned char[n + 64]), bytes(n)
    {
        data = storage.get() + (64 - reinterpret_cast<uintptr_t>(storage.get()) % 64);
        std::memset(data, 0, n); // touch every page before timing
    }
};

// Source data of a format: a smooth ramp with noise, inside [0, 1] for floats.
std::shared_ptr<Block> sourceOf(IMB_DataFormat f)
{
    static std::map<int, std::shared_ptr<Block>> cache;
    auto &b = cache[f];
    if (b)
        return b;
    b = std::make_shared<Block>(static_cast<size_t>(kCount) * bytesOf(f));
    std::mt19937 rng(42);
    std::uniform_real_distribution<float> noise(0.0f, 1.0f);
    // Convert a float ramp with the library itself (outside any timing).
    std::vector<float> ramp(static_cast<size_t>(kCount));
    for (int64 i = 0; i < kCount; ++i)
        ramp[static_cast<size_t>(i)] = 0.75f * static_cast<float>(i % (kWidth * kChannels)) / (kWidth * kChannels) +
                                       0.25f * noise(rng);
    IMB_FillParms p;
    p.mySource = ramp.data();
    p.mySourceType = IMB_FLOAT32;
    p.myDest = b->data;
    p.myDestType = f;
    p.myDestWhite = 0xFFFFFFFFu; // a full-range 32-bit source
    p.setSourceArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    p.setDestArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    IMB_Fill::fill(p);
    return b;
}

using imb_bench::Clock;

// The peer's time: the best of a few calls on this thread.
template <typename Fn> double peerSeconds(Fn &&fn)
{
    return imb_bench::bestOf(Clock::thread, fn);
}

double memcpySeconds(size_t n)
{
    return imb_bench::memcpySeconds(n, Clock::thread);
}

// Runs the timed loop and reports bytes (read + written) and the ratios.
template <typename Fn> void timeLoop(benchmark::State &state, size_t bytesMoved, double memcpyTime, double peerTime, Fn &&fn)
{
    double total = 0;
    for (auto _ : state)
    {
        const double t = imb_bench::secondsOf(Clock::thread, [&] {
            fn();
            benchmark::ClobberMemory();
        });
        state.SetIterationTime(t);
        total += t;
    }
    const double perCall = total / static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytesMoved));
    imb_bench::setRatio(state, "vs_memcpy", perCall, memcpyTime);
    imb_bench::setRatio(state, "vs_peer", perCall, peerTime);
}

// Sets `p` (default points) to convert the whole image contiguously from
// `src` to `dst`.
void setConversion(IMB_FillParms &p, const void *src, IMB_DataFormat s, void *dst, IMB_DataFormat d)
{
    p.mySource = src;
    p.mySourceType = s;
    p.myDest = dst;
    p.myDestType = d;
    p.setSourceArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    p.setDestArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
}

void convertBench(benchmark::State &state, IMB_DataFormat s, IMB_DataFormat d)
{
    auto src = sourceOf(s);
    Block dst(static_cast<size_t>(kCount) * bytesOf(d));
    IMB_FillParms p;
    setConversion(p, src->data, s, dst.data, d);
    if (d == IMB_INT32)
        p.myDestWhite = 0xFFFFFFFFu;

    // The peer: OpenImageIO converting the same pixels on one thread.
    const OIIO::ImageSpec srcSpec(static_cast<int>(kWidth), static_cast<int>(kHeight), static_cast<int>(kChannels),
                                  oiioType(s));
    const OIIO::ImageBuf srcBuf(srcSpec, src->data);
    OIIO::ImageBuf dstBuf(OIIO::ImageSpec(static_cast<int>(kWidth), static_cast<int>(kHeight),
                                          static_cast<int>(kChannels), oiioType(d)));
    const double peer = peerSeconds([&] { OIIO::ImageBufAlgo::copy(dstBuf, srcBuf, OIIO::TypeUnknown, {}, 1); });

    const size_t larger = static_cast<size_t>(kCount) * std::max(bytesOf(s), bytesOf(d));
    timeLoop(state, static_cast<size_t>(kCount) * (bytesOf(s) + bytesOf(d)), memcpySeconds(larger), peer,
             [&] { IMB_Fill::fill(p); });
}

template <IMB_DataFormat F> OIIO::ImageBuf wrapped(Block &b)
{
    return OIIO::ImageBuf(OIIO::ImageSpec(static_cast<int>(kWidth), static_cast<int>(kHeight),
                                          static_cast<int>(kChannels), oiioType(F)),
                          b.data);
}

template <IMB_DataFormat F> void BM_Clear(benchmark::State &state)
{
    const size_t bytes = static_cast<size_t>(kCount) * bytesOf(F);
    Block dst(bytes);
    IMB_FillParms p;
    p.myDest = dst.data;
    p.myDestType = F;
    p.setDestArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    p.myValue = 0.5f;
    OIIO::ImageBuf buf = wrapped<F>(dst);
    const float half[4] = {0.5f, 0.5f, 0.5f, 0.5f};
    const double peer = peerSeconds([&] { OIIO::ImageBufAlgo::fill(buf, half, {}, 1); });
    timeLoop(state, bytes, memcpySeconds(bytes), peer, [&] { IMB_Fill::clear(p); });
}

template <IMB_DataFormat F> void BM_Invert(benchmark::State &state)
{
    const size_t bytes = static_cast<size_t>(kCount) * bytesOf(F);
    auto src = sourceOf(F);
    Block dst(bytes);
    std::memcpy(dst.data, src->data, bytes);
    IMB_FillParms p;
    p.myDest = dst.data;
    p.myDestType = F;
    p.setDestArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    p.myValue = 1.0f;
    OIIO::ImageBuf buf = wrapped<F>(dst);
    const double peer = peerSeconds([&] { OIIO::ImageBufAlgo::invert(buf, buf, {}, 1); });
    timeLoop(state, 2 * bytes, memcpySeconds(bytes), peer, [&] { IMB_Fill::invert(p); });
}

template <IMB_DataFormat F> void BM_Multiply(benchmark::State &state)
{
    const size_t bytes = static_cast<size_t>(kCount) * bytesOf(F);
    auto src = sourceOf(F);
    Block dst(bytes);
    std::memcpy(dst.data, src->data, bytes);
    IMB_FillParms p;
    p.myDest = dst.data;
    p.myDestType = F;
    p.setDestArea(0, 0, kWidth * kChannels - 1, kHeight - 1);
    p.myUsePixelFactors = 0;
    p.myFactor = 1.0f; // keeps the data the same from call to call
    OIIO::ImageBuf buf = wrapped<F>(dst);
    const double peer = peerSeconds([&] { OIIO::ImageBufAlgo::mul(buf, buf, 1.0f, {}, 1); });
    timeLoop(state, 2 * bytes, memcpySeconds(bytes), peer, [&] { IMB_Fill::multiply(p); });
}

// 16 bits to 32 with the destination's stored default points (0 to 255,
// where fill puts a fast 32-bit destination), the case the 32-bit rows
// shorten to single precision. OpenImageIO has no such conversion: only
// the memcpy ratio.
void BM_ConvertDefaultPoints(benchmark::State &state)
{
    auto src = sourceOf(IMB_INT16);
    Block dst(static_cast<size_t>(kCount) * bytesOf(IMB_INT32));
    IMB_FillParms p;
    setConversion(p, src->data, IMB_INT16, dst.data, IMB_INT32);
    timeLoop(state, static_cast<size_t>(kCount) * (bytesOf(IMB_INT16) + bytesOf(IMB_INT32)),
             memcpySeconds(static_cast<size_t>(kCount) * bytesOf(IMB_INT32)), 0.0, [&] { IMB_Fill::fill(p); });
}

void manualMilliseconds(benchmark::internal::Benchmark *b)
{
    b->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.3);
}

// Every case, one thread each.
struct Registrar
{
    template <typename Fn, typename... Args> static void add(const std::string &name, Fn fn, Args... args)
    {
        imb_bench::registerCases(imb_bench::kOneThread, name, manualMilliseconds, fn, args...);
    }

    Registrar()
    {
        add("BM_Convert/int16_to_int32_default_points", BM_ConvertDefaultPoints);
        for (int s = 0; s < 5; ++s)
            for (int d = 0; d < 5; ++d)
                add(std::string("BM_Convert/") + kNames[s] + "_to_" + kNames[d], convertBench,
                    static_cast<IMB_DataFormat>(s), static_cast<IMB_DataFormat>(d));
        add("BM_Clear<IMB_INT8>", BM_Clear<IMB_INT8>);
        add("BM_Clear<IMB_FLOAT32>", BM_Clear<IMB_FLOAT32>);
        add("BM_Invert<IMB_INT8>", BM_Invert<IMB_INT8>);
        add("BM_Invert<IMB_FLOAT32>", BM_Invert<IMB_FLOAT32>);
        add("BM_Multiply<IMB_INT8>", BM_Multiply<IMB_INT8>);
        add("BM_Multiply<IMB_FLOAT32>", BM_Multiply<IMB_FLOAT32>);
    }
} theRegistrar;
} // namespace

BENCHMARK_MAIN();
