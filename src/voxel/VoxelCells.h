#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// An occupied cell of a VoxelGrid, or a run of points in one, with the sums of what fell into it.
struct VoxelCell {
    std::array<uint32_t, 3> part; // along x, y, z
    std::array<uint32_t, 4> sums; // of the first four attributes
    uint32_t count;               // 0: a free slot of VoxelCells

    void add(const unsigned char* attributes) {
        for (size_t i = 0; i < sums.size(); ++i) sums[i] += attributes[i];
        ++count;
    }

    // Spread over all 64 bits.
    [[nodiscard]] uint64_t hash() const {
        uint64_t bits = (uint64_t{part[0]} | uint64_t{part[1]} << 32) * 0x9E3779B97F4A7C15U;
        bits = ((bits ^ bits >> 32) + part[2]) * 0xD6E8FEB86659FD93U;
        return bits ^ bits >> 32;
    }
};
static_assert(sizeof(VoxelCell) == 32, "two slots share a cache line");

// Occupied cells, found by their place: a hash table with open addressing, at most three quarters full.
//
// Not thread safe: one owner at a time.
class VoxelCells {
public:
    // A run may hold this many points at most: the sums of so many bytes fit into 32 bits.
    static constexpr uint32_t MOST_POINTS = 1U << 24;

    // Adds a run to its cell. Without memory it throws, and holds what it held before.
    void add(const VoxelCell& run, uint64_t hash);

    // Brings the slot of a run that is about to be added into the cache.
    void prefetch(uint64_t hash) const {
        if (!slots.empty()) __builtin_prefetch(&slots[hash & (slots.size() - 1)]);
    }

    [[nodiscard]] size_t size() const { return used + full.size(); }

    // Appends all cells to `out`, in no particular order, and forgets them. A cell with more than MOST_POINTS points
    // comes as several.
    void moveTo(std::vector<VoxelCell>& out);

private:
    VoxelCell& slotOf(const VoxelCell& run, uint64_t hash);
    void grow();

    std::vector<VoxelCell> slots; // a power of two of them
    std::vector<VoxelCell> full;  // cells whose sums could take no more
    size_t used = 0;
};
