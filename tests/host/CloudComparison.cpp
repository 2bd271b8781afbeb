#include "CloudComparison.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>

// A hash table over cubes of space finds the partners that a point can have. Taking the nearest free one leaves few
// points alone; where points lie as close as the tolerance, an augmenting path (as in Kuhn's algorithm for matchings)
// then moves pairs until each leftover has a partner or none can be found.

namespace {
constexpr uint32_t NONE = UINT32_MAX;

class Matcher {
public:
    Matcher(const PointBatch& expectedPoints, const PointBatch& actualPoints, double largestDifference)
        : expected(expectedPoints), actual(actualPoints), tolerance(largestDifference),
          nextInChain(expected.size(), NONE), partnerOfExpected(expected.size(), NONE),
          partnerOfActual(actual.size(), NONE), visit(expected.size(), 0), cameFrom(expected.size(), NONE) {
        size_t buckets = 16;
        while (buckets < expected.size()) buckets *= 2;
        chains.assign(buckets, NONE);
        for (uint32_t i = 0; i < expected.size(); ++i) {
            uint32_t& chain = chains[bucketOf(cubeOf(&expected.positions[size_t{i} * 3], 0.0))];
            nextInChain[i] = chain;
            chain = i;
        }
    }

    size_t pairUp() {
        size_t pairs = 0;
        for (uint32_t i = 0; i < actual.size(); ++i) pairs += takeNearest(i) ? 1 : 0;
        for (uint32_t i = 0; i < actual.size(); ++i) {
            if (partnerOfActual[i] == NONE && augment(i)) ++pairs;
        }
        return pairs;
    }

private:
    using Cube = std::array<int64_t, 3>;

    [[nodiscard]] Cube cubeOf(const double* position, double shift) const {
        constexpr double CUBES_PER_TOLERANCE = 4.0; // so that most points are near no border of their cube
        Cube cube{};
        for (size_t axis = 0; axis < 3; ++axis) {
            cube[axis] = std::llround((position[axis] + shift) / (tolerance * CUBES_PER_TOLERANCE));
        }
        return cube;
    }

    [[nodiscard]] size_t bucketOf(const Cube& cube) const {
        uint64_t hash = 0;
        for (const int64_t value : cube) {
            hash = (hash ^ static_cast<uint64_t>(value)) * 0x9E3779B97F4A7C15ULL;
            hash ^= hash >> 29;
        }
        return hash & (chains.size() - 1);
    }

    // The largest difference of a coordinate; infinite for points that cannot be a pair.
    [[nodiscard]] double distance(uint32_t a, uint32_t e) const {
        if (std::memcmp(&actual.attributes[size_t{a} * 5], &expected.attributes[size_t{e} * 5], 5) != 0) {
            return INFINITY;
        }
        double largest = 0;
        for (size_t axis = 0; axis < 3; ++axis) {
            const double difference = actual.positions[size_t{a} * 3 + axis] - expected.positions[size_t{e} * 3 + axis];
            largest = std::max(largest, std::abs(difference));
        }
        return largest <= tolerance ? largest : INFINITY;
    }

    // Calls `see(e, distance)` for each expected point that may be a pair with the actual point `a`.
    template <class See>
    void forCandidates(uint32_t a, See see) const {
        const double* position = &actual.positions[size_t{a} * 3];
        const Cube low = cubeOf(position, -tolerance);
        const Cube high = cubeOf(position, tolerance);
        std::array<size_t, 8> seen{};
        size_t seenCount = 0;
        for (int64_t x = low[0]; x <= high[0]; ++x) {
            for (int64_t y = low[1]; y <= high[1]; ++y) {
                for (int64_t z = low[2]; z <= high[2]; ++z) {
                    const size_t bucket = bucketOf({x, y, z});
                    const auto end = seen.begin() + static_cast<std::ptrdiff_t>(seenCount);
                    if (std::find(seen.begin(), end, bucket) != end) continue;
                    seen[seenCount++] = bucket;
                    for (uint32_t e = chains[bucket]; e != NONE; e = nextInChain[e]) {
                        const double apart = distance(a, e);
                        if (apart <= tolerance) see(e, apart);
                    }
                }
            }
        }
    }

    bool takeNearest(uint32_t a) {
        uint32_t nearest = NONE;
        double least = INFINITY;
        forCandidates(a, [&](uint32_t e, double apart) {
            if (partnerOfExpected[e] != NONE || apart >= least) return;
            nearest = e;
            least = apart;
        });
        if (nearest == NONE) return false;
        pair(a, nearest);
        return true;
    }

    bool augment(uint32_t start) {
        ++round;
        std::vector<uint32_t> queue{start};
        for (size_t at = 0; at < queue.size(); ++at) {
            uint32_t found = NONE;
            forCandidates(queue[at], [&](uint32_t e, double) {
                if (visit[e] == round || found != NONE) return;
                visit[e] = round;
                cameFrom[e] = queue[at];
                if (partnerOfExpected[e] == NONE) {
                    found = e;
                } else {
                    queue.push_back(partnerOfExpected[e]);
                }
            });
            if (found == NONE) continue;
            flip(found, start);
            return true;
        }
        return false;
    }

    // Walks back from a free expected point, giving each actual point on the way the expected one that led on from it.
    void flip(uint32_t e, uint32_t start) {
        while (true) {
            const uint32_t a = cameFrom[e];
            const uint32_t before = partnerOfActual[a];
            pair(a, e);
            if (a == start) return;
            e = before;
        }
    }

    void pair(uint32_t a, uint32_t e) {
        partnerOfActual[a] = e;
        partnerOfExpected[e] = a;
    }

    const PointBatch& expected;
    const PointBatch& actual;
    const double tolerance;
    std::vector<uint32_t> chains;      // first expected point of each bucket
    std::vector<uint32_t> nextInChain; // of the same bucket
    std::vector<uint32_t> partnerOfExpected;
    std::vector<uint32_t> partnerOfActual;
    std::vector<uint32_t> visit;    // round in which an expected point was reached
    std::vector<uint32_t> cameFrom; // the actual point from which it was
    uint32_t round = 0;
};
} // namespace

CloudDifference compareClouds(const PointBatch& expected, const PointBatch& actual, double tolerance) {
    const size_t pairs = Matcher(expected, actual, tolerance).pairUp();
    return {expected.size() - pairs, actual.size() - pairs};
}

void maskAttributes(PointBatch& batch, const std::array<unsigned char, 5>& mask) {
    for (size_t i = 0; i < batch.attributes.size(); ++i) {
        batch.attributes[i] = static_cast<unsigned char>(batch.attributes[i] & mask[i % 5]);
    }
}
