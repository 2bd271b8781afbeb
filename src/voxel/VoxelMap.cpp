#include "voxel/VoxelMap.h"

#include "ground/Parallel.h"
#include "ground/Pools.h"
#include "voxel/ModelGrid.h"

#include <algorithm>
#include <bit>

// Ranges of keys rather than of hashes: each range is sorted by itself and the ranges then follow one another, without
// a merge. Grids are far from evenly occupied, but 256 ranges leave enough of them occupied to keep all threads busy.

namespace {

int32_t wrappingSum(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

} // namespace

void ModelCell::merge(const ModelCell& other) {
    if (other.node < node) {
        voxel.cellX = other.voxel.cellX;
        voxel.cellY = other.voxel.cellY;
        voxel.cellZ = other.voxel.cellZ;
        node = other.node;
    }
    voxel.sumRed = wrappingSum(voxel.sumRed, other.voxel.sumRed);
    voxel.sumGreen = wrappingSum(voxel.sumGreen, other.voxel.sumGreen);
    voxel.sumBlue = wrappingSum(voxel.sumBlue, other.voxel.sumBlue);
    voxel.sumIntensity = wrappingSum(voxel.sumIntensity, other.voxel.sumIntensity);
    voxel.pointCount = wrappingSum(voxel.pointCount, other.voxel.pointCount);
}

// Stafford's variant 13 of the finaliser of MurmurHash3, as in splitmix64: neighbouring keys land far apart.
size_t ModelCellTable::placeOf(int64_t key) const {
    auto hash = static_cast<uint64_t>(key);
    hash = (hash ^ hash >> 30) * 0xBF58476D1CE4E5B9U;
    hash = (hash ^ hash >> 27) * 0x94D049BB133111EBU;
    return static_cast<size_t>(hash ^ hash >> 31) & (places.size() - 1);
}

ModelCell& ModelCellTable::find(int64_t key) {
    if (found.size() * 2 >= places.size()) grow();
    for (size_t place = placeOf(key);; place = (place + 1) & (places.size() - 1)) {
        uint32_t& entry = places[place];
        if (entry == 0) {
            found.push_back({key, {}, -1});
            entry = static_cast<uint32_t>(found.size());
            return found.back();
        }
        if (found[entry - 1].key == key) return found[entry - 1];
    }
}

void ModelCellTable::grow() {
    constexpr size_t SMALLEST = 64;
    places.assign(std::max(SMALLEST, places.size() * 2), 0);
    for (size_t i = 0; i < found.size(); ++i) {
        size_t place = placeOf(found[i].key);
        while (places[place] != 0) place = (place + 1) & (places.size() - 1);
        places[place] = static_cast<uint32_t>(i + 1);
    }
}

void ModelCellTable::clear() {
    found.clear();
    std::fill(places.begin(), places.end(), 0U);
}

void ModelCellTable::free() {
    found = {};
    places = {};
}

void VoxelMap::begin(const ModelGrid& grid) {
    ranges = std::make_unique<std::array<Range, RANGES>>();
    double total = 1.0;
    for (const int64_t count : grid.count) total *= static_cast<double>(std::max<int64_t>(count, 1));
    const auto largestKey = static_cast<uint64_t>(std::min(total, 0x1p62));
    shift = std::max(0, static_cast<int>(std::bit_width(largestKey)) - static_cast<int>(std::bit_width(RANGES - 1)));
}

// Keys outside the grid fall into the first and the last range.
size_t VoxelMap::rangeOf(int64_t key) const {
    return static_cast<size_t>(std::clamp<int64_t>(key >> shift, 0, RANGES - 1));
}

void VoxelMap::add(std::span<const ModelCell> cells) {
    // A counting sort of the cells' places by range, so that each range is locked once.
    std::array<uint32_t, RANGES + 1> starts{};
    for (const ModelCell& cell : cells) ++starts[rangeOf(cell.key) + 1];
    for (size_t i = 0; i < RANGES; ++i) starts[i + 1] += starts[i];
    std::vector<uint32_t> order(cells.size());
    std::array<uint32_t, RANGES + 1> next = starts;
    for (size_t i = 0; i < cells.size(); ++i) order[next[rangeOf(cells[i].key)]++] = static_cast<uint32_t>(i);
    for (size_t i = 0; i < RANGES; ++i) {
        if (starts[i] == starts[i + 1]) continue;
        Range& range = (*ranges)[i];
        std::lock_guard lock(range.mutex);
        for (uint32_t at = starts[i]; at < starts[i + 1]; ++at) {
            const ModelCell& cell = cells[order[at]];
            ModelCell& whole = range.table.find(cell.key);
            if (whole.node < 0) {
                whole = cell;
            } else {
                whole.merge(cell);
            }
        }
    }
}

void VoxelMap::countNode(bool readable, int64_t points) {
    pointTotal += points;
    if (!readable) ++unreadTotal;
}

void VoxelMap::sort(ThreadPool& pool) {
    if (!ranges) return;
    std::array<size_t, RANGES> starts;
    size_t total = 0;
    for (size_t i = 0; i < RANGES; ++i) {
        starts[i] = total;
        total += (*ranges)[i].table.cells().size();
    }
    sorted.resize(total);
    std::atomic<size_t> next{0};
    runWithHelpers(pool, maxCores() - 1, [&] {
        std::vector<std::pair<int64_t, uint32_t>> order; // key, place: a quarter of a cell to move
        for (size_t i = next++; i < RANGES; i = next++) {
            ModelCellTable& table = (*ranges)[i].table;
            const std::span<ModelCell> cells = table.cells();
            order.clear();
            for (const ModelCell& cell : cells) order.emplace_back(cell.key, static_cast<uint32_t>(order.size()));
            std::sort(order.begin(), order.end());
            ModelCell* out = sorted.data() + starts[i];
            for (const auto& [key, place] : order) *out++ = cells[place];
            table.free();
        }
    });
    ranges.reset();
}
