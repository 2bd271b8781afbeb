#include "CloudComparison.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <utility>

// The expected points in the order of their attributes and then of x, so that those that an actual one can be paired
// with follow each other. A free one is taken at once; where points lie as close as the tolerance, pairs are moved as in
// Kuhn's algorithm for matchings, until one is free.

namespace {
constexpr size_t NONE = SIZE_MAX;

// Below 0, 0 or above 0, as memcmp gives it for the attributes; where they are equal, x moved by `shift` decides.
double compare(const PointBatch& a, size_t i, const PointBatch& b, size_t j, double shift = 0) {
    const int attributes = std::memcmp(&a.attributes[i * 5], &b.attributes[j * 5], 5);
    return attributes != 0 ? attributes : a.positions[i * 3] + shift - b.positions[j * 3];
}

class Matcher {
public:
    Matcher(const PointBatch& expectedPoints, const PointBatch& actualPoints, double largestDifference)
        : expected(expectedPoints), actual(actualPoints), tolerance(largestDifference), order(expected.size()),
          partners(expected.size(), NONE), visits(expected.size(), NONE) {
        std::iota(order.begin(), order.end(), size_t{0});
        std::sort(order.begin(), order.end(),
                  [&](size_t i, size_t j) { return compare(expected, i, expected, j) < 0; });
    }

    size_t pairUp() {
        size_t pairs = 0;
        for (size_t a = 0; a < actual.size(); ++a) pairs += pair(a, a) ? 1 : 0;
        return pairs;
    }

private:
    [[nodiscard]] bool isNear(size_t e, size_t a) const {
        const double* p = &expected.positions[e * 3];
        const double* q = &actual.positions[a * 3];
        return std::max({std::abs(p[0] - q[0]), std::abs(p[1] - q[1]), std::abs(p[2] - q[2])}) <= tolerance;
    }

    // Whether `take` takes one of the expected points that may be a pair with the actual point `a`.
    template <class Take>
    bool anyCandidate(size_t a, Take take) const {
        const auto isTooLow = [&](size_t e, size_t) { return compare(expected, e, actual, a, tolerance) < 0; };
        auto at = std::lower_bound(order.begin(), order.end(), a, isTooLow);
        for (; at != order.end() && compare(expected, *at, actual, a, -tolerance) <= 0; ++at) {
            if (isNear(*at, a) && take(*at)) return true;
        }
        return false;
    }

    // Asks each expected point to move at most once a round.
    bool pair(size_t a, size_t round) {
        const auto take = [&](size_t e) {
            partners[e] = a;
            return true;
        };
        return anyCandidate(a, [&](size_t e) { return partners[e] == NONE && take(e); }) ||
               anyCandidate(a, [&](size_t e) {
                   return std::exchange(visits[e], round) != round && pair(partners[e], round) && take(e);
               });
    }

    const PointBatch& expected;
    const PointBatch& actual;
    const double tolerance;
    std::vector<size_t> order;    // of the expected points
    std::vector<size_t> partners; // the actual point of each expected one
    std::vector<size_t> visits;   // round in which an expected point was last asked to move
};
} // namespace

CloudDifference compareClouds(const PointBatch& expected, const PointBatch& actual, double tolerance) {
    const size_t pairs = Matcher(expected, actual, tolerance).pairUp();
    return {expected.size() - pairs, actual.size() - pairs};
}
