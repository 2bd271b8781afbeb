#pragma once

#include "build/FileBuild.h"
#include "build/OPCDisk.h"
#include "voxel/OVMTreeDataNode.h"

#include <array>
#include <optional>
#include <string>

// One voxel model in the making.
class VoxelFileBuild final : public FileBuild {
public:
    // Whether a model with this box can have cells of this size.
    static bool isPossible(const std::array<double, 6>& box, float voxelSize);

    // `box` is that of the model, faces included. isPossible() said yes.
    VoxelFileBuild(const std::wstring& path, const std::array<double, 6>& box, int64_t pointCount, float voxelSize,
                   bool withColours);

    int64_t addPoints(const double* positions, const unsigned char* attributes, int count) override;
    void compile(const CompileSettings& settings, double filterSize, std::atomic<int64_t>& compiledCount) override;
    bool finalise(double indexParameter) override;
    void abort() override;
    [[nodiscard]] int64_t noRoom() const override { return refused; }
    void copyCounters(BuildReport& report) const override;

private:
    void write(std::span<const unsigned char> bytes);

    const std::array<double, 6> box;
    const bool withColours;
    OPCDisk disk;
    OVMTreeDataNode tree;
    std::atomic<bool> aborted{false};
    std::atomic<int64_t> placed{0};
    std::atomic<int64_t> outside{0};
    std::atomic<int64_t> refused{0};
    std::atomic<int32_t> nodesWritten{0};
};
