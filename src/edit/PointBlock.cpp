#include "edit/PointBlock.h"

#include "format/PointRecord.h"

#include <cmath>
#include <cstring>
#include <limits>

// Plain loops over arrays of doubles, which compilers turn into vector instructions. They run over the whole block
// whatever it holds: a fixed count needs no remainder, and the points beyond `used` are nobody's.

namespace {

constexpr size_t CAPACITY = PointBlock::CAPACITY;

// The largest number whose square root is at most `radius`, so that distances are compared without their root.
double largestSquare(double radius) {
    if (!(radius >= 0.0)) return -1.0; // none is
    constexpr double INFINITE = std::numeric_limits<double>::infinity();
    double square = radius * radius;
    while (std::sqrt(square) > radius) square = std::nextafter(square, 0.0);
    while (square < INFINITE && std::sqrt(std::nextafter(square, INFINITE)) <= radius) {
        square = std::nextafter(square, INFINITE);
    }
    return square;
}

// Sets in `beyond` what lies in front of a plane.
void markBeyond(const PointBlock::Row& x, const PointBlock::Row& y, const PointBlock::Row& z, const glm::dvec3& normal,
                const glm::dvec3& point, PointBlock::Row& beyond) {
    for (size_t i = 0; i < CAPACITY; ++i) {
        const double distance = normal.x * (x[i] - point.x) + normal.y * (y[i] - point.y) + normal.z * (z[i] - point.z);
        beyond[i] = distance > 0.0 ? 1.0 : beyond[i];
    }
}

} // namespace

void PointBlock::take(const unsigned char* vertices, int count, const double* corner) {
    used = count;
    const unsigned char* vertex = vertices;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i, vertex += Vertex::SIZE) {
        float relative[3];
        std::memcpy(relative, vertex + Vertex::POSITION, sizeof(relative));
        x[i] = corner[0] + double{relative[0]};
        y[i] = corner[1] + double{relative[1]};
        z[i] = corner[2] + double{relative[2]};
    }
    for (size_t i = static_cast<size_t>(count); i < CAPACITY; ++i) x[i] = y[i] = z[i] = 0.0;
    misses.fill(0.0);
}

void PointBlock::testSphere(const glm::dvec3& centre, double radius) {
    const double limit = largestSquare(radius);
    for (size_t i = 0; i < CAPACITY; ++i) {
        const double dx = x[i] - centre.x;
        const double dy = y[i] - centre.y;
        const double dz = z[i] - centre.z;
        misses[i] = dx * dx + dy * dy + dz * dz <= limit ? misses[i] : 1.0;
    }
}

void PointBlock::testBox(const ClipBox::Planes& planes, bool outside) {
    Row beyond{};
    for (size_t i = 0; i < planes.size(); i += 2) markBeyond(x, y, z, planes[i], planes[i + 1], beyond);
    const double wanted = outside ? 1.0 : 0.0;
    for (size_t i = 0; i < CAPACITY; ++i) misses[i] = beyond[i] == wanted ? misses[i] : 1.0;
}

void PointBlock::testBox(const ClipBox::Planes& planes, const glm::dmat4& transformation) {
    std::array<Row, 4> places;
    transform(transformation, places);
    for (size_t i = 0; i < planes.size(); i += 2) {
        markBeyond(places[0], places[1], places[2], planes[i], planes[i + 1], misses);
    }
}

void PointBlock::transform(const glm::dmat4& matrix, std::array<Row, 4>& out) const {
    for (int row = 0; row < 4; ++row) {
        const double a = matrix[0][row];
        const double b = matrix[1][row];
        const double c = matrix[2][row];
        const double d = matrix[3][row] * 1.0;
        Row& to = out[static_cast<size_t>(row)];
        for (size_t i = 0; i < CAPACITY; ++i) to[i] = (a * x[i] + b * y[i]) + (c * z[i] + d);
    }
}
