#pragma once

#include <array>
#include <cstdint>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>
#include <span>

// An oriented box given by six planes, which limits what is drawn, selected or searched.
//
// The planes lie in world space, and a tested place is put through the transformation first: the model matrix of the
// cloud that it comes from. A plain value; nothing here locks, and the tests may run on many threads while nobody
// writes.
class ClipBox {
public:
    enum Test { OUTSIDE = 0, CUT = 1, INSIDE = 2 };

    // Six pairs of a normal, which points out of the box, and a point on the plane. The pairs of opposite faces follow
    // each other, so that the first two give the centre of the box.
    using Planes = std::array<glm::dvec3, 12>;

    void setPlanes(const Planes& value);
    [[nodiscard]] const Planes& getClipPlanes() const { return planes; }

    // The tint of what lies inside, each 0 to 255; alpha is how much of it.
    void setRGB(float r, float g, float b, float a) { rgba = {r, g, b, a}; }
    [[nodiscard]] const std::array<float, 4>& getRGB() const { return rgba; }

    void setTransformation(const glm::dmat4& value) { transformation = value; }
    [[nodiscard]] const glm::dmat4& getTransformation() const { return transformation; }

    void setActive(bool value) { active = value; }
    [[nodiscard]] bool isActive() const { return active; }

    // 0: what lies outside is hidden. 1: it stays. 2: it is hidden, and a thin rim is drawn along the faces.
    void setClipMode(int value) { clipMode = value; }
    [[nodiscard]] int getClipMode() const { return clipMode; }

    // How a sphere lies to the box. The radius is scaled as the transformation scales Z.
    [[nodiscard]] Test testIntersection(double x, double y, double z, double radius) const;

    // A place exactly on a face is inside.
    [[nodiscard]] bool contains(double x, double y, double z) const;

    // The same two for what was put through the transformation already.
    [[nodiscard]] Test testPlaced(const glm::dvec3& q, double r) const;
    [[nodiscard]] bool containsPlaced(const glm::dvec3& q) const;

    // The plane 0 to 5 put through the transformation: a place p is inside where dot(p, equation) is positive. For
    // this one the transformation leads from the planes' space to the place's.
    [[nodiscard]] glm::dvec4 getPlaneEquation(int index) const;

    // The signed distance of a place from the middle of the box along the first normal.
    [[nodiscard]] double getDistanceFromPlane(const glm::dvec4& p) const;

private:
    Planes planes{};
    bool active = false;
    std::array<float, 4> rgba{};
    glm::dmat4 transformation{1.0};
    glm::dvec3 centre{0.0};
    int32_t clipMode = 0;
};
