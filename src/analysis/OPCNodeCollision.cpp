// Where a cloud touches another cloud or a mesh.

#include "analysis/AnalysisRun.h"
#include "analysis/CollisionHits.h"
#include "analysis/NodeCache.h"
#include "analysis/NodePlaces.h"
#include "analysis/PointSearch.h"
#include "analysis/PrismGroups.h"
#include "analysis/TreeOutline.h"
#include "format/OPCHeader.h"
#include "ground/Parallel.h"
#include "stream/OPCNode.h"

#include <algorithm>
#include <glm/geometric.hpp>

namespace {

constexpr int SAMPLE_STEP = 25;       // of the points of a node, the first of each so many is looked at
constexpr double CONTACT_PART = 75.0; // two points touch when nearer than this part of a side of each node
constexpr size_t KEPT_SAMPLES = 512;  // nodes, of some 100 kB

// What is looked at of a node's points, in the world. All four components count, whatever a matrix makes of the fourth.
struct NodeSample {
    std::vector<glm::dvec4> places; // in stored order
    std::vector<glm::dvec4> byX;
};

std::unique_ptr<NodeSample> sampleOf(OPCInterface& node, const glm::dmat4& matrix) {
    auto sample = std::make_unique<NodeSample>();
    const auto places = readPlaces(node);
    if (!places) return sample;
    for (size_t i = 0; i < places->size(); i += SAMPLE_STEP) {
        const glm::dvec4 place = matrix * glm::dvec4((*places)[i], 1.0);
        sample->places.push_back(place);
        if (place.x == place.x) sample->byX.push_back(place); // one that is not a number is near nothing
    }
    std::sort(sample->byX.begin(), sample->byX.end(), [](const auto& a, const auto& b) { return a.x < b.x; });
    return sample;
}

double meanSide(OPCInterface& node) {
    const double* box = node.getBoundingBox();
    return (box[3] - box[0] + (box[4] - box[1]) + (box[5] - box[2])) / 3.0;
}

// One of the two clouds of a test, and a node of it.
struct Side {
    OPCInterface& node;
    const glm::dmat4& matrix;
};

bool intersects(const Side& a, const Side& b) {
    const glm::dvec4 centreA = a.matrix * glm::dvec4(centreOf(a.node), 1.0);
    const glm::dvec4 centreB = b.matrix * glm::dvec4(centreOf(b.node), 1.0);
    return glm::distance(centreA, centreB) <=
           placedLength(a.matrix, a.node.getRadius()) + placedLength(b.matrix, b.node.getRadius());
}

// A test of two clouds: the pairs of nodes in which points are to be compared, and the comparison.
class PairTest {
public:
    PairTest(const glm::dmat4& matrixAIn, const glm::dmat4& matrixBIn, CollisionHits& hitsIn, AnalysisRun& runIn)
        : matrixA(matrixAIn), matrixB(matrixBIn), hits(hitsIn), run(runIn) {}

    // Descends from a pair that touches to the smallest pairs that do: into the children of `a` that touch `b`; where
    // there are none, into the children of `b` that touch `a`; and where there are none either, the pair's points are
    // compared. Which of the three it is depends on the pair alone, so that each pair is met once at most, on one way.
    void descend(OPCInterface& rootA, OPCInterface& rootB, ThreadPool& pool) {
        constexpr size_t WORTH_COMPARING = 4096; // pairs
        std::vector<Pair> waiting;
        if (touch(rootA, rootB)) waiting.push_back({&rootA, &rootB, 1.0});
        std::vector<Pair> smallest;
        while (!waiting.empty() && !hits.isFull() && !run.isToEnd()) {
            const Pair pair = waiting.back();
            const auto& [a, b, share] = pair;
            waiting.pop_back();
            const size_t before = waiting.size();
            const auto& childrenA = a->getChildren();
            for (auto child = childrenA.rbegin(); child != childrenA.rend(); ++child) {
                if (touch(**child, *b)) waiting.push_back({child->get(), b, share});
            }
            if (waiting.size() == before) {
                const auto& childrenB = b->getChildren();
                for (auto child = childrenB.rbegin(); child != childrenB.rend(); ++child) {
                    if (touch(*a, **child)) waiting.push_back({a, child->get(), share});
                }
            }
            if (waiting.size() == before) {
                smallest.push_back(pair);
                if (smallest.size() == WORTH_COMPARING) compareAll(smallest, pool);
            }
            const auto parts = static_cast<double>(waiting.size() - before);
            for (size_t i = before; i < waiting.size(); ++i) waiting[i].share /= parts;
        }
        compareAll(smallest, pool);
    }

private:
    struct Pair {
        OPCInterface* a;
        OPCInterface* b;
        double share; // of the whole test, for its progress
    };

