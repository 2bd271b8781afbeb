// Frames a second over a cloud of a million visible points, and how long a camera waits for all it sees.
//
//   RenderBench FOLDER [POINTS] [WIDTH] [HEIGHT]
//
// Draws on Mesa's software renderer: what is measured is mostly its work.

#include "nimbrel/NimbrelEngine.h"
#include "support/HeadlessContext.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <epoxy/gl.h>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// A rippled square of 100 by 100 units; its id.
int makeCloud(const std::wstring& path, int points) {
    const int side = static_cast<int>(std::sqrt(points));
    std::vector<double> xyz;
    std::vector<unsigned char> attributes;
    for (int i = 0; i < side * side; ++i) {
        const double x = 100.0 * (i % side) / side;
        const double y = 100.0 * (i / side) / side;
        const double height = std::sin(x * 0.2) * std::cos(y * 0.2);
        xyz.insert(xyz.end(), {x, y, 10.0 + 5.0 * height});
        const auto level = static_cast<unsigned char>(128 + 127 * height);
        attributes.insert(attributes.end(), {level, 128, 64, level, 2});
    }
    const double box[] = {0, 0, 0, 100, 100, 20};
    createOPC(path.c_str(), box, side * side, "key", 0, 0);
    addPoints(xyz.data(), attributes.data(), side * side);
    indexOPC(0, 0.0001, 0, 1);
    NimbrelBuildReport report{};
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        nimbrelGetBuildReport(&report);
    } while (report.state == 1);
    return loadPointCloudFile(path.c_str());
}

struct Bench {
    int id, width, height;
    glm::dvec3 eye{-20, -30, 55};
    glm::dmat4 view = glm::lookAt(eye, glm::dvec3(50, 50, 8), glm::dvec3(0, 0, 1));
    glm::dmat4 projection = glm::perspective(glm::radians(60.0), double(width) / height, 1.0, 500.0);

    // Median of five, from setCamera on an empty memory to the last node loaded.
    [[nodiscard]] double loadLatency() const {
        std::vector<double> times;
        for (int i = 0; i < 5; ++i) {
            unregisterWindow(0);
            const auto begin = Clock::now();
            setCamera(0, glm::value_ptr(view), glm::value_ptr(projection), glm::value_ptr(eye), 60, height, true);
            times.push_back(millisecondsSince(begin));
        }
        std::sort(times.begin(), times.end());
        return times[2];
    }

    // Median of 15 frames, each to its end on the renderer's side.
    [[nodiscard]] double frameTime(int smoothing, float opacity, int lightState) const {
        setPointCloudProperties(id, 1000, 1, smoothing, 0, 0, 2, 5, 0, 0, 0, 0, 0, opacity, 20, 2, 0);
        const int viewport[] = {0, 0, width, height};
        const float light[] = {1, 1, -1};
        setRenderCamera(0, glm::value_ptr(view), glm::value_ptr(projection), viewport, viewport, lightState, light);
        std::vector<double> times;
        for (int i = 0; i < 16; ++i) {
            const auto begin = Clock::now();
            glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
            render();
            glFinish();
            if (i > 0) times.push_back(millisecondsSince(begin)); // the first uploads
        }
        std::sort(times.begin(), times.end());
        return times[7];
    }
};

void bindTarget(int width, int height) {
    GLuint framebuffer = 0;
    GLuint buffers[2];
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(2, buffers);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glBindRenderbuffer(GL_RENDERBUFFER, buffers[0]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, buffers[0]);
    glBindRenderbuffer(GL_RENDERBUFFER, buffers[1]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, buffers[1]);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return std::fprintf(stderr, "RenderBench FOLDER [POINTS] [WIDTH] [HEIGHT]\n"), 1;
    const int points = argc > 2 ? std::atoi(argv[2]) : 1000000;
    const int width = argc > 3 ? std::atoi(argv[3]) : 1280;
    const int height = argc > 4 ? std::atoi(argv[4]) : 720;
    initEngine("key");
    const std::string folder = argv[1];
    const int id = makeCloud(std::wstring(folder.begin(), folder.end()) + L"/RenderBench.opc", points);
    if (id < 0) return std::fprintf(stderr, "no cloud: %s\n", nimbrelLastError()), 1;
    const HeadlessContext context;
    bindTarget(width, height);
    const Bench bench{id, width, height};
    setPointCloudProperties(id, 1000, 1, 0, 0, 0, 2, 5, 0, 0, 0, 0, 0, 100, 20, 2, 0);
    const double latency = bench.loadLatency();
    std::printf("%s, %d x %d\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)), width, height);
    std::printf("camera to all %d points loaded: %.1f ms\n", getWindowPointCount(0), latency);
    std::printf("plain frame: %.1f ms\n", bench.frameTime(0, 100, 0));
    std::printf("lit frame: %.1f ms\n", bench.frameTime(0, 100, 1));
    std::printf("smoothed frame: %.1f ms\n", bench.frameTime(1, 100, 0));
    std::printf("transparent frame: %.1f ms\n", bench.frameTime(0, 50, 0));
    shutdownEngine();
    std::remove((folder + "/RenderBench.opc").c_str());
}
