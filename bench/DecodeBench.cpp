// Decoding a node's stored bytes to vertices, in points a second, beside the copy of the same vertices.

#include "format/OPCNodeParser.h"
#include "format/PointRecord.h"
#include "format/PointStream.h"
#include "format/VertexDecoder.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

namespace {

constexpr int POINTS = 16384;
constexpr double FILTER = 0.0001;

// A node of a surface scan: 10 m wide and 1 m high, points in random order.
std::vector<unsigned char> fixedNode(int stride) {
    std::mt19937 random(1);
    std::vector<unsigned char> bytes(static_cast<size_t>(POINTS) * static_cast<size_t>(stride));
    const int ordinateBytes = FixedRecord::ordinateBytesFor(stride);
    for (int i = 0; i < POINTS; ++i) {
        unsigned char* record = bytes.data() + static_cast<ptrdiff_t>(i) * stride;
        for (int axis = 0; axis < 3; ++axis) {
            putBigEndian(record + axis * ordinateBytes, static_cast<uint32_t>(random() % (axis == 2 ? 10000 : 65536)),
                         ordinateBytes);
        }
        for (int k = 0; k < ATTRIBUTE_BYTES; ++k) {
            record[3 * ordinateBytes + k] = static_cast<unsigned char>(random());
        }
    }
    return bytes;
}

std::vector<unsigned char> streamNode() {
    std::mt19937 random(1);
    std::vector<uint64_t> codes(POINTS);
    for (uint64_t& code : codes) code = PointStream::morton(random() % 100000, random() % 100000, random() % 10000);
    std::sort(codes.begin(), codes.end());
    std::vector<unsigned char> bytes(codes.size() * PointStream::LARGEST_POINT_BYTES);
    unsigned char* out = bytes.data();
    uint64_t previous = 0;
    for (const uint64_t code : codes) {
        out = PointStream::putDelta(out, code - previous);
        PointStream::store(out, static_cast<uint32_t>(random()) & 0xFFFFFE);
        out += PointStream::PACKED_BYTES;
        previous = code;
    }
    bytes.resize(static_cast<size_t>(out - bytes.data()));
    return bytes;
}

void count(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * POINTS);
}

void decodeFixed(benchmark::State& state) {
    const int stride = static_cast<int>(state.range(0));
    const auto node = fixedNode(stride);
    std::vector<unsigned char> vertices(static_cast<size_t>(POINTS) * Vertex::SIZE);
    for (auto _ : state) {
        decodeFixedVertices(node, stride, POINTS, vertices.data());
        benchmark::DoNotOptimize(vertices.data());
    }
    count(state);
}
BENCHMARK(decodeFixed)->Arg(11)->Arg(14)->Arg(17);

void decodeStream(benchmark::State& state) {
    const auto node = streamNode();
    std::vector<unsigned char> vertices(static_cast<size_t>(POINTS) * Vertex::SIZE);
    for (auto _ : state) {
        decodeStreamVertices(node, FILTER, POINTS, vertices.data());
        benchmark::DoNotOptimize(vertices.data());
    }
    count(state);
}
BENCHMARK(decodeStream);

void parsePointByPoint(benchmark::State& state, int version) {
    auto node = version == 18 ? streamNode() : fixedNode(14);
    for (auto _ : state) {
        OPCNodeParser parser(node, FILTER, 14, version);
        for (int i = 0; i < POINTS; ++i) benchmark::DoNotOptimize(parser.getPoint(i, true));
    }
    count(state);
}
BENCHMARK_CAPTURE(parsePointByPoint, version17, 17);
BENCHMARK_CAPTURE(parsePointByPoint, version18, 18);

// The floor: vertices copied in memory.
void copyVertices(benchmark::State& state) {
    const std::vector<unsigned char> from(static_cast<size_t>(POINTS) * Vertex::SIZE, 1);
    std::vector<unsigned char> to(from.size());
    for (auto _ : state) {
        std::copy(from.begin(), from.end(), to.begin());
        benchmark::DoNotOptimize(to.data());
    }
    count(state);
}
BENCHMARK(copyVertices);

} // namespace
