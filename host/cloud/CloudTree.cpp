#include "cloud/CloudTree.h"
#include "cloud/OpenCloud.h"
#include "support/Failure.h"

#include <nimbrel/NimbrelEngine.h>

static constexpr size_t NODE_BYTES = 3; // the mask, then the point count
static constexpr unsigned LOW_CHILD = 1;
static constexpr unsigned HIGH_CHILD = 2;
static constexpr unsigned SPLIT_X = 4;
static constexpr unsigned SPLIT_Y = 8;

static CloudTree::Node decodeNode(const unsigned char* bytes, uint32_t level) {
    CloudTree::Node node;
    node.level = level;
    node.points = static_cast<uint16_t>(bytes[1] | bytes[2] << 8);
    node.hasLowChild = (bytes[0] & LOW_CHILD) != 0;
    node.hasHighChild = (bytes[0] & HIGH_CHILD) != 0;
    node.splitAxis = (bytes[0] & SPLIT_X) != 0 ? 'x' : (bytes[0] & SPLIT_Y) != 0 ? 'y' : 'z';
    return node;
}

CloudTree::CloudTree(const std::vector<unsigned char>& structure, const std::string& path) {
    std::vector<uint32_t> expected{0}; // levels of the nodes still to come, the next one at the back
    allNodes.reserve(structure.size() / NODE_BYTES);
    for (size_t at = 0; at + NODE_BYTES <= structure.size() && !expected.empty(); at += NODE_BYTES) {
        const Node node = decodeNode(structure.data() + at, expected.back());
        expected.pop_back();
        if (node.hasHighChild) expected.push_back(node.level + 1);
        if (node.hasLowChild) expected.push_back(node.level + 1);
        if (node.level >= allLevels.size()) allLevels.resize(size_t{node.level} + 1);
        ++allLevels[node.level].nodes;
        allLevels[node.level].points += node.points;
        allNodes.push_back(node);
    }
    if (!expected.empty() || allNodes.size() * NODE_BYTES != structure.size()) {
        throw CommandFailure(path, "the tree's nodes do not fit together");
    }
}

std::vector<CloudTree::Box> CloudTree::boxes(const Box& root) const {
    std::vector<Box> result;
    result.reserve(allNodes.size());
    std::vector<Box> expected{root}; // of the nodes still to come, the next one at the back
    for (const Node& node : allNodes) {
        const Box box = expected.back();
        expected.pop_back();
        result.push_back(box);
        const auto axis = static_cast<size_t>(node.splitAxis - 'x');
        const double middle = (box[axis] + box[axis + 3]) * 0.5;
        if (node.hasHighChild) expected.push_back(box);
        if (node.hasHighChild) expected.back()[axis] = middle;
        if (node.hasLowChild) expected.push_back(box);
        if (node.hasLowChild) expected.back()[axis + 3] = middle;
    }
    return result;
}

CloudTree CloudTree::ofCloud(int id, const std::string& path) {
    const int count = getNodeCount(id);
    std::vector<unsigned char> structure(count > 0 ? static_cast<size_t>(count) * NODE_BYTES : 0);
    getTreeStructure(id, reinterpret_cast<char*>(structure.data()));
    if (getVersion(id) == OpenCloud::VOXEL_VERSION) structure.resize(NODE_BYTES);
    return {structure, path};
}
