// Cameras and point queries, without a picture.

#include "engine/EngineTest.h"
#include "ground/Pools.h"
#include "render/VisibilityPass.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "support/BlockedPool.h"

#include <cmath>
#include <glm/gtc/matrix_transform.hpp>
#include <limits>

namespace {

// The small cloud: a root of two points over two children of one point each, in a box of 8 by 4 by 2.
class CameraTest : public EngineTest {
protected:
    // Looks down from z 12, at an offset in X.
    void look(int window, double x, bool wait) {
        const glm::dvec3 eye(4.0 + x, 2.0, 12.0);
        const glm::dmat4 view = glm::translate(glm::dmat4(1.0), -eye);
        setCamera(window, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), 60.0, 10, wait);
    }
    // Whatever size its nodes have on the screen.
    static void showAllOf(int id) {
        setPointCloudProperties(id, 10000, 0, 0, 0, 0, 2, 5, 0, 0, 0, 0, 0, 100, 20, 2, 0);
    }
    OPCInterface& node(int i) { return *pointClouds[0]->getOPC().getNode(i); }

    // The id that findWorldPoint gives; what it says of the point is in `found`, all -1 where there is none.
    int find(const glm::dvec3& place, double reach = 10.0) {
        found = {{-1, -1, -1, reach}, {}};
        const NimbrelMatrix same = byValue(glm::dmat4(1.0));
        return findWorldPoint(same, same, glm::value_ptr(place), found.result.data(), found.colour.data());
    }
    struct {
        std::array<double, 4> result;
        std::array<unsigned char, 5> colour;
    } found;

    const glm::dmat4 projection = glm::ortho(-4.0, 4.0, -2.0, 2.0, 1.0, 21.0);
};

} // namespace

TEST_F(CameraTest, LoadsWhatAWindowSees) {
    loadSmallCloud();
    EXPECT_EQ(0, getWindowPointCount(0));
    showAllOf(0);
    look(0, 0.0, true);
    EXPECT_EQ(4, getWindowPointCount(0));
    EXPECT_EQ(0, getWindowPointCount(1));
    look(0, 1000.0, true);
    EXPECT_EQ(0, getWindowPointCount(0));
    EXPECT_FALSE(node(0).existingBatch(0)->isResident());
}

TEST_F(CameraTest, ReplacesACameraThatWaitsApartFromWindow0) {
    BlockedPool blocked(cachePool);
    look(2, 0.0, true); // returns although the job can't run: no cloud is open
    EXPECT_EQ(2, cachePool.outstandingJobs());
    loadSmallCloud();
    for (int i = 0; i < 3; ++i) look(2, i == 2 ? 0.0 : 1000.0, false);
    EXPECT_EQ(2, cachePool.outstandingJobs());
    look(3, 1000.0, false); // another window, with values of its own
    EXPECT_EQ(3, cachePool.outstandingJobs());
    look(0, 0.0, false);
    look(0, 1000.0, false);
    EXPECT_EQ(5, cachePool.outstandingJobs());
    blocked.finish();
    EXPECT_TRUE(node(0).isVisible(2)) << "the newest";
    EXPECT_FALSE(node(0).isVisible(3));
    EXPECT_FALSE(node(0).isVisible(0)) << "both ran, the newer last";
}

TEST_F(CameraTest, HonoursTheClipBoxOfTheCall) {
    const glm::dvec3 low(100), high(101);
    loadSmallCloud();
    BlockedPool blocked(cachePool);
    clipTo(low, high, 0);
    look(1, 0.0, false);
    clipTo(low, high, 1); // hides nothing
    look(2, 0.0, false);
    clipBox.setActive(false);
    look(3, 0.0, false);
    blocked.finish();
    EXPECT_FALSE(node(0).isVisible(1));
    EXPECT_TRUE(node(0).isVisible(2));
    EXPECT_TRUE(node(0).isVisible(3));
    setPointCloudProperties(0, 30, 0, 0, 0, 1, 2, 5, 0, 0, 0, 0, 0, 100, 20, 2, 0);
    clipTo(low, high, 0);
    look(1, 0.0, true);
    EXPECT_TRUE(node(0).isVisible(1)) << "the cloud ignores it";
    clipBox.setActive(false);
}

TEST_F(CameraTest, StoresFacesSoThatOppositeOnesFollowEachOther) {
    double planes[36];
    for (int i = 0; i < 36; ++i) planes[i] = i;
    const float tint[] = {1, 2, 3, 4};
    activateClipBox(planes, tint, 2);
    EXPECT_EQ(glm::dvec3(0, 1, 2), clipBox.getClipPlanes()[0]);
    EXPECT_EQ(glm::dvec3(18, 19, 20), clipBox.getClipPlanes()[2]);
    EXPECT_EQ(glm::dvec3(9, 10, 11), clipBox.getClipPlanes()[5]);
    EXPECT_EQ(glm::dvec3(33, 34, 35), clipBox.getClipPlanes()[11]);
    EXPECT_EQ(2, clipBox.getClipMode());
    EXPECT_TRUE(clipBox.isActive());
    clipBox.setActive(false);
}

