#include "voxel/VoxelExport.h"

#include "ground/Log.h"
#include "voxel/VoxelProgress.h"

#include <algorithm>
#include <exception>
#include <mutex>

namespace {

constexpr double NOWHERE[6] = {};

std::mutex reportMutex; // guards lastReport
VoxelReport lastReport;

template <typename Change>
void changeReport(Change change) {
    std::lock_guard lock(reportMutex);
    change(lastReport);
}

// Before the file is opened.
std::string begun(int format, std::string path) {
    const int32_t stages = format == VoxelExport::OBJ                                       ? 4
                           : format == VoxelExport::SCHEMATIC || format == VoxelExport::STL ? 2
                                                                                            : 0;
    beginVoxelProgress(stages);
    setLastError("");
    changeReport([](VoxelReport& report) {
        report = {};
        report.state = 1;
    });
    return path;
}

} // namespace

VoxelExport::VoxelExport(int formatIn, std::string pathIn)
    : format(formatIn), path(begun(formatIn, std::move(pathIn))), file(path), model{{}, ModelGrid(NOWHERE, 1.0, 1.0)} {
    if (file.failed()) fail("the file can't be made: " + file.reason());
}

VoxelExport::~VoxelExport() {
    changeReport([this](VoxelReport& report) { report.state = hasFailed ? 3 : 2; });
    endVoxelProgress();
}

VoxelReport VoxelExport::report() {
    std::lock_guard lock(reportMutex);
    return lastReport;
}

void VoxelExport::fail(const std::string& reason) {
    if (!hasFailed) setLastError(reason);
    hasFailed = true;
}

void VoxelExport::extract(OPCInterface& root, int32_t nodeCount, double voxelSize, double scale) {
    voxelProgressLimit = nodeCount;
    model.grid = ModelGrid(root.getBoundingBox(), voxelSize, scale);
    try {
        root.getVoxelData(&model.map, model.grid, &voxelProgressCount);
    } catch (const std::exception&) {
        return fail("there is not enough memory for the cells");
    }
    changeReport([this](VoxelReport& report) {
        const std::vector<ModelCell>& cells = model.map.cells();
        report.unreadNodes = model.map.unreadNodes();
        report.points = model.map.points();
        report.cells = static_cast<int64_t>(cells.size());
        report.cubes = std::count_if(cells.begin(), cells.end(), [](const ModelCell& cell) { return cell.isSolid(); });
        report.size = model.grid.count;
    });
}

void VoxelExport::write(bool useIntensity) {
    if (!isOpen()) return;
    std::string problem;
    try {
        if (format == OBJ) {
            problem = writeVoxelObj(model, file, path);
        } else if (format == SCHEMATIC) {
            writeVoxelSchematic(model, file, useIntensity);
        } else {
            writeVoxelStl(model, file);
        }
    } catch (const std::exception&) {
        fail("there is not enough memory for the model");
    }
    file.close();
    if (file.failed()) fail("the file can't be written: " + file.reason());
    if (!problem.empty()) fail(problem);
}
