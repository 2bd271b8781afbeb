#include "viewer/Editor.h"
#include "support/Failure.h"
#include "support/WidePath.h"

#include <glm/gtc/type_ptr.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <vector>

// The engine undoes on a thread of its own and asks its host to begin nothing new meanwhile, so that every change waits
// for the last undo first.

static std::filesystem::path makeFolder() {
    std::string path = (std::filesystem::temp_directory_path() / ("nimbrel-undo-" + std::string(6, 'X'))).string();
    if (mkdtemp(path.data()) == nullptr)
        throw CommandFailure(path, "cannot be created, so that nothing could be undone");
    // The engine puts its files beside the folder that it is given.
    std::filesystem::create_directory(std::filesystem::path(path) / "history");
    return path;
}

Editor::Editor(Scene& sceneToEdit) : scene(sceneToEdit), folder(makeFolder()) {}

Editor::~Editor() {
    nimbrelWaitForHistory();
    clearHistory();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void Editor::count() {
    selected = static_cast<uint64_t>(std::max<int64_t>(getSelectedPointsCount(), 0));
}

template <typename Work>
void Editor::record(Step step, Work work) {
    nimbrelWaitForHistory();
    startHistoryRecording(widePath((folder / "history").string()).c_str(), static_cast<int>(step));
    work();
    stopHistoryRecording();
    count();
}

// A walk of the engine in the way of the mode, limited to what is within the clip box.
template <typename Walk>
void Editor::stroke(Walk walk) {
    const bool isPainting = mode == Mode::PAINT;
    record(isPainting ? Step::COLOURS : Step::SELECTION, [&] {
        if (mode == Mode::REPLACE) {
            // Not by clearing, which would end the history of selections; nor by a sphere, which passes over clouds that
            // are read-only.
            constexpr double FAR = 9999999999.0;
            const double everywhere[15] = {0, 0, 0, 1, 0, 0, FAR, 0, 1, 0, FAR, 0, 0, 1, FAR};
            selectPointsByVolume(everywhere, 15, true, false);
        }
        if (isPainting) armPaint(paint);
        scene.armClip();
        walk(mode == Mode::SUBTRACT);
    });
}

void Editor::strokePolygon(const Camera& camera, PixelSize size, std::span<const glm::dvec2> corners) {
    if (corners.size() < 3) return;
    NimbrelMatrix view{};
    NimbrelMatrix projection{};
    const glm::dmat4 viewMatrix = camera.viewMatrix();
    const glm::dmat4 projectionMatrix = camera.projectionMatrix(size.aspect(), scene.bounds());
    std::copy_n(glm::value_ptr(viewMatrix), 16, view.m);
    std::copy_n(glm::value_ptr(projectionMatrix), 16, projection.m);
    const int viewport[4] = {0, 0, size.width, size.height};
    std::vector<int> pixels;
    for (const glm::dvec2& corner : corners) {
        pixels.push_back(static_cast<int>(std::lround(corner.x)));
        pixels.push_back(static_cast<int>(std::lround(corner.y)));
    }
    stroke([&](bool deselect) {
        selectPointsByScreen(view, projection, viewport, pixels.data(), static_cast<int>(corners.size()), deselect,
                             false);
    });
}

void Editor::strokeSphere(const glm::dvec3& centre, double radius) {
    // The engine takes the centre in the space of the scene, and the radius in that of the file.
    const double sphere[4] = {centre.x, centre.y, centre.z, scene.lengthInFile(radius)};
    stroke([&](bool deselect) { selectPointsByVolume(sphere, 4, deselect, false); });
}

void Editor::strokeBox(const Box& box) {
    const glm::dvec3 centre = box.centre();
    const glm::dvec3 half = box.size() * 0.5;
    // As above: half sizes count in the file's units.
    const double numbers[15] = {centre.x,
                                centre.y,
                                centre.z,
                                1.0,
                                0.0,
                                0.0,
                                scene.lengthInFile(half.x),
                                0.0,
                                1.0,
                                0.0,
                                scene.lengthInFile(half.y),
                                0.0,
                                0.0,
                                1.0,
                                scene.lengthInFile(half.z)};
    stroke([&](bool deselect) { selectPointsByVolume(numbers, 15, deselect, false); });
}

void Editor::selectAll() {
    record(Step::SELECTION, [&] {
        scene.armClip();
        selectAllPoints();
    });
}

void Editor::selectNone() {
    nimbrelWaitForHistory();
    clearSelectedPoints();
    count();
}

void Editor::invert() {
    record(Step::SELECTION, [] { invertSelectedPoints(); });
}

// The classes of the selected points.
static std::bitset<256> selectedClasses(uint64_t count) {
    constexpr uint64_t PAGE = 1000000;
    std::bitset<256> classes;
    std::vector<double> positions(std::min(PAGE, count) * 3);
    std::vector<char> colours(std::min(PAGE, count) * 5);
    for (uint64_t start = 0; start < count; start += PAGE) {
        const uint64_t page = std::min(PAGE, count - start);
        getSelectedPoints(positions.data(), colours.data(), static_cast<int64_t>(start), static_cast<int64_t>(page));
        for (uint64_t i = 0; i < page; ++i) classes.set(static_cast<unsigned char>(colours[i * 5 + 4]));
    }
    return classes;
}

void Editor::growByClass() {
    count(); // clouds can have been hidden since
    const std::bitset<256> classes = selectedClasses(selected);
    if (classes.none()) return;
    std::array<bool, 256> others{};
    for (size_t number = 0; number < others.size(); ++number) others[number] = !classes.test(number);
    applyClassColours(others);
    selectAll();
    applyClassColours({});
}

void Editor::deleteSelected() {
    record(Step::DELETION, [] { deleteSelectedPoints(); });
}

void Editor::classifySelected(unsigned char number) {
    record(Step::COLOURS, [number] { setLasValueOnSelectedPoints(number); });
    selectNone(); // also decodes the points again, so that the picture shows the class
}

void Editor::restoreDeleted() {
    record(Step::DELETION, [this] {
        for (const Scene::Cloud& cloud : scene.clouds) {
            if (cloud.look.visible) restorePointCloud(cloud.file->id());
        }
    });
}

void Editor::setSelectedHidden(bool hidden) {
    selectedHidden = hidden;
    for (const Scene::Cloud& cloud : scene.clouds) setHideSelectedPoints(cloud.file->id(), hidden);
}

void Editor::undo() {
    ::undo();
    nimbrelWaitForHistory();
    count();
}

void Editor::redo() {
    ::redo();
    nimbrelWaitForHistory();
    count();
}
