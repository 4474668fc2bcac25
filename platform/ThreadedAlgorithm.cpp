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
    // One part per index; simple_partitioner keeps every part its own task.
    tbb::parallel_for(
        tbb::blocked_range<int>(0, jobs, 1),
        [&](const tbb::blocked_range<int> &r) {
            for (int j = r.begin(); j != r.end(); ++j)
                fn(j, jobs);
        },
        tbb::simple_partitioner());
}
