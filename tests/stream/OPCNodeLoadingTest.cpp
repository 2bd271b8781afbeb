#include "format/PointRecord.h"
#include "stream/LoadNotification.h"
#include "stream/StreamTest.h"
#include "support/BlockedPool.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <tuple>

namespace {

using Notice = std::tuple<bool, uint64_t, bool, int, double>; // loaded, node, has vertices, points, least x

std::mutex noticesMutex; // guards notices
std::vector<Notice> notices;

void note(bool loaded, uint64_t node, unsigned char* vertices, int points, double minX, double, double) {
    std::lock_guard lock(noticesMutex);
    notices.emplace_back(loaded, node, vertices != nullptr, points, minX);
}

// The small cloud at first: a root with two points over two children of one.
class NodeLoading : public StreamTest {
protected:
    NodeLoading() {
        registerLoadNotification(note);
        registerLoadNotification(nullptr); // ignored
        openAnew(smallCloud());
    }
    void openAnew(const PointFileMaker& maker) {
        open(maker);
        notices.clear();
    }
    void show(int window) {
        for (int i = 0; opc->getNode(i); ++i) node(i).setVisible(window);
    }
};

} // namespace

TEST_F(NodeLoading, LoadsVisibleNodesOnceAndUnloadsThem) {
    show(0);
    load(0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(resident(i));
        EXPECT_TRUE(node(i).getGPUBatch(0)->loaded);
        EXPECT_TRUE(node(i).getGPUBatch(0)->changed);
    }
    EXPECT_EQ(40, node(0).getGPUBatch(0)->size);
    request(0); // resident: nothing to ask for
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

TEST_F(NodeLoading, StopsAtANodeThatTheWindowDoesNotSee) {
    node(1).setVisible(0);
    node(0).setVisible(1);
    request(0);
    EXPECT_EQ(0, diskPool().outstandingJobs());
}

TEST_F(NodeLoading, KeepsOneRequestOfAWindowUntilItIsGoneAndLoadsOnceForTwo) {
    BlockedPool blocked(diskPool());
    show(0);
    node(1).setVisible(1);
    request(0);
    request(0); // replaces, does not double
    EXPECT_EQ(4, diskPool().outstandingJobs());
    node(0).unregisterWindow(0);
    EXPECT_EQ(1, diskPool().outstandingJobs());
    EXPECT_TRUE(node(1).isVisible(1));
    node(0).setVisible(0);
    node(0).setVisible(1);
    request(0);
    request(1);
    EXPECT_EQ(4, diskPool().outstandingJobs()) << "the root for both, and a child";
    blocked.finish();
    EXPECT_EQ(2U, notices.size());
    EXPECT_FALSE(resident(2));
}

TEST_F(NodeLoading, LoadsNothingForANodeThatWasUnloadedMeanwhile) {
    BlockedPool blocked(diskPool());
    show(0);
    request(0);
    node(0).unload(true); // leaves the requests
    EXPECT_EQ(4, diskPool().outstandingJobs());
    blocked.finish();
    EXPECT_FALSE(resident(0));
    EXPECT_TRUE(notices.empty());
}

TEST_F(NodeLoading, UnregisteringTheLastWindowUnloads) {
    show(0);
    node(1).setVisible(7);
    load(0);
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
    openAnew(maker);
    show(0);
    load(0);
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
        openAnew(maker);
        show(0);
        for (int camera = 0; camera < 2; ++camera) {
            BlockedPool blocked(diskPool());
            request(0);
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
    load(0);
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

// For ThreadSanitizer: cameras, unloading, queries and an uploading thread at the same nodes.
TEST_F(NodeLoading, SurvivesEverythingAtOnce) {
    constexpr int ROUNDS = 200;
    std::thread camera([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            show(i % 8);
            request(i % 8);
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
        if (batch->changed.exchange(false)) {
            EXPECT_EQ(10 * (i % 3) + (i % 3 ? 20 : 10), batch->data[12]);
        }
    }
    camera.join();
    closing.join();
    query.join();
    diskPool().WaitAll();
    node(0).unload(true);
    int balance = 0;
    for (const Notice& notice : notices) balance += std::get<0>(notice) ? 1 : -1;
    EXPECT_EQ(0, balance);
}
