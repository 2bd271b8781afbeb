// Selecting and painting: what a host selects by a sphere, a box or a polygon, or whole.
//
// One walk serves all shapes. It cuts off what the clip box or the shape rejects by its bounding sphere, handles whole
// nodes where it can, and looks at points on what remains: the boundary. Each worker of the walk has buffers of its
// own, which grow to the largest node it meets, so that nothing is allocated for a point and little for a node.

#include "edit/PointBlock.h"
#include "edit/PolygonSelection.h"
#include "edit/SelectionFilters.h"
#include "edit/SelectionShape.h"
#include "edit/StoredPoints.h"
#include "format/OPCNodeParser.h"
#include "format/PointRecord.h"
#include "ground/Log.h"
#include "stream/OPCNode.h"
#include "stream/ParallelNodeWalk.h"

#include <algorithm>
#include <atomic>
#include <glm/geometric.hpp>

namespace {

// What is done with a node and all below it; or, for the boundary, what is still to be found out.
enum SelectionTask { BOUNDARY, SELECT, CLEAR, PAINT };

int16_t pointsOf(OPCInterface& node) {
    return std::max<short>(node.getPointCount(), 0);
}

SelectionTask wholeTask(bool deselect, const SelectionFilters& filters) {
    if (deselect) return CLEAR; // the painter is not asked
    return filters.painter.isActive() ? PAINT : SELECT;
}

glm::dvec3 centreOf(OPCInterface& node) {
    glm::dvec3 centre;
    node.getNodeCenter(&centre.x);
    return centre;
}

} // namespace

// The buffers of one worker.
struct OPCNode::SelectionScratch {
    std::vector<unsigned char> vertices;
    std::vector<unsigned char> stored;
    std::vector<unsigned char> passes; // a byte a point, 0 for those that fail a test
    PointBlock block;
};

struct OPCNode::SelectionWalk {
    const SelectionShape& shape;
    const SelectionFilters& filters;
    const bool deselect;
    std::vector<SelectionScratch> scratches; // one a worker
};

void OPCNode::selectPointsBySphere(const glm::dvec3& centre, double reach, bool deselect,
                                   const SelectionFilters& filters) {
    selectPoints(SphereShape(centre, reach), deselect, filters);
}

void OPCNode::selectPointsByCube(const std::array<glm::dvec3, 12>& planes, bool deselect, bool outside,
                                 const SelectionFilters& filters) {
    selectPoints(BoxShape(planes, outside), deselect, filters);
}

void OPCNode::selectPointsByPolygon(const PolygonSelection& polygon, bool deselect, bool outside,
                                    const SelectionFilters& filters) {
    selectPoints(PolygonShape(polygon, outside), deselect, filters);
}

void OPCNode::selectPoints(const SelectionShape& shape, bool deselect, const SelectionFilters& filters) {
    SelectionWalk walk{shape, filters, deselect, {}};
    walk.scratches.resize(static_cast<size_t>(parallelWalkWorkers()));
    walkNodesInParallel(*this, BOUNDARY, [&walk](OPCInterface& next, int task, int worker) {
        auto& node = static_cast<OPCNode&>(next);
        SelectionScratch& scratch = walk.scratches[static_cast<size_t>(worker)];
        if (task == BOUNDARY) return node.selectOnBoundary(walk, scratch);
        return node.changeWhole(task, walk.filters.painter, scratch);
    });
}

// Returns the task of the children.
int OPCNode::selectOnBoundary(const SelectionWalk& walk, SelectionScratch& scratch) {
    const SelectionFilters& filters = walk.filters;
    const glm::dvec3 centre = centreOf(*this);
    const double size = getRadius();
    const ClipBox::Test clip =
        filters.clip.isActive() ? filters.clip.testIntersection(centre.x, centre.y, centre.z, size) : ClipBox::INSIDE;
    if (clip == ClipBox::OUTSIDE) return STOP_DESCENT;
    const SelectionShape::Verdict verdict = walk.shape.judge(centre, size);
    if (verdict == SelectionShape::REJECTED) return STOP_DESCENT;
    if (verdict == SelectionShape::WHOLLY && clip == ClipBox::INSIDE && !filters.looksAtPoints()) {
        return changeWhole(wholeTask(walk.deselect, filters), filters.painter, scratch);
    }
    const bool hasBackup = historySnapshot();
    if (!walk.shape.goesOn(verdict, hasBackup, clip)) return STOP_DESCENT;
    if (findPassing(walk, scratch)) {
        changePassing(walk, scratch);
    } else {
        setLastError(UNREAD_POINTS);
    }
    return BOUNDARY;
}

