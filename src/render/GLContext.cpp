#include "render/GLContext.h"

#include <dlfcn.h>
#include <epoxy/gl.h>
#include <random>

namespace {

// Calls a function of no arguments in a library, if the process has the library loaded.
bool answersInLoaded(const char* library, const char* function) {
    void* handle = ::dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
    if (!handle) return false;
    using CurrentContext = void* (*)();
    const auto currentContext = reinterpret_cast<CurrentContext>(::dlsym(handle, function));
    const bool answers = currentContext && currentContext() != nullptr;
    ::dlclose(handle);
    return answers;
}

} // namespace

bool isContextUsable() {
    const bool isCurrent = answersInLoaded("libEGL.so.1", "eglGetCurrentContext") ||
                           answersInLoaded("libGLX.so.0", "glXGetCurrentContext") ||
                           answersInLoaded("libGL.so.1", "glXGetCurrentContext");
    constexpr int OLDEST_VERSION = 41;
    return isCurrent && epoxy_is_desktop_gl() && epoxy_gl_version() >= OLDEST_VERSION;
}

void clearErrors() {
    // A lost context reports errors without end.
    for (int i = 0; i < 100 && glGetError() != GL_NO_ERROR; ++i) {
    }
}

ContextMarker::ContextMarker() : sampler(GLName::SAMPLER) {
    std::random_device random;
    constexpr uint32_t EXACT_IN_FLOAT = (1U << 24) - 1;
    glSamplerParameterf(sampler.get(), GL_TEXTURE_MIN_LOD, -static_cast<float>(random() & EXACT_IN_FLOAT));
    glSamplerParameterf(sampler.get(), GL_TEXTURE_MAX_LOD, static_cast<float>(random() & EXACT_IN_FLOAT));
    token = read();
}

bool ContextMarker::isHere() const {
    return glIsSampler(sampler.get()) == GL_TRUE && read() == token;
}

ContextMarker::Token ContextMarker::read() const {
    Token values{};
    glGetSamplerParameterfv(sampler.get(), GL_TEXTURE_MIN_LOD, &values[0]);
    glGetSamplerParameterfv(sampler.get(), GL_TEXTURE_MAX_LOD, &values[1]);
    return values;
}
