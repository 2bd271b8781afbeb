#include "viewer/PointSizing.h"

#include <algorithm>
#include <cmath>
#include <vector>

// Tile by tile: a tile of T by T pixels with n points has them about T / sqrt(n) apart. The size is a little above
// what most tiles need; the sparsest stay open, as they are mostly the cloud's ragged edges and stray points.

static constexpr int TILE = 16;               // pixels
static constexpr double SHARE_OF_TILES = 0.8; // that shall close
static constexpr double OVERLAP = 1.4;        // points are no regular grid
static constexpr double SMALLEST = 2.0;
static constexpr double LARGEST = 7.0; // beyond it blocks are seen rather than a cloud

static int countCovered(std::span<const unsigned char> covered, PixelSize size, int left, int top) {
    int count = 0;
    for (int y = top; y < std::min(top + TILE, size.height); ++y) {
        for (int x = left; x < std::min(left + TILE, size.width); ++x) {
            if (covered[static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x)] != 0) {
                ++count;
            }
        }
    }
    return count;
}

double choosePointSize(std::span<const unsigned char> covered, PixelSize size) {
    std::vector<double> spacings;
    for (int top = 0; top < size.height; top += TILE) {
        for (int left = 0; left < size.width; left += TILE) {
            const int count = countCovered(covered, size, left, top);
            if (count > 0) spacings.push_back(TILE / std::sqrt(count));
        }
    }
    if (spacings.empty()) return SMALLEST;
    const auto chosen =
        spacings.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(spacings.size() - 1) * SHARE_OF_TILES);
    std::nth_element(spacings.begin(), chosen, spacings.end());
    return std::clamp(std::ceil(*chosen * OVERLAP), SMALLEST, LARGEST);
}
