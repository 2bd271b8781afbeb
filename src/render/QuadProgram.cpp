#include "render/QuadProgram.h"

#include "render/ShaderSources.h"

#include <epoxy/gl.h>

namespace {

constexpr GLuint POSITION = 0;
constexpr GLuint TEXTURE_PLACE = 1;
constexpr ShaderProgram::Attribute ATTRIBUTES[] = {{POSITION, "position"}, {TEXTURE_PLACE, "texcoord"}};

// x, y, u, v
constexpr float QUAD[] = {1,  -1, 1, 0, 1,  1,  1, 1, -1, 1,  0, 1, //
                          -1, 1,  0, 1, -1, -1, 0, 0, 1,  -1, 1, 0};

} // namespace

QuadProgram::QuadProgram() : program(QUAD_VERTEX_SOURCE, QUAD_FRAGMENT_SOURCE, ATTRIBUTES), vertices(GLName::BUFFER) {
    glBindBuffer(GL_ARRAY_BUFFER, vertices.get());
    glBufferData(GL_ARRAY_BUFFER, sizeof(QUAD), QUAD, GL_STATIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void QuadProgram::forget() {
    program.forget();
    vertices.forget();
}

GLName QuadProgram::makeVertexArray() const {
    GLName array(GLName::VERTEX_ARRAY);
    glBindVertexArray(array.get());
    glBindBuffer(GL_ARRAY_BUFFER, vertices.get());
    constexpr GLsizei STRIDE = 4 * sizeof(float);
    glVertexAttribPointer(POSITION, 2, GL_FLOAT, GL_FALSE, STRIDE, nullptr);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes an offset in the buffer as a pointer
    const auto* texturePlace = reinterpret_cast<const void*>(2 * sizeof(float));
    glVertexAttribPointer(TEXTURE_PLACE, 2, GL_FLOAT, GL_FALSE, STRIDE, texturePlace);
    glEnableVertexAttribArray(POSITION);
    glEnableVertexAttribArray(TEXTURE_PLACE);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    return array;
}

void QuadProgram::use(int width, int height, float near, float far, int lightState, const glm::dvec3& light) const {
    program.use();
    glUniform1i(program.uniform("rgb"), 0);
    glUniform1i(program.uniform("depth"), 1);
    glUniform1f(program.uniform("width"), static_cast<float>(width));
    glUniform1f(program.uniform("height"), static_cast<float>(height));
    glUniform1f(program.uniform("zNear"), near);
    glUniform1f(program.uniform("zFar"), far);
    glUniform1i(program.uniform("lightState"), lightState);
    const glm::vec3 narrow(light);
    glUniform3f(program.uniform("lightDir"), narrow.x, narrow.y, narrow.z);
}
