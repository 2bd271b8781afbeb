// Frames on the host's framebuffer: what is drawn where, and what is left behind.

#include "render/FrameTest.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"

#include <atomic>
#include <cstring>
#include <thread>
#include <tuple>

using Places = std::vector<std::array<int, 2>>;

TEST_F(FrameTest, DrawsPointsAtTheirPixelsAndNothingElse) {
    load({{0, 0, 0, {255, 0, 0, 1, 2}}, {79, 39, 0, {0, 255, 0, 1, 2}}, {40, 20, 15, {1, 2, 3, 1, 2}}});
    look();
    freshFrame();
    EXPECT_EQ((Places{{0, 0}, {40, 20}, {79, 39}}), picture->drawn());
    EXPECT_EQ((Pixel{255, 0, 0}), picture->at(0, 0));
    EXPECT_EQ((Pixel{0, 255, 0}), picture->at(79, 39));
    EXPECT_EQ((Pixel{1, 2, 3}), picture->at(40, 20));
}

TEST_F(FrameTest, HidesAndIsHiddenByTheHostsPicture) {
    load({{10, 10, 0}, {20, 10, 20}}); // at depths 0.55 and 0.45
    look();
    constexpr Pixel host{1, 1, 1};
    picture->clear(host, 0.5F);
    frame();
    EXPECT_EQ(host, picture->at(10, 10));
    EXPECT_NEAR(0.5F, picture->depthAt(10, 10), 1e-6F);
    EXPECT_EQ((Pixel{200, 100, 50}), picture->at(20, 10));
    EXPECT_NEAR(0.45F, picture->depthAt(20, 10), 1e-6F);
}

TEST_F(FrameTest, PutsThePictureIntoTheOnscreenViewport) {
    load({{5, 5}, {75, 5}});
    look();
    picture.emplace(100, HEIGHT);
    onscreen = {10, 0, WIDTH, HEIGHT};
    freshFrame();
    // The second would lie at 85, outside the offscreen rectangle, which still cuts.
    EXPECT_EQ((Places{{15, 5}}), picture->drawn());
}

TEST_F(FrameTest, DrawsEachWindowByItself) {
    load({{5, 5}}, "first");
    load({{6, 6}}, "second");
    look(0);
    for (int i = 0; i < 3; ++i) {
        freshFrame(1);
        EXPECT_EQ(Places{}, picture->drawn());
        freshFrame(0);
        EXPECT_EQ((Places{{5, 5}, {6, 6}}), picture->drawn());
    }
    unregisterWindow(0);
    freshFrame(0);
    EXPECT_EQ(Places{}, picture->drawn());
}

TEST_F(FrameTest, PlacesAndScalesCloudsAndSizesPoints) {
    const int id = load({{5, 5}});
    const glm::dmat4 moved = glm::translate(glm::dmat4(1.0), {1.0, 2.0, 0.0});
    setPointCloudPosition(id, glm::value_ptr(moved));
    setScale(id, 3.0); // 0.55 to 1.65, then moved
    look();
    freshFrame();
    EXPECT_EQ((Places{{26, 36}}), picture->drawn());
    setProperties(id, [](PointCloudProperties& p) { p.pointSize = 3.0F; });
    freshFrame();
    EXPECT_EQ(9U, picture->drawn().size());
}

TEST_F(FrameTest, LeavesOutDisabledAndExpiredClouds) {
    const int first = load({{5, 5}}, "first");
    const int second = load({{6, 6}}, "second");
    look();
    setEnabled(first, false);
    freshFrame();
    EXPECT_EQ((Places{{6, 6}}), picture->drawn());
    const std::tuple<int64_t, int64_t, Places> cases[] = {
        {1, 1, {}},       // ended in 1970
        {0, 1, {{6, 6}}}, // no protection, no end
        {1, 0, {{6, 6}}}, // never ends
    };
    for (const auto& [value1, value2, expected] : cases) {
        setProtection(second, value1, value2);
        freshFrame();
        EXPECT_EQ(expected, picture->drawn()) << value1 << ", " << value2;
    }
}

// The children are too small to be seen; forced, they are read and drawn, and give their buffers back.
TEST_F(FrameTest, DrawsEverythingInTheViewWhenForced) {
    PointFileMaker made(17);
    made.pointCount = 2;
    made.add({.mask = 6, .pointCount = 1, .stored = record({5, 5})}); // split on X at 4
    made.add({.mask = 4, .pointCount = 1, .stored = record({50, 5}, 40000)});
    const int id = loadPointCloudFile(dir.writeWide("cloud", made.make()).c_str());
    setProperties(id, [](PointCloudProperties& p) { p.lodFactor = 0; });
    look();
    freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
    setForceRender(true);
    freshFrame();
    EXPECT_EQ((Places{{5, 5}, {50, 5}}), picture->drawn());
    GPUBatch* child = pointClouds[0]->getOPC().getNode(1)->existingBatch(0);
    EXPECT_EQ(0U, child->vbo);
    EXPECT_EQ(nullptr, child->data) << "what was read on the spot is not kept";
    setForceRender(false);
    freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
}

