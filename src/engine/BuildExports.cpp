#include "nimbrel/NimbrelEngine.h"

#include "engine/EngineState.h"
#include "engine/License.h"
#include "ground/Log.h"

#include <algorithm>

// The exports of building and staging: thin calls on opcCreator and tempCache. They touch no loaded cloud, so they
// share neither the table's lock nor the frame that finds a cloud. A null pointer where an argument is needed gives
// the neutral result.

bool createOPC(const wchar_t* path, const double* box, int64_t pointCount, const char* key, int buildType,
               float voxelSize) {
    return guarded(false, [&] {
        if (!License::isValid(key)) {
            setLastError("the key is refused");
            return false;
        }
        logText("License is valid\n");
        if (!path || !box) return false;
        std::array<double, 6> bounds;
        std::copy_n(box, bounds.size(), bounds.begin());
        return opcCreator.createOPC(path, bounds, pointCount, buildType, voxelSize);
    });
}

bool addPoints(const double* xyz, const unsigned char* attributes, int count) {
    if (count > 0 && (!xyz || !attributes)) return false;
    return guarded(false, [&] { return opcCreator.addPoints(xyz, attributes, count); });
}

void indexOPC(double noiseRadius, double filterSize, double duplicateRadius, double indexParameter) {
    guarded(0, [&] {
        if (opcCache.outstandingJobs() != 0 || !opcCache.accepting) return 0;
        opcCreator.announceIndexing();
        opcCache.AddJob([=] { opcCreator.indexOPC(noiseRadius, filterSize, duplicateRadius, indexParameter); });
        return 0;
    });
}

void cancelOPC() {
    guarded(0, [] {
        opcCreator.cancelOPC();
        return 0;
    });
}

int64_t getOPCProgress(int selector) {
    return opcCreator.getOPCProgress(selector);
}

void nimbrelGetBuildReport(NimbrelBuildReport* out) {
    if (!out) return;
    const BuildReport report = opcCreator.report();
    *out = {report.state,       report.nodes, report.offered,    report.outside,  report.noRoom,
            report.undividable, report.noise, report.duplicates, report.sameCell, report.written};
}

bool createTempCache(const wchar_t* path) {
    if (!path) return false;
    return guarded(false, [&] { return tempCache.createTempCache(path); });
}

bool addCachePoints(const double* xyz, const unsigned char* attributes, int count) {
    if (count > 0 && (!xyz || !attributes)) return false;
    return guarded(false, [&] { return tempCache.addCachePoints(xyz, attributes, count); });
}

int64_t getCacheCount() {
    return tempCache.getCacheCount();
}

void getCacheBoundingBox(double* out) {
    if (out) tempCache.getCacheBoundingBox(out);
}

void rewindCache() {
    tempCache.rewindCache();
}

void transferCachePoints(int batch, const double* a, const double* b) {
    if (!a || !b) return;
    guarded(0, [&] {
        tempCache.transferToOPC(opcCreator, batch, a, b);
        return 0;
    });
}

bool closeTempCache() {
    return tempCache.closeTempCache();
}
