// Frames over the life of contexts: what is kept, what is forgotten, and that nothing is left behind.

#include "render/FrameTest.h"
#include "render/GLContext.h"
#include "render/ShaderProgram.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"

#include <algorithm>
#include <cstdlib>

namespace {

using Places = std::vector<std::array<int, 2>>;

// Objects of each kind that the current context knows, by asking for every number that it can have come to.
std::array<int, 7> countObjects() {
    std::array<int, 7> counts{};
    constexpr GLuint LARGEST_NAME = 200000; // names are not reused at once
    for (GLuint name = 1; name < LARGEST_NAME; ++name) {
        const GLboolean known[] = {glIsBuffer(name),  glIsTexture(name), glIsFramebuffer(name), glIsVertexArray(name),
                                   glIsProgram(name), glIsShader(name),  glIsSampler(name)};
        for (size_t kind = 0; kind < counts.size(); ++kind) counts[kind] += known[kind] == GL_TRUE ? 1 : 0;
    }
    return counts;
}

using Contexts = FrameTest;

} // namespace

// The host's buffers of the second context have the numbers that the engine's had in the first.
TEST_F(Contexts, ObjectsOfAnotherContextAreNotTouched) {
    const int id = load({{5, 5}}, "first");
    const int other = load({{6, 5}}, "second");
    look();
    freshFrame();
    picture->forget();
    picture.reset();
    context.reset();
    context.emplace();
    picture.emplace(WIDTH, HEIGHT);
    std::array<GLuint, 50> buffers{}, textures{};
    glGenBuffers(50, buffers.data());
    glGenTextures(50, textures.data());
    constexpr int CONTENT = 1234567;
    for (size_t i = 0; i < buffers.size(); ++i) {
        glBindBuffer(GL_ARRAY_BUFFER, buffers[i]);
        glBufferData(GL_ARRAY_BUFFER, sizeof(CONTENT), &CONTENT, GL_STATIC_DRAW);
        glBindTexture(GL_TEXTURE_2D, textures[i]);
    }
    const uint32_t stale = pointClouds[1]->getOPC().getNode(0)->existingBatch(0)->vbo;
    EXPECT_NE(buffers.end(), std::find(buffers.begin(), buffers.end(), stale)) << "the same number";
    closePointCloud(other); // its buffer goes to the list of those to delete
    for (int i = 0; i < 3; ++i) freshFrame();
    EXPECT_EQ((Places{{5, 5}}), picture->drawn());
    closePointCloud(id);
    freshFrame();
    for (size_t i = 0; i < buffers.size(); ++i) {
        EXPECT_TRUE(glIsBuffer(buffers[i]));
        EXPECT_TRUE(glIsTexture(textures[i]));
        int content = 0;
        glBindBuffer(GL_ARRAY_BUFFER, buffers[i]);
        glGetBufferSubData(GL_ARRAY_BUFFER, 0, sizeof(content), &content);
        EXPECT_EQ(CONTENT, content);
    }
}

TEST_F(Contexts, FramesAlternateBetweenContextsThatShareObjects) {
    load({{5, 5}});
    look();
    freshFrame();
    const uint32_t buffer = pointClouds[0]->getOPC().getNode(0)->existingBatch(0)->vbo;
    const HeadlessContext second(&*context);
    std::optional<HostPicture> secondPicture(std::in_place, WIDTH, HEIGHT);
    const auto before = countObjects();
    for (int i = 0; i < 10; ++i) {
        second.makeCurrent();
        secondPicture->clear();
        setRenderCamera(0, glm::value_ptr(view), glm::value_ptr(projection), offscreen.data(), onscreen.data(), 0,
                        glm::value_ptr(light));
        render();
        EXPECT_EQ((Places{{5, 5}}), secondPicture->drawn());
        context->makeCurrent();
        freshFrame();
        EXPECT_EQ((Places{{5, 5}}), picture->drawn());
    }
    EXPECT_EQ(buffer, pointClouds[0]->getOPC().getNode(0)->existingBatch(0)->vbo) << "kept";
    second.makeCurrent();
    EXPECT_EQ(before, countObjects());
    secondPicture.reset();
    context->makeCurrent();
}

// NIMBREL_LEAK_ROUNDS asks for more than the usual few frames.
TEST_F(Contexts, NothingIsLeftBehind) {
    const char* asked = std::getenv("NIMBREL_LEAK_ROUNDS");
    const int rounds = asked ? std::atoi(asked) : 40;
    load({{5, 5}}, "stays");
    look();
    freshFrame();
    const auto before = countObjects();
    for (int i = 0; i < rounds; ++i) {
        const int id = load({{6, 6}, {7, 7}}, "cloud" + std::to_string(i % 40));
        setProperties(id, [i](PointCloudProperties& p) { p.smoothing = static_cast<uint8_t>(i % 2); });
        look(i % 3);
        offscreen = {0, 0, 60 + i % 7, 30 + i % 5};
        setForceRender(i % 4 == 0);
        freshFrame(i % 3);
        double result[4] = {0, 0, 0, 1};
        unsigned char colour[5];
        findClosestPoint({}, {}, offscreen.data(), 5, 5, result, colour);
        if (i % 5 == 0) unregisterWindow(i % 3);
        closePointCloud(id);
    }
    for (int window = 0; window < 3; ++window) unregisterWindow(window);
    setForceRender(false);
    offscreen = {0, 0, WIDTH, HEIGHT};
    look();
    freshFrame();
    EXPECT_EQ(before, countObjects());
    EXPECT_TRUE(deleteVboList.empty());
}

// A child can arrive before its parent, whose points may never come.
TEST_F(Contexts, BuffersBelowAnAbsentNodeAreFreed) {
    PointFileMaker made(17);
    made.add({.mask = 6, .pointCount = 1, .stored = record({5, 5})});
    made.add({.mask = 4, .pointCount = 1, .stored = record({50, 5}, 40000)});
    const int id = loadPointCloudFile(dir.writeWide("cloud", made.make()).c_str());
    setProperties(id, [](PointCloudProperties& p) { p.lodFactor = 10000; });
    freshFrame();
    const auto before = countObjects();
    look();
    pointClouds[0]->getOPC().getNode(0)->existingBatch(0)->clear();
    freshFrame();
    EXPECT_EQ((Places{{50, 5}}), picture->drawn());
    EXPECT_EQ(before[0] + 1, countObjects()[0]);
    unregisterWindow(0);
    freshFrame();
    EXPECT_EQ(before, countObjects());
}

TEST_F(Contexts, ProgramsThatDoNotLinkAreTold) {
    testing::internal::CaptureStdout();
    { const ShaderProgram broken("#version 410\nvoid main() { nothing(); }", "#version 410\nvoid main() {}", {}); }
    const std::string told = testing::internal::GetCapturedStdout();
    EXPECT_EQ(0U, told.find("Linking Error with Shader\n"));
    EXPECT_NE(std::string::npos, told.find("\nLinking Error with Program\n"));
    clearErrors();
}
