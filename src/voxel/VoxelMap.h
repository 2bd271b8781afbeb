#pragma once

#include "stream/OPCInterface.h"

#include <array>
#include <span>

class ThreadPool;
struct ModelGrid;

// An occupied cell of a grid.
struct ModelCell {
    // Cells with fewer points are left out of every model.
    static constexpr int32_t POINTS_OF_SOLID = 11;

    [[nodiscard]] bool isSolid() const { return voxel.pointCount >= POINTS_OF_SOLID; }

    // Adds what `other`, a record of the same key, holds. Of two cells with one key the earlier node's stays.
    void merge(const ModelCell& other);

    int64_t key;
    OPCInterface::Voxel voxel;
    int32_t node; // the number of the node whose point made the record; -1 for none yet
};

// Cells found by their key in no order: open addressing with linear probing over places in one array of cells, so that
// a cell costs its record and two to four places of 4 bytes.
class ModelCellTable {
public:
    // The cell of a key. A new one is all zeros but for the key and the node, which is -1.
    ModelCell& find(int64_t key);

    void clear(); // keeps the memory
    void free();
    [[nodiscard]] std::span<ModelCell> cells() { return found; }

private:
    [[nodiscard]] size_t placeOf(int64_t key) const;
    void grow();

    std::vector<ModelCell> found;
    std::vector<uint32_t> places; // a power of two; 1 + place in `found`, 0 for empty
};

// The occupied cells of a grid, in ascending order of their keys once sorted. Memory follows the cells that are
// occupied.
//
// While it fills, the cells lie in tables of their own for ranges of keys, each with a mutex, so that threads seldom
// wait for each other and nothing is held twice.
class VoxelMap {
public:
    // Prepares for the cells of a grid with so many cells along Z. Before add, by one thread.
    void begin(const ModelGrid& grid);

    // Adds cells of different keys. Any thread.
    void add(std::span<const ModelCell> cells);

    // Counts a node that was binned, or could not be read. Any thread.
    void countNode(bool readable, int64_t points);

    // Puts the cells in order. After the last add, by one thread, with the help of `pool`.
    void sort(ThreadPool& pool);

    // In order, once sorted.
    [[nodiscard]] const std::vector<ModelCell>& cells() const { return sorted; }
    [[nodiscard]] int64_t points() const { return pointTotal; }
    [[nodiscard]] int unreadNodes() const { return unreadTotal; }

private:
    static constexpr size_t RANGES = 256;
    struct Range {
        std::mutex mutex;
        ModelCellTable table; // guarded by mutex
    };

    [[nodiscard]] size_t rangeOf(int64_t key) const;

    std::unique_ptr<std::array<Range, RANGES>> ranges; // while it fills
    int shift = 0;                                     // a key without so many bits is the number of its range
    std::vector<ModelCell> sorted;
    std::atomic<int64_t> pointTotal{0};
    std::atomic<int> unreadTotal{0};
};
