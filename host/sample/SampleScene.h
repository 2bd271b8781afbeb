#pragma once

#include "readers/PointReader.h"
#include "sample/SampleTown.h"

// Points of a made-up little town by a river, for demonstrations and tests: terrain, water, streets and a bridge,
// houses with roofs and facades, a church, trees, hedges and parked cars.
//
// The scene always covers 400 by 300 metres; more points make it denser. Points come in the order in which an aircraft
// would scan them: six swaths to and fro, line by line. Coordinates are whole millimetres. Classes are those of LAS:
// 1 cars and parapets, 2 ground, 3 to 5 low, medium and high vegetation, 6 buildings, 9 water, 11 roads, 17 the bridge.
//
// Each point is a function of the number of points, the seed and its own index alone: the same whatever the batches
// are, and on every machine.
class SampleScene {
public:
    SampleScene(uint64_t points, uint64_t seed);

    [[nodiscard]] uint64_t size() const { return count; }

    // Smallest x, y, z, then largest, of a box around all points; not the tightest.
    [[nodiscard]] std::array<double, 6> bounds() const;

    // Replaces the contents of `batch` by the points [first, first + points), or what there is of them. May be called
    // from any number of threads at once, each with a batch of its own.
    void fill(PointBatch& batch, uint64_t first, size_t points) const;

private:
    uint64_t count;
    uint64_t seed;
    SampleTown town;
};
