#pragma once

#include "viewer/Box.h"

#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>

#include <optional>
#include <span>

// Size of a picture or a window's inside, in pixels.
struct PixelSize {
    int width = 1;
    int height = 1;

    [[nodiscard]] double aspect() const { return static_cast<double>(width) / static_cast<double>(height); }
};

enum class StandardView { TOP, FRONT, SIDE, ISO };

// A perspective camera that stands upright: z is up, and the horizon stays level.
//
// It has a pivot, the point that orbiting turns it around, which need not lie in the middle of the picture. Pixels are
// counted from the picture's upper left corner, x to the right and y down; angles are in radians. Plain values: it
// knows nothing of windows, OpenGL or the engine.
class Camera {
public:
    // Vertical field of view, kept within what a perspective can show.
    void setFieldOfView(double newFieldOfView);
    [[nodiscard]] double fieldOfView() const { return fov; }

    // Stands at `newEye` and looks at `target`, which becomes the pivot. Two equal points change the place only.
    void lookAt(const glm::dvec3& newEye, const glm::dvec3& target);

    // Turns to a standard view: from above with y up, from the south, from the east, from the south-west above.
    // The place follows with fit().
    void setView(StandardView view);

    // Goes, without turning, to the nearest place that has all points in the picture with a small margin, and makes the
    // middle of their box the pivot. No points change nothing.
    void fit(std::span<const glm::dvec3> points, double aspect);

    // Turns around the pivot, to the left and upwards.
    void orbit(double left, double up);
    // Turns on the spot; the pivot stays where it is in the picture.
    void look(double left, double up);
    // Moves so that what lies at the pivot's depth follows the cursor by so many pixels.
    void pan(const glm::dvec2& pixels, PixelSize size);
    // Goes so much closer to `anchor` (below 1) or further away (above 1); what lies there stays in its pixel.
    void zoom(double factor, const glm::dvec3& anchor);
    // Moves along its own axes: to the right, upwards, ahead.
    void fly(const glm::dvec3& way);
    void setPivot(const glm::dvec3& newPivot) { pivotPoint = newPivot; }

    [[nodiscard]] glm::dvec3 eye() const { return eyePoint; }
    [[nodiscard]] glm::dvec3 pivot() const { return pivotPoint; }
    [[nodiscard]] glm::dvec3 forward() const;
    [[nodiscard]] glm::dvec3 right() const;
    [[nodiscard]] glm::dvec3 up() const;

    [[nodiscard]] glm::dmat4 viewMatrix() const;
    // Puts the clip distances around what is in front of the eye of `scene`, so that depth is spent on what there is.
    [[nodiscard]] glm::dmat4 projectionMatrix(double aspect, const Box& scene) const;

    // The pixel that shows `point`; nothing for a point that is not in front of the eye.
    [[nodiscard]] std::optional<glm::dvec2> project(const glm::dvec3& point, PixelSize size) const;
    // What lies behind a pixel at the depth of `reference`, or close to the eye when that is behind it.
    [[nodiscard]] glm::dvec3 pointAtDepthOf(const glm::dvec3& reference, const glm::dvec2& pixel, PixelSize size) const;

private:
    [[nodiscard]] double depthOf(const glm::dvec3& point) const;
    [[nodiscard]] double unitsPerPixel(double depth, PixelSize size) const;
    void turn(double left, double up, const glm::dvec3& centre);

    glm::dvec3 eyePoint{0.0, 0.0, 1.0};
    glm::dvec3 pivotPoint{0.0};
    double yaw = 0.0;   // of the direction of view, from x towards y
    double pitch = 0.0; // above the horizon; straight up and down included
    double fov = 0.785398163397448;
};
