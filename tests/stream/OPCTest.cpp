#include "stream/OPC.h"
#include "format/FileMemoryMap.h"
#include "ground/Log.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <limits>
#include <tuple>

namespace {

std::unique_ptr<OPC> open(const TempDir& dir, const Bytes& bytes, bool writable = false) {
    const auto file = std::make_shared<FileMemoryMap>();
    file->openFile(dir.writeWide("cloud", bytes), writable, 0);
    setLastError("");
    return std::make_unique<OPC>(file);
}

std::vector<double> boxOf(OPCInterface* node) {
    return {node->getBoundingBox(), node->getBoundingBox() + 6};
}

} // namespace

TEST(OPC, MakesTheTreeOfTheRecords) {
    const TempDir dir;
    const auto opc = open(dir, smallCloud().make());
    ASSERT_TRUE(opc->isLoaded());
    EXPECT_EQ(nullptr, opc->getNode(-1));
    EXPECT_EQ(nullptr, opc->getNode(3));
    OPCInterface* root = opc->getNode(0);
    EXPECT_EQ(root, opc->getRootNode().get());
    EXPECT_TRUE(root->isRoot());
    EXPECT_FALSE(opc->getNode(1)->isRoot());
    ASSERT_EQ(2U, root->getChildren().size());
    EXPECT_EQ(opc->getNode(1), root->getChildren()[0].get());
    EXPECT_EQ(opc->getNode(2), root->getChildren()[1].get());
    EXPECT_EQ((std::vector<double>{0, 0, 0, 8, 4, 2}), boxOf(root));
    EXPECT_EQ((std::vector<double>{0, 0, 0, 4, 4, 2}), boxOf(opc->getNode(1)));
    EXPECT_EQ((std::vector<double>{4, 0, 0, 8, 4, 2}), boxOf(opc->getNode(2)));
    EXPECT_FLOAT_EQ(3.0F, static_cast<float>(opc->getNode(1)->getRadius())); // half of the root of 16 + 16 + 4
    double centre[3];
    opc->getNode(2)->getNodeCenter(centre);
    EXPECT_EQ(6.0, centre[0]);
    EXPECT_EQ(28U, root->getDiskSize());
}

TEST(OPC, SplitsOnTheAxisOfTheMask) {
    // Mask, the axis, and whether the child has the upper half.
    const std::tuple<int, size_t, bool> cases[] = {{0x06, 0, true}, {0x05, 0, false}, {0x09, 1, false},
                                                   {0x0A, 1, true}, {0x12, 2, true},  {0x01, 2, false}};
    for (const auto& [mask, axis, upper] : cases) {
        const TempDir dir;
        PointFileMaker maker(17);
        maker.add({.mask = static_cast<uint8_t>(mask)}).add({});
        const auto opc = open(dir, maker.make());
        ASSERT_TRUE(opc->isLoaded()) << mask;
        ASSERT_EQ(1U, opc->getRootNode()->getChildren().size());
        std::vector<double> expected{0, 0, 0, 8, 4, 2};
        expected[upper ? axis : axis + 3] = expected[axis + 3] / 2;
        EXPECT_EQ(expected, boxOf(opc->getNode(1))) << mask;
    }
}

TEST(OPC, ReadsVersion18AndTreatsOthersAsFixed) {
    const TempDir dir;
    PointFileMaker stream(18);
    stream.add({.pointCount = 3, .location = 5, .filter = 3, .diskSize = 0x81000000});
    const auto opc = open(dir, stream.make());
    ASSERT_TRUE(opc->isLoaded());
    EXPECT_EQ(18, opc->getNode(0)->getVersion());
    EXPECT_EQ(3 / 10000.0, opc->getNode(0)->getFilter());
    EXPECT_EQ(0x81000000U, opc->getNode(0)->getDiskSize());
    for (const int version : {5, 0, -238, -1}) {
        PointFileMaker other = smallCloud();
        other.version = version;
        const auto fixed = open(dir, other.make());
        ASSERT_TRUE(fixed->isLoaded()) << version;
        EXPECT_NE(18, fixed->getNode(0)->getVersion()) << version;
        EXPECT_EQ(14, fixed->getNode(2)->getBytesPerVertex()) << version;
    }
}

