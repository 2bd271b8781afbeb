// The frame around the clouds: the offscreen picture, its passes, and composing it. Drawing nodes is NodeDrawing.cpp.
//
// Everything that could be kept per window is made per frame or per context instead, so that windows may be drawn in
// any order, and in contexts that share objects.

#include "render/OpenGLRenderer.h"

#include "ground/Log.h"
#include "render/PPMImage.h"
#include "render/RendererResources.h"

#include <algorithm>
#include <cmath>
#include <epoxy/gl.h>

namespace {

// Two triangles a face, wound so that back faces can be culled.
constexpr float CUBE[] = {-1, -1, -1, -1, -1, 1,  -1, 1,  1,  1, 1,  -1, -1, -1, -1, -1, 1,  -1, //
                          1,  -1, 1,  -1, -1, -1, 1,  -1, -1, 1, 1,  -1, 1,  -1, -1, -1, -1, -1, //
                          -1, -1, -1, -1, 1,  1,  -1, 1,  -1, 1, -1, 1,  -1, -1, 1,  -1, -1, -1, //
                          -1, 1,  1,  -1, -1, 1,  1,  -1, 1,  1, 1,  1,  1,  -1, -1, 1,  1,  -1, //
                          1,  -1, -1, 1,  1,  1,  1,  -1, 1,  1, 1,  1,  1,  1,  -1, -1, 1,  -1, //
                          1,  1,  1,  -1, 1,  -1, -1, 1,  1,  1, 1,  1,  -1, 1,  1,  1,  -1, 1};

void bindTexture(GLenum unit, uint32_t texture) {
    glActiveTexture(unit);
    glBindTexture(GL_TEXTURE_2D, texture);
}

} // namespace

OpenGLRenderer::Resources::Resources() : cube(GLName::BUFFER) {
    glBindBuffer(GL_ARRAY_BUFFER, cube.get());
    glBufferData(GL_ARRAY_BUFFER, sizeof(CUBE), CUBE, GL_STATIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void OpenGLRenderer::Resources::forget() {
    marker.forget();
    points.forget();
    quad.forget();
    cube.forget();
    if (target) target->forget();
}

OpenGLRenderer::OpenGLRenderer() = default;

OpenGLRenderer::~OpenGLRenderer() {
    forgetResources();
}

void OpenGLRenderer::forgetResources() {
    if (resources) resources->forget();
    resources.reset();
}

bool OpenGLRenderer::setupTexture(const std::array<int, 4>& viewport, const glm::dmat4& projection,
                                  bool windowChanged) {
    if (!isContextUsable()) return false;
    clearErrors();
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &hostFramebuffer);
    if (resources && !resources->marker.isHere()) {
        forgetResources();
        contextChanged = true;
    }
    if (!OffscreenTarget::isPossible(viewport[2], viewport[3])) return false;
    if (!resources) resources = std::make_unique<Resources>();
    if (!makeTarget(viewport, windowChanged)) return false;
    clearTarget(viewport);
    resources->points.use();
    {
        std::lock_guard lock(requestMutex);
        resources->points.setClasses(lasColours);
    }
    const auto a = static_cast<float>(projection[2][2]);
    const auto b = static_cast<float>(projection[3][2]);
    farP = (b * -2.0F) / (-2.0F - (a + a));
    nearP = ((-1.0F - a) * farP) / (1.0F - a);
    return true;
}

// Makes the picture and the frame's objects, and binds them. False when the driver has no room for them.
bool OpenGLRenderer::makeTarget(const std::array<int, 4>& viewport, bool windowChanged) {
    std::optional<OffscreenTarget>& target = resources->target;
    if (!target || windowChanged || target->getWidth() != viewport[2] || target->getHeight() != viewport[3]) {
        target.reset();
        target.emplace(viewport[2], viewport[3]);
    }
    auto next = std::make_unique<Frame>();
    next->framebuffer = target->makeFramebuffer();
    if (next->framebuffer.get() == 0) {
        target.reset();
        clearErrors();
        return false;
    }
    next->pointArray = GLName(GLName::VERTEX_ARRAY);
    next->voxelArray = GLName(GLName::VERTEX_ARRAY);
    glBindVertexArray(next->voxelArray.get());
    glBindBuffer(GL_ARRAY_BUFFER, resources->cube.get());
    glEnableVertexAttribArray(PointProgram::POSITION);
    glVertexAttribPointer(PointProgram::POSITION, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glBindVertexArray(0);
    next->quadArray = resources->quad.makeVertexArray();
    for (size_t i = 0; i < next->hostClips.size(); ++i) {
        const auto clip = static_cast<GLenum>(GL_CLIP_DISTANCE0 + i);
        next->hostClips[i] = glIsEnabled(clip) == GL_TRUE;
        glDisable(clip);
    }
    frame = std::move(next);
    return true;
}

void OpenGLRenderer::clearTarget(const std::array<int, 4>& viewport) {
    glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    glScissor(viewport[0], viewport[1], viewport[2], viewport[3]);
    glEnable(GL_SCISSOR_TEST);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glClearColor(0.0F, 0.0F, 0.0F, 0.0F);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
}

void OpenGLRenderer::configureRenderPass(Pass pass) {
    glDepthFunc(GL_LESS);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE);
    glDisable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
    const GLboolean colours = pass == DEPTH ? GL_FALSE : GL_TRUE;
    glColorMask(colours, colours, colours, colours);
    const OffscreenTarget& target = *resources->target;
    resources->points.setPass(pass == BLEND, target.getWidth(), target.getHeight(), nearP, farP);
    if (pass == DEPTH) {
        target.attachDepth(true);
    } else if (pass == BLEND) {
        target.attachDepth(false); // it is sampled now
        glEnable(GL_BLEND);
        glDisable(GL_DEPTH_TEST);
        bindTexture(GL_TEXTURE1, target.depths());
    }
}

void OpenGLRenderer::renderTexture(const std::array<int, 4>& viewport, int lightState, const glm::dvec3& light) {
    const OffscreenTarget& target = *resources->target;
    capture();
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(hostFramebuffer));
    bindTexture(GL_TEXTURE0, target.colours());
    bindTexture(GL_TEXTURE1, target.depths());
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    if (viewport[2] >= 0 && viewport[3] >= 0) {
        glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
        resources->quad.use(target.getWidth(), target.getHeight(), nearP, farP, lightState, light);
        glBindVertexArray(frame->quadArray.get());
        glDrawArrays(GL_TRIANGLES, 0, 6);
        glBindVertexArray(0);
    }
    glUseProgram(0);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    bindTexture(GL_TEXTURE1, 0);
    bindTexture(GL_TEXTURE0, 0);
    for (size_t i = 0; i < frame->hostClips.size(); ++i) {
        if (frame->hostClips[i]) glEnable(static_cast<GLenum>(GL_CLIP_DISTANCE0 + i));
    }
    frame.reset();
}

