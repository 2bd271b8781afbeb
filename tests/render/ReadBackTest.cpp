// What is read back from a frame: screenshots, and the point under the cursor.

#include "render/CursorSearch.h"
#include "render/FrameTest.h"

#include <filesystem>
#include <tuple>

namespace {

std::string textOf(const std::vector<unsigned char>& bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace

class ReadBack : public FrameTest {
protected:
    int find(int x, int yFromTop) {
        return findClosestPoint(byValue(view), byValue(projection), offscreen.data(), x, yFromTop, result.data(),
                                colour.data());
    }

    std::array<double, 4> result{-1, -2, -3, 1.0};
    std::array<unsigned char, 5> colour{7, 7, 7, 7, 7};
};

TEST_F(ReadBack, ScreenshotsAreTextOfTheCloudsBeforeTheyAreLit) {
    load({{0, 1, 0, {255, 0, 17, 1, 2}}});
    view = glm::translate(glm::dmat4(1.0), {0, 0, -12});
    projection = glm::ortho(0.0, 0.2, 0.0, 0.2, 1.0, 21.0); // two by two pixels, the last row first
    offscreen = {0, 0, 2, 2};
    look();
    lightState = 1;
    savePPMImage(dir.widePath("replaced.ppm").c_str());
    savePPMImage(dir.widePath("shot.ppm").c_str());
    frame();
    EXPECT_EQ("P3\n2 2\n255\n255 0 17 0 0 0 \n0 0 0 0 0 0 \n", textOf(dir.read("shot.ppm")));
    EXPECT_TRUE(dir.read("replaced.ppm").empty());
    std::filesystem::remove(dir.path("shot.ppm"));
    lightState = 2;
    frame();
    EXPECT_TRUE(dir.read("shot.ppm").empty()) << "one frame only";
    savePPMImage(dir.widePath("shot.ppm").c_str());
    frame();
    EXPECT_EQ("P3\n2 2\n255\n0 0 0 0 0 0 \n0 0 0 0 0 0 \n", textOf(dir.read("shot.ppm"))) << "blackened to shade";
}

TEST_F(ReadBack, ScreenshotsThatCannotBeMadeAreTold) {
    testing::internal::CaptureStdout();
    savePPMImage(dir.widePath("missing/shot.ppm").c_str());
    frame();
    savePPMImage(nullptr);
    frame();
    frame();
    EXPECT_EQ("Couldn't open file screenshot file\nCouldn't open file screenshot file\n",
              testing::internal::GetCapturedStdout());
}

TEST_F(ReadBack, FindsNothingBeforeTheFirstFrame) {
    load({{40, 20}});
    look();
    EXPECT_EQ(-1, find(40, 20));
    EXPECT_EQ((std::array<double, 4>{-1, -2, -3, 1.0}), result);
    HeadlessContext::makeNoneCurrent();
    EXPECT_EQ(-1, find(40, 20));
    context->makeCurrent();
}

TEST_F(ReadBack, FindsThePointNearestToTheCursor) {
    const int id = load({{40, 20, 10, {1, 2, 3, 4, 5}}, {41, 26, 10, {6, 7, 8, 9, 10}}});
    look();
    freshFrame();
    // Rows from the top: pixel row 20 lies at 20 or 19, and the search takes what is nearest.
    const std::tuple<int, int, int> cases[] = {{40, 20, 1}, {38, 22, 1}, {41, 13, 6}, {30, 10, 6}, {60, 22, 1}};
    for (const auto& [x, y, red] : cases) {
        result[3] = 1.0;
        EXPECT_EQ(id, find(x, y)) << x << ", " << y;
        EXPECT_EQ(red, colour[0]) << x << ", " << y;
        EXPECT_NEAR(red == 1 ? 4.05 : 4.15, result[0], 1e-6);
        EXPECT_NEAR(red == 1 ? 2.05 : 2.65, result[1], 1e-6);
        EXPECT_NEAR(1.0, result[2], 1e-6);
        EXPECT_LT(result[3], 0.1);
    }
    EXPECT_EQ(5, colour[4]);
}

TEST_F(ReadBack, FindsNothingFarFromAPoint) {
    load({{40, 20}});
    look();
    freshFrame();
    GLint before = 0, after = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &before);
    for (const auto& [x, y] : {std::pair(10, 20), {70, 20}, {0, 0}, {-1000, 100000}}) {
        result = {-1, -2, -3, 1.0};
        EXPECT_EQ(-1, find(x, y)) << x << ", " << y;
    }
    EXPECT_EQ(0.0, result[0]) << "the cursor, clamped to the picture";
    EXPECT_EQ(0.0, result[1]);
    EXPECT_EQ(1.0, result[2]);
    EXPECT_EQ(7, colour[0]);
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &after);
    EXPECT_EQ(before, after) << "the host's picture stays bound";
    EXPECT_EQ(static_cast<GLenum>(GL_NO_ERROR), glGetError());
}

TEST(CursorSearch, TakesTheFirstOfTheNearestCellsThatAreDrawn) {
    struct Cell {
        int column, row;
        float depth;
    };
    const std::tuple<const char*, std::vector<Cell>, CursorHit> cases[] = {
        {"the nearest", {{20, 25, 0.5F}, {29, 25, 0.4F}, {25, 45, 0.3F}}, {true, 4, 0, 0.4F}},
        {"left before below", {{28, 25, 0.1F}, {25, 28, 0.2F}, {25, 22, 0.3F}, {22, 25, 0.4F}}, {true, -3, 0, 0.4F}},
        {"below before right", {{28, 25, 0.1F}, {25, 28, 0.2F}, {25, 22, 0.3F}}, {true, 0, -3, 0.3F}},
        {"a corner at depth 0", {{0, 0, 0.0F}}, {true, -25, -25, 0.0F}},
        {"nothing", {}, {false, 0, 0, 1.0F}},
    };
    for (const auto& [name, cells, expected] : cases) {
        CursorDepths depths;
        depths.fill(1.0F);
        for (const Cell& cell : cells) depths[static_cast<size_t>(cell.column + 50 * cell.row)] = cell.depth;
        const CursorHit hit = searchCursorDepths(depths);
        EXPECT_EQ(std::tuple(expected.found, expected.column, expected.row, expected.depth),
                  std::tuple(hit.found, hit.column, hit.row, hit.depth))
            << name;
    }
}
