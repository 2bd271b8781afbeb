#include "render/OffscreenTarget.h"

#include <algorithm>
#include <array>
#include <epoxy/gl.h>

namespace {

// Unbinds the host's buffer for pixel transfers and its layout of rows for as long as it lives, so that our addresses
// are taken as such.
class PlainPixelTransfer {
public:
    PlainPixelTransfer() {
        glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &packBuffer);
        glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &unpackBuffer);
        glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        for (size_t i = 0; i < SETTINGS.size(); ++i) {
            glGetIntegerv(SETTINGS[i].name, &before[i]);
            glPixelStorei(SETTINGS[i].name, SETTINGS[i].plain);
        }
    }
    ~PlainPixelTransfer() {
        for (size_t i = 0; i < SETTINGS.size(); ++i) glPixelStorei(SETTINGS[i].name, before[i]);
        glBindBuffer(GL_PIXEL_PACK_BUFFER, static_cast<GLuint>(packBuffer));
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, static_cast<GLuint>(unpackBuffer));
    }
    PlainPixelTransfer(const PlainPixelTransfer&) = delete;
    PlainPixelTransfer& operator=(const PlainPixelTransfer&) = delete;

private:
    struct Setting {
        GLenum name;
        GLint plain;
    };
    static constexpr std::array<Setting, 6> SETTINGS{{{GL_PACK_SWAP_BYTES, 0},
                                                      {GL_PACK_LSB_FIRST, 0},
                                                      {GL_PACK_ROW_LENGTH, 0},
                                                      {GL_PACK_SKIP_ROWS, 0},
                                                      {GL_PACK_SKIP_PIXELS, 0},
                                                      {GL_PACK_ALIGNMENT, 4}}};
    GLint packBuffer = 0;
    GLint unpackBuffer = 0;
    std::array<GLint, SETTINGS.size()> before{};
};

GLName makeTexture(GLint internalFormat, GLenum format, GLenum type, GLint filter, int width, int height) {
    GLName texture(GLName::TEXTURE);
    glBindTexture(GL_TEXTURE_2D, texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, type, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    // The light looks at neighbours, which at an edge of the picture are the edge itself.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return texture;
}

} // namespace

bool OffscreenTarget::isPossible(int width, int height) {
    GLint largest = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
    return width > 0 && height > 0 && width <= largest && height <= largest;
}

OffscreenTarget::OffscreenTarget(int widthIn, int heightIn) : width(widthIn), height(heightIn) {
    const PlainPixelTransfer plain;
    glActiveTexture(GL_TEXTURE0);
    colourTexture = makeTexture(GL_RGBA, GL_RGBA, GL_FLOAT, GL_LINEAR, width, height);
    depthTexture = makeTexture(GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, GL_NEAREST, width, height);
    glBindTexture(GL_TEXTURE_2D, 0);
}

void OffscreenTarget::forget() {
    colourTexture.forget();
    depthTexture.forget();
}

GLName OffscreenTarget::makeFramebuffer() const {
    GLint before = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &before);
    GLName framebuffer(GLName::FRAMEBUFFER);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer.get());
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, colours(), 0);
    attachDepth(true);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE) return framebuffer;
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(before));
    return {};
}

void OffscreenTarget::attachDepth(bool attach) const {
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, attach ? depths() : 0, 0);
}

std::vector<unsigned char> OffscreenTarget::readPixels() const {
    const PlainPixelTransfer plain;
    std::vector<unsigned char> pixels(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    return pixels;
}

CursorDepths OffscreenTarget::readDepths(int x, int row) const {
    CursorDepths depths;
    depths.fill(1.0F);
    const int left = std::max(x - CURSOR_SIZE / 2, 0);
    const int right = std::min(x + CURSOR_SIZE / 2, width);
    const int bottom = std::max(row - CURSOR_SIZE / 2, 0);
    const int top = std::min(row + CURSOR_SIZE / 2, height);
    if (left >= right || bottom >= top) return depths;
    const PlainPixelTransfer plain;
    std::vector<float> inside(static_cast<size_t>(right - left) * static_cast<size_t>(top - bottom));
    glReadPixels(left, bottom, right - left, top - bottom, GL_DEPTH_COMPONENT, GL_FLOAT, inside.data());
    auto from = inside.begin();
    for (int y = bottom; y < top; ++y, from += right - left) {
        const int column = left - (x - CURSOR_SIZE / 2);
        const int line = y - (row - CURSOR_SIZE / 2);
        std::copy_n(from, right - left, depths.begin() + column + CURSOR_SIZE * line);
    }
    return depths;
}
