// The points by a triangle of a mesh.

#include "analysis/NodePlaces.h"
#include "analysis/TriangleSelection.h"
#include "edit/ClipBox.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"

#include <glm/geometric.hpp>
#include <numeric>

namespace {

// The indices of the points within the sphere that the prism contains.
std::vector<uint32_t> findIn(PointSearch& points, const glm::dvec3& centre, double radius, const ClipBox& prism) {
    const glm::dvec3 reach(radius * (1.0 + 1e-12)); // rounding
    std::vector<uint32_t> found;
    for (const uint32_t i : points.within(centre - reach, centre + reach)) {
        const glm::dvec3& p = points.all()[i];
        if (glm::distance(p, centre) <= radius && prism.contains(p.x, p.y, p.z)) found.push_back(i);
    }
    return found;
}

} // namespace

void OPCNode::selectPointsBySphere2(const glm::dvec3& centre, double reach, const ClipBox& prism,
                                    TriangleFindings& findings) {
    walkNodes(*this, [&](OPCInterface& node) {
        if (findings.isToEnd()) return false;
        const glm::dvec3 nodeCentre = centreOf(node);
        const double distance = glm::distance(nodeCentre, centre);
        const ClipBox::Test test = prism.testIntersection(nodeCentre.x, nodeCentre.y, nodeCentre.z, node.getRadius());
        if (test == ClipBox::OUTSIDE || reach + node.getRadius() < distance) return false;
        const std::shared_ptr<PointSearch> points = findings.pointsOf(node);
        if (!points) return true; // those of its children may be there
        if (test == ClipBox::INSIDE && reach >= distance + node.getRadius()) {
            std::vector<uint32_t> all(points->all().size());
            std::iota(all.begin(), all.end(), 0U);
            findings.tell(node, *points, all, true);
            return false;
        }
        findings.tell(node, *points, findIn(*points, centre, reach, prism), false);
        return true;
    });
}
