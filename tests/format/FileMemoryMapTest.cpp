#include "format/FileMemoryMap.h"
#include "format/OPCHeader.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>

TEST(FileMemoryMap, ReadsOnlyWhatLiesInTheFile) {
    const TempDir dir;
    FileMemoryMap file;
    file.openFile(dir.writeWide("file", {1, 2, 3, 4}), false, 4);
    EXPECT_TRUE(file.isReadOnly());
    char out[5] = {9, 9, 9, 9, 9};
    EXPECT_TRUE(file.readData(out, 0, 1, 3));
    EXPECT_EQ(2, out[0]);
    EXPECT_EQ(9, out[3]);
    const std::pair<int64_t, int> outside[] = {{0, 5},  {4, 1},  {5, 0},
                                               {-1, 1}, {0, -1}, {std::numeric_limits<int64_t>::max(), 1}};
    for (const auto& [at, size] : outside) EXPECT_FALSE(file.readData(out, 0, at, size)) << at << ", " << size;
    EXPECT_TRUE(file.readData(out, 0, 4, 0));
    EXPECT_FALSE(file.saveData("x", 0, 1));
}

TEST(FileMemoryMap, WritesInPlaceAndNeverGrows) {
    const TempDir dir;
    FileMemoryMap file;
    file.openFile(dir.writeWide("file", {1, 2, 3, 4}), true, 4);
    EXPECT_FALSE(file.isReadOnly());
    EXPECT_TRUE(file.saveData("ab", 2, 2));
    EXPECT_FALSE(file.saveData("ab", 3, 2));
    EXPECT_EQ((Bytes{1, 2, 'a', 'b'}), dir.read("file"));
}

// A map would end the process here.
TEST(FileMemoryMap, SurvivesAFileCutShort) {
    const TempDir dir;
    FileMemoryMap file;
    file.openFile(dir.writeWide("file", Bytes(10000, 1)), true, 10000);
    std::filesystem::resize_file(dir.path("file"), 10);
    char out[100];
    EXPECT_FALSE(file.readData(out, 0, 9000, 100));
    EXPECT_FALSE(file.readData(out, 0, 5, 100));
    EXPECT_TRUE(file.readData(out, 0, 0, 10));
}

TEST(FileMemoryMap, RefusesATreeThatTheFileDoesNotBack) {
    const TempDir dir;
    PointFileMaker sound = smallCloud();
    for (const int nodeCount : {13, 1000, std::numeric_limits<int>::max(), -2}) {
        sound.nodeCount = nodeCount;
        FileMemoryMap file;
        file.openFile(dir.writeWide("file", sound.make()), false, 0);
        OPCHeader header;
        EXPECT_ANY_THROW(file.readHeader(&header)) << nodeCount;
    }
}

TEST(FileMemoryMap, TakesTheTreeImageOfAVoxelFileFromReserved) {
    const TempDir dir;
    PointFileMaker voxels(90);
    voxels.add({});
    const std::pair<int, bool> cases[] = {{124, true}, {130, true}, {123, false}, {139, false}, {-1, false}};
    for (const auto& [reserved, opens] : cases) {
        voxels.reserved = reserved;
        FileMemoryMap file;
        file.openFile(dir.writeWide("file", voxels.make()), false, 0); // 138 bytes
        OPCHeader header;
        if (opens) {
            file.readHeader(&header);
            EXPECT_EQ(reserved, file.getTreeStructureSize());
        } else {
            EXPECT_ANY_THROW(file.readHeader(&header)) << reserved;
        }
    }
}
