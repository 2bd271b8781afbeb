// Points become cells, cells become the tree.
//
// Adding: each worker finds the cells of a part of the points, puts points that follow each other in one cell together,
// and deals the runs out by hash; then workers take shard after shard of the table. No two touch the same cell, so
// nothing is locked. Sending each point down a tree of nodes would do the same with a miss of the cache a level.
//
// Compiling: the cells of a node are parted by the cut, as in a binary radix sort, and each part goes to a child, until
// a box is no larger than a voxel. Only boxes with cells in them are cut, so no empty leaf ever exists. What is
// written follows the order of the nodes; so subtrees are made at the same time as pieces, and then put together.

#include "voxel/OVMTreeDataNode.h"

#include "format/PointRecord.h"
#include "ground/Log.h"
#include "ground/Parallel.h"
#include "ground/Pools.h"

#include <algorithm>
#include <cassert>

namespace {

constexpr size_t ROUND = size_t{1} << 18; // points at once: their runs stay in the cache
constexpr size_t SMALLEST_PART = 8192;    // points a worker must have to be worth waking
constexpr int SHARD_BITS = 6;
constexpr size_t SHARDS = size_t{1} << SHARD_BITS;
constexpr size_t SMALLEST_PIECE = 4096; // cells

size_t shardOf(uint64_t hash) {
    return hash >> (64 - SHARD_BITS);
}

// Puts the cells of the lower half in front and returns their number. Without a branch on the cell: in the order of a
// hash table none would be foreseen, which costs more at each level than moving cells to and fro.
size_t partCells(std::span<VoxelCell> cells, const VoxelAxis& cut, size_t axis, int depth) {
    size_t lower = 0;
    for (VoxelCell& next : cells) {
        const VoxelCell cell = next;
        next = cells[lower];
        cells[lower] = cell;
        lower += cut.isUpper(cell.part[axis], depth) ? 0 : 1;
    }
    return lower;
}

} // namespace

void VoxelShapes::add(unsigned shape) {
    const int shift = VoxelTree::shiftOf(count++);
    if (shift == 0) packed.push_back(0);
    packed.back() = static_cast<unsigned char>(packed.back() | shape << shift);
}

void VoxelShapes::append(const VoxelShapes& more) {
    const int shift = VoxelTree::shiftOf(count);
    if (shift == 0) {
        packed.insert(packed.end(), more.packed.begin(), more.packed.end());
    } else {
        for (const unsigned char byte : more.packed) {
            packed.back() = static_cast<unsigned char>(packed.back() | byte << shift);
            packed.push_back(static_cast<unsigned char>(byte >> (8 - shift)));
        }
    }
    count += more.count;
    packed.resize(static_cast<size_t>(VoxelTree::bytesFor(count)));
}

// What a worker takes from its part of the points.
struct OVMTreeDataNode::Router {
    std::array<std::vector<VoxelCell>, SHARDS> runs;
    int64_t placed = 0;

    void add(const VoxelCell& run) {
        if (run.count > 0) runs[shardOf(run.hash())].push_back(run);
    }
};

// A node on the way: its box, the cells in it, and how often each axis was cut above it.
struct OVMTreeDataNode::Branch {
    std::span<VoxelCell> cells;
    VoxelBox box;
    std::array<int, 3> depth{};
};

// A part of the tree in pre-order: nodes near the root, and behind them the subtree of one branch.
struct OVMTreeDataNode::Piece {
    VoxelShapes shapes;
    Branch branch;
    std::vector<unsigned char> colours;
};

OVMTreeDataNode::OVMTreeDataNode(VoxelGrid gridIn) : grid(std::move(gridIn)), shards(SHARDS) {
    for (int worker = 0; worker < maxCores(); ++worker) routers.push_back(std::make_unique<Router>());
}

OVMTreeDataNode::~OVMTreeDataNode() = default;

