// Deep pixels: raw stores into the accumulator, closing a pixel through the
// null and the simple compressor, and compositing a 64-sample list, beside
// OpenEXR's DeepCompositing sorting and compositing the same samples.
//
// Counters: bytes_per_second counts the sample bytes handled (depths, flag
// and channel values); vs_memcpy is the time over a memcpy of the same bytes,
// vs_peer the time over OpenEXR doing the same job (vs_peer_sort and
// vs_peer_composite: over its sort alone, its compositing alone). The
// references are measured in the same run, before the case's own loop, as
// the best of several runs in processor time; the cases use processor time
// as well, except the raw stores and the closes of 64 samples, which time
// only their own phase by the wall clock.
//
// Threads: closing and compositing run on the calling thread, as does
// OpenEXR's compositor, so those are one-thread cases (BenchSupport.h). The
// raw stores come from 1 or 2 threads of the caller's own into one pixel
// (threads:N, the argument), beside a memcpy split over as many threads.
#include "BenchSupport.h"

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepPixel.h>

#include <OpenEXR/ImfDeepCompositing.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <numeric>
#include <random>
#include <thread>
#include <atomic>
#include <vector>

namespace
{
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
using Clock = std::chrono::steady_clock;

// C (3 floats) and Of (3 floats, per-component opacity): what a beauty
// render stores per sample.
ChannelsPtr colourOpacity()
{
    ChannelsPtr c(new IMB_DeepChannelList);
    c->addChannel("C", 3);
    c->addChannel("Of", 3);
    return c;
}

constexpr int kFloats = 6;                                         // channel values per sample
constexpr std::size_t kSampleBytes = (kFloats + 2) * sizeof(float) + 1; // + depths and flag

struct Sample
{
    float zf, zb;
    float v[kFloats];
};

// Random samples: depths in 0..100, colours premultiplied by a faint opacity
// so that no compositor stops early.
std::vector<Sample> makeSamples(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> z(0.0f, 100.0f), a(0.01f, 0.05f), c(0.0f, 1.0f);
    std::vector<Sample> s(static_cast<std::size_t>(n));
    for (Sample &x : s)
    {
        x.zf = z(rng);
        x.zb = x.zf;
        const float alpha = a(rng);
        x.v[0] = c(rng) * alpha;
        x.v[1] = c(rng) * alpha;
        x.v[2] = c(rng) * alpha;
        x.v[3] = x.v[4] = x.v[5] = alpha;
    }
    return s;
}

// Shortest of several timings of fn(), in seconds of processor time: the
// benchmark's own cases are measured in processor time too, so the ratios
// hold on a busy machine.
template <typename Fn> double bestTime(Fn &&fn)
{
    return imb_bench::bestOf(imb_bench::Clock::thread, fn, 5, 200);
}

// A counter that reads elapsed time / (iterations x reference seconds): the
// case's time per iteration over the reference's, below 1 when faster. The
// elapsed time is the one the benchmark reports (real time where the case
// asks for it).
benchmark::Counter ratioTo(const benchmark::State &state, double reference, int threads = 1)
{
    return benchmark::Counter(static_cast<double>(state.iterations()) * threads * reference,
                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

double memcpyTime(std::size_t bytes)
{
    return imb_bench::memcpySeconds(bytes, imb_bench::Clock::thread);
}

// ---------------------------------------------------------------- raw stores

// Steady-state raw stores: every iteration opens the pixel, `threads`
// threads each store kStoresPerThread samples into it, and the pixel is
// closed (untimed). Only the store phase is timed (manual time), so the
// buffers have reached their size and the rate is that of a reused
// accumulator. Each thread stores enough samples (a few hundred
// microseconds) that waking the helper threads does not count. With
// `shared` 0 every thread stores into a pixel of its own: the same work
// without a lock to share, the floor of the shared case. The one-thread case
// runs while the program has no other thread, as a single-threaded caller
// does (the lock then uses plain stores, as the C library's own locks do).
constexpr int kStoresPerThread = 65536;

void BM_RawStore(benchmark::State &state)
{
    const int threads = static_cast<int>(state.range(0));
    const bool shared = state.range(1) != 0;
    std::vector<std::unique_ptr<IMB_DeepPixel>> pixels;
    for (int t = 0; t < (shared ? 1 : threads); ++t)
        pixels.emplace_back(new IMB_DeepPixel(colourOpacity(), 8));
    std::vector<std::vector<Sample>> samples;
    for (int t = 0; t < threads; ++t)
        samples.push_back(makeSamples(kStoresPerThread, 1 + static_cast<unsigned>(t)));
    auto storeAll = [&](int t) {
        IMB_DeepPixel &pixel = *pixels[shared ? 0 : static_cast<std::size_t>(t)];
        for (const Sample &s : samples[static_cast<std::size_t>(t)])
            pixel.store(s.zf, s.zb, s.v, 0, t);
    };
    // The memcpy of the same bytes on as many threads, by the same clock.
    const double ref = imb_bench::memcpySeconds(static_cast<std::size_t>(threads) * kStoresPerThread * kSampleBytes,
                                                imb_bench::Clock::wall, threads);

    // Helper threads wait for a new generation, store, and report done.
    std::atomic<int> generation(0), done(0);
    std::atomic<bool> quit(false);
    std::vector<std::thread> helpers;
    for (int t = 1; t < threads; ++t)
        helpers.emplace_back([&, t] {
            int seen = 0;
            for (;;)
            {
                int g;
                while ((g = generation.load()) == seen && !quit.load())
                    std::this_thread::yield();
                if (quit.load())
                    return;
                seen = g;
                storeAll(t);
                done.fetch_add(1);
            }
        });

    int rounds = 0;
    double timed = 0;
    for (auto _ : state)
    {
        for (auto &p : pixels)
            p->startPixel(0, 0, false);
        const auto t0 = Clock::now();
        ++rounds;
        generation.store(rounds);
        storeAll(0);
        while (done.load() < rounds * (threads - 1))
            std::this_thread::yield();
        const double t = std::chrono::duration<double>(Clock::now() - t0).count();
        timed += t;
        state.SetIterationTime(t);
        for (auto &p : pixels)
        {
            ListPtr out = p->closePixel(nullptr);
            benchmark::DoNotOptimize(out.get());
        }
    }
    quit.store(true);
    for (std::thread &h : helpers)
        h.join();
    const int64_t stores = state.iterations() * threads * kStoresPerThread;
    state.SetItemsProcessed(stores);
    state.SetBytesProcessed(stores * static_cast<int64_t>(kSampleBytes));
    state.counters["vs_memcpy"] = timed / static_cast<double>(state.iterations()) / ref;
}
BENCHMARK(BM_RawStore)->ArgNames({"threads", "shared"})->Args({1, 1})->Args({2, 1})->Args({2, 0})->UseManualTime();

// ---------------------------------------------------------------- close

// Stores 8 samples for each of `subSamples` ids and closes the pixel.
void closeOnce(IMB_DeepPixel &p, const std::vector<Sample> &samples, int subSamples,
               const std::shared_ptr<IMB_DeepCompressor> &c)
{
    p.startPixel(0, 0, false);
    for (std::size_t i = 0; i < samples.size(); ++i)
        p.store(samples[i].zf, samples[i].zb, samples[i].v, 0, static_cast<int>(i) % subSamples);
    ListPtr out = p.closePixel(c);
    benchmark::DoNotOptimize(out.get());
}

void BM_ClosePixel(benchmark::State &state, const char *compressor)
{
    const int subSamples = static_cast<int>(state.range(0));
    ChannelsPtr chans = colourOpacity();
    auto c = IMB_DeepCompressor::Factory::create(compressor, chans, BAS_Options());
    const std::vector<Sample> samples = makeSamples(8 * subSamples, 42);
    IMB_DeepPixel p(chans, subSamples);
    const std::size_t bytes = samples.size() * kSampleBytes;
    const double ref = memcpyTime(bytes);
    for (auto _ : state)
        closeOnce(p, samples, subSamples, c);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
    state.counters["vs_memcpy"] = ratioTo(state, ref);
}
void subSampleCounts(benchmark::internal::Benchmark *b)
{
    b->ArgName("subsamples")->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Arg(16);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_ClosePixel/null", subSampleCounts, BM_ClosePixel, "null");
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_ClosePixel/simple", subSampleCounts, BM_ClosePixel, "simple");

// ---------------------------------------------------------------- OpenEXR

// OpenEXR's deep compositor on the samples as channel arrays (Z, ZBack, A,
// R, G, B), sorting them (more than one source) and compositing front to back.
// Its two halves are timed apart as well: the sort alone, and compositing
// samples already in depth order through a compositor whose sort keeps the
// given order.
struct PresortedCompositing : Imf::DeepCompositing
{
    void sort(int order[], const float *[], const char *[], int, int samples, int) override
    {
        std::iota(order, order + samples, 0);
    }
};

struct ExrPixel
{
    std::vector<float> z, zb, a, r, g, b;
    const float *inputs[6];
    const char *names[6] = {"Z", "ZBack", "A", "R", "G", "B"};
    float outputs[6];
    std::vector<int> order;
    Imf::DeepCompositing sorting;
    PresortedCompositing presorted;

    explicit ExrPixel(const std::vector<Sample> &s) : order(s.size())
    {
        for (const Sample &x : s)
        {
            z.push_back(x.zf);
            zb.push_back(x.zb);
            a.push_back(x.v[3]);
            r.push_back(x.v[0]);
            g.push_back(x.v[1]);
            b.push_back(x.v[2]);
        }
        const float *in[6] = {z.data(), zb.data(), a.data(), r.data(), g.data(), b.data()};
        std::copy(in, in + 6, inputs);
    }
    int count() const { return static_cast<int>(z.size()); }
    void run()
    {
        sorting.composite_pixel(outputs, inputs, names, 6, count(), 2);
        benchmark::DoNotOptimize(outputs);
    }
    // The sort alone (which expects the order filled in, as the compositor
    // does before calling it).
    void sortOnly()
    {
        std::iota(order.begin(), order.end(), 0);
        sorting.sort(order.data(), inputs, names, 6, count(), 2);
        benchmark::DoNotOptimize(order.data());
    }
    // The compositing alone; the samples must be in depth order.
    void compositeOnly()
    {
        presorted.composite_pixel(outputs, inputs, names, 6, count(), 2);
        benchmark::DoNotOptimize(outputs);
    }
};


std::vector<Sample> sortedByDepth(std::vector<Sample> samples)
{
    std::sort(samples.begin(), samples.end(), [](const Sample &x, const Sample &y) { return x.zf < y.zf; });
    return samples;
}

constexpr int kCompositeSamples = 64;

// OpenEXR alone: sorting and compositing, sorting, or compositing samples
// already in depth order.
void BM_Exr(benchmark::State &state, void (ExrPixel::*step)(), bool presorted)
{
    const std::vector<Sample> samples = makeSamples(kCompositeSamples, 9);
    ExrPixel exr(presorted ? sortedByDepth(samples) : samples);
    for (auto _ : state)
        (exr.*step)();
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kCompositeSamples * kSampleBytes));
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Exr/sort_and_composite", nullptr, BM_Exr, &ExrPixel::run, false);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Exr/sort", nullptr, BM_Exr, &ExrPixel::sortOnly, false);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Exr/composite_sorted", nullptr, BM_Exr, &ExrPixel::compositeOnly, true);

// Closing a pixel of 64 unsorted raw samples with the null compressor (which
// sorts them by depth), and compositing the list: the accumulator's
// counterpart of OpenEXR's sort and composite of the same samples. Each
// iteration stores the samples into a few accumulators (untimed), then closes
// (and composites) them, timed by the clock and reported per pixel. The batch
// is small so that, as for the peer, whose inputs stay put, the samples are
// in the first-level cache: a renderer closes a pixel right after storing it.
// Closing alone is set beside the peer's sort alone (vs_peer_sort).
void closeBatch(benchmark::State &state, bool composite)
{
    ChannelsPtr chans = colourOpacity();
    auto c = IMB_DeepCompressor::Factory::create("null", chans, BAS_Options());
    const std::vector<Sample> samples = makeSamples(kCompositeSamples, 9);
    ExrPixel exr(samples);
    const double peer = composite ? bestTime([&] { exr.run(); }) : bestTime([&] { exr.sortOnly(); });
    constexpr int kBatch = 4;
    std::vector<std::unique_ptr<IMB_DeepPixel>> pixels;
    for (int i = 0; i < kBatch; ++i)
        pixels.emplace_back(new IMB_DeepPixel(chans, 1));
    for (auto _ : state)
    {
        for (auto &p : pixels)
        {
            p->startPixel(0, 0, false);
            for (const Sample &s : samples)
                p->store(s.zf, s.zb, s.v, 0, 0);
        }
        const auto t0 = Clock::now();
        for (auto &p : pixels)
        {
            ListPtr out = p->closePixel(c);
            if (composite)
                out->composite(1);
            benchmark::DoNotOptimize(out->channelData(0, kCompositeSamples - 1));
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - t0).count() / kBatch);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kCompositeSamples * kSampleBytes));
    state.counters[composite ? "vs_peer" : "vs_peer_sort"] = ratioTo(state, peer);
}

