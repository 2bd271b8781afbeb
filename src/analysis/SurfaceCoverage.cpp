#include "analysis/SurfaceCoverage.h"

#include "analysis/AnalysisRun.h"
#include "ground/Log.h"

#include <algorithm>
#include <cmath>
#include <glm/geometric.hpp>
#include <optional>
#include <unordered_map>

// The grid lies in the plane of the triangle. A cell is known by ix + iy * columns, where ix and iy come from the sums
// that the loops over it make: rounding can give two cells the same number, or leave a number out. Both are kept as
// they are, because the counts depend on it.

namespace {

constexpr double FAR_AWAY = 9999999999.0;
constexpr double MOST_CELLS = 268435456.0; // of one triangle, which then takes some ten seconds

// The coordinates of a triangle's plane: its centroid, and two axes in it.
struct Frame {
    glm::dvec3 origin;
    glm::dvec3 s;
    glm::dvec3 v;
    glm::dvec3 w; // away from the normal

    Frame(const Triangle& triangle, const glm::dvec3& normal) : origin(triangle.centroid), w(-normal) {
        s = glm::normalize(glm::cross(w, triangle.corners[0] - origin));
        v = glm::cross(s, w);
    }

    [[nodiscard]] glm::dvec3 local(const glm::dvec3& q) const {
        return {glm::dot(s, q - origin), glm::dot(v, q - origin), -glm::dot(w, q - origin)};
    }
    [[nodiscard]] Triangle local(const Triangle& triangle) const {
        Triangle result = triangle;
        for (glm::dvec3& corner : result.corners) corner = local(corner);
        result.centroid = local(triangle.centroid);
        return result;
    }
};

class Grid {
public:
    Grid(const Triangle& local, double cellSizeIn) : cellSize(cellSizeIn) {
        for (const glm::dvec3& corner : local.corners) {
            low = glm::min(low, glm::dvec2(corner));
            high = glm::max(high, glm::dvec2(corner));
        }
        columns = std::ceil((high.x - low.x) / cellSize);
    }

    [[nodiscard]] bool isUsable() const {
        const double cells = (columns + 1.0) * ((high.y - low.y) / cellSize + 1.0);
        return cells > 0.0 && cells <= MOST_CELLS;
    }

    // The number of the cell at a local place; none where it would not be a number that a cell has.
    [[nodiscard]] std::optional<int64_t> cellAt(double x, double y) const {
        const double ix = (x - low.x) / cellSize;
        const double iy = (y - low.y) / cellSize;
        constexpr double FARTHEST = 2147483648.0; // cells from the grid
        if (!(std::abs(ix) < FARTHEST) || !(std::abs(iy) < FARTHEST)) return std::nullopt;
        return static_cast<int64_t>(ix) + static_cast<int64_t>(iy) * static_cast<int64_t>(columns);
    }

    // Calls visit(x, y) for the low corner of each cell, until the search is to end.
    template <typename Visit>
    void forEachCell(const TriangleSearch& search, Visit visit) const {
        for (double x = low.x; x < high.x && !search.isToEnd(); x += cellSize) {
            for (double y = low.y; y < high.y; y += cellSize) visit(x, y);
        }
    }

private:
    const double cellSize;
    glm::dvec2 low{FAR_AWAY};
    glm::dvec2 high{-FAR_AWAY};
    double columns = 0.0;
};

// `pointsIn` is how many points each cell number has. A point takes one cell of its number away.
CellCount countCells(const Grid& grid, const ClipBox& prism, double cellSize, const TriangleSearch& search,
                     std::unordered_map<int64_t, int64_t>& pointsIn) {
    CellCount count;
    grid.forEachCell(search, [&](double x, double y) {
        if (prism.testIntersection(x, y, 0.0, cellSize) == ClipBox::OUTSIDE) return;
        const std::optional<int64_t> cell = grid.cellAt(x, y);
        if (!cell) return;
        ++count.cells;
        const auto points = pointsIn.find(*cell);
        if (points == pointsIn.end() || points->second == 0) {
            ++count.empty;
        } else {
            --points->second;
        }
    });
    return count;
}

} // namespace

CellCount coverTriangle(const Triangle& triangle, std::span<const SearchedCloud> clouds, TriangleSearch& search,
                        double thickness, double cellSize) {
    const std::optional<glm::dvec3> normal = triangle.normal();
    if (!normal) return {};
    const bool hasGrid = cellSize > 0.0;
    const Frame frame(triangle, *normal);
    const Triangle local = frame.local(triangle);
    const Grid grid(local, cellSize);
    const bool isCounted = hasGrid && grid.isUsable();
    if (hasGrid && !isCounted) setLastError("a triangle has too many cells of the grid, and is left out");
    bool isFound = false;
    std::unordered_map<int64_t, int64_t> pointsIn;
    search.search(triangle, [&](const SearchedCloud&, OPCInterface& node, const std::vector<glm::dvec3>& places,
                                std::span<const uint32_t> found, bool wholeSubtree) {
        selectFound(node, found, wholeSubtree);
        isFound = isFound || !found.empty();
        if (!isCounted) return;
        for (const uint32_t i : found) {
            // Places of the file, without the cloud's placement, by long standing.
            const glm::dvec3 place = frame.local(places[i]);
            if (const auto cell = grid.cellAt(place.x, place.y)) ++pointsIn[*cell];
        }
    });
    if (!isCounted || !isFound) return {};
    ClipBox prism;
    prism.setPlanes(prismPlanes(local, {0.0, 0.0, 1.0}, {thickness, thickness}));
    prism.setTransformation(clouds.back().toWorld); // that of the cloud searched last, by long standing
    return countCells(grid, prism, cellSize, search, pointsIn);
}

CellCount coverMesh(const double* triangles, size_t count, std::span<const SearchedCloud> clouds, double thickness,
                    double cellSize, AnalysisRun& run) {
    TriangleSearch search(clouds, thickness, run);
    CellCount total;
    for (size_t i = 0; i < count && !run.isToEnd(); ++i) {
        const CellCount cells = coverTriangle(Triangle::read(triangles + 9 * i), clouds, search, thickness, cellSize);
        total.cells += cells.cells;
        total.empty += cells.empty;
        run.advance(static_cast<double>(i + 1) / static_cast<double>(count));
    }
    return total;
}
