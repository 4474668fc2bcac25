// BAS_ThreadedAlgorithm over oneTBB: one task per part in a task group.
#include <IMB/platform/BAS_ThreadedAlgorithm.h>

#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>

namespace
{
std::atomic<void (*)(int)> theRunObserver{nullptr};
}

BAS_ThreadedAlgorithm::BAS_ThreadedAlgorithm(int maxThreads)
    : myThreads(maxThreads > 0 ? maxThreads : getPoolConcurrency())
{
}

int BAS_ThreadedAlgorithm::getPoolConcurrency()
{
    const int n = tbb::this_task_arena::max_concurrency();
    return n > 0 ? n : 1;
}

void BAS_ThreadedAlgorithm::setRunObserver(void (*observer)(int jobCount))
{
    theRunObserver.store(observer, std::memory_order_release);
}

void BAS_ThreadedAlgorithm::run(const BAS_Functor<void, int, int> &fn) const
{
    const int jobs = myThreads;
    if (auto *observer = theRunObserver.load(std::memory_order_acquire))
        observer(jobs);
    if (jobs == 1)
    {
        fn(0, 1);
        return;
    }
    // The pool already orders the caller's writes before the parts and the
    // parts before the return; the two atomics state that ordering in this
    // library's own code, where race detectors that cannot look inside the
    // pool's binary see it too. They cost one atomic operation per part.
    std::atomic<int> published{0};
    std::atomic<int> finished{0};
    published.store(1, std::memory_order_release);
    // One part per index; simple_partitioner keeps every part its own task.
    tbb::parallel_for(
        tbb::blocked_range<int>(0, jobs, 1),
        [&](const tbb::blocked_range<int> &r) {
            (void)published.load(std::memory_order_acquire);
            for (int j = r.begin(); j != r.end(); ++j)
                fn(j, jobs);
            finished.fetch_add(1, std::memory_order_acq_rel);
        },
        tbb::simple_partitioner());
    (void)finished.load(std::memory_order_acquire);
}
