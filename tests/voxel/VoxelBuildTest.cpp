// Built models against a tree that takes one point at a time, byte by byte, and what is read back against both.

#include "build/OPCCreator.h"
#include "format/FileMemoryMap.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "stream/ViewCriteria.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"
#include "voxel/VoxelCells.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using Box = std::array<double, 6>;
using Colour = std::array<unsigned, 4>;

struct Tree {
    std::unique_ptr<Tree> low, high;
    std::array<uint64_t, 5> sums{}; // red, green, blue, intensity, points
    Box box{};

    static bool holds(const Box& box, const double* p) {
        return p[0] >= box[0] && p[0] <= box[3] && p[1] >= box[1] && p[1] <= box[4] && p[2] >= box[2] && p[2] <= box[5];
    }

    bool add(const double* p, const unsigned char* attributes, float size) {
        if (!holds(box, p)) return false;
        const double x = box[3] - box[0], y = box[4] - box[1], z = box[5] - box[2];
        if (!(static_cast<float>((x + y + z) / 3.0) > size)) {
            for (size_t i = 0; i < 4; ++i) sums[i] += attributes[i];
            ++sums[4];
            return true;
        }
        const size_t axis = z > x && z > y ? 2 : y > x ? 1 : 0;
        const double middle = (box[axis] + box[axis + 3]) * 0.5;
        auto& child = p[axis] <= middle ? low : high;
        if (!child) {
            child = std::make_unique<Tree>();
            child->box = box;
            child->box[p[axis] <= middle ? axis + 3 : axis] = middle;
        }
        return child->add(p, attributes, size);
    }

    [[nodiscard]] Bytes packed() const {
        const uint64_t n = std::max<uint64_t>(sums[4], 1);
        return {static_cast<unsigned char>(sums[0] / n), static_cast<unsigned char>(sums[1] / n),
                static_cast<unsigned char>((sums[2] / n & 0xF0) | sums[3] / n >> 4)};
    }

    // What a reader shows of the subtree as one cell.
    [[nodiscard]] Colour shown() const {
        if (!low && !high) return {packed()[0], packed()[1], packed()[2] & 0xF0U, (packed()[2] & 0x0FU) << 4};
        if (!low || !high) return low ? low->shown() : high->shown();
        Colour mix = low->shown();
        const Colour other = high->shown();
        for (size_t i = 0; i < 4; ++i) mix[i] = (mix[i] + other[i]) / 2;
        return {mix[0], mix[1], mix[2] & 0xF0U, mix[3] & 0xF0U};
    }

    void visit(const std::function<void(const Tree&)>& use) const {
        use(*this);
        if (low) low->visit(use);
        if (high) high->visit(use);
    }
};

struct Model {
    Bytes file;
    std::vector<const Tree*> leaves;
    int nodes = 0;

    Model(const Tree& root, bool withColours) {
        Bytes bits, colours;
        root.visit([&](const Tree& node) {
            if (nodes % 4 == 0) bits.push_back(0);
            bits.back() =
                static_cast<unsigned char>(bits.back() | ((node.low ? 1 : 0) | (node.high ? 2 : 0)) << nodes % 4 * 2);
            ++nodes;
            if (node.low || node.high) return;
            leaves.push_back(&node);
            const Bytes packed = node.packed();
            if (withColours) colours.insert(colours.end(), packed.begin(), packed.end());
        });
        PointFileMaker maker(90);
        maker.nodeCount = nodes;
        maker.pointCount = nodes;
        maker.box = root.box;
        maker.reserved = static_cast<int64_t>(124 + bits.size() + colours.size());
        file = maker.header() + bits + colours;
    }
};

// The vertices that a window shows: from inside with endless detail all leaves, else what `detail` lets through.
Bytes visible(OPCInterface& root, double detail, const glm::dvec4& eye) {
    ViewCriteria view;
    view.viewHeight = 1000;
    view.fov = 0.5F;
    view.lodFactor = detail;
    view.eye = eye;
    root.checkVisibility(view, true);
    const GPUBatch* batch = root.existingBatch(0);
    return batch && batch->data ? Bytes(batch->data.get(), batch->data.get() + batch->size) : Bytes();
}

