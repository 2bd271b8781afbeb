#pragma once

#include <cstdint>

// The name of one OpenGL object, which is deleted with it. All operations but forget() need the context current.
class GLName {
public:
    enum Kind { BUFFER, FRAMEBUFFER, SAMPLER, TEXTURE, VERTEX_ARRAY };

    // No object: 0.
    GLName() = default;
    explicit GLName(Kind kindIn);
    ~GLName() { remove(); }
    GLName(GLName&& other) noexcept;
    GLName& operator=(GLName&& other) noexcept;

    [[nodiscard]] uint32_t get() const { return name; }

    // Lets the object go without deleting it, because its context is gone.
    void forget() { name = 0; }

private:
    void remove() const;

    Kind kind = BUFFER;
    uint32_t name = 0;
};
