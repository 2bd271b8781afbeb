#include "viewer/PointSizing.h"

#include <gtest/gtest.h>

#include <vector>

static constexpr PixelSize SIZE{160, 96};

// One covered pixel every `spacing` in both directions, in the left half only.
static std::vector<unsigned char> grid(int spacing) {
    std::vector<unsigned char> covered;
    for (int y = 0; y < SIZE.height; ++y) {
        for (int x = 0; x < SIZE.width; ++x) {
            covered.push_back(x < SIZE.width / 2 && x % spacing == 0 && y % spacing == 0 ? 1 : 0);
        }
    }
    return covered;
}

TEST(PointSizing, ClosesTheGapsOfTheCoveredPartAsFarAsItLooksLikeACloud) {
    EXPECT_EQ(2.0, choosePointSize(grid(1), SIZE));
    EXPECT_EQ(4.0, choosePointSize(grid(2), SIZE));
    for (const int spacing : {4, 16}) EXPECT_EQ(5.0, choosePointSize(grid(spacing), SIZE)) << spacing;
    std::vector<unsigned char> covered(160 * 96, 0);
    EXPECT_EQ(2.0, choosePointSize(covered, SIZE)) << "an empty picture";
    // A thin line covers little of its tiles, but has no gaps.
    for (size_t x = 0; x < 160; ++x) covered[40 * 160 + x] = 1;
    EXPECT_EQ(2.0, choosePointSize(covered, SIZE));
}
