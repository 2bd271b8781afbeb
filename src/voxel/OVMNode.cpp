// A voxel model: making it from its file, and what a host may ask of it. What is drawn stands in OVMNodeVisibility.cpp.
//
// Tree and colours are flat arrays by node number, seven bytes a node. Every walk keeps the cells still to visit in a
// list of its own: a damaged file may hold a chain as deep as it has nodes.

#include "stream/OVMNode.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointCloudFile.h"
#include "format/VoxelRecord.h"
#include "ground/Pools.h"
#include "voxel/OVMNodeCell.h"

#include <algorithm>
#include <cmath>
#include <glm/geometric.hpp>
#include <glm/mat4x4.hpp>
#include <stdexcept>

std::atomic<int> OVMNode::TOTAL_NODES{0};

OVMNode::OVMNode(std::shared_ptr<PointCloudFile> fileIn, const OPCHeader& header) {
    file = std::move(fileIn);
    boundingBox = header.boundingBox;
    version = OPCHeader::VERSION_VOXEL;
    bytesPerVertex = 1;
    pointCount = 1;
    double squares = 0.0;
    for (size_t axis = 0; axis < 3; ++axis) {
        squares += (boundingBox[axis + 3] - boundingBox[axis]) * (boundingBox[axis + 3] - boundingBox[axis]);
    }
    radius = static_cast<float>(std::sqrt(squares) * 0.5);

    const int64_t imageSize = file->getTreeStructureSize();
    // A length beyond 32 bits comes here as an image that is shorter.
    if (header.reserved != imageSize) throw std::runtime_error("the block of header and tree lies outside the file");
    const int64_t behindHeader = imageSize - OPCHeader::Layout::SIZE;
    if (behindHeader < VoxelTree::bytesFor(header.nodeCount)) {
        throw std::runtime_error("the block of header and tree is too short for the tree");
    }
    const std::span<const unsigned char> block(file->getTreeStructure() + OPCHeader::Layout::SIZE,
                                               static_cast<size_t>(behindHeader));
    const auto count = static_cast<size_t>(header.nodeCount);
    links.resize(count);
    colours.assign(count * VoxelColour::SIZE, VoxelColour::UNKNOWN);
    const uint32_t nodes = readTree(block);
    // Fewer than four bytes behind the tree are no colours, even though a model of one leaf has three.
    const std::span<const unsigned char> stored = block.subspan(static_cast<size_t>(VoxelTree::bytesFor(nodes)));
    if (stored.size() >= 4) readColours(stored, nodes);
    TOTAL_NODES = header.nodeCount;
}

OVMNode::~OVMNode() = default;

// Links the nodes that the bits announce and returns their number.
uint32_t OVMNode::readTree(std::span<const unsigned char> bits) {
    std::vector<uint32_t> waiting; // nodes whose right child follows when their left subtree ends
    for (uint32_t node = 0; node < links.size(); ++node) {
        const unsigned shape = bits[node / VoxelTree::NODES_PER_BYTE] >> VoxelTree::shiftOf(node) & 3U;
        links[node] = (shape & VoxelTree::LEFT) ? HAS_LEFT : 0;
        if (shape == (VoxelTree::LEFT | VoxelTree::RIGHT)) {
            waiting.push_back(node);
        } else if (shape == VoxelTree::RIGHT) {
            links[node] = node + 1;
        } else if (shape == 0) {
            if (waiting.empty()) return node + 1;
            links[waiting.back()] |= node + 1;
            waiting.pop_back();
        }
    }
    throw std::runtime_error("the tree has more nodes than the header announces");
}

// The leaves' colours as far as they are stored, then the inner nodes' from the last on: children have higher numbers.
void OVMNode::readColours(std::span<const unsigned char> stored, uint32_t nodes) {
    for (uint32_t node = 0; node < nodes && stored.size() >= VoxelColour::SIZE; ++node) {
        if (links[node] != 0) continue;
        std::copy_n(stored.begin(), VoxelColour::SIZE, colours.begin() + int64_t{node} * VoxelColour::SIZE);
        stored = stored.subspan(VoxelColour::SIZE);
    }
    for (uint32_t node = nodes; node-- > 0;) {
        if (links[node] != 0) mixColour(node);
    }
}

void OVMNode::mixColour(uint32_t node) {
    const uint32_t right = links[node] & ~HAS_LEFT;
    const uint32_t left = (links[node] & HAS_LEFT) ? node + 1 : right;
    std::array<unsigned, 4> values = VoxelColour::unpack(&colours[size_t{left} * VoxelColour::SIZE]);
    if (right != 0 && right != left) {
        const std::array<unsigned, 4> others = VoxelColour::unpack(&colours[size_t{right} * VoxelColour::SIZE]);
        for (size_t i = 0; i < values.size(); ++i) values[i] = (values[i] + others[i]) >> 1;
    }
    VoxelColour::pack(&colours[size_t{node} * VoxelColour::SIZE], values);
}

void OVMNode::getNodeCenter(double* out) {
    const VoxelBox box{boundingBox};
    for (size_t axis = 0; axis < 3; ++axis) out[axis] = box.middle(axis);
}

bool OVMNode::findClosestPoint(const ClipBox& /*clip*/, const glm::dmat4& matrix, const glm::dvec4& projectedTarget,
                               const glm::dvec4& target, double* result, unsigned char* colour) {
    bool found = false;
    std::vector<Cell> waiting{root()};
    while (!waiting.empty()) {
        const Cell cell = waiting.back();
        waiting.pop_back();
        if (!cell.holds(target)) continue;
        int childCount = 0;
        visitChildren(cell, [&](const Cell& child) {
            waiting.push_back(child);
            ++childCount;
        });
        if (childCount == 2) continue;
        const glm::dvec4 centre(cell.box.middle(0), cell.box.middle(1), cell.box.middle(2), 1.0);
        const double distance = glm::length(matrix * centre - projectedTarget);
        if (!(result[3] > distance)) continue;
        for (int axis = 0; axis < 3; ++axis) result[axis] = centre[axis];
        result[3] = distance;
        const std::array<unsigned, 4> values = VoxelColour::unpack(&colours[size_t{cell.node} * VoxelColour::SIZE]);
        std::copy(values.begin(), values.end(), colour);
        found = true;
    }
    return found;
}

void OVMNode::getTreeStructure(char* out, int64_t& position) {
    NodeRecord record;
    record.pointCount = 1;
    record.encodeWire({reinterpret_cast<unsigned char*>(out) + position, NodeRecord::Wire::SIZE});
    position += NodeRecord::Wire::SIZE;
}

bool OVMNode::loadPointDataToGPUFormat(std::span<unsigned char> out) {
    std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
    return true;
}

ThreadPool& OVMNode::getProcessingThreadPool() {
    return processingPool();
}

ThreadPool& OVMNode::getDiskThreadPool() {
    return diskPool();
}
