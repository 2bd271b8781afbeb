#pragma once

#include "edit/ClipBox.h"
#include "render/DrawnCloud.h"

#include <span>

// A camera of a host window, with all that its visibility pass works from.
struct Camera {
    int window = 0;
    glm::dmat4 view{1.0};
    glm::dmat4 projection{1.0};
    glm::dvec4 eye{0.0, 0.0, 0.0, 1.0};
    double fovDegrees = 0.0;
    int viewSize = 0; // pixels
    ClipBox clip{};   // as it was armed when the camera came
};

// The six planes of a frustum: left, right, bottom, top, near, far. The normals point inwards and have length 1.
std::array<double, 24> frustumPlanes(const glm::dmat4& matrix);

// Marks the nodes of a cloud that the camera sees, and unloads those that no camera sees any more; returns the
// frustum's planes in the cloud's coordinates. For one thread at a time.
std::array<double, 24> checkVisibility(const Camera& camera, const DrawnCloud& cloud);

// Asks for the points of the nodes that a window sees, across all clouds level by level, so that coarse nodes come
// first.
void cacheVisible(int window, std::span<const DrawnCloud> clouds);
