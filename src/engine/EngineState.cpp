#include "engine/EngineState.h"

#include "engine/PointCloud.h"
#include "ground/Pools.h"
#include "remote/CloudSession.h"
#include "remote/FileS3.h"

#include <algorithm>

namespace {

// First of all, so that the pools outlive what hands them jobs.
[[maybe_unused]] const bool POOLS_ARE_MADE = (diskPool(), processingPool(), buildPool(), true);

// Likewise what clouds in the cloud read through. TLS comes up with it.
[[maybe_unused]] const bool CLOUD_IS_MADE = (CloudSession::instance(), dataCache(), true);

} // namespace

OPCCreator opcCreator;
TempCache tempCache;
std::vector<std::unique_ptr<PointCloud>> pointClouds;

namespace {

// At exit, load jobs may still be under way on nodes of clouds that the host left open.
struct LoadsEndFirst {
    ~LoadsEndFirst() {
        for (const auto& cloud : pointClouds) cloud->endReadAhead();
        diskPool().accepting = false;
        diskPool().ClearAll();
        diskPool().WaitAll();
    }
};

} // namespace

std::shared_mutex mutex_;
std::mutex loadMutex;
std::mutex closeMutex;
std::mutex editMutex;
std::atomic<bool> init{false};
std::atomic<bool> pointCloudsChanged{false};
ThreadPool cachePool(1);
ThreadPool opcCache(maxCores());
std::vector<int> deleteVboList;
HistoryGroup currentHistory;
HistoryTracker historyTracker(editMutex, mutex_); // after the clouds, so that its jobs end before them
OpenGLRenderer renderer;
FrameDriver frameDriver(renderer);
std::mutex filterMutex;
ClipBox clipBox;
Match match;
PointEditor pointEditor;
Shader shader;
Classifications classifications;
std::atomic<bool> processingAtomic{false};

void endLoadsBeforeExit() {
    static const LoadsEndFirst LOADS_END_FIRST;
}

PointCloud* findCloud(int id) {
    const auto entry =
        std::find_if(pointClouds.begin(), pointClouds.end(), [id](const auto& cloud) { return cloud->getID() == id; });
    return entry == pointClouds.end() ? nullptr : entry->get();
}
