#pragma once

#include "viewer/Camera.h"
#include "writers/PngWriter.h"

#include <array>
#include <vector>

// Red, green, blue.
using Colour = std::array<unsigned char, 3>;

// A framebuffer with colour and depth, bound from its making to its end. Needs a current OpenGL context throughout.
class RenderTarget {
public:
    // Throws CommandFailure for a size that the OpenGL does not offer.
    explicit RenderTarget(PixelSize newSize);
    ~RenderTarget();
    RenderTarget(const RenderTarget&) = delete;
    RenderTarget& operator=(const RenderTarget&) = delete;

    void clear(Colour background) const;

    [[nodiscard]] Picture read() const;
    // A byte a pixel, not 0 where something was drawn; the rows in no order that matters.
    [[nodiscard]] std::vector<unsigned char> readCovered() const;

private:
    const PixelSize size;
    unsigned framebuffer = 0;
    std::array<unsigned, 2> buffers{}; // colour, depth
};

// Makes the bound framebuffer empty: all in one colour, at the farthest depth.
void clearBound(Colour background);

// Reads the lower left part of the bound framebuffer.
Picture readBound(PixelSize size);
