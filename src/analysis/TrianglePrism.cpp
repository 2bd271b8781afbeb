#include "analysis/TrianglePrism.h"

#include <algorithm>
#include <cmath>
#include <glm/geometric.hpp>
#include <glm/vec4.hpp>
#include <limits>

Triangle Triangle::read(const double* values) {
    const auto corner = [values](int i) { return glm::dvec3(values[3 * i], values[3 * i + 1], values[3 * i + 2]); };
    Triangle triangle{{corner(0), corner(1), corner(2)}, {}};
    triangle.centroid = (triangle.corners[0] + triangle.corners[1] + triangle.corners[2]) / 3.0;
    return triangle;
}

Triangle Triangle::placed(const glm::dmat4& matrix) const {
    const auto place = [&matrix](const glm::dvec3& p) { return glm::dvec3(matrix * glm::dvec4(p, 1.0)); };
    return {{place(corners[0]), place(corners[1]), place(corners[2])}, place(centroid)};
}

std::optional<glm::dvec3> Triangle::normal() const {
    const glm::dvec3 n = glm::normalize(glm::cross(corners[2] - corners[0], corners[1] - corners[0]));
    return std::isnan(glm::length(n)) ? std::nullopt : std::optional(n);
}

double Triangle::reach() const {
    double farthest = 0.0;
    for (const glm::dvec3& corner : corners) farthest = std::max(farthest, glm::distance(corner, centroid));
    return farthest;
}

ClipBox::Planes prismPlanes(const Triangle& triangle, const glm::dvec3& normal, const PrismOffsets& offsets) {
    const auto& [p0, p1, p2] = triangle.corners;
    const glm::dvec3 side0 = glm::normalize(glm::cross(p0 - p1, normal));
    const glm::dvec3 side1 = glm::normalize(glm::cross(p2 - p0, normal));
    const glm::dvec3 side2 = glm::normalize(glm::cross(p1 - p2, normal));
    const glm::dvec3 last = p1 + offsets.sides * side2;
    return {normal,  triangle.centroid + offsets.faces * normal,
            -normal, triangle.centroid - offsets.faces * normal,
            side0,   p0 + offsets.sides * side0,
            side1,   p2 + offsets.sides * side1,
            side2,   last,
            side2,   last};
}

// The smallest sine of the triangle's angles, which tells how sharply its sides meet.
static double smallestSine(const Triangle& triangle) {
    double smallest = 1.0;
    for (size_t i = 0; i < 3; ++i) {
        const glm::dvec3 a = triangle.corners[(i + 1) % 3] - triangle.corners[i];
        const glm::dvec3 b = triangle.corners[(i + 2) % 3] - triangle.corners[i];
        smallest = std::min(smallest, glm::length(glm::cross(a, b)) / (glm::length(a) * glm::length(b)));
    }
    return smallest;
}

std::optional<TrianglePrism> TrianglePrism::over(const Triangle& triangle, double faceOffset, double farthest) {
    const std::optional<glm::dvec3> normal = triangle.normal();
    if (!normal) return std::nullopt;
    constexpr double INFINITE = std::numeric_limits<double>::infinity();
    TrianglePrism prism{{}, glm::dvec3(-INFINITE), glm::dvec3(INFINITE)};
    prism.clip.setPlanes(prismPlanes(triangle, *normal, {faceOffset, 0.0}));
    prism.clip.setActive(true);

    // A plane test is off by a few 1e-16 of the coordinates; where two sides meet, that grows with one over the sine.
    constexpr double NEEDLE = 1e-4;
    constexpr double MARGIN = 1e-9;
    if (!(smallestSine(triangle) > NEEDLE)) return prism;
    glm::dvec3 low(INFINITE);
    glm::dvec3 high(-INFINITE);
    double largest = farthest;
    for (const glm::dvec3& corner : triangle.corners) {
        // The sides meet on a line through the corner along the normal, which the faces cut.
        const double middle = -glm::dot(*normal, corner - triangle.centroid);
        for (const double offset : {middle - faceOffset, middle + faceOffset}) {
            const glm::dvec3 vertex = corner + offset * *normal;
            low = glm::min(low, vertex);
            high = glm::max(high, vertex);
            for (int axis = 0; axis < 3; ++axis) largest = std::max(largest, std::abs(vertex[axis]));
        }
    }
    const glm::dvec3 margin(largest * MARGIN);
    if (!std::isfinite(glm::length(low)) || !std::isfinite(glm::length(high))) return prism;
    prism.low = low - margin;
    prism.high = high + margin;
    return prism;
}
