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
        (void)node(i, cloud).historySnapshot();
        node(i, cloud).setSelectionBits(std::move(bits));
        node(i, cloud).resetSelectionColours();
    }
    // Records what `action` does.
    template <typename Action>
    bool record(int type, Action action, int64_t freeBytes = int64_t{1} << 40) const {
        startHistoryRecording(dir.widePath("history").c_str(), type);
        dwFreeBytes = freeBytes;
        action();
        return stopHistoryRecording();
    }
    [[nodiscard]] std::vector<std::filesystem::path> backups() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path(""))) {
            if (entry.path().filename().string().starts_with("history\\undo_")) found.push_back(entry.path());
        }
        return found;
    }
    static void undoAndWait() {
        undo();
        nimbrelWaitForHistory();
    }
};

// What the file and the engine ought to hold, kept the slow way.
struct Model {
    struct Entry {
        int type;
        std::vector<std::pair<size_t, std::pair<StoredNode, std::vector<bool>>>> nodes;
    };

    int version = 17;
    std::vector<StoredNode> nodes;
    std::vector<std::vector<bool>> bits{7};
    std::vector<Entry> undoList{}, redoList{};
    Entry* recording = nullptr;

    void snapshot(size_t n) {
        if (recording) recording->nodes.emplace_back(n, std::pair(nodes[n], bits[n]));
    }
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
            snapshot(n);
            nodes[n].record.pointCount = nodes[n].record.originalPointCount;
            for (Bytes& point : nodes[n].points) point[point.size() - 3] &= version == 18 ? 254 : 255;
        }
    }
    void exchange(std::vector<Entry>& from, std::vector<Entry>& to) {
        if (from.empty()) return;
        Entry opposite{from.back().type, {}};
        for (const auto& [n, before] : from.back().nodes) {
            opposite.nodes.emplace_back(n, std::pair(nodes[n], bits[n]));
            if (opposite.type == 0) bits[n] = before.second;
            if (opposite.type == 1) nodes[n].record.pointCount = before.first.record.pointCount;
            if (opposite.type == 2 || (opposite.type == 1 && version == 18)) nodes[n].points = before.first.points;
        }
        from.pop_back();
        to.push_back(opposite);
    }
};

} // namespace

