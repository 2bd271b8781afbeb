#include "stream/StreamTest.h"
#include "stream/ViewCriteria.h"

#include <cmath>
#include <tuple>

namespace {

// A root of 150 by 75 by 75 over two cubes of side 75: node 1 at x 0 to 75, and node 2, above a third.
PointFileMaker cubes(int pointsInRoot, double originX = 0.0) {
    PointFileMaker maker(17);
    maker.box = {originX, 0, 0, originX + 150, 75, 75};
    const Bytes point = fixedPoint(1, 2, 3, 10);
    maker.add({.mask = 7, .pointCount = pointsInRoot, .stored = pointsInRoot > 0 ? point : Bytes{}});
    maker.add({.mask = 4, .pointCount = 1, .stored = point});
    maker.add({.mask = 5, .pointCount = 1, .stored = point});
    maker.add({.mask = 4, .pointCount = 1, .stored = point});
    return maker;
}

class Visibility : public StreamTest {
protected:
    Visibility() {
        for (size_t plane = 0; plane < 6; ++plane) view.planes[4 * plane + 3] = 1.0; // everything is inside
        view.viewHeight = 1000;
        view.lodFactor = 30;
        view.fov = 1.0F;
    }

    void check(int window) {
        view.window = window;
        node(0).checkVisibility(view, true);
    }
    std::vector<int> seenBy(int window) {
        std::vector<int> seen;
        for (int i = 0; opc->getNode(i); ++i) {
            if (node(i).isVisible(window)) seen.push_back(i);
        }
        return seen;
    }
    // Puts everything beyond the first plane.
    void lookAway() { view.planes[3] = -1e9; }

    ViewCriteria view;
};

using Nodes = std::vector<int>;

} // namespace

TEST_F(Visibility, ShowsANodeWhoseSpacingIsCoarserThanAPixel) {
    open(cubes(1));
    // World size 0.5 * (lod + 0.1) / 100; a pixel is 2 tan(0.5) / 1000 of the distance.
    const std::tuple<double, double, bool> cases[] = {
        {30, 100.0, true},  {30, 137.74, true},   {30, 137.75, false},
        {30, 200.0, false}, {43.6, 200.0, false}, {43.7, 200.0, true}, // 0.2185 and 0.219 against a pixel of 0.2185210
        {-0.1, 0.0, false},                                            // no size at all: equal is not coarser
    };
    for (const auto& [lod, distance, expected] : cases) {
        view.lodFactor = lod;
        view.eye = {37.5, 37.5, 37.5 + distance, 1.0};
        check(0);
        EXPECT_EQ(expected, node(1).isVisible(0)) << lod << ", " << distance;
        EXPECT_TRUE(node(0).isVisible(0)) << "the root, however far";
    }
}

// At 100,000,000 a 32-bit float has steps of 8, so that eye and centre, 3.5 apart, fall together.
TEST_F(Visibility, MeasuresTheDistanceIn32Bits) {
    open(cubes(1, 1e8));
    view.lodFactor = 0;
    view.eye = {1e8 + 41.0, 37.5, 37.5, 1.0};
    check(0);
    EXPECT_TRUE(node(1).isVisible(0));
    view.eye = {1e8 + 45.0, 37.5, 37.5, 1.0}; // rounds to the next step
    check(0);
    EXPECT_FALSE(node(1).isVisible(0));
}

TEST_F(Visibility, CountsATouchingSphereAsInside) {
    open(cubes(1));
    const double radius = double{static_cast<float>(std::sqrt(3 * 75.0 * 75.0) * 0.5)};
    for (size_t plane = 0; plane < 6; ++plane) {
        std::array<double, 24> planes = view.planes;
        planes[4 * plane] = 1.0;
        planes[4 * plane + 3] = -37.5 - radius;
        EXPECT_TRUE(node(1).isNodeInFrustum(planes.data())) << plane;
        planes[4 * plane + 3] = std::nextafter(planes[4 * plane + 3], -1e9);
        EXPECT_FALSE(node(1).isNodeInFrustum(planes.data())) << plane;
    }
}

