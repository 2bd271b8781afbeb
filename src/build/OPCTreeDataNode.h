#pragma once

#include "build/BuildPoint.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

class OPCDisk;
class OPCTreeDataNode;

// What all nodes of one build share.
struct BuildContext {
    BuildContext(std::unique_ptr<OPCDisk> disk, bool isStream);
    ~BuildContext();

    std::unique_ptr<OPCDisk> disk;
    const bool isStream;         // version 18: delta coded points
    const double dimensionLimit; // a node at or beyond it holds no raw points
    int64_t filterScaled = 1;    // grid that points are rounded to, in ten-thousandths; set by compile
    [[nodiscard]] double filter() const { return static_cast<double>(filterScaled) / 10000.0; }

    // Points that found no home while adding, and those that compiling dropped.
    std::atomic<int64_t> outside{0}, noRoom{0}, undividable{0}, noise{0}, duplicates{0}, sameCell{0};
};

// A batch of points as the host gave it: three ordinates and five attribute bytes a point.
struct PointView {
    const double* positions;
    const unsigned char* attributes;
    [[nodiscard]] const double* position(uint32_t point) const { return positions + size_t{point} * 3; }
    [[nodiscard]] const unsigned char* attribute(uint32_t point) const {
        return attributes + size_t{point} * ATTRIBUTE_BYTES;
    }
};

// One node of the tree while a point file is built: a binary space partition whose leaves keep their raw points in
// blocks of the scratch file.
//
// Raw points are stored as 32-bit floats relative to the node that holds them, in order of arrival, and are rounded
// anew each time a split hands them down. Adding points in runs gives the same blocks as adding them one by one.
// A node belongs to one thread at a time; its subtree may be worked on by another.
class OPCTreeDataNode {
public:
    static constexpr int LEAF_CAPACITY = 16383; // raw points of a leaf
    static constexpr int NODE_CAPACITY = 32767; // points of a finished node: its record counts in 16 signed bits
    static constexpr double BOUND_MARGIN = 0.01;
    static constexpr double CELLS_PER_EXTENT = 75.0;
    static constexpr double SMALLEST_SPLIT = double{0.0001F}; // a node not wider than this is not divided

    // `bounds`: minimum x, y, z, then maximum x, y, z. The root takes its box widened by BOUND_MARGIN already.
    OPCTreeDataNode(const std::array<double, 6>& bounds, int level, uint64_t place);

    // Whether the point lies inside the bounds, bounds included. Asked of the root alone: below it, the side of each
    // plane decides, since a stored point can be rounded across a face.
    [[nodiscard]] bool contains(const double* position) const;

    // Which child a point goes to; a point on the plane goes to the lower one.
    [[nodiscard]] int sideOf(const double* position) const { return position[axis] > plane ? 1 : 0; }

    // Makes the two children of a leaf; moves no points.
    void splitNode();
    // False where the node is too small to divide, or so far from the origin that numbers do not tell its halves apart.
    [[nodiscard]] bool isDivisible() const;

    // Adds points to this subtree in the given order, dividing leaves as they fill. Points that no node can take are
    // counted in the context. `order` is scratch for the call: its contents change.
    void addRun(BuildContext& context, const PointView& points, std::span<uint32_t> order);

    // Replaces `points` by the leaf's raw points. False when the scratch file can't be read.
    bool readOverflowPoints(BuildContext& context, std::vector<BuildPoint>& points);

    // The bits of the node's record: its split axis, leaves included, and which children there are.
    [[nodiscard]] uint8_t bitMask() const;

    // Routing looks at these alone.
    bool isLeaf = true;
    uint8_t axis; // of the plane: 0, 1, 2
    double plane;
    std::array<std::unique_ptr<OPCTreeDataNode>, 2> children; // both or neither: the lower half, then the upper

    std::array<double, 3> minBound, maxBound;
    double maxDimension; // the longest side
    double cellSize;     // grid of this node's sample
    uint64_t place;      // which node of all possible this is; seeds the shuffle
    int level;
    int ordinateBytes; // of a fixed record: 2, 3 or 4

    int block = -1;                         // of the scratch file
    uint32_t leafNumber = UINT32_MAX;       // in the adder's list of leaves
    int pointCount = 0;                     // points in the block, in memoryList or in the finished data
    uint64_t compressedSize = 0;            // bytes of the finished data, version 18
    int64_t dataOffset = -1;                // of the finished data in the output
    std::vector<BuildPoint> memoryList;     // while compiling: the sample of an inner node
    OPCTreeDataNode* parent = nullptr;      // null for the root
    std::atomic<int> unfinishedChildren{0}; // while compiling: inner children that are not done

private:
    [[nodiscard]] bool storeRaw(BuildContext& context, const unsigned char* records, int count);
    size_t appendWhatFits(BuildContext& context, const PointView& points, std::span<const uint32_t> order);
    [[nodiscard]] bool divide(BuildContext& context);
    [[nodiscard]] bool placeRaw(BuildContext& context, std::vector<BuildPoint>& points);
    void releaseBlocks(BuildContext& context);
};

// Visits a tree in pre-order, child 0 before child 1.
template <typename Visit>
void visitInPreOrder(OPCTreeDataNode& root, Visit visit) {
    std::vector<OPCTreeDataNode*> stack{&root};
    while (!stack.empty()) {
        OPCTreeDataNode* node = stack.back();
        stack.pop_back();
        visit(*node);
        if (!node->isLeaf) {
            stack.push_back(node->children[1].get());
            stack.push_back(node->children[0].get());
        }
    }
}
