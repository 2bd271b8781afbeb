// What a host asks about the points of a cloud: those that are resident, and those that are selected. The tree is not
// changed; only selected points are read from the source, where their node is not resident.

#include "edit/ClipBox.h"
#include "format/PointRecord.h"
#include "ground/Log.h"
#include "stream/GPUBatch.h"
#include "stream/NodeWalk.h"
#include "stream/OPCNode.h"

#include <algorithm>
#include <cstring>
#include <glm/geometric.hpp>

namespace {

// A vertex's place in the file's coordinates.
glm::dvec3 placeOf(const unsigned char* vertex, const double* corner) {
    float relative[3];
    std::memcpy(relative, vertex + Vertex::POSITION, sizeof(relative));
    return {corner[0] + double{relative[0]}, corner[1] + double{relative[1]}, corner[2] + double{relative[2]}};
}

bool holds(const double* box, const glm::dvec4& place) {
    for (int axis = 0; axis < 3; ++axis) {
        if (!(place[axis] >= box[axis] && place[axis] <= box[axis + 3])) return false;
    }
    return true;
}

void listVertex(const unsigned char* vertex, const double* corner, PointListing& listing) {
    const glm::dvec3 place = placeOf(vertex, corner);
    for (int axis = 0; axis < 3; ++axis) listing.positions[3 * listing.written + axis] = place[axis];
    std::memcpy(listing.colours + ATTRIBUTE_BYTES * listing.written, vertex + Vertex::COLOUR, ATTRIBUTE_BYTES);
    ++listing.written;
}

// Lists the points of one node. The caller holds the batch's mutex.
void listVertices(const GPUBatch& batch, const double* corner, PointListing& listing) {
    const int64_t count = batch.size / Vertex::SIZE;
    if (listing.seen + count <= listing.start) {
        listing.seen += count;
        return;
    }
    for (int64_t i = 0; i < count; ++i) {
        if (listing.seen >= listing.start) {
            listVertex(batch.data.get() + i * Vertex::SIZE, corner, listing);
            if (listing.written == listing.count) return;
        }
        ++listing.seen;
    }
}

// Lists the selected points of one node, `vertices` decoded.
void listSelected(const std::vector<unsigned char>& vertices, const std::vector<bool>& bits, const double* corner,
                  PointListing& listing) {
    const size_t count = std::min(bits.size(), vertices.size() / Vertex::SIZE);
    for (size_t i = 0; i < count; ++i) {
        if (!bits[i]) continue;
        if (listing.seen >= listing.start) {
            listVertex(vertices.data() + i * Vertex::SIZE, corner, listing);
            if (listing.written == listing.count) return;
        }
        ++listing.seen;
    }
}

} // namespace

void OPCNode::getWindowPoints(int window, PointListing& listing) {
    walkNodes(*this, [&](OPCInterface& node) {
        if (listing.written >= listing.count) return false;
        GPUBatch* batch = node.isVisible(window) ? node.existingBatch(window) : nullptr;
        if (!batch) return true;
        std::lock_guard lock(batch->mutex);
        if (batch->data) listVertices(*batch, node.getBoundingBox(), listing);
        return true;
    });
}

void OPCNode::getSelectedPoints(PointListing& listing) {
    std::vector<unsigned char> vertices; // for one node after the other
    walkNodes(*this, [&](OPCInterface& node) {
        if (listing.written >= listing.count) return false;
        if (!node.hasSelectionBits()) return true;
        const auto count = std::max<int64_t>(node.getPointCount(), 0);
        const int selected = node.countSelected();
        if (selected == 0 || selected + listing.seen <= listing.start) {
            listing.seen += selected;
            return true;
        }
        vertices.resize(static_cast<size_t>(count) * Vertex::SIZE);
        // What can't be read is listed as the node's corner in black: the host counts on as many points as are
        // selected.
        if (!node.loadPointDataToGPUFormat(vertices)) setLastError("selected points can't be read");
        listSelected(vertices, node.getSelectionBits(), node.getBoundingBox(), listing);
        return true;
    });
}

bool OPCNode::findClosestPoint(const ClipBox& clip, const glm::dmat4& matrix, const glm::dvec4& projectedTarget,
                               const glm::dvec4& target, double* result, unsigned char* colour) {
    bool found = false;
    walkNodes(*this, [&](OPCInterface& node) {
        const double* box = node.getBoundingBox();
        GPUBatch* batch = holds(box, target) ? node.existingBatch(0) : nullptr;
        if (!batch) return false;
        std::lock_guard lock(batch->mutex);
        if (!batch->data) return false;
        const unsigned char* vertex = batch->data.get();
        for (const unsigned char* end = vertex + batch->size; vertex != end; vertex += Vertex::SIZE) {
            const glm::dvec3 place = placeOf(vertex, box);
            if (clip.isActive() && !clip.contains(place.x, place.y, place.z)) continue;
            // Between clip space vectors as they are, without a division by w.
            const double distance = glm::length(matrix * glm::dvec4(place, 1.0) - projectedTarget);
            if (!(result[3] > distance)) continue;
            for (int axis = 0; axis < 3; ++axis) result[axis] = place[axis];
            result[3] = distance;
            std::memcpy(colour, vertex + Vertex::COLOUR, ATTRIBUTE_BYTES);
            found = true;
        }
        return true;
    });
    return found;
}
