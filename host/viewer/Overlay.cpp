#include "viewer/Overlay.h"
#include "viewer/Keys.h"

#include <GLFW/glfw3.h>
#include <imgui.h>

#include <cmath>
#include <fmt/format.h>
#include <vector>

// Drawn by the user interface from projected points, over everything: a line through a cloud stays visible.

static constexpr ImU32 YELLOW = IM_COL32(255, 220, 70, 255);
static constexpr ImU32 PALE = IM_COL32(255, 255, 255, 150);

static std::optional<ImVec2> onScreen(const ViewerState& state, const glm::dvec3& point) {
    const auto pixel = state.camera.project(point, state.size);
    // Far outside lies nothing to see, and the numbers would outgrow what the user interface draws with.
    if (!pixel || glm::length(*pixel) > 1e5) return std::nullopt;
    const ImVec2 scale = ImGui::GetIO().DisplayFramebufferScale;
    return ImVec2(static_cast<float>(pixel->x) / scale.x, static_cast<float>(pixel->y) / scale.y);
}

static void drawLine(const ViewerState& state, const glm::dvec3& from, const glm::dvec3& to, ImU32 colour,
                     float width) {
    const auto a = onScreen(state, from);
    const auto b = onScreen(state, to);
    if (a && b) ImGui::GetBackgroundDrawList()->AddLine(*a, *b, colour, width);
}

static void drawClipBox(const ViewerState& state) {
    for (size_t corner = 0; corner < 8; ++corner) {
        for (size_t axis = 1; axis < 8; axis *= 2) {
            if ((corner & axis) != 0) continue;
            drawLine(state, state.clipBox.corner(corner), state.clipBox.corner(corner | axis), PALE, 1.0F);
        }
    }
}

static void drawPivot(const ViewerState& state) {
    const auto at = onScreen(state, state.camera.pivot());
    if (!at) return;
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    list.AddCircle(*at, 5.0F, PALE);
    list.AddCircleFilled(*at, 1.5F, PALE);
}

std::string describeMeasurement(const ViewerState& state) {
    const glm::dvec3 from = state.scene.toFile(state.measureStart->position);
    const glm::dvec3 to = state.scene.toFile(state.measureEnd->position);
    const glm::dvec3 way = to - from;
    return fmt::format("{:.3f}  (x {:+.3f}, y {:+.3f}, z {:+.3f})", glm::length(way), way.x, way.y, way.z);
}

static void drawMeasurement(const ViewerState& state) {
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    for (const auto& end : {state.measureStart, state.measureEnd}) {
        const auto at = end ? onScreen(state, end->position) : std::nullopt;
        if (at) list.AddCircle(*at, 4.0F, YELLOW, 0, 2.0F);
    }
    if (!state.measureStart || !state.measureEnd) return;
    const glm::dvec3 from = state.measureStart->position;
    const glm::dvec3 to = state.measureEnd->position;
    drawLine(state, from, to, YELLOW, 2.0F);
    const auto middle = onScreen(state, (from + to) * 0.5);
    if (!middle) return;
    const std::string text = describeMeasurement(state);
    const ImVec2 size = ImGui::CalcTextSize(text.c_str());
    const ImVec2 at(middle->x + 8.0F, middle->y - size.y - 8.0F);
    list.AddRectFilled({at.x - 4.0F, at.y - 2.0F}, {at.x + size.x + 4.0F, at.y + size.y + 2.0F}, IM_COL32(0, 0, 0, 170),
                       3.0F);
    list.AddText(at, YELLOW, text.c_str());
}

// The shape that the left button is drawing.
static void drawStroke(const ViewerState& state) {
    const ImVec2 scale = ImGui::GetIO().DisplayFramebufferScale;
    ImDrawList& list = *ImGui::GetBackgroundDrawList();
    std::vector<ImVec2> line;
    for (const glm::dvec2& pixel : state.strokeLine) {
        line.emplace_back(static_cast<float>(pixel.x) / scale.x, static_cast<float>(pixel.y) / scale.y);
    }
    if (state.tool == Tool::LASSO) {
        list.AddPolyline(line.data(), static_cast<int>(line.size()), YELLOW, ImDrawFlags_Closed, 1.5F);
    } else if (state.tool == Tool::RECTANGLE && line.size() == 2) {
        list.AddRect(line[0], line[1], YELLOW, 0.0F, 0, 1.5F);
    } else if (state.sphereCentre) {
        // As wide as the sphere is across the line of sight.
        const auto centre = onScreen(state, *state.sphereCentre);
        const auto edge = onScreen(state, *state.sphereCentre + state.camera.right() * state.sphereRadius);
        if (centre && edge) list.AddCircle(*centre, std::abs(edge->x - centre->x), YELLOW, 0, 1.5F);
    }
}

static constexpr ImGuiWindowFlags BARE = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_AlwaysAutoResize |
                                         ImGuiWindowFlags_NoInputs | ImGuiWindowFlags_NoFocusOnAppearing;

static void drawMessage(const ViewerState& state) {
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowPos({size.x / 2.0F, size.y - 12.0F}, ImGuiCond_Always, {0.5F, 1.0F});
    ImGui::SetNextWindowBgAlpha(0.7F);
    if (ImGui::Begin("message", nullptr, BARE)) ImGui::TextUnformatted(state.message.c_str());
    ImGui::End();
}

static void drawHelp() {
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowPos({size.x / 2.0F, size.y / 2.0F}, ImGuiCond_Always, {0.5F, 0.5F});
    ImGui::SetNextWindowBgAlpha(0.9F);
    if (ImGui::Begin("keys", nullptr, BARE)) {
        for (const KeyBinding& binding : keyBindings()) ImGui::Text("%c      %s", binding.key, binding.effect);
        ImGui::Text("Esc    Put down the tool, end measuring, flying or this list");
        ImGui::Separator();
        ImGui::Text("Drag left        Orbit around the ring");
        ImGui::Text("Drag right       Move (also middle, or Shift and left)");
        ImGui::Text("Wheel            Zoom to what is under the cursor");
        ImGui::Text("With a tool      Left draws, middle orbits; Shift adds, Ctrl takes away");
        ImGui::Text("Click            Tell about a point");
        ImGui::Text("Double click     Orbit around that point from now on");
    }
    ImGui::End();
}

void drawOverlay(const ViewerState& state) {
    if (state.clipping) drawClipBox(state);
    drawPivot(state);
    drawMeasurement(state);
    if (!state.strokeLine.empty()) drawStroke(state);
    if (glfwGetTime() < state.messageEnd) drawMessage(state);
    if (state.showHelp) drawHelp();
}
