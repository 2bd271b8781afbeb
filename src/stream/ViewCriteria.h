#pragma once

#include <array>
#include <functional>
#include <glm/vec4.hpp>

// What decides whether a window sees a node: one camera, brought into the coordinates of one cloud.
struct ViewCriteria {
    int window = 0;
    std::array<double, 24> planes{}; // six times a, b, c, d; a point is inside where ax + by + cz + d is not negative
    glm::dvec4 eye{0.0, 0.0, 0.0, 1.0};
    int viewHeight = 0;     // pixels
    double lodFactor = 0.0; // level of detail, more shows more
    float fov = 0.0F;       // half the field of view, in radians

    // Whether a node's bounding sphere is clipped away; empty when nothing is. A function, since the clip box belongs
    // to a folder above this one.
    std::function<bool(const double* centre, double radius)> clips{};
};
