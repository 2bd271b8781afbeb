#include "build/LeafFilters.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

// Both neighbour searches work on a grid of cells as wide as the radius or wider, so that a point's neighbours lie in
// its cell and the 26 around it. Testing every pair would give the same answer in time that grows with the square of
// the points of a leaf.

namespace {

constexpr int NEIGHBOURS_TO_STAY = 26;
constexpr int CELL_BITS = 20; // an axis; with wider leaves the cells grow instead

double squaredDistance(const BuildPoint& a, const BuildPoint& b) {
    const double dx = a.position[0] - b.position[0];
    const double dy = a.position[1] - b.position[1];
    const double dz = a.position[2] - b.position[2];
    return dx * dx + dy * dy + dz * dz;
}

double limitFor(double radius) {
    return double{static_cast<float>(radius * radius)};
}

// Numbers the cells of a leaf. Keys of neighbours along x differ by 1, and every cell has all its neighbours in range.
class CellGrid {
public:
    CellGrid(std::span<const BuildPoint> points, double radius) {
        std::array<double, 3> maximum;
        minimum.fill(std::numeric_limits<double>::infinity());
        maximum.fill(-std::numeric_limits<double>::infinity());
        for (const BuildPoint& point : points) {
            for (size_t axis = 0; axis < 3; ++axis) {
                minimum[axis] = std::min(minimum[axis], point.position[axis]);
                maximum[axis] = std::max(maximum[axis], point.position[axis]);
            }
        }
        double widest = 0.0;
        for (size_t axis = 0; axis < 3; ++axis) widest = std::max(widest, maximum[axis] - minimum[axis]);
        // The limit is rounded and so is the division below: a little room keeps neighbours from falling two cells
        // away.
        cellSize = std::max(radius * 1.000001, widest / ((1 << CELL_BITS) - 4));
    }

    [[nodiscard]] int64_t keyOf(const BuildPoint& point) const {
        int64_t key = 0;
        for (size_t axis = 3; axis-- > 0;) {
            const auto cell = static_cast<int64_t>((point.position[axis] - minimum[axis]) / cellSize) + 1;
            key = key << CELL_BITS | cell;
        }
        return key;
    }

    // The key of the cell one lower in x, in each of the nine rows of cells around a cell.
    [[nodiscard]] static std::array<int64_t, 9> rowsAround(int64_t key) {
        std::array<int64_t, 9> rows;
        size_t next = 0;
        for (int64_t z = -1; z <= 1; ++z) {
            for (int64_t y = -1; y <= 1; ++y) {
                rows[next++] = key + z * (int64_t{1} << 2 * CELL_BITS) + y * (int64_t{1} << CELL_BITS) - 1;
            }
        }
        return rows;
    }

private:
    std::array<double, 3> minimum;
    double cellSize;
};

struct CellEntry {
    int64_t key;
    uint32_t point;
};

using CellRange = std::span<const CellEntry>;

// The entries with keys from `first` to `first + 2` among entries sorted by key.
CellRange threeCells(CellRange entries, int64_t first) {
    const auto isBelow = [](const CellEntry& entry, int64_t key) { return entry.key < key; };
    const auto begin = std::lower_bound(entries.begin(), entries.end(), first, isBelow);
    const auto end = std::lower_bound(begin, entries.end(), first + 3, isBelow);
    return {begin, end};
}

bool hasNeighbours(std::span<const BuildPoint> points, uint32_t point, std::span<const CellRange> ranges,
                   double limit) {
    int found = 0;
    for (const CellRange& range : ranges) {
        for (const CellEntry& entry : range) {
            if (entry.point == point || squaredDistance(points[entry.point], points[point]) >= limit) continue;
            if (++found == NEIGHBOURS_TO_STAY) return true;
        }
    }
    return false;
}

} // namespace

void snapToGrid(std::span<BuildPoint> points, double size) {
    // Larger quotients have no fraction, or do not fit an integer.
    constexpr double LARGEST = 4503599627370496.0;
    for (BuildPoint& point : points) {
        for (double& ordinate : point.position) {
            const double quotient = ordinate / size;
            if (!(quotient > -LARGEST && quotient < LARGEST)) continue;
            const auto whole = static_cast<int64_t>(quotient);
            const double fraction = quotient - static_cast<double>(whole); // exact
            const int64_t away = static_cast<int64_t>(fraction >= 0.5) - static_cast<int64_t>(fraction <= -0.5);
            ordinate = static_cast<double>(whole + away) * size;
        }
    }
}

std::vector<BuildPoint> withoutDuplicates(std::vector<BuildPoint> points, double radius) {
    constexpr uint32_t NONE = std::numeric_limits<uint32_t>::max();
    const double limit = limitFor(radius);
    const CellGrid grid(points, radius);
    std::stable_sort(points.begin(), points.end(),
                     [](const BuildPoint& a, const BuildPoint& b) { return a.position[0] < b.position[0]; });

    std::vector<BuildPoint> kept;
    kept.reserve(points.size());
    std::unordered_map<int64_t, uint32_t> lastInCell; // the point kept last in a cell
    std::vector<uint32_t> earlierInCell;              // for each kept point: the one before it in its cell
    const auto isNearKept = [&](const BuildPoint& point, int64_t key) {
        for (const int64_t row : CellGrid::rowsAround(key)) {
            for (int64_t cell = row; cell < row + 3; ++cell) {
                const auto entry = lastInCell.find(cell);
                for (uint32_t i = entry == lastInCell.end() ? NONE : entry->second; i != NONE; i = earlierInCell[i]) {
                    // The limit can be a little above the squared radius, but a point that lies more than the radius
                    // behind in x never counts.
                    if (point.position[0] - kept[i].position[0] > radius) break;
                    if (squaredDistance(point, kept[i]) < limit) return true;
                }
            }
        }
        return false;
    };
    for (const BuildPoint& point : points) {
        const int64_t key = grid.keyOf(point);
        if (isNearKept(point, key)) continue;
        const auto [entry, isFirst] = lastInCell.try_emplace(key, NONE);
        earlierInCell.push_back(entry->second);
        entry->second = static_cast<uint32_t>(kept.size());
        kept.push_back(point);
    }
    return kept;
}

std::vector<BuildPoint> withoutNoise(std::vector<BuildPoint> points, double radius) {
    const double limit = limitFor(radius);
    const CellGrid grid(points, radius);
    std::vector<CellEntry> entries(points.size());
    for (uint32_t i = 0; i < points.size(); ++i) entries[i] = {grid.keyOf(points[i]), i};
    std::sort(entries.begin(), entries.end(), [](const CellEntry& a, const CellEntry& b) { return a.key < b.key; });

    std::vector<bool> stays(points.size());
    for (size_t begin = 0, end = 0; begin < entries.size(); begin = end) {
        const int64_t key = entries[begin].key;
        std::array<CellRange, 9> ranges;
        for (size_t i = 0; const int64_t row : CellGrid::rowsAround(key)) ranges[i++] = threeCells(entries, row);
        std::swap(ranges[0], ranges[4]); // the point's own row first: most neighbours are there
        for (; end < entries.size() && entries[end].key == key; ++end) {
            stays[entries[end].point] = hasNeighbours(points, entries[end].point, ranges, limit);
        }
    }
    size_t kept = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        if (stays[i]) points[kept++] = points[i];
    }
    points.resize(kept);
    return points;
}
