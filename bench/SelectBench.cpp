// Selecting and painting about half of the made-up town, in points of the whole cloud a second, by each shape and with
// filters that look at every point. Under `taskset -c 0` all of it runs on one core.
//
//   SelectBench FOLDER [POINTS] [0|1]      0: version 17, 1: version 18

#include "build/OPCCreator.h"
#include "edit/PolygonSelection.h"
#include "edit/SelectionFilters.h"
#include "format/FileMemoryMap.h"
#include "ground/Log.h"
#include "ground/Pools.h"
#include "sample/SampleScene.h"
#include "stream/OPC.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <glm/geometric.hpp>
#include <glm/gtc/matrix_transform.hpp>

namespace {

bool build(const std::wstring& path, size_t total, int type) {
    constexpr size_t BATCH = 1000000;
    OPCCreator creator;
    const SampleScene scene(total, 1);
    PointBatch batch;
    batch.resize(std::min(BATCH, total));
    creator.createOPC(path, scene.bounds(), static_cast<int64_t>(total), type);
    for (size_t first = 0; first < total; first += BATCH) {
        const size_t count = std::min(BATCH, total - first);
        scene.fill(batch, first, count);
        if (!creator.addPoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(count))) return false;
    }
    creator.indexOPC(0, 0.0001, 0, 1);
    return creator.report().state == BuildReport::FINISHED;
}

// The best of three runs, after one that brings the file into memory.
void measure(const char* name, OPCInterface& root, const std::function<void()>& operation) {
    double best = 1e9;
    for (int run = 0; run < 4; ++run) {
        root.clearSelectedPoints();
        const auto begin = std::chrono::steady_clock::now();
        operation();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        if (run > 0) best = std::min(best, seconds);
    }
    int64_t selected = 0;
    long long total = 0;
    root.getSelectedPointsCount(&selected);
    root.getTotalPointCount(&total);
    std::printf("%-28s %7.3f s %8.2f M points/s  %5.1f %% selected\n", name, best,
                static_cast<double>(total) / best * 1e-6,
                100.0 * static_cast<double>(selected) / static_cast<double>(total));
}

// Straight from above, a lasso of `count` corners around the middle.
PolygonSelection lasso(const glm::dvec3& low, const glm::dvec3& high, size_t count) {
    const glm::dvec3 middle = (low + high) * 0.5;
    const double half = (high.x - low.x) * 0.5;
    const glm::dmat4 matrix = glm::ortho(-half, half, -half, half, 0.0, 10000.0) *
                              glm::lookAt(middle + glm::dvec3(0, 0, 5000), middle, {0, 1, 0});
    const int viewport[] = {0, 0, 1000, 1000};
    std::vector<int> corners;
    for (size_t i = 0; i < count; ++i) {
        const double angle = static_cast<double>(i) * 6.2832 / static_cast<double>(count);
        const double radius = 350.0 + 20.0 * std::sin(9.0 * angle);
        corners.push_back(static_cast<int>(500.0 + radius * std::cos(angle)));
        corners.push_back(static_cast<int>(500.0 + radius * std::sin(angle)));
    }
    return {matrix, viewport, corners};
}

void measureAll(OPCInterface& root) {
    const double* box = root.getBoundingBox();
    const glm::dvec3 low(box[0], box[1], box[2]);
    const glm::dvec3 high(box[3], box[4], box[5]);
    const glm::dvec3 middle = (low + high) * 0.5;
    const double reach = 0.42 * (high.y - low.y);
    const glm::dvec3 axis = glm::normalize(glm::dvec3(1, 0.3, 0));
    const glm::dvec3 across(-axis.y, axis.x, 0);
    const glm::dvec3 up(0, 0, 1);
    const std::array<glm::dvec3, 12> half{axis,    middle,
                                          -axis,   middle - axis * 1e6,
                                          across,  middle + across * 1e6,
                                          -across, middle - across * 1e6,
                                          up,      middle + up * 1e6,
                                          -up,     middle - up * 1e6};
    const SelectionFilters none;
    SelectionFilters matching;
    const unsigned char target[5] = {128, 128, 128, 128, 0};
    matching.match.setActive(true, false, target, 20.0F, 0.0F);
    SelectionFilters painting;
    painting.painter.setColour(target, 50, 40);
    painting.painter.setActive(true);
    const PolygonSelection few = lasso(low, high, 8);
    const PolygonSelection many = lasso(low, high, 400);
    const auto sphere = [&](const SelectionFilters& filters) {
        root.selectPointsBySphere(middle, reach, false, filters);
    };
    measure("sphere", root, [&] { sphere(none); });
    measure("box", root, [&] { root.selectPointsByCube(half, false, false, none); });
    measure("polygon of 8 corners", root, [&] { root.selectPointsByPolygon(few, false, false, none); });
    measure("polygon of 400 corners", root, [&] { root.selectPointsByPolygon(many, false, false, none); });
    measure("sphere, points that match", root, [&] { sphere(matching); });
    measure("all points that match", root, [&] { root.selectPointsBySphere(middle, 1e9, false, matching); });
    measure("everything", root, [&] { root.selectAllPoints(); });
    measure("sphere of paint", root, [&] { sphere(painting); });
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: SelectBench FOLDER [POINTS] [0|1]\n");
        return 2;
    }
    const auto path = std::filesystem::path(argv[1]) / "SelectBench.opc";
    const size_t total = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 20000000;
    const int type = argc > 3 ? std::atoi(argv[3]) : 0;
    int status = 1;
    if (build(toWide(path.string()), total, type)) {
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(toWide(path.string()), true, 0);
        OPC opc(file);
        if (opc.isLoaded()) {
            std::printf("version %d, %d workers\n", type == 1 ? 18 : 17, maxCores());
            measureAll(*opc.getRootNode());
            status = 0;
        }
    }
    std::filesystem::remove(path);
    return status;
}
