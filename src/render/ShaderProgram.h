#pragma once

#include <cstdint>
#include <span>

// A linked program. All operations but forget() need the context current.
//
// A source that does not compile or link is told on standard output, and the program then draws nothing.
class ShaderProgram {
public:
    struct Attribute {
        uint32_t location;
        const char* name;
    };

    ShaderProgram(const char* vertexSource, const char* fragmentSource, std::span<const Attribute> attributes);
    ~ShaderProgram();
    ShaderProgram(const ShaderProgram&) = delete;
    ShaderProgram& operator=(const ShaderProgram&) = delete;

    void use() const;

    // -1 when the program has no such uniform; setting it then does nothing.
    [[nodiscard]] int uniform(const char* name) const;

    // Lets the program go without deleting it, because its context is gone.
    void forget() { program = 0; }

private:
    uint32_t program;
};
