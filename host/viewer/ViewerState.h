#pragma once

#include "viewer/Editor.h"
#include "viewer/RenderTarget.h"
#include "viewer/Scene.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

// What dragging with the left button draws, instead of turning the camera.
enum class Tool { NONE, LASSO, RECTANGLE, SPHERE };

// What the window shows and what the user is doing; the panel, the keys and the mouse change it, the loop draws it.
struct ViewerState {
    explicit ViewerState(Scene& shown);

    // The camera goes where the visible clouds, or the clipped part of them, fill the window.
    void fit() { camera.fit(scene.sample(), size.aspect()); }
    void setView(StandardView view);
    // What the panel, the keys and the scene have to agree on.
    void setColouring(Colouring newColouring);
    void nextColouring();
    void scalePointSizes(float factor);
    void scaleDetail(double factor);
    void setSmooth(bool smooth);
    // Hands the clip box to the scene, or takes it away.
    void setClipping(bool on);
    // Takes up a tool, or puts it down again.
    void toggleTool(Tool newTool);
    // Ends the stroke that is being drawn, and applies it unless `dropped`.
    void endStroke(bool dropped);
    // Runs a change of the editor and says how many points are selected now.
    void edit(const std::function<void(Editor&)>& change);
    // Ends the innermost thing that is under way.
    void cancel();
    // Leaves a line at the lower edge for some seconds.
    void announce(const std::string& text);

    Scene& scene;
    Camera camera;
    PixelSize size; // of the inside of the window
    Colouring colouring = Colouring::RGB;
    Colour background{22, 25, 29};

    bool clipping = false;
    Box clipBox; // in the space of the scene; kept while it is off

    bool measuring = false;
    std::optional<Scene::Pick> measureStart;
    std::optional<Scene::Pick> measureEnd;
    std::optional<Scene::Pick> picked; // the point that was clicked on last

    Editor editor;
    Tool tool = Tool::NONE;
    std::vector<glm::dvec2> strokeLine;     // pixels; of a rectangle two opposite corners
    std::optional<glm::dvec3> sphereCentre; // of the sphere that is being drawn, in the space of the scene
    double sphereRadius = 0.0;
    int classToGive = 2;

    bool flying = false;
    bool showPanel = true;
    bool showHelp = false;
    bool screenshotWanted = false;

    bool loading = false;
    double frameSeconds = 0.0; // of a frame, averaged
    std::string message;
    double messageEnd = 0.0; // on GLFW's clock
};
