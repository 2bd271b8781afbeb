// Opening a tree of a million nodes, and loading the nodes of a file to vertices. The files are made anew in the
// temporary folder, and their pages are still in memory when a round begins: the disk is not measured.

#include "format/FileMemoryMap.h"
#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "format/PointRecord.h"
#include "format/PointStream.h"
#include "ground/Log.h"
#include "stream/OPC.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <random>
#include <unistd.h>

namespace {

constexpr int NODES = 1000000;
constexpr int LOADED_NODES = 256;
constexpr int POINTS = 16384; // in each of them

// A point file that goes with the object.
class BenchFile {
public:
    explicit BenchFile(const std::vector<unsigned char>& bytes) {
        std::string name = (std::filesystem::temp_directory_path() / "nimbrelBench-XXXXXX").string();
        const int handle = ::mkstemp(name.data());
        if (handle == -1) std::abort();
        ::close(handle);
        path = name;
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out) std::abort();
    }
    ~BenchFile() { std::filesystem::remove(path); }
    BenchFile(const BenchFile&) = delete;
    BenchFile& operator=(const BenchFile&) = delete;

    [[nodiscard]] std::unique_ptr<OPC> open() const {
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(toWide(path.string()), false, 0);
        return std::make_unique<OPC>(file);
    }

private:
    std::filesystem::path path;
};

std::vector<unsigned char> headerFor(int version, int nodes) {
    OPCHeader header;
    header.version = version;
    header.nodeCount = nodes;
    header.pointCount = 1;
    header.boundingBox = {0, 0, 0, 1000, 1000, 100};
    std::vector<unsigned char> bytes(OPCHeader::Layout::SIZE);
    header.getHeaderData(reinterpret_cast<char*>(bytes.data()));
    return bytes;
}

void append(std::vector<unsigned char>& bytes, const NodeRecord& record, int version) {
    const size_t at = bytes.size();
    bytes.resize(at + static_cast<size_t>(NodeRecord::sizeFor(version)));
    record.encode(std::span(bytes).subspan(at), version);
}

// Records of a tree in pre-order that halves its nodes over the two children, as a balanced build does.
void appendTree(std::vector<unsigned char>& bytes, int nodes) {
    std::vector<int> waiting{nodes};
    while (!waiting.empty()) {
        const int below = waiting.back() - 1;
        waiting.pop_back();
        NodeRecord record;
        record.bitMask = NodeRecord::SPLIT_X;
        if (below > 1) {
            record.bitMask |= NodeRecord::SECOND_CHILD;
            waiting.push_back(below / 2);
        }
        if (below > 0) {
            record.bitMask |= NodeRecord::FIRST_CHILD;
            waiting.push_back(below > 1 ? below - below / 2 : 1);
        }
        append(bytes, record, 17);
    }
}

// What the process holds of the heap.
size_t heapBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

void openMillionNodes(benchmark::State& state, bool chain) {
    std::vector<unsigned char> bytes = headerFor(17, NODES);
    if (chain) {
        NodeRecord record;
        record.bitMask = NodeRecord::SPLIT_X | NodeRecord::FIRST_CHILD;
        for (int i = 0; i < NODES - 1; ++i) append(bytes, record, 17);
        append(bytes, NodeRecord{}, 17);
    } else {
        appendTree(bytes, NODES);
    }
    const BenchFile file(bytes);
    size_t memory = 0;
    for (auto _ : state) {
        const size_t before = heapBytes();
        std::unique_ptr<OPC> opc = file.open();
        if (!opc->isLoaded() || !opc->getNode(NODES - 1)) state.SkipWithError("the tree does not open");
        memory = heapBytes() - before;
        state.PauseTiming();
        opc.reset();
        state.ResumeTiming();
    }
    state.counters["bytes/node"] = static_cast<double>(memory) / NODES;
}
BENCHMARK_CAPTURE(openMillionNodes, balanced, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openMillionNodes, chain, true)->Unit(benchmark::kMillisecond);

// Nodes side by side in one chain; what their points are makes no difference to the work.
std::vector<unsigned char> fileOfNodes(int version) {
    std::mt19937 random(1);
    std::vector<unsigned char> bytes = headerFor(version, LOADED_NODES);
    std::vector<unsigned char> points;
    for (int i = 0; i < LOADED_NODES; ++i) {
        NodeRecord record;
        record.bitMask = NodeRecord::SPLIT_X | (i + 1 < LOADED_NODES ? NodeRecord::FIRST_CHILD : 0);
        record.bytesPerVertex = 14;
        record.pointCount = POINTS;
        record.filterScaled = 10;
        const auto before = static_cast<int64_t>(points.size());
        record.pointDataByteLocation = OPCHeader::Layout::SIZE + LOADED_NODES * NodeRecord::sizeFor(version) + before;
        for (int p = 0; p < POINTS; ++p) {
            unsigned char point[PointStream::LARGEST_POINT_BYTES];
            unsigned char* end = point;
            if (NodeRecord::isStream(version)) {
                end = PointStream::putDelta(point, 1 + random() % 100000000) + PointStream::PACKED_BYTES;
                PointStream::store(end - PointStream::PACKED_BYTES, static_cast<uint32_t>(random()) & 0xFFFFFE);
                points.insert(points.end(), point, end);
            } else {
                for (int k = 0; k < 14; ++k) points.push_back(static_cast<unsigned char>(random()));
            }
        }
        record.diskSize = static_cast<uint32_t>(static_cast<int64_t>(points.size()) - before);
        append(bytes, record, version);
    }
    bytes.insert(bytes.end(), points.begin(), points.end());
    return bytes;
}

void loadNodes(benchmark::State& state, int version) {
    const BenchFile file(fileOfNodes(version));
    const std::unique_ptr<OPC> opc = file.open();
    if (!opc->isLoaded()) return state.SkipWithError("the file does not open");
    std::vector<unsigned char> vertices(static_cast<size_t>(POINTS) * Vertex::SIZE);
    int next = 0;
    for (auto _ : state) {
        if (!opc->getNode(next)->loadPointDataToGPUFormat(vertices)) state.SkipWithError("a node can't be read");
        benchmark::DoNotOptimize(vertices.data());
        next = (next + 1) % LOADED_NODES;
    }
    state.SetItemsProcessed(state.iterations() * POINTS);
}
BENCHMARK_CAPTURE(loadNodes, version17, 17);
BENCHMARK_CAPTURE(loadNodes, version18, 18);

} // namespace

// The engine's diagnostics would stand between the results, which therefore go to standard error.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_None);
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
