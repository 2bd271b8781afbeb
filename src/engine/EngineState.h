#pragma once

#include "build/OPCCreator.h"
#include "build/TempCache.h"
#include "ground/ThreadPool.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

class PointCloud;

// The state of the engine, which has no object of its own: made when the library is loaded, and destroyed at exit in
// the reverse of the order in EngineState.cpp. The pools of ground/Pools.h are made before all of it.
//
// Locks, outermost first: closeMutex, mutex_, a node's mutex, its batch's mutex. A pool's own locks lie inside all.

extern OPCCreator opcCreator; // the build under way; has its own lock
extern TempCache tempCache;   // staged points; used by one thread of the host

extern std::vector<std::unique_ptr<PointCloud>> pointClouds; // the table; guarded by mutex_
extern std::shared_mutex mutex_;                             // the table and everything reached through it
extern std::mutex closeMutex;                                // held for the length of a close: one at a time
extern std::atomic<bool> init;                               // initEngine accepted a key
extern std::atomic<bool> pointCloudsChanged; // set by what changes the clouds; kept for hosts' debuggers, never read
extern ThreadPool cachePool;                 // 1 thread: the visibility of nodes
extern ThreadPool opcCache;                  // maxCores() threads: index jobs
extern std::vector<int> deleteVboList;       // GPU buffers for the render thread to delete; guarded by mutex_

// The first entry with this id, since ids can repeat; null if there is none. The caller holds mutex_.
PointCloud* findCloud(int id);

// The frame of an export: runs body() and returns its result; no exception gets out of the library.
template <typename Result, typename Body>
Result guarded(Result neutral, Body body) noexcept {
    try {
        return body();
    } catch (...) {
        return neutral;
    }
}

// The frame of an export that works on one cloud: runs body(PointCloud&) with the table shared, and returns its result,
// or `neutral` for an unknown id.
template <typename Result, typename Body>
Result withCloud(int id, Result neutral, Body body) noexcept {
    return guarded(neutral, [&] {
        std::shared_lock lock(mutex_);
        PointCloud* cloud = findCloud(id);
        return cloud ? static_cast<Result>(body(*cloud)) : neutral;
    });
}

// The same without a result.
template <typename Body>
void withCloud(int id, Body body) noexcept {
    withCloud(id, 0, [&](PointCloud& cloud) {
        body(cloud);
        return 0;
    });
}