TEST_F(CameraTest, MeetsBoxesWithTheGivenView) {
    const int id = loadSmallCloud();
    const auto meets = [&](int cloud, double x, int number) {
        const glm::dmat4 view = glm::translate(glm::dmat4(1.0), {-4.0 - x, -2.0, -12.0});
        return isNodeInFrustum(cloud, glm::value_ptr(view), glm::value_ptr(projection), number);
    };
    EXPECT_TRUE(meets(id, 0.0, 0));
    EXPECT_FALSE(meets(id, 9.0, 0)); // the sphere reaches to 4 + 4.58
    EXPECT_TRUE(meets(id, 8.5, 0));
    EXPECT_FALSE(meets(id, 6.1, 1)) << "from 2 on; the left child's sphere ends before";
    EXPECT_TRUE(meets(id, 6.1, 2));
    for (const int number : {-1, 3}) EXPECT_FALSE(meets(id, 0.0, number));
    EXPECT_FALSE(meets(id + 1, 0.0, 0));
    setPointCloudPosition(id, glm::value_ptr(glm::translate(glm::dmat4(1.0), {9.0, 0.0, 0.0})));
    EXPECT_TRUE(meets(id, 9.0, 0));
}

TEST_F(CameraTest, MakesPlanesThatPointInwards) {
    const auto planes = frustumPlanes(glm::scale(glm::dmat4(1.0), {0.5, 0.5, 0.5})); // from -2 to 2
    for (size_t i = 0; i < 6; ++i) {
        for (size_t axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(axis != i / 2 ? 0.0 : i % 2 == 0 ? 1.0 : -1.0, planes[4 * i + axis]) << i;
        }
        EXPECT_EQ(2.0, planes[4 * i + 3]);
    }
}

TEST_F(CameraTest, SurvivesValuesThatAreNoCamera) {
    loadSmallCloud();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double values[16] = {nan, nan, 1e308, 0};
    for (const int viewSize : {0, -1, std::numeric_limits<int>::min()}) {
        setCamera(-5, values, values, values, nan, viewSize, true);
        setCamera(1, values, glm::value_ptr(projection), values, 1e308, viewSize, true);
    }
    EXPECT_EQ(0, getWindowPointCount(-5));
}

TEST_F(CameraTest, PassesOverMissingBuffers) {
    const int id = loadSmallCloud();
    const double* camera = glm::value_ptr(projection);
    setCamera(0, nullptr, camera, camera, 45, 100, true);
    setRenderCamera(0, camera, camera, nullptr, nullptr, 0, nullptr);
    EXPECT_FALSE(isNodeInFrustum(id, camera, nullptr, 0));
    activateShader(nullptr, nullptr, 0, 0, 1, 0, false, nullptr, nullptr, nullptr);
    activateClipBox(nullptr, nullptr, 0);
    setLasClassifications(nullptr);
    EXPECT_EQ(-1, findClosestPoint({}, {}, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ(-1, findWorldPoint({}, {}, nullptr, nullptr, nullptr));
    getWindowPoints(0, nullptr, nullptr, 0, 1);
}

// ---- Point queries

TEST_F(CameraTest, FindsTheNearestPointToAPlace) {
    const int id = loadSmallCloud("first");
    showAllOf(id);
    setPointCloudPosition(id, glm::value_ptr(glm::translate(glm::dmat4(1.0), {100.0, 0.0, 0.0})));
    setScale(id, 2.0);
    look(0, 100.0, true);
    EXPECT_EQ(id, find({102.1, 4.0, 1.0}));
    EXPECT_NEAR(102.0, found.result[0], 1e-6); // the root's first point, at 1, 2, 0.5
    EXPECT_NEAR(4.0, found.result[1], 1e-6);
    EXPECT_NEAR(0.05, found.result[3], 1e-6) << "as the file has it";
    EXPECT_EQ((std::array<unsigned char, 5>{10, 11, 12, 13, 14}), found.colour);

    EXPECT_EQ(-1, find({102.1, 4.0, 1.0}, found.result[3])) << "not nearer than what is accepted";
    EXPECT_EQ(-1.0, found.result[0]);
    EXPECT_EQ(-1, find({99.0, 4.0, 1.0})) << "in no node";
    setEnabled(id, false);
    EXPECT_EQ(-1, find({102.1, 4.0, 1.0}));
}

TEST_F(CameraTest, FindsPointsOfTheFirstCloudInsideTheClipBox) {
    const int first = loadSmallCloud("first");
    const int second = loadSmallCloud("second");
    look(0, 0.0, true);
    diskPool().WaitAll();
    EXPECT_EQ(first, find({1.1, 2.0, 0.5})) << "both are as near";
    EXPECT_EQ(10, found.colour[0]);
    setEnabled(first, false);
    EXPECT_EQ(second, find({1.1, 2.0, 0.5}));
    clipTo({-1, -1, -1}, {0.5, 9, 9}, 0);
    EXPECT_EQ(second, find({1.1, 2.0, 0.5}));
    EXPECT_EQ(20, found.colour[0]) << "the root's second point, near the corner";
    EXPECT_TRUE(clipBox.isActive()) << "a query disarms nothing";
    clipBox.setActive(false);
}

TEST_F(CameraTest, ListsThePointsOfAWindowInTheCoordinatesOfTheFile) {
    const int id = loadSmallCloud();
    setScale(id, 2.0);
    showAllOf(id);
    look(0, 0.0, true);
    const int count = getWindowPointCount(0);
    ASSERT_EQ(4, count);
    double positions[15];
    char colours[25];
    std::fill(std::begin(positions), std::end(positions), -7.0);
    std::fill(std::begin(colours), std::end(colours), '\7');
    getWindowPoints(0, positions, colours, 0, 5);
    EXPECT_NEAR(1.0, positions[0], 1e-6);
    EXPECT_NEAR(6.0, positions[9], 1e-6) << "in the second child, whose corner is at 4";
    EXPECT_EQ(-7.0, positions[12]);
    EXPECT_EQ(40, colours[15]);
    EXPECT_EQ(7, colours[20]);
    setEnabled(id, false);
    EXPECT_EQ(0, getWindowPointCount(0));
}
