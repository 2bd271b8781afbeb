#include "build/OPCCreator.h"

#include "build/PointFileBuild.h"
#include "build/VoxelFileBuild.h"
#include "ground/Log.h"

namespace {

enum Stage : int64_t { IDLE = 0, COMPILING = 1, FINALISING = 2 };

// A value that is no number becomes the lowest.
double clampTo(double value, double lowest, double highest) {
    if (!(value > lowest)) return lowest;
    return value < highest ? value : highest;
}

constexpr int STREAM_TYPE = 1; // 0: fixed records
constexpr int VOXEL_TYPE = 2;  // with colours; all above are without

} // namespace

OPCCreator::OPCCreator() = default;

OPCCreator::~OPCCreator() {
    cancelOPC();
}

// Null, with the reason told, for what can't be built.
std::unique_ptr<FileBuild> OPCCreator::makeBuild(const std::wstring& path, const std::array<double, 6>& box,
                                                 int64_t pointCount, int buildType, float voxelSize) {
    if (buildType < 0) {
        setLastError("this build type is unknown");
        return nullptr;
    }
    if (buildType < VOXEL_TYPE) {
        return std::make_unique<PointFileBuild>(path, box, pointCount, buildType == STREAM_TYPE);
    }
    if (!VoxelFileBuild::isPossible(box, voxelSize)) {
        setLastError("the voxel size is not positive, or the box can't be divided into voxels of it");
        return nullptr;
    }
    return std::make_unique<VoxelFileBuild>(path, box, pointCount, voxelSize, buildType == VOXEL_TYPE);
}

bool OPCCreator::createOPC(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount,
                           int buildType, float voxelSize) {
    std::unique_lock lock(mutex);
    cancelLocked(lock);
    setLastError("");
    root = makeBuild(path, box, pointCount, buildType, voxelSize);
    if (!root) return false;
    compiledCount = 0;
    addedCount = 0;
    offeredCount = 0;
    stage = IDLE;
    std::lock_guard reportLock(reportMutex);
    lastReport = {};
    lastReport.state = BuildReport::UNDER_WAY;
    counted = root.get();
    return buildType < VOXEL_TYPE; // hosts know that a voxel build answers false although it has begun
}

bool OPCCreator::addPoints(const double* positions, const unsigned char* attributes, int count) {
    std::lock_guard lock(mutex);
    if (!root || isIndexing) return false;
    if (count <= 0) return true;
    const int64_t noRoomBefore = root->noRoom();
    offeredCount += count;
    addedCount += root->addPoints(positions, attributes, count);
    return root->noRoom() == noRoomBefore;
}

void OPCCreator::announceIndexing() {
    std::lock_guard lock(mutex);
    if (root && !isIndexing) stage = COMPILING;
}

void OPCCreator::indexOPC(double noiseRadius, double filterSize, double duplicateRadius, double indexParameter) {
    {
        std::lock_guard lock(mutex);
        if (!root || isIndexing) {
            stage = IDLE;
            return;
        }
        isIndexing = true;
    }
    bool isWhole = false;
    try {
        logText("Compile..\n");
        stage = COMPILING;
        root->compile({clampTo(noiseRadius, 0.0, 1.0), clampTo(duplicateRadius, 0.0, 10.0)},
                      clampTo(filterSize, 0.0001, 10.0), compiledCount);
        logText("Finalise..\n");
        stage = FINALISING;
        isWhole = root->finalise(indexParameter);
    } catch (const std::exception& error) {
        setLastError(error.what()); // out of memory: a pool's thread must not let it out
    }
    std::lock_guard lock(mutex);
    isIndexing = false;
    endBuild(isWhole ? BuildReport::FINISHED : BuildReport::FAILED);
    indexingDone.notify_all();
}

void OPCCreator::cancelOPC() {
    std::unique_lock lock(mutex);
    cancelLocked(lock);
}

void OPCCreator::cancelLocked(std::unique_lock<std::mutex>& lock) {
    if (!root) return;
    root->abort();
    const bool wasIndexing = isIndexing;
    indexingDone.wait(lock, [this] { return !isIndexing; });
    if (root) {
        endBuild(BuildReport::CANCELLED);
    } else if (wasIndexing) {
        std::lock_guard reportLock(reportMutex);
        if (lastReport.state == BuildReport::FAILED) lastReport.state = BuildReport::CANCELLED;
    }
}

// Keeps the counts and closes the files, with the lock held. State and stage change last: a host that sees them finds
// the finished file.
void OPCCreator::endBuild(BuildReport::State state) {
    {
        std::lock_guard reportLock(reportMutex);
        root->copyCounters(lastReport);
        counted = nullptr;
    }
    root.reset();
    {
        std::lock_guard reportLock(reportMutex);
        lastReport.state = state;
    }
    stage = IDLE;
}

int64_t OPCCreator::getOPCProgress(int selector) const {
    if (selector == 0) return addedCount;
    return selector == 1 ? compiledCount : stage;
}

BuildReport OPCCreator::report() const {
    std::lock_guard lock(reportMutex);
    BuildReport result = lastReport;
    result.offered = offeredCount;
    if (counted) counted->copyCounters(result);
    return result;
}