    [[nodiscard]] bool touch(OPCInterface& a, OPCInterface& b) const { return intersects({a, matrixA}, {b, matrixB}); }

    void compareAll(std::vector<Pair>& pairs, ThreadPool& pool) {
        forEachInParallel(pool, pairs.size(), [&](size_t i) {
            if (hits.isFull() || run.isToEnd()) return false;
            pointsIntersect(*pairs[i].a, *pairs[i].b);
            return true;
        });
        for (const Pair& pair : pairs) done += pair.share;
        run.advance(std::min(done, 1.0));
        pairs.clear();
    }

    // Adds the first point of `a` that a point of `b` is near to, if there is one.
    void pointsIntersect(OPCInterface& a, OPCInterface& b) {
        const auto sampleA = samples.get(&a, [&] { return sampleOf(a, matrixA); });
        const auto sampleB = samples.get(&b, [&] { return sampleOf(b, matrixB); });
        const double contact = placedLength(matrixA, meanSide(a) / CONTACT_PART + meanSide(b) / CONTACT_PART);
        const double radius = placedLength(matrixB, b.getRadius());
        const glm::dvec4 centre = matrixB * glm::dvec4(centreOf(b), 1.0);
        const double reach = contact * (1.0 + 1e-12); // rounding
        for (const glm::dvec4& q : sampleA->places) {
            if (!(radius > glm::distance(q, centre))) continue;
            const double end = q.x + reach;
            auto s = std::lower_bound(sampleB->byX.begin(), sampleB->byX.end(), q.x - reach,
                                      [](const glm::dvec4& place, double x) { return place.x < x; });
            for (; s != sampleB->byX.end() && s->x <= end; ++s) {
                if (contact > glm::length(*s - q)) return hits.add(glm::dvec3(q));
            }
        }
    }

    const glm::dmat4& matrixA;
    const glm::dmat4& matrixB;
    CollisionHits& hits;
    AnalysisRun& run;
    double done = 0.0; // share of the whole test
    NodeCache<NodeSample> samples{KEPT_SAMPLES};
};

} // namespace

void OPCNode::doCollisionTest(OPCInterface& other, const glm::dmat4& matrixA, const glm::dmat4& matrixB,
                              CollisionHits& hits, AnalysisRun& run) {
    if (other.getVersion() == OPCHeader::VERSION_VOXEL) return;
    PairTest(matrixA, matrixB, hits, run).descend(*this, other, getProcessingThreadPool());
}

void OPCNode::doMeshCollisionTest(const MeshPrisms& prisms, const glm::dmat4& matrix, CollisionHits& hits,
                                  AnalysisRun& run) {
    const auto isWanted = [](OPCInterface& node) {
        return node.getChildren().size() != 2; // a node with two children has given its points to them
    };
    const auto work = [&](OPCInterface& node, PrismsOfNode prismsOfNode) {
        if (hits.isFull()) return false;
        auto places = readPlaces(node);
        if (!places) return true;
        for (glm::dvec3& place : *places) place = glm::dvec3(matrix * glm::dvec4(place, 1.0));
        PointSearch search(std::move(*places));
        for (const TrianglePrism* prism : prismsOfNode) {
            if (run.isToEnd()) return false;
            for (const uint32_t i : search.within(prism->low, prism->high)) {
                if (!prism->clip.containsPlaced(search.all()[i])) continue;
                if (hits.isFull()) return false;
                hits.add(search.all()[i]);
            }
        }
        return true;
    };
    if (hits.isFull()) return;
    walkPrisms({TreeOutline(*this, matrix), prisms, getProcessingThreadPool(), run, isWanted, work});
}
