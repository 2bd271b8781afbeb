// Models as they come from damaged and odd files.

#include "edit/ClipBox.h"
#include "format/FileMemoryMap.h"
#include "ground/Log.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "stream/ViewCriteria.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <glm/mat4x4.hpp>
#include <gtest/gtest.h>

namespace {

// A root with two leaves unless told otherwise.
struct VoxelFile {
    int nodes = 3;
    Bytes tree{0x03};
    Bytes colours{10, 20, 0x3F, 30, 41, 0x51};
    int64_t reserved = 0; // more than what it is
    size_t cut = 0;       // bytes off the end, after all else

    [[nodiscard]] std::unique_ptr<OPC> open(const TempDir& dir) const {
        PointFileMaker maker(90);
        maker.nodeCount = nodes;
        maker.reserved = static_cast<int64_t>(124 + tree.size() + colours.size()) + reserved;
        Bytes bytes = maker.header() + tree + colours;
        bytes.resize(bytes.size() - cut);
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(dir.writeWide("model", bytes), false, 0);
        return std::make_unique<OPC>(file);
    }
};

std::vector<Bytes> shownColours(OPCInterface& root) {
    ViewCriteria view;
    view.viewHeight = 1000;
    view.fov = 0.5F;
    view.lodFactor = 1e30;
    root.checkVisibility(view, true);
    std::vector<Bytes> result;
    const GPUBatch* batch = root.existingBatch(0);
    for (int at = 24; batch && at < batch->size; at += 32) {
        result.emplace_back(batch->data.get() + at, batch->data.get() + at + 4);
    }
    return result;
}

} // namespace

TEST(OVMNode, RefusesDamagedFilesWithAReason) {
    constexpr int64_t BEYOND_32_BITS = int64_t{1} << 32;
    const std::tuple<const char*, VoxelFile, const char*> cases[] = {
        {"block beyond the file", {.reserved = 1}, "the file is too short for the tree that its header announces"},
        {"file cut short", {.cut = 1}, "the file is too short for the tree that its header announces"},
        {"block within the header", {.reserved = -8}, "the file is too short for the tree that its header announces"},
        {"block without the tree", {.reserved = -7}, "the block of header and tree is too short for the tree"},
        {"tree beyond the block", {.nodes = 40}, "the block of header and tree is too short for the tree"},
        {"block beyond 32 bits", {.reserved = BEYOND_32_BITS}, "the block of header and tree lies outside the file"},
        {"negative block", {.reserved = -BEYOND_32_BITS}, "the block of header and tree lies outside the file"},
        {"more children than nodes", {.tree = {0x0F}}, "the tree has more nodes than the header announces"},
        {"no end", {.nodes = 4, .tree = {0xFF}}, "the tree has more nodes than the header announces"},
        {"no end on one side", {.nodes = 4, .tree = {0x55}}, "the tree has more nodes than the header announces"},
    };
    for (const auto& [name, file, reason] : cases) {
        const TempDir dir;
        const auto opc = file.open(dir);
        EXPECT_FALSE(opc->isLoaded()) << name;
        EXPECT_EQ(reason, lastError()) << name;
    }
}

TEST(OVMNode, ShowsWhatIsSound) {
    const Bytes grey{136, 136, 0x80, 0x80};
    const Bytes first{10, 20, 0x30, 0xF0};
    const Bytes second{30, 41, 0x50, 0x10};
    const std::tuple<const char*, VoxelFile, std::vector<Bytes>> cases[] = {
        {"whole", {}, {first, second}},
        {"no colours", {.colours = {}}, {grey, grey}},
        {"three bytes are no colours", {.colours = {1, 2, 3}}, {grey, grey}},
        {"colours of one leaf", {.colours = {10, 20, 0x3F, 30}}, {first, grey}},
        {"a model of one leaf is grey", {.nodes = 1, .tree = {0}, .colours = {1, 2, 3}}, {grey}},
        {"its colour and a byte more", {.nodes = 1, .tree = {0}, .colours = {10, 20, 0x3F, 0}}, {first}},
        {"nodes behind the tree", {.nodes = 4, .tree = {0xC3}}, {first, second}},
        {"an upper half alone", {.nodes = 2, .tree = {0x02}}, {first}},
    };
    for (const auto& [name, file, expected] : cases) {
        const TempDir dir;
        const auto opc = file.open(dir);
        ASSERT_TRUE(opc->isLoaded()) << name << ": " << lastError();
        EXPECT_EQ(expected, shownColours(*opc->getRootNode())) << name;
        EXPECT_EQ(nullptr, opc->getNode(1)) << name;
    }
}

// Recursion anywhere would overflow the call stack; half of the nodes wait for a right child that comes in the end.
TEST(OVMNode, WalksAChainOfHalfAMillionLevels) {
    constexpr int NODES = 1000000;
    const TempDir dir;
    VoxelFile file{.nodes = NODES, .tree = Bytes(NODES / 8 - 1, 0xFF), .colours = {}};
    file.tree.resize(NODES / 4); // leaves, a few more than there are places
    const auto opc = file.open(dir);
    ASSERT_TRUE(opc->isLoaded()) << lastError();
    OPCInterface& root = *opc->getRootNode();
    EXPECT_FALSE(shownColours(root).empty());
    double result[4] = {0, 0, 0, 1e30};
    unsigned char colour[5];
    const glm::dvec4 corner(0, 0, 0, 1);
    EXPECT_TRUE(root.findClosestPoint({}, glm::dmat4(1.0), corner, corner, result, colour));
    EXPECT_GT(1e-6, result[3]);
    EXPECT_EQ((Bytes{136, 136, 0x80, 0x80}), Bytes(colour, colour + 4));
}
