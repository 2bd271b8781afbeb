#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

using Bytes = std::vector<unsigned char>;

// Appends the lowest `size` bytes of a value, least significant first.
void putLittle(Bytes& out, uint64_t value, int size);
void putDouble(Bytes& out, double value);

Bytes operator+(Bytes a, const Bytes& b);

// A fixed record with 3-byte ordinates, in ten-thousandths, and attributes derived from `seed`.
Bytes fixedPoint(uint32_t x, uint32_t y, uint32_t z, unsigned char seed);

// Puts a point file together byte by byte, without the engine's own encoders, so that a test does not compare the
// engine with itself. Nodes come in pre-order; every number that a damaged file could carry can be set.
class PointFileMaker {
public:
    struct Node {
        uint8_t mask = 4;
        int pointCount = 0;
        Bytes stored{};          // the node's points
        int64_t location = -1;   // where the record says they are; -1: where they are
        int stride = 14;         // version 17
        uint32_t filter = 10000; // version 18, in ten-thousandths
        int64_t diskSize = -1;   // version 18; -1: that of `stored`
        int originalCount = -1;  // -1: pointCount
    };

    explicit PointFileMaker(int versionIn) : version(versionIn) {}
    PointFileMaker& add(Node node);
    [[nodiscard]] Bytes header() const;
    [[nodiscard]] Bytes make() const;

    int version;
    std::optional<int> nodeCount{}; // none: as many as were added
    int64_t pointCount = 1;
    std::array<double, 6> box{0, 0, 0, 8, 4, 2};
    int64_t reserved = 0;
    uint64_t spareBits = 0; // of the first spare value
    std::vector<Node> nodes;
};

// A root of two points and two children of one point each, split on X at 4.
PointFileMaker smallCloud();
