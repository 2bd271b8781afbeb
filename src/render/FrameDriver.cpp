#include "render/FrameDriver.h"

#include "render/OpenGLRenderer.h"
#include "stream/OPCInterface.h"

#include <cmath>
#include <epoxy/gl.h>
#include <glm/geometric.hpp>

void FrameDriver::setCamera(const RenderCamera& value) {
    std::lock_guard lock(mutex);
    camera = value;
}

void FrameDriver::setForce(bool value) {
    std::lock_guard lock(mutex);
    force = value;
}

void FrameDriver::setPlanes(const std::array<double, 24>& value) {
    std::lock_guard lock(mutex);
    planes = value;
}

bool FrameDriver::begin() {
    {
        std::lock_guard lock(mutex);
        current = camera;
    }
    const bool windowChanged = current.window != previousWindow;
    previousWindow = current.window;
    return renderer.setupTexture(current.offscreenViewport, current.projection, windowChanged);
}

void FrameDriver::draw(std::span<const DrawnCloud> clouds, const ClipBox& clip, const Shader& shader,
                       std::vector<int>& deletedBuffers) {
    FrameView view{current.window, current.view, current.projection, {}, current.lightState, false};
    {
        std::lock_guard lock(mutex);
        view.planes = planes;
        view.force = force;
    }
    const std::vector<GLuint> names(deletedBuffers.begin(), deletedBuffers.end());
    deletedBuffers.clear();
    glDeleteBuffers(static_cast<GLsizei>(names.size()), names.data());

    bool needsSecondWalk = false;
    for (const DrawnCloud& cloud : clouds) {
        renderer.configureRenderPass(cloud.needsBlending() ? OpenGLRenderer::DEPTH : OpenGLRenderer::PLAIN);
        renderer.render(view, cloud, clip, shader);
        needsSecondWalk = needsSecondWalk || cloud.needsBlending();
    }
    if (!needsSecondWalk) return;
    for (const DrawnCloud& cloud : clouds) {
        if (!cloud.needsBlending()) continue;
        renderer.configureRenderPass(OpenGLRenderer::BLEND);
        renderer.render(view, cloud, clip, shader);
    }
}

void FrameDriver::end() {
    renderer.renderTexture(current.onscreenViewport, current.lightState,
                           lightInEyeSpace(current.view, current.lightDirection));
}

glm::dvec3 lightInEyeSpace(const glm::dmat4& view, const glm::vec3& direction) {
    const glm::dvec4 light = view * glm::dvec4(-glm::dvec3(direction), 0.0);
    const double length = glm::length(light);
    return length > 0.0 ? glm::dvec3(light) / length : glm::dvec3(0.0);
}
