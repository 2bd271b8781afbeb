#pragma once

#include "build/FileBuild.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

// Runs builds, one at a time: createOPC, addPoints, indexOPC, with progress meanwhile and cancelOPC at any time.
// Every operation may be called from any thread; those that change the build take turns.
class OPCCreator {
public:
    OPCCreator();
    ~OPCCreator();

    // Begins a build of version 17 (`buildType` 0) or 18 (1), or of a voxel model (2 with colours, above without),
    // cancelling one that is under way. False when the type is not one of these, and for every voxel model: report()
    // tells whether its build is under way. A file that can't be made shows in addPoints.
    //
    // voxelSize  of a voxel model alone: the largest mean edge of a cell
    bool createOPC(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount, int buildType,
                   float voxelSize = 0.0F);

    // False without a build, while it is indexed, or when the files could not take all points.
    bool addPoints(const double* positions, const unsigned char* attributes, int count);

    // Marks the build as being indexed, so that getOPCProgress shows it from the moment at which the job was queued.
    void announceIndexing();

    // Compiles and finalises on the calling thread. Without a build it does nothing.
    void indexOPC(double noiseRadius, double filterSize, double duplicateRadius, double indexParameter);

    // Waits for a running indexOPC to notice.
    void cancelOPC();

    // Selector 0: points added, 1: points compiled, others: the stage, 0 idle, 1 compiling, 2 finalising.
    [[nodiscard]] int64_t getOPCProgress(int selector) const;

    [[nodiscard]] BuildReport report() const;

private:
    [[nodiscard]] static std::unique_ptr<FileBuild> makeBuild(const std::wstring& path,
                                                              const std::array<double, 6>& box, int64_t pointCount,
                                                              int buildType, float voxelSize);
    void endBuild(BuildReport::State state);
    void cancelLocked(std::unique_lock<std::mutex>& lock);

    std::mutex mutex;                     // guards `root` and `isIndexing`
    std::condition_variable indexingDone; // with `mutex`
    std::unique_ptr<FileBuild> root;      // null when no build runs
    bool isIndexing = false;              // indexOPC works on `root` without the lock

    std::atomic<int64_t> compiledCount{0};
    std::atomic<int64_t> addedCount{0};
    std::atomic<int64_t> offeredCount{0};
    std::atomic<int64_t> stage{0};

    mutable std::mutex reportMutex;     // guards the two below; innermost
    const FileBuild* counted = nullptr; // the build whose counters are live, null once they are in lastReport
    BuildReport lastReport;
};
