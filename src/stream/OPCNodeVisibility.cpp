// Which nodes a window sees: those whose bounding sphere meets the frustum, is not clipped away, and whose points lie
// coarse enough on the screen to matter.
//
// The arithmetic mixes 32-bit and 64-bit floats on purpose. The level of detail of every scene rests on the exact
// results, so each narrowing stays where it is, and so does the halving of a field of view that comes in halved.

#include "stream/GPUBatch.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"
#include "stream/ViewCriteria.h"

#include <algorithm>
#include <utility>

namespace {

// The spacing of a node's points is taken as its mean side over this, as the builder lays them out.
constexpr float POINTS_PER_SIDE = 75.0F;

bool isCoarse(const double* box, const double* centre, const ViewCriteria& view, double slope) {
    const double sides = (box[3] - box[0]) + (box[4] - box[1]) + (box[5] - box[2]);
    const float spacing = static_cast<float>(sides / 3.0) / POINTS_PER_SIDE;
    const double worldSize = double{spacing} * 0.5 * ((0.1 + view.lodFactor) / 100.0);
    const double pixelSize = slope * double{distance32(centre, view.eye)};
    return static_cast<float>(worldSize) > static_cast<float>(pixelSize);
}

} // namespace

bool OPCNode::isNodeInFrustum(const double* planes) {
    double centre[3];
    getNodeCenter(centre);
    const double r = -double{radius};
    for (const double* plane = planes; plane != planes + 24; plane += 4) {
        // A sphere that only touches the plane is inside.
        if (r > plane[0] * centre[0] + plane[1] * centre[1] + plane[2] * centre[2] + plane[3]) return false;
    }
    return true;
}

void OPCNode::checkVisibility(const ViewCriteria& view, bool forceVisible) {
    const double slope = pixelSlope(view);
    const auto passes = [&](OPCNode& node, bool forced) {
        if (!node.isNodeInFrustum(view.planes.data())) return false;
        double centre[3];
        node.getNodeCenter(centre);
        if (view.clips && view.clips(centre, double{node.radius})) return false;
        return forced || isCoarse(node.boundingBox.data(), centre, view, slope);
    };
    std::vector<std::pair<OPCNode*, bool>> waiting{{this, forceVisible}};
    while (!waiting.empty()) {
        const auto [node, forced] = waiting.back();
        waiting.pop_back();
        if (!passes(*node, forced)) {
            // The subtree of a node that was not seen before is not seen either.
            if (node->isVisible(view.window)) node->leaveView(view.window);
            continue;
        }
        if (!node->isVisible(view.window)) node->setVisible(view.window);
        // A node without points has no size on the screen that could hide its subtree.
        const bool forceChildren = node->pointCount == 0;
        for (auto child = node->children.rbegin(); child != node->children.rend(); ++child) {
            waiting.emplace_back(static_cast<OPCNode*>(child->get()), forceChildren);
        }
    }
}

void OPCNode::leaveView(int window) {
    unregisterWindow(window);
    if (!isVisibleAnyWindows()) unload(true);
}

void OPCNode::getWindowPointCount(int window, int64_t* count) {
    walkNodes(*this, [=](OPCInterface& next) {
        auto& node = static_cast<OPCNode&>(next);
        if (!node.isVisible(window)) return false;
        const GPUBatch* batch = node.existingBatch(window);
        if (!batch || !batch->isResident()) return false;
        *count += node.pointCount;
        return true;
    });
}
