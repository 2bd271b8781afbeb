// The exports that compare clouds with clouds and meshes: collisions, and classes by distance.

#include "analysis/AnalysisRun.h"
#include "analysis/CollisionHits.h"
#include "analysis/TrianglePrism.h"
#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/OPC.h"

#include <algorithm>
#include <cmath>
#include <glm/gtc/type_ptr.hpp>

// One classification at a time, and none beside other edits; an abort waits for it. Taken before editMutex.
static std::mutex classifyMutex;

static OPCInterface& rootOf(const PointCloud& cloud) {
    return *cloud.getOPC().getRootNode();
}

static int copyHits(const CollisionHits& hits, double* out) {
    for (const glm::dvec3& hit : hits.all()) {
        for (int axis = 0; axis < 3; ++axis) *out++ = hit[axis];
    }
    return static_cast<int>(hits.all().size());
}

int doPointCloudCollision(int idA, int idB, int limit, double* out) {
    if (!out) return 0;
    return guarded(0, [=] {
        std::shared_lock lock(mutex_);
        const PointCloud* a = nullptr;
        const PointCloud* b = nullptr;
        for (const auto& cloud : pointClouds) {
            if (!cloud->isEnabled()) continue;
            if (cloud->getID() == idA) {
                a = cloud.get();
            } else if (cloud->getID() == idB) {
                b = cloud.get();
            }
        }
        if (!a || !b) return 0;
        CollisionHits hits(limit);
        AnalysisRun run(AnalysisRun::MEASURE);
        rootOf(*a).doCollisionTest(rootOf(*b), a->getModelMatrix(), b->getModelMatrix(), hits, run);
        run.finish();
        return copyHits(hits, out);
    });
}

int doMeshCollision(int id, int limit, double* out, const double* triangles, int count, const double* matrix) {
    if (isAnyNull(out, triangles, matrix) || count < 1) return 0;
    return guarded(0, [=] {
        std::shared_lock lock(mutex_);
        const auto entry = std::find_if(pointClouds.begin(), pointClouds.end(),
                                        [id](const auto& cloud) { return cloud->getID() == id && cloud->isEnabled(); });
        if (entry == pointClouds.end()) return 0;
        const double scale = (*entry)->getScale();
        const glm::dmat4 placement = glm::make_mat4(matrix);
        const MeshPrisms prisms{static_cast<size_t>(count), [=](size_t i, double farthest) {
                                    const Triangle triangle = Triangle::read(triangles + 9 * i).placed(placement);
                                    const double thickness = std::min(scale * 0.01, triangle.reach() * 0.1 * scale);
                                    return TrianglePrism::over(triangle, thickness, farthest);
                                }};
        CollisionHits hits(limit);
        AnalysisRun run(AnalysisRun::MEASURE);
        rootOf(**entry).doMeshCollisionTest(prisms, (*entry)->getModelMatrix(), hits, run);
        run.finish();
        return copyHits(hits, out);
    });
}

void classifyPointsByDistance(const double* triangles, int count, const double* matrix, double thickness) {
    if (isAnyNull(triangles, matrix) || count < 1 || !(thickness > 0.0) || !std::isfinite(thickness)) return;
    guarded(0, [=] {
        AnalysisRun run(AnalysisRun::CLASSIFICATION); // first, so that an abort also reaches a call that waits its turn
        std::lock_guard turn(classifyMutex);
        historyTracker.wait();
        std::lock_guard oneAtATime(editMutex);
        std::shared_lock lock(mutex_);
        const glm::dmat4 placement = glm::make_mat4(matrix);
        const MeshPrisms prisms{static_cast<size_t>(count), [=](size_t i, double farthest) {
                                    const Triangle triangle = Triangle::read(triangles + 9 * i).placed(placement);
                                    return TrianglePrism::over(triangle, thickness, farthest);
                                }};
        std::vector<const PointCloud*> enabled;
        for (const auto& cloud : pointClouds) {
            if (cloud->isEnabled()) enabled.push_back(cloud.get());
        }
        for (size_t i = 0; i < enabled.size() && !run.isToEnd(); ++i) {
            run.beginCloud(i, enabled.size());
            rootOf(*enabled[i]).classifyPointsByDistance(prisms, enabled[i]->getModelMatrix(), thickness, run);
        }
        run.finish();
        return 0;
    });
}

void abortPointsByDistance(void) {
    AnalysisRun::requestEnd(AnalysisRun::CLASSIFICATION);
    const std::lock_guard ended(classifyMutex);
}

void nimbrelAbortAnalysis(void) {
    AnalysisRun::requestEnd(AnalysisRun::MEASURE);
    abortPointsByDistance();
}

double nimbrelGetAnalysisProgress(void) {
    return AnalysisRun::lastProgress();
}