int64_t OVMTreeDataNode::addPoints(const double* positions, const unsigned char* attributes, int count) {
    int64_t placed = 0;
    for (auto left = static_cast<size_t>(std::max(count, 0)); left > 0;) {
        const size_t part = std::min(left, ROUND);
        addRound(positions, attributes, part);
        for (const auto& router : routers) placed += router->placed;
        positions += part * 3;
        attributes += part * ATTRIBUTE_BYTES;
        left -= part;
    }
    return placed;
}

void OVMTreeDataNode::addRound(const double* positions, const unsigned char* attributes, size_t count) {
    const size_t workers = std::clamp<size_t>(count / SMALLEST_PART, 1, routers.size());
    for (const auto& router : routers) {
        router->placed = 0;
        for (auto& runs : router->runs) runs.clear();
    }
    forEachInParallel(buildPool(), workers, [&](size_t number) {
        const size_t begin = count * number / workers;
        const size_t end = count * (number + 1) / workers;
        route(*routers[number], positions + begin * 3, attributes + begin * ATTRIBUTE_BYTES, end - begin);
    });
    if (workers > 1) return forEachInParallel(buildPool(), SHARDS, [this](size_t shard) { mergeRuns(shard); });
    for (size_t shard = 0; shard < SHARDS; ++shard) mergeRuns(shard);
}

void OVMTreeDataNode::route(Router& router, const double* positions, const unsigned char* attributes,
                            size_t count) const {
    const std::array<double, 6>& bounds = grid.whole.bounds;
    VoxelCell run{};
    for (const double* x = positions; x != positions + count * 3; x += 3, attributes += ATTRIBUTE_BYTES) {
        // Written so that what is not a number lies outside.
        if (!(x[0] >= bounds[0] && x[0] <= bounds[3] && x[1] >= bounds[1] && x[1] <= bounds[4] && x[2] >= bounds[2] &&
              x[2] <= bounds[5])) {
            continue;
        }
        ++router.placed;
        const std::array<uint32_t, 3> part{grid.axes[0].partOf(x[0]), grid.axes[1].partOf(x[1]),
                                           grid.axes[2].partOf(x[2])};
        if (part != run.part) {
            router.add(run);
            run = {part, {}, 0};
        }
        run.add(attributes);
    }
    router.add(run);
}

void OVMTreeDataNode::mergeRuns(size_t shard) {
    constexpr size_t AHEAD = 8;
    VoxelCells& cells = shards[shard];
    for (const auto& router : routers) {
        const std::vector<VoxelCell>& runs = router->runs[shard];
        for (size_t i = 0; i < runs.size(); ++i) {
            if (i + AHEAD < runs.size()) cells.prefetch(runs[i + AHEAD].hash());
            cells.add(runs[i], runs[i].hash());
        }
    }
}

std::vector<VoxelCell> OVMTreeDataNode::takeCells() {
    size_t count = 0;
    for (const VoxelCells& shard : shards) count += shard.size();
    std::vector<VoxelCell> cells;
    cells.reserve(count);
    for (VoxelCells& shard : shards) shard.moveTo(cells);
    routers.clear();
    return cells;
}

// Notes the node's shape and its children, the left one last so that it is taken first; false for a leaf.
bool OVMTreeDataNode::divide(const Branch& branch, std::vector<Branch>& waiting, VoxelShapes& out) const {
    if (branch.cells.empty() || !grid.isCut(branch.box)) {
        out.add(0);
        return false;
    }
    const size_t axis = branch.box.longestAxis();
    const int depth = branch.depth[axis];
    assert(depth < grid.axes[axis].cuts);
    const size_t leftCount = partCells(branch.cells, grid.axes[axis], axis, depth);
    Branch child = branch;
    ++child.depth[axis];
    if (leftCount < branch.cells.size()) {
        child.cells = branch.cells.subspan(leftCount);
        child.box = branch.box.half(axis, true);
        waiting.push_back(child);
    }
    if (leftCount > 0) {
        child.cells = branch.cells.first(leftCount);
        child.box = branch.box.half(axis, false);
        waiting.push_back(child);
    }
    out.add((leftCount > 0 ? VoxelTree::LEFT : 0) | (leftCount < branch.cells.size() ? VoxelTree::RIGHT : 0));
    return true;
}

