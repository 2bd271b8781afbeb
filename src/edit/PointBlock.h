#pragma once

#include "edit/ClipBox.h"

#include <array>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>

// Some points of a node with the coordinates apart, so that tests of places run several points at a time.
//
// A test marks the points that miss it and leaves the marks of the others, so that tests follow each other. The results
// are those of the same arithmetic point by point, to the bit: the operations and their order are those of GLM.
class PointBlock {
public:
    static constexpr int CAPACITY = 256;

    // vertices  `count` vertices, 0 to CAPACITY, that are relative to `corner`, 3 doubles
    void take(const unsigned char* vertices, int count, const double* corner);

    // Passes: a distance from the centre of at most `radius`.
    void testSphere(const glm::dvec3& centre, double radius);

    // Passes: on or behind all six planes, or with `outside` in front of one of them.
    void testBox(const ClipBox::Planes& planes, bool outside);

    // The same for places put through a matrix first.
    void testBox(const ClipBox::Planes& planes, const glm::dmat4& transformation);

    [[nodiscard]] int size() const { return used; }
    [[nodiscard]] glm::dvec3 place(int i) const {
        const auto k = static_cast<size_t>(i);
        return {x[k], y[k], z[k]};
    }
    [[nodiscard]] bool passes(int i) const { return misses[static_cast<size_t>(i)] == 0.0; }
    void miss(int i) { misses[static_cast<size_t>(i)] = 1.0; }

    // Places put through `matrix`, all four components, to out[0] to out[3].
    using Row = std::array<double, CAPACITY>;
    void transform(const glm::dmat4& matrix, std::array<Row, 4>& out) const;

private:
    int used = 0;
    Row x, y, z;
    Row misses; // not 0: misses a test. As wide as the coordinates, so that comparisons need no narrowing
};
