#include "edit/EditCloud.h"
#include "engine/EngineTest.h"
#include "ground/Pools.h"
#include "stream/GPUBatch.h"
#include "stream/OPC.h"
#include "stream/OPCNode.h"

#include <filesystem>

namespace {

class Editing : public EngineTest {
protected:
    int load(int version, int count, const std::string& name = "cloud") {
        return loadPointCloudFile(dir.writeWide(name, makeEditCloud(version, count, 1)).c_str());
    }
    static OPCInterface& node(size_t i, int cloud = 0) {
        return *findCloud(cloud)->getOPC().getNode(static_cast<int>(i));
    }
    static void select(std::vector<bool> bits, size_t i = 0, int cloud = 0) {
        node(i, cloud).setSelectionBits(std::move(bits));
        node(i, cloud).resetSelectionColours();
    }
};

// What the file and the engine ought to hold, kept the slow way.
struct Model {
    int version = 17;
    std::vector<StoredNode> nodes;
    std::vector<std::vector<bool>> bits{7};

    // Calls use(point) for the selected ones of the current points.
    template <typename Use>
    void forSelected(size_t n, Use use) {
        size_t current = 0;
        for (size_t i = 0; i < nodes[n].points.size(); ++i) {
            if (version == 18 ? nodes[n].isMarked(i) : i >= static_cast<size_t>(nodes[n].record.pointCount)) continue;
            if (current < bits[n].size() && bits[n][current]) use(nodes[n].points[i]);
            ++current;
        }
    }
    void deleteSelected(size_t n) {
        auto& [record, points] = nodes[n];
        std::vector<Bytes> kept = points, doomed;
        int16_t deleted = 0;
        forSelected(n, [&](Bytes& point) {
            if (version == 18) {
                point[point.size() - 3] |= 1;
            } else {
                doomed.push_back(point);
                kept[static_cast<size_t>(&point - points.data())].clear();
            }
            ++deleted;
        });
        if (version != 18) {
            std::erase(kept, Bytes{});
            kept.insert(kept.begin() + record.pointCount - deleted, doomed.begin(), doomed.end());
            points = kept;
        }
        record.pointCount = static_cast<int16_t>(record.pointCount - deleted);
        bits[n].clear();
    }
    void classify(size_t n, int value) {
        forSelected(n, [&](Bytes& point) {
            unsigned char& last = point.back();
            last = static_cast<unsigned char>(version == 18 ? (last & 15) | value << 4 : value);
        });
    }
    void restoreAll() {
        for (size_t n = 0; n < nodes.size(); ++n) {
            if (nodes[n].record.pointCount == nodes[n].record.originalPointCount) continue;
            nodes[n].record.pointCount = nodes[n].record.originalPointCount;
            for (Bytes& point : nodes[n].points) point[point.size() - 3] &= version == 18 ? 254 : 255;
        }
    }
};

} // namespace

// Hundreds of random actions; after each one the file and the selection are those of the model, byte for byte.
TEST_F(Editing, EveryActionEqualsAModelOfTheFile) {
    for (const int version : {17, 18}) {
        Random random(static_cast<unsigned>(version));
        const int id = load(version, 50);
        Model model{version, storedNodes(dir.read("cloud"))};
        for (int step = 0; step < 400; ++step) {
            const int action = upTo(random, 3);
            for (size_t n = 0; n < 7 && action == 0; ++n) {
                if (upTo(random, 2) == 0) continue;
                std::vector<bool> bits(static_cast<size_t>(upTo(random, 60)));
                for (size_t i = 0; i < bits.size(); ++i) bits[i] = upTo(random, 2) == 0;
                model.bits[n] = bits;
                select(bits, n);
            }
            const auto forTouched = [&](auto use) {
                for (size_t n = 0; n < 7; ++n) {
                    if (!model.bits[n].empty()) use(n);
                }
            };
            if (action == 1) {
                forTouched([&](size_t n) { model.deleteSelected(n); });
                deleteSelectedPoints();
            } else if (action == 2) {
                model.restoreAll();
                restorePointCloud(id);
            } else if (action == 3) {
                forTouched([&](size_t n) { model.classify(n, step & 15); });
                setLasValueOnSelectedPoints(512 + (step & 15));
            }
            const std::vector<StoredNode> stored = storedNodes(dir.read("cloud"));
            for (size_t n = 0; n < 7; ++n) {
                ASSERT_EQ(model.nodes[n].points, stored[n].points) << "step " << step << ", action " << action;
                ASSERT_EQ(model.nodes[n].record.pointCount, stored[n].record.pointCount) << step << ", " << action;
                ASSERT_EQ(stored[n].record.pointCount, node(n).getPointCount());
                ASSERT_EQ(model.bits[n], node(n).getSelectionBits()) << step << ", " << action;
            }
        }
        closePointCloud(id);
        EXPECT_FALSE(std::filesystem::exists(dir.path("cloud.journal")));
    }
}

