#include "edit/PolygonSelection.h"

#include <cmath>
#include <glm/geometric.hpp>
#include <glm/matrix.hpp>

namespace {

constexpr double INFINITELY_FAR = 99999999999.0;
constexpr double PROBE = 10.0; // pixels

// Differences of pixels are those of 32-bit integers, wrap-around included.
int32_t difference(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

bool isFinite(const glm::dvec4& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z) && std::isfinite(v.w);
}

} // namespace

PolygonSelection::PolygonSelection(const glm::dmat4& matrixIn, const int* viewportIn, std::span<const int> corners)
    : matrix(matrixIn), inverse(glm::inverse(matrixIn)),
      viewport(viewportIn[0], viewportIn[1], viewportIn[2], viewportIn[3]) {
    points.reserve(corners.size() / 2);
    for (size_t i = 0; i + 1 < corners.size(); i += 2) {
        points.push_back({corners[i], difference(viewport[3], corners[i + 1])});
    }
}

glm::dvec4 PolygonSelection::project(const glm::dvec4& v) const {
    const glm::dvec4 c = matrix * v;
    const double s = 0.5 / c.w;
    return {viewport[0] + viewport[2] * (c.x * s + 0.5), viewport[1] + viewport[3] * (c.y * s + 0.5), c.z * s + 0.5, s};
}

std::array<PointBlock::Row, 3> PolygonSelection::project(const PointBlock& block) const {
    std::array<PointBlock::Row, 4> c;
    block.transform(matrix, c);
    const glm::dvec4 area(viewport);
    std::array<PointBlock::Row, 3> screen;
    for (size_t i = 0; i < PointBlock::CAPACITY; ++i) {
        const double s = 0.5 / c[3][i];
        screen[0][i] = area[0] + area[2] * (c[0][i] * s + 0.5);
        screen[1][i] = area[1] + area[3] * (c[1][i] * s + 0.5);
        screen[2][i] = c[2][i] * s + 0.5;
    }
    return screen;
}

glm::dvec4 PolygonSelection::unProject(const glm::dvec4& v) const {
    const double nx = 2.0 * (v.x - viewport[0]) / viewport[2] - 1.0;
    const double ny = 2.0 * (v.y - viewport[1]) / viewport[3] - 1.0;
    const glm::dvec4 c = inverse * glm::dvec4(nx, ny, 2.0 * v.z - 1.0, 1.0);
    if (c.w == 0.0) return {c.x, c.y, c.z, 1.0};
    return {c.x / c.w, c.y / c.w, c.z / c.w, 1.0};
}

PolygonSelection::Test PolygonSelection::intersectionTest(double x, double y, double z, double radius) const {
    const glm::dvec4 place(x, y, z, 1.0);
    const glm::dvec4 s = project(place);
    // The world's radius on the screen, measured towards the place that lies some pixels to the right.
    const glm::dvec4 direction = glm::normalize(unProject({s.x + PROBE, s.y, s.z, s.w}) - place);
    const glm::dvec4 e = project(place + direction * radius);
    if (!isFinite(s) || !isFinite(e)) return points.empty() ? OUTSIDE : CUT;
    const double screenRadius = glm::length(e - s);
    for (size_t i = 0; i < points.size(); ++i) {
        const ScreenCorner& corner = points[i];
        const ScreenCorner& previous = points[i == 0 ? points.size() - 1 : i - 1];
        if (screenRadius > distanceToSegment({corner.x, corner.y}, {previous.x, previous.y}, {s.x, s.y})) return CUT;
    }
    return contains(x, y, z) ? INSIDE : OUTSIDE;
}

double PolygonSelection::distanceToSegment(const glm::dvec2& a, const glm::dvec2& b, const glm::dvec2& p) {
    const glm::dvec2 d = b - a;
    if (d.x == 0.0 && d.y == 0.0) return INFINITELY_FAR;
    const double t = glm::dot(p - a, d) / glm::dot(d, d);
    if (t < 0.0) return glm::length(p - a);
    if (t > 1.0) return glm::length(p - b);
    return glm::length(p - (a + t * d));
}

bool PolygonSelection::contains(double x, double y, double z) const {
    const glm::dvec4 s = project({x, y, z, 1.0});
    if (s.z > 1.0 || s.z < 0.0) return false;
    return pnpoly(s.x, s.y);
}

bool PolygonSelection::pnpoly(double x, double y) const {
    bool isInside = false;
    for (size_t i = 0; i < points.size(); ++i) {
        const ScreenCorner& a = points[i];
        const ScreenCorner& b = points[i == 0 ? points.size() - 1 : i - 1];
        if ((y < b.y) == (y < a.y)) continue;
        const double crossing =
            a.x + (y - a.y) * static_cast<double>(difference(b.x, a.x)) / static_cast<double>(difference(b.y, a.y));
        if (crossing > x) isInside = !isInside;
    }
    return isInside;
}
