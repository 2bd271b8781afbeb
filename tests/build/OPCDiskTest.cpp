#include "build/OPCDisk.h"
#include "format/OPCHeader.h"
#include "support/TempDir.h"

#include <array>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

constexpr int BLOCK_SIZE = 100;

TEST(OPCDisk, TakesTheLowestFreeBlock) {
    const TempDir dir;
    OPCDisk disk(dir.widePath("a.opc"), 1000, BLOCK_SIZE);
    for (int expected = 0; expected <= 10; ++expected) EXPECT_EQ(expected, disk.getNextBlock());
    disk.releaseBlock(7);
    disk.releaseBlock(3);
    disk.releaseBlock(-1);
    EXPECT_EQ(3, disk.getNextBlock());
    EXPECT_EQ(7, disk.getNextBlock());
    EXPECT_EQ(11, disk.getNextBlock());
}

TEST(OPCDisk, KeepsBlocksApartAndGrowsForThem) {
    const TempDir dir;
    OPCDisk disk(dir.widePath("a.opc"), 0, BLOCK_SIZE);
    EXPECT_EQ(1U, std::filesystem::file_size(dir.path("a.opc")));
    EXPECT_EQ(1U, std::filesystem::file_size(dir.path("a.opc.scratch")));
    const std::string text = "first";
    const std::string other = "other";
    EXPECT_TRUE(disk.writeBlock(other.data(), 2, 0, 5));
    EXPECT_TRUE(disk.writeBlock(text.data(), 1, 95, 5));
    EXPECT_FALSE(disk.writeBlock(text.data(), 1, 96, 5)) << "reaches into the next block";
    std::array<char, BLOCK_SIZE> block;
    ASSERT_TRUE(disk.readBlock(block.data(), 1, BLOCK_SIZE));
    EXPECT_EQ(text, std::string(block.data() + 95, 5));
    ASSERT_TRUE(disk.readBlock(block.data(), 2, 5));
    EXPECT_EQ(other, std::string(block.data(), 5));
    EXPECT_FALSE(disk.readBlock(block.data(), 2, BLOCK_SIZE + 1));
    EXPECT_FALSE(disk.readBlock(block.data(), -1, 1));
}

TEST(OPCDisk, CutsTheOutputBehindTheLastDataWritten) {
    const TempDir dir;
    {
        OPCDisk disk(dir.widePath("a.opc"), 1000, BLOCK_SIZE);
        EXPECT_EQ(1001U, std::filesystem::file_size(dir.path("a.opc")));
        EXPECT_EQ(3001U, std::filesystem::file_size(dir.path("a.opc.scratch")));
        disk.seekPosition(200);
        EXPECT_EQ(200, disk.writeCompressedData("12345678", 8));
        EXPECT_EQ(208, disk.getFilePosition());
        OPCHeader header;
        EXPECT_TRUE(disk.writeHeader(header));
        disk.seekPosition(124);
        EXPECT_EQ(124, disk.writeCompressedData("tree", 4));
    }
    const auto bytes = dir.read("a.opc");
    ASSERT_EQ(208U, bytes.size());
    EXPECT_EQ(1, bytes[0]);
    EXPECT_EQ('t', bytes[124]);
    EXPECT_EQ('1', bytes[200]);
    EXPECT_FALSE(std::filesystem::exists(dir.path("a.opc.scratch")));
    {
        // Everything but the final size starts afresh; a build without a header gets the length of the one before.
        OPCDisk next(dir.widePath("b.opc"), 10, BLOCK_SIZE);
        EXPECT_EQ(0, next.getFilePosition());
        EXPECT_EQ(0, next.getNextBlock());
    }
    EXPECT_EQ(208U, std::filesystem::file_size(dir.path("b.opc")));
}

TEST(OPCDisk, SurvivesFilesThatCannotBeMade) {
    const TempDir dir;
    EXPECT_FALSE(OPCDisk(dir.widePath("huge.opc"), INT64_MAX, BLOCK_SIZE).isSound());
    EXPECT_FALSE(std::filesystem::exists(dir.path("huge.opc.scratch")));
    OPCDisk disk(dir.widePath("missing/a.opc"), 100, BLOCK_SIZE);
    EXPECT_TRUE(disk.isOpen());
    EXPECT_FALSE(disk.isSound());
    EXPECT_FALSE(disk.writeBlock("1", disk.getNextBlock(), 0, 1));
    EXPECT_EQ(-1, disk.writeCompressedData("1", 1));
}

} // namespace
