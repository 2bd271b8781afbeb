#pragma once

#include "voxel/VoxelCells.h"
#include "voxel/VoxelGrid.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

// The two bits a node of a voxel tree, packed as in the file.
class VoxelShapes {
public:
    void add(unsigned shape);
    void append(const VoxelShapes& more);
    [[nodiscard]] int64_t nodes() const { return count; }
    [[nodiscard]] std::span<const unsigned char> bytes() const { return packed; } // the last one padded with zeros

private:
    std::vector<unsigned char> packed;
    int64_t count = 0;
};

// Builds the tree of a voxel model from points: first the sums of each occupied cell, then nodes and colours.
//
// Memory goes to occupied cells alone, some 60 bytes each; the tree itself exists only as the bits that go to the file.
// One call at a time, each of which works on all cores; abort() may come from any thread.
class OVMTreeDataNode {
public:
    explicit OVMTreeDataNode(VoxelGrid gridIn);
    ~OVMTreeDataNode();
    OVMTreeDataNode(const OVMTreeDataNode&) = delete;
    OVMTreeDataNode& operator=(const OVMTreeDataNode&) = delete;

    // Adds points, 3 doubles and 5 bytes each, and returns how many lie in the box.
    int64_t addPoints(const double* positions, const unsigned char* attributes, int count);

    // Makes the tree; `compiledCount` rises by the points of each finished leaf. Nothing comes of it after an abort.
    void compile(std::atomic<int64_t>& compiledCount);

    // Ends compile() early.
    void abort() { aborted = true; }

    // After compile().
    [[nodiscard]] int64_t getTotalNodeCount() const { return shapes.nodes(); }
    [[nodiscard]] std::span<const unsigned char> shapeBytes() const { return shapes.bytes(); }

    // Calls write() for runs of the leaves' colours, in pre-order. Each is freed when it is written.
    void writeColours(const std::function<void(std::span<const unsigned char>)>& write);

private:
    struct Router;
    struct Branch;
    struct Piece;

    void addRound(const double* positions, const unsigned char* attributes, size_t count);
    void route(Router& router, const double* positions, const unsigned char* attributes, size_t count) const;
    void mergeRuns(size_t shard);
    [[nodiscard]] std::vector<VoxelCell> takeCells();
    bool divide(const Branch& branch, std::vector<Branch>& waiting, VoxelShapes& out) const;
    void descend(Branch& branch, VoxelShapes& out) const;
    [[nodiscard]] std::vector<Piece> planPieces(std::vector<VoxelCell>& cells) const;
    void compilePiece(Piece& piece, std::atomic<int64_t>& compiledCount) const;

    const VoxelGrid grid;
    std::vector<std::unique_ptr<Router>> routers; // one a worker
    std::vector<VoxelCells> shards;               // by the highest bits of a cell's hash
    std::atomic<bool> aborted{false};
    VoxelShapes shapes;
    std::vector<std::vector<unsigned char>> colours; // of the leaves, piece by piece
};
