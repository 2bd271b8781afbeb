#include "build/Staging.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/WidePath.h"

#include <algorithm>
#include <unistd.h>

Staging::Staging(const std::string& pathToUse) : path(pathToUse) {
    if (!createTempCache(widePath(path).c_str())) throw CommandFailure(path, "cannot be created");
}

Staging::~Staging() {
    closeTempCache();
    unlink(path.c_str()); // for a file that the engine could not close
}

void Staging::add(const PointBatch& batch) {
    checkInterrupt();
    if (batch.size() == 0) return;
    if (!addCachePoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(batch.size()))) {
        throw CommandFailure(path, "the points cannot be stored");
    }
    ++batches;
}

uint64_t Staging::count() const {
    return static_cast<uint64_t>(getCacheCount());
}

BoundsBox Staging::bounds() const {
    BoundsBox cache{}; // x, then -z, then y
    getCacheBoundingBox(cache.data());
    BoundsBox box{cache[0], cache[2], -cache[4], cache[3], cache[5], -cache[1]};
    constexpr double FLOAT_ERROR = 0x1p-24;    // of a distance that is stored as a 32-bit float
    constexpr double WIDENED_BY_ENGINE = 0.01; // which covers the error within 160 km
    for (size_t axis = 0; axis < 3; ++axis) {
        const double slack = std::max(0.0, (box[axis + 3] - box[axis]) * FLOAT_ERROR - WIDENED_BY_ENGINE);
        box[axis] -= slack;
        box[axis + 3] += slack;
    }
    return box;
}

void Staging::transfer(const CloudBuild& build, Console& console) {
    static constexpr double NOWHERE[3] = {0, 0, 0}; // points stay where they are
    Progress progress(console, "Adding", count());
    rewindCache();
    for (int batch = 0; batch < batches; ++batch) {
        transferCachePoints(batch, NOWHERE, NOWHERE);
        build.checkRoom();
        progress.update(static_cast<uint64_t>(getOPCProgress(0)));
    }
    progress.finish(static_cast<uint64_t>(getOPCProgress(0)));
}
