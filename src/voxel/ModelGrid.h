#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// A regular grid of cubic cells over a cloud, in the cloud's coordinates times `scale`. Cells count from the minimum
// corner of the cloud's box.
//
// Nothing is refused: whatever the numbers are, a point has a cell and a cell has a key. Keys do not tell all cells
// apart. A point on the far face of a box whose side is a whole number of cells lies one cell behind the last, and
// its key is that of the first cell of the next row, in which it is then counted. Files have always been made so.
struct ModelGrid {
    // box  minimum x, y, z, maximum x, y, z. A `size` outside 0.01 to 1000 is taken to the nearer limit, NaN to 0.01
    ModelGrid(const double* box, double size, double scale);

    // The number of the cell along an axis, 0 to 2.
    [[nodiscard]] int64_t cellAt(double position, size_t axis) const {
        return toWhole((position * scale - minimum[axis]) / voxelSize);
    }

    // Unique within the box. Wraps around, as the count along Z takes no part in it.
    [[nodiscard]] int64_t keyOf(int64_t x, int64_t y, int64_t z) const {
        const auto row = static_cast<uint64_t>(z) * static_cast<uint64_t>(count[1]) + static_cast<uint64_t>(y);
        return static_cast<int64_t>(row * static_cast<uint64_t>(count[0]) + static_cast<uint64_t>(x));
    }

    // Truncates toward zero. What 64 bits can't hold, and NaN, is the smallest number, as the processor has it.
    static int64_t toWhole(double value) {
        return value > -0x1p63 && value < 0x1p63 ? static_cast<int64_t>(value) : INT64_MIN;
    }

    double voxelSize;
    double scale;
    std::array<double, 3> minimum; // of the box, scaled
    std::array<int64_t, 3> count;  // of cells along x, y, z; negative with a negative scale
};
