#pragma once

#include "stream/OPCInterface.h"

// Calls visit(node) for a node and its subtree in pre-order, parents before children; a visit that returns false keeps
// the walk from that node's children. The nodes still to visit wait in a list of our own: a damaged or odd tree may be
// a chain of a million levels, which the call stack would not carry.
template <typename Visit>
void walkNodes(OPCInterface& root, Visit visit) {
    std::vector<OPCInterface*> waiting{&root};
    while (!waiting.empty()) {
        OPCInterface& node = *waiting.back();
        waiting.pop_back();
        if (!visit(node)) continue;
        const auto& children = node.getChildren();
        for (auto child = children.rbegin(); child != children.rend(); ++child) waiting.push_back(child->get());
    }
}
