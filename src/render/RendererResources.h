#pragma once

#include "edit/ClipBox.h"
#include "render/GLContext.h"
#include "render/OffscreenTarget.h"
#include "render/OpenGLRenderer.h"
#include "render/PointProgram.h"
#include "render/QuadProgram.h"
#include "render/Shader.h"

// The parts of OpenGLRenderer that need OpenGL's names, for its own source files alone.

struct OpenGLRenderer::Resources {
    Resources();
    void forget();

    ContextMarker marker;
    PointProgram points;
    QuadProgram quad;
    GLName cube; // the corners of a voxel's faces
    std::optional<OffscreenTarget> target;
};

// Framebuffers and vertex arrays are not shared between contexts, and no query tells whose they are. Made anew for each
// frame they cost a few microseconds, and nothing is left behind when the host draws in several contexts.
struct OpenGLRenderer::Frame {
    GLName framebuffer;
    GLName pointArray, voxelArray, quadArray;
    // A host may have these on; our shaders write no clip distances, and drawing would then be undefined.
    std::array<bool, 6> hostClips{};
};

struct OpenGLRenderer::Walk {
    const FrameView& view;
    const DrawnCloud& cloud;
    ClipBox clip;
    const Shader& shader;

    [[nodiscard]] bool clips() const { return clip.isActive() && cloud.properties.ignoreClipBox == 0; }
};
