#include "cloud/NodeSequence.h"

#include <utility>

// As many as the engine keeps connections at least.
static constexpr size_t MOST_AHEAD = 8;

NodeSequence::NodeSequence(const OpenCloud& cloudToRead, std::vector<int> numbers)
    : cloud(cloudToRead), nodes(std::move(numbers)), most(cloud.isRemote() ? MOST_AHEAD : 0) {}

const PointBatch* NodeSequence::next() {
    // A thread a node costs far less than the round trip that it waits for.
    while (ahead.size() < most && following < nodes.size()) {
        ahead.push_back(std::async(std::launch::async, [this, node = nodes[following++]] {
            PointBatch batch;
            cloud.readNode(node, batch);
            return batch;
        }));
    }
    if (!ahead.empty()) {
        current = ahead.front().get();
        ahead.pop_front();
        return &current;
    }
    if (following == nodes.size()) return nullptr;
    cloud.readNode(nodes[following++], current);
    return &current;
}
