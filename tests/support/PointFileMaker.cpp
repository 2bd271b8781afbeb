#include "support/PointFileMaker.h"

#include <cstring>
#include <utility>

void putLittle(Bytes& out, uint64_t value, int size) {
    for (int i = 0; i < size; ++i, value >>= 8) out.push_back(static_cast<unsigned char>(value));
}

void putDouble(Bytes& out, double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    putLittle(out, bits, 8);
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes fixedPoint(uint32_t x, uint32_t y, uint32_t z, unsigned char seed) {
    Bytes out;
    for (const uint32_t ordinate : {x, y, z}) {
        for (int shift = 16; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(ordinate >> shift));
    }
    for (int k = 0; k < 5; ++k) out.push_back(static_cast<unsigned char>(seed + k));
    return out;
}

PointFileMaker& PointFileMaker::add(Node node) {
    nodes.push_back(std::move(node));
    return *this;
}

Bytes PointFileMaker::header() const {
    Bytes out;
    putLittle(out, 1, 4);
    putLittle(out, static_cast<uint64_t>(version), 4);
    putLittle(out, static_cast<uint64_t>(nodeCount.value_or(static_cast<int>(nodes.size()))), 4);
    putLittle(out, static_cast<uint64_t>(pointCount), 8);
    for (const double side : box) putDouble(out, side);
    putLittle(out, 0, 16); // protection
    putLittle(out, static_cast<uint64_t>(reserved), 8);
    putLittle(out, 0, 8); // spacing
    putDouble(out, 1.0);
    putLittle(out, spareBits, 8);
    putLittle(out, 0, 8);
    return out;
}

Bytes PointFileMaker::make() const {
    Bytes out = header();
    const size_t recordSize = version == 18 ? 21 : 14;
    auto location = static_cast<int64_t>(out.size() + recordSize * nodes.size());
    Bytes points;
    out.reserve(out.size() + recordSize * nodes.size());
    for (const Node& node : nodes) {
        out.push_back(node.mask);
        const auto stored = static_cast<int64_t>(node.stored.size());
        if (version == 18) {
            putLittle(out, static_cast<uint64_t>(node.diskSize < 0 ? stored : node.diskSize), 4);
            putLittle(out, node.filter, 4);
        } else {
            out.push_back(static_cast<unsigned char>(node.stride));
        }
        putLittle(out, static_cast<uint64_t>(node.pointCount), 2);
        putLittle(out, static_cast<uint64_t>(node.originalCount == -1 ? node.pointCount : node.originalCount), 2);
        putLittle(out, static_cast<uint64_t>(node.location == -1 ? location : node.location), 8);
        location += stored;
        points.insert(points.end(), node.stored.begin(), node.stored.end());
    }
    out.insert(out.end(), points.begin(), points.end());
    return out;
}

PointFileMaker smallCloud() {
    PointFileMaker maker(17);
    maker.pointCount = 4;
    maker.add({.mask = 7, .pointCount = 2, .stored = fixedPoint(10000, 20000, 5000, 10) + fixedPoint(0, 1, 2, 20)});
    maker.add({.mask = 4, .pointCount = 1, .stored = fixedPoint(256, 0, 0, 30)});
    maker.add({.mask = 4, .pointCount = 1, .stored = fixedPoint(20000, 30000, 10000, 40)});
    return maker;
}
