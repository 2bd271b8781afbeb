#include "viewer/Camera.h"

#include <glm/trigonometric.hpp>
#include <gtest/gtest.h>

#include <numbers>
#include <random>

static constexpr PixelSize SIZE{800, 600};
static constexpr double QUARTER = std::numbers::pi / 2.0;

static void expectNear(const glm::dvec3& expected, const glm::dvec3& actual, double tolerance = 1e-9) {
    EXPECT_NEAR(expected.x, actual.x, tolerance);
    EXPECT_NEAR(expected.y, actual.y, tolerance);
    EXPECT_NEAR(expected.z, actual.z, tolerance);
}

static void expectPixel(const Camera& camera, const glm::dvec3& point, double x, double y) {
    const auto pixel = camera.project(point, SIZE);
    ASSERT_TRUE(pixel.has_value());
    EXPECT_NEAR(x, pixel->x, 1e-6);
    EXPECT_NEAR(y, pixel->y, 1e-6);
}

// Where the matrices that the engine gets put a point, in pixels from the upper left corner.
static glm::dvec2 pixelByMatrices(const Camera& camera, const glm::dvec3& point, const Box& scene) {
    const glm::dvec4 clip =
        camera.projectionMatrix(SIZE.aspect(), scene) * camera.viewMatrix() * glm::dvec4(point, 1.0);
    return {(clip.x / clip.w + 1.0) / 2.0 * SIZE.width, (1.0 - clip.y / clip.w) / 2.0 * SIZE.height};
}

static std::vector<glm::dvec3> randomPoints(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-50.0, 50.0);
    std::vector<glm::dvec3> points;
    points.reserve(200);
    for (int i = 0; i < 200; ++i) points.emplace_back(place(random), place(random) * 0.3, place(random) * 0.1);
    return points;
}

// 90 degrees: half the picture's height is as long as the distance.
static Camera rightAngled(const glm::dvec3& eye, const glm::dvec3& target) {
    Camera camera;
    camera.setFieldOfView(QUARTER);
    camera.lookAt(eye, target);
    return camera;
}

TEST(Camera, ProjectsByHand) {
    const Camera camera = rightAngled({0.0, -10.0, 0.0}, {0.0, 0.0, 0.0}); // looks along +y
    expectPixel(camera, {0.0, 0.0, 0.0}, 400.0, 300.0);
    expectPixel(camera, {0.0, 0.0, 10.0}, 400.0, 0.0);
    expectPixel(camera, {5.0, 0.0, -5.0}, 550.0, 450.0);
    EXPECT_FALSE(camera.project({0.0, -11.0, 0.0}, SIZE).has_value()) << "behind the eye";
}

TEST(Camera, MatricesAgreeWithProjectionAndItsInverse) {
    Camera camera = rightAngled({30.0, -80.0, 45.0}, {1.0, 2.0, 3.0});
    camera.setFieldOfView(0.7);
    const auto points = randomPoints(1);
    for (const glm::dvec3& point : points) {
        const auto pixel = camera.project(point, SIZE);
        ASSERT_TRUE(pixel.has_value());
        const glm::dvec2 other = pixelByMatrices(camera, point, Box::around(points));
        EXPECT_NEAR(pixel->x, other.x, 1e-6);
        EXPECT_NEAR(pixel->y, other.y, 1e-6);
        expectNear(point, camera.pointAtDepthOf(point, *pixel, SIZE), 1e-7);
    }
}

TEST(Camera, StandardViewsLookTheirWays) {
    const std::tuple<StandardView, glm::dvec3, glm::dvec3> cases[] = {
        {StandardView::TOP, {0.0, 0.0, -1.0}, {1.0, 0.0, 0.0}},
        {StandardView::FRONT, {0.0, 1.0, 0.0}, {1.0, 0.0, 0.0}},
        {StandardView::SIDE, {-1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}},
    };
    for (const auto& [view, forward, right] : cases) {
        Camera camera;
        camera.setView(view);
        expectNear(forward, camera.forward());
        expectNear(right, camera.right());
    }
    Camera camera;
    camera.setView(StandardView::ISO); // from the south-west above
    const glm::dvec3 forward = camera.forward();
    EXPECT_TRUE(forward.x > 0.0 && forward.y > 0.0 && forward.z < 0.0);
}

