#pragma once

#include "ground/Pools.h"
#include "ground/RunOnWorkers.h"
#include "ground/ThreadPool.h"

#include <algorithm>
#include <atomic>
#include <cstddef>

// Calls work(0) to work(count - 1), each once, on all cores of the processing pool and the calling thread, and returns
// when all are done. The first exception is thrown on the calling thread, which must be no worker of the pool.
//
// Workers take the next number as they come free: nodes differ in size, and one index is cheaper than a job a node.
template <typename Work>
void workInParallel(size_t count, Work work) {
    std::atomic<size_t> next{0};
    const auto takeTurns = [&](int /*worker*/) {
        for (size_t i = next++; i < count; i = next++) work(i);
    };
    // After shutdownEngine the pool takes no jobs.
    const size_t workers = processingPool().accepting ? static_cast<size_t>(maxCores()) : 1;
    runOnWorkers(processingPool(), static_cast<int>(std::clamp<size_t>(count, 1, workers)), takeTurns);
}