// Hundreds of random actions, most of them recorded, undone and redone in the order of their making; after each one the
// file and the selection are those of the model, byte for byte.
TEST_F(Editing, EveryActionEqualsAModelOfTheFile) {
    for (const int version : {17, 18}) {
        Random random(static_cast<unsigned>(version));
        const int id = load(version, 50);
        Model model{version, storedNodes(dir.read("cloud"))};
        for (int step = 0; step < 400; ++step) {
            const int action = upTo(random, 7);
            const int type = action == 0 ? 0 : action == 3 ? 2 : 1;
            const bool isRecorded = action < 4 && upTo(random, 4) > 0;
            Model::Entry entry{type, {}};
            if (action < 4 && (!isRecorded || !model.redoList.empty())) {
                clearHistory();
                model.redoList.clear();
                model.undoList.clear();
            }
            if (isRecorded) {
                startHistoryRecording(dir.widePath("history").c_str(), type);
                dwFreeBytes = int64_t{1} << 40;
                model.recording = &entry;
            }
            for (size_t n = 0; n < 7 && action == 0; ++n) {
                if (upTo(random, 2) == 0) continue;
                std::vector<bool> bits(static_cast<size_t>(upTo(random, 60)));
                for (size_t i = 0; i < bits.size(); ++i) bits[i] = upTo(random, 2) == 0;
                model.snapshot(n);
                model.bits[n] = bits;
                select(bits, n);
            }
            const auto forTouched = [&](auto use) {
                for (size_t n = 0; n < 7; ++n) {
                    if (!model.bits[n].empty()) model.snapshot(n), use(n);
                }
            };
            if (action == 1) {
                const auto isSelection = [](const Model::Entry& e) { return e.type == 0; };
                std::erase_if(model.undoList, isSelection);
                std::erase_if(model.redoList, isSelection);
                forTouched([&](size_t n) { model.deleteSelected(n); });
                deleteSelectedPoints();
            } else if (action == 2) {
                model.restoreAll();
                restorePointCloud(id);
            } else if (action == 3) {
                forTouched([&](size_t n) { model.classify(n, step & 15); });
                setLasValueOnSelectedPoints(512 + (step & 15));
            } else if (action > 3) {
                for (int k = upTo(random, 2); k >= 0; --k) {
                    (action & 1) != 0 ? undo() : redo();
                    (action & 1) != 0 ? model.exchange(model.undoList, model.redoList)
                                      : model.exchange(model.redoList, model.undoList);
                }
                nimbrelWaitForHistory();
            }
            if (isRecorded) {
                model.recording = nullptr;
                ASSERT_EQ(!entry.nodes.empty(), stopHistoryRecording());
                if (!entry.nodes.empty()) model.undoList.push_back(entry);
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

TEST_F(Editing, SnapshotsOnceAndOnlyWithRoomForTheBytes) {
    load(17, 10);
    std::filesystem::create_directory(dir.path("history"));
    const auto classifyTwice = [] {
        select(std::vector<bool>(10, true));
        setLasValueOnSelectedPoints(1);
        setLasValueOnSelectedPoints(2);
    };
    const Bytes original = dir.read("cloud");
    EXPECT_FALSE(record(2, [] {}));
    EXPECT_FALSE(record(2, [] { setLasValueOnSelectedPoints(1); }));
    select(std::vector<bool>(10, true));
    EXPECT_FALSE(record(
        2, [] { setLasValueOnSelectedPoints(1); }, int64_t{1} << 30));
    EXPECT_EQ(original, dir.read("cloud"));
    EXPECT_EQ(3U, backups().size()); // empty ones stay
    for (const auto& path : backups()) std::filesystem::remove(path);

    EXPECT_TRUE(record(2, classifyTwice, (int64_t{1} << 30) + 1));
    EXPECT_EQ((int64_t{1} << 30) + 1 - 140, dwFreeBytes);
    EXPECT_EQ((std::pair<size_t, size_t>(1, 0)), historyTracker.depths());
    const Bytes edited = dir.read("cloud");
    undo(); // asked for at once, and still done in this order
    redo();
    undo();
    nimbrelWaitForHistory();
    EXPECT_EQ(original, dir.read("cloud"));
    redo();
    nimbrelWaitForHistory();
    EXPECT_EQ(edited, dir.read("cloud"));
    ASSERT_EQ(1U, backups().size());
    EXPECT_EQ(140U, std::filesystem::file_size(backups()[0]));

    // A folder that does not exist has no room, wherever the backup file would lie.
    startHistoryRecording(dir.widePath("absent").c_str(), 2);
    setLasValueOnSelectedPoints(3);
    EXPECT_FALSE(stopHistoryRecording());
    EXPECT_EQ(edited, dir.read("cloud"));
}

// What can't be put back whole is left as it is.
TEST_F(Editing, UndoingWithoutASoundBackupLeavesTheBytes) {
    const std::pair<const char*, void (*)(const std::filesystem::path&)> cases[] = {
        {"gone", [](const auto& path) { std::filesystem::remove(path); }},
        {"short", [](const auto& path) { std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1); }},
        {"of other points",
         [](const auto& path) {
             const auto size = std::filesystem::file_size(path);
             std::filesystem::resize_file(path, 0);
             std::filesystem::resize_file(path, size);
         }},
        {"deleted from since", [](const auto&) { deleteSelectedPoints(); }}};
    for (const int version : {17, 18}) {
        for (const auto& [name, spoil] : cases) {
            const int id = load(version, 10);
            select({true, true});
            record(2, [] { setLasValueOnSelectedPoints(9); });
            ASSERT_EQ(1U, backups().size());
            spoil(backups()[0]);
            const Bytes spoilt = dir.read("cloud");
            undoAndWait();
            const bool isMarked =
                version == 18 && std::string(name) == "deleted from since"; // marks stay, bytes return
            EXPECT_EQ(!isMarked, spoilt == dir.read("cloud")) << name << version;
            closePointCloud(id);
            clearHistory();
            for (const auto& path : backups()) std::filesystem::remove(path);
        }
    }
}

TEST_F(Editing, HistoryOfAClosedCloudIsGone) {
    load(17, 3, "first");
    load(17, 3, "second");
    const auto deleteInBoth = [] {
        for (const int cloud : {0, 1}) select({true}, 0, cloud);
        deleteSelectedPoints();
    };
    record(1, deleteInBoth);
    record(1, [] { select({true}, 0, 1), deleteSelectedPoints(); });
    startHistoryRecording(dir.widePath("history").c_str(), 0);
    deleteInBoth();
    closePointCloud(1);
    loadPointCloudFile(dir.widePath("second").c_str());
    EXPECT_TRUE(stopHistoryRecording());
    EXPECT_EQ((std::pair<size_t, size_t>(2, 0)), historyTracker.depths());
    for (int i = 0; i < 3; ++i) undoAndWait();
    EXPECT_EQ(21, getPointCount(0));
    EXPECT_EQ(18, getPointCount(1));
    historyTracker.removeTypeFromHistory(0);
    EXPECT_EQ((std::pair<size_t, size_t>(0, 1)), historyTracker.depths());
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

// Painting is a change of points like any other: whole nodes and single points, undone byte for byte, deleted points
// untouched.
TEST_F(Editing, PaintIsUndoneByteForByte) {
    std::filesystem::create_directory(dir.path("history"));
    for (const int version : {17, 18}) {
        const int id = load(version, 200);
        select({true, true, true});
        deleteSelectedPoints();
        const Bytes original = dir.read("cloud");
        const unsigned char rgb[3] = {255, 128, 0};
        for (const double reach : {1.0, 100.0}) {
            const double sphere[4] = {0, 0, 0, reach};
            EXPECT_TRUE(record(2, [&] {
                activateColourProcess(rgb, 100, 100);
                selectPointsByVolume(sphere, 4, false, false);
            }));
        }
        const Bytes painted = dir.read("cloud");
        EXPECT_NE(original, painted);
        undo();
        undoAndWait();
        EXPECT_EQ(original, dir.read("cloud"));
        redo();
        redo();
        nimbrelWaitForHistory();
        EXPECT_EQ(painted, dir.read("cloud"));
        closePointCloud(id);
    }
}

// Marks and counts stay together where the points can't be read, lie where the tree is, or are too short for points.
TEST_F(Editing, LeavesNodesThatCantBeReadOrWritten) {
    const std::tuple<int, int64_t, int> cases[] = {{17, 1 << 20, 14}, {17, 100, 14}, {18, 1 << 20, 14},
                                                   {18, 100, 14},     {17, -1, 0},   {17, -1, 4}};
    for (const auto& [version, location, stride] : cases) {
        PointFileMaker maker(version);
        maker.add({.pointCount = 1, .location = location, .stride = stride, .diskSize = 8, .originalCount = 2});
        const Bytes before = maker.make() + Bytes(200, 1);
        const int id = loadPointCloudFile(dir.writeWide("cloud", before).c_str());
        select({true});
        setLasValueOnSelectedPoints(3);
        deleteSelectedPoints();
        EXPECT_EQ(std::vector<bool>{true}, node(0).getSelectionBits());
        if (version == 18) restorePointCloud(id); // in version 17 the count alone
        EXPECT_EQ(before, dir.read("cloud")) << version << ", " << location << ", " << stride;
        closePointCloud(id);
    }
}
