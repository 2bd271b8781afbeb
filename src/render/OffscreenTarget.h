#pragma once

#include "render/CursorSearch.h"
#include "render/GLName.h"

#include <vector>

// The picture into which all clouds of a frame are drawn: a colour and a depth texture of one size.
//
// Framebuffers belong to one context alone, while textures are shared between contexts: so the textures stay, and a
// framebuffer is made over them where one is needed.
class OffscreenTarget {
public:
    // Whether a target of this size can be made in the current context.
    static bool isPossible(int width, int height);

    OffscreenTarget(int widthIn, int heightIn);
    void forget();

    [[nodiscard]] int getWidth() const { return width; }
    [[nodiscard]] int getHeight() const { return height; }
    [[nodiscard]] uint32_t colours() const { return colourTexture.get(); }
    [[nodiscard]] uint32_t depths() const { return depthTexture.get(); }

    // A framebuffer with both textures, left bound for drawing and reading. Empty, with nothing bound anew, when the
    // driver takes no such framebuffer, as when memory ran out.
    [[nodiscard]] GLName makeFramebuffer() const;

    // Attaches the depth texture to the bound framebuffer, or detaches it.
    void attachDepth(bool attach) const;

    // Reads the bound framebuffer: the whole picture, 4 bytes a pixel, the bottom row first.
    [[nodiscard]] std::vector<unsigned char> readPixels() const;

    // Reads the bound framebuffer: the depths around a place. Cells beyond the target have depth 1.
    [[nodiscard]] CursorDepths readDepths(int x, int row) const;

private:
    int width, height;
    GLName colourTexture, depthTexture;
};
