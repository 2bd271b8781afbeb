// Builds of voxel models of the made-up town: points a second in each stage, bytes a leaf, and memory a leaf.
//
//   VoxelTreeBench FOLDER [POINTS] [VOXEL_SIZE]

#include "build/OPCCreator.h"
#include "format/OPCHeader.h"
#include "format/VoxelRecord.h"
#include "ground/Log.h"
#include "ground/Pools.h"
#include "sample/SampleScene.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>

namespace {

double secondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The most memory that the process ever had, in MiB.
double peakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: VoxelTreeBench FOLDER [POINTS] [VOXEL_SIZE]\n");
        return 2;
    }
    const auto path = std::filesystem::path(argv[1]) / "VoxelTreeBench.ovm";
    const size_t total = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000000;
    const float size = argc > 3 ? std::strtof(argv[3], nullptr) : 0.1F;
    constexpr size_t BATCH = 1000000;
    const SampleScene scene(total, 1);
    PointBatch batch;
    batch.resize(std::min(BATCH, total));
    scene.fill(batch, 0, batch.size());
    const double memoryBefore = peakMemory();

    OPCCreator creator;
    creator.createOPC(toWide(path.string()), scene.bounds(), static_cast<int64_t>(total), 2, size);
    double adding = 0;
    for (size_t first = 0; first < total; first += BATCH) {
        const size_t count = std::min(BATCH, total - first);
        scene.fill(batch, first, count);
        const auto begin = std::chrono::steady_clock::now();
        if (!creator.addPoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(count))) return 1;
        adding += secondsSince(begin);
    }
    const auto begin = std::chrono::steady_clock::now();
    creator.indexOPC(0, 0.0001, 0, 1);
    const double compiling = secondsSince(begin);

    const BuildReport report = creator.report();
    const auto points = static_cast<double>(total);
    const auto bytes = static_cast<int64_t>(std::filesystem::file_size(path));
    const auto leaves =
        static_cast<double>((bytes - OPCHeader::Layout::SIZE - VoxelTree::bytesFor(report.nodes)) / VoxelColour::SIZE);
    std::printf("%zu points, voxels of %g, %d cores\n", total, static_cast<double>(size), maxCores());
    std::printf("adding     %6.3f s %6.2f M points/s\n", adding, points / adding * 1e-6);
    std::printf("compiling  %6.3f s %6.2f M points/s\n", compiling, points / compiling * 1e-6);
    std::printf("whole      %6.3f s %6.2f M points/s\n", adding + compiling, points / (adding + compiling) * 1e-6);
    std::printf("%d nodes, %.0f leaves, %.2f bytes a leaf, %.0f bytes of memory a leaf at most\n", report.nodes, leaves,
                static_cast<double>(bytes) / leaves, (peakMemory() - memoryBefore) * 1048576.0 / leaves);
    std::filesystem::remove(path);
    return report.state == BuildReport::FINISHED ? 0 : 1;
}
