// What is read back from a frame: screenshots, and the point under the cursor.

#include "render/CursorSearch.h"
#include "render/FrameTest.h"
#include "render/PPMImage.h"

#include <cstring>
#include <filesystem>
#include <sstream>
#include <tuple>

namespace {

NimbrelMatrix byValue(const glm::dmat4& matrix) {
    NimbrelMatrix out;
    std::memcpy(out.m, glm::value_ptr(matrix), sizeof(out.m));
    return out;
}

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

TEST_F(ReadBack, ScreenshotsAreWrittenAsText) {
    load({{0, 0, 0, {255, 0, 17, 1, 2}}});
    view = glm::translate(glm::dmat4(1.0), {0, 0, -12});
    projection = glm::ortho(0.0, 0.2, 0.0, 0.1, 1.0, 21.0); // two pixels
    offscreen = {0, 0, 2, 1};
    look();
    savePPMImage(dir.widePath("replaced.ppm").c_str());
    savePPMImage(dir.widePath("shot.ppm").c_str());
    frame();
    EXPECT_EQ("P3\n2 1\n255\n255 0 17 0 0 0 \n", textOf(dir.read("shot.ppm")));
    EXPECT_TRUE(dir.read("replaced.ppm").empty());
    std::filesystem::remove(dir.path("shot.ppm"));
    frame();
    EXPECT_TRUE(dir.read("shot.ppm").empty()) << "one frame only";
}

TEST_F(ReadBack, ScreenshotsShowTheCloudsBeforeTheyAreLit) {
    load({{0, 39}});
    look();
    lightState = 2;
    savePPMImage(dir.widePath("shot.ppm").c_str());
    frame();
    std::istringstream text(textOf(dir.read("shot.ppm")));
    std::string line;
    for (int i = 0; i < 4; ++i) std::getline(text, line); // the uppermost row
    EXPECT_EQ(0U, line.find("0 0 0 0 0 0 ")) << "blackened for the shading";
    lightState = 1;
    savePPMImage(dir.widePath("shot.ppm").c_str());
    frame();
    text = std::istringstream(textOf(dir.read("shot.ppm")));
    for (int i = 0; i < 4; ++i) std::getline(text, line);
    EXPECT_EQ(0U, line.find("200 100 50 0 0 0 "));
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

TEST(PPMImage, PutsTheLastRowFirst) {
    const TempDir dir;
    const unsigned char pixels[] = {1, 2, 3, 0, 4, 5, 6, 0, 70, 80, 90, 0, 100, 110, 255, 0};
    writePPMImage(dir.path("image"), 2, 2, pixels);
    EXPECT_EQ("P3\n2 2\n255\n70 80 90 100 110 255 \n1 2 3 4 5 6 \n", textOf(dir.read("image")));
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
    for (const auto& [x, y] : {std::pair(10, 20), {70, 20}, {0, 0}, {-1000, 100000}}) {
        result = {-1, -2, -3, 1.0};
        EXPECT_EQ(-1, find(x, y)) << x << ", " << y;
    }
    EXPECT_EQ(0.0, result[0]) << "the cursor, clamped to the picture";
    EXPECT_EQ(0.0, result[1]);
    EXPECT_EQ(1.0, result[2]);
    EXPECT_EQ(7, colour[0]);
}

TEST_F(ReadBack, LeavesTheHostsPictureBound) {
    load({{40, 20}});
    look();
    freshFrame();
    GLint before = 0, after = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &before);
    find(40, 20);
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &after);
    EXPECT_EQ(before, after);
    EXPECT_EQ(static_cast<GLenum>(GL_NO_ERROR), glGetError());
}

namespace {

struct Cell {
    int column, row;
    float depth;
};

CursorHit search(const std::vector<Cell>& cells, float elsewhere = 1.0F) {
    CursorDepths depths;
    depths.fill(elsewhere);
    for (const Cell& cell : cells) depths[static_cast<size_t>(cell.column + 50 * cell.row)] = cell.depth;
    return searchCursorDepths(depths);
}

} // namespace

TEST(CursorSearch, TakesTheNearestDrawnCell) {
    const CursorHit hit = search({{20, 25, 0.5F}, {29, 25, 0.4F}, {25, 45, 0.3F}});
    EXPECT_TRUE(hit.found);
    EXPECT_EQ(4, hit.column);
    EXPECT_EQ(0, hit.row);
    EXPECT_EQ(0.4F, hit.depth);
}

TEST(CursorSearch, TakesTheFirstOfEquallyNearCells) {
    const CursorHit hit = search({{28, 25, 0.1F}, {25, 28, 0.2F}, {25, 22, 0.3F}, {22, 25, 0.4F}});
    EXPECT_EQ(-3, hit.column);
    const CursorHit lower = search({{28, 25, 0.1F}, {25, 28, 0.2F}, {25, 22, 0.3F}});
    EXPECT_EQ(-3, lower.row);
}

TEST(CursorSearch, FindsNothingWhereNothingIsDrawn) {
    EXPECT_FALSE(search({}).found);
    EXPECT_EQ(1.0F, search({}).depth);
    EXPECT_TRUE(search({}, 0.0F).found) << "a depth of 0 is drawn";
    EXPECT_TRUE(search({{0, 0, 0.9F}}).found) << "a corner of the block";
}
