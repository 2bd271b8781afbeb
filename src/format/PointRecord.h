#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

// The forms in which one point is stored, apart from the delta stream of version 18 (PointStream.h). Coordinates are
// relative to the minimum corner of the point's node. No other file of the project spells out these offsets.

// Red, green, blue, alpha (which carries the intensity), class.
constexpr int ATTRIBUTE_BYTES = 5;

// The fixed record of version 17: three unsigned big-endian ordinates of 2, 3 or 4 bytes in ten-thousandths of a unit,
// then the attributes.
struct FixedRecord {
    static constexpr double POSITION_SCALE = 10000.0;
    static constexpr float POSITION_STEP = 0.0001F; // readers multiply in 32-bit float

    static constexpr int strideFor(int ordinateBytes) { return 3 * ordinateBytes + ATTRIBUTE_BYTES; }
    // A stride too small for attributes has no ordinates either; its node reads as damaged.
    static constexpr int ordinateBytesFor(int stride) { return stride < ATTRIBUTE_BYTES ? 0 : (stride - 5) / 3; }

    // Bytes an ordinate of a node whose longest side is `side`. A side exactly on a limit takes the smaller form.
    static constexpr int ordinateBytesForSide(double side) {
        if (side > 1600.0) return 4;
        return side > 6.0 ? 3 : 2;
    }
    // The largest stored ordinate: what the bytes hold, below the sign bit of the 32-bit number that readers make.
    static constexpr int32_t largestOrdinate(int ordinateBytes) {
        return ordinateBytes >= 4 ? INT32_MAX : (int32_t{1} << (8 * ordinateBytes)) - 1;
    }
};

// The record of blocks while a file is built, of staged points and of point servers: three 32-bit floats relative to a
// given origin, then the attributes.
struct FloatRecord {
    static constexpr int POSITION = 0;
    static constexpr int ATTRIBUTES = 3 * sizeof(float);
    static constexpr int SIZE = ATTRIBUTES + ATTRIBUTE_BYTES;

    static void encode(unsigned char* out, const double* position, const double* origin,
                       const unsigned char* attributes) {
        const float relative[3] = {static_cast<float>(position[0] - origin[0]),
                                   static_cast<float>(position[1] - origin[1]),
                                   static_cast<float>(position[2] - origin[2])};
        std::memcpy(out + POSITION, relative, sizeof(relative));
        std::memcpy(out + ATTRIBUTES, attributes, ATTRIBUTE_BYTES);
    }

    static void decode(const unsigned char* in, const double* origin, double* position) {
        float relative[3];
        std::memcpy(relative, in + POSITION, sizeof(relative));
        for (int axis = 0; axis < 3; ++axis) position[axis] = double{relative[axis]} + origin[axis];
    }
};
static_assert(FloatRecord::SIZE == 17, "files and servers with this record exist");

// The vertex that the renderer and the queries work on, whatever the file's version.
struct Vertex {
    static constexpr int POSITION = 0; // three 32-bit floats
    static constexpr int COLOUR = 3 * sizeof(float);
    static constexpr int CLASSIFICATION = COLOUR + 4;
    static constexpr int SELECTION = CLASSIFICATION + 1; // 1 for a selected point
    static constexpr int SIZE = SELECTION + 3;           // two bytes carry nothing and are 0
};
static_assert(Vertex::SIZE == 20, "the vertex attributes of the shaders count on this");

// The integer of `n` bytes that a fixed record stores, most significant byte first. In spite of what the name has
// always said, the order is big-endian. Each byte is shifted as a 32-bit integer and then widened with its sign, so
// that four bytes with the top bit set read as a negative number.
inline int64_t fromByteArrayLittleEndian(const unsigned char* p, int n) {
    int64_t result = 0;
    for (int i = 0, shift = 8 * n - 8; i < n; ++i, shift -= 8) {
        // A damaged stride can ask for more than four bytes: the shift then wraps as it does in a 32-bit register.
        result |= int64_t{static_cast<int32_t>(uint32_t{p[i]} << (shift & 31))};
    }
    return result;
}

// The integer that stores `distance`, in units: scaled, truncated toward zero and clamped to what the bytes can hold.
inline int32_t toStoredOrdinate(double distance, double scale, int ordinateBytes) {
    const double scaled = distance * scale;
    if (!(scaled > 0.0)) return 0; // NaN too
    const int32_t largest = FixedRecord::largestOrdinate(ordinateBytes);
    return scaled >= static_cast<double>(largest) ? largest : static_cast<int32_t>(scaled);
}

inline void putBigEndian(unsigned char* out, uint32_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i, value >>= 8) out[i] = static_cast<unsigned char>(value);
}
