#include "viewer/Keys.h"

#include <iterator>

static constexpr float SIZE_STEP = 1.25F;
static constexpr double DETAIL_STEP = 1.25;

static constexpr KeyBinding BINDINGS[] = {
    {'f', "Fit everything into the window", [](ViewerState& state) { state.fit(); }},
    {'1', "View from above", [](ViewerState& state) { state.setView(StandardView::TOP); }},
    {'2', "View from the front (south)", [](ViewerState& state) { state.setView(StandardView::FRONT); }},
    {'3', "View from the side (east)", [](ViewerState& state) { state.setView(StandardView::SIDE); }},
    {'4', "Oblique view", [](ViewerState& state) { state.setView(StandardView::ISO); }},
    {'c', "Next way of colouring", [](ViewerState& state) { state.nextColouring(); }},
    {'+', "Larger points", [](ViewerState& state) { state.scalePointSizes(SIZE_STEP); }},
    {'-', "Smaller points", [](ViewerState& state) { state.scalePointSizes(1.0F / SIZE_STEP); }},
    {']', "More detail", [](ViewerState& state) { state.scaleDetail(DETAIL_STEP); }},
    {'[', "Less detail", [](ViewerState& state) { state.scaleDetail(1.0 / DETAIL_STEP); }},
    {'o', "Smooth, round points on or off",
     [](ViewerState& state) { state.setSmooth(!state.scene.clouds.front().look.smooth); }},
    {'l', "Light on or off", [](ViewerState& state) { state.scene.look.lit = !state.scene.look.lit; }},
    {'b', "Clip box on or off", [](ViewerState& state) { state.setClipping(!state.clipping); }},
    {'m', "Measure: click two points", [](ViewerState& state) { state.measuring = !state.measuring; }},
    {'v', "Fly: W A S D, Q down, E up, drag to look, Shift for speed",
     [](ViewerState& state) { state.flying = !state.flying; }},
    {'g', "Lasso: draw around points to select them", [](ViewerState& state) { state.toggleTool(Tool::LASSO); }},
    {'r', "Select with a rectangle", [](ViewerState& state) { state.toggleTool(Tool::RECTANGLE); }},
    {'k', "Select with a sphere", [](ViewerState& state) { state.toggleTool(Tool::SPHERE); }},
    {'n', "Select nothing", [](ViewerState& state) { state.edit([](Editor& editor) { editor.selectNone(); }); }},
    {'i', "Select what is not selected",
     [](ViewerState& state) { state.edit([](Editor& editor) { editor.invert(); }); }},
    {'j', "Select all of the selected points' classes",
     [](ViewerState& state) { state.edit([](Editor& editor) { editor.growByClass(); }); }},
    {'u', "Hide or show the selected points",
     [](ViewerState& state) { state.editor.setSelectedHidden(!state.editor.isSelectedHidden()); }},
    {'x', "Delete the selected points (also Del)",
     [](ViewerState& state) { state.edit([](Editor& editor) { editor.deleteSelected(); }); }},
    {'z', "Undo (also Ctrl-Z)", [](ViewerState& state) { state.edit([](Editor& editor) { editor.undo(); }); }},
    {'y', "Redo (also Ctrl-Y)", [](ViewerState& state) { state.edit([](Editor& editor) { editor.redo(); }); }},
    {'p', "Save the picture as PNG in the current folder", [](ViewerState& state) { state.screenshotWanted = true; }},
    {'h', "Hide or show the panel", [](ViewerState& state) { state.showPanel = !state.showPanel; }},
    {'?', "Hide or show this list", [](ViewerState& state) { state.showHelp = !state.showHelp; }},
};

std::span<const KeyBinding> keyBindings() {
    return BINDINGS;
}

bool pressKey(unsigned character, ViewerState& state) {
    for (const KeyBinding& binding : BINDINGS) {
        if (character != static_cast<unsigned char>(binding.key)) continue;
        binding.act(state);
        return true;
    }
    return false;
}
