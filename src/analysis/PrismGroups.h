#pragma once

#include "analysis/TrianglePrism.h"

#include <functional>
#include <span>

class AnalysisRun;
class OPCInterface;
class ThreadPool;
class TreeOutline;

// A node and the prisms that reach it, in the order of their triangles.
using PrismsOfNode = std::span<const TrianglePrism* const>;

struct PrismWalk {
    const TreeOutline& tree;
    const MeshPrisms& prisms;
    ThreadPool& pool;
    AnalysisRun& run;
    // Whether to look at a node that a prism reaches; its children are reached all the same.
    std::function<bool(OPCInterface&)> isWanted;
    // The work on a node; false to end the whole walk. Called for several nodes at a time, never for one twice at once.
    std::function<bool(OPCInterface&, PrismsOfNode)> work;
};

// Takes a mesh through a tree: each prism reaches the nodes whose sphere, and whose ancestors' spheres, it does not
// leave outside. Triangles are gathered by node, so that a node is read once for all of a part of the mesh; parts
// are worked on in turn, so that for each node the order of its prisms is that of the triangles. Ends early when the
// run is to end.
void walkPrisms(const PrismWalk& walk);
