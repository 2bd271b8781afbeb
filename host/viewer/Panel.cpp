#include "viewer/Panel.h"
#include "support/Text.h"
#include "viewer/Overlay.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <numbers>

static constexpr float PANEL_WIDTH = 320.0F; // pixels of the user interface

static void text(const std::string& line) {
    ImGui::TextUnformatted(line.c_str());
}

static void drawNumbers(const ViewerState& state) {
    const double seconds = state.frameSeconds;
    text(fmt::format("{:.0f} frames/s  ({:.1f} ms)", seconds > 0.0 ? 1.0 / seconds : 0.0, seconds * 1e3));
    text(grouped(static_cast<uint64_t>(std::max(state.scene.loadedPoints(), 0))) +
         (state.scene.hasPoints() ? " points shown" : " cells shown") + (state.loading ? ", loading ..." : ""));
}

static void drawViews(ViewerState& state) {
    static constexpr std::pair<const char*, StandardView> VIEWS[] = {{"Top", StandardView::TOP},
                                                                     {"Front", StandardView::FRONT},
                                                                     {"Side", StandardView::SIDE},
                                                                     {"Oblique", StandardView::ISO}};
    if (ImGui::Button("Fit")) state.fit();
    for (const auto& [name, view] : VIEWS) {
        ImGui::SameLine();
        if (ImGui::Button(name)) state.setView(view);
    }
    auto degrees = static_cast<float>(state.camera.fieldOfView() * 180.0 / std::numbers::pi);
    if (ImGui::SliderFloat("field of view", &degrees, 5.0F, 120.0F, "%.0f deg")) {
        state.camera.setFieldOfView(static_cast<double>(degrees) * std::numbers::pi / 180.0);
    }
    ImGui::Checkbox("fly (V)", &state.flying);
}

// Returns the colouring that was chosen, else `current`.
static Colouring drawColouring(const char* label, Colouring current, std::span<const Colouring> choices) {
    Colouring chosen = current;
    if (!ImGui::BeginCombo(label, std::string(nameOf(current)).c_str())) return current;
    for (const Colouring colouring : choices) {
        if (ImGui::Selectable(std::string(nameOf(colouring)).c_str(), colouring == current)) chosen = colouring;
    }
    ImGui::EndCombo();
    return chosen;
}

static void drawLook(ViewerState& state) {
    const Colouring chosen = drawColouring("colour", state.colouring, COLOURINGS);
    if (chosen != state.colouring) state.setColouring(chosen);
    CloudLook& first = state.scene.clouds.front().look;
    if (ImGui::SliderFloat("point size", &first.pointSize, 1.0F, 50.0F, "%.1f", ImGuiSliderFlags_Logarithmic)) {
        for (Scene::Cloud& cloud : state.scene.clouds) cloud.look.pointSize = first.pointSize;
    }
    if (ImGui::SliderInt("detail", &first.detail, 2, 1000, "%d", ImGuiSliderFlags_Logarithmic)) {
        for (Scene::Cloud& cloud : state.scene.clouds) cloud.look.detail = first.detail;
    }
    bool smooth = first.smooth;
    if (ImGui::Checkbox("smooth", &smooth)) state.setSmooth(smooth);
    ImGui::SameLine();
    ImGui::Checkbox("light", &state.scene.look.lit);
    if (first.smooth) {
        ImGui::SliderFloat("exposure", &state.scene.look.smoothExposure, 0.02F, 1.0F, "%.2f",
                           ImGuiSliderFlags_Logarithmic);
    }
    float colour[3] = {};
    for (size_t i = 0; i < 3; ++i) colour[i] = static_cast<float>(state.background[i]) / 255.0F;
    if (ImGui::ColorEdit3("background", colour, ImGuiColorEditFlags_NoInputs)) {
        for (size_t i = 0; i < 3; ++i)
            state.background[i] = static_cast<unsigned char>(std::lround(colour[i] * 255.0F));
    }
}

// A voxel model without colours does not tell how many cells it has.
static std::string sizeOf(const CloudFacts& facts) {
    if (!facts.isVoxel()) return grouped(static_cast<uint64_t>(std::max(facts.points, int64_t{0}))) + " points";
    return facts.voxelColours > 0 ? grouped(static_cast<uint64_t>(facts.voxelColours)) + " cells" : "voxel model";
}

