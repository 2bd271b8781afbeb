// The exports that look for points under the cursor, and those that list what a window shows.

#include "edit/PolygonSelection.h"
#include "engine/EngineState.h"
#include "engine/Participation.h"
#include "nimbrel/NimbrelEngine.h"

#include <algorithm>
#include <glm/gtc/type_ptr.hpp>
#include <limits>

static int closestTo(const glm::dmat4& matrix, const double* world, double* result, unsigned char* colour) {
    std::shared_lock lock(mutex_);
    ClipBox clip;
    {
        std::lock_guard filterLock(filterMutex);
        clip = clipBox;
    }
    const glm::dvec4 place(world[0], world[1], world[2], 1.0); // a copy: `result` may be the same memory
    int id = -1;
    forEachEnabled([&](PointCloud& cloud) {
        const glm::dvec4 target = cloud.makeVectorRelative(place);
        OPCInterface& root = *cloud.getOPC().getRootNode();
        // The distance in result[3] carries over, so that a later cloud wins only with a shorter one.
        if (!root.findClosestPoint(clip, matrix, matrix * target, target, result, colour)) return;
        id = cloud.getID();
        const glm::dvec4 found = cloud.applyTransformationsToVector({result[0], result[1], result[2], 1.0});
        for (int axis = 0; axis < 3; ++axis) result[axis] = found[axis];
    });
    return id;
}

int findClosestPoint(NimbrelMatrix view, NimbrelMatrix projection, const int* viewport, int x, int y, double* result,
                     unsigned char* colour) {
    if (isAnyNull(viewport, result, colour)) return -1;
    return guarded(-1, [&] {
        if (!renderer.findClosestCursorPoint(x, y, result)) return -1;
        const glm::dmat4 matrix = glm::make_mat4(projection.m) * glm::make_mat4(view.m);
        const PolygonSelection screen(matrix, viewport, {});
        const glm::dvec4 place = screen.unProject({result[0], result[1], result[2], 1.0});
        return closestTo(matrix, glm::value_ptr(place), result, colour);
    });
}

int findWorldPoint(NimbrelMatrix view, NimbrelMatrix projection, const double* world, double* result,
                   unsigned char* colour) {
    if (isAnyNull(world, result, colour)) return -1;
    return guarded(-1, [&] {
        const glm::dmat4 matrix = glm::make_mat4(projection.m) * glm::make_mat4(view.m);
        return closestTo(matrix, world, result, colour);
    });
}

int getWindowPointCount(int window) {
    return guarded(0, [window] {
        std::shared_lock lock(mutex_);
        int64_t count = 0;
        forEachEnabled([&](PointCloud& cloud) { cloud.getOPC().getRootNode()->getWindowPointCount(window, &count); });
        return static_cast<int>(std::min<int64_t>(count, std::numeric_limits<int>::max()));
    });
}

void getWindowPoints(int window, double* positions, char* colours, int64_t start, int64_t count) {
    if (isAnyNull(positions, colours)) return;
    guarded(0, [=] {
        std::shared_lock lock(mutex_);
        PointListing listing{positions, colours, start, count};
        forEachEnabled([&](PointCloud& cloud) { cloud.getOPC().getRootNode()->getWindowPoints(window, listing); });
        return 0;
    });
}
