#pragma once

#include "build/OPCCreator.h"
#include "build/TempCache.h"
#include "edit/Classifications.h"
#include "edit/ClipBox.h"
#include "edit/HistoryTracker.h"
#include "edit/Match.h"
#include "edit/PointEditor.h"
#include "ground/ThreadPool.h"
#include "render/FrameDriver.h"
#include "render/OpenGLRenderer.h"
#include "render/Shader.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

class PointCloud;

// The state of the engine, which has no object of its own: made when the library is loaded, and destroyed at exit in
// the reverse of the order in EngineState.cpp. The pools of ground/Pools.h are made before all of it.
//
// Locks, outermost first: loadMutex, closeMutex, editMutex, mutex_, a node's mutex, its batch's mutex. The others, a
// pool's own among them, lie inside all of these, and none is taken while another of them is held.

extern OPCCreator opcCreator; // the build under way; has its own lock
extern TempCache tempCache;   // staged points; used by one thread of the host

extern std::vector<std::unique_ptr<PointCloud>> pointClouds; // the table; guarded by mutex_
extern std::shared_mutex mutex_;                             // the table and everything reached through it
extern std::mutex loadMutex;                                 // held for the length of a load: one at a time
extern std::mutex closeMutex;                                // held for the length of a close: one at a time
extern std::mutex editMutex;                                 // held for the length of an edit: one at a time
extern std::atomic<bool> init;                               // initEngine accepted a key
extern std::atomic<bool> pointCloudsChanged; // set by what changes the clouds; kept for hosts' debuggers, never read
extern ThreadPool cachePool;                 // 1 thread: the visibility of nodes
extern ThreadPool opcCache;                  // maxCores() threads: index jobs
extern std::vector<int> deleteVboList; // GPU buffers for the render thread to delete; a close adds to it with mutex_
                                       // held exclusively, the render thread takes from it with mutex_ shared

extern HistoryGroup currentHistory;   // the group being recorded, while `history` points at it
extern HistoryTracker historyTracker; // what can be undone and redone; has its own lock

extern OpenGLRenderer renderer; // see there for its threads
extern FrameDriver frameDriver;
extern std::mutex filterMutex; // guards the five below; operations work on copies of them
extern ClipBox clipBox;        // armed for one frame or one operation
extern Match match;            // armed for one operation, as is the painter
extern PointEditor pointEditor;
extern Shader shader;                      // armed for one frame
extern Classifications classifications;    // stays until the host replaces it
extern std::atomic<bool> processingAtomic; // a selection is under way; frames leave the clip box armed meanwhile

// At the end of the process, ends loading before anything made up to the first call of this is torn down. Called with
// each cloud that was read, by when the HTTP library has made what it keeps for the process.
void endLoadsBeforeExit();

// The first entry with this id, since ids can repeat; null if there is none. The caller holds mutex_.
PointCloud* findCloud(int id);

// Whether a buffer that an export needs is missing; the call then gives its neutral result.
template <typename... Pointers>
bool isAnyNull(Pointers... pointers) {
    return (... || (pointers == nullptr));
}

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
