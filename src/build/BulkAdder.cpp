#include "build/BulkAdder.h"

#include "ground/Parallel.h"
#include "ground/Pools.h"

#include <algorithm>
#include <atomic>

// Four steps, the first and the last two in parallel:
//   1. Each worker routes a run of the batch down the tree, which nobody changes meanwhile, and counts per leaf.
//   2. The counts of all runs are laid out, leaf by leaf and run by run within a leaf: a stable counting sort.
//   3. Each worker writes its points' numbers to their places.
//   4. Workers take leaf after leaf and add its points as one run. Leaves divide here, each within its own subtree.
// A point's leaf depends on nothing but the leaves' histories, and each leaf sees its points in the order in which they
// came; so the tree is that of adding one by one. Routing point by point into leaves under locks would do the same
// with a lock and a write of 17 bytes a point.

namespace {

constexpr uint32_t OUTSIDE = UINT32_MAX;
constexpr size_t BATCH = size_t{1} << 20;
constexpr size_t SMALLEST_RUN = 8192; // points a worker must have to be worth waking

// Whether routing would surely end at this leaf: a point on a lower face may belong to the neighbour.
bool isWellInside(const OPCTreeDataNode& leaf, const double* position) {
    return position[0] > leaf.minBound[0] && position[0] <= leaf.maxBound[0] && position[1] > leaf.minBound[1] &&
           position[1] <= leaf.maxBound[1] && position[2] > leaf.minBound[2] && position[2] <= leaf.maxBound[2];
}

} // namespace

BulkAdder::BulkAdder(BuildContext& contextIn, OPCTreeDataNode& rootIn) : context(contextIn), root(rootIn) {
    root.leafNumber = 0;
    leaves.push_back(&root);
    chunks.resize(static_cast<size_t>(maxCores()));
}

void BulkAdder::add(const double* positions, const unsigned char* attributes, size_t count) {
    while (count > 0) {
        const size_t part = std::min(count, BATCH);
        addBatch(PointView{positions, attributes}, part);
        positions += part * 3;
        attributes += part * ATTRIBUTE_BYTES;
        count -= part;
    }
}

void BulkAdder::addBatch(const PointView& points, size_t count) {
    const size_t workers = std::clamp<size_t>(count / SMALLEST_RUN, 1, chunks.size());
    leafOf.resize(count);
    for (size_t i = 0; i < chunks.size(); ++i) {
        chunks[i].begin = std::min(count, count * i / workers);
        chunks[i].end = std::min(count, count * (i + 1) / workers);
        chunks[i].cursors.resize(leaves.size());
    }
    forEachInParallel(buildPool(), workers, [&](size_t i) { route(chunks[i], points); });
    layOutGroups();
    forEachInParallel(buildPool(), workers, [&](size_t i) { scatter(chunks[i]); });
    fillLeaves(points);
    for (Chunk& chunk : chunks) {
        context.outside += chunk.outside;
        chunk.outside = 0;
    }
    for (const Group& group : groups) {
        if (!group.leaf->isLeaf) numberNewLeaves(*group.leaf);
    }
}

void BulkAdder::route(Chunk& chunk, const PointView& points) {
    const OPCTreeDataNode* leaf = &root; // of the point before: scans are coherent, so it often holds the next one too
    bool isKnown = false;
    for (size_t i = chunk.begin; i < chunk.end; ++i) {
        const double* position = points.position(static_cast<uint32_t>(i));
        if (!isKnown || !isWellInside(*leaf, position)) {
            if (!root.contains(position)) {
                leafOf[i] = OUTSIDE;
                ++chunk.outside;
                continue;
            }
            leaf = &root;
            while (!leaf->isLeaf) leaf = leaf->children[static_cast<size_t>(leaf->sideOf(position))].get();
            isKnown = true;
        }
        leafOf[i] = leaf->leafNumber;
        if (chunk.cursors[leaf->leafNumber]++ == 0) chunk.touched.push_back(leaf->leafNumber);
    }
}

void BulkAdder::layOutGroups() {
    groups.clear();
    ++batchNumber;
    laidOutIn.resize(leaves.size());
    size_t next = 0;
    for (const Chunk& seenBy : chunks) {
        for (const uint32_t number : seenBy.touched) {
            if (laidOutIn[number] == batchNumber) continue;
            laidOutIn[number] = batchNumber;
            const size_t begin = next;
            for (Chunk& chunk : chunks) {
                const uint32_t count = chunk.cursors[number];
                chunk.cursors[number] = static_cast<uint32_t>(next);
                next += count;
            }
            groups.push_back({leaves[number], begin, next});
        }
    }
    order.resize(next);
}

void BulkAdder::scatter(Chunk& chunk) {
    for (size_t i = chunk.begin; i < chunk.end; ++i) {
        if (leafOf[i] != OUTSIDE) order[chunk.cursors[leafOf[i]]++] = static_cast<uint32_t>(i);
    }
}

void BulkAdder::fillLeaves(const PointView& points) {
    for (Chunk& chunk : chunks) {
        for (const Group& group : groups) chunk.cursors[group.leaf->leafNumber] = 0;
        chunk.touched.clear();
    }
    forEachInParallel(buildPool(), groups.size(), [&](size_t i) {
        const Group& group = groups[i];
        group.leaf->addRun(context, points, std::span(order).subspan(group.begin, group.end - group.begin));
    });
}

// The number of the leaf that was divided goes to the first of the new ones.
void BulkAdder::numberNewLeaves(OPCTreeDataNode& divided) {
    uint32_t number = divided.leafNumber;
    visitInPreOrder(divided, [&](OPCTreeDataNode& node) {
        if (!node.isLeaf) return;
        if (number == leaves.size()) leaves.push_back(nullptr);
        leaves[number] = &node;
        node.leafNumber = number;
        number = static_cast<uint32_t>(leaves.size());
    });
}
