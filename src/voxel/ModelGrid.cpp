#include "voxel/ModelGrid.h"

#include <algorithm>
#include <cmath>

ModelGrid::ModelGrid(const double* box, double size, double scaleIn) : scale(scaleIn) {
    constexpr double SMALLEST = 0.01;
    constexpr double LARGEST = 1000.0;
    voxelSize = size >= SMALLEST ? std::min(size, LARGEST) : SMALLEST; // NaN too
    for (size_t axis = 0; axis < 3; ++axis) {
        minimum[axis] = box[axis] * scale;
        count[axis] = toWhole(std::ceil((box[axis + 3] * scale - minimum[axis]) / voxelSize));
    }
}
