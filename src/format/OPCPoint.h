#pragma once

#include <cstdint>

// One point in memory.
class OPCPoint {
public:
    virtual ~OPCPoint() = default;

    // The 17-byte float record at `out + offset`, relative to the origin o.
    void toByteArray(double ox, double oy, double oz, char* out, int offset) const;
    void fromByteArray(double ox, double oy, double oz, const char* in, int offset);

    // The fixed record with `ordinateBytes` bytes an ordinate at `out + offset`. Ordinates are truncated; those below
    // the origin become 0, those beyond what the bytes hold become the largest.
    void toCompressedByteArray(double ox, double oy, double oz, double scale, char* out, long long offset,
                               int ordinateBytes) const;

    // The order of the points of a version 18 node.
    static bool compareIndex(const OPCPoint& a, const OPCPoint& b) { return a.index < b.index; }

    int32_t tag = -1; // carried along and not otherwise used
    unsigned char colour[4] = {};
    uint8_t classification = 0;
    double x = 0, y = 0, z = 0; // relative to the node's minimum corner when read by OPCNodeParser
    uint64_t index = 0;         // Morton code
};
