// Exporting the made-up town as a model: binning its points, then each form of model, beside what the machine needs to
// write as many bytes to a file.
//
//   VoxelBench FOLDER [POINTS] [SIZE...]      SIZE: sides of a cell, 0.5 and 0.25 unless told

#include "build/OPCCreator.h"
#include "format/FileMemoryMap.h"
#include "ground/Log.h"
#include "ground/Pools.h"
#include "sample/SampleScene.h"
#include "stream/OPC.h"
#include "voxel/VoxelExport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Memory of the process that is not backed by a file, in MiB.
double anonymousMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) return std::atof(line.c_str() + 8) / 1024.0;
    }
    return 0;
}

bool buildTown(const std::filesystem::path& path, size_t total) {
    constexpr size_t BATCH = 1000000;
    OPCCreator creator;
    const SampleScene scene(total, 1);
    PointBatch batch;
    batch.resize(std::min(BATCH, total));
    creator.createOPC(toWide(path.string()), scene.bounds(), static_cast<int64_t>(total), 0);
    for (size_t first = 0; first < total; first += BATCH) {
        const size_t count = std::min(BATCH, total - first);
        scene.fill(batch, first, count);
        if (!creator.addPoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(count))) return false;
    }
    creator.indexOPC(0, 0.0001, 0, 1);
    return creator.report().state == BuildReport::FINISHED;
}

// Bytes that a file takes on the disk: a schematic is mostly holes.
double bytesOnDisk(const std::filesystem::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return 0;
    constexpr double BLOCK = 512;
    return static_cast<double>(status.st_blocks) * BLOCK;
}

// Seconds to write so many bytes to a new file.
double floorFor(const std::filesystem::path& path, double bytes) {
    const std::vector<char> block(size_t{1} << 18, 1);
    const auto begin = Clock::now();
    {
        ExportFile file(path.string());
        for (double done = 0; done < bytes; done += static_cast<double>(block.size())) {
            file.write({block.data(), block.size()});
        }
    }
    const double seconds = secondsSince(begin);
    std::filesystem::remove(path);
    return seconds;
}

void measure(OPC& opc, const std::filesystem::path& folder, double size) {
    const int nodes = 1; // for the progress, at which nobody looks
    for (const auto& [format, ending] : {std::pair(0, "obj"), std::pair(1, "schematic"), std::pair(2, "stl")}) {
        const std::filesystem::path path = folder / (std::string("VoxelBench.") + ending);
        double extracting = 0;
        double writing = 0;
        const double before = anonymousMemory();
        double memory = 0;
        {
            VoxelExport model(format, path.string());
            auto begin = Clock::now();
            model.extract(*opc.getRootNode(), nodes, size, 1.0);
            extracting = secondsSince(begin);
            memory = anonymousMemory() - before;
            begin = Clock::now();
            model.write(false);
            writing = secondsSince(begin);
        }
        const VoxelReport report = VoxelExport::report();
        const auto cells = static_cast<double>(report.cells);
        const auto cubes = static_cast<double>(report.cubes);
        if (format == 0) {
            std::printf("cells of %g: %lld occupied, %lld solid, %lld x %lld x %lld\n", size,
                        static_cast<long long>(report.cells), static_cast<long long>(report.cubes),
                        static_cast<long long>(report.size[0]), static_cast<long long>(report.size[1]),
                        static_cast<long long>(report.size[2]));
        }
        const double bytes = bytesOnDisk(path);
        const double plain = floorFor(folder / "VoxelBench.floor", bytes);
        std::printf("  extract %6.3f s  %6.1f M points/s  %5.2f M cells/s  %.0f MiB\n", extracting,
                    static_cast<double>(report.points) / extracting * 1e-6, cells / extracting * 1e-6, memory);
        std::printf("  %-9s %6.3f s  %6.2f M cubes/s  %.0f MB (%.0f MB on disk), plain write %.3f s\n", ending, writing,
                    cubes / writing * 1e-6, static_cast<double>(std::filesystem::file_size(path)) * 1e-6, bytes * 1e-6,
                    plain);
        std::filesystem::remove(path);
    }
    for (const char* companion : {"VoxelBench.mtl", "VoxelBench.png"}) std::filesystem::remove(folder / companion);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: VoxelBench FOLDER [POINTS] [SIZE...]\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const size_t total = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 20000000;
    const auto path = folder / "VoxelBench.opc";
    if (!buildTown(path, total)) return 1;
    {
        const auto file = std::make_shared<FileMemoryMap>();
        file->openFile(toWide(path.string()), false, 0);
        OPC opc(file);
        if (!opc.isLoaded()) return 1;
        std::printf("%zu points, %d cores\n", total, maxCores());
        std::vector<double> sizes;
        for (int i = 3; i < argc; ++i) sizes.push_back(std::atof(argv[i]));
        if (sizes.empty()) sizes = {0.5, 0.25};
        for (const double size : sizes) measure(opc, folder, size);
    }
    std::filesystem::remove(path);
    return 0;
}
