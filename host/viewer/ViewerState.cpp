#include "viewer/ViewerState.h"
#include "support/Text.h"

#include <GLFW/glfw3.h>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <utility>

static constexpr const char* NO_POINTS = "A voxel model has no points to select or edit";

ViewerState::ViewerState(Scene& shown) : scene(shown), clipBox(shown.bounds()), editor(shown) {
    camera.setView(StandardView::ISO);
    setColouring(scene.suggestColouring());
    for (Scene::Cloud& cloud : scene.clouds) cloud.look.detail = 50; // half a second's worth on a modest machine
}

void ViewerState::setView(StandardView view) {
    camera.setView(view);
    fit();
}

void ViewerState::setColouring(Colouring newColouring) {
    colouring = newColouring;
    scene.setColouring(newColouring);
}

void ViewerState::nextColouring() {
    const auto* const at = std::find(COLOURINGS.begin(), COLOURINGS.end(), colouring);
    setColouring(at + 1 < COLOURINGS.end() ? at[1] : COLOURINGS.front());
    announce("Colour: " + std::string(nameOf(colouring)));
}

void ViewerState::scalePointSizes(float factor) {
    for (Scene::Cloud& cloud : scene.clouds) {
        cloud.look.pointSize = std::clamp(cloud.look.pointSize * factor, 1.0F, 50.0F);
    }
}

void ViewerState::scaleDetail(double factor) {
    for (Scene::Cloud& cloud : scene.clouds) {
        cloud.look.detail = std::clamp(static_cast<int>(std::lround(cloud.look.detail * factor)), 2, 1000);
    }
    announce("Level of detail: " + std::to_string(scene.clouds.front().look.detail));
}

void ViewerState::setSmooth(bool smooth) {
    for (Scene::Cloud& cloud : scene.clouds) cloud.look.smooth = smooth;
}

void ViewerState::setClipping(bool on) {
    clipping = on;
    scene.look.clip = on ? std::optional(clipBox) : std::nullopt;
}

void ViewerState::toggleTool(Tool newTool) {
    if (!scene.hasPoints()) return announce(NO_POINTS);
    endStroke(true);
    tool = tool == newTool ? Tool::NONE : newTool;
    static constexpr const char* HINTS[] = {
        "Drag turns the camera", "Lasso: draw around points; Shift adds, Ctrl takes away",
        "Rectangle: drag from corner to corner; Shift adds, Ctrl takes away",
        "Sphere: press on a point and drag to its surface; Shift adds, Ctrl takes away"};
    announce(HINTS[static_cast<size_t>(tool)]);
}

static int64_t countPoints(const Scene& scene) {
    int64_t count = 0;
    for (const Scene::Cloud& cloud : scene.clouds) count += getPointCount(cloud.file->id());
    return count;
}

void ViewerState::edit(const std::function<void(Editor&)>& change) {
    if (!scene.hasPoints()) return announce(NO_POINTS);
    const std::string before = nimbrelLastError();
    const int64_t pointsBefore = countPoints(scene);
    change(editor);
    const int64_t more = countPoints(scene) - pointsBefore;
    const std::string reason = nimbrelLastError();
    if (!reason.empty() && reason != before) {
        announce("Not everything was changed: " + reason);
    } else if (more != 0) {
        announce(counted(static_cast<uint64_t>(std::abs(more)), "point") + (more < 0 ? " deleted" : " brought back"));
    } else {
        announce(counted(editor.selectedPoints(), "point") + " selected");
    }
}

void ViewerState::endStroke(bool dropped) {
    const std::vector<glm::dvec2> line = std::exchange(strokeLine, {});
    const std::optional<glm::dvec3> centre = std::exchange(sphereCentre, std::nullopt);
    if (dropped) return;
    if (tool == Tool::SPHERE && centre && sphereRadius > 0.0) {
        edit([&](Editor& target) { target.strokeSphere(*centre, sphereRadius); });
    } else if (tool == Tool::LASSO && line.size() > 2) {
        edit([&](Editor& target) { target.strokePolygon(camera, size, line); });
    } else if (tool == Tool::RECTANGLE && line.size() == 2 && line[0] != line[1]) {
        const std::array corners{line[0], glm::dvec2(line[1].x, line[0].y), line[1], glm::dvec2(line[0].x, line[1].y)};
        edit([&](Editor& target) { target.strokePolygon(camera, size, corners); });
    }
}

void ViewerState::cancel() {
    if (showHelp) {
        showHelp = false;
    } else if (tool != Tool::NONE) {
        toggleTool(tool);
    } else if (measuring) {
        measuring = false;
        measureStart.reset();
        measureEnd.reset();
    } else {
        flying = false;
    }
}

void ViewerState::announce(const std::string& text) {
    constexpr double SECONDS = 4.0;
    message = text;
    messageEnd = glfwGetTime() + SECONDS;
}
