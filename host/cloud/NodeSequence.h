#pragma once

#include "cloud/OpenCloud.h"

#include <cstddef>
#include <deque>
#include <future>
#include <vector>

// Reads nodes of a cloud one after the other. Of a cloud on a server it asks for several ahead of the caller, who would
// otherwise wait for a round trip at every node.
//
// Belongs to one thread. The cloud outlives it.
class NodeSequence {
public:
    NodeSequence(const OpenCloud& cloudToRead, std::vector<int> numbers);

    // The points of the next node, valid until the next call; null behind the last. Throws CommandFailure when they
    // can't be read, be it those of this node or of one further on.
    const PointBatch* next();

private:
    const OpenCloud& cloud;
    const std::vector<int> nodes;
    const size_t most;    // nodes on their way
    size_t following = 0; // place in `nodes` of the first that was not asked for
    std::deque<std::future<PointBatch>> ahead;
    PointBatch current;
};
