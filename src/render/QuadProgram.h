#pragma once

#include "render/GLName.h"
#include "render/ShaderProgram.h"

#include <glm/vec3.hpp>

// The program that brings the clouds onto the host's picture, with the quad that it draws.
class QuadProgram {
public:
    QuadProgram();
    void forget();

    // Vertex arrays belong to one context alone, while everything else is shared: so the caller makes one a frame.
    [[nodiscard]] GLName makeVertexArray() const;

    // Puts the program to use, with colours in unit 0 and depths in unit 1.
    //
    // light  direction in eye space, of length 1 or 0
    void use(int width, int height, float near, float far, int lightState, const glm::dvec3& light) const;

private:
    ShaderProgram program;
    GLName vertices;
};