static void drawCloud(const ViewerState& state, Scene::Cloud& cloud) {
    ImGui::Checkbox("##visible", &cloud.look.visible);
    ImGui::SameLine();
    const std::string name = std::filesystem::path(cloud.path).filename().string();
    if (!ImGui::TreeNode(name.c_str())) return;
    text(sizeOf(cloud.file->facts()));
    // The ramps of height and distance run over all clouds, so there is nothing to choose for one.
    if (!state.scene.look.ramp) {
        cloud.look.colouring = drawColouring("colour", cloud.look.colouring, std::span(COLOURINGS).first(3));
    }
    ImGui::SliderFloat("point size", &cloud.look.pointSize, 1.0F, 50.0F, "%.1f", ImGuiSliderFlags_Logarithmic);
    ImGui::SliderInt("detail", &cloud.look.detail, 2, 1000, "%d", ImGuiSliderFlags_Logarithmic);
    ImGui::SliderFloat("opacity", &cloud.look.opacity, 0.0F, 100.0F, "%.0f %%");
    ImGui::Checkbox("smooth", &cloud.look.smooth);
    ImGui::SameLine();
    ImGui::Checkbox("not clipped", &cloud.look.ignoresClip);
    ImGui::TreePop();
}

// One slider for the lower and one for the upper end of an axis, in the files' coordinates.
static bool drawClipAxis(ViewerState& state, int axis) {
    const Box all = state.scene.bounds();
    const double low = state.scene.toFile(all.minimum)[axis];
    const double high = state.scene.toFile(all.maximum)[axis];
    glm::dvec3 from = state.scene.toFile(state.clipBox.minimum);
    glm::dvec3 to = state.scene.toFile(state.clipBox.maximum);
    const std::string name(1, "xyz"[axis]);
    const bool isFrom =
        ImGui::SliderScalar((name + " from").c_str(), ImGuiDataType_Double, &from[axis], &low, &high, "%.2f");
    const bool isTo = ImGui::SliderScalar((name + " to").c_str(), ImGuiDataType_Double, &to[axis], &low, &high, "%.2f");
    if (!isFrom && !isTo) return false;
    // The end that is pulled pushes the other along.
    if (isFrom) to[axis] = std::max(to[axis], from[axis]);
    if (isTo) from[axis] = std::min(from[axis], to[axis]);
    state.clipBox.minimum = state.scene.toScene(from);
    state.clipBox.maximum = state.scene.toScene(to);
    return true;
}

static void drawClip(ViewerState& state) {
    bool on = state.clipping;
    bool changed = ImGui::Checkbox("clip box", &on);
    ImGui::SameLine();
    if (ImGui::Button("Reset")) {
        state.clipBox = state.scene.bounds();
        changed = true;
    }
    for (int axis = 0; axis < 3 && on && !state.scene.bounds().isEmpty(); ++axis) {
        changed = drawClipAxis(state, axis) || changed;
    }
    if (changed) state.setClipping(on);
}

static void drawPoint(const ViewerState& state, const char* label, const Scene::Pick& pick) {
    const glm::dvec3 at = state.scene.toFile(pick.position);
    const auto& bytes = pick.bytes;
    text(fmt::format("{} {:.3f}, {:.3f}, {:.3f}", label, at.x, at.y, at.z));
    text(fmt::format("  rgb {} {} {}, intensity {}, class {}", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4]));
}

static void drawMeasuring(ViewerState& state) {
    ImGui::Checkbox("measure (M)", &state.measuring);
    if (state.measuring && (!state.measureStart || state.measureEnd)) text("click the first point");
    if (state.measuring && state.measureStart && !state.measureEnd) text("click the second point");
    if (state.measureStart) drawPoint(state, "from", *state.measureStart);
    if (state.measureEnd) {
        drawPoint(state, "to", *state.measureEnd);
        text(describeMeasurement(state));
    }
    if (!state.measuring && state.picked) drawPoint(state, "point", *state.picked);
}

template <typename Choice>
static void drawChoices(Choice& value, std::initializer_list<std::pair<const char*, Choice>> choices) {
    bool isFirst = true;
    for (const auto& [name, choice] : choices) {
        if (!isFirst) ImGui::SameLine();
        isFirst = false;
        if (ImGui::RadioButton(name, value == choice)) value = choice;
    }
}

static void drawPaint(Paint& paint) {
    drawChoices(paint.kind, {{"colour", Paint::Kind::COLOUR},
                             {"brightness", Paint::Kind::BRIGHTNESS},
                             {"contrast", Paint::Kind::CONTRAST}});
    if (paint.kind != Paint::Kind::COLOUR) {
        ImGui::SliderInt("amount", &paint.amount, -200, 200);
        return;
    }
    float colour[3];
    for (size_t i = 0; i < 3; ++i) colour[i] = static_cast<float>(paint.colour[i]) / 255.0F;
    if (ImGui::ColorEdit3("paint", colour)) {
        for (size_t i = 0; i < 3; ++i) {
            paint.colour[i] = static_cast<unsigned char>(std::lround(std::clamp(colour[i], 0.0F, 1.0F) * 255.0F));
        }
    }
    ImGui::SliderInt("coverage", &paint.coverage, 0, 100, "%d %%");
    ImGui::SliderInt("strength", &paint.strength, 0, 100, "%d %%");
}