// Tests the node's points; false when they can't be read.
bool OPCNode::findPassing(const SelectionWalk& walk, SelectionScratch& scratch) {
    const int count = pointsOf(*this);
    scratch.vertices.resize(static_cast<size_t>(count) * Vertex::SIZE);
    scratch.passes.resize(static_cast<size_t>(count));
    if (!loadPointDataToGPUFormat(scratch.vertices)) return false;
    const SelectionFilters& filters = walk.filters;
    const bool looksAtPoints = filters.looksAtPoints();
    PointBlock& block = scratch.block;
    for (int first = 0; first < count; first += PointBlock::CAPACITY) {
        const unsigned char* vertices = scratch.vertices.data() + static_cast<ptrdiff_t>(first) * Vertex::SIZE;
        block.take(vertices, std::min(count - first, PointBlock::CAPACITY), boundingBox.data());
        walk.shape.testPoints(block);
        if (filters.clip.isActive()) {
            block.testBox(filters.clip.getClipPlanes(), filters.clip.getTransformation());
        }
        for (int i = 0; i < block.size(); ++i) {
            const unsigned char* vertex = vertices + static_cast<ptrdiff_t>(i) * Vertex::SIZE;
            const bool passes =
                block.passes(i) &&
                (!looksAtPoints || (filters.match.testPoint(vertex + Vertex::COLOUR) &&
                                    !filters.classifications.isClassHidden(vertex[Vertex::CLASSIFICATION])));
            scratch.passes[static_cast<size_t>(first + i)] = passes ? 1 : 0;
        }
    }
    return true;
}

void OPCNode::changePassing(const SelectionWalk& walk, SelectionScratch& scratch) {
    const std::vector<unsigned char>& passes = scratch.passes;
    std::vector<bool> bits = getSelectionBits();
    bits.resize(passes.size());
    if (walk.filters.painter.isActive()) {
        paintPassing(walk.filters.painter, scratch);
    } else {
        for (size_t i = 0; i < passes.size(); ++i) {
            if (passes[i] != 0) bits[i] = !walk.deselect;
        }
    }
    setSelectionBits(std::move(bits));
    resetSelectionColours();
}

// ---- Whole nodes

int OPCNode::changeWhole(int task, const PointEditor& painter, SelectionScratch& scratch) {
    const auto count = static_cast<size_t>(pointsOf(*this));
    if (task == CLEAR) {
        if (!hasSelectionBits()) return task;
        historySnapshot();
        setSelectionBits({});
    } else if (task == SELECT) {
        historySnapshot();
        setSelectionBits(std::vector<bool>(count, true));
    } else {
        // Without room for a backup the subtree is not painted.
        if (!historySnapshot()) return STOP_DESCENT;
        scratch.passes.assign(count, 1);
        paintPassing(painter, scratch);
    }
    resetSelectionColours();
    return task;
}

void OPCNode::changeWholeSubtree(int task, const PointEditor& painter) {
    std::vector<SelectionScratch> scratches(static_cast<size_t>(parallelWalkWorkers()));
    walkNodesInParallel(*this, task, [&](OPCInterface& node, int next, int worker) {
        return static_cast<OPCNode&>(node).changeWhole(next, painter, scratches[static_cast<size_t>(worker)]);
    });
}

void OPCNode::selectAllPoints() {
    changeWholeSubtree(SELECT, {});
}

void OPCNode::clearSelectedPoints() {
    changeWholeSubtree(CLEAR, {});
}

void OPCNode::paintAllPoints(const PointEditor& painter) {
    changeWholeSubtree(PAINT, painter);
}

void OPCNode::invertSelectedPoints() {
    walkNodesInParallel(*this, 0, [](OPCInterface& node, int task, int /*worker*/) {
        node.historySnapshot();
        std::vector<bool> bits = node.getSelectionBits();
        bits.resize(static_cast<size_t>(pointsOf(node)));
        bits.flip();
        node.setSelectionBits(std::move(bits));
        node.resetSelectionColours();
        return task;
    });
}

// ---- Paint

// Paints the points that pass, in the stored bytes, and saves those. A node that can't be read stays as it is, and so
// does one whose source takes no changes.
void OPCNode::paintPassing(const PointEditor& painter, SelectionScratch& scratch) {
    const auto total = std::count(scratch.passes.begin(), scratch.passes.end(), 1);
    if (total == 0 || !isWritable()) return;
    if (!loadPointData(scratch.stored)) return setLastError(UNREAD_POINTS);
    OPCNodeParser parser(scratch.stored, getFilter(), bytesPerVertex, version);
    int32_t turn = painter.takeTurns(static_cast<int>(total));
    for (size_t i = 0; i < scratch.passes.size(); ++i) {
        if (scratch.passes[i] != 0) paintPoint(static_cast<int>(i), painter, turn, parser);
    }
    savePointData(scratch.stored);
}

// Points that are marked as deleted have no index here, and stay deleted.
void OPCNode::paintPoint(int index, const PointEditor& painter, int32_t& turn, OPCNodeParser& parser) {
    const OPCPoint point = parser.getPoint(index, true);
    unsigned char attributes[ATTRIBUTE_BYTES];
    std::copy_n(point.colour, 4, attributes);
    attributes[4] = point.classification;
    painter.process(attributes, turn);
    parser.paintPoint(attributes, index);
}

// ---- What is selected

void OPCNode::getSelectedPointsCount(int64_t* count) {
    std::atomic<int64_t> total{0};
    walkNodesInParallel(*this, 0, [&total](OPCInterface& node, int task, int /*worker*/) {
        total.fetch_add(node.countSelected(), std::memory_order_relaxed);
        return task;
    });
    *count += total;
}
