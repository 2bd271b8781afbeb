#pragma once

#include "build/TreeCompiler.h"

#include <atomic>
#include <cstdint>

// What became of the points of a build; the exported NimbrelBuildReport in the library's own terms.
struct BuildReport {
    enum State { NONE = 0, UNDER_WAY = 1, FINISHED = 2, FAILED = 3, CANCELLED = 4 };
    State state = NONE;
    int32_t nodes = 0;
    int64_t offered = 0, outside = 0, noRoom = 0, undividable = 0, noise = 0, duplicates = 0, sameCell = 0, written = 0;
};

// One file in the making: points in, then compile and finalise. PointFileBuild makes point files, VoxelFileBuild voxel
// models.
//
// Not thread safe, except that abort() and the counters may be used from any thread.
class FileBuild {
public:
    FileBuild() = default;
    virtual ~FileBuild() = default;
    FileBuild(const FileBuild&) = delete;
    FileBuild& operator=(const FileBuild&) = delete;

    // Adds points in order; the result is how many found a home, those included that are dropped later on because
    // their node is full and too small to divide.
    virtual int64_t addPoints(const double* positions, const unsigned char* attributes, int count) = 0;

    // `filterSize` is rounded to the nearest ten-thousandth. `compiledCount` rises as points are written. A voxel model
    // knows no filters.
    virtual void compile(const CompileSettings& settings, double filterSize, std::atomic<int64_t>& compiledCount) = 0;

    // Writes the header and the tree; does nothing after an abort or a failure. True when the file is whole.
    virtual bool finalise(double indexParameter) = 0;

    // Ends compile() and finalise() early.
    virtual void abort() = 0;

    // Points that could not be stored so far.
    [[nodiscard]] virtual int64_t noRoom() const = 0;

    // All counts but `offered`; nodes and points written are there after finalise().
    virtual void copyCounters(BuildReport& report) const = 0;
};
