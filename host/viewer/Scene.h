#pragma once

#include "cloud/OpenCloud.h"
#include "viewer/Camera.h"
#include "viewer/Look.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// What holds for all clouds of a scene together.
struct SceneLook {
    std::optional<Colouring> ramp; // HEIGHT or DISTANCE; nothing for the clouds' own colours
    bool lit = false;              // shading worked out from the depth of the picture
    std::optional<Box> clip;       // in the space of the scene; what lies outside is not drawn
    float smoothExposure = 0.25F;  // see DrawingScale; right where some four smooth points overlap
};

// The clouds that are shown together, and the one place that draws them through the engine.
//
// Has a space of its own: the middle of the first cloud is its origin, and the first cloud's diagonal is 100 long. So
// the matrices and planes that reach the graphics card as 32-bit numbers are exact enough for coordinates in the
// millions, and the engine's fixed distances (a tenth of a unit for what counts as one surface) suit a figurine as
// well as a valley. Belongs to one thread, the one with the OpenGL context, and needs an EngineSession that outlives
// it.
class Scene {
public:
    struct Cloud {
        std::string path;
        std::unique_ptr<OpenCloud> file;
        Box box;                          // in the space of the scene
        bool isVoxel = false;             // a voxel model, drawn as boxes
        std::vector<glm::dvec3> sample;   // coarsest points, in the space of the scene; corners if there are none
        std::vector<unsigned char> bytes; // red, green, blue, intensity, class of each of them in the file
        IntensityRange intensity;
        double spacing = 0.0; // about, between points of full density, in units of the scene
        CloudLook look;
    };

    // Throws CommandFailure for the first file that cannot be opened.
    explicit Scene(const std::vector<std::string>& paths);

    std::vector<Cloud> clouds;
    SceneLook look;

    [[nodiscard]] glm::dvec3 toScene(const glm::dvec3& inFile) const { return (inFile - origin) * unit; }
    [[nodiscard]] glm::dvec3 toFile(const glm::dvec3& inScene) const { return inScene / unit + origin; }
    [[nodiscard]] double lengthInFile(double inScene) const { return inScene / unit; }

    // Of the visible clouds.
    [[nodiscard]] Box bounds() const;
    // Whether there is a cloud with points: voxel models have cells alone, of which none can be selected.
    [[nodiscard]] bool hasPoints() const;
    // Points of the visible clouds, as far as they are within the clip; its corners if none is.
    [[nodiscard]] std::vector<glm::dvec3> sample() const;

    // The colouring that shows most of a cloud: its colours if it has any, else intensity, else height.
    [[nodiscard]] Colouring suggestColouring() const;
    // Takes it for all clouds.
    void setColouring(Colouring colouring);

    // Tells the engine where the camera stands, so that it loads what the camera sees; with `wait`, returns when what
    // is known to be needed so far is loaded.
    void load(const Camera& camera, PixelSize size, bool wait);
    // Calls load() until nothing more comes; at most some hundred times.
    void loadAll(const Camera& camera, PixelSize size);
    // Limits the next operation of the engine to what is within the clip, if there is one.
    void armClip() const;
    // Draws into the bound framebuffer, over what is there, from its lower left corner.
    void draw(const Camera& camera, PixelSize size);
    // Points of the last load() that are in memory.
    [[nodiscard]] int loadedPoints() const;

    // A point of a cloud, found near a pixel of the last picture drawn.
    struct Pick {
        size_t cloud = 0;
        glm::dvec3 position; // in the space of the scene
        std::array<unsigned char, 5> bytes{};
    };
    [[nodiscard]] std::optional<Pick> pick(const Camera& camera, PixelSize size, const glm::dvec2& pixel) const;

private:
    void openCloud(const std::string& path);
    void placeCloud(Cloud& cloud) const;
    void readSample(Cloud& cloud) const;
    void applyRamp(const Camera& camera) const;
    void applyLooks(const Camera& camera, PixelSize size) const;

    glm::dvec3 origin{0.0};
    double unit = 1.0; // of the scene, to one of the files
};