void manualTime(benchmark::internal::Benchmark *b)
{
    b->UseManualTime();
}

void BM_CloseAndComposite(benchmark::State &state)
{
    closeBatch(state, true);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_CloseAndComposite", manualTime, BM_CloseAndComposite);

void BM_Close(benchmark::State &state)
{
    closeBatch(state, false);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Close", manualTime, BM_Close);

// A sorted 64-sample list to running composites (or back); the peer is
// OpenEXR sorting and compositing the same samples, and (vs_peer_composite)
// compositing them alone. Each pass works on a fresh copy from a batch
// prepared outside the timed part.
void BM_Composite(benchmark::State &state, bool back)
{
    ChannelsPtr chans = colourOpacity();
    const std::vector<Sample> samples = sortedByDepth(makeSamples(kCompositeSamples, 9));
    ListPtr pristine(new IMB_DeepSampleList(chans, kCompositeSamples, false));
    for (int i = 0; i < kCompositeSamples; ++i)
    {
        const Sample &x = samples[static_cast<std::size_t>(i)];
        pristine->zfrontBuffer()[i] = x.zf;
        pristine->zbackBuffer()[i] = x.zb;
        pristine->flagBuffer()[i] = 0;
        pristine->coverageBuffer()[i] = ~uint64(0);
        std::copy(x.v, x.v + 3, pristine->channelData(0, i));
        std::copy(x.v + 3, x.v + 6, pristine->channelData(1, i));
    }
    if (back)
        pristine->composite(1);
    ExrPixel exr(samples);
    const double peer = bestTime([&] { exr.run(); });
    const double peerComposite = bestTime([&] { exr.compositeOnly(); });

    constexpr int kBatch = 256;
    std::vector<ListPtr> batch(kBatch);
    for (ListPtr &l : batch)
        l = new IMB_DeepSampleList(*pristine);
    int next = 0;
    for (auto _ : state)
    {
        if (next == kBatch)
        {
            state.PauseTiming();
            for (ListPtr &l : batch)
            {
                l->copyAllChannels(*pristine);
                l->setPreComposited(pristine->preComposited());
            }
            next = 0;
            state.ResumeTiming();
        }
        IMB_DeepSampleList &l = *batch[static_cast<std::size_t>(next++)];
        if (back)
            l.uncomposite(1);
        else
            l.composite(1);
        benchmark::DoNotOptimize(l.channelData(0, kCompositeSamples - 1));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kCompositeSamples * kSampleBytes));
    state.counters["vs_peer"] = ratioTo(state, peer);
    state.counters["vs_peer_composite"] = ratioTo(state, peerComposite);
}
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Composite/composite", nullptr, BM_Composite, false);
IMB_BENCH_CASES(imb_bench::kOneThread, "BM_Composite/uncomposite", nullptr, BM_Composite, true);
} // namespace

BENCHMARK_MAIN();
