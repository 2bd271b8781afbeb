#include "analysis/TriangleSelection.h"

#include "analysis/NodePlaces.h"
#include "stream/OPCInterface.h"

#include <algorithm>

std::shared_ptr<PointSearch> TriangleFindings::pointsOf(OPCInterface& node) {
    return nodes.get(&node, [&node]() -> std::unique_ptr<PointSearch> {
        auto places = readPlaces(node);
        return places ? std::make_unique<PointSearch>(std::move(*places)) : nullptr;
    });
}

bool TriangleSearch::search(const Triangle& triangle, const Receive& receive) {
    const std::optional<glm::dvec3> normal = triangle.normal();
    if (!normal) return false;
    ClipBox prism;
    prism.setPlanes(prismPlanes(triangle, *normal, {thickness, thickness}));
    prism.setActive(true);
    const double radius = triangle.reach() + 2.0 * thickness;
    for (const SearchedCloud& cloud : clouds) {
        prism.setTransformation(cloud.toWorld);
        findings.setReceiver([&](OPCInterface& node, const std::vector<glm::dvec3>& places,
                                 std::span<const uint32_t> found,
                                 bool wholeSubtree) { receive(cloud, node, places, found, wholeSubtree); });
        const glm::dvec3 centre(cloud.toFile * glm::dvec4(triangle.centroid, 1.0));
        cloud.root.selectPointsBySphere2(centre, radius, prism, findings);
    }
    return true;
}

void selectFound(OPCInterface& node, std::span<const uint32_t> found, bool wholeSubtree) {
    if (wholeSubtree) return node.selectAllPoints();
    if (found.empty()) return;
    std::vector<bool> bits = node.getSelectionBits();
    bits.resize(std::max(bits.size(), static_cast<size_t>(std::max<short>(node.getPointCount(), 0))));
    for (const uint32_t i : found) bits[i] = true;
    node.setSelectionBits(std::move(bits));
}
