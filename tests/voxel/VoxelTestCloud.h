#pragma once

#include "support/PointFileMaker.h"
#include "voxel/ModelGrid.h"
#include "voxel/VoxelMap.h"

#include <map>

// A made-up cloud and the cells that its points should give, worked out point by point.

// A root and two children with `points` each, at random in a few clumps, in a box that the test sets; the second child
// can't be read. Version 18 has marked points among the others.
PointFileMaker voxelCloud(int version, int points, const std::array<double, 6>& box, uint32_t seed);

// The cells of a file in pre-order of its nodes; of two cells with one key the first one's indices.
std::map<int64_t, OPCInterface::Voxel> expectedCells(const PointFileMaker& file, const ModelGrid& grid);
