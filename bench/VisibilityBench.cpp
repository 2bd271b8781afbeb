// The visibility pass, in nodes a second, over a full tree of 131,071 nodes.

#include "format/FileMemoryMap.h"
#include "stream/OPC.h"
#include "stream/OPCInterface.h"
#include "stream/ViewCriteria.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int LEVELS = 17;
constexpr int NODES = (1 << LEVELS) - 1;

// Splits on X, Y and Z by turns.
void addNodes(PointFileMaker& maker, int level, const Bytes& point) {
    constexpr uint8_t AXES[] = {4, 8, 0};
    const uint8_t children = level + 1 < LEVELS ? 3 : 0;
    maker.add({.mask = static_cast<uint8_t>(AXES[level % 3] | children), .pointCount = 1, .stored = point});
    for (int child = 0; child < 2 && children != 0; ++child) addNodes(maker, level + 1, point);
}

const OPC& tree() {
    static const TempDir dir;
    static const OPC opc = [] {
        PointFileMaker maker(17);
        maker.box = {0, 0, 0, 1000, 1000, 1000};
        addNodes(maker, 0, fixedPoint(0, 0, 0, 1));
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(dir.writeWide("tree", maker.make()), false, 0);
        return OPC(file);
    }();
    return opc;
}

// Everything is inside the planes, apart from what lies beyond `limit` on X.
ViewCriteria seeUpTo(double limit) {
    ViewCriteria view;
    for (size_t plane = 0; plane < 6; ++plane) view.planes[4 * plane + 3] = 1.0;
    view.planes[0] = -1.0;
    view.planes[3] = limit;
    view.viewHeight = 1000;
    view.lodFactor = 1e6; // size hides nothing
    view.fov = 0.5F;
    return view;
}

} // namespace

static void sameCameraAgain(benchmark::State& state) {
    OPCInterface& root = *tree().getNode(0);
    const ViewCriteria view = seeUpTo(1e6);
    for (auto _ : state) root.checkVisibility(view, true);
    state.SetItemsProcessed(state.iterations() * NODES);
    root.clearWindowVisibility();
}
BENCHMARK(sameCameraAgain)->Unit(benchmark::kMillisecond);

// Half of the tree leaves the view and comes back, which also withdraws its load jobs.
static void halfOfTheTreeComesAndGoes(benchmark::State& state) {
    OPCInterface& root = *tree().getNode(0);
    const ViewCriteria all = seeUpTo(1e6);
    const ViewCriteria half = seeUpTo(400);
    for (auto _ : state) {
        root.checkVisibility(all, true);
        root.checkVisibility(half, true);
    }
    state.SetItemsProcessed(state.iterations() * 2 * NODES);
    root.clearWindowVisibility();
}
BENCHMARK(halfOfTheTreeComesAndGoes)->Unit(benchmark::kMillisecond);
