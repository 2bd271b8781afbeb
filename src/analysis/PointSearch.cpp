#include "analysis/PointSearch.h"

#include <algorithm>
#include <cmath>

static constexpr int WORTH_SORTING = 6; // searches; sorting costs about as much as so many looks at every place

static bool isOutside(const glm::dvec3& place, const glm::dvec3& low, const glm::dvec3& high) {
    for (int axis = 0; axis < 3; ++axis) {
        if (place[axis] < low[axis] || place[axis] > high[axis]) return true;
    }
    return false;
}

const std::vector<uint32_t>& PointSearch::within(const glm::dvec3& low, const glm::dvec3& high) {
    found.clear();
    if (++searches == WORTH_SORTING) sort();
    if (byCell.empty()) {
        lookAtAll(low, high);
        return found;
    }
    // Slots rise with their coordinate, rounding included, so that no place between `low` and `high` is missed.
    glm::uvec3 first;
    glm::uvec3 last;
    for (int axis = 0; axis < 3; ++axis) {
        first[axis] = slot(low[axis], axis);
        last[axis] = slot(high[axis], axis);
    }
    for (uint32_t z = first.z; z <= last.z; ++z) {
        for (uint32_t y = first.y; y <= last.y; ++y) {
            const size_t row = (size_t{z} * cells.y + y) * cells.x;
            for (uint32_t i = firstInCell[row + first.x]; i < firstInCell[row + last.x + 1]; ++i) {
                if (!isOutside(places[byCell[i]], low, high)) found.push_back(byCell[i]);
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void PointSearch::lookAtAll(const glm::dvec3& low, const glm::dvec3& high) {
    for (size_t i = 0; i < places.size(); ++i) {
        if (!isOutside(places[i], low, high)) found.push_back(static_cast<uint32_t>(i));
    }
}

uint32_t PointSearch::slot(double value, int axis) const {
    const double at = (value - origin[axis]) * perUnit[axis];
    if (!(at > 0.0)) return 0;
    return at >= cells[axis] ? cells[axis] - 1 : static_cast<uint32_t>(at);
}

void PointSearch::sort() {
    if (places.empty()) return;
    glm::dvec3 low = places[0];
    glm::dvec3 high = places[0];
    for (const glm::dvec3& place : places) {
        for (int axis = 0; axis < 3; ++axis) {
            if (!std::isfinite(place[axis])) return;
            low[axis] = std::min(low[axis], place[axis]);
            high[axis] = std::max(high[axis], place[axis]);
        }
    }
    // Cells of one size on all axes, about as many as places where these lie on a surface.
    const glm::dvec3 size = high - low;
    const double side = std::max({size.x, size.y, size.z}) / std::sqrt(static_cast<double>(places.size()));
    if (!std::isfinite(side)) return;
    constexpr double MOST_CELLS = 64.0; // on an axis
    origin = low;
    for (int axis = 0; axis < 3; ++axis) {
        const double count = side > 0.0 ? std::clamp(std::ceil(size[axis] / side), 1.0, MOST_CELLS) : 1.0;
        cells[axis] = static_cast<uint32_t>(count);
        perUnit[axis] = size[axis] > 0.0 ? std::min(count / size[axis], 1e300) : 0.0;
    }
    std::vector<uint32_t> cellOf(places.size());
    firstInCell.assign(size_t{cells.x} * cells.y * cells.z + 1, 0);
    for (size_t i = 0; i < places.size(); ++i) {
        const glm::dvec3& place = places[i];
        cellOf[i] = (slot(place.z, 2) * cells.y + slot(place.y, 1)) * cells.x + slot(place.x, 0);
        ++firstInCell[cellOf[i] + 1];
    }
    for (size_t cell = 1; cell < firstInCell.size(); ++cell) firstInCell[cell] += firstInCell[cell - 1];
    std::vector<uint32_t> next(firstInCell.begin(), firstInCell.end() - 1);
    byCell.resize(places.size());
    for (size_t i = 0; i < places.size(); ++i) byCell[next[cellOf[i]]++] = static_cast<uint32_t>(i);
}
