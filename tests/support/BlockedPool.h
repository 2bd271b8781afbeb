#pragma once

#include "ground/ThreadPool.h"

#include <future>

// Keeps the one worker of a pool busy until released, so that a test decides what waits and what runs.
class BlockedPool {
public:
    explicit BlockedPool(ThreadPool& poolIn) : pool(poolIn) {
        std::promise<void> started;
        pool.AddJob([&started, gate = gate.get_future().share()] {
            started.set_value();
            gate.wait();
        });
        started.get_future().wait();
    }
    ~BlockedPool() {
        if (!released) release();
    }
    BlockedPool(const BlockedPool&) = delete;
    BlockedPool& operator=(const BlockedPool&) = delete;

    void release() {
        released = true;
        gate.set_value();
    }
    // Lets everything that waits run to its end.
    void finish() {
        release();
        pool.WaitAll();
    }

private:
    ThreadPool& pool;
    std::promise<void> gate;
    bool released = false;
};
