#pragma once

#include "build/InputSequence.h"
#include "support/Console.h"

#include <nimbrel/NimbrelEngine.h>

#include <string>

// What the engine makes of the points.
struct CloudForm {
    bool compressed = false;     // version 18 instead of 17
    double grid = 0.0001;        // units that points are rounded to
    double noiseRadius = 0;      // 0 for no filter
    double duplicateRadius = 0;  // 0 for no filter
    float voxelSize = 0;         // largest mean edge of a cell of a voxel model, version 90; 0 for a point file
    bool withoutColours = false; // of a voxel model

    [[nodiscard]] bool isVoxel() const { return voxelSize > 0.0F; }
    [[nodiscard]] int version() const { return isVoxel() ? 90 : compressed ? 18 : 17; }
};

// One build through the engine into "OUTPUT.part", renamed to OUTPUT when it is whole. A build that does not get there
// leaves no file behind, and an OUTPUT from before untouched. Needs an EngineSession that outlives it.
//
// Everything throws CommandFailure, which names the output, and Interrupted.
class CloudBuild {
public:
    CloudBuild(std::string output, const CloudForm& form, const BoundsBox& box, uint64_t pointCount);
    ~CloudBuild();
    CloudBuild(const CloudBuild&) = delete;
    CloudBuild& operator=(const CloudBuild&) = delete;

    void add(const PointBatch& batch);

    // Throws what add() would have thrown, after points got in by another way.
    void checkRoom() const;

    // Indexes, waits for the end of it, and gives the file its name.
    NimbrelBuildReport finish(Console& console);

private:
    [[nodiscard]] std::string lastError() const;
    void begin(const BoundsBox& box, uint64_t pointCount) const;
    void waitForIndex(Console& console) const;

    const std::string output;
    const std::string partPath;
    const CloudForm form;
    bool renamed = false;
};

// The name under which OUTPUT grows.
std::string partPathOf(const std::string& output);
