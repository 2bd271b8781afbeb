#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The shape of a cloud's tree: what stands on which level, nodes numbered in pre-order from 0, the root on level 0.
class CloudTree {
public:
    using Box = std::array<double, 6>;
    struct Level {
        uint64_t nodes = 0;
        uint64_t points = 0;
    };
    struct Node {
        uint32_t level = 0;
        uint16_t points = 0;
        bool hasLowChild = false;
        bool hasHighChild = false;
        char splitAxis = 'z'; // of the plane between the children: x, y or z
    };

    // From 3 bytes a node, as getTreeStructure gives them. Bytes that are no whole tree throw CommandFailure, which
    // names the file. A chain of any depth is no burden: nothing here is recursive.
    CloudTree(const std::vector<unsigned char>& structure, const std::string& path);

    // The tree of an open cloud. A voxel model shows a single node.
    static CloudTree ofCloud(int id, const std::string& path);

    [[nodiscard]] const std::vector<Node>& nodes() const { return allNodes; }
    [[nodiscard]] const std::vector<Level>& levels() const { return allLevels; }

    // The boxes of all nodes, smallest x, y, z, then largest, from that of the root.
    [[nodiscard]] std::vector<Box> boxes(const Box& root) const;

private:
    std::vector<Node> allNodes;
    std::vector<Level> allLevels;
};
