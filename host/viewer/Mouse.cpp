#include "viewer/Mouse.h"

#include <GLFW/glfw3.h>
#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <numbers>

static constexpr double HALF_TURN = std::numbers::pi; // for a drag across the window's height
static constexpr double ZOOM_STEP = 0.87;             // of the distance, for a notch of the wheel

// The user interface counts in the window's units, which on some screens are larger than pixels.
static glm::dvec2 pixelsOf(const ImVec2& way) {
    const ImVec2 scale = ImGui::GetIO().DisplayFramebufferScale;
    return {static_cast<double>(way.x * scale.x), static_cast<double>(way.y * scale.y)};
}

void Mouse::drag(ViewerState& state) const {
    const ImGuiIO& io = ImGui::GetIO();
    const glm::dvec2 way = pixelsOf(io.MouseDelta);
    if (way.x == 0.0 && way.y == 0.0) return;
    const bool left = ImGui::IsMouseDown(ImGuiMouseButton_Left);
    const bool middle = ImGui::IsMouseDown(ImGuiMouseButton_Middle);
    const bool hasTool = state.tool != Tool::NONE; // which then takes the left button
    const bool isPan = ImGui::IsMouseDown(ImGuiMouseButton_Right) || (middle && !hasTool) ||
                       (left && io.KeyShift && !state.flying && !hasTool);
    const double angle = HALF_TURN / state.size.height;
    if (isPan) {
        state.camera.pan(way, state.size);
    } else if (hasTool) {
        if (middle) state.camera.orbit(-way.x * angle, -way.y * angle);
    } else if (left && state.flying) {
        state.camera.look(-way.x * angle, -way.y * angle);
    } else if (left && ImGui::IsMouseDragging(ImGuiMouseButton_Left)) {
        state.camera.orbit(-way.x * angle, -way.y * angle);
    }
}

void Mouse::click(ViewerState& state) {
    // A click is a press and a release without a drag between them.
    const ImGuiIO& io = ImGui::GetIO();
    const bool isClick =
        ImGui::IsMouseReleased(ImGuiMouseButton_Left) && io.MouseDragMaxDistanceSqr[0] < io.MouseDragThreshold * 2.0F;
    const bool isDouble = ImGui::IsMouseDoubleClicked(ImGuiMouseButton_Left);
    if (!isClick && !isDouble) return;
    const auto pick = state.scene.pick(state.camera, state.size, pixelsOf(io.MousePos));
    if (isDouble) {
        if (pick) state.camera.setPivot(pick->position);
        return;
    }
    state.picked = pick;
    if (!state.measuring || !pick) return;
    if (!state.measureStart || state.measureEnd) {
        state.measureStart = pick;
        state.measureEnd.reset();
    } else {
        state.measureEnd = pick;
    }
}

void Mouse::drawStroke(ViewerState& state) const {
    constexpr double LEAST_STEP = 3.0; // pixels, between the corners of a lasso
    const ImGuiIO& io = ImGui::GetIO();
    const glm::dvec2 at = pixelsOf(io.MousePos);
    if (ImGui::IsMouseClicked(ImGuiMouseButton_Left)) {
        state.strokeLine = {at, at};
        state.sphereRadius = 0.0;
        const auto pick = state.tool == Tool::SPHERE ? state.scene.pick(state.camera, state.size, at) : std::nullopt;
        if (pick) state.sphereCentre = pick->position;
        if (state.tool == Tool::SPHERE && !pick) state.announce("Press on a point, the centre of the sphere");
    }
    if (state.strokeLine.empty()) return;
    if (state.tool == Tool::LASSO && glm::length(at - state.strokeLine.back()) >= LEAST_STEP) {
        state.strokeLine.push_back(at);
    }
    if (state.tool == Tool::RECTANGLE) state.strokeLine.back() = at;
    if (state.sphereCentre) {
        const glm::dvec3 surface = state.camera.pointAtDepthOf(*state.sphereCentre, at, state.size);
        state.sphereRadius = glm::length(surface - *state.sphereCentre);
    }
    if (!ImGui::IsMouseReleased(ImGuiMouseButton_Left)) return;
    const Editor::Mode mode = state.editor.mode;
    if (mode != Editor::Mode::PAINT && io.KeyShift) state.editor.mode = Editor::Mode::ADD;
    if (mode != Editor::Mode::PAINT && io.KeyCtrl) state.editor.mode = Editor::Mode::SUBTRACT;
    state.endStroke(false);
    state.editor.mode = mode;
}

void Mouse::flyOn(ViewerState& state, GLFWwindow* window) {
    const auto held = [window](int key) { return glfwGetKey(window, key) == GLFW_PRESS ? 1.0 : 0.0; };
    const glm::dvec3 way{held(GLFW_KEY_D) - held(GLFW_KEY_A), held(GLFW_KEY_E) - held(GLFW_KEY_Q),
                         held(GLFW_KEY_W) - held(GLFW_KEY_S)};
    moving = state.flying && way != glm::dvec3(0.0) && !ImGui::GetIO().WantCaptureKeyboard;
    if (!moving) {
        lastFlight = 0.0;
        return;
    }
    const double now = glfwGetTime();
    // The first step, and one after a hitch, is that of a plain frame.
    const double seconds = lastFlight > 0.0 ? std::min(now - lastFlight, 0.1) : 1.0 / 60.0;
    lastFlight = now;
    const double speed = state.scene.bounds().diagonal() * (held(GLFW_KEY_LEFT_SHIFT) > 0.0 ? 0.4 : 0.1);
    state.camera.fly(way * (speed * seconds));
}

void Mouse::update(ViewerState& state, GLFWwindow* window) {
    const ImGuiIO& io = ImGui::GetIO();
    flyOn(state, window);
    if (io.WantCaptureMouse) return;
    drag(state);
    if (state.tool != Tool::NONE) {
        drawStroke(state);
    } else {
        click(state);
    }
    if (io.MouseWheel == 0.0F) return;
    const glm::dvec2 pixel = pixelsOf(io.MousePos);
    const auto pick = state.scene.pick(state.camera, state.size, pixel);
    const glm::dvec3 anchor =
        pick ? pick->position : state.camera.pointAtDepthOf(state.camera.pivot(), pixel, state.size);
    state.camera.zoom(std::pow(ZOOM_STEP, static_cast<double>(io.MouseWheel)), anchor);
}