void expectVertex(const Tree& node, const Box& whole, const unsigned char* vertex) {
    float places[6];
    std::memcpy(places, vertex, sizeof(places));
    for (size_t axis = 0; axis < 3; ++axis) {
        const double centre = (node.box[axis] + node.box[axis + 3]) / 2.0 - whole[axis];
        EXPECT_EQ(static_cast<float>(centre), places[axis]);
        EXPECT_EQ(static_cast<float>((node.box[axis + 3] - node.box[axis]) / 2.0), places[axis + 3]);
    }
    const Colour shown = node.shown();
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(shown[i], vertex[24 + i]) << "value " << i;
}

} // namespace

TEST(VoxelBuild, WritesTheTreeOfAddingPointByPointAndReadsItBack) {
    const std::tuple<const char*, Box, float, int, int> cases[] = {
        {"halves that are exact", {0, 0, 0, 8, 4, 2}, 0.25F, 2, 20000},
        {"a cube whose halves round", {0.1, 0.1, 0.1, 1.1, 1.1, 1.1}, 0.03F, 2, 20000},
        {"a cube whose voxels end between cuts", {-0.7, -0.7, -0.7, 0.1, 0.1, 0.1}, 0.07F, 3, 20000},
        {"a national grid", {674521.92, 1206740.08, 627.53, 674605.32, 1206814.96, 656.23}, 0.4F, 2, 20000},
        {"coarse steps of the coordinates", {1e9, 1e9, -1e9, 1e9 + 0.01, 1e9 + 0.01, -1e9 + 0.01}, 0.0004F, 2, 3000},
        {"long and thin", {-5000, 2, 0, 5000, 2.5, 0.001}, 0.3F, 2, 20000},
        {"a flat box", {0, 0, 7, 10, 10, 7}, 0.1F, 3, 5000},
        {"more cuts than the table has", {0, 0, 0, 100, 1, 1}, 0.005F, 2, 5000},
        {"one voxel", {0, 0, 0, 8, 4, 2}, 100.0F, 2, 500},
        {"no point", {0, 0, 0, 8, 4, 2}, 1.0F, 2, 0},
        {"several rounds on all cores", {0, 0, 0, 100, 80, 20}, 1.0F, 2, 270000},
    };
    for (const auto& [name, box, size, type, count] : cases) {
        SCOPED_TRACE(name);
        std::mt19937 random(7);
        std::uniform_real_distribution<double> within(-0.01, 1.01); // some lie outside
        std::vector<double> positions;
        Bytes attributes;
        for (int i = 0; i < count; ++i) {
            for (size_t axis = 0; axis < 3; ++axis) {
                const double share = i % 3 == 0 ? static_cast<double>(random() % 65) / 64.0 : within(random); // planes
                positions.push_back(i == 1 ? NAN : box[axis] + share * (box[axis + 3] - box[axis]));
            }
            for (int k = 0; k < 5; ++k) attributes.push_back(static_cast<unsigned char>(random()));
        }
        Tree root;
        root.box = box;
        int64_t placed = 0;
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            placed += root.add(&positions[3 * i], &attributes[5 * i], size) ? 1 : 0;
        }
        const Model model(root, type == 2);

        const TempDir dir;
        OPCCreator creator;
        EXPECT_FALSE(creator.createOPC(dir.widePath("model"), box, 1, type, size)) << "though it began";
        EXPECT_EQ(BuildReport::UNDER_WAY, creator.report().state);
        EXPECT_TRUE(creator.addPoints(positions.data(), attributes.data(), count));
        testing::internal::CaptureStdout();
        creator.indexOPC(0, 0.0001, 0, 1.0);
        const int inner = model.nodes - static_cast<int>(model.leaves.size());
        EXPECT_EQ("Compile..\n" + std::to_string(2 * inner + 1) + "\nFinalise..\n",
                  testing::internal::GetCapturedStdout());
        EXPECT_TRUE(model.file == dir.read("model"));
        const BuildReport report = creator.report();
        EXPECT_EQ(BuildReport::FINISHED, report.state);
        EXPECT_EQ(placed, report.written);
        EXPECT_EQ(count - placed, report.outside);
        EXPECT_EQ(placed, creator.getOPCProgress(0));
        EXPECT_EQ(placed, creator.getOPCProgress(1));
        EXPECT_FALSE(std::filesystem::exists(dir.path("model.scratch")));

        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(dir.widePath("model"), false, 0);
        OPC opc(file);
        ASSERT_EQ(box[2] < box[5], opc.isLoaded()) << "a flat box is none that a file may have";
        if (!opc.isLoaded()) continue;
        const glm::dvec4 inside(box[0], box[1], box[2], 1.0);
        const Bytes all = visible(*opc.getRootNode(), 1e30, inside);
        ASSERT_EQ(model.leaves.size() * 32, all.size());
        if (type != 2 || model.file.size() < 132) continue; // colours that a reader takes
        for (size_t i = 0; i < model.leaves.size(); i += 1 + i / 100) {
            expectVertex(*model.leaves[i], box, &all[32 * i]);
        }
        // From far away the root just passes as a whole.
        const double diagonal = std::hypot(box[3] - box[0], box[4] - box[1], box[5] - box[2]);
        const glm::dvec4 eye((box[0] + box[3]) / 2.0 + 1e12, 0, 0, 1);
        const double detail = 1000.0 * (2.0 * std::tan(0.25) / 1000.0 * 1e12) / diagonal;
        const Bytes coarse = visible(*opc.getRootNode(), detail * 1.02, eye);
        ASSERT_EQ(32U, coarse.size());
        expectVertex(root, box, coarse.data());
        EXPECT_TRUE(visible(*opc.getRootNode(), detail * 0.98, eye).empty());
    }
}

