#pragma once

#include <cstdint>
#include <glm/vec3.hpp>
#include <vector>

// Finds the places of one node that lie in a box. Belongs to one thread.
//
// The first few searches look at every place. When more follow, the places are sorted into a grid, after which a
// search costs what it finds.
class PointSearch {
public:
    explicit PointSearch(std::vector<glm::dvec3> placesIn) : places(std::move(placesIn)) {}

    [[nodiscard]] const std::vector<glm::dvec3>& all() const { return places; }

    // The indices, ascending, of the places not outside the box; faces count as inside, and so does a place that is not
    // a number. Valid until the next search.
    const std::vector<uint32_t>& within(const glm::dvec3& low, const glm::dvec3& high);

private:
    void sort();
    [[nodiscard]] uint32_t slot(double value, int axis) const;
    void lookAtAll(const glm::dvec3& low, const glm::dvec3& high);

    std::vector<glm::dvec3> places;
    std::vector<uint32_t> found;
    int searches = 0;

    // The grid; empty until it is made, or where a place is not finite.
    std::vector<uint32_t> firstInCell; // place in `byCell` where each cell begins, and the end
    std::vector<uint32_t> byCell;      // indices of places
    glm::dvec3 origin{0.0};
    glm::dvec3 perUnit{0.0}; // cells a unit
    glm::uvec3 cells{0};
};
