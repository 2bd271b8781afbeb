#include "edit/SelectionShape.h"

#include "edit/PointBlock.h"
#include "edit/PolygonSelection.h"

#include <cmath>
#include <glm/geometric.hpp>

bool SelectionShape::goesOn(Verdict /*verdict*/, bool hasBackup, ClipBox::Test /*clip*/) const {
    return hasBackup;
}

SelectionShape::Verdict SphereShape::judge(const glm::dvec3& nodeCentre, double nodeRadius) const {
    const double distance = glm::distance(nodeCentre, centre);
    // A node that only touches the sphere is looked at.
    if (radius + nodeRadius < distance) return REJECTED;
    return radius >= distance + nodeRadius ? WHOLLY : PARTLY;
}

void SphereShape::testPoints(PointBlock& block) const {
    block.testSphere(centre, radius);
}

SelectionShape::Verdict BoxShape::judge(const glm::dvec3& centre, double radius) const {
    bool isCut = false;
    bool isOutside = false;
    for (size_t i = 0; i < planes.size() && !isOutside; i += 2) {
        const double distance = glm::dot(planes[i], centre - planes[i + 1]);
        if (std::abs(distance) < radius) {
            isCut = true;
        } else {
            isOutside = distance > radius;
        }
    }
    // A cut plane wins over one that the node lies beyond.
    if (isCut) return PARTLY;
    return isOutside == outside ? WHOLLY : REJECTED;
}

void BoxShape::testPoints(PointBlock& block) const {
    block.testBox(planes, outside);
}

PolygonShape::PolygonShape(const PolygonSelection& polygonIn, bool outsideIn)
    : polygon(polygonIn), strips(polygonIn.getCorners()), outside(outsideIn) {}

SelectionShape::Verdict PolygonShape::judge(const glm::dvec3& centre, double radius) const {
    const PolygonSelection::Test test = polygon.intersectionTest(centre.x, centre.y, centre.z, radius);
    if (test == PolygonSelection::CUT) return PARTLY;
    return (test == PolygonSelection::OUTSIDE) == outside ? WHOLLY : UNWANTED;
}

// Where the clip box cuts a node, it is looked at although the polygon does not want it, and although there is no room
// to back it up; so is what lies outside of a polygon that selects outside. This looseness is an established one.
bool PolygonShape::goesOn(Verdict verdict, bool hasBackup, ClipBox::Test clip) const {
    if (clip == ClipBox::CUT) return true;
    return verdict != UNWANTED && (hasBackup || outside);
}

void PolygonShape::testPoints(PointBlock& block) const {
    const auto [x, y, depth] = polygon.project(block);
    for (int i = 0; i < block.size(); ++i) {
        const auto k = static_cast<size_t>(i);
        // What lies behind the viewer or beyond the far plane is in no polygon.
        const bool isInside = !(depth[k] > 1.0 || depth[k] < 0.0) && strips.contains(x[k], y[k]);
        if (isInside == outside) block.miss(i);
    }
}
