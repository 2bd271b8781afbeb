#include "format/FileMemoryMap.h"
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

TEST(FileMemoryMap, WritesInPlaceNeverGrowsAndSurvivesAFileCutShort) {
    const TempDir dir;
    FileMemoryMap file;
    file.openFile(dir.writeWide("file", {1, 2, 3, 4}), true, 4);
    EXPECT_FALSE(file.isReadOnly());
    EXPECT_TRUE(file.saveData("ab", 2, 2));
    EXPECT_FALSE(file.saveData("ab", 3, 2));
    EXPECT_EQ((Bytes{1, 2, 'a', 'b'}), dir.read("file"));
    std::filesystem::resize_file(dir.path("file"), 2); // a map would end the process
    char out[4];
    for (const int from : {0, 1, 3}) EXPECT_FALSE(file.readData(out, 0, from, 4 - from)) << from;
    EXPECT_TRUE(file.readData(out, 0, 0, 2));
}
