#include "voxel/VoxelCells.h"

#include <algorithm>

static constexpr size_t FIRST_SLOTS = 256;

VoxelCell& VoxelCells::slotOf(const VoxelCell& run, uint64_t hash) {
    const size_t mask = slots.size() - 1;
    size_t slot = hash & mask;
    while (slots[slot].count != 0 && slots[slot].part != run.part) slot = (slot + 1) & mask;
    return slots[slot];
}

void VoxelCells::grow() {
    std::vector<VoxelCell> before(std::max(FIRST_SLOTS, slots.size() * 2));
    before.swap(slots);
    for (const VoxelCell& cell : before) {
        if (cell.count != 0) slotOf(cell, cell.hash()) = cell;
    }
}

void VoxelCells::add(const VoxelCell& run, uint64_t hash) {
    if (used * 4 >= slots.size() * 3) grow();
    VoxelCell& cell = slotOf(run, hash);
    if (cell.count == 0) {
        cell = run;
        ++used;
    } else if (run.count > MOST_POINTS - cell.count) {
        full.push_back(cell);
        cell = run;
    } else {
        for (size_t i = 0; i < cell.sums.size(); ++i) cell.sums[i] += run.sums[i];
        cell.count += run.count;
    }
}

void VoxelCells::moveTo(std::vector<VoxelCell>& out) {
    std::copy_if(slots.begin(), slots.end(), std::back_inserter(out),
                 [](const VoxelCell& cell) { return cell.count != 0; });
    out.insert(out.end(), full.begin(), full.end());
    *this = {};
}
