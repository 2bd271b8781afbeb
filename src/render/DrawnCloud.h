#pragma once

#include "render/PointCloudProperties.h"

#include <array>
#include <glm/mat4x4.hpp>

class OPCInterface;

// One cloud as a frame or a visibility pass sees it, taken once so that the host may change it meanwhile.
struct DrawnCloud {
    static constexpr int VOXEL_VERSION = 90;

    OPCInterface* root;
    int version; // of the file
    PointCloudProperties properties;
    glm::dmat4 modelMatrix; // scale included
    double scale;           // that of the X axis

    [[nodiscard]] bool isVoxel() const { return version >= VOXEL_VERSION; }

    // Smoothed and transparent clouds are drawn twice: once for their depth, then blended.
    [[nodiscard]] bool needsBlending() const {
        return (properties.smoothing != 0 || properties.opacity != 100.0F) && !isVoxel();
    }
};

// What is the same for all clouds of a frame.
struct FrameView {
    int window = 0;
    glm::dmat4 view{1.0};
    glm::dmat4 projection{1.0};
    std::array<double, 24> planes{}; // of the last visibility pass; only `force` reads them
    int lightState = 0;
    bool force = false; // draw every node in the frustum, read on the spot if need be
};
