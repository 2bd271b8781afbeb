#pragma once

#include <functional>

class OPCInterface;

// Visits a node and its subtree on the calling thread and on the workers of the processing pool, and returns when all
// of it is done. A node is visited before its children, otherwise in any order, and each by one thread.
//
// The caller works itself and waits for no job that has not begun, so that it may be a worker of the pool too, or find
// the pool busy, and the walk still ends. Nodes still to visit wait in lists, not on the call stack. The first
// exception of a visit ends the walk and is thrown on the calling thread.
//
// task    what the first node is visited with, 0 or more; the meaning is the caller's
// visit   is given the node, its task, and the number of the worker, from 0 below parallelWalkWorkers(), which nobody
//         else has at that time. Returns the task of the children, or STOP_DESCENT
using NodeVisit = std::function<int(OPCInterface& node, int task, int worker)>;
constexpr int STOP_DESCENT = -1;

void walkNodesInParallel(OPCInterface& root, int task, const NodeVisit& visit);

[[nodiscard]] int parallelWalkWorkers();