TEST_F(FrameTest, LeavesTheHostsStateAsDocumented) {
    load({{5, 5}});
    look();
    glEnable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_CLIP_DISTANCE2);
    freshFrame();
    const std::tuple<GLenum, GLint> numbers[] = {
        {GL_CURRENT_PROGRAM, 0},          {GL_VERTEX_ARRAY_BINDING, 0},  {GL_ARRAY_BUFFER_BINDING, 0},
        {GL_ACTIVE_TEXTURE, GL_TEXTURE0}, {GL_TEXTURE_BINDING_2D, 0},    {GL_DEPTH_FUNC, GL_LESS},
        {GL_DEPTH_WRITEMASK, GL_TRUE},    {GL_BLEND, GL_FALSE},          {GL_SCISSOR_TEST, GL_FALSE},
        {GL_DEPTH_TEST, GL_TRUE},         {GL_CLIP_DISTANCE0, GL_FALSE}, {GL_CLIP_DISTANCE2, GL_TRUE},
        {GL_PROGRAM_POINT_SIZE, GL_FALSE}};
    GLint bound = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    picture->bind();
    GLint expected = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &expected);
    EXPECT_EQ(expected, bound);
    for (const auto& [name, value] : numbers) {
        GLint found = -1;
        glGetIntegerv(name, &found);
        EXPECT_EQ(value, found) << std::hex << name;
    }
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
}

TEST_F(FrameTest, IsNotPutOffByTheHostsState) {
    const int id = load({{5, 5}});
    look();
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, buffer); // an address would be an offset into it
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glDepthMask(GL_FALSE);
    glVertexAttrib3f(4, 1.0F, 1.0F, 1.0F); // would scale points to cubes
    glActiveTexture(GL_TEXTURE5);
    frame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
    setEnabled(id, false);
    glDeleteBuffers(1, &buffer);
}

TEST_F(FrameTest, DrawsNothingOnPicturesThatCannotBe) {
    load({{5, 5}});
    look();
    const std::array<int, 4> sizes[] = {{0, 0, 0, 0}, {0, 0, -1, 40}, {0, 0, 80, -5}, {0, 0, 1 << 30, 1}};
    for (const auto& size : sizes) {
        offscreen = size;
        freshFrame();
        EXPECT_EQ(Places{}, picture->drawn()) << size[2];
    }
    offscreen = {0, 0, WIDTH, HEIGHT};
    onscreen = {0, 0, -1, -1};
    freshFrame();
    EXPECT_EQ(Places{}, picture->drawn());
    onscreen = offscreen;
    freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
}

TEST_F(FrameTest, DrawsNothingWithoutAContext) {
    load({{5, 5}});
    look();
    HeadlessContext::makeNoneCurrent();
    setRenderCamera(0, glm::value_ptr(view), glm::value_ptr(projection), offscreen.data(), onscreen.data(), 0,
                    glm::value_ptr(light));
    render();
    context->makeCurrent();
    freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
}

// A second thread does what hosts do beside their render thread; each frame shows the cloud that stays.
TEST_F(FrameTest, GoesOnWhileEverythingElseChanges) {
    load({{5, 5}}, "stays");
    look();
    std::atomic<bool> done{false};
    std::thread host([&] {
        std::array<unsigned char, 1024> table{};
        const double planes[36] = {};
        const float colours[4] = {};
        double positions[300];
        char attributes[500];
        for (int i = 0; i < 30; ++i) {
            const int id = loadPointCloudFile(dir.writeWide("other", maker({{6, 6}, {7, 7}}).make()).c_str());
            setProperties(id, [i](PointCloudProperties& p) { p.smoothing = static_cast<uint8_t>(i % 2); });
            look(1 + i % 2);
            setLasClassifications(table.data());
            activateClipBox(planes, colours, 1);
            activateShader(planes, planes, 0, 0, 1, 0, false, colours, colours, colours);
            setForceRender(i % 8 == 7);
            getWindowPoints(1, positions, attributes, 0, 100);
            EXPECT_GE(getWindowPointCount(0), 0);
            unregisterWindow(1);
            closePointCloud(id);
        }
        done = true;
    });
    while (!done) {
        freshFrame();
        EXPECT_NE(HostPicture::BACKGROUND, picture->at(5, 5));
    }
    host.join();
    setForceRender(false);
    freshFrame();
    freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
}
