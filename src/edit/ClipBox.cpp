#include "edit/ClipBox.h"

#include <cmath>
#include <glm/geometric.hpp>

void ClipBox::setPlanes(const Planes& value) {
    planes = value;
    centre = (planes[1] + planes[3]) / 2.0;
}

ClipBox::Test ClipBox::testIntersection(double x, double y, double z, double radius) const {
    const double r = glm::length(transformation * glm::dvec4(0.0, 0.0, radius, 0.0));
    return testPlaced(glm::dvec3(transformation * glm::dvec4(x, y, z, 1.0)), r);
}

ClipBox::Test ClipBox::testPlaced(const glm::dvec3& q, double r) const {
    bool isCut = false;
    for (size_t i = 0; i < planes.size(); i += 2) {
        const double d = glm::dot(planes[i], q - planes[i + 1]);
        // A sphere that touches a plane from outside neither cuts it nor lies outside.
        if (r > std::abs(d)) {
            isCut = true;
        } else if (d > r) {
            return OUTSIDE;
        }
    }
    return isCut ? CUT : INSIDE;
}

bool ClipBox::contains(double x, double y, double z) const {
    return containsPlaced(glm::dvec3(transformation * glm::dvec4(x, y, z, 1.0)));
}

bool ClipBox::containsPlaced(const glm::dvec3& q) const {
    for (size_t i = 0; i < planes.size(); i += 2) {
        if (glm::dot(planes[i], q - planes[i + 1]) > 0.0) return false;
    }
    return true;
}

glm::dvec4 ClipBox::getPlaneEquation(int index) const {
    const auto i = 2 * static_cast<size_t>(index);
    const glm::dvec3 n(transformation * glm::dvec4(planes[i], 0.0));
    const glm::dvec3 p(transformation * glm::dvec4(planes[i + 1], 1.0));
    return {-n, glm::dot(n, p)};
}

double ClipBox::getDistanceFromPlane(const glm::dvec4& p) const {
    return glm::dot(planes[0], glm::dvec3(transformation * p) - centre);
}
