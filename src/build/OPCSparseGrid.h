#pragma once

#include "format/OPCPoint.h"

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

// Thins points to one a cell: the first to reach a cell takes it, later ones are refused.
//
// Up to 750 cubed cells are kept as a bitmap of at most 52,734,375 bytes; beyond that a hash set of the cells taken
// gives the same answers, so that memory stays bounded for extreme boxes. Belongs to one thread.
class OPCSparseGrid {
public:
    static constexpr int64_t LARGEST_BITMAP = 421875000;

    OPCSparseGrid(double maxX, double maxY, double maxZ, double minX, double minY, double minZ, double cellSize);
    virtual ~OPCSparseGrid() = default;
    // Does not copy: a grid made from another has no cells and refuses every point.
    OPCSparseGrid(const OPCSparseGrid& other);
    OPCSparseGrid& operator=(const OPCSparseGrid&) = delete;

    // True when the point's cell was free and is now taken.
    bool addPoint(const OPCPoint& point) { return take(cellOf(point.x, point.y, point.z)); }

    // The two halves of addPoint, for callers that work through many points at once.
    //
    // Rows are as long as the cells that cover the box, although the index space has room for one cell more on each
    // axis: a point on the far face of the box shares its cell with the first of the next row. That is intended.
    [[nodiscard]] int64_t cellOf(double x, double y, double z) const {
        const uint64_t row = static_cast<uint64_t>(cellAt(z, minZ)) * static_cast<uint64_t>(cellsY) +
                             static_cast<uint64_t>(cellAt(y, minY));
        return static_cast<int64_t>(row * static_cast<uint64_t>(cellsX) + static_cast<uint64_t>(cellAt(x, minX)));
    }
    bool take(int64_t cell) {
        if (cell < 0 || cell >= totalCells) return false;
        if (!useBitmap) return cellSet.insert(cell).second;
        uint64_t& word = cellBits[static_cast<size_t>(cell) / 64];
        const uint64_t bit = uint64_t{1} << (cell % 64);
        const bool isFree = (word & bit) == 0;
        word |= bit;
        return isFree;
    }

    [[nodiscard]] bool usesBitmap() const { return useBitmap; }

private:
    [[nodiscard]] int64_t cellAt(double ordinate, double minimum) const;

    int64_t cellsX = 0, cellsY = 0, cellsZ = 0; // along each axis, without the extra one
    int64_t totalCells = 0;                     // size of the index space
    double cellSize = 1.0;
    double minX = 0, minY = 0, minZ = 0;
    bool useBitmap = true;
    std::vector<uint64_t> cellBits;
    std::unordered_set<int64_t> cellSet;
};

// A number too large for an integer, and one that is no number, become the nearest and 0.
inline int64_t truncateToInteger(double value) {
    constexpr double LIMIT = 9.2e18;
    if (value > -LIMIT && value < LIMIT) return static_cast<int64_t>(value);
    return value >= LIMIT ? INT64_MAX : value <= -LIMIT ? INT64_MIN : 0;
}

inline int64_t OPCSparseGrid::cellAt(double ordinate, double minimum) const {
    return truncateToInteger((ordinate - minimum) / cellSize);
}
