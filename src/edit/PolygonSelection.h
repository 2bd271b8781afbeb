#pragma once

#include "edit/PointBlock.h"
#include "edit/PolygonStrips.h"

#include <array>
#include <cstdint>
#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>
#include <glm/vec4.hpp>
#include <span>
#include <vector>

// A closed polygon on the screen, with the matrices that carry a place of one cloud onto that screen and back.
//
// Made for one cloud and one operation; nothing changes afterwards, so that any thread may test against it.
class PolygonSelection {
public:
    enum Test { OUTSIDE = 0, CUT = 1, INSIDE = 2 };

    // matrix    projection times view times model
    // viewport  x, y, width, height
    // corners   x and y of each, y running downwards from the top of the viewport's height
    PolygonSelection(const glm::dmat4& matrixIn, const int* viewportIn, std::span<const int> corners);

    // Screen x and y, depth from 0 near to 1 far, and half the reciprocal of the clip space w, which
    // intersectionTest takes as a part of its lengths.
    [[nodiscard]] glm::dvec4 project(const glm::dvec4& v) const;

    // Screen x, y and depth of a block of places, as `project` gives them.
    [[nodiscard]] std::array<PointBlock::Row, 3> project(const PointBlock& block) const;

    // The place at a screen position and depth, with w 1. v.w is not read.
    [[nodiscard]] glm::dvec4 unProject(const glm::dvec4& v) const;

    // How a sphere lies to the polygon. A projection that is not finite counts as cut: its points are then looked at.
    [[nodiscard]] Test intersectionTest(double x, double y, double z, double radius) const;

    // From a place on the screen to an edge. A corner that is repeated counts as infinitely far away.
    [[nodiscard]] static double distanceToSegment(const glm::dvec2& a, const glm::dvec2& b, const glm::dvec2& p);

    // Places behind the viewer or beyond the far plane are never in the polygon.
    [[nodiscard]] bool contains(double x, double y, double z) const;

    [[nodiscard]] std::span<const ScreenCorner> getCorners() const { return points; }

    // Whether a place on the screen, y upwards, is in the polygon by the even-odd rule.
    [[nodiscard]] bool pnpoly(double x, double y) const;

private:
    const glm::dmat4 matrix;
    const glm::dmat4 inverse;
    const glm::ivec4 viewport;
    std::vector<ScreenCorner> points;
};
