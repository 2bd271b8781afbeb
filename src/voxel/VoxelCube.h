#pragma once

#include "voxel/ModelGrid.h"
#include "voxel/VoxelMap.h"

#include <array>

// The cube that stands for a solid cell in the mesh formats: as wide as the cell, and half a width nearer to the
// origin of the grid than the cell itself, as models have always had it. Coordinates are scaled ones.
struct VoxelCube {
    VoxelCube(const OPCInterface::Voxel& voxel, const ModelGrid& grid) {
        const int64_t cell[3] = {voxel.cellX, voxel.cellY, voxel.cellZ};
        for (size_t axis = 0; axis < 3; ++axis) {
            const double s = grid.voxelSize;
            low[axis] = static_cast<double>(cell[axis]) * s + grid.minimum[axis] - 0.5 * s;
            high[axis] = low[axis] + s;
        }
    }

    // Which end of each axis a corner has: 0 low, 1 high.
    static constexpr std::array<std::array<unsigned char, 3>, 8> CORNERS{
        {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}}};

    // Corners of the triangles, two a face.
    static constexpr std::array<std::array<unsigned char, 3>, 12> TRIANGLES{{{0, 2, 1},
                                                                             {0, 3, 2},
                                                                             {4, 5, 6},
                                                                             {4, 6, 7},
                                                                             {0, 7, 3},
                                                                             {0, 4, 7},
                                                                             {2, 5, 1},
                                                                             {2, 6, 5},
                                                                             {1, 4, 0},
                                                                             {1, 5, 4},
                                                                             {7, 2, 3},
                                                                             {7, 6, 2}}};

    std::array<double, 3> low;
    std::array<double, 3> high;
};
