#pragma once

#include "build/BulkAdder.h"
#include "build/FileBuild.h"
#include "build/OPCTreeDataNode.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

// One point file in the making, from the first point to the finished file: the tree, its files, and the three stages
// of adding, compiling and finalising. Destroying it closes the files.
class PointFileBuild final : public FileBuild {
public:
    // `box`: minimum x, y, z, then maximum x, y, z; `isStream`: version 18. The output is sized for `pointCount`.
    PointFileBuild(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount, bool isStream);

    // Whether the files were made and have taken what was written.
    [[nodiscard]] bool diskReady() const;

    int64_t addPoints(const double* positions, const unsigned char* attributes, int count) override;
    void compile(const CompileSettings& settings, double filterSize, std::atomic<int64_t>& compiledCount) override;
    bool finalise(double indexParameter) override;
    void abort() override { aborted = true; }
    [[nodiscard]] int64_t noRoom() const override { return context.noRoom; }
    void copyCounters(BuildReport& report) const override;

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
