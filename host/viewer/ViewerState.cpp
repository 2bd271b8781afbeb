#include "viewer/ViewerState.h"

#include <GLFW/glfw3.h>

#include <algorithm>
#include <cmath>

ViewerState::ViewerState(Scene& shown) : scene(shown), clipBox(shown.bounds()) {
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

void ViewerState::cancel() {
    if (showHelp) {
        showHelp = false;
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
