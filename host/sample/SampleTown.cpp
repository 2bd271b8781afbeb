#include "sample/SampleTown.h"
#include "sample/TownPlanner.h"

#include <algorithm>
#include <cmath>

static constexpr size_t TERRAIN_COLUMNS = static_cast<size_t>(SampleTown::WIDTH) + 1;

double TownBuilding::roofHeight(Footprint::Place place) const {
    const double u = std::abs(place.u);
    const double v = std::abs(place.v);
    const double across = 1 - v / footprint.halfWidth;
    switch (roof) {
    case RoofKind::GABLE:
        return eaves + rise * across;
    case RoofKind::HIP:
        return eaves + rise * std::min(across, (footprint.halfLength - u) / footprint.halfWidth);
    case RoofKind::SPIRE:
        return eaves + rise * std::min(across, 1 - u / footprint.halfLength);
    case RoofKind::FLAT:
        break;
    }
    return eaves;
}

std::array<double, 2> TownTree::crownAt(double distance) const {
    const double ratio = std::min(1.0, distance / radius);
    if (isConifer) return {stem, stem + (height - stem) * (1 - ratio)};
    const double middle = (height + stem) / 2;
    const double reach = (height - stem) / 2 * std::sqrt(1 - ratio * ratio);
    return {middle - reach, middle + reach};
}

SampleTown::SampleTown(uint64_t seed) {
    TownPlanner(*this, seed).layOut();
}

double SampleTown::groundHeight(double x, double y) const {
    const GroundKind kind = groundKind(x, y);
    if (kind == GroundKind::WATER) return WATER_LEVEL;
    if (kind == GroundKind::BRIDGE) {
        return deckHeightFrom + (deckHeightTo - deckHeightFrom) * (y - deckFrom) / (deckTo - deckFrom);
    }
    return terrainHeight(x, y);
}

double SampleTown::terrainHeight(double x, double y) const {
    const auto column = std::min(static_cast<size_t>(x), TERRAIN_COLUMNS - 2);
    const auto row = std::min(static_cast<size_t>(y), static_cast<size_t>(DEPTH) - 1);
    const double u = x - static_cast<double>(column);
    const double v = y - static_cast<double>(row);
    const float* const low = &terrain[row * TERRAIN_COLUMNS + column];
    const float* const high = low + TERRAIN_COLUMNS;
    const double south = low[0] + u * (low[1] - low[0]);
    const double north = high[0] + u * (high[1] - high[0]);
    return south + v * (north - south);
}

// The pixel of a raster with `perMetre` pixels a metre; the last one for a place on the border.
static size_t pixelAt(double x, double y, size_t perMetre) {
    const size_t columns = static_cast<size_t>(SampleTown::WIDTH) * perMetre;
    const size_t rows = static_cast<size_t>(SampleTown::DEPTH) * perMetre;
    const auto scale = static_cast<double>(perMetre);
    return std::min(static_cast<size_t>(y * scale), rows - 1) * columns +
           std::min(static_cast<size_t>(x * scale), columns - 1);
}

GroundKind SampleTown::groundKind(double x, double y) const {
    return ground[pixelAt(x, y, 4)];
}

double SampleTown::light(double x, double y) const {
    return lights[pixelAt(x, y, 2)] / 255.0;
}

SampleTown::Near SampleTown::near(double x, double y) const {
    const size_t columns = static_cast<size_t>(WIDTH / TownPlanner::CELL);
    const size_t cell =
        std::min(static_cast<size_t>(y / TownPlanner::CELL), static_cast<size_t>(DEPTH / TownPlanner::CELL) - 1) *
            columns +
        std::min(static_cast<size_t>(x / TownPlanner::CELL), columns - 1);
    return {buildingsNear.at(cell), treesNear.at(cell), boxesNear.at(cell)};
}