void OpenGLRenderer::capture() {
    std::optional<std::wstring> path;
    {
        std::lock_guard lock(requestMutex);
        path.swap(capturePath);
    }
    if (!path) return;
    const OffscreenTarget& target = *resources->target;
    writePPMImage(toUtf8(*path), target.getWidth(), target.getHeight(), target.readPixels());
}

void OpenGLRenderer::savePPMImage(std::wstring path) {
    std::lock_guard lock(requestMutex);
    capturePath = std::move(path);
}

void OpenGLRenderer::setClassifications(const unsigned char* table) {
    std::lock_guard lock(requestMutex);
    std::transform(table, table + lasColours.size(), lasColours.begin(),
                   [](unsigned char value) { return static_cast<float>(value) / 255.0F; });
}

bool OpenGLRenderer::findClosestCursorPoint(int x, int y, double* result) {
    if (!isContextUsable() || !resources || !resources->marker.isHere() || !resources->target) return false;
    const OffscreenTarget& target = *resources->target;
    const int column = std::clamp(x, 0, target.getWidth());
    const auto flipped = std::clamp<int64_t>(int64_t{target.getHeight()} - y, 0, target.getHeight());
    const auto row = static_cast<int>(flipped);
    GLint bound = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    CursorDepths depths;
    {
        const GLName framebuffer = target.makeFramebuffer();
        if (framebuffer.get() == 0) return false;
        depths = target.readDepths(column, row);
        // The one of the last frame, unless the host has deleted it since.
        const auto host = static_cast<GLuint>(hostFramebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, host == 0 || glIsFramebuffer(host) ? host : static_cast<GLuint>(bound));
    }
    const CursorHit hit = searchCursorDepths(depths);
    result[0] = column + hit.column;
    result[1] = row + hit.row;
    result[2] = double{hit.depth};
    return hit.found;
}
