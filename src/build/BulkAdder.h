#pragma once

#include "build/OPCTreeDataNode.h"

#include <cstdint>
#include <vector>

// The hot path of every import: adds batches of points to a tree on all cores, with the tree and the points in it that
// adding them one by one would give.
//
// Not thread safe: one batch at a time.
class BulkAdder {
public:
    // Both outlive the adder. Nobody else changes the tree meanwhile.
    BulkAdder(BuildContext& context, OPCTreeDataNode& root);

    // Adds `count` points. Those without a home are counted in the context.
    void add(const double* positions, const unsigned char* attributes, size_t count);

private:
    // A run of the batch that one worker routes. `cursors` has an entry for each leaf: 0 between batches, then how
    // many points of the run go to the leaf, then where in `order` its next one goes.
    struct Chunk {
        size_t begin = 0, end = 0;
        std::vector<uint32_t> cursors;
        std::vector<uint32_t> touched; // leaves with points in this run, in order of appearance
        int64_t outside = 0;
    };
    // The points of one leaf, in order of arrival: a range of `order`.
    struct Group {
        OPCTreeDataNode* leaf;
        size_t begin, end;
    };

    void addBatch(const PointView& points, size_t count);
    void route(Chunk& chunk, const PointView& points);
    void layOutGroups();
    void scatter(Chunk& chunk);
    void fillLeaves(const PointView& points);
    void numberNewLeaves(OPCTreeDataNode& divided);

    BuildContext& context;
    OPCTreeDataNode& root;
    std::vector<OPCTreeDataNode*> leaves; // by leafNumber
    std::vector<Chunk> chunks;
    std::vector<uint32_t> leafOf; // of each point of the batch
    std::vector<uint32_t> order;  // points of the batch, grouped by leaf
    std::vector<Group> groups;
    std::vector<uint64_t> laidOutIn; // by leafNumber: the batch that laid out the leaf's group last
    uint64_t batchNumber = 0;
};
