#include "build/OPCSparseGrid.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

OPCPoint at(double x, double y, double z) {
    OPCPoint point;
    point.x = x;
    point.y = y;
    point.z = z;
    return point;
}

TEST(OPCSparseGrid, GivesEachCellToTheFirstPoint) {
    OPCSparseGrid grid(10, 10, 10, 0, 0, 0, 1.0);
    EXPECT_TRUE(grid.addPoint(at(1.9, 2.9, 3.9)));
    EXPECT_FALSE(grid.addPoint(at(1.0, 2.0, 3.0)));
    EXPECT_TRUE(grid.addPoint(at(2.0, 2.0, 3.0)));
    EXPECT_FALSE(grid.addPoint(at(0, 0, -100))) << "a negative index";
    EXPECT_FALSE(grid.addPoint(at(0, 0, 1000))) << "beyond the index space";
    EXPECT_TRUE(grid.addPoint(at(10.0, 4.5, 5.5)));
    EXPECT_FALSE(grid.addPoint(at(0.5, 5.5, 5.5))) << "the far face shares cells with the next row";
}

TEST(OPCSparseGrid, AnswersAlikeAsBitmapAndAsSet) {
    OPCSparseGrid bitmap(749, 749, 749, 0, 0, 0, 1.0); // 750 cubed cells
    OPCSparseGrid set(749, 749, 750, 0, 0, 0, 1.0);
    EXPECT_TRUE(bitmap.usesBitmap());
    EXPECT_FALSE(set.usesBitmap());
    std::mt19937 random(1);
    std::uniform_real_distribution<double> few(0.0, 20.0);
    for (int i = 0; i < 20000; ++i) {
        const OPCPoint point = at(few(random), few(random), few(random));
        ASSERT_EQ(bitmap.addPoint(point), set.addPoint(point)) << i;
    }
}

TEST(OPCSparseGrid, SurvivesNumbersThatAreNone) {
    constexpr double INF = std::numeric_limits<double>::infinity();
    for (const double odd : {INF, -INF, std::nan(""), 1e300, 0.0}) {
        OPCSparseGrid grid(odd, 1, 1, 0, 0, 0, odd);
        grid.addPoint(at(odd, 0.5, -odd));
        OPCSparseGrid small(1, 1, 1, 0, 0, 0, 0.1);
        small.addPoint(at(odd, odd, odd));
    }
}

} // namespace
