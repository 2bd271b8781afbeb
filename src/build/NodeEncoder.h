#pragma once

#include "build/BuildPoint.h"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

// Turns the points of a finished node into its stored bytes. `order` names the points to store, in order, among
// `points`. Belongs to one thread; its buffers serve node after node.
class NodeEncoder {
public:
    using Corner = std::array<double, 3>;

    // Fixed records: 3 * ordinateBytes + 5 bytes a point.
    std::span<const unsigned char> encodeFixed(std::span<const BuildPoint> points, std::span<const uint32_t> order,
                                               const Corner& minimum, int ordinateBytes);

    // The delta stream. A point in the same grid cell as the one before it is dropped, and so are points in the node's
    // first cell, whose delta would be 0; `written` receives the number of the others.
    std::span<const unsigned char> encodeStream(std::span<const BuildPoint> points, std::span<const uint32_t> order,
                                                const Corner& minimum, double filter, int& written);

private:
    struct CodedPoint {
        uint64_t code;
        uint32_t packed;
    };
    void sortByCode();

    std::vector<unsigned char> bytes;
    std::vector<CodedPoint> coded, other;
};
