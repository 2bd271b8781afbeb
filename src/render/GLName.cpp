#include "render/GLName.h"

#include <epoxy/gl.h>
#include <utility>

GLName::GLName(Kind kindIn) : kind(kindIn) {
    switch (kind) {
    case BUFFER:
        glGenBuffers(1, &name);
        break;
    case FRAMEBUFFER:
        glGenFramebuffers(1, &name);
        break;
    case SAMPLER:
        glGenSamplers(1, &name);
        break;
    case TEXTURE:
        glGenTextures(1, &name);
        break;
    case VERTEX_ARRAY:
        glGenVertexArrays(1, &name);
        break;
    }
}

GLName::GLName(GLName&& other) noexcept : kind(other.kind), name(std::exchange(other.name, 0)) {}

GLName& GLName::operator=(GLName&& other) noexcept {
    if (this == &other) return *this;
    remove();
    kind = other.kind;
    name = std::exchange(other.name, 0);
    return *this;
}

void GLName::remove() const {
    if (name == 0) return;
    switch (kind) {
    case BUFFER:
        glDeleteBuffers(1, &name);
        break;
    case FRAMEBUFFER:
        glDeleteFramebuffers(1, &name);
        break;
    case SAMPLER:
        glDeleteSamplers(1, &name);
        break;
    case TEXTURE:
        glDeleteTextures(1, &name);
        break;
    case VERTEX_ARRAY:
        glDeleteVertexArrays(1, &name);
        break;
    }
}
