#include "ground/Pools.h"

#include "ground/ThreadPool.h"

#include <algorithm>
#include <thread>

int maxCores() {
    static const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return cores;
}

ThreadPool& diskPool() {
    static ThreadPool pool(1);
    return pool;
}

ThreadPool& processingPool() {
    static ThreadPool pool(maxCores());
    return pool;
}

ThreadPool& buildPool() {
    static ThreadPool pool(maxCores());
    return pool;
}
