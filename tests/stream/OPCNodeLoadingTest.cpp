#include "format/FileMemoryMap.h"
#include "format/PointRecord.h"
#include "ground/Pools.h"
#include "stream/GPUBatch.h"
#include "stream/LoadNotification.h"
#include "stream/OPC.h"
#include "stream/OPCNode.h"
#include "support/BlockedPool.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

namespace {

struct Notice {
    bool loaded;
    uint64_t node;
    bool hasVertices;
    int points;
    double minX;
    bool operator==(const Notice&) const = default;
};

std::mutex noticesMutex; // guards notices
std::vector<Notice> notices;

void note(bool loaded, uint64_t node, unsigned char* vertices, int points, double minX, double, double) {
    std::lock_guard lock(noticesMutex);
    notices.push_back({loaded, node, vertices != nullptr, points, minX});
}

// A root with two points over two children, and a node without points under the second.
class NodeLoading : public testing::Test {
protected:
    NodeLoading() { open(smallCloud()); }
    ~NodeLoading() override { diskPool().WaitAll(); }

    void open(const PointFileMaker& maker) {
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(dir.writeWide("cloud", maker.make()), false, 0);
        opc = std::make_unique<OPC>(file);
        ASSERT_TRUE(opc->isLoaded());
        registerLoadNotification(note);
        registerLoadNotification(nullptr); // ignored
        notices.clear();
    }
    OPCNode& node(int i) { return static_cast<OPCNode&>(*opc->getNode(i)); }
    void show(int window) {
        for (int i = 0; opc->getNode(i); ++i) node(i).setVisible(window);
    }
    // The load pass of a camera.
    void cacheAll(int window) {
        std::queue<OPCInterface*> queue;
        for (queue.push(opc->getNode(0)); !queue.empty(); queue.pop()) queue.front()->cache(window, &queue);
    }
    bool resident(int i) { return node(i).getGPUBatch(0)->isResident(); }

    const TempDir dir;
    std::unique_ptr<OPC> opc;
};

} // namespace

TEST_F(NodeLoading, LoadsVisibleNodesOnceAndUnloadsThem) {
    show(0);
    cacheAll(0);
    diskPool().WaitAll();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(resident(i));
        EXPECT_TRUE(node(i).getGPUBatch(0)->loaded);
        EXPECT_TRUE(node(i).getGPUBatch(0)->changed);
    }
    EXPECT_EQ(40, node(0).getGPUBatch(0)->size);
    cacheAll(0); // resident: nothing to ask for
    EXPECT_EQ(0, diskPool().outstandingJobs());
    ASSERT_EQ(3U, notices.size());
    EXPECT_NE(notices.end(), std::find(notices.begin(), notices.end(), Notice{true, 2, true, 1, 4.0}));

    notices.clear();
    node(0).unload(false);
    EXPECT_FALSE(resident(0));
    EXPECT_TRUE(resident(1));
    EXPECT_FALSE(node(0).isVisibleAnyWindows());
    node(0).unload(true);
    EXPECT_EQ((std::vector<Notice>{{false, 0, false, 2, 0.0}, {false, 1, false, 1, 0.0}, {false, 2, false, 1, 4.0}}),
              notices);
    EXPECT_FALSE(node(2).getGPUBatch(0)->loaded);
    EXPECT_FALSE(node(2).getGPUBatch(0)->changed);
}

TEST_F(NodeLoading, DecodesToVertices) {
    show(0);
    cacheAll(0);
    diskPool().WaitAll();
    Bytes expected;
    for (const float ordinate : {10000 * 0.0001F, 20000 * 0.0001F, 5000 * 0.0001F}) {
        uint32_t bits;
        std::memcpy(&bits, &ordinate, sizeof(bits));
        putLittle(expected, bits, 4);
    }
    expected = expected + Bytes{10, 11, 12, 13, 14, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(expected.data(), node(0).getGPUBatch(0)->data.get(), expected.size()));
}