TEST(OPC, RefusesDamagedFilesWithAReason) {
    const std::tuple<const char*, void (*)(PointFileMaker&), const char*> cases[] = {
        {"no nodes", [](PointFileMaker& m) { m.nodeCount = 0; }, "the header is not that of a point file"},
        {"tree beyond the file", [](PointFileMaker& m) { m.nodeCount = std::numeric_limits<int>::max(); },
         "the file is too short for the tree that its header announces"},
        {"negative node count", [](PointFileMaker& m) { m.nodeCount = -5; },
         "the file is too short for the tree that its header announces"},
        {"more children than nodes", [](PointFileMaker& m) { m.nodes[2].mask = 6; },
         "the tree has more nodes than the header announces"},
        {"negative count", [](PointFileMaker& m) { m.nodes[1].pointCount = -1; }, "the tree has a damaged record"},
        {"negative original count", [](PointFileMaker& m) { m.nodes[1].originalCount = -2; },
         "the tree has a damaged record"},
    };
    for (const auto& [name, damage, reason] : cases) {
        const TempDir dir;
        PointFileMaker maker = smallCloud();
        damage(maker);
        const auto opc = open(dir, maker.make());
        EXPECT_FALSE(opc->isLoaded()) << name;
        EXPECT_EQ(nullptr, opc->getRootNode()) << name;
        EXPECT_EQ(nullptr, opc->getNode(0)) << name;
        EXPECT_EQ(reason, lastError()) << name;
    }
}

TEST(OPC, RefusesEveryTruncationOfHeaderAndTree) {
    const TempDir dir;
    const Bytes whole = smallCloud().make();
    for (size_t size = 0; size < 124 + 3 * 14; ++size) {
        EXPECT_FALSE(open(dir, {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)})->isLoaded()) << size;
    }
    // Without points it loads; the points are then failed reads.
    EXPECT_TRUE(open(dir, {whole.begin(), whole.begin() + 124 + 3 * 14})->isLoaded());
}

// As deep as a tree can be for its size: recursion anywhere would overflow the call stack.
TEST(OPC, WalksAChainOfAMillionLevels) {
    constexpr int LEVELS = 1000000;
    const TempDir dir;
    PointFileMaker maker(17);
    maker.nodes.resize(LEVELS, {.mask = 5, .pointCount = 1, .location = 0});
    maker.nodes.back().mask = 4;
    const auto opc = open(dir, maker.make());
    ASSERT_TRUE(opc->isLoaded());
    OPCInterface& root = *opc->getRootNode();
    EXPECT_NE(nullptr, opc->getNode(LEVELS - 1));
    long long total = 0;
    root.getTotalPointCount(&total);
    EXPECT_EQ(LEVELS, total);
    std::vector<char> structure(3 * LEVELS, 'x');
    int64_t position = 0;
    root.getTreeStructure(structure.data(), position);
    EXPECT_EQ(3 * LEVELS, position);
    EXPECT_EQ(4, structure[3 * LEVELS - 3]);
    root.unregisterWindow(0);
    root.clearWindowVisibility();
    root.unload(true);
    std::vector<int> names;
    root.getVBODeleteData(&names);
    EXPECT_TRUE(names.empty());
}

TEST(OPC, WritesARecordBackExactly) {
    for (const int version : {17, 18}) {
        const TempDir dir;
        PointFileMaker maker(version);
        // 3 and 4 ten-thousandths do not survive a truncated multiplication.
        maker.add({.mask = 5, .filter = 3}).add({.pointCount = 7, .filter = 4, .diskSize = 99, .originalCount = 9});
        const Bytes before = maker.make();
        const auto opc = open(dir, before, true);
        ASSERT_TRUE(opc->isLoaded());
        EXPECT_TRUE(opc->getNode(0)->writeNodeStructure());
        EXPECT_TRUE(opc->getNode(1)->writeNodeStructure());
        EXPECT_EQ(before, dir.read("cloud")) << version;
        opc->getNode(1)->setPointCount(0x0102);
        EXPECT_TRUE(opc->getNode(1)->writeNodeStructure());
        Bytes expected = before;
        const size_t at = version == 18 ? 124 + 21 + 9 : 124 + 14 + 2;
        expected[at] = 2;
        expected[at + 1] = 1;
        EXPECT_EQ(expected, dir.read("cloud")) << version;
    }
}
