#include "edit/PolygonSelection.h"

#include <glm/gtc/matrix_transform.hpp>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <tuple>

namespace {

constexpr int VIEWPORT[] = {0, 0, 100, 100};
// From (20, 10) to (60, 50), y from the top.
constexpr int SQUARE[] = {20, 10, 60, 10, 60, 50, 20, 50};

// Ten pixels a unit; z from 0 near to -20 far.
glm::dmat4 flat() {
    return glm::ortho(0.0, 10.0, 0.0, 10.0, 0.0, 20.0);
}

} // namespace

TEST(PolygonSelection, ProjectsToTheScreenAndBack) {
    constexpr int shifted[] = {5, 7, 100, 50};
    const PolygonSelection screen(flat(), shifted, {});
    EXPECT_EQ(glm::dvec4(5 + 25, 7 + 10, 0.5, 0.5), screen.project({2.5, 2.0, -10.0, 1.0}));
    const glm::dvec4 back = screen.unProject({30, 17, 0.5, 99.0});
    EXPECT_NEAR(2.5, back.x, 1e-12);
    EXPECT_NEAR(2.0, back.y, 1e-12);
    EXPECT_NEAR(-10.0, back.z, 1e-12);
    EXPECT_EQ(1.0, back.w);
    const PolygonSelection perspective(glm::perspective(1.0, 1.0, 1.0, 100.0), VIEWPORT, {});
    EXPECT_DOUBLE_EQ(0.5 / 8.0, perspective.project({0, 0, -8, 1}).w);
}

TEST(PolygonSelection, TestsSpheres) {
    const PolygonSelection screen(flat(), VIEWPORT, SQUARE);
    const std::tuple<const char*, glm::dvec3, double, PolygonSelection::Test> cases[] = {
        {"wholly inside", {4, 7, -1}, 1.9, PolygonSelection::INSIDE},
        {"cut by an edge", {4, 7, -1}, 2.1, PolygonSelection::CUT},
        {"cut from outside", {1, 7, -1}, 1.1, PolygonSelection::CUT},
        {"outside", {1, 7, -1}, 0.9, PolygonSelection::OUTSIDE},
        {"outside by a corner", {9, 1, -1}, 4.9, PolygonSelection::OUTSIDE},
        {"cut by a corner", {9, 1, -1}, 5.1, PolygonSelection::CUT},
    };
    for (const auto& [name, p, radius, expected] : cases) {
        EXPECT_EQ(expected, screen.intersectionTest(p.x, p.y, p.z, radius)) << name;
    }
    EXPECT_EQ(PolygonSelection::OUTSIDE, PolygonSelection(flat(), VIEWPORT, {}).intersectionTest(4, 7, -1, 1e9));
    EXPECT_EQ(99999999999.0, PolygonSelection::distanceToSegment({1, 1}, {1, 1}, {1, 1})) << "a repeated corner";
    const PolygonSelection degenerate(glm::dmat4(0.0), VIEWPORT, SQUARE);
    EXPECT_EQ(PolygonSelection::CUT, degenerate.intersectionTest(4, 7, -1, 1.0)) << "not finite";
}

TEST(PolygonSelection, SurvivesAnyNumbers) {
    constexpr int low = std::numeric_limits<int>::min();
    constexpr int high = std::numeric_limits<int>::max();
    constexpr int viewport[] = {low, high, low, high};
    constexpr int corners[] = {low, high, high, low, low, low, 7};
    const PolygonSelection screen(flat(), viewport, corners);
    for (const double v : {0.0, 1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        (void)screen.contains(v, v, v);
        (void)screen.intersectionTest(v, v, v, v);
    }
}

// Places on corners' heights and between them; the last polygon is one whose strips are made higher.
TEST(PolygonSelection, StripsGiveTheEvenOddRule) {
    std::mt19937 random(3);
    for (const size_t count : {0U, 1U, 2U, 3U, 4U, 17U, 60U, 6000U}) {
        for (const unsigned height : {3U, 90U, 100000U}) {
            std::vector<int> corners;
            for (size_t i = 0; i < count; ++i) {
                corners.push_back(static_cast<int>(random() % 100));
                corners.push_back(static_cast<int>(random() % height));
            }
            const PolygonSelection screen(flat(), VIEWPORT, corners);
            const PolygonStrips strips(screen.getCorners());
            for (int i = 0; i < 300; ++i) {
                const double x = static_cast<double>(random() % 220) * 0.5 - 5;
                const double y = 100.5 - static_cast<double>(random() % (2 * height + 4)) * 0.5;
                ASSERT_EQ(screen.pnpoly(x, y), strips.contains(x, y)) << count << " corners, " << x << ", " << y;
            }
            EXPECT_FALSE(strips.contains(50, std::numeric_limits<double>::quiet_NaN()));
        }
    }
}
