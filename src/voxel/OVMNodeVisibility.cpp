// Which cells of a voxel model a window shows: those where the way down from the root ends, because the next ones would
// be too small on the screen, lie outside the view, or do not exist.
//
// The cells go into the window's batch in the same walk that finds them. A mark a node and window, to be read back by a
// second walk, would cost a byte a node and tell nothing more.

#include "ground/Log.h"
#include "stream/GPUBatch.h"
#include "stream/OVMNode.h"
#include "stream/ViewCriteria.h"
#include "voxel/OVMNodeCell.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace {

constexpr int WINDOWS = 8;

uint8_t windowBit(int window) {
    return window < 0 || window >= WINDOWS ? uint8_t{0} : static_cast<uint8_t>(1U << window);
}

// Whether a cell is looked at: not well outside the frustum, and large enough on the screen.
class CellTest {
public:
    explicit CellTest(const ViewCriteria& viewIn) : view(viewIn), slope(pixelSlope(view)) {}

    [[nodiscard]] bool operator()(const VoxelBox& box) const {
        // Projected sizes are of the diagonal, in halves of a pixel, since the field of view comes in halved.
        constexpr double SMALLEST = 10.0;
        const double centre[3] = {box.middle(0), box.middle(1), box.middle(2)};
        double squares = 0.0;
        for (size_t axis = 0; axis < 3; ++axis) squares += box.edge(axis) * box.edge(axis);
        const double diagonal = double{static_cast<float>(std::sqrt(squares))};
        for (const double* plane = view.planes.data(); plane != view.planes.data() + view.planes.size(); plane += 4) {
            const double distance = plane[0] * centre[0] + plane[1] * centre[1] + plane[2] * centre[2] + plane[3];
            if (distance < -2.0 * diagonal) return false;
        }
        // No distance at all makes the size infinite, which passes.
        const double pixel = slope * double{distance32(centre, view.eye)};
        return view.lodFactor / 100.0 * (diagonal / pixel) > SMALLEST;
    }

private:
    const ViewCriteria& view;
    const double slope;
};

// Whether the batch holds these bytes already.
bool isUnchanged(const GPUBatch& batch, const std::vector<unsigned char>& vertices) {
    std::lock_guard lock(batch.mutex);
    return batch.data && static_cast<size_t>(batch.size) == vertices.size() &&
           std::memcmp(batch.data.get(), vertices.data(), vertices.size()) == 0;
}

} // namespace

bool OVMNode::isVisible(int window) {
    return (windowVisibility & windowBit(window)) != 0;
}

void OVMNode::checkVisibility(const ViewCriteria& view, bool /*forceVisible*/) {
    const uint8_t bit = windowBit(view.window);
    if (bit == 0) return;
    try {
        const std::vector<unsigned char> vertices = visibleCells(view);
        if (vertices.empty()) {
            windowVisibility &= static_cast<uint8_t>(~bit);
            return unloadUnseen();
        }
        GPUBatch& batch = *getGPUBatch(view.window);
        if (!isUnchanged(batch, vertices)) {
            auto data = std::make_unique_for_overwrite<unsigned char[]>(vertices.size());
            std::memcpy(data.get(), vertices.data(), vertices.size());
            batch.fill(std::move(data), static_cast<int>(vertices.size()));
        }
        windowVisibility |= bit;
    } catch (const std::bad_alloc&) {
        setLastError("there is not enough memory for the cells that the window shows"); // those of before stay
    }
}

std::vector<unsigned char> OVMNode::visibleCells(const ViewCriteria& view) const {
    constexpr size_t MOST_BYTES = std::numeric_limits<int32_t>::max() - VoxelVertex::SIZE;
    const CellTest isSeen(view);
    std::vector<unsigned char> vertices;
    std::vector<Cell> waiting;
    if (isSeen(root().box)) waiting.push_back(root());
    while (!waiting.empty() && vertices.size() <= MOST_BYTES) {
        const Cell cell = waiting.back();
        waiting.pop_back();
        bool ends = true;
        visitChildren(cell, [&](const Cell& child) {
            if (!isSeen(child.box)) return;
            waiting.push_back(child);
            ends = false;
        });
        if (ends) appendVertex(vertices, cell);
    }
    return vertices;
}

void OVMNode::appendVertex(std::vector<unsigned char>& out, const Cell& cell) const {
    float places[6]; // centre, half edges
    for (size_t axis = 0; axis < 3; ++axis) {
        places[axis] = static_cast<float>(cell.box.middle(axis) - boundingBox[axis]);
        places[axis + 3] = static_cast<float>(cell.box.edge(axis) * 0.5);
    }
    out.resize(out.size() + VoxelVertex::SIZE); // zeros
    unsigned char* vertex = out.data() + out.size() - VoxelVertex::SIZE;
    std::memcpy(vertex + VoxelVertex::CENTRE, places, sizeof(places));
    const std::array<unsigned, 4> values = VoxelColour::unpack(&colours[size_t{cell.node} * VoxelColour::SIZE]);
    for (size_t i = 0; i < values.size(); ++i) {
        vertex[VoxelVertex::COLOUR + i] = static_cast<unsigned char>(values[i]);
    }
}

void OVMNode::getWindowPointCount(int window, int64_t* count) {
    GPUBatch* batch = isVisible(window) ? existingBatch(window) : nullptr;
    if (!batch) return;
    std::lock_guard lock(batch->mutex);
    *count += batch->size / VoxelVertex::SIZE;
}

void OVMNode::unload(bool /*recursive*/) {
    windowVisibility = 0;
    unloadUnseen();
}

void OVMNode::unloadUnseen() {
    if (isVisibleAnyWindows()) return;
    for (int window = 0; window < WINDOWS; ++window) {
        if (GPUBatch* batch = existingBatch(window)) batch->clear();
    }
}
