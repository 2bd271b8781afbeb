#pragma once

#include <span>

// Turns the stored bytes of a whole node into vertices (Vertex in PointRecord.h), selection byte 0. `out` holds
// `count` vertices; those that the bytes do not give are zeros. The results are those of OPCNodeParser to the bit.

// Fixed records of `stride` bytes.
void decodeFixedVertices(std::span<const unsigned char> data, int stride, int count, unsigned char* out);

// The delta stream of version 18, passing over marked points.
void decodeStreamVertices(std::span<const unsigned char> data, double filter, int count, unsigned char* out);

// The float records of a point server.
void decodeFloatVertices(std::span<const unsigned char> data, int count, unsigned char* out);
