#pragma once

#include "edit/ClipBox.h"

#include <array>
#include <cstddef>
#include <functional>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <optional>

// A triangle of a mesh and its centroid. The centroid is a field of its own because a placed triangle has the placed
// centroid, which need not be the centroid of the placed corners to the last bit.
struct Triangle {
    std::array<glm::dvec3, 3> corners;
    glm::dvec3 centroid;

    // From nine doubles.
    static Triangle read(const double* values);

    // Put through the top three rows of a matrix, as they are.
    [[nodiscard]] Triangle placed(const glm::dmat4& matrix) const;

    // Of length 1, at right angles to (P2 - P0) and (P1 - P0) in this order. None for a degenerate triangle.
    [[nodiscard]] std::optional<glm::dvec3> normal() const;

    // From the centroid to the farthest corner.
    [[nodiscard]] double reach() const;
};

// How far the faces of a prism lie from those of its triangle.
struct PrismOffsets {
    double faces; // the two along the normal, from the centroid
    double sides; // the three over the edges, outwards
};

// The six planes of the prism over a triangle, for a ClipBox: the two faces, then a side on P0 and P1, one on P2 and
// P0, one on P1 and P2, and that once more, since a prism has five faces and the box six.
ClipBox::Planes prismPlanes(const Triangle& triangle, const glm::dvec3& normal, const PrismOffsets& offsets);

// The prism that stands exactly over a triangle (no side offset), in world space, and a box around it.
//
// Whatever place `clip` contains lies between `low` and `high`, rounding included, when the place is no farther from
// the origin than the triangle, or than `farthest`. A needle has no such box, and these are infinite: its sides are so
// close to parallel that rounding decides where they meet.
struct TrianglePrism {
    // None for a degenerate triangle.
    static std::optional<TrianglePrism> over(const Triangle& triangle, double faceOffset, double farthest);

    ClipBox clip; // active, with no transformation
    glm::dvec3 low;
    glm::dvec3 high;
};

// The prisms of a mesh, made when they are needed: all at once would take ten times the memory of their triangles.
struct MeshPrisms {
    size_t count;
    // None for a degenerate triangle. `farthest` as for TrianglePrism::over.
    std::function<std::optional<TrianglePrism>(size_t index, double farthest)> make;
};
