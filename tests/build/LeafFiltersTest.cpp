#include "build/LeafFilters.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

double squaredDistance(const BuildPoint& a, const BuildPoint& b) {
    double sum = 0;
    for (int axis = 0; axis < 3; ++axis)
        sum += (a.position[axis] - b.position[axis]) * (a.position[axis] - b.position[axis]);
    return sum;
}

// A leaf with dense clumps, a wall of equal x, coincident points and stragglers. The first two attributes number it.
std::vector<BuildPoint> leaf(unsigned seed, size_t count, double width) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<BuildPoint> points(count);
    for (size_t i = 0; i < count; ++i) {
        BuildPoint& point = points[i];
        for (double& ordinate : point.position) ordinate = unit(random) * width;
        if (i % 3 == 0) point.position[0] = width / 2;
        if (i % 5 == 0) std::for_each(point.position, point.position + 3, [&](double& o) { o = o * 0.05 + width / 3; });
        if (i % 7 == 0 && i > 0) std::copy_n(points[i - 1].position, 3, point.position);
        point.attributes[0] = static_cast<unsigned char>(i);
        point.attributes[1] = static_cast<unsigned char>(i >> 8);
    }
    return points;
}

std::vector<int> numbersOf(const std::vector<BuildPoint>& points) {
    std::vector<int> numbers;
    for (const BuildPoint& point : points) numbers.push_back(point.attributes[0] | point.attributes[1] << 8);
    return numbers;
}

TEST(LeafFilters, SnapRoundsHalvesAwayFromZero) {
    std::vector<BuildPoint> points{{{0.5, -0.5, 1.49999}, {}}, {{2.5, -3.5, 0.49999999999999994}, {}}};
    snapToGrid(points, 1.0);
    const std::vector<double> expected{1, -1, 1, 3, -4, 0};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(expected[i], points[i / 3].position[i % 3]) << i;
    std::vector<BuildPoint> fine{{{0.00014, 12345678.00016, 1e300}, {}}};
    snapToGrid(fine, 0.0001);
    EXPECT_EQ(1 * 0.0001, fine[0].position[0]);
    EXPECT_EQ(123456780002 * 0.0001, fine[0].position[1]);
    EXPECT_EQ(1e300, fine[0].position[2]);
}

// Every accepted point is visited from the last to the first, in order of x, as the filter is defined.
TEST(LeafFilters, DuplicatesAreThoseThatTestingEveryPairFinds) {
    for (const double radius : {0.01, 0.1, 0.5, 3.0, 1e-12}) {
        auto sorted = leaf(7, 1500, 4.0);
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const BuildPoint& a, const BuildPoint& b) { return a.position[0] < b.position[0]; });
        const auto limit = static_cast<float>(radius * radius);
        std::vector<BuildPoint> expected;
        for (const BuildPoint& point : sorted) {
            bool rejected = false;
            for (size_t i = expected.size(); i-- > 0 && !rejected;) {
                if (point.position[0] - expected[i].position[0] > radius) break;
                rejected = squaredDistance(point, expected[i]) < double{limit};
            }
            if (!rejected) expected.push_back(point);
        }
        EXPECT_EQ(numbersOf(expected), numbersOf(withoutDuplicates(leaf(7, 1500, 4.0), radius))) << radius;
    }
}

TEST(LeafFilters, NoiseIsWhatTestingEveryPairFinds) {
    for (const double radius : {0.02, 0.2, 0.9, 1e-9}) {
        const auto points = leaf(9, 1500, 4.0);
        const auto limit = static_cast<float>(radius * radius);
        std::vector<BuildPoint> expected;
        for (size_t i = 0; i < points.size(); ++i) {
            int near = 0;
            for (size_t k = 0; k < points.size(); ++k) {
                if (k != i && squaredDistance(points[i], points[k]) < double{limit}) ++near;
            }
            if (near >= 26) expected.push_back(points[i]);
        }
        EXPECT_EQ(numbersOf(expected), numbersOf(withoutNoise(points, radius))) << radius;
    }
}

TEST(LeafFilters, NoiseNeedsTwentySixNeighboursWithinTheRadius) {
    std::vector<BuildPoint> points(27);
    EXPECT_EQ(27U, withoutNoise(points, 0.5).size());
    points.back().position[1] = 0.5; // strictly nearer: at the radius does not count
    EXPECT_EQ(0U, withoutNoise(points, 0.5).size());
    EXPECT_EQ(0U, withoutNoise({}, 0.5).size());
}

} // namespace