TEST_F(Editing, TakesPartAsEachExportSays) {
    const std::vector<bool> one{true};
    for (int i = 0; i < 5; ++i) load(17, 3, "cloud" + std::to_string(std::min(i, 3))); // the last one twice: read-only
    for (int i = 0; i < 5; ++i) select(one, 0, i);
    setEnabled(1, false);
    setMask(2, true);
    setProtection(3, 1, 0);
    setLasValueOnSelectedPoints(300);
    const auto firstClass = [this](int i) {
        return storedNodes(dir.read("cloud" + std::to_string(i)))[0].points[0].back();
    };
    const Bytes before = storedNodes(makeEditCloud(17, 3, 1))[0].points[0];
    EXPECT_EQ(44, firstClass(0));
    EXPECT_EQ(before.back(), firstClass(1));
    EXPECT_EQ(before.back(), firstClass(2));
    EXPECT_EQ(44, firstClass(3));
    deleteSelectedPoints();
    for (const auto& [cloud, count] : {std::pair(0, 20), {1, 21}, {2, 21}, {3, 20}, {4, 21}}) {
        EXPECT_EQ(count, getPointCount(cloud)) << cloud;
    }
    EXPECT_EQ(one, node(0, 4).getSelectionBits());
    setEnabled(0, false);
    for (int i = 0; i < 6; ++i) restorePointCloud(i);
    EXPECT_EQ(21, getPointCount(0));
}

// A class on the screen changes when its node decodes, which a selection does.
TEST_F(Editing, ResidentVerticesFollowSelectionsAndThenClasses) {
    const int id = load(17, 2);
    static_cast<OPCNode&>(node(0)).setVisible(0);
    std::queue<OPCInterface*> children;
    node(0).cache(0, &children);
    diskPool().WaitAll();
    GPUBatch& batch = *node(0).getGPUBatch(0);
    batch.changed = false;
    select({true});
    setLasValueOnSelectedPoints(7);
    EXPECT_TRUE(batch.changed);
    EXPECT_EQ(1, batch.data[17]);
    EXPECT_NE(7, batch.data[16]);
    select({false, true});
    EXPECT_EQ(0, batch.data[17]);
    EXPECT_EQ(1, batch.data[37]);
    EXPECT_EQ(7, batch.data[16]);
    deleteSelectedPoints();
    EXPECT_FALSE(batch.isResident());
    EXPECT_EQ(13, getPointCount(id));
}

// Marks and counts stay together where the points can't be read, or lie where the tree is.
TEST_F(Editing, LeavesNodesThatCantBeReadOrWritten) {
    for (const int64_t location : {int64_t{1} << 20, int64_t{100}}) {
        for (const int version : {17, 18}) {
            PointFileMaker maker(version);
            maker.add({.pointCount = 1, .location = location, .diskSize = 8, .originalCount = 2});
            const Bytes before = maker.make() + Bytes(200, 1);
            const int id = loadPointCloudFile(dir.writeWide("cloud", before).c_str());
            select({true});
            setLasValueOnSelectedPoints(3);
            deleteSelectedPoints();
            if (version == 18) restorePointCloud(id); // in version 17 the count alone
            EXPECT_EQ(before, dir.read("cloud")) << location << ", " << version;
            closePointCloud(id);
        }
    }
}
