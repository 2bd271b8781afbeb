#pragma once

#include <array>
#include <cmath>
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

// The size of a pixel at distance 1.
inline double pixelSlope(const ViewCriteria& view) {
    return 2.0 * std::tan(double{view.fov} * 0.5) / view.viewHeight;
}

// In 32-bit floats, which the level of detail of every scene rests on.
inline float distance32(const double* centre, const glm::dvec4& eye) {
    float squares = 0.0F;
    for (int axis = 0; axis < 3; ++axis) {
        const float difference = static_cast<float>(centre[axis]) - static_cast<float>(eye[axis]);
        squares += difference * difference;
    }
    return std::sqrt(squares);
}
