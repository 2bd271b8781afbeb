#pragma once

#include <glm/common.hpp>
#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <cstddef>
#include <limits>
#include <span>

// An upright box of space; empty until a point is included.
struct Box {
    glm::dvec3 minimum{std::numeric_limits<double>::infinity()};
    glm::dvec3 maximum{-std::numeric_limits<double>::infinity()};

    void include(const glm::dvec3& point) {
        minimum = glm::min(minimum, point);
        maximum = glm::max(maximum, point);
    }

    static Box around(std::span<const glm::dvec3> points) {
        Box box;
        for (const glm::dvec3& point : points) box.include(point);
        return box;
    }

    [[nodiscard]] bool isEmpty() const { return !(minimum.x <= maximum.x); }
    // Faces included.
    [[nodiscard]] bool contains(const glm::dvec3& point) const { return glm::clamp(point, minimum, maximum) == point; }
    [[nodiscard]] glm::dvec3 centre() const { return (minimum + maximum) * 0.5; }
    [[nodiscard]] glm::dvec3 size() const { return maximum - minimum; }
    [[nodiscard]] double diagonal() const { return isEmpty() ? 0.0 : glm::length(size()); }

    // Bits 0 to 2 of `number` choose the larger x, y and z.
    [[nodiscard]] glm::dvec3 corner(size_t number) const {
        return {(number & 1) != 0 ? maximum.x : minimum.x, (number & 2) != 0 ? maximum.y : minimum.y,
                (number & 4) != 0 ? maximum.z : minimum.z};
    }
};
