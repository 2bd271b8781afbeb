#pragma once

#include "build/BuildInputs.h"

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <vector>

using BoundsBox = std::array<double, 6>; // smallest x, y, z, then largest

// Keeps the points of a batch that lie in `box`, its faces included, in their order. Returns how many went.
size_t cropBatch(PointBatch& batch, const BoundsBox& box);

// The points of several inputs, one input after the other, scaled and cropped.
//
// read() is called from one thread; the counters may be looked at from any.
class InputSequence {
public:
    static constexpr size_t BATCH_POINTS = 1000000;

    InputSequence(std::vector<BuildInput> inputs, ReadOptions options, std::optional<BoundsBox> bounds);

    // Replaces the contents of `batch` by the next points, none if all of them lie outside the bounds; false at the
    // end. Throws CommandFailure, which names the file.
    bool read(PointBatch& batch);

    [[nodiscard]] uint64_t pointsRead() const { return readCount; } // without those outside
    [[nodiscard]] uint64_t pointsOutside() const { return outsideCount; }

    // The reader in use, null before the first read().
    [[nodiscard]] const PointReader* reader() const { return current.get(); }

private:
    bool readCurrent(PointBatch& batch);

    const std::vector<BuildInput> inputs;
    const ReadOptions options;
    const std::optional<BoundsBox> bounds;
    std::unique_ptr<PointReader> current;
    size_t next = 0; // input to open when `current` ends
    std::atomic<uint64_t> readCount{0};
    std::atomic<uint64_t> outsideCount{0};
};
