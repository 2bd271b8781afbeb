#include "format/FileMemoryMap.h"
#include "ground/Pools.h"
#include "stream/OPC.h"
#include "support/TempDir.h"
#include "voxel/VoxelTestCloud.h"

#include <gtest/gtest.h>

#include <limits>

static auto fields(const OPCInterface::Voxel& v) {
    return std::tuple(v.cellX, v.cellY, v.cellZ, v.sumRed, v.sumGreen, v.sumBlue, v.sumIntensity, v.pointCount);
}

TEST(VoxelExtraction, FillsTheCellsThatAPointByPointCountFills) {
    const TempDir dir;
    constexpr double NAN_VALUE = std::numeric_limits<double>::quiet_NaN();
    constexpr double INF = std::numeric_limits<double>::infinity();
    // The second box is a whole number of cells wide: points lie on its far faces and beyond.
    const std::array<double, 6> boxes[] = {
        {0, 0, 0, 8, 4, 2}, {-1000.5, 7, 3, -998, 8.5, 5.5}, {1e9, -1e9, 0, 1e9 + 1, 1e9, 1}};
    const std::pair<double, double> grids[] = {{0.1, 1}, {0.3, 2.5},   {1000, 1},      {5000, 1},
                                               {0.0, 1}, {-3, 1},      {NAN_VALUE, 1}, {0.1, -1},
                                               {0.1, 0}, {0.1, 1e300}, {0.1, INF},     {1, NAN_VALUE}};
    for (const int version : {17, 18}) {
        for (const auto& box : boxes) {
            const PointFileMaker maker = voxelCloud(version, 3000, box, 7);
            const auto file = std::make_shared<FileMemoryMap>();
            file->openFile(dir.writeWide("cloud", maker.make()), false, 0);
            const OPC opc(file);
            ASSERT_TRUE(opc.isLoaded());
            for (const auto& [size, scale] : grids) {
                const ModelGrid grid(box.data(), size, scale);
                EXPECT_TRUE(grid.voxelSize >= 0.01 && grid.voxelSize <= 1000) << size;
                VoxelMap map;
                std::atomic<int32_t> progress{5};
                opc.getNode(0)->getVoxelData(&map, grid, &progress);
                EXPECT_EQ(8, progress); // the node that can't be read counts
                EXPECT_EQ(1, map.unreadNodes());
                EXPECT_EQ(6000, map.points());
                const auto expected = expectedCells(maker, grid);
                ASSERT_EQ(expected.size(), map.cells().size()) << version << ", " << size << " x " << scale;
                auto cell = map.cells().begin();
                for (const auto& [key, voxel] : expected) {
                    ASSERT_EQ(key, cell->key) << version << ", " << size << " x " << scale;
                    ASSERT_EQ(fields(voxel), fields(cell->voxel)) << version << ", " << size << " x " << scale;
                    ++cell;
                }
            }
        }
    }
}

// As many points in one cell as no test has: sums wrap around, and nothing is undefined. Of the cells with one key,
// that of the first node stays, in whatever order they come.
TEST(VoxelExtraction, WrapsSumsAndKeepsTheFirstNodesCell) {
    static constexpr double BOX[6] = {0, 0, 0, 10, 10, 10};
    VoxelMap map;
    map.begin(ModelGrid(BOX, 1, 1));
    constexpr int32_t LARGEST = std::numeric_limits<int32_t>::max();
    const ModelCell cells[] = {{7, {1, 2, 3, LARGEST, 1, -1, LARGEST, LARGEST}, 5},
                               {7, {4, 5, 6, LARGEST, 2, 1, 1, 1}, 3},
                               {7, {7, 8, 9, 0, 3, 5, 0, 0}, 4}};
    for (const ModelCell& cell : cells) map.add({&cell, 1});
    map.sort(processingPool());
    ASSERT_EQ(1U, map.cells().size());
    constexpr int32_t LEAST = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(std::tuple(4, 5, 6, -2, 6, 5, LEAST, LEAST), fields(map.cells().front().voxel));
}
