#pragma once

#include "build/OPCTreeDataNode.h"

#include <atomic>
#include <cstdint>
#include <vector>

struct CompileSettings {
    double noiseRadius = 0;     // 0: no noise filter
    double duplicateRadius = 0; // 0: no duplicate filter
};

// Turns a tree of raw points into the finished nodes' data, from the leaves up: each inner node takes a sample of its
// children's points, thinned and shuffled, and what stays below is written as the child's data.
//
// Works on all cores; the result, apart from the order of data in the file, does not depend on how many there are.
class TreeCompiler {
public:
    // `compiledCount` rises with the points that are written.
    TreeCompiler(BuildContext& context, OPCTreeDataNode& root, std::atomic<int64_t>& compiledCount);

    // Appends all data to the output. Ends early when `aborted` is set or the files fail.
    void compile(const CompileSettings& settings, const std::atomic<bool>& aborted);

private:
    struct Worker;
    void compileSubtree(OPCTreeDataNode* node, Worker& worker);
    void sampleChild(OPCTreeDataNode& node, size_t side, Worker& worker);
    bool takeWorkingList(OPCTreeDataNode& child, Worker& worker);
    void applyLeafFilters(Worker& worker);
    void flush(OPCTreeDataNode& node, std::span<const BuildPoint> points, std::span<const uint32_t> order,
               Worker& worker);
    void flushRoot(std::span<const BuildPoint> points, Worker& worker);
    void compileLeafRoot(Worker& worker);
    [[nodiscard]] bool shouldStop() const;

    BuildContext& context;
    OPCTreeDataNode& root;
    std::atomic<int64_t>& compiledCount;
    CompileSettings settings;
    const std::atomic<bool>* aborted = nullptr;
};