TEST_F(NodeLoading, StopsAtANodeThatTheWindowDoesNotSee) {
    node(1).setVisible(0);
    cacheAll(0);
    EXPECT_EQ(0, diskPool().outstandingJobs());
    node(0).setVisible(1);
    cacheAll(0);
    EXPECT_EQ(0, diskPool().outstandingJobs());
    node(0).setVisible(8); // has no bit
    EXPECT_EQ(0, node(0).isVisible(8));
}

TEST_F(NodeLoading, WithdrawsRequestsOfAWindowThatIsGone) {
    BlockedPool blocked(diskPool());
    show(0);
    node(1).setVisible(1);
    cacheAll(0);
    cacheAll(0); // replaces, does not double
    EXPECT_EQ(4, diskPool().outstandingJobs());
    node(0).unregisterWindow(0);
    EXPECT_EQ(1, diskPool().outstandingJobs());
    blocked.finish();
    EXPECT_FALSE(resident(0));
    EXPECT_TRUE(notices.empty());
    EXPECT_TRUE(node(1).isVisible(1));
}

TEST_F(NodeLoading, LoadsNothingForANodeThatWasUnloadedMeanwhile) {
    BlockedPool blocked(diskPool());
    show(0);
    cacheAll(0);
    node(0).unload(true); // leaves the requests
    EXPECT_EQ(4, diskPool().outstandingJobs());
    blocked.finish();
    EXPECT_FALSE(resident(0));
    EXPECT_TRUE(notices.empty());
}

TEST_F(NodeLoading, LoadsOnceForTwoWindows) {
    BlockedPool blocked(diskPool());
    node(0).setVisible(0);
    node(0).setVisible(1);
    cacheAll(0);
    cacheAll(1);
    EXPECT_EQ(3, diskPool().outstandingJobs());
    blocked.finish();
    EXPECT_EQ((std::vector<Notice>{{true, 0, true, 2, 0.0}}), notices);
}

TEST_F(NodeLoading, UnregisteringTheLastWindowUnloads) {
    show(0);
    node(1).setVisible(7);
    cacheAll(0);
    diskPool().WaitAll();
    node(0).unregisterWindow(3); // saw nothing
    EXPECT_TRUE(resident(0));
    node(0).unregisterWindow(0);
    EXPECT_FALSE(resident(0));
    EXPECT_TRUE(resident(1));
    EXPECT_FALSE(resident(2));
    node(0).unregisterWindow(7);
    EXPECT_FALSE(resident(1));
}

TEST_F(NodeLoading, NodeWithoutPointsIsResidentAndNotified) {
    PointFileMaker maker(18);
    maker.add({});
    open(maker);
    show(0);
    cacheAll(0);
    diskPool().WaitAll();
    EXPECT_TRUE(resident(0));
    EXPECT_EQ(0, node(0).getGPUBatch(0)->size);
    node(0).unload(true);
    EXPECT_EQ((std::vector<Notice>{{true, 0, true, 0, 0.0}, {false, 0, false, 0, 0.0}}), notices);
}

