#include "render/ShaderProgram.h"

#include "ground/Log.h"

#include <algorithm>
#include <epoxy/gl.h>
#include <string>

namespace {

GLuint createShader(GLenum type, const char* source) {
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

// Tells the log of a shader or program that failed. Both say "Linking", a compilation too; hosts search for the words.
void test(bool isProgram, GLuint name) {
    GLint status = 0;
    GLint length = 0;
    if (isProgram) {
        glGetProgramiv(name, GL_LINK_STATUS, &status);
        glGetProgramiv(name, GL_INFO_LOG_LENGTH, &length);
    } else {
        glGetShaderiv(name, GL_COMPILE_STATUS, &status);
        glGetShaderiv(name, GL_INFO_LOG_LENGTH, &length);
    }
    if (status != 0) return;
    std::string log(static_cast<size_t>(std::max(length, 1)), '\0');
    GLsizei written = 0;
    (isProgram ? glGetProgramInfoLog : glGetShaderInfoLog)(name, static_cast<GLsizei>(log.size()), &written,
                                                           log.data());
    log.resize(static_cast<size_t>(written));
    logText(std::string("Linking Error with ") + (isProgram ? "Program" : "Shader") + "\n" + log + "\n");
}

} // namespace

ShaderProgram::ShaderProgram(const char* vertexSource, const char* fragmentSource,
                             std::span<const Attribute> attributes)
    : program(glCreateProgram()) {
    const GLuint shaders[] = {createShader(GL_VERTEX_SHADER, vertexSource),
                              createShader(GL_FRAGMENT_SHADER, fragmentSource)};
    for (const GLuint shader : shaders) test(false, shader);
    for (const Attribute& attribute : attributes) glBindAttribLocation(program, attribute.location, attribute.name);
    for (const GLuint shader : shaders) glAttachShader(program, shader);
    glLinkProgram(program);
    test(true, program);
    // The program keeps what it needs.
    for (const GLuint shader : shaders) {
        glDetachShader(program, shader);
        glDeleteShader(shader);
    }
}

ShaderProgram::~ShaderProgram() {
    if (program != 0) glDeleteProgram(program);
}

void ShaderProgram::use() const {
    glUseProgram(program);
}

int ShaderProgram::uniform(const char* name) const {
    return glGetUniformLocation(program, name);
}
