#include "build/TreeCompiler.h"

#include "build/LeafFilters.h"
#include "build/NodeEncoder.h"
#include "build/OPCDisk.h"
#include "build/OPCSparseGrid.h"
#include "ground/Parallel.h"
#include "ground/Pools.h"

#include <algorithm>
#include <numeric>
#include <random>

// Work starts at the inner nodes whose children are both leaves, in the order of the tree. A worker that finishes a
// node's last child goes on with the node itself, so that nobody ever waits, and with subtrees taken in order few
// samples are held in memory at a time. Recursion with a job for each child would block a worker for each level.
//
// Every (node, child) pair shuffles with an engine of its own, seeded from the child's place in the tree: which points
// move up must not depend on which thread came first.

struct TreeCompiler::Worker {
    NodeEncoder encoder;
    std::vector<BuildPoint> points; // the child's working list
    std::vector<int64_t> cells;     // of each point in the parent's grid
    std::vector<uint32_t> shuffled; // the points' numbers in random order
    std::vector<uint32_t> staying;  // those that stay in the child
    std::vector<BuildPoint> sample; // those that move up to the node at hand
};

namespace {

// Fisher and Yates's shuffle (Knuth, The Art of Computer Programming, 3.4.2) with the minimal standard generator. A
// draw scaled to the range costs a multiplication; its bias is below one in 60,000 for lists of 32,767.
void shuffle(std::span<uint32_t> numbers, uint64_t seed) {
    using Engine = std::minstd_rand;
    constexpr uint64_t DRAWS = Engine::max() - Engine::min() + 1;
    Engine engine(static_cast<uint32_t>(seed % DRAWS + 1));
    for (size_t i = numbers.size(); i > 1; --i) {
        const uint64_t draw = engine() - Engine::min();
        std::swap(numbers[i - 1], numbers[draw * i / DRAWS]);
    }
}

} // namespace

TreeCompiler::TreeCompiler(BuildContext& contextIn, OPCTreeDataNode& rootIn, std::atomic<int64_t>& compiledCountIn)
    : context(contextIn), root(rootIn), compiledCount(compiledCountIn) {}

bool TreeCompiler::shouldStop() const {
    return *aborted || !context.disk->isSound();
}

void TreeCompiler::compile(const CompileSettings& settingsIn, const std::atomic<bool>& abortedIn) {
    settings = settingsIn;
    aborted = &abortedIn;
    if (root.isLeaf) {
        Worker worker;
        if (!shouldStop()) compileLeafRoot(worker);
        return;
    }
    std::vector<OPCTreeDataNode*> starts;
    visitInPreOrder(root, [&](OPCTreeDataNode& node) {
        if (node.isLeaf) return;
        const int innerChildren = !node.children[0]->isLeaf + !node.children[1]->isLeaf;
        node.unfinishedChildren = innerChildren;
        if (innerChildren == 0) starts.push_back(&node);
    });
    std::atomic<size_t> next{0};
    const size_t workers = std::clamp<size_t>(starts.size(), 1, static_cast<size_t>(maxCores()));
    runWithHelpers(buildPool(), static_cast<int>(workers) - 1, [&] {
        Worker worker;
        for (size_t i = next++; i < starts.size() && !shouldStop(); i = next++) compileSubtree(starts[i], worker);
    });
}

// Compiles a node whose children are done, and then each ancestor whose last open child this was.
void TreeCompiler::compileSubtree(OPCTreeDataNode* node, Worker& worker) {
    for (; node && !shouldStop(); node = node->parent) {
        worker.sample.clear();
        for (size_t side = 0; side < 2; ++side) {
            if (node->children[side]->pointCount > 0) sampleChild(*node, side, worker);
        }
        if (!node->parent) return flushRoot(worker.sample, worker);
        // A copy of the exact size: many nodes wait at a time, and lists that grew step by step would leave the heap
        // full of holes.
        node->memoryList = std::vector<BuildPoint>(worker.sample.begin(), worker.sample.end());
        if (node->parent->unfinishedChildren.fetch_sub(1) != 1) return;
    }
}

