#include "voxel/VoxelGrid.h"

#include <algorithm>
#include <cmath>

// 64 KiB of planes an axis: what stays in the cache of a core. Finer parts are found by halving from there.
static constexpr int MOST_TABLE_CUTS = 13;
static constexpr int MOST_CUTS = 30;

VoxelAxis::VoxelAxis(double low, double high, int cutsIn) : cuts(cutsIn), tableCuts(std::min(cutsIn, MOST_TABLE_CUTS)) {
    const size_t parts = size_t{1} << tableCuts;
    planes.resize(parts + 1);
    planes.front() = low;
    planes.back() = high;
    for (size_t step = parts; step > 1; step /= 2) {
        for (size_t i = 0; i < parts; i += step) planes[i + step / 2] = (planes[i] + planes[i + step]) * 0.5;
    }
    partsPerUnit = high > low ? std::min(static_cast<double>(parts) / (high - low), 1e300) : 0.0;
}

uint32_t VoxelAxis::partOf(double x) const {
    const auto last = static_cast<uint32_t>(planes.size() - 2);
    auto part = std::min(static_cast<uint32_t>(std::max((x - planes.front()) * partsPerUnit, 0.0)), last);
    while (part < last && x > planes[part + 1]) ++part;
    while (part > 0 && x <= planes[part]) --part;
    double low = planes[part];
    double high = planes[part + 1];
    for (int cut = tableCuts; cut < cuts; ++cut) {
        const double middle = (low + high) * 0.5;
        const bool upper = x > middle;
        (upper ? low : high) = middle;
        part = part << 1 | (upper ? 1U : 0U);
    }
    return part;
}

VoxelGrid::VoxelGrid(const VoxelBox& box, const std::array<int, 3>& cuts, float voxelSizeIn)
    : whole(box), axes{VoxelAxis(box.bounds[0], box.bounds[3], cuts[0]),
                       VoxelAxis(box.bounds[1], box.bounds[4], cuts[1]),
                       VoxelAxis(box.bounds[2], box.bounds[5], cuts[2])},
      voxelSize(voxelSizeIn) {}

std::optional<VoxelGrid> VoxelGrid::make(const VoxelBox& box, float voxelSize) {
    const std::optional<std::array<int, 3>> cuts = findCuts(box, voxelSize);
    if (!cuts) return std::nullopt;
    return VoxelGrid(box, *cuts, voxelSize);
}

// How often each axis is cut at most. An edge after so many cuts is known but for some roundings of its ends: where
// those decide which axis is longest, all that may be are cut, and where they decide whether a box is cut, it is.
std::optional<std::array<int, 3>> VoxelGrid::findCuts(const VoxelBox& box, float voxelSize) {
    if (!(voxelSize > 0.0F)) return std::nullopt;
    std::array<double, 3> edges{};
    std::array<double, 3> slack{};
    for (size_t axis = 0; axis < 3; ++axis) {
        edges[axis] = box.edge(axis);
        const double farthest = std::max(std::fabs(box.bounds[axis]), std::fabs(box.bounds[axis + 3]));
        slack[axis] = 4.0 * (std::nextafter(farthest, INFINITY) - farthest);
        if (!(edges[axis] >= 0.0) || !std::isfinite(edges[axis])) return std::nullopt;
    }
    std::array<int, 3> cuts{};
    while (static_cast<float>((edges[0] + slack[0] + edges[1] + slack[1] + edges[2] + slack[2]) / 3.0) > voxelSize) {
        const double longest = std::max({edges[0] - slack[0], edges[1] - slack[1], edges[2] - slack[2]});
        for (size_t axis = 0; axis < 3; ++axis) {
            if (edges[axis] + slack[axis] < longest) continue;
            if (cuts[axis] == MOST_CUTS || edges[axis] < 32.0 * slack[axis]) return std::nullopt;
            edges[axis] *= 0.5;
            ++cuts[axis];
        }
    }
    return cuts;
}
