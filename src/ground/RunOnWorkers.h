#pragma once

#include "ground/ThreadPool.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
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

// Runs work() on the calling thread, and beside it on up to `helpers` threads of `pool`, each of which takes what it
// does from a list that the calls share; returns when every call that began has ended. A helper whose turn comes after
// the caller's own call has ended is left out, so that a pool that is busy, or stopped, delays nothing. The first
// exception is thrown on the calling thread.
inline void runWithHelpers(ThreadPool& pool, int helpers, const std::function<void()>& work) {
    struct Shared {
        std::mutex mutex; // guards the rest
        std::condition_variable ended;
        int running = 0;
        bool over = false; // no helper begins any more
        std::exception_ptr failure;
    };
    const auto shared = std::make_shared<Shared>(); // outlives the call where a helper comes too late
    for (int helper = 0; helper < helpers; ++helper) {
        pool.AddJob([shared, &work] { // `work` lives on while a helper runs
            {
                std::lock_guard lock(shared->mutex);
                if (shared->over) return;
                ++shared->running;
            }
            std::exception_ptr failure;
            try {
                work();
            } catch (...) {
                failure = std::current_exception();
            }
            std::lock_guard lock(shared->mutex);
            if (!shared->failure) shared->failure = failure;
            --shared->running;
            shared->ended.notify_one();
        });
    }
    std::exception_ptr failure;
    try {
        work();
    } catch (...) {
        failure = std::current_exception();
    }
    std::unique_lock lock(shared->mutex);
    shared->over = true;
    shared->ended.wait(lock, [&] { return shared->running == 0; });
    if (!failure) failure = shared->failure;
    if (failure) std::rethrow_exception(failure);
}
