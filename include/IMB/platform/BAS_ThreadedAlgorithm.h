// BAS_ThreadedAlgorithm: runs one job split into a fixed number of parts.
//
// A runner is created with a worker count; run() calls the functor once for
// each part, (jobIndex, jobCount) with jobIndex 0 .. jobCount - 1, spread over
// the process's shared thread pool, and returns when every part has finished.
// With one worker the functor runs on the calling thread. The functor must be
// safe to call concurrently for different indices; exceptions thrown by it
// are not caught here.
// Thread-safety: a runner may be used from one thread at a time; different
// runners may run concurrently.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Functor.h>

class IMB_API BAS_ThreadedAlgorithm
{
public:
    // `maxThreads` workers; 0 or a negative value means as many as the pool
    // offers (getPoolConcurrency()).
    explicit BAS_ThreadedAlgorithm(int maxThreads = 0);

    // The number of parts run() splits the job into (at least 1).
    int getNumThreads() const { return myThreads; }

    // Calls fn(jobIndex, jobCount) for every part; returns when all are done.
    void run(const BAS_Functor<void, int, int> &fn) const;

    // Workers the shared pool offers to one job (at least 1).
    static int getPoolConcurrency();

    // Process-wide observer, called by every run() on the calling thread with
    // its part count before any part starts (null removes it). Meant for
    // diagnostics and tests; set it while no runner is active.
    static void setRunObserver(void (*observer)(int jobCount));

private:
    int myThreads;
};
