#include "viewer/Camera.h"

#include <glm/ext/matrix_clip_space.hpp>
#include <glm/trigonometric.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>

// Direction as yaw and pitch rather than as a matrix: no rounding adds up over many small turns, and the horizon
// cannot tilt. The axes follow from the two angles even when looking straight down, where a look-at matrix has none.

static constexpr double PI = std::numbers::pi;
static constexpr double SMALLEST_FOV = PI / 180.0;
static constexpr double LARGEST_FOV = PI * 150.0 / 180.0;
static constexpr double FIT_MARGIN = 1.04;      // of the picture, to all sides together
static constexpr double CLOSEST = 1e-4;         // to an anchor, in units of the scene
static constexpr double FURTHEST = 1e7;         // from an anchor
static constexpr double MOST_DEPTH_RATIO = 2e4; // of the clip distances: what 24 bits of depth resolve decently

void Camera::setFieldOfView(double newFieldOfView) {
    fov = std::clamp(newFieldOfView, SMALLEST_FOV, LARGEST_FOV);
}

void Camera::lookAt(const glm::dvec3& newEye, const glm::dvec3& target) {
    const glm::dvec3 way = target - newEye;
    eyePoint = newEye;
    pivotPoint = target;
    const double across = std::hypot(way.x, way.y);
    if (across == 0.0 && way.z == 0.0) return;
    pitch = std::atan2(way.z, across);
    // Straight up or down any yaw would do; this one has y pointing up in the picture, as on a map.
    yaw = across > 0.0 ? std::atan2(way.y, way.x) : PI / 2.0;
}

void Camera::setView(StandardView view) {
    switch (view) {
    case StandardView::TOP:
        yaw = PI / 2.0;
        pitch = -PI / 2.0;
        break;
    case StandardView::FRONT:
        yaw = PI / 2.0;
        pitch = 0.0;
        break;
    case StandardView::SIDE:
        yaw = PI;
        pitch = 0.0;
        break;
    case StandardView::ISO:
        yaw = PI / 4.0;
        pitch = -PI / 6.0;
        break;
    }
}

namespace {
// Along one axis of the picture: the two edges of the cone of view that just holds all points.
struct Wedge {
    double tangent; // of half the angle of view
    double low = INFINITY;
    double high = -INFINITY;

    void include(double across, double ahead) {
        low = std::min(low, across + tangent * ahead);
        high = std::max(high, across - tangent * ahead);
    }
    [[nodiscard]] double across() const { return (low + high) / 2.0; }
    [[nodiscard]] double ahead() const { return (low - high) / (2.0 * tangent); }
};
} // namespace

void Camera::fit(std::span<const glm::dvec3> points, double aspect) {
    if (points.empty()) return;
    const glm::dvec3 axes[] = {right(), up(), forward()};
    const double tangent = std::tan(fov / 2.0) / FIT_MARGIN;
    Wedge horizontal{tangent * aspect};
    Wedge vertical{tangent};
    double nearest = INFINITY;
    for (const glm::dvec3& point : points) {
        const double ahead = glm::dot(point, axes[2]);
        horizontal.include(glm::dot(point, axes[0]), ahead);
        vertical.include(glm::dot(point, axes[1]), ahead);
        nearest = std::min(nearest, ahead);
    }
    const Box box = Box::around(points);
    // A single point, or a row of them along the line of sight, would put the eye into a point.
    const double distance = box.diagonal() > 0.0 ? box.diagonal() * 0.05 : 1.0;
    const double ahead = std::min({horizontal.ahead(), vertical.ahead(), nearest - distance});
    eyePoint = axes[0] * horizontal.across() + axes[1] * vertical.across() + axes[2] * ahead;
    pivotPoint = box.centre();
}

void Camera::turn(double left, double upwards, const glm::dvec3& centre) {
    const auto inView = [&](const glm::dvec3& way) {
        return glm::dvec3(glm::dot(way, right()), glm::dot(way, up()), glm::dot(way, forward()));
    };
    const auto inSpace = [&](const glm::dvec3& way) { return right() * way.x + up() * way.y + forward() * way.z; };
    const glm::dvec3 toEye = inView(eyePoint - centre);
    const glm::dvec3 toPivot = inView(pivotPoint - centre);
    yaw = std::remainder(yaw + left, 2.0 * PI);
    pitch = std::clamp(pitch + upwards, -PI / 2.0, PI / 2.0);
    eyePoint = centre + inSpace(toEye);
    pivotPoint = centre + inSpace(toPivot);
}