static void drawTools(ViewerState& state) {
    Tool tool = state.tool;
    drawChoices(
        tool, {{"turn", Tool::NONE}, {"lasso", Tool::LASSO}, {"rectangle", Tool::RECTANGLE}, {"sphere", Tool::SPHERE}});
    if (tool != state.tool) state.toggleTool(tool == Tool::NONE ? state.tool : tool);
    drawChoices(state.editor.mode, {{"select", Editor::Mode::REPLACE},
                                    {"add", Editor::Mode::ADD},
                                    {"take away", Editor::Mode::SUBTRACT},
                                    {"paint", Editor::Mode::PAINT}});
    if (state.editor.mode == Editor::Mode::PAINT) drawPaint(state.editor.paint);
}

static void editButton(ViewerState& state, const char* label, void (*change)(Editor& editor), bool onSameLine = true) {
    if (onSameLine) ImGui::SameLine();
    if (ImGui::Button(label)) state.edit(change);
}

static void drawEdit(ViewerState& state) {
    drawTools(state);
    editButton(
        state, "All", [](Editor& editor) { editor.selectAll(); }, false);
    editButton(state, "None", [](Editor& editor) { editor.selectNone(); });
    editButton(state, "Invert", [](Editor& editor) { editor.invert(); });
    editButton(state, "Same class", [](Editor& editor) { editor.growByClass(); });
    if (state.clipping) {
        ImGui::SameLine();
        const Box box = state.clipBox;
        if (ImGui::Button("In clip")) state.edit([&box](Editor& editor) { editor.strokeBox(box); });
    }
    text(counted(state.editor.selectedPoints(), "point") + " selected");
    editButton(
        state, "Delete", [](Editor& editor) { editor.deleteSelected(); }, false);
    editButton(state, "Undo", [](Editor& editor) { editor.undo(); });
    editButton(state, "Redo", [](Editor& editor) { editor.redo(); });
    editButton(state, "Restore deleted", [](Editor& editor) { editor.restoreDeleted(); });
    if (ImGui::InputInt("class", &state.classToGive)) state.classToGive = std::clamp(state.classToGive, 0, 255);
    ImGui::SameLine();
    if (ImGui::Button("Classify")) {
        const auto number = static_cast<unsigned char>(state.classToGive);
        state.edit([number](Editor& editor) { editor.classifySelected(number); });
    }
    bool hidden = state.editor.isSelectedHidden();
    if (ImGui::Checkbox("hide selected", &hidden)) state.editor.setSelectedHidden(hidden);
}

static bool section(const char* name) {
    return ImGui::CollapsingHeader(name, ImGuiTreeNodeFlags_DefaultOpen);
}

void drawPanel(ViewerState& state) {
    ImGui::SetNextWindowPos({10.0F, 10.0F}, ImGuiCond_FirstUseEver);
    ImGui::SetNextWindowSizeConstraints({PANEL_WIDTH, 0.0F}, {PANEL_WIDTH, ImGui::GetIO().DisplaySize.y - 20.0F});
    ImGui::SetNextWindowBgAlpha(0.85F);
    if (ImGui::Begin("nimbrel", &state.showPanel, ImGuiWindowFlags_AlwaysAutoResize)) {
        ImGui::PushItemWidth(PANEL_WIDTH * 0.55F);
        drawNumbers(state);
        if (section("View")) drawViews(state);
        if (section("Look")) drawLook(state);
        if (section("Clouds")) {
            for (Scene::Cloud& cloud : state.scene.clouds) {
                ImGui::PushID(&cloud);
                drawCloud(state, cloud);
                ImGui::PopID();
            }
        }
        if (section("Clip")) drawClip(state);
        if (state.scene.hasPoints() && section("Select and edit")) drawEdit(state);
        if (section("Measure")) drawMeasuring(state);
        if (ImGui::Button("Save picture (P)")) state.screenshotWanted = true;
        ImGui::SameLine();
        if (ImGui::Button("Keys (?)")) state.showHelp = !state.showHelp;
        ImGui::PopItemWidth();
    }
    ImGui::End();
}
