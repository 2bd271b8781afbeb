#include "viewer/PointSizing.h"

#include <algorithm>
#include <cmath>
#include <vector>

// Tile by tile: how far apart the covered pixels of a tile are follows from their number and from the part of the tile
// that they reach over, so that the outline of a cloud counts no less than its middle. The size is a little above what
// most tiles need; the sparsest stay open, as they are mostly ragged edges and stray points.

static constexpr int TILE = 16;               // pixels
static constexpr double SHARE_OF_TILES = 0.8; // that shall close
static constexpr double OVERLAP = 1.6;        // points are no regular grid
static constexpr double SMALLEST = 2.0;
static constexpr double LARGEST = 5.0; // beyond it blocks are seen rather than a cloud

namespace {
struct Tile {
    int count = 0; // covered pixels
    int left = TILE;
    int right = 0;
    int top = TILE;
    int bottom = 0;

    void include(int x, int y) {
        ++count;
        left = std::min(left, x);
        right = std::max(right, x);
        top = std::min(top, y);
        bottom = std::max(bottom, y);
    }

    // A regular grid of spacing s, whose outermost points are a and b apart, has (a / s + 1) (b / s + 1) points.
    [[nodiscard]] double spacing() const {
        if (count < 2) return TILE;
        const double a = right - left;
        const double b = bottom - top;
        const double others = count - 1;
        return std::min<double>((a + b + std::sqrt((a + b) * (a + b) + 4.0 * others * a * b)) / (2.0 * others), TILE);
    }
};
} // namespace

static Tile readTile(std::span<const unsigned char> covered, PixelSize size, int left, int top) {
    Tile tile;
    for (int y = top; y < std::min(top + TILE, size.height); ++y) {
        for (int x = left; x < std::min(left + TILE, size.width); ++x) {
            const size_t pixel = static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x);
            if (covered[pixel] != 0) tile.include(x - left, y - top);
        }
    }
    return tile;
}

double choosePointSize(std::span<const unsigned char> covered, PixelSize size) {
    std::vector<double> spacings;
    for (int top = 0; top < size.height; top += TILE) {
        for (int left = 0; left < size.width; left += TILE) {
            const Tile tile = readTile(covered, size, left, top);
            if (tile.count > 0) spacings.push_back(tile.spacing());
        }
    }
    if (spacings.empty()) return SMALLEST;
    const auto chosen =
        spacings.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(spacings.size() - 1) * SHARE_OF_TILES);
    std::nth_element(spacings.begin(), chosen, spacings.end());
    return std::clamp(std::ceil(*chosen * OVERLAP), SMALLEST, LARGEST);
}
