#pragma once

#include <cstdint>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>

// Colouring by the distance from a plane, as the host armed it for one frame. A plain value.
struct Shader {
    glm::vec4 planeNormal{0.0F};  // w 0
    glm::vec4 pointOnPlane{0.0F}; // w 1
    float blend = 0.0F;           // share of the point's own colour
    float offset = 0.0F;          // where the distance counts as 0
    float shadDist = 0.0F;        // the distance that the whole range of colours covers
    int32_t repeat = 0;           // 0 clamp, 1 only within the band, 2 repeat
    bool hue = false;             // a rainbow in place of the three colours
    glm::vec3 colour1{0.0F}, colour2{0.0F}, colour3{0.0F};
    bool active = false;
};
