#pragma once

#include "analysis/AnalysisRun.h"
#include "analysis/NodeCache.h"
#include "analysis/PointSearch.h"
#include "analysis/TrianglePrism.h"

#include <cstdint>
#include <functional>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <memory>
#include <span>
#include <vector>

class OPCInterface;

// What a search for the points by a triangle finds, node by node in pre-order. The points of the nodes looked at last
// are kept, decoded, since the next triangle of a mesh is likely to lie among them. Belongs to one thread.
class TriangleFindings {
public:
    // `found` are indices into `places`, ascending. With `wholeSubtree` they are all of the node's points, and those
    // of its descendants count as found as well, which are not told one by one.
    using Receive = std::function<void(OPCInterface& node, const std::vector<glm::dvec3>& places,
                                       std::span<const uint32_t> found, bool wholeSubtree)>;

    explicit TriangleFindings(const AnalysisRun& runIn) : run(runIn) {}

    // Whether a search is to end early: one triangle can reach all points of a cloud.
    [[nodiscard]] bool isToEnd() const { return run.isToEnd(); }

    void setReceiver(Receive newReceiver) { receiver = std::move(newReceiver); }
    void tell(OPCInterface& node, const PointSearch& points, std::span<const uint32_t> found, bool wholeSubtree) const {
        receiver(node, points.all(), found, wholeSubtree);
    }

    // The points of a node in the file's coordinates; null when they can't be read.
    std::shared_ptr<PointSearch> pointsOf(OPCInterface& node);

private:
    static constexpr size_t KEPT_NODES = 96; // of 1 MB at most
    const AnalysisRun& run;
    Receive receiver;
    NodeCache<PointSearch> nodes{KEPT_NODES};
};

// A cloud as the measures of a surface see it.
struct SearchedCloud {
    OPCInterface& root;
    glm::dmat4 toWorld;
    glm::dmat4 toFile; // the inverse
};

// Finds the points of several clouds that lie by a triangle: in its prism, which reaches beyond the triangle by
// `thickness` on all sides, and no farther from its centroid than its farthest corner and twice the thickness.
class TriangleSearch {
public:
    TriangleSearch(std::span<const SearchedCloud> cloudsIn, double thicknessIn, const AnalysisRun& run)
        : clouds(cloudsIn), thickness(thicknessIn), findings(run) {}

    using Receive =
        std::function<void(const SearchedCloud& cloud, OPCInterface& node, const std::vector<glm::dvec3>& places,
                           std::span<const uint32_t> found, bool wholeSubtree)>;

    // False, and nothing found, for a degenerate triangle. Finds only a part when the run is to end.
    bool search(const Triangle& triangle, const Receive& receive);

    // These as for TriangleFindings.
    std::shared_ptr<PointSearch> pointsOf(OPCInterface& node) { return findings.pointsOf(node); }
    [[nodiscard]] bool isToEnd() const { return findings.isToEnd(); }

private:
    const std::span<const SearchedCloud> clouds;
    const double thickness;
    TriangleFindings findings;
};

// Marks what a search found as selected.
void selectFound(OPCInterface& node, std::span<const uint32_t> found, bool wholeSubtree);
