// What the benchmark programs share: the two clocks, best-of timing, the
// memcpy reference, running a case on one thread or on all of them, and
// splitting rows over threads the way an application does.
//
// Thread-matched cases: a case registered through registerCases() runs
// under the name "<name>/threads:1" inside a one-slot oneTBB arena, where
// the library's pool (and poolThreads(), forRowBands(), memcpySeconds())
// has exactly one thread, the caller; and under "<name>/threads:all" as the
// process runs by default. A case is written once, for "the threads it is
// given": the peer goes through forRowBands() and the memcpy reference
// through memcpySeconds(), so both follow the same limit as the library.
// scripts/bench reads the "threads:" segment of the name into its own column.
#pragma once

#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace imb_bench
{
// Which clock a case and its references are timed by. The wall clock counts
// every thread's work and every wait; the calling thread's processor time
// counts only that thread's work, which is steadier on a shared machine and
// right for work that never leaves the calling thread.
enum class Clock
{
    wall,
    thread
};

inline double now(Clock clock)
{
    if (clock == Clock::wall)
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Seconds of one call of fn() by `clock`.
template <typename Fn> double secondsOf(Clock clock, Fn &&fn)
{
    const double t0 = now(clock);
    fn();
    return now(clock) - t0;
}

// The shortest of `runs` timings of `repeats` calls of fn(), per call: the
// reference figure least disturbed by other work on the machine. Short jobs
// take `repeats` > 1 so that one timing spans more than the clock's grain.
template <typename Fn> double bestOf(Clock clock, Fn &&fn, int runs = 3, int repeats = 1)
{
    double best = 1e30;
    for (int r = 0; r < runs; ++r)
    {
        const double t0 = now(clock);
        for (int i = 0; i < repeats; ++i)
            fn();
        best = std::min(best, (now(clock) - t0) / repeats);
    }
    return best;
}

// As bestOf(), with prepare() (untimed) before each call: for jobs that
// change their input.
template <typename Prepare, typename Fn> double bestOfPrepared(Clock clock, Prepare &&prepare, Fn &&fn, int runs = 3)
{
    double best = 1e30;
    for (int r = 0; r < runs; ++r)
    {
        prepare();
        best = std::min(best, secondsOf(clock, fn));
    }
    return best;
}

// Threads the library's pool offers here: 1 inside a threads:1 case.
inline int poolThreads()
{
    return BAS_ThreadedAlgorithm::getPoolConcurrency();
}

// Calls fn(first, end) over [0, rows) cut into `parts` bands (default: one
// per pool thread), each band its own task on the pool: how an application
// spreads a single-threaded call (an OpenColorIO apply, an ImageBufAlgo call
// with nthreads 1) over its threads. One band runs on the calling thread.
template <typename Fn> void forRowBands(int64_t rows, Fn &&fn, int parts = 0)
{
    const int64_t n = std::max<int64_t>(1, std::min<int64_t>(rows, parts > 0 ? parts : poolThreads()));
    if (n == 1)
    {
        fn(int64_t(0), rows);
        return;
    }
    tbb::parallel_for(
        tbb::blocked_range<int64_t>(0, n, 1),
        [&](const tbb::blocked_range<int64_t> &r) {
            for (int64_t j = r.begin(); j != r.end(); ++j)
                fn(rows * j / n, rows * (j + 1) / n);
        },
        tbb::simple_partitioner());
}

// The memcpy reference: the best time of a memcpy of `bytes` between two
// warm buffers, split into `parts` bands run at once (default: one per pool
// thread, like the case it stands beside). By the thread clock the copy stays
// on the calling thread, the only one that clock sees. Measured once per
// (bytes, clock, parts) in a run.
inline double memcpySeconds(std::size_t bytes, Clock clock, int parts = 0)
{
    if (clock == Clock::thread)
        parts = 1;
    else if (parts <= 0)
        parts = poolThreads();
    static std::map<std::tuple<std::size_t, Clock, int>, double> cache;
    const auto key = std::make_tuple(bytes, clock, parts);
    const auto it = cache.find(key);
    if (it != cache.end())
        return it->second;
    std::vector<unsigned char> src(bytes, 1), dst(bytes, 2);
    // Small copies are repeated so that one timing is long enough to read.
    const std::size_t perTiming = (std::size_t(4) << 20) / std::max<std::size_t>(bytes, 1);
    const int repeats = static_cast<int>(std::clamp<std::size_t>(perTiming, 1, 200));
    const double s = bestOf(
        clock,
        [&] {
            forRowBands(
                static_cast<int64_t>(bytes),
                [&](int64_t first, int64_t end) {
                    std::memcpy(dst.data() + first, src.data() + first, static_cast<std::size_t>(end - first));
                },
                parts);
            benchmark::DoNotOptimize(dst.data());
            benchmark::ClobberMemory();
        },
        5, repeats);
    cache[key] = s;
    return s;
}

// Sets the counter `name` to ours / reference, when a reference was measured.
inline void setRatio(benchmark::State &state, const char *name, double ours, double reference)
{
    if (reference > 0)
        state.counters[name] = ours / reference;
}

// ---------------------------------------------------------------- threads

enum class Threads
{
    one,
    all
};

// Which variants a case has: one thread only (cases single-threaded on both
// sides by design), or one thread and all of them (cases where the library
// or its peer runs threads).
enum Variants
{
    kOneThread,
    kBothThreads
};

inline const char *threadsLabel(Threads t)
{
    return t == Threads::one ? "threads:1" : "threads:all";
}

// Runs fn() on the threads `t` names: inside a one-slot arena for one (the
// library's pool then runs every job as one part on the calling thread, and
// nested oneTBB loops stay on it), as it is for all.
template <typename Fn> void onThreads(Threads t, Fn &&fn)
{
    if (t == Threads::all)
    {
        fn();
        return;
    }
    tbb::task_arena arena(1);
    arena.execute(fn);
}

using Setup = void (*)(benchmark::internal::Benchmark *);

// Registers fn(state, args...) (or fn(state, threads, args...), for a case
// that must limit a peer's own threads itself) as "<name>/threads:1" and/or
// "<name>/threads:all" (see the top of this file), each configured by
// setup(). Returns the number registered, so that a namespace-scope constant
// can hold it (the IMB_BENCH_CASES macro below).
template <typename Fn, typename... Args>
int registerCases(Variants which, const std::string &name, Setup setup, Fn fn, Args... args)
{
    int n = 0;
    for (const Threads t : {Threads::one, Threads::all})
    {
        if (t == Threads::all && which == kOneThread)
            break;
        benchmark::internal::Benchmark *b = benchmark::RegisterBenchmark(
            (name + "/" + threadsLabel(t)).c_str(),
            [=](benchmark::State &state) {
                onThreads(t, [&] {
                    if constexpr (std::is_invocable_v<Fn, benchmark::State &, Threads, Args...>)
                        fn(state, t, args...);
                    else
                        fn(state, args...);
                });
            });
        if (setup)
            setup(b);
        ++n;
    }
    return n;
}
} // namespace imb_bench

#define IMB_BENCH_JOIN2(a, b) a##b
#define IMB_BENCH_JOIN(a, b) IMB_BENCH_JOIN2(a, b)
// IMB_BENCH_CASES(which, "BM_Name", setup, function, extra arguments...):
// registers a case at namespace scope, in file order.
#define IMB_BENCH_CASES(...)                                                                                     \
    [[maybe_unused]] static const int IMB_BENCH_JOIN(theBenchCases, __LINE__) = imb_bench::registerCases(__VA_ARGS__)
