// Writes small sound point files of both versions into the folder named on the command line.

#include "support/PointFileMaker.h"

#include <cstdio>
#include <fstream>
#include <string>

static PointFileMaker streamCloud() {
    PointFileMaker maker(18);
    const Bytes stream = {0xAC, 0x02, 0x0A, 0x7E, 0x62, 0x01, 0x0B, 0x7E, 0x62, 0x80, 0x80, 0x01, 0x0A, 0x7E, 0x62};
    maker.add({.mask = 0x0B, .pointCount = 2, .stored = stream, .filter = 3});
    maker.add({.mask = 0x10, .pointCount = 2, .stored = stream, .filter = 100});
    maker.add({.mask = 0x02, .pointCount = 0});
    maker.add({.mask = 0x04, .pointCount = 2, .stored = stream});
    return maker;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzzSeeds FOLDER\n");
        return 1;
    }
    PointFileMaker strides(17);
    strides.add({.mask = 5, .pointCount = 2, .stored = Bytes(22, 7), .stride = 11});
    strides.add({.mask = 4, .pointCount = 3, .stored = Bytes(51, 0x81), .stride = 17});
    PointFileMaker voxels(90);
    voxels.nodeCount = 7;
    const Bytes tree = {0x1F, 0x08}; // two nodes with both children, one with a lower and one with an upper alone
    const Bytes colours = {10, 20, 0x3F, 30, 41, 0x51, 250, 0, 0xF1};
    voxels.reserved = static_cast<int64_t>(124 + tree.size() + colours.size());
    const std::pair<const char*, Bytes> seeds[] = {{"fixed", smallCloud().make()},
                                                   {"stream", streamCloud().make()},
                                                   {"strides", strides.make()},
                                                   {"voxels", voxels.header() + tree + colours}};
    for (const auto& [name, bytes] : seeds) {
        std::ofstream out(std::string(argv[1]) + "/" + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out) return 1;
    }
    return 0;
}
