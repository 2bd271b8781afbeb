#pragma once

#include "ground/ThreadPool.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>

// Runs work(0) to work(workers - 1) at the same time, work(0) on the calling thread and the others on `pool`, and
// returns when all are done. The first exception is thrown on the calling thread. The caller must not be a worker of
// `pool`, which could then wait for itself.
inline void runOnWorkers(ThreadPool& pool, int workers, const std::function<void(int)>& work) {
    std::mutex mutex; // guards the two below
    std::condition_variable finished;
    int left = workers - 1;
    std::exception_ptr failure;
    const auto guarded = [&](int worker) {
        try {
            work(worker);
        } catch (...) {
            std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };
    for (int worker = 1; worker < workers; ++worker) {
        pool.AddJob([&, worker] {
            guarded(worker);
            std::lock_guard lock(mutex);
            --left;
            finished.notify_one(); // under the lock: the waiter must not leave before this is done
        });
    }
    guarded(0);
    std::unique_lock lock(mutex);
    finished.wait(lock, [&] { return left <= 0; });
    if (failure) std::rethrow_exception(failure);
}