void Camera::orbit(double left, double upwards) {
    const glm::dvec3 centre = pivotPoint;
    turn(left, upwards, centre);
    pivotPoint = centre; // to the last bit, after any number of turns
}

void Camera::look(double left, double upwards) {
    const glm::dvec3 centre = eyePoint;
    turn(left, upwards, centre);
    eyePoint = centre;
}

void Camera::pan(const glm::dvec2& pixels, PixelSize size) {
    // With the pivot behind the eye there is no depth to follow; its distance still gives a useful pace.
    const double depth = std::max(depthOf(pivotPoint), glm::length(pivotPoint - eyePoint) * 0.1);
    const double units = unitsPerPixel(depth, size);
    const glm::dvec3 way = (up() * pixels.y - right() * pixels.x) * units;
    eyePoint += way;
    pivotPoint += way;
}

void Camera::zoom(double factor, const glm::dvec3& anchor) {
    const double distance = glm::length(eyePoint - anchor) * factor;
    if (!(distance >= CLOSEST && distance <= FURTHEST)) return;
    eyePoint = anchor + (eyePoint - anchor) * factor;
    pivotPoint = anchor + (pivotPoint - anchor) * factor;
}

void Camera::fly(const glm::dvec3& way) {
    const glm::dvec3 step = right() * way.x + up() * way.y + forward() * way.z;
    eyePoint += step;
    pivotPoint += step;
}

glm::dvec3 Camera::forward() const {
    return {std::cos(pitch) * std::cos(yaw), std::cos(pitch) * std::sin(yaw), std::sin(pitch)};
}

glm::dvec3 Camera::right() const {
    return {std::sin(yaw), -std::cos(yaw), 0.0};
}

glm::dvec3 Camera::up() const {
    return glm::cross(right(), forward());
}

double Camera::depthOf(const glm::dvec3& point) const {
    return glm::dot(point - eyePoint, forward());
}

double Camera::unitsPerPixel(double depth, PixelSize size) const {
    return 2.0 * std::tan(fov / 2.0) * depth / size.height;
}

glm::dmat4 Camera::viewMatrix() const {
    const glm::dvec3 x = right();
    const glm::dvec3 y = up();
    const glm::dvec3 z = -forward();
    return {{x.x, y.x, z.x, 0.0},
            {x.y, y.y, z.y, 0.0},
            {x.z, y.z, z.z, 0.0},
            {-glm::dot(x, eyePoint), -glm::dot(y, eyePoint), -glm::dot(z, eyePoint), 1.0}};
}

glm::dmat4 Camera::projectionMatrix(double aspect, const Box& scene) const {
    double nearest = INFINITY;
    double farthest = 0.0;
    for (size_t corner = 0; corner < 8 && !scene.isEmpty(); ++corner) {
        const double depth = depthOf(scene.corner(corner));
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    // Everything is behind the eye, or there is nothing: any distances do.
    if (farthest <= 0.0) farthest = 1.0;
    // Points are as large as their pixels, so that one on the box's face must not touch the clip plane.
    farthest *= 1.01;
    nearest = std::clamp(nearest * 0.99, farthest / MOST_DEPTH_RATIO, farthest * 0.99);
    return glm::perspective(fov, aspect, nearest, farthest);
}

std::optional<glm::dvec2> Camera::project(const glm::dvec3& point, PixelSize size) const {
    const double depth = depthOf(point);
    if (depth <= 0.0) return std::nullopt;
    const double units = unitsPerPixel(depth, size);
    const glm::dvec3 way = point - eyePoint;
    return glm::dvec2(size.width / 2.0 + glm::dot(way, right()) / units,
                      size.height / 2.0 - glm::dot(way, up()) / units);
}

glm::dvec3 Camera::pointAtDepthOf(const glm::dvec3& reference, const glm::dvec2& pixel, PixelSize size) const {
    const double depth = std::max(depthOf(reference), CLOSEST);
    const double units = unitsPerPixel(depth, size);
    return eyePoint + forward() * depth + right() * ((pixel.x - size.width / 2.0) * units) +
           up() * ((size.height / 2.0 - pixel.y) * units);
}
