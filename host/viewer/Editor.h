#pragma once

#include "edit/Paint.h"
#include "viewer/Scene.h"

#include <filesystem>
#include <span>
#include <string>

// Changes the selection and the points of a scene's clouds, each change as one step that can be undone.
//
// What a stroke meets is what the picture shows: points outside the clip box stay as they are, and so do clouds that
// are not visible. Protected clouds are passed over, and so are clouds that cannot be written to, except that boxes,
// `selectAll` and `invert` mark their points. Belongs to the thread of the scene, which must outlive it. What undoing
// needs lies in a folder of its own that goes away with the object; nothing but the files' own bytes stays behind.
class Editor {
public:
    enum class Mode { REPLACE, ADD, SUBTRACT, PAINT };

    explicit Editor(Scene& sceneToEdit);
    ~Editor();
    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    Mode mode = Mode::REPLACE;            // what a stroke does
    Paint paint{.colour = {230, 60, 60}}; // with which PAINT paints

    // A stroke along a closed line of pixels, counted from the picture's upper left corner. Fewer than three do
    // nothing.
    void strokePolygon(const Camera& camera, PixelSize size, std::span<const glm::dvec2> corners);
    // A stroke around a point of the scene.
    void strokeSphere(const glm::dvec3& centre, double radius);
    // A stroke through an upright box of the scene.
    void strokeBox(const Box& box);

    void selectAll();
    void selectNone();
    void invert();
    // Selects all points of the classes of which some are selected.
    void growByClass();

    void deleteSelected();
    // Gives the selected points a class and selects nothing any more.
    void classifySelected(unsigned char number);
    // Brings back what was ever deleted from the visible clouds.
    void restoreDeleted();
    void setSelectedHidden(bool hidden);
    [[nodiscard]] bool isSelectedHidden() const { return selectedHidden; }

    void undo();
    void redo();

    // Points selected at present.
    [[nodiscard]] uint64_t selectedPoints() const { return selected; }

private:
    // What the engine keeps to undo a step.
    enum class Step { SELECTION = 0, DELETION = 1, COLOURS = 2 };

    template <typename Work>
    void record(Step step, Work work);
    template <typename Walk>
    void stroke(Walk walk);
    void count();

    Scene& scene;
    std::filesystem::path folder;
    uint64_t selected = 0;
    bool selectedHidden = false;
};
