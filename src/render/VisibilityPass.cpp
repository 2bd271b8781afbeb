#include "render/VisibilityPass.h"

#include "stream/OPCInterface.h"
#include "stream/ViewCriteria.h"

#include <glm/geometric.hpp>
#include <glm/matrix.hpp>

namespace {

constexpr double RADIANS_PER_DEGREE = 0.017453292;

// The test for a clipped away node; none when nothing can be clipped. Mode 1 hides nothing.
std::function<bool(const double*, double)> clipTest(const Camera& camera, const DrawnCloud& cloud) {
    constexpr int OUTSIDE_STAYS = 1;
    const bool clips = camera.clip.isActive() && camera.clip.getClipMode() != OUTSIDE_STAYS;
    if (!clips || cloud.properties.ignoreClipBox != 0) return {};
    ClipBox clip = camera.clip;
    clip.setTransformation(cloud.modelMatrix);
    return [clip](const double* centre, double radius) {
        return clip.testIntersection(centre[0], centre[1], centre[2], radius) == ClipBox::OUTSIDE;
    };
}

} // namespace

std::array<double, 24> frustumPlanes(const glm::dmat4& matrix) {
    const glm::dmat4 rows = glm::transpose(matrix);
    std::array<double, 24> planes{};
    for (int i = 0; i < 6; ++i) {
        const glm::dvec4 row = rows[i / 2];
        const glm::dvec4 plane = i % 2 == 0 ? rows[3] + row : rows[3] - row;
        const double length = glm::length(glm::dvec3(plane));
        double* out = planes.data() + 4 * i;
        for (int k = 0; k < 4; ++k) out[k] = plane[k] / length;
    }
    return planes;
}

std::array<double, 24> checkVisibility(const Camera& camera, const DrawnCloud& cloud) {
    ViewCriteria view;
    view.window = camera.window;
    view.planes = frustumPlanes(camera.projection * camera.view * cloud.modelMatrix);
    view.eye = glm::inverse(cloud.modelMatrix) * camera.eye;
    view.viewHeight = camera.viewSize;
    view.lodFactor = cloud.properties.lodFactor;
    view.fov = static_cast<float>(camera.fovDegrees * 0.5 * RADIANS_PER_DEGREE);
    view.clips = clipTest(camera, cloud);
    cloud.root->checkVisibility(view, true);
    return view.planes;
}

void cacheVisible(int window, std::span<const DrawnCloud> clouds) {
    std::queue<OPCInterface*> queue;
    for (const DrawnCloud& cloud : clouds) queue.push(cloud.root);
    while (!queue.empty()) {
        OPCInterface* node = queue.front();
        queue.pop();
        node->cache(window, &queue);
    }
}
