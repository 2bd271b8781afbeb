#pragma once

#include "render/DrawnCloud.h"

#include <array>
#include <glm/vec3.hpp>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>

class ClipBox;
class GPUBatch;
class OPCInterface;
struct Shader;

// Draws the nodes that visibility has selected: all clouds into an offscreen picture, which then goes onto the host's
// framebuffer at the right depth.
//
// A frame is setupTexture, for each cloud configureRenderPass and render, then renderTexture. All of it runs on the
// host's render thread with the host's context current, and waits neither for the disk nor for a walk over a tree;
// savePPMImage and setClassifications may be called from any thread. The host's context may be another one, or none,
// from one frame to the next: the objects of a context that is gone are then forgotten, since their numbers may
// belong to somebody else.
class OpenGLRenderer {
public:
    enum Pass { PLAIN = 0, DEPTH = 1, BLEND = 2 };

    OpenGLRenderer();
    ~OpenGLRenderer(); // calls no OpenGL: the context may be gone
    OpenGLRenderer(const OpenGLRenderer&) = delete;
    OpenGLRenderer& operator=(const OpenGLRenderer&) = delete;

    // Begins a frame, leaving the offscreen picture bound and cleared and the point program in use. False when there
    // is nothing to draw with or on; the frame is then over.
    //
    // viewport       x, y, width, height
    // windowChanged  the frame before was of another window
    bool setupTexture(const std::array<int, 4>& viewport, const glm::dmat4& projection, bool windowChanged);

    // Whether the context became another one since the last call: all buffers of nodes are then to be forgotten.
    [[nodiscard]] bool takeContextChange() { return std::exchange(contextChanged, false); }

    void configureRenderPass(Pass pass);

    // Draws one cloud. `clip` and `shader` as the host armed them.
    void render(const FrameView& view, const DrawnCloud& cloud, const ClipBox& clip, const Shader& shader);

    // Ends a frame: writes the picture that savePPMImage asked for, and composes the clouds onto the host's
    // framebuffer.
    //
    // light  direction in eye space, of length 1 or 0
    void renderTexture(const std::array<int, 4>& viewport, int lightState, const glm::dvec3& light);

    // Has the next frame written to a file. A further call before that frame replaces the path.
    void savePPMImage(std::wstring path);

    // table  1024 bytes: red, green, blue and hidden of each of 256 classes
    void setClassifications(const unsigned char* table);

    // The drawn pixel nearest to a place of the last frame's offscreen picture.
    //
    // y       from the top
    // result  out: 3 doubles, x, y from the bottom, depth. Without a frame in this context left as they were
    bool findClosestCursorPoint(int x, int y, double* result);

private:
    struct Resources; // what lives as long as the context and those that share with it
    struct Frame;     // what lives as long as a frame
    struct Walk;      // one cloud in one pass

    bool makeTarget(const std::array<int, 4>& viewport, bool windowChanged);
    void clearTarget(const std::array<int, 4>& viewport);
    void forgetResources();
    void capture();
    void beginCloud(const Walk& walk);
    void endCloud(const Walk& walk);
    bool drawNode(const Walk& walk, OPCInterface& node);
    void drawBuffer(const Walk& walk, OPCInterface& node, uint32_t buffer, int vertexCount);

    std::unique_ptr<Resources> resources; // null before the first frame
    std::unique_ptr<Frame> frame;         // null between frames
    bool contextChanged = false;
    int hostFramebuffer = 0; // bound when the frame began
    float nearP = 0.0F;      // clip distances of the frame's projection
    float farP = 0.0F;
    std::mutex requestMutex;                 // guards the two below; innermost
    std::array<float, 1024> lasColours{};    // 256 times red, green, blue, hidden, each 0 to 1
    std::optional<std::wstring> capturePath; // the next frame goes there
};

// Deletes the buffers of a node and its subtree, unless a window sees the node.
void deleteGPUData(OPCInterface& node, int window);
