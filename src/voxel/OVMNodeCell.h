#pragma once

#include "format/VoxelRecord.h"
#include "stream/OVMNode.h"

#include <glm/vec4.hpp>

// A node on the way of a walk over a voxel model, with the box that follows from the cuts above it.
struct OVMNode::Cell {
    uint32_t node;
    VoxelBox box;

    // Faces included.
    [[nodiscard]] bool holds(const glm::dvec4& place) const {
        for (int axis = 0; axis < 3; ++axis) {
            const auto i = static_cast<size_t>(axis);
            if (!(place[axis] >= box.bounds[i] && place[axis] <= box.bounds[i + 3])) return false;
        }
        return true;
    }
};

inline OVMNode::Cell OVMNode::root() const {
    return {0, {boundingBox}};
}

// The right child first, so that a walk that takes the cell pushed last goes left first, which is pre-order.
template <typename Visit>
void OVMNode::visitChildren(const Cell& cell, Visit visit) const {
    const uint32_t link = links[cell.node];
    if (link == 0) return;
    const size_t axis = cell.box.longestAxis();
    if (const uint32_t right = link & ~HAS_LEFT; right != 0) visit(Cell{right, cell.box.half(axis, true)});
    if (link & HAS_LEFT) visit(Cell{cell.node + 1, cell.box.half(axis, false)});
}
