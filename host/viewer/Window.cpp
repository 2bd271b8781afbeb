#include "viewer/Window.h"
#include "support/Failure.h"

#include <GLFW/glfw3.h>
#include <backends/imgui_impl_glfw.h>
#include <backends/imgui_impl_opengl3.h>
#include <imgui.h>

#include <algorithm>

[[noreturn]] static void fail() {
    const char* reason = nullptr;
    glfwGetError(&reason);
    const std::string detail = reason == nullptr ? "" : std::string(": ") + reason;
    glfwTerminate();
    throw CommandFailure("cannot open a window with OpenGL 4.1" + detail + "; 'nimbrel render' draws without one");
}

static void beginImGui(GLFWwindow* window) {
    IMGUI_CHECKVERSION();
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;
    ImGui::StyleColorsDark();
    // Takes over callbacks that are set by now and calls them; those set later would replace it.
    ImGui_ImplGlfw_InitForOpenGL(window, true);
    ImGui_ImplOpenGL3_Init("#version 410");
}

Window::Window(const std::string& title, PixelSize size) {
    if (glfwInit() != GLFW_TRUE) fail();
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
    window = glfwCreateWindow(size.width, size.height, title.c_str(), nullptr, nullptr);
    if (window == nullptr) fail();
    glfwMakeContextCurrent(window);
    glfwSwapInterval(1);
}

Window::~Window() {
    if (ImGui::GetCurrentContext() != nullptr) {
        ImGui_ImplOpenGL3_Shutdown();
        ImGui_ImplGlfw_Shutdown();
        ImGui::DestroyContext();
    }
    glfwDestroyWindow(window);
    glfwTerminate();
}

PixelSize Window::pixelSize() const {
    PixelSize size;
    glfwGetFramebufferSize(window, &size.width, &size.height);
    return {std::max(size.width, 1), std::max(size.height, 1)};
}

void Window::beginInterface() const {
    if (ImGui::GetCurrentContext() == nullptr) beginImGui(window);
    ImGui_ImplOpenGL3_NewFrame();
    ImGui_ImplGlfw_NewFrame();
    ImGui::NewFrame();
}

void Window::drawInterface() const {
    ImGui::Render();
    ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
}

void Window::show() const {
    glfwSwapBuffers(window);
}
