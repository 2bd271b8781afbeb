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
    // All points, or with `hides` all but each fourth class.
    static void paintRed(bool hides, bool deselects) {
        std::array<unsigned char, 1024> classes{};
        for (size_t i = 3; hides && i < classes.size(); i += 16) classes[i] = 1;
        setLasClassifications(classes.data());
        const unsigned char red[3] = {200, 0, 0};
        const double everywhere[4] = {0, 0, 0, 1e6};
        activateColourProcess(red, 100, 100);
        selectPointsByVolume(everywhere, 4, deselects, false);
        setLasClassifications(std::array<unsigned char, 1024>{}.data());
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
    // Calls use(point, i) for each of the current points.
    template <typename Use>
    void forCurrent(size_t n, Use use) {
        size_t current = 0;
        for (size_t i = 0; i < nodes[n].points.size(); ++i) {
            if (version == 18 ? nodes[n].isMarked(i) : i >= static_cast<size_t>(nodes[n].record.pointCount)) continue;
            use(nodes[n].points[i], current++);
        }
    }
    template <typename Use>
    void forSelected(size_t n, Use use) {
        forCurrent(n, [&](Bytes& point, size_t i) {
            if (i < bits[n].size() && bits[n][i]) use(point);
        });
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
    // Red, 200 of 255; but not the points of each fourth class if these are hidden.
    void paint(size_t n, bool hides) {
        forCurrent(n, [&](Bytes& point, size_t) {
            const auto rgb = point.end() - (version == 18 ? 3 : 5);
            if (hides && (version == 18 ? point.back() >> 4 : point.back()) % 4 == 0) return;
            if (version == 18) {
                rgb[0] = 0;
                rgb[1] = static_cast<unsigned char>((rgb[1] & 128) | 200 / 8 << 2);
            } else {
                rgb[0] = 200, rgb[1] = rgb[2] = 0;
            }
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
            const int action = upTo(random, 8);
            const int type = action == 0 ? 0 : action >= 3 ? 2 : 1;
            const bool isRecorded = action < 5 && upTo(random, 4) > 0;
            Model::Entry entry{type, {}};
            if (action < 5 && (!isRecorded || !model.redoList.empty())) {
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
            } else if (action == 4) {
                const bool hides = upTo(random, 1) == 0;
                const bool deselects = upTo(random, 2) == 0;
                for (size_t n = 0; n < 7; ++n) {
                    if (deselects && !hides) continue;
                    model.snapshot(n), model.paint(n, hides);
                    if (hides) model.bits[n].resize(static_cast<size_t>(model.nodes[n].record.pointCount));
                }
                // Whole nodes are unmarked, whatever is armed.
                if (deselects && !hides) forTouched([&](size_t n) { model.bits[n].clear(); });
                paintRed(hides, deselects);
            } else if (action > 4) {
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
    for (int i = 0; i < 2; ++i) { // the second time there is no point left to delete
        select({true});
        deleteSelectedPoints();
        EXPECT_EQ(12, getPointCount(id));
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
