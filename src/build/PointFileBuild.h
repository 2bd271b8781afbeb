#pragma once

#include "build/BulkAdder.h"
#include "build/OPCTreeDataNode.h"
#include "build/TreeCompiler.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

// One point file in the making, from the first point to the finished file: the tree, its files, and the three stages
// of adding, compiling and finalising. Destroying it closes the files.
//
// One thread drives it; abort() and the counters may be used from any thread.
class PointFileBuild {
public:
    // `box`: minimum x, y, z, then maximum x, y, z; `isStream`: version 18. The output is sized for `pointCount`.
    PointFileBuild(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount, bool isStream);

    // Whether the files were made and have taken what was written.
    [[nodiscard]] bool diskReady() const;

    // Adds points in order; the result is how many found a home, those included that are dropped later on because
    // their node is full and too small to divide.
    int64_t addPoints(const double* positions, const unsigned char* attributes, int count);

    // `filterSize` is rounded to the nearest ten-thousandth. `compiledCount` rises as points are written.
    void compile(const CompileSettings& settings, double filterSize, std::atomic<int64_t>& compiledCount);

    // Writes the header and the tree; does nothing after an abort or a failure. True when the file is whole.
    bool finalise(double indexParameter);

    // Ends compile() and finalise() early.
    void abort() { aborted = true; }

    [[nodiscard]] const BuildContext& counters() const { return context; }
    // After finalise().
    [[nodiscard]] int64_t totalPointCount() const { return pointsWritten; }
    [[nodiscard]] int32_t totalNodeCount() const { return nodesWritten; }

private:
    [[nodiscard]] int64_t countNodes();
    [[nodiscard]] bool writeNodeHeaders(int64_t nodes);

    BuildContext context;
    OPCTreeDataNode root;
    BulkAdder adder;
    std::atomic<bool> aborted{false};
    std::atomic<int64_t> pointsWritten{0};
    std::atomic<int32_t> nodesWritten{0};
};
