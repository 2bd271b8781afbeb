#pragma once

#include "render/GLName.h"

#include <array>

// Whether this thread has an OpenGL context of version 4.1 or later. Without one, no other OpenGL function may be
// called: the library that finds the entry points would end the process.
bool isContextUsable();

// Clears the errors that others left, so that none is taken for ours.
void clearErrors();

// Tells whether the current context, or one that it shares objects with, is the one in which the marker was made.
//
// Neither the address of a context nor the numbers of its objects tell: both are used again after it is gone. The
// marker is a sampler that nobody samples with, whose limits hold a random number. Asking for it reads the driver's own
// memory and does not wait for the GPU.
class ContextMarker {
public:
    ContextMarker(); // in the current context
    [[nodiscard]] bool isHere() const;
    void forget() { sampler.forget(); }

private:
    using Token = std::array<float, 2>;

    [[nodiscard]] Token read() const;

    GLName sampler;
    Token token{}; // as the driver gave it back, should it have adjusted the values
};
