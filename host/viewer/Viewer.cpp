#include "viewer/Viewer.h"
#include "cloud/CloudSource.h"
#include "readers/PointReader.h"
#include "support/Interrupt.h"
#include "viewer/Keys.h"
#include "viewer/Mouse.h"
#include "viewer/Overlay.h"
#include "viewer/Panel.h"
#include "viewer/ViewerState.h"
#include "viewer/Window.h"

#include <GLFW/glfw3.h>
#include <imgui.h>
#include <nimbrel/NimbrelEngine.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>

// Frames are drawn on demand: after an event, after data arrived, while something moves. At rest the loop sleeps, and
// the machine's fan with it.

static constexpr int FRAMES_AFTER_EVENT = 3;   // the user interface needs some to settle
static constexpr double IDLE_SECONDS = 0.25;   // between looks for a signal and for a message that ran out
static constexpr double LOADING_SECONDS = 0.4; // without news from the engine until loading counts as done

namespace {
// The engine's callback has no argument for its owner.
std::atomic<bool> newData{false};

class Viewer {
public:
    Viewer(const Window& shownWindow, Scene& scene) : window(shownWindow), state(scene) {
        state.size = window.pixelSize();
        state.fit();
        watchEvents();
    }

    void run() {
        while (glfwWindowShouldClose(window.handle()) == GLFW_FALSE) {
            checkInterrupt();
            if (pendingFrames > 0 || mouse.isMoving()) {
                glfwPollEvents();
            } else {
                rested = true;
                glfwWaitEventsTimeout(IDLE_SECONDS);
            }
            noteNews();
            if (pendingFrames > 0 || mouse.isMoving()) drawFrame();
        }
    }

private:
    void watchEvents();
    void pressNamedKey(int key, int modifiers);
    void noteNews();
    void drawFrame();
    void drawInterface();
    void saveScreenshot();
    void wake() { pendingFrames = FRAMES_AFTER_EVENT; }

    const Window& window;
    ViewerState state;
    Mouse mouse;
    int pendingFrames = FRAMES_AFTER_EVENT;
    double lastNews = 0.0; // from the engine, on GLFW's clock
    double lastFrame = 0.0;
    bool rested = true; // since the last frame
    bool hadMessage = false;
};
} // namespace

// Before the user interface sets its own, which then call these.
void Viewer::watchEvents() {
    GLFWwindow* const handle = window.handle();
    glfwSetWindowUserPointer(handle, this);
    static const auto wakeOwner = [](GLFWwindow* owner) {
        static_cast<Viewer*>(glfwGetWindowUserPointer(owner))->wake();
    };
    glfwSetFramebufferSizeCallback(handle, [](GLFWwindow* owner, int, int) { wakeOwner(owner); });
    glfwSetWindowRefreshCallback(handle, [](GLFWwindow* owner) { wakeOwner(owner); });
    glfwSetCursorPosCallback(handle, [](GLFWwindow* owner, double, double) { wakeOwner(owner); });
    glfwSetMouseButtonCallback(handle, [](GLFWwindow* owner, int, int, int) { wakeOwner(owner); });
    glfwSetScrollCallback(handle, [](GLFWwindow* owner, double, double) { wakeOwner(owner); });
    glfwSetKeyCallback(handle, [](GLFWwindow* owner, int key, int, int action, int modifiers) {
        wakeOwner(owner);
        if (action == GLFW_PRESS) static_cast<Viewer*>(glfwGetWindowUserPointer(owner))->pressNamedKey(key, modifiers);
    });
    glfwSetCharCallback(handle, [](GLFWwindow* owner, unsigned character) {
        wakeOwner(owner);
        if (ImGui::GetIO().WantTextInput) return;
        pressKey(character, static_cast<Viewer*>(glfwGetWindowUserPointer(owner))->state);
    });
}

// Keys that stand for no character.
void Viewer::pressNamedKey(int key, int modifiers) {
    if (key == GLFW_KEY_ESCAPE) state.cancel();
    if (ImGui::GetIO().WantTextInput) return;
    const bool control = (modifiers & GLFW_MOD_CONTROL) != 0;
    if (key == GLFW_KEY_DELETE) pressKey('x', state);
    if (control && key == GLFW_KEY_Z) pressKey('z', state);
    if (control && key == GLFW_KEY_Y) pressKey('y', state);
}

void Viewer::noteNews() {
    const double now = glfwGetTime();
    if (newData.exchange(false)) {
        lastNews = now;
        wake();
    }
    const bool isLoading = now - lastNews < LOADING_SECONDS;
    const bool hasMessage = now < state.messageEnd;
    if (isLoading != state.loading || hasMessage != hadMessage) wake();
    state.loading = isLoading;
    hadMessage = hasMessage;
}

void Viewer::saveScreenshot() {
    state.screenshotWanted = false;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32] = {};
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string path = fmt::format("nimbrel-{}.png", stamp);
    for (int number = 2; std::filesystem::exists(path); ++number)
        path = fmt::format("nimbrel-{}-{}.png", stamp, number);
    try {
        writePng(path, readBound(state.size));
        state.announce("Saved " + path);
    } catch (const FileError& error) {
        state.announce(path + ": " + error.what());
    }
}

void Viewer::drawInterface() {
    window.beginInterface();
    mouse.update(state, window.handle());
    if (state.showPanel) drawPanel(state);
    drawOverlay(state);
    window.drawInterface();
}

void Viewer::drawFrame() {
    --pendingFrames;
    const double start = glfwGetTime();
    // Time between frames that follow on each other; a pause is no slow frame.
    if (!rested) {
        const double share = state.frameSeconds > 0.0 ? 0.2 : 1.0;
        state.frameSeconds += (start - lastFrame - state.frameSeconds) * share;
    }
    rested = false;
    lastFrame = start;
    state.size = window.pixelSize();
    state.scene.load(state.camera, state.size, false);
    clearBound(state.background);
    state.scene.draw(state.camera, state.size);
    if (state.screenshotWanted) saveScreenshot();
    drawInterface();
    window.show();
}

static void noteData(bool, uint64_t, unsigned char*, int, double, double, double) {
    newData = true;
    glfwPostEmptyEvent();
}

void runViewer(const std::vector<std::string>& files, PixelSize size) {
    const std::string name = std::filesystem::path(labelOfSource(files.front())).filename().string();
    const std::string more = files.size() > 1 ? fmt::format(" and {} more", files.size() - 1) : "";
    const Window window(name + more + " - nimbrel", size);
    Scene scene(files); // gone before the window: its end waits for the jobs that would call noteData
    registerCacheCallback(noteData);
    Viewer(window, scene).run();
}
