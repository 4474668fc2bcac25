// Image files: reading a 3840x2160 RGBA half OpenEXR into a raster beside
// OpenImageIO reading the same file into its own buffer (an ImageBuf;
// vs_peer) and a memcpy of the pixels (vs_memcpy); and the whole `imbtool
// deep merge` of two 1920x1080 deep OpenEXR layers with 8 point samples per
// pixel beside `oiiotool A B --deepmerge -o out` on the same files (vs_peer),
// with the largest difference of their flattened results (max_flat_diff;
// each flattened by its own tool). Times are wall-clock times.
//
// Both run on one thread and on all (BenchSupport.h). The file reads go
// through OpenImageIO on both sides, so on one thread its "threads"
// attribute is 1 and its OpenEXR pool is off ("exr_threads" -1) for both
// (the memcpy on one thread), and on all threads they are as the process
// has them (the memcpy split over the pool). The commands on one thread both run pinned to one processor
// (taskset), oiiotool also told --threads 1; on all threads, as they are.
#include "BenchSupport.h"

#include <IMB/IMB.h>
#include <IMB/IMB_ImageIO.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imageio.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sched.h>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{
using imb_bench::Clock;
using imb_bench::Threads;

double seconds(const std::function<void()> &fn)
{
    return imb_bench::secondsOf(Clock::wall, fn);
}

// Sets OpenImageIO's global thread counts for one case and puts them back.
class OiioThreads
{
public:
    explicit OiioThreads(Threads t)
    {
        OIIO::getattribute("threads", myThreads);
        OIIO::getattribute("exr_threads", myExrThreads);
        if (t == Threads::one)
        {
            OIIO::attribute("threads", 1);
            // -1: no OpenEXR pool, the calling thread decodes. (With 1, one
            // pool thread decodes while the caller reads beside it: two.)
            OIIO::attribute("exr_threads", -1);
        }
    }
    ~OiioThreads()
    {
        OIIO::attribute("threads", myThreads);
        OIIO::attribute("exr_threads", myExrThreads);
    }

private:
    int myThreads = 0, myExrThreads = 0;
};

struct Scratch
{
    fs::path dir;
    Scratch()
    {
        char name[] = "/tmp/imb_bench_io_XXXXXX";
        dir = ::mkdtemp(name);
    }
    ~Scratch() { fs::remove_all(dir); }
    std::string operator/(const char *f) const { return (dir / f).string(); }
};

void BM_ReadHalfExr(benchmark::State &state, Threads threads)
{
    const OiioThreads oiio(threads);
    Scratch dir;
    const std::string path = dir / "uhd.exr";
    {
        IMB_Raster r(PACK_RGBA, IMB_FLOAT16, 3840, 2160);
        std::mt19937 rng(1);
        auto *h = static_cast<uint16 *>(r.getPixels());
        for (int64 i = 0; i < r.getSize() / 2; ++i)
            h[i] = half16(std::uniform_real_distribution<float>(0.0f, 2.0f)(rng)).bits();
        if (!IMB_ImageFile::write(path.c_str(), r))
        {
            state.SkipWithError("cannot write the test file");
            return;
        }
    }
    const size_t bytes = size_t(3840) * 2160 * 4 * 2;
    double ours = 0, peer = 1e30;
    int64 n = 0;
    for (auto _ : state)
    {
        IMB_Raster r;
        const double t = seconds([&] { IMB_ImageFile::read(path.c_str(), r); });
        state.SetIterationTime(t);
        ours += t;
        ++n;
        // The peer: an ImageBuf reading the file into the buffer it
        // allocates, as a raster does.
        peer = std::min(peer, seconds([&] {
                            OIIO::ImageBuf buf(path);
                            buf.read(0, 0, true, OIIO::TypeDesc::HALF);
                            benchmark::DoNotOptimize(buf.localpixels());
                        }));
    }
    state.SetBytesProcessed(n * int64_t(bytes));
    imb_bench::setRatio(state, "vs_peer", ours / double(n), peer);
    imb_bench::setRatio(state, "vs_memcpy", ours / double(n), imb_bench::memcpySeconds(bytes, Clock::wall));
    state.counters["peer_ms"] = peer * 1e3;
}
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_ReadHalfExr", [](benchmark::internal::Benchmark *b) {
    b->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
}, BM_ReadHalfExr);

