#include "viewer/HeadlessContext.h"
#include "support/Failure.h"

#include <epoxy/egl.h>

#include <fmt/format.h>

// The handles in the order in which they come to be, given back in the opposite one, a failed construction included.
struct HeadlessContext::Handles {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;

    Handles() = default;
    Handles(const Handles&) = delete;
    Handles& operator=(const Handles&) = delete;
    ~Handles() {
        if (display == EGL_NO_DISPLAY) return;
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        if (context != EGL_NO_CONTEXT) eglDestroyContext(display, context);
        // No eglTerminate: the display is the process's rather than this object's, and everybody gets the same one.
    }
};

static EGLDisplay initialised(EGLDisplay display) {
    return display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) == EGL_TRUE ? display : EGL_NO_DISPLAY;
}

static EGLDisplay openDisplay() {
    if (epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless") &&
        epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_EXT_platform_base")) {
        const EGLDisplay display = initialised(eglGetPlatformDisplayEXT(
            EGL_PLATFORM_SURFACELESS_MESA, reinterpret_cast<void*>(EGL_DEFAULT_DISPLAY), nullptr));
        if (display != EGL_NO_DISPLAY) return display;
    }
    return initialised(eglGetDisplay(EGL_DEFAULT_DISPLAY));
}

[[noreturn]] static void fail(const char* what) {
    throw CommandFailure(
        fmt::format("cannot draw without a window: {} (EGL error {:#x}); Mesa's software renderer would do", what,
                    static_cast<unsigned>(eglGetError())));
}

HeadlessContext::HeadlessContext() : handles(std::make_unique<Handles>()) {
    if (!epoxy_has_egl()) throw CommandFailure("cannot draw without a window: there is no EGL library");
    handles->display = openDisplay();
    if (handles->display == EGL_NO_DISPLAY) fail("there is no EGL display");
    if (eglBindAPI(EGL_OPENGL_API) != EGL_TRUE) fail("EGL has no OpenGL");
    static constexpr EGLint CONFIG[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    if (eglChooseConfig(handles->display, CONFIG, &config, 1, &count) != EGL_TRUE || count < 1) {
        fail("EGL has no configuration for OpenGL");
    }
    static constexpr EGLint CONTEXT[] = {
        EGL_CONTEXT_MAJOR_VERSION,           4,       EGL_CONTEXT_MINOR_VERSION, 1, EGL_CONTEXT_OPENGL_PROFILE_MASK,
        EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
    handles->context = eglCreateContext(handles->display, config, EGL_NO_CONTEXT, CONTEXT);
    if (handles->context == EGL_NO_CONTEXT) fail("there is no OpenGL 4.1");
    if (eglMakeCurrent(handles->display, EGL_NO_SURFACE, EGL_NO_SURFACE, handles->context) != EGL_TRUE) {
        fail("EGL needs a surface");
    }
}

HeadlessContext::~HeadlessContext() = default;
