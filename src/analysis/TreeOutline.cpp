#include "analysis/TreeOutline.h"

#include "analysis/NodePlaces.h"
#include "stream/OPCInterface.h"

#include <algorithm>
#include <cmath>

TreeOutline::TreeOutline(OPCInterface& root, const glm::dmat4& matrix) {
    std::vector<OPCInterface*> nodes;
    root.populateNodeTreeList(&nodes);
    entries.resize(nodes.size());
    // Backwards, so that the ends of the children's subtrees are known when the parent's is asked for.
    for (size_t i = nodes.size(); i-- > 0;) {
        Entry& entry = entries[i];
        entry.node = nodes[i];
        entry.centre = glm::dvec3(matrix * glm::dvec4(centreOf(*nodes[i]), 1.0));
        entry.radius = placedLength(matrix, nodes[i]->getRadius());
        entry.next = static_cast<uint32_t>(i + 1);
        for (size_t child = 0; child < nodes[i]->getChildren().size(); ++child) entry.next = entries[entry.next].next;
    }
    for (const Entry& entry : entries) {
        for (int axis = 0; axis < 3; ++axis) {
            farthestCoordinate = std::max(farthestCoordinate, std::abs(entry.centre[axis]) + 2.0 * entry.radius);
        }
    }
}
