#include "build/OPCSparseGrid.h"

#include <algorithm>
#include <cmath>

namespace {

int64_t cellsAlong(double minimum, double maximum, double cellSize) {
    return std::max<int64_t>(0, truncateToInteger(std::ceil((maximum - minimum) / cellSize)));
}

// (x + 1)(y + 1)(z + 1), or the largest number where that does not fit.
int64_t indexSpace(int64_t x, int64_t y, int64_t z) {
    int64_t total = 0;
    if (__builtin_add_overflow(x, 1, &x) || __builtin_add_overflow(y, 1, &y) || __builtin_add_overflow(z, 1, &z) ||
        __builtin_mul_overflow(x, y, &total) || __builtin_mul_overflow(total, z, &total)) {
        return INT64_MAX;
    }
    return total;
}

} // namespace

OPCSparseGrid::OPCSparseGrid(double maxX, double maxY, double maxZ, double minXIn, double minYIn, double minZIn,
                             double cellSizeIn)
    : cellsX(cellsAlong(minXIn, maxX, cellSizeIn)), cellsY(cellsAlong(minYIn, maxY, cellSizeIn)),
      cellsZ(cellsAlong(minZIn, maxZ, cellSizeIn)), totalCells(indexSpace(cellsX, cellsY, cellsZ)),
      cellSize(cellSizeIn), minX(minXIn), minY(minYIn), minZ(minZIn), useBitmap(totalCells <= LARGEST_BITMAP) {
    if (useBitmap) {
        cellBits.resize(static_cast<size_t>((totalCells + 63) / 64));
    } else {
        cellSet.max_load_factor(1.0F);
        cellSet.rehash(131068);
    }
}

OPCSparseGrid::OPCSparseGrid(const OPCSparseGrid& /*other*/) {}
