#pragma once

#include "viewer/Camera.h"

#include <string>

struct GLFWwindow;

// A window with an OpenGL 4.1 core context, current on the calling thread, and the user interface within it. There is
// one at a time. Nothing is stored on the disk.
class Window {
public:
    // Throws CommandFailure, which says what this machine lacks.
    Window(const std::string& title, PixelSize size);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    [[nodiscard]] GLFWwindow* handle() const { return window; }
    [[nodiscard]] PixelSize pixelSize() const; // of the inside; 1 by 1 while it is minimised

    // Begins the user interface's part of a frame.
    void beginInterface() const;
    // Draws it over what is in the window.
    void drawInterface() const;
    void show() const;

private:
    GLFWwindow* window = nullptr;
};