// Goes down to the leaf of a single cell: where points are sparse, most nodes lie on such ways.
void OVMTreeDataNode::descend(Branch& branch, VoxelShapes& out) const {
    const VoxelCell& cell = branch.cells.front();
    while (grid.isCut(branch.box)) {
        const size_t axis = branch.box.longestAxis();
        const bool isUpper = grid.axes[axis].isUpper(cell.part[axis], branch.depth[axis]++);
        branch.box.bounds[isUpper ? axis : axis + 3] = branch.box.middle(axis);
        out.add(isUpper ? VoxelTree::RIGHT : VoxelTree::LEFT);
    }
}

// Divides the tree near its root until there are enough subtrees for all cores.
std::vector<OVMTreeDataNode::Piece> OVMTreeDataNode::planPieces(std::vector<VoxelCell>& cells) const {
    const size_t most = std::max(SMALLEST_PIECE, cells.size() / (static_cast<size_t>(maxCores()) * 8));
    std::vector<Piece> pieces(1);
    std::vector<Branch> waiting{{cells, grid.whole}};
    while (!waiting.empty()) {
        const Branch branch = waiting.back();
        waiting.pop_back();
        if (branch.cells.size() > most && grid.isCut(branch.box)) {
            divide(branch, waiting, pieces.back().shapes);
        } else {
            pieces.back().branch = branch;
            if (!waiting.empty()) pieces.emplace_back();
        }
    }
    return pieces;
}

void OVMTreeDataNode::compilePiece(Piece& piece, std::atomic<int64_t>& compiledCount) const {
    std::vector<Branch> waiting{piece.branch};
    while (!waiting.empty() && !aborted) {
        Branch branch = waiting.back();
        waiting.pop_back();
        if (branch.cells.size() == 1) descend(branch, piece.shapes);
        if (divide(branch, waiting, piece.shapes)) continue;
        std::array<uint64_t, 4> sums{};
        uint64_t count = 0;
        for (const VoxelCell& cell : branch.cells) {
            for (size_t i = 0; i < sums.size(); ++i) sums[i] += cell.sums[i];
            count += cell.count;
        }
        std::array<unsigned, 4> means{};
        for (size_t i = 0; i < means.size() && count > 0; ++i) means[i] = static_cast<unsigned>(sums[i] / count);
        piece.colours.resize(piece.colours.size() + VoxelColour::SIZE);
        VoxelColour::pack(piece.colours.data() + piece.colours.size() - VoxelColour::SIZE, means);
        compiledCount.fetch_add(static_cast<int64_t>(count), std::memory_order_relaxed);
    }
}

void OVMTreeDataNode::compile(std::atomic<int64_t>& compiledCount) {
    if (aborted) return;
    std::vector<VoxelCell> cells = takeCells();
    std::vector<Piece> pieces = planPieces(cells);
    forEachInParallel(buildPool(), pieces.size(), [&](size_t i) { compilePiece(pieces[i], compiledCount); });
    if (aborted) return;
    int64_t leaves = 0;
    for (Piece& piece : pieces) {
        shapes.append(piece.shapes);
        leaves += static_cast<int64_t>(piece.colours.size() / VoxelColour::SIZE);
        colours.push_back(std::move(piece.colours));
    }
    // Hosts know the number of nodes with an empty leaf beside each only child.
    logText(std::to_string((shapes.nodes() - leaves) * 2 + 1) + "\n");
}

void OVMTreeDataNode::writeColours(const std::function<void(std::span<const unsigned char>)>& write) {
    for (std::vector<unsigned char>& run : colours) {
        write(run);
        run = {};
    }
}
