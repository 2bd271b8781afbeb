#include "stream/ParallelNodeWalk.h"

#include "ground/Pools.h"
#include "ground/ThreadPool.h"
#include "stream/OPCNode.h"

#include <future>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>

namespace {

// A chain of `depth` nodes, each with a second child that is a chain of `side` nodes.
void grow(OPCInterface& root, int depth, int side) {
    OPCInterface* node = &root;
    for (int level = 1; level < depth; ++level) {
        for (int child = 0; child < (side > 0 ? 2 : 1); ++child) {
            node->getChildren().push_back(std::make_unique<OPCNode>());
        }
        if (side > 0) grow(*node->getChildren()[1], side, 0);
        node = node->getChildren()[0].get();
    }
}

} // namespace

TEST(ParallelNodeWalk, VisitsEachNodeOnceWithTheTaskOfItsParent) {
    for (const auto& [depth, side] : {std::pair{1, 0}, {200000, 0}, {300, 300}}) {
        OPCNode root;
        grow(root, depth, side);
        std::vector<OPCInterface*> nodes;
        root.populateNodeTreeList(&nodes);
        std::map<OPCInterface*, int> depths{{&root, 0}}; // in levels below the root
        for (OPCInterface* node : nodes) {
            for (const auto& child : node->getChildren()) depths[child.get()] = depths[node] + 1;
        }
        std::vector<std::atomic<int>> busy(static_cast<size_t>(parallelWalkWorkers()));
        std::atomic<size_t> visits{0};
        walkNodesInParallel(root, 0, [&](OPCInterface& node, int task, int worker) {
            EXPECT_EQ(0, busy[static_cast<size_t>(worker)]++) << "a worker's number is its own";
            EXPECT_EQ(depths.at(&node), task);
            ++visits;
            --busy[static_cast<size_t>(worker)];
            return task + 1;
        });
        EXPECT_EQ(nodes.size(), visits);
        // From all of the pool's threads at once, where nobody is left to help.
        visits = 0;
        std::atomic<int> waiting{maxCores()};
        const auto countOnly = [&] {
            --waiting;
            while (waiting > 0) std::this_thread::yield();
            walkNodesInParallel(root, 0, [&](OPCInterface&, int task, int) { return ++visits, task; });
        };
        for (int i = 0; i < maxCores(); ++i) processingPool().AddJob(countOnly);
        processingPool().WaitAll();
        EXPECT_EQ(nodes.size() * static_cast<size_t>(maxCores()), visits);
    }
}

TEST(ParallelNodeWalk, EndsWhereVisitsStopOrFail) {
    OPCNode root;
    grow(root, 300, 300);
    std::atomic<int> visits{0};
    walkNodesInParallel(root, 3, [&](OPCInterface&, int, int) { return ++visits, STOP_DESCENT; });
    EXPECT_EQ(1, visits);
    // From the 1000th on every visit fails, so that each worker has at most one of them.
    const auto fail = [&](OPCInterface&, int task, int) {
        if (++visits >= 1000) throw std::runtime_error("enough");
        return task;
    };
    EXPECT_THROW(walkNodesInParallel(root, 0, fail), std::runtime_error);
    EXPECT_LT(visits, 1000 + parallelWalkWorkers());
}
