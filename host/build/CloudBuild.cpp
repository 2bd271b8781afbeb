#include "build/CloudBuild.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/WidePath.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <unistd.h>
#include <utility>

std::string partPathOf(const std::string& output) {
    return output + ".part";
}

CloudBuild::CloudBuild(std::string outputPath, const CloudForm& cloudForm, const BoundsBox& box, uint64_t pointCount)
    : output(std::move(outputPath)), partPath(partPathOf(output)), form(cloudForm) {
    const float unusedVoxelSize = 0.0F;
    if (!createOPC(widePath(partPath).c_str(), box.data(), static_cast<int64_t>(pointCount), "nimbrel",
                   form.compressed ? 1 : 0, unusedVoxelSize)) {
        throw CommandFailure(output, "the engine refused to build: " + lastError());
    }
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
    if (std::rename(partPath.c_str(), output.c_str()) != 0) {
        throw CommandFailure(output, std::string("cannot be renamed from ") + partPath + ": " + std::strerror(errno));
    }
    renamed = true;
    return report;
}