bool run(const std::string &command)
{
    return std::system((command + " > /dev/null 2>&1").c_str()) == 0;
}

// Largest absolute difference of two flat RGBA images, over R, G, B and A.
double maxDifference(const std::string &a, const std::string &b)
{
    IMB_Raster ra, rb;
    if (!IMB_ImageFile::read(a.c_str(), ra) || !IMB_ImageFile::read(b.c_str(), rb) || ra.getXres() != rb.getXres() ||
        ra.getYres() != rb.getYres())
        return HUGE_VAL;
    double worst = 0;
    for (int64 y = 0; y < ra.getYres(); ++y)
        for (int64 x = 0; x < ra.getXres(); ++x)
        {
            float pa[4], pb[4];
            ra.getPixelValue(x, y, pa);
            rb.getPixelValue(x, y, pb);
            for (int c = 0; c < 4; ++c)
                worst = std::max(worst, double(std::fabs(pa[c] - pb[c])));
        }
    return worst;
}

#ifdef IMB_TOOL_PATH
// The prefix that runs a command on one processor: the first this process
// may use.
std::string onOneProcessor()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0)
        return std::string();
    for (int c = 0; c < CPU_SETSIZE; ++c)
        if (CPU_ISSET(c, &set))
            return "taskset -c " + std::to_string(c) + " ";
    return std::string();
}
#endif

void BM_DeepMergeCommand(benchmark::State &state, Threads threads)
{
#ifdef IMB_TOOL_PATH
    const std::string tool = IMB_TOOL_PATH;
    // The timed commands; the others run as they are.
    std::string merge = tool + " deep merge ", peerMerge = "oiiotool ";
    if (threads == Threads::one)
    {
        const std::string pin = onOneProcessor();
        if (pin.empty() || !run("command -v taskset"))
        {
            state.SkipWithError("cannot pin a command to one processor (taskset, util-linux)");
            return;
        }
        merge = pin + merge;
        peerMerge = pin + "oiiotool --threads 1 ";
    }
    if (!run("command -v oiiotool"))
    {
        state.SkipWithError("oiiotool is not installed (Debian openimageio-tools)");
        return;
    }
    Scratch dir;
    const std::string a = dir / "a.exr", b = dir / "b.exr";
    if (!run(tool + " make-deep-sample " + a + " --size 1920 1080 --samples 8 --seed 0 --points") ||
        !run(tool + " make-deep-sample " + b + " --size 1920 1080 --samples 8 --seed 1 --points"))
    {
        state.SkipWithError("cannot make the deep layers");
        return;
    }
    double ours = 0, peer = 1e30;
    int64 n = 0;
    for (auto _ : state)
    {
        const double t = seconds([&] { run(merge + a + " " + b + " -o " + (dir / "ours.exr")); });
        state.SetIterationTime(t);
        ours += t;
        ++n;
        peer = std::min(peer, seconds([&] { run(peerMerge + a + " " + b + " --deepmerge -o " + (dir / "peer.exr")); }));
    }
    run(tool + " deep flatten " + (dir / "ours.exr") + " -o " + (dir / "ours_flat.exr"));
    run("oiiotool " + (dir / "peer.exr") + " --flatten --ch R,G,B,A -o " + (dir / "peer_flat.exr"));
    imb_bench::setRatio(state, "vs_peer", ours / double(n), peer);
    state.counters["peer_s"] = peer;
    state.counters["max_flat_diff"] = maxDifference(dir / "ours_flat.exr", dir / "peer_flat.exr");
#else
    (void)threads;
    state.SkipWithError("imbtool is not built (IMB_BUILD_TOOLS)");
#endif
}
IMB_BENCH_CASES(imb_bench::kBothThreads, "BM_DeepMergeCommand", [](benchmark::internal::Benchmark *b) {
    b->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(2);
}, BM_DeepMergeCommand);
} // namespace

BENCHMARK_MAIN();
