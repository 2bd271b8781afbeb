// The exports that measure how a mesh and the points by it agree.

#include "analysis/AnalysisRun.h"
#include "analysis/SurfaceCoverage.h"
#include "analysis/SurfaceErrors.h"
#include "engine/EngineState.h"
#include "engine/Participation.h"
#include "nimbrel/NimbrelEngine.h"

#include <algorithm>
#include <glm/matrix.hpp>
#include <limits>

static constexpr double UNITS = 0.001; // in a thousandth

// The caller holds mutex_.
static std::vector<SearchedCloud> searchedClouds() {
    std::vector<SearchedCloud> clouds;
    forEachSelectable([&clouds](PointCloud& cloud) {
        const glm::dmat4 matrix = cloud.getModelMatrix();
        clouds.push_back({*cloud.getOPC().getRootNode(), matrix, glm::inverse(matrix)});
    });
    return clouds;
}

static CellCount cover(const double* triangles, int count, double thickness, double cellSize) {
    CellCount cells{};
    changePoints([&] {
        const std::vector<SearchedCloud> clouds = searchedClouds();
        AnalysisRun run(AnalysisRun::MEASURE);
        cells = coverMesh(triangles, static_cast<size_t>(count), clouds, thickness * UNITS, cellSize * UNITS, run);
    });
    return cells;
}

static void addTo(int& stat, int64_t cells) {
    stat = static_cast<int>(std::min<int64_t>(stat + cells, std::numeric_limits<int>::max()));
}

void selectPointsByTriangle(const double* triangle, int* stats, double thickness, double cellSize) {
    if (!triangle) return;
    const CellCount cells = cover(triangle, 1, thickness, stats ? cellSize : 0.0);
    if (!stats) return;
    addTo(stats[0], cells.cells);
    addTo(stats[1], cells.empty);
}

double testSurface(const double* triangles, int count, double thickness, double cellSize) {
    if (!triangles || count < 1) return 0.0;
    const CellCount cells = cover(triangles, count, thickness, cellSize);
    if (cells.cells == 0) return 0.0;
    return 1.0 - static_cast<double>(cells.empty) / static_cast<double>(cells.cells);
}

void calculateErrors(const double* triangles, int count, double thickness, double* results) {
    if (!results) return;
    SurfaceErrors errors;
    if (triangles && count > 0) {
        clearSelectedPoints();
        AnalysisRun run(AnalysisRun::MEASURE);
        errors = guarded(errors, [&] {
            std::shared_lock lock(mutex_);
            const std::vector<SearchedCloud> clouds = searchedClouds();
            return measureErrors(triangles, static_cast<size_t>(count), clouds, thickness * UNITS, run);
        });
        if (!run.isToEnd()) cover(triangles + 9 * (static_cast<ptrdiff_t>(count) - 1), 1, thickness, 0.0);
    }
    const double values[4] = {errors.minimum, errors.maximum, errors.mean, errors.deviation};
    std::copy_n(values, 4, results);
}
