#pragma once

#include "edit/ClipBox.h"
#include "render/DrawnCloud.h"
#include "render/Shader.h"

#include <mutex>
#include <span>
#include <vector>

class OpenGLRenderer;

// The camera of the frame that is drawn next.
struct RenderCamera {
    int window = 0;
    glm::dmat4 view{1.0};
    glm::dmat4 projection{1.0};
    std::array<int, 4> offscreenViewport{}; // x, y, width, height
    std::array<int, 4> onscreenViewport{};
    int lightState = 0;
    glm::vec3 lightDirection{0.0F}; // in the world
};

// Drives one frame after the other. The setters may be called from any thread; the frame belongs to the host's render
// thread.
class FrameDriver {
public:
    explicit FrameDriver(OpenGLRenderer& rendererIn) : renderer(rendererIn) {}

    void setCamera(const RenderCamera& value);
    void setForce(bool value);
    void setPlanes(const std::array<double, 24>& value);

    // Begins a frame. False when none can be drawn; neither of the others is then called.
    bool begin();

    // Draws the clouds, in order. While this runs they may not be closed. Empties the list of `deletedBuffers`.
    void draw(std::span<const DrawnCloud> clouds, const ClipBox& clip, const Shader& shader,
              std::vector<int>& deletedBuffers);

    void end();

private:
    OpenGLRenderer& renderer;
    std::mutex mutex;    // guards camera, force and planes; innermost
    RenderCamera camera; // as set
    bool force = false;
    std::array<double, 24> planes{};
    RenderCamera current;    // of the frame under way
    int previousWindow = -1; // of the frame before
};

// The light's direction in eye space, towards the light, of length 1; none for no direction.
glm::dvec3 lightInEyeSpace(const glm::dmat4& view, const glm::vec3& direction);
