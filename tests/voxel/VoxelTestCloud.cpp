#include "voxel/VoxelTestCloud.h"

#include "format/OPCNodeParser.h"
#include "format/PointStream.h"

#include <cmath>
#include <random>
#include <set>

// Colours that differ from place to place, so that means do not all end up grey.
static uint32_t colourAt(uint32_t x, uint32_t y, uint32_t z) {
    return (x * 7 + y * 3 + z + 1) * 2654435761U;
}

static Bytes fixedNode(std::minstd_rand& random, int points) {
    Bytes stored;
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random()) % limit; };
    for (int i = 0; i < points; ++i) {
        const uint32_t x = below(4) * 9000 + below(5000); // clumps 0.9 apart and 0.5 wide, so that many cells are solid
        const uint32_t y = below(5000), z = below(9000);
        Bytes point = fixedPoint(x, y, z, 0);
        for (size_t k = 0; k < 4; ++k) {
            point[9 + k] = static_cast<unsigned char>(colourAt(x / 2000, y / 2000, z / 2000) >> (8 * k));
        }
        stored.insert(stored.end(), point.begin(), point.end());
    }
    return stored;
}

static Bytes streamNode(std::minstd_rand& random, int points) {
    std::set<uint64_t> codes;
    while (codes.size() < static_cast<size_t>(points) * 2) {
        codes.insert(PointStream::morton(random() % 4 * 9 + random() % 5, random() % 20, random() % 30));
    }
    Bytes stored;
    uint64_t before = 0;
    bool isMarked = false;
    for (const uint64_t code : codes) {
        unsigned char point[PointStream::LARGEST_POINT_BYTES];
        unsigned char* end = PointStream::putDelta(point, code - before);
        before = code;
        PointStream::store(end, (colourAt(0, 0, static_cast<uint32_t>(code >> 9)) >> 8 & 0xFFFFFEU) |
                                    static_cast<uint32_t>(isMarked));
        isMarked = !isMarked;
        stored.insert(stored.end(), point, end + PointStream::PACKED_BYTES);
    }
    return stored;
}

PointFileMaker voxelCloud(int version, int points, const std::array<double, 6>& box, uint32_t seed) {
    std::minstd_rand random(seed);
    PointFileMaker maker(version);
    maker.box = box;
    maker.pointCount = 3 * points;
    for (const uint8_t mask : {uint8_t{7}, uint8_t{4}, uint8_t{4}}) {
        maker.add({.mask = mask,
                   .pointCount = points,
                   .stored = version == 18 ? streamNode(random, points) : fixedNode(random, points),
                   .filter = 1000});
    }
    maker.nodes[2].location = int64_t{1} << 40;
    return maker;
}

std::map<int64_t, OPCInterface::Voxel> expectedCells(const PointFileMaker& file, const ModelGrid& grid) {
    std::map<int64_t, OPCInterface::Voxel> cells;
    for (size_t n = 0; n < 2; ++n) { // their corners are that of the box
        Bytes stored = file.nodes[n].stored;
        OPCNodeParser parser(stored, file.nodes[n].filter / 10000.0, 14, file.version);
        for (int i = 0; i < file.nodes[n].pointCount; ++i) {
            const OPCPoint point = parser.getPoint(i, true);
            const double place[3] = {point.x, point.y, point.z};
            int64_t at[3];
            for (size_t axis = 0; axis < 3; ++axis) {
                const double cell =
                    std::trunc(((place[axis] + file.box[axis]) * grid.scale - grid.minimum[axis]) / grid.voxelSize);
                at[axis] = std::fabs(cell) < 0x1p63 ? static_cast<int64_t>(cell) : INT64_MIN;
            }
            const auto u = [](int64_t value) { return static_cast<uint64_t>(value); };
            const auto key =
                static_cast<int64_t>((u(at[2]) * u(grid.count[1]) + u(at[1])) * u(grid.count[0]) + u(at[0]));
            OPCInterface::Voxel& voxel =
                cells.try_emplace(key, OPCInterface::Voxel{at[0], at[1], at[2], 0, 0, 0, 0, 0}).first->second;
            voxel.sumRed += point.colour[0];
            voxel.sumGreen += point.colour[1];
            voxel.sumBlue += point.colour[2];
            voxel.sumIntensity += point.colour[3];
            ++voxel.pointCount;
        }
    }
    return cells;
}
