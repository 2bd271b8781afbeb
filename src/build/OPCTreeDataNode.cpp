#include "build/OPCTreeDataNode.h"

#include "build/OPCDisk.h"
#include "format/NodeRecord.h"

#include <algorithm>

// A leaf is divided with its stored points written to the children before its own block goes, so that a disk that fills
// up in the middle loses none of them: the leaf then stays as it was, and only the new points are refused.

namespace {

// Beyond it a fixed record's ordinate does not fit 31 bits, or a Morton code's 21.
constexpr double FIXED_DIMENSION_LIMIT = 214748.0;
constexpr double STREAM_DIMENSION_LIMIT = 200.0;

// Ties go to the earlier axis.
uint8_t longestAxis(double dx, double dy, double dz) {
    if (dz > dx && dz > dy) return 2;
    return dx < dy ? 1 : 0;
}

uint64_t placeOfChild(uint64_t place, uint64_t side) {
    // The finaliser of splitmix64 (Steele, Lea and Flood 2014) over the path from the root.
    uint64_t hash = place * 2 + side + 0x9E3779B97F4A7C15ULL;
    hash = (hash ^ hash >> 30) * 0xBF58476D1CE4E5B9ULL;
    hash = (hash ^ hash >> 27) * 0x94D049BB133111EBULL;
    return hash ^ hash >> 31;
}

} // namespace

BuildContext::BuildContext(std::unique_ptr<OPCDisk> diskIn, bool isStreamIn)
    : disk(std::move(diskIn)), isStream(isStreamIn),
      dimensionLimit(isStreamIn ? STREAM_DIMENSION_LIMIT : FIXED_DIMENSION_LIMIT) {}

BuildContext::~BuildContext() = default;

OPCTreeDataNode::OPCTreeDataNode(const std::array<double, 6>& bounds, int levelIn, uint64_t placeIn)
    : minBound{bounds[0], bounds[1], bounds[2]}, maxBound{bounds[3], bounds[4], bounds[5]}, place(placeIn),
      level(levelIn) {
    const double dx = maxBound[0] - minBound[0];
    const double dy = maxBound[1] - minBound[1];
    const double dz = maxBound[2] - minBound[2];
    axis = longestAxis(dx, dy, dz);
    plane = (minBound[axis] + maxBound[axis]) * 0.5;
    maxDimension = std::max({dx, dy, dz});
    cellSize = (dx + dy + dz) / 3.0 / CELLS_PER_EXTENT;
    ordinateBytes = FixedRecord::ordinateBytesForSide(maxDimension);
}

bool OPCTreeDataNode::contains(const double* position) const {
    for (size_t i = 0; i < 3; ++i) {
        // Written so that a NaN lies outside.
        if (!(position[i] >= minBound[i] && position[i] <= maxBound[i])) return false;
    }
    return true;
}

bool OPCTreeDataNode::isDivisible() const {
    return maxDimension > SMALLEST_SPLIT && plane > minBound[axis] && plane < maxBound[axis];
}

void OPCTreeDataNode::splitNode() {
    if (!isLeaf) return;
    for (size_t side = 0; side < 2; ++side) {
        std::array<double, 6> bounds{minBound[0], minBound[1], minBound[2], maxBound[0], maxBound[1], maxBound[2]};
        bounds[side == 0 ? axis + 3U : axis] = plane;
        children[side] = std::make_unique<OPCTreeDataNode>(bounds, level + 1, placeOfChild(place, side));
        children[side]->parent = this;
    }
    isLeaf = false;
}

uint8_t OPCTreeDataNode::bitMask() const {
    constexpr uint8_t SPLITS[3] = {NodeRecord::SPLIT_X, NodeRecord::SPLIT_Y, NodeRecord::SPLIT_Z};
    return isLeaf ? SPLITS[axis]
                  : static_cast<uint8_t>(SPLITS[axis] | NodeRecord::FIRST_CHILD | NodeRecord::SECOND_CHILD);
}

// Writes raw records behind those that the block holds; the caller has seen to it that there is room.
bool OPCTreeDataNode::storeRaw(BuildContext& context, const unsigned char* records, int count) {
    const bool isNewBlock = block < 0;
    if (isNewBlock) block = context.disk->getNextBlock();
    if (context.disk->writeBlock(records, block, pointCount * FloatRecord::SIZE, count * FloatRecord::SIZE)) {
        pointCount += count;
        return true;
    }
    if (isNewBlock) {
        context.disk->releaseBlock(block);
        block = -1;
    }
    return false;
}

