#pragma once

#include "voxel/ExportFile.h"
#include "voxel/VoxelWriters.h"

#include <array>
#include <string>

class OPCInterface;

// What became of an export.
struct VoxelReport {
    int32_t state = 0;       // 0 none yet, 1 under way, 2 finished, 3 failed
    int32_t unreadNodes = 0; // nodes whose points could not be read and are missing
    int64_t points = 0;      // that were binned
    int64_t cells = 0;       // occupied ones
    int64_t cubes = 0;       // solid ones, which are in the model
    std::array<int64_t, 3> size{};
};

// One export of a cloud to a model file: made, given the cloud, and told to write, on one thread. The counters of
// VoxelProgress.h follow it from the constructor to the destructor.
//
// Failures end it quietly and go to setLastError, which it clears when it begins. What was written by then stays.
class VoxelExport {
public:
    // The forms of a model. Any other number is STL without a count of stages.
    enum Format { OBJ = 0, SCHEMATIC = 1, STL = 2 };

    VoxelExport(int format, std::string path);
    ~VoxelExport();
    VoxelExport(const VoxelExport&) = delete;
    VoxelExport& operator=(const VoxelExport&) = delete;

    [[nodiscard]] bool isOpen() const { return !file.failed(); }

    // Bins the points of a tree. Without it the model is an empty one.
    void extract(OPCInterface& root, int32_t nodeCount, double voxelSize, double scale);

    void write(bool useIntensity);

    // That of the export that runs or ran last. Any thread.
    static VoxelReport report();

private:
    void fail(const std::string& reason);

    const int format;
    const std::string path;
    ExportFile file;
    VoxelModel model;
    bool hasFailed = false;
};