TEST_F(NodeLoading, FailedReadLeavesTheNodeAbsentUntilTheNextCamera) {
    const std::tuple<const char*, int, PointFileMaker::Node> cases[] = {
        {"beyond the file", 17, {.pointCount = 2, .location = 1000000}},
        {"partly outside", 17, {.pointCount = 2, .stored = Bytes(27)}},
        {"negative place", 17, {.pointCount = 2, .stored = Bytes(28), .location = -2}},
        {"stride without attributes", 17, {.pointCount = 2, .stored = Bytes(28), .stride = 4}},
        {"stream of 4 GiB", 18, {.pointCount = 2, .stored = Bytes(28), .diskSize = 0xFFFFFFFF}},
        {"stream partly outside", 18, {.pointCount = 2, .stored = Bytes(28), .diskSize = 29}},
    };
    for (const auto& [name, version, damaged] : cases) {
        PointFileMaker maker(version);
        maker.add(damaged);
        open(maker);
        show(0);
        for (int camera = 0; camera < 2; ++camera) {
            BlockedPool blocked(diskPool());
            cacheAll(0);
            EXPECT_EQ(2, diskPool().outstandingJobs()) << name;
            blocked.finish();
            EXPECT_FALSE(resident(0)) << name;
        }
        EXPECT_TRUE(notices.empty()) << name;
        Bytes vertices(2 * Vertex::SIZE, 0xEE);
        EXPECT_FALSE(node(0).loadPointDataToGPUFormat(vertices)) << name;
        EXPECT_EQ(Bytes(2 * Vertex::SIZE, 0), vertices) << name;
        diskPool().WaitAll();
    }
}

TEST_F(NodeLoading, CopiesResidentVerticesAndShowsTheSelection) {
    node(0).setVisible(0);
    cacheAll(0);
    diskPool().WaitAll();
    node(0).getGPUBatch(0)->data[12] = 77;               // what a read of the file would not give
    node(0).setSelectionBits({false, true, true, true}); // longer than the points
    Bytes vertices(3 * Vertex::SIZE, 0xEE);
    EXPECT_TRUE(node(0).loadPointDataToGPUFormat(vertices));
    EXPECT_EQ(77, vertices[12]);
    EXPECT_EQ(0, vertices[17]);
    EXPECT_EQ(1, vertices[20 + 17]);
    char selected[3] = {9, 9, 9};
    EXPECT_EQ(1, node(0).getSelections(selected));
    EXPECT_EQ(9, selected[0]);
    EXPECT_EQ(1, selected[1]);
    EXPECT_EQ(9, selected[2]);
}

TEST_F(NodeLoading, NodeOfItsOwnHasNoData) {
    OPCNode single;
    Bytes buffer{1};
    EXPECT_FALSE(single.loadPointData(buffer));
    EXPECT_EQ(1U, buffer.size());
    EXPECT_FALSE(single.savePointData(buffer));
    EXPECT_FALSE(single.readNodeStructure());
    EXPECT_FALSE(single.writeNodeStructure());
    EXPECT_EQ(17, single.getBytesPerVertex());
    EXPECT_EQ(0U, single.getDiskSize());
    EXPECT_EQ(&diskPool(), &single.getDiskThreadPool());
    EXPECT_EQ(&processingPool(), &single.getProcessingThreadPool());
}

// For ThreadSanitizer: cameras, unloading, queries and an uploading thread at the same nodes.
TEST_F(NodeLoading, SurvivesEverythingAtOnce) {
    constexpr int ROUNDS = 200;
    std::atomic<int> uploads{0};
    std::thread camera([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            show(i % 8);
            cacheAll(i % 8);
        }
    });
    std::thread closing([&] {
        for (int i = 0; i < ROUNDS; ++i) i % 3 == 0 ? node(0).unload(true) : node(0).unregisterWindow(i % 8);
    });
    std::thread query([&] {
        double xyz[6];
        char colour[10];
        for (int i = 0; i < ROUNDS; ++i) {
            opc->getPoints(xyz, colour, 0);
            EXPECT_EQ(double{10000 * 0.0001F}, xyz[0]);
        }
    });
    for (int i = 0; i < ROUNDS; ++i) {
        GPUBatch* batch = node(i % 3).getGPUBatch(0);
        std::lock_guard lock(batch->mutex);
        if (batch->changed.exchange(false)) uploads += batch->data[12] == 10 * (i % 3) + (i % 3 ? 20 : 10);
    }
    camera.join();
    closing.join();
    query.join();
    diskPool().WaitAll();
    node(0).unload(true);
    int balance = 0;
    for (const Notice& notice : notices) balance += notice.loaded ? 1 : -1;
    EXPECT_EQ(0, balance);
}