// Stores as many points as a leaf takes, and returns how many are dealt with, refused ones included.
size_t OPCTreeDataNode::appendWhatFits(BuildContext& context, const PointView& points,
                                       std::span<const uint32_t> order) {
    const size_t count = std::min(order.size(), static_cast<size_t>(LEAF_CAPACITY - pointCount));
    if (count == 0) return 0;
    thread_local std::vector<unsigned char> records;
    records.resize(size_t{LEAF_CAPACITY} * FloatRecord::SIZE);
    unsigned char* out = records.data();
    for (size_t i = 0; i < count; ++i, out += FloatRecord::SIZE) {
        FloatRecord::encode(out, points.position(order[i]), minBound.data(), points.attribute(order[i]));
    }
    if (!storeRaw(context, records.data(), static_cast<int>(count))) context.noRoom += static_cast<int64_t>(count);
    return count;
}

void OPCTreeDataNode::addRun(BuildContext& context, const PointView& points, std::span<uint32_t> order) {
    if (order.empty()) return;
    if (isLeaf) {
        if (maxDimension < context.dimensionLimit) {
            order = order.subspan(appendWhatFits(context, points, order));
            if (order.empty()) return;
        }
        if (!isDivisible()) {
            context.undividable += static_cast<int64_t>(order.size());
            return;
        }
        if (!divide(context)) {
            context.noRoom += static_cast<int64_t>(order.size());
            return;
        }
    }
    // The lower half closes up in place, the upper half moves aside and back behind it; both keep their order.
    std::vector<uint32_t> upper;
    size_t lower = 0;
    for (const uint32_t point : order) {
        if (sideOf(points.position(point)) == 0) {
            order[lower++] = point;
        } else {
            upper.push_back(point);
        }
    }
    std::copy(upper.begin(), upper.end(), order.begin() + static_cast<ptrdiff_t>(lower));
    upper = {};
    children[0]->addRun(context, points, order.first(lower));
    children[1]->addRun(context, points, order.subspan(lower));
}

// Makes an inner node of a leaf and hands its stored points down. False, and still a leaf, when there is no room.
bool OPCTreeDataNode::divide(BuildContext& context) {
    std::vector<BuildPoint> stored;
    if (!readOverflowPoints(context, stored)) return false;
    splitNode();
    std::vector<BuildPoint> halves[2];
    for (const BuildPoint& point : stored) halves[sideOf(point.position)].push_back(point);
    for (size_t side = 0; side < 2; ++side) {
        if (children[side]->placeRaw(context, halves[side])) continue;
        for (const auto& child : children) child->releaseBlocks(context);
        children = {};
        isLeaf = true;
        return false;
    }
    context.disk->releaseBlock(block);
    block = -1;
    pointCount = 0;
    return true;
}

// Gives a new leaf the points that a split handed down, as many as one leaf held.
bool OPCTreeDataNode::placeRaw(BuildContext& context, std::vector<BuildPoint>& points) {
    if (points.empty()) return true;
    if (maxDimension >= context.dimensionLimit && isDivisible()) {
        splitNode();
        std::vector<BuildPoint> halves[2];
        for (const BuildPoint& point : points) halves[sideOf(point.position)].push_back(point);
        points = {};
        return children[0]->placeRaw(context, halves[0]) && children[1]->placeRaw(context, halves[1]);
    }
    std::vector<unsigned char> records(points.size() * FloatRecord::SIZE);
    unsigned char* out = records.data();
    for (const BuildPoint& point : points) {
        FloatRecord::encode(out, point.position, minBound.data(), point.attributes);
        out += FloatRecord::SIZE;
    }
    return storeRaw(context, records.data(), static_cast<int>(points.size()));
}

void OPCTreeDataNode::releaseBlocks(BuildContext& context) {
    visitInPreOrder(*this, [&](OPCTreeDataNode& node) {
        context.disk->releaseBlock(node.block);
        node.block = -1;
    });
}

bool OPCTreeDataNode::readOverflowPoints(BuildContext& context, std::vector<BuildPoint>& points) {
    points.resize(static_cast<size_t>(pointCount));
    if (pointCount == 0) return true;
    thread_local std::vector<unsigned char> records;
    records.resize(size_t{LEAF_CAPACITY} * FloatRecord::SIZE);
    if (!context.disk->readBlock(records.data(), block, pointCount * FloatRecord::SIZE)) return false;
    const unsigned char* in = records.data();
    for (BuildPoint& point : points) {
        FloatRecord::decode(in, minBound.data(), point.position);
        std::memcpy(point.attributes, in + FloatRecord::ATTRIBUTES, ATTRIBUTE_BYTES);
        in += FloatRecord::SIZE;
    }
    return true;
}