// All points are in the picture, and the nearest of the four edges, or its opposite, is close: nothing is wasted.
TEST(Camera, FitFillsThePicture) {
    for (const StandardView view : {StandardView::TOP, StandardView::FRONT, StandardView::SIDE, StandardView::ISO}) {
        const auto points = randomPoints(2);
        Camera camera;
        camera.setView(view);
        camera.fit(points, SIZE.aspect());
        glm::dvec2 low(1e9);
        glm::dvec2 high(-1e9);
        for (const glm::dvec3& point : points) {
            const auto pixel = camera.project(point, SIZE);
            ASSERT_TRUE(pixel.has_value());
            low = glm::min(low, *pixel);
            high = glm::max(high, *pixel);
        }
        EXPECT_GE(std::min(low.x, low.y), 0.0);
        EXPECT_LE(high.x, SIZE.width);
        EXPECT_LE(high.y, SIZE.height);
        const double share = std::max((high.x - low.x) / SIZE.width, (high.y - low.y) / SIZE.height);
        EXPECT_NEAR(1.0 / 1.04, share, 1e-6) << "one pair of edges is at the margin";
        const bool isWide = (high.x - low.x) / SIZE.width > (high.y - low.y) / SIZE.height;
        EXPECT_NEAR(isWide ? SIZE.width : SIZE.height, isWide ? low.x + high.x : low.y + high.y, 1e-6)
            << "and leaves as much on either side";
    }
}

TEST(Camera, OrbitKeepsThePivotInItsPixelAndDistance) {
    Camera camera = rightAngled({10.0, -40.0, 20.0}, {0.0, 0.0, 0.0});
    const glm::dvec3 pivot{5.0, 1.0, 2.0}; // not in the middle
    camera.setPivot(pivot);
    const auto before = camera.project(pivot, SIZE);
    const double distance = glm::length(camera.eye() - pivot);
    for (int i = 0; i < 1000; ++i) camera.orbit(0.3, i % 2 == 0 ? 0.2 : -0.25);
    expectPixel(camera, pivot, before->x, before->y);
    EXPECT_NEAR(distance, glm::length(camera.eye() - pivot), 1e-9);
    EXPECT_EQ(pivot, camera.pivot());
    EXPECT_NEAR(0.0, camera.right().z, 1e-12) << "the horizon stays level";
    camera.setPivot(camera.eye() + camera.forward());
    camera.orbit(0.0, -100.0);
    expectNear({0.0, 0.0, -1.0}, camera.forward());
    expectNear(camera.pivot() + glm::dvec3(0.0, 0.0, 1.0), camera.eye());
}

TEST(Camera, PansAndZoomsByWhatLiesUnderTheCursor) {
    Camera camera = rightAngled({0.0, -10.0, 0.0}, {0.0, 0.0, 0.0});
    const glm::dvec3 atPivotsDepth{2.0, 0.0, 1.0};
    const auto first = camera.project(atPivotsDepth, SIZE);
    camera.pan({30.0, -12.0}, SIZE);
    expectPixel(camera, atPivotsDepth, first->x + 30.0, first->y - 12.0);
    const glm::dvec3 anchor{3.0, 2.0, -1.0};
    const auto before = camera.project(anchor, SIZE);
    const double distance = glm::length(camera.eye() - anchor);
    camera.zoom(0.5, anchor);
    expectPixel(camera, anchor, before->x, before->y);
    EXPECT_NEAR(distance / 2.0, glm::length(camera.eye() - anchor), 1e-12);
    for (int i = 0; i < 10000; ++i) camera.zoom(0.5, anchor);
    EXPECT_GT(glm::length(camera.eye() - anchor), 0.0) << "never arrives";
    for (int i = 0; i < 10000; ++i) camera.zoom(2.0, anchor);
    EXPECT_LT(glm::length(camera.eye() - anchor), 1e8) << "never gets lost";
}

// Every corner in front of the eye is between the clip distances, wherever the eye is.
TEST(Camera, ClipDistancesHoldTheScene) {
    Box scene;
    scene.include({-50.0, -50.0, 0.0});
    scene.include({50.0, 50.0, 10.0});
    for (const glm::dvec3& eye :
         {glm::dvec3(0.0, -300.0, 50.0), glm::dvec3(0.0, 0.0, 2.0), glm::dvec3(0.0, 900.0, 1.0)}) {
        const Camera camera = rightAngled(eye, eye + glm::dvec3(0.0, 1.0, 0.0));
        const glm::dmat4 matrix = camera.projectionMatrix(SIZE.aspect(), scene) * camera.viewMatrix();
        for (size_t corner = 0; corner < 8; ++corner) {
            const glm::dvec4 clip = matrix * glm::dvec4(scene.corner(corner), 1.0);
            if (clip.w <= 0.0) continue;
            EXPECT_LT(std::abs(clip.z), clip.w);
        }
    }
}
