#include "build/CloudBuild.h"
#include "cloud/CloudPlace.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/WidePath.h"

#include <chrono>
#include <thread>
#include <unistd.h>
#include <utility>

std::string partPathOf(const std::string& output) {
    return output + ".part";
}

// What createOPC calls the forms.
static int buildType(const CloudForm& form) {
    if (form.isVoxel()) return form.withoutColours ? 3 : 2;
    return form.compressed ? 1 : 0;
}

// A model needs some depth on every axis: a flat cloud becomes a voxel thick.
static BoundsBox thickened(BoundsBox box, double voxelSize) {
    for (size_t axis = 0; axis < 3; ++axis) {
        if (box[axis] < box[axis + 3]) continue;
        box[axis] -= voxelSize / 2.0;
        box[axis + 3] += voxelSize / 2.0;
    }
    return box;
}

CloudBuild::CloudBuild(std::string outputPath, const CloudForm& cloudForm, const BoundsBox& box, uint64_t pointCount)
    : output(std::move(outputPath)), partPath(partPathOf(output)), form(cloudForm) {
    begin(form.isVoxel() ? thickened(box, form.voxelSize) : box, pointCount);
}

// Taken for the answer of createOPC, which is false for a voxel model in any case.
void CloudBuild::begin(const BoundsBox& box, uint64_t pointCount) const {
    constexpr int32_t UNDER_WAY = 1;
    createOPC(widePath(partPath).c_str(), box.data(), static_cast<int64_t>(pointCount), "nimbrel", buildType(form),
              form.voxelSize);
    NimbrelBuildReport report{};
    nimbrelGetBuildReport(&report);
    if (report.state == UNDER_WAY) return;
    throw CommandFailure(output, "the engine refused to build: " + lastError());
}

CloudBuild::~CloudBuild() {
    if (renamed) return;
    cancelOPC();
    unlink(partPath.c_str());
    // The engine removes this one itself when it can; a build that failed early may have left it.
    unlink((partPath + ".scratch").c_str());
}

std::string CloudBuild::lastError() const {
    const std::string reason = nimbrelLastError();
    return reason.empty() ? "no reason is known" : reason;
}

void CloudBuild::add(const PointBatch& batch) {
    checkInterrupt();
    if (batch.size() == 0) return;
    if (!addPoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(batch.size()))) {
        throw CommandFailure(output, "the points cannot be stored: " + lastError());
    }
}

void CloudBuild::checkRoom() const {
    checkInterrupt();
    NimbrelBuildReport report{};
    nimbrelGetBuildReport(&report);
    if (report.noRoom > 0) throw CommandFailure(output, "the points cannot be stored: " + lastError());
}

void CloudBuild::waitForIndex(Console& console) const {
    Progress progress(console, "Indexing", static_cast<uint64_t>(getOPCProgress(0)));
    const double indexParameter = 1.0; // what a header has that nobody gave another
    indexOPC(form.noiseRadius, form.grid, form.duplicateRadius, indexParameter);
    while (getOPCProgress(2) != 0) {
        checkInterrupt();
        progress.update(static_cast<uint64_t>(getOPCProgress(1)));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    progress.finish(static_cast<uint64_t>(getOPCProgress(1)));
}

NimbrelBuildReport CloudBuild::finish(Console& console) {
    waitForIndex(console);
    constexpr int32_t FINISHED = 2;
    NimbrelBuildReport report{};
    nimbrelGetBuildReport(&report);
    if (report.state != FINISHED) throw CommandFailure(output, "the build failed: " + lastError());
    if (report.written == 0) throw CommandFailure(output, "the filters left no point to write");
    moveIntoPlace(partPath, output);
    renamed = true;
    return report;
}
