#include "SeedClouds.h"

static Bytes streamCloud() {
    PointFileMaker maker(18);
    const Bytes stream = {0xAC, 0x02, 0x0A, 0x7E, 0x62, 0x01, 0x0B, 0x7E, 0x62, 0x80, 0x80, 0x01, 0x0A, 0x7E, 0x62};
    // Of the three points in the stream the second is marked as deleted.
    maker.add({.mask = 0x0B, .pointCount = 2, .stored = stream, .filter = 3, .originalCount = 3});
    maker.add({.mask = 0x10, .pointCount = 2, .stored = stream, .filter = 100, .originalCount = 3});
    maker.add({.mask = 0x02, .pointCount = 0});
    maker.add({.mask = 0x04, .pointCount = 2, .stored = stream, .originalCount = 3});
    return maker.make();
}

static Bytes cloudOfTwoStrides() {
    PointFileMaker maker(17);
    maker.add({.mask = 5, .pointCount = 2, .stored = Bytes(22, 7), .stride = 11});
    maker.add({.mask = 4, .pointCount = 3, .stored = Bytes(51, 0x81), .stride = 17});
    return maker.make();
}

static Bytes voxelModel() {
    PointFileMaker maker(90);
    maker.nodeCount = 7;
    const Bytes tree = {0x1F, 0x08}; // two nodes with both children, one with a lower and one with an upper alone
    const Bytes colours = {10, 20, 0x3F, 30, 41, 0x51, 250, 0, 0xF1};
    maker.reserved = static_cast<int64_t>(124 + tree.size() + colours.size());
    return maker.header() + tree + colours;
}

std::vector<std::pair<std::string, Bytes>> seedClouds() {
    return {{"fixed", smallCloud().make()},
            {"stream", streamCloud()},
            {"strides", cloudOfTwoStrides()},
            {"voxels", voxelModel()}};
}
