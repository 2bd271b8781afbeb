#include "viewer/RenderTarget.h"
#include "support/Failure.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <fmt/format.h>

static void checkSize(PixelSize size) {
    GLint largest = 0;
    GLint viewport[2] = {};
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &largest);
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
    const int width = std::min(largest, viewport[0]);
    const int height = std::min(largest, viewport[1]);
    if (size.width <= width && size.height <= height) return;
    throw CommandFailure(fmt::format("a picture of {}x{} is too large for this OpenGL, which ends at {}x{}", size.width,
                                     size.height, width, height));
}

RenderTarget::RenderTarget(PixelSize newSize) : size(newSize) {
    checkSize(size);
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(2, buffers.data());
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glBindRenderbuffer(GL_RENDERBUFFER, buffers[0]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, size.width, size.height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, buffers[0]);
    glBindRenderbuffer(GL_RENDERBUFFER, buffers[1]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT32F, size.width, size.height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, buffers[1]);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE) return;
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteRenderbuffers(2, buffers.data());
    throw CommandFailure(fmt::format("OpenGL has no memory for a picture of {}x{}", size.width, size.height));
}

RenderTarget::~RenderTarget() {
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteRenderbuffers(2, buffers.data());
}

void clearBound(Colour background) {
    const auto part = [](unsigned char value) { return static_cast<float>(value) / 255.0F; };
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glClearDepth(1.0);
    glClearColor(part(background[0]), part(background[1]), part(background[2]), 1.0F);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

Picture readBound(PixelSize size) {
    Picture picture;
    picture.width = size.width;
    picture.height = size.height;
    const size_t row = static_cast<size_t>(size.width) * 3;
    std::vector<unsigned char> upwards(row * static_cast<size_t>(size.height));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, size.width, size.height, GL_RGB, GL_UNSIGNED_BYTE, upwards.data());
    picture.rgb.reserve(upwards.size());
    for (size_t y = static_cast<size_t>(size.height); y-- > 0;) {
        const auto begin = upwards.begin() + static_cast<std::ptrdiff_t>(y * row);
        picture.rgb.insert(picture.rgb.end(), begin, begin + static_cast<std::ptrdiff_t>(row));
    }
    return picture;
}

void RenderTarget::clear(Colour background) const {
    glViewport(0, 0, size.width, size.height);
    clearBound(background);
}

Picture RenderTarget::read() const {
    return readBound(size);
}

std::vector<unsigned char> RenderTarget::readCovered() const {
    std::vector<float> depths(static_cast<size_t>(size.width) * static_cast<size_t>(size.height));
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, size.width, size.height, GL_DEPTH_COMPONENT, GL_FLOAT, depths.data());
    std::vector<unsigned char> covered;
    covered.reserve(depths.size());
    for (const float depth : depths) covered.push_back(depth < 1.0F ? 1 : 0);
    return covered;
}
