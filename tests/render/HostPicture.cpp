#include "render/HostPicture.h"

#include <epoxy/gl.h>

HostPicture::HostPicture(int widthIn, int heightIn) : width(widthIn), height(heightIn) {
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(2, buffers.data());
    bind();
    const GLenum formats[] = {GL_RGBA8, GL_DEPTH_COMPONENT24};
    const GLenum attachments[] = {GL_COLOR_ATTACHMENT0, GL_DEPTH_ATTACHMENT};
    for (size_t i = 0; i < 2; ++i) {
        glBindRenderbuffer(GL_RENDERBUFFER, buffers[i]);
        glRenderbufferStorage(GL_RENDERBUFFER, formats[i], width, height);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, attachments[i], GL_RENDERBUFFER, buffers[i]);
    }
    clear();
}

HostPicture::~HostPicture() {
    if (framebuffer == 0) return;
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteRenderbuffers(2, buffers.data());
}

void HostPicture::bind() const {
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
}

void HostPicture::clear(const Pixel& colour, float depth) const {
    bind();
    glDisable(GL_SCISSOR_TEST);
    glClearColor(static_cast<float>(colour.r) / 255.0F, static_cast<float>(colour.g) / 255.0F,
                 static_cast<float>(colour.b) / 255.0F, 1.0F);
    glClearDepth(double{depth});
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

Pixel HostPicture::at(int x, int y) const {
    bind();
    unsigned char rgba[4];
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    return {rgba[0], rgba[1], rgba[2]};
}

float HostPicture::depthAt(int x, int y) const {
    bind();
    float depth = -1.0F;
    glReadPixels(x, y, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
    return depth;
}

std::vector<std::array<int, 2>> HostPicture::drawn() const {
    bind();
    std::vector<unsigned char> rgba(static_cast<size_t>(width * height) * 4);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    std::vector<std::array<int, 2>> found;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const unsigned char* p = &rgba[static_cast<size_t>(y * width + x) * 4];
            if (Pixel{p[0], p[1], p[2]} != BACKGROUND) found.push_back({x, y});
        }
    }
    return found;
}
