#pragma once

#include <epoxy/egl.h>

// A context of OpenGL 4.1, core profile and forward compatible, on Mesa's software renderer, without a window system.
// Current on the thread that made it, until it or another one is.
class HeadlessContext {
public:
    // `shared`: a context to share objects with, or null. Throws when there is none to be had.
    explicit HeadlessContext(const HeadlessContext* shared = nullptr);
    ~HeadlessContext();
    HeadlessContext(const HeadlessContext&) = delete;
    HeadlessContext& operator=(const HeadlessContext&) = delete;

    void makeCurrent() const;

    // Leaves the calling thread without a context.
    static void makeNoneCurrent();

private:
    EGLDisplay display;
    EGLContext context = EGL_NO_CONTEXT;
};