TEST(VoxelBuild, RefusesSizesThatItCannotDivideInto) {
    const Box unit{0, 0, 0, 1, 1, 1};
    const std::tuple<const char*, Box, float, int> cases[] = {
        {"zero", unit, 0.0F, 2},
        {"negative", unit, -1.0F, 3},
        {"no number", unit, NAN, 2},
        {"finer than doubles", {1e9, 1e9, 1e9, 1e9 + 1, 1e9 + 1, 1e9 + 1}, 1e-6F, 2},
        {"more than a model can count", {0, 0, 0, 1e9, 1, 1}, 1e-3F, 2},
        {"inverted box", {1, 0, 0, 0, 1, 1}, 0.1F, 2},
        {"endless box", {0, 0, 0, INFINITY, 1, 1}, 0.1F, 2},
        {"unknown type", unit, 0.1F, -1},
    };
    const TempDir dir;
    OPCCreator creator;
    const double point[3] = {0.5, 0.5, 0.5};
    const unsigned char attributes[5] = {};
    for (const auto& [name, box, size, type] : cases) {
        creator.createOPC(dir.widePath("model"), unit, 10, 2, 0.5F); // is cancelled by what follows
        EXPECT_FALSE(creator.createOPC(dir.widePath("other"), box, 10, type, size)) << name;
        EXPECT_EQ(BuildReport::CANCELLED, creator.report().state) << name;
        EXPECT_FALSE(creator.addPoints(point, attributes, 1)) << name;
        EXPECT_FALSE(std::filesystem::exists(dir.path("other"))) << name;
        EXPECT_FALSE(std::filesystem::exists(dir.path("model.scratch"))) << name;
    }
}

// Brighter sums than 32 bits hold come out as several cells, with nothing lost.
TEST(VoxelCells, KeepTheSumsOfAnyNumberOfPoints) {
    constexpr uint32_t COUNT = 1U << 22, PLACES = 1000;
    VoxelCells cells;
    for (uint32_t i = 0; i < 9 * PLACES; ++i) {
        const VoxelCell run{{0, i % PLACES, 9}, {255 * COUNT, 0, 0, i}, COUNT};
        cells.add(run, run.hash());
    }
    std::vector<VoxelCell> all;
    cells.moveTo(all);
    EXPECT_EQ(3 * PLACES, all.size());
    std::map<uint32_t, std::array<uint64_t, 3>> sums;
    for (const VoxelCell& cell : all) {
        auto& [red, fourth, count] = sums[cell.part[1]];
        red += cell.sums[0], fourth += cell.sums[3], count += cell.count;
    }
    for (const auto& [place, sum] : sums) {
        EXPECT_EQ((std::array<uint64_t, 3>{9 * 255ULL * COUNT, 9ULL * place + 36ULL * PLACES, 9ULL * COUNT}), sum);
    }
}
