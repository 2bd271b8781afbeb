#include "support/HeadlessContext.h"

#include <cstdlib>
#include <stdexcept>

namespace {

// One display for the whole process: ending it would end the contexts of others.
EGLDisplay softwareDisplay() {
    static const EGLDisplay display = [] {
        ::setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
        const EGLDisplay made = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (!eglInitialize(made, nullptr, nullptr)) throw std::runtime_error("no EGL display without a window system");
        return made;
    }();
    return display;
}

} // namespace

HeadlessContext::HeadlessContext(const HeadlessContext* shared) : display(softwareDisplay()) {
    eglBindAPI(EGL_OPENGL_API);
    // Of OpenGL 3.2 and later, the core profile is what one gets unasked.
    const EGLint wanted[] = {EGL_CONTEXT_MAJOR_VERSION,
                             4,
                             EGL_CONTEXT_MINOR_VERSION,
                             1,
                             EGL_CONTEXT_OPENGL_FORWARD_COMPATIBLE,
                             EGL_TRUE,
                             EGL_NONE};
    context = eglCreateContext(display, EGL_NO_CONFIG_KHR, shared ? shared->context : EGL_NO_CONTEXT, wanted);
    if (context == EGL_NO_CONTEXT) throw std::runtime_error("no OpenGL 4.1 context");
    makeCurrent();
}

HeadlessContext::~HeadlessContext() {
    if (eglGetCurrentContext() == context) makeNoneCurrent();
    eglDestroyContext(display, context);
}

void HeadlessContext::makeCurrent() const {
    if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
        throw std::runtime_error("the context can't be made current");
    }
}

void HeadlessContext::makeNoneCurrent() {
    eglMakeCurrent(softwareDisplay(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
}
