#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The forms of a voxel model, version 90: how its tree and its colours stand in the file behind the header, where its
// boxes are cut, and the record that the renderer draws a cell from. No other file of the project spells these out.

// The tree: two bits a node in pre-order, from the least significant bits of each byte on.
struct VoxelTree {
    static constexpr unsigned LEFT = 1;  // the lower half of the box exists
    static constexpr unsigned RIGHT = 2; // the upper half exists; a leaf has neither
    static constexpr int64_t NODES_PER_BYTE = 4;

    static constexpr int64_t bytesFor(int64_t nodes) { return (nodes + NODES_PER_BYTE - 1) / NODES_PER_BYTE; }
    static constexpr int shiftOf(int64_t node) { return static_cast<int>(node % NODES_PER_BYTE) * 2; }
};

// The colour of a leaf, three bytes in pre-order behind the tree: red, green, and the high nibbles of blue and of the
// fourth value, which carries the intensity.
struct VoxelColour {
    static constexpr int SIZE = 3;
    static constexpr unsigned char UNKNOWN = 136; // each byte, where the file has no colours: a mid grey

    static void pack(unsigned char* out, const std::array<unsigned, 4>& values) {
        out[0] = static_cast<unsigned char>(values[0]);
        out[1] = static_cast<unsigned char>(values[1]);
        out[2] = static_cast<unsigned char>((values[2] & 0xF0U) | (values[3] >> 4 & 0x0FU));
    }
    static std::array<unsigned, 4> unpack(const unsigned char* in) {
        return {in[0], in[1], in[2] & 0xF0U, (in[2] & 0x0FU) << 4};
    }
};

// The vertex of a cell: its centre from the minimum corner of the model's box, half its edges, its colour, and four
// bytes that carry nothing.
struct VoxelVertex {
    static constexpr size_t CENTRE = 0; // three 32-bit floats
    static constexpr size_t HALF_EDGE = CENTRE + 3 * sizeof(float);
    static constexpr size_t COLOUR = HALF_EDGE + 3 * sizeof(float);
    static constexpr size_t ATTRIBUTE = COLOUR + 4;
    static constexpr int SIZE = 32;
};

// Boxes are not stored: a node's box is cut across its longest axis, in the middle, by the writer as by every reader.
// Both take the cut from here, so that they agree to the last bit.
struct VoxelBox {
    std::array<double, 6> bounds; // minimum x, y, z, maximum x, y, z

    [[nodiscard]] double edge(size_t axis) const { return bounds[axis + 3] - bounds[axis]; }

    // The lower axis wins a tie.
    [[nodiscard]] size_t longestAxis() const {
        size_t longest = 0;
        for (size_t axis = 1; axis < 3; ++axis) {
            if (edge(axis) > edge(longest)) longest = axis;
        }
        return longest;
    }

    [[nodiscard]] double middle(size_t axis) const { return (bounds[axis] + bounds[axis + 3]) * 0.5; }

    [[nodiscard]] VoxelBox half(size_t axis, bool upper) const {
        VoxelBox result = *this;
        result.bounds[upper ? axis : axis + 3] = middle(axis);
        return result;
    }
};