TEST_F(Visibility, LooksBelowANodeWithoutPoints) {
    open(cubes(0));
    view.eye = {75, 37.5, 1e6, 1.0};
    check(0);
    EXPECT_EQ((Nodes{0, 1, 2}), seenBy(0)); // the root's children pass, their own do not
    view.planes = {1, 0, 0, -103.0};        // x of 103 and more: the first cube's sphere ends before
    for (size_t plane = 1; plane < 6; ++plane) view.planes[4 * plane + 3] = 1.0;
    check(0);
    EXPECT_EQ((Nodes{0, 2}), seenBy(0)) << "the frustum counts all the same";
}

TEST_F(Visibility, LeavesOutWhatIsClippedAway) {
    open(cubes(1));
    view.eye = {75, 37.5, 37.5, 1.0};
    view.clips = [](const double* centre, double radius) {
        EXPECT_GT(radius, 0.0);
        return centre[0] > 100.0;
    };
    check(0);
    EXPECT_EQ((Nodes{0, 1}), seenBy(0));
    view.clips = [](const double*, double) { return true; };
    check(0);
    EXPECT_EQ(Nodes{}, seenBy(0)) << "the root too";
}

TEST_F(Visibility, KeepsWhatAnotherWindowSees) {
    open(cubes(1));
    view.eye = {75, 37.5, 37.5, 1.0};
    check(0);
    check(2);
    load(0);
    lookAway();
    check(2);
    EXPECT_EQ(Nodes{}, seenBy(2));
    EXPECT_EQ((Nodes{0, 1, 2, 3}), seenBy(0));
    EXPECT_TRUE(node(3).getGPUBatch(0)->isResident());
    check(0);
    EXPECT_EQ(Nodes{}, seenBy(0));
    for (int i = 0; i < 4; ++i) EXPECT_FALSE(node(i).getGPUBatch(0)->isResident()) << i;
}

TEST_F(Visibility, HasNoBitForWindowsBeyondSeven) {
    open(cubes(1));
    check(7);
    EXPECT_TRUE(node(0).isVisible(7));
    node(0).clearWindowVisibility();
    for (const int window : {8, 31, 1000, -1}) {
        check(window);
        EXPECT_FALSE(node(0).isVisibleAnyWindows()) << window;
    }
}

TEST_F(Visibility, CountsAndListsTheResidentPointsOfAWindow) {
    open(cubes(1));
    view.eye = {75, 37.5, 37.5, 1.0};
    check(0);
    load(0);
    int64_t count = 0;
    node(0).getWindowPointCount(0, &count);
    EXPECT_EQ(4, count);
    node(0).getWindowPointCount(1, &count);
    EXPECT_EQ(4, count) << "adds, and this window sees nothing";
    const std::tuple<int64_t, int64_t, int64_t> parts[] = {{0, 0, 0}, {0, 2, 2},  {3, 9, 1},
                                                           {4, 9, 0}, {-1, 2, 2}, {0, -1, 0}};
    std::array<double, 12> positions{};
    for (const auto& [start, room, expected] : parts) {
        std::array<char, 20> colours{};
        PointListing listing{positions.data(), colours.data(), start, room};
        node(0).getWindowPoints(0, listing);
        EXPECT_EQ(expected, listing.written) << start << ", " << room;
        EXPECT_EQ(expected > 0, colours[0] != 0);
    }
    node(2).unload(false);
    count = 0;
    node(0).getWindowPointCount(0, &count);
    EXPECT_EQ(2, count) << "not below a node that is gone";
    std::array<char, 20> colours{};
    PointListing listing{positions.data(), colours.data(), 0, 4};
    node(0).getWindowPoints(0, listing);
    EXPECT_EQ(3, listing.written) << "below it";
    EXPECT_EQ(75.0 + double{0.0001F}, positions[6]);
    EXPECT_EQ(14, colours[14]);
}

TEST_F(Visibility, WalksAChainOf200000Nodes) {
    PointFileMaker chain(17);
    for (int i = 0; i < 199999; ++i) chain.add({.mask = 1});
    chain.add({.mask = 4});
    open(chain);
    check(3);
    EXPECT_TRUE(node(199999).isVisible(3)) << "no node has points to hide the next";
    lookAway();
    check(3);
    EXPECT_FALSE(node(199999).isVisibleAnyWindows());
}
