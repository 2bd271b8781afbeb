#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// A corner of a polygon on the screen, y upwards.
struct ScreenCorner {
    int32_t x, y;
};

// The even-odd rule for many places: the screen is cut into strips at the heights of the corners, and a place looks
// only at the edges that reach into its strip, which are few however many corners a lasso has. Gives what
// PolygonSelection::pnpoly gives, to the bit.
class PolygonStrips {
public:
    explicit PolygonStrips(std::span<const ScreenCorner> corners);

    [[nodiscard]] bool contains(double x, double y) const;

private:
    struct Edge {
        double x, y;          // of one corner
        double otherY;        // of the other
        double width, height; // from the one to the other
    };

    std::vector<int32_t> levels; // ascending
    std::vector<size_t> starts;  // strip i lies below levels[i], the last above all; its first edge, and its end
    std::vector<Edge> edges;
};
