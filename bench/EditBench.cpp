// Edits of half of a cloud of 20 million points, in points a second of the whole cloud, with the journal that keeps the
// file whole. The file lies in the temporary folder and its pages are in memory: the disk is not measured. Run it under
// "taskset -c 0" for one core.

#include "engine/EngineState.h"
#include "engine/PointCloud.h"
#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointRecord.h"
#include "format/PointStream.h"
#include "nimbrel/NimbrelEngine.h"
#include "stream/NodeWalk.h"
#include "stream/OPC.h"
#include "support/TempDir.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

namespace {

constexpr int NODES = 2047;
constexpr int POINTS = 9771; // a node
constexpr double TOTAL = double{NODES} * POINTS;

// Appends the records of a full tree, in pre-order, and returns how many there are.
int addRecords(std::vector<unsigned char>& tree, NodeRecord record, int version, int levels, int index, int64_t bytes) {
    record.bitMask = static_cast<uint8_t>(NodeRecord::SPLIT_X | (levels > 1 ? 3 : 0));
    const auto recordSize = static_cast<size_t>(NodeRecord::sizeFor(version));
    record.pointDataByteLocation = OPCHeader::Layout::SIZE + NODES * static_cast<int64_t>(recordSize) + index * bytes;
    tree.resize(tree.size() + recordSize);
    record.encode(std::span(tree).last(recordSize), version);
    int next = index + 1;
    for (int child = 0; child < 2 && levels > 1; ++child)
        next = addRecords(tree, record, version, levels - 1, next, bytes);
    return next;
}

std::vector<unsigned char> randomPoints(int version) {
    std::mt19937 random(1);
    std::vector<unsigned char> points;
    for (int i = 0; i < POINTS; ++i) {
        if (version == OPCHeader::VERSION_STREAM) {
            unsigned char delta[PointStream::LARGEST_DELTA_BYTES];
            points.insert(points.end(), delta, PointStream::putDelta(delta, 1 + random() % 100000));
            for (int k = 0; k < 3; ++k)
                points.push_back(static_cast<unsigned char>(k == 0 ? random() & 254 : random()));
        } else {
            for (int k = 0; k < 14; ++k) points.push_back(static_cast<unsigned char>(random()));
        }
    }
    return points;
}

void makeCloud(const std::string& path, int version) {
    OPCHeader header;
    header.version = version;
    header.nodeCount = NODES;
    header.pointCount = int64_t{NODES} * POINTS;
    header.boundingBox = {0, 0, 0, 1000, 1000, 1000};
    std::vector<unsigned char> front(OPCHeader::Layout::SIZE);
    header.getHeaderData(reinterpret_cast<char*>(front.data()));
    const std::vector<unsigned char> points = randomPoints(version);
    NodeRecord record;
    record.bytesPerVertex = 14;
    record.pointCount = record.originalPointCount = POINTS;
    record.diskSize = static_cast<uint32_t>(points.size());
    record.filterScaled = 10;
    addRecords(front, record, version, 11, 0, std::ssize(points));
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(front.data()), std::ssize(front));
    for (int i = 0; i < NODES; ++i) out.write(reinterpret_cast<const char*>(points.data()), std::ssize(points));
    if (!out.flush()) std::abort();
}

class EditBench : public benchmark::Fixture {
public:
    void SetUp(benchmark::State& state) override {
        version = static_cast<int>(state.range(0));
        initEngine("key");
        makeCloud(dir.path("cloud"), version);
        id = loadPointCloudFile(dir.widePath("cloud").c_str());
        if (id != 0) std::abort();
        std::vector<bool> bits(POINTS);
        std::mt19937 random(2);
        for (size_t i = 0; i < bits.size(); ++i) bits[i] = (random() & 1) != 0;
        half = bits;
    }
    void TearDown(benchmark::State& state) override {
        closePointCloud(id);
        clearHistory();
        state.counters["points/s"] = benchmark::Counter(TOTAL, benchmark::Counter::kIsIterationInvariantRate);
    }

protected:
    void selectHalf() {
        walkNodes(*pointClouds[0]->getOPC().getRootNode(), [this](OPCInterface& node) {
            node.setSelectionBits(half);
            return true;
        });
    }
    static void expect(bool isDone) {
        if (!isDone) std::abort();
    }

    TempDir dir;
    std::vector<bool> half;
    int version = 0;
    int id = -1;
};

} // namespace

BENCHMARK_DEFINE_F(EditBench, deleteHalf)(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        restorePointCloud(id);
        selectHalf();
        state.ResumeTiming();
        deleteSelectedPoints();
    }
    expect(getPointCount(id) < static_cast<int64_t>(0.6 * TOTAL));
}

BENCHMARK_DEFINE_F(EditBench, restore)(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        selectHalf();
        deleteSelectedPoints();
        state.ResumeTiming();
        restorePointCloud(id);
    }
    expect(getPointCount(id) == static_cast<int64_t>(TOTAL));
}

// Painting all points, and undoing that. Needs some 1.5 GB of room in the temporary folder.
BENCHMARK_DEFINE_F(EditBench, paintAll)(benchmark::State& state) {
    const unsigned char rgb[3] = {255, 0, 0};
    const double everywhere[4] = {0, 0, 0, 1e9};
    for (auto _ : state) {
        activateColourProcess(rgb, 100, 50);
        selectPointsByVolume(everywhere, 4, false, false);
    }
}

BENCHMARK_DEFINE_F(EditBench, undoPaint)(benchmark::State& state) {
    const unsigned char rgb[3] = {255, 0, 0};
    const double everywhere[4] = {0, 0, 0, 1e9};
    startHistoryRecording(dir.widePath("").c_str(), 2);
    activateColourProcess(rgb, 100, 50);
    selectPointsByVolume(everywhere, 4, false, false);
    expect(stopHistoryRecording());
    bool isDone = true;
    for (auto _ : state) {
        isDone ? undo() : redo();
        nimbrelWaitForHistory();
        isDone = !isDone;
    }
}

BENCHMARK_REGISTER_F(EditBench, deleteHalf)->Arg(17)->Arg(18)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(EditBench, restore)->Arg(17)->Arg(18)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(EditBench, paintAll)->Arg(17)->Arg(18)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_REGISTER_F(EditBench, undoPaint)->Arg(17)->Arg(18)->UseRealTime()->Unit(benchmark::kMillisecond);
