#include "analysis/SurfaceErrors.h"

#include "analysis/AnalysisRun.h"
#include "stream/NodeWalk.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <glm/geometric.hpp>

// Sums run over the points in the order of clouds, nodes and points, on one thread, so that they round alike each time.

static constexpr double PER_UNIT = 1000.0;

namespace {

// One triangle's points, gone through as often as it takes: nothing is kept of them, however many there are.
class TriangleErrors {
public:
    TriangleErrors(const Triangle& triangleIn, TriangleSearch& searchIn) : triangle(triangleIn), search(searchIn) {
        const auto& [p0, p1, p2] = triangle.corners;
        normal = glm::normalize(glm::cross(p1 - p0, p2 - p0));
    }

    // Calls use(error) for each point.
    template <typename Use>
    void forEach(Use use) {
        const auto useNode = [&](const glm::dmat4& toWorld, const std::vector<glm::dvec3>& places,
                                 std::span<const uint32_t> found) {
            for (const uint32_t i : found) use(errorOf(glm::dvec3(toWorld * glm::dvec4(places[i], 1.0))));
        };
        search.search(triangle,
                      [&](const SearchedCloud& cloud, OPCInterface& node, const std::vector<glm::dvec3>& places,
                          std::span<const uint32_t> found, bool wholeSubtree) {
                          useNode(cloud.toWorld, places, found);
                          if (!wholeSubtree) return;
                          walkNodes(node, [&](OPCInterface& below) {
                              if (search.isToEnd()) return false;
                              if (&below == &node) return true;
                              if (const auto points = search.pointsOf(below)) {
                                  for (const glm::dvec3& place : points->all()) {
                                      use(errorOf(glm::dvec3(cloud.toWorld * glm::dvec4(place, 1.0))));
                                  }
                              }
                              return true;
                          });
                      });
    }

private:
    [[nodiscard]] double errorOf(const glm::dvec3& place) const {
        return std::abs(glm::dot(normal, triangle.corners[0] - place)) * PER_UNIT;
    }

    const Triangle& triangle;
    TriangleSearch& search;
    glm::dvec3 normal;
};

} // namespace

SurfaceErrors measureErrors(const double* triangles, size_t count, std::span<const SearchedCloud> clouds,
                            double thickness, AnalysisRun& run) {
    SurfaceErrors result;
    TriangleSearch search(clouds, thickness, run);
    int64_t total = 0;
    for (size_t i = 0; i < count && !run.isToEnd(); ++i) {
        const Triangle triangle = Triangle::read(triangles + 9 * i);
        TriangleErrors errors(triangle, search);
        int64_t points = 0;
        double sum = 0.0;
        errors.forEach([&](double error) {
            ++points;
            sum += error;
            result.mean += error;
            result.minimum = std::min(result.minimum, error);
            result.maximum = std::max(result.maximum, error);
        });
        run.advance(static_cast<double>(i + 1) / static_cast<double>(count));
        if (points == 0) continue;
        const double mean = sum / static_cast<double>(points);
        double squares = 0.0;
        errors.forEach([&](double error) { squares += (error - mean) * (error - mean); });
        result.deviation += std::sqrt(squares / static_cast<double>(points));
        total += points;
    }
    if (total > 0) {
        result.mean /= static_cast<double>(total);
        result.deviation /= static_cast<double>(count);
    }
    return result;
}
