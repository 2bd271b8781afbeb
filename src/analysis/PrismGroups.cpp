#include "analysis/PrismGroups.h"

#include "analysis/AnalysisRun.h"
#include "analysis/TreeOutline.h"
#include "ground/Parallel.h"

#include <algorithm>
#include <atomic>
#include <utility>

// A part of the mesh ends where its prisms, or the pairs of a node and a prism, would take more than some 30 MB. With
// that a mesh of 100,000 triangles is two parts.

namespace {

constexpr size_t MOST_PRISMS = size_t{1} << 16;
constexpr size_t MOST_PAIRS = size_t{1} << 22;

class Part {
public:
    // Takes prisms from `first` on; returns the first that was not taken.
    size_t gather(const PrismWalk& walk, size_t first) {
        prisms.reserve(std::min(MOST_PRISMS, walk.prisms.count - first)); // they stay where they are from now on
        size_t triangle = first;
        for (; triangle < walk.prisms.count && prisms.size() < MOST_PRISMS && pairs.size() < MOST_PAIRS; ++triangle) {
            if (walk.run.isToEnd()) return walk.prisms.count;
            const std::optional<TrianglePrism> prism = walk.prisms.make(triangle, walk.tree.farthest());
            if (!prism) continue;
            prisms.push_back(*prism);
            walk.tree.walk(prism->clip, [&](size_t node) {
                if (walk.isWanted(walk.tree.node(node))) {
                    pairs.emplace_back(static_cast<uint32_t>(node), static_cast<uint32_t>(prisms.size() - 1));
                }
            });
        }
        return triangle;
    }

    // The prisms by node, by a counting sort, which keeps their order.
    void group(size_t nodeCount) {
        std::vector<size_t> first(nodeCount + 1, 0);
        for (const auto& [node, prism] : pairs) ++first[node + 1];
        for (size_t node = 0; node < nodeCount; ++node) {
            if (first[node + 1] > 0) groups.push_back({node, first[node], first[node] + first[node + 1]});
            first[node + 1] += first[node];
        }
        byNode.resize(pairs.size());
        for (const auto& [node, prism] : pairs) byNode[first[node]++] = &prisms[prism];
    }

    // Works on all nodes, `before` and `behind` being the shares of the mesh up to the part and up to its end. False
    // when the walk is to end.
    bool workOn(const PrismWalk& walk, double before, double behind) {
        std::atomic<size_t> done{0};
        std::atomic<bool> goOn{true};
        forEachInParallel(walk.pool, groups.size(), [&](size_t i) {
            const Group& group = groups[i];
            const PrismsOfNode ofNode = std::span(byNode).subspan(group.first, group.end - group.first);
            if (walk.run.isToEnd() || !walk.work(walk.tree.node(group.node), ofNode)) {
                goOn = false;
                return false;
            }
            const double share = static_cast<double>(++done) / static_cast<double>(groups.size());
            walk.run.advance(before + (behind - before) * share);
            return true;
        });
        return goOn;
    }

private:
    struct Group {
        size_t node;
        size_t first; // place in byNode
        size_t end;
    };
    std::vector<TrianglePrism> prisms;
    std::vector<std::pair<uint32_t, uint32_t>> pairs; // node and prism
    std::vector<const TrianglePrism*> byNode;
    std::vector<Group> groups;
};

} // namespace

void walkPrisms(const PrismWalk& walk) {
    const auto count = static_cast<double>(walk.prisms.count);
    for (size_t first = 0; first < walk.prisms.count && !walk.run.isToEnd();) {
        Part part;
        const size_t end = part.gather(walk, first);
        part.group(walk.tree.size());
        if (!part.workOn(walk, static_cast<double>(first) / count, static_cast<double>(end) / count)) return;
        first = end;
    }
}
