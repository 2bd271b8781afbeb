#pragma once

#include "format/VoxelRecord.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

// One axis of a box, halved again and again: which of the parts an ordinate lies in, with the very doubles that the
// cuts of VoxelBox give.
class VoxelAxis {
public:
    VoxelAxis(double low, double high, int cuts);

    // The part that holds x, counted from the lower end; a place on a plane belongs to the part below. `x` lies in the
    // axis, which the caller has checked.
    [[nodiscard]] uint32_t partOf(double x) const;

    // Whether `part` lies in the upper half after `depth` cuts.
    [[nodiscard]] bool isUpper(uint32_t part, int depth) const { return (part >> (cuts - 1 - depth) & 1U) != 0; }

    const int cuts; // parts: 2 to the power of this

private:
    const int tableCuts;
    std::vector<double> planes; // of the first tableCuts cuts, with both ends
    double partsPerUnit;        // in the table
};

// The cells that the leaves of a voxel tree are made of.
//
// Where an axis is cut depends on that axis alone, so a point's cell follows from its three ordinates without a tree.
// What depends on more is the order of the cuts and where they end; so the cells are as fine as any leaf can be, and
// the tree puts together those that share a leaf. The two are the same unless edges differ by rounding alone.
class VoxelGrid {
public:
    // None when the size is not positive, the box is empty or infinite, or the cells would be finer than doubles can
    // tell apart or a model can count.
    static std::optional<VoxelGrid> make(const VoxelBox& box, float voxelSize);

    // Whether a node with this box is cut.
    [[nodiscard]] bool isCut(const VoxelBox& box) const { return isCut(box, voxelSize); }

    const VoxelBox whole;
    const std::array<VoxelAxis, 3> axes;

private:
    VoxelGrid(const VoxelBox& box, const std::array<int, 3>& cuts, float voxelSizeIn);
    static std::optional<std::array<int, 3>> findCuts(const VoxelBox& box, float voxelSize);
    static bool isCut(const VoxelBox& box, float voxelSize) {
        return static_cast<float>((box.edge(0) + box.edge(1) + box.edge(2)) / 3.0) > voxelSize;
    }

    const float voxelSize; // the largest mean edge of an occupied leaf
};