// A tree of one node keeps all its points as they are: the filters belong to leaves that a parent reads.
void TreeCompiler::compileLeafRoot(Worker& worker) {
    if (root.readOverflowPoints(context, worker.points)) flushRoot(worker.points, worker);
}

void TreeCompiler::flushRoot(std::span<const BuildPoint> points, Worker& worker) {
    worker.staying.resize(points.size());
    std::iota(worker.staying.begin(), worker.staying.end(), 0U);
    compiledCount += root.pointCount;
    flush(root, points, worker.staying, worker);
}

bool TreeCompiler::takeWorkingList(OPCTreeDataNode& child, Worker& worker) {
    if (!child.isLeaf) {
        worker.points = std::move(child.memoryList);
        return true;
    }
    if (!child.readOverflowPoints(context, worker.points)) return false;
    applyLeafFilters(worker);
    return true;
}

void TreeCompiler::applyLeafFilters(Worker& worker) {
    snapToGrid(worker.points, context.filter());
    if (settings.duplicateRadius > 0.0) {
        const size_t before = worker.points.size();
        worker.points = withoutDuplicates(std::move(worker.points), settings.duplicateRadius);
        context.duplicates += static_cast<int64_t>(before - worker.points.size());
    }
    if (settings.noiseRadius > 0.0) {
        const size_t before = worker.points.size();
        worker.points = withoutNoise(std::move(worker.points), settings.noiseRadius);
        context.noise += static_cast<int64_t>(before - worker.points.size());
    }
}

// Moves a sample of the child's points up and writes the rest as the child's data.
void TreeCompiler::sampleChild(OPCTreeDataNode& node, size_t side, Worker& worker) {
    OPCTreeDataNode& child = *node.children[side];
    if (!takeWorkingList(child, worker)) return;
    const std::vector<BuildPoint>& points = worker.points;
    worker.shuffled.resize(points.size());
    std::iota(worker.shuffled.begin(), worker.shuffled.end(), 0U);
    shuffle(worker.shuffled, child.place);

    OPCSparseGrid grid(node.maxBound[0], node.maxBound[1], node.maxBound[2], node.minBound[0], node.minBound[1],
                       node.minBound[2], node.cellSize);
    worker.cells.resize(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        worker.cells[i] = grid.cellOf(points[i].position[0], points[i].position[1], points[i].position[2]);
    }
    // A node that is too large for raw points holds no sample either, but unlike there the limit itself is allowed.
    const bool holdsSample = node.maxDimension <= context.dimensionLimit;
    worker.staying.clear();
    for (const uint32_t i : worker.shuffled) {
        // A full node leaves the point below, where it is not lost.
        if (holdsSample && grid.take(worker.cells[i]) && node.pointCount < OPCTreeDataNode::NODE_CAPACITY) {
            worker.sample.push_back(points[i]);
            ++node.pointCount;
        } else {
            worker.staying.push_back(i);
        }
    }
    compiledCount += static_cast<int64_t>(worker.staying.size());
    child.pointCount = static_cast<int>(worker.staying.size());
    flush(child, points, worker.staying, worker);
}

void TreeCompiler::flush(OPCTreeDataNode& node, std::span<const BuildPoint> points, std::span<const uint32_t> order,
                         Worker& worker) {
    if (!order.empty()) {
        int written = static_cast<int>(order.size());
        std::span<const unsigned char> bytes;
        if (context.isStream) {
            bytes = worker.encoder.encodeStream(points, order, node.minBound, context.filter(), written);
            node.compressedSize = bytes.size();
            context.sameCell += static_cast<int64_t>(order.size()) - written;
        } else {
            bytes = worker.encoder.encodeFixed(points, order, node.minBound, node.ordinateBytes);
        }
        node.pointCount = written;
        node.dataOffset = context.disk->writeCompressedData(bytes.data(), static_cast<int>(bytes.size()));
    }
}
