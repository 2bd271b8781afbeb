// Whole builds of the made-up town in stages: adding, compiling, size and memory, beside what the machine needs to copy
// and to write the same bytes.
//
//   BuildBench FOLDER [POINTS] [0|1]      0: version 17, 1: version 18

#include "build/OPCCreator.h"
#include "format/PointRecord.h"
#include "ground/Log.h"
#include "ground/Pools.h"
#include "sample/SampleScene.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Memory of the process that is not backed by a file, in MiB.
double anonymousMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) return std::atof(line.c_str() + 8) / 1024.0;
    }
    return 0;
}

// Looks at the memory every few milliseconds while it exists.
class MemoryPeak {
public:
    MemoryPeak() : atStart(anonymousMemory()), watcher([this] { watch(); }) {}
    ~MemoryPeak() { stop(); }
    double stop() {
        stopping = true;
        if (watcher.joinable()) watcher.join();
        return peak - atStart;
    }

private:
    void watch() {
        while (!stopping) {
            peak = std::max(peak, anonymousMemory());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    double atStart;
    double peak = 0;
    std::atomic<bool> stopping{false};
    std::thread watcher;
};

// Seconds to copy, and to write to a file of the folder, as many bytes as the raw points have.
void printFloors(const std::filesystem::path& folder, size_t bytes) {
    std::vector<char> from(size_t{64} << 20, 1);
    std::vector<char> to(from.size());
    auto begin = Clock::now();
    for (size_t done = 0; done < bytes; done += from.size()) std::memcpy(to.data(), from.data(), from.size());
    const double copying = secondsSince(begin);
    const auto path = folder / "BuildBench.floor";
    begin = Clock::now();
    {
        std::ofstream file(path, std::ios::binary);
        for (size_t done = 0; done < bytes; done += from.size()) {
            file.write(from.data(), static_cast<std::streamsize>(std::min(from.size(), bytes - done)));
        }
    }
    const double writing = secondsSince(begin);
    std::filesystem::remove(path);
    std::printf("floors for %.0f MB: copy %.3f s, sequential write %.3f s\n", static_cast<double>(bytes) * 1e-6,
                copying, writing);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: BuildBench FOLDER [POINTS] [0|1]\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const size_t total = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1000000;
    const int type = argc > 3 ? std::atoi(argv[3]) : 0;
    constexpr size_t BATCH = 1000000;

    printFloors(folder, total * FloatRecord::SIZE);
    const auto path = folder / "BuildBench.opc";
    OPCCreator creator;
    const SampleScene scene(total, 1);
    PointBatch batch;
    batch.resize(std::min(BATCH, total));
    MemoryPeak memory;
    creator.createOPC(toWide(path.string()), scene.bounds(), static_cast<int64_t>(total), type);
    double adding = 0, addingProcessor = 0;
    for (size_t first = 0; first < total; first += BATCH) {
        const size_t count = std::min(BATCH, total - first);
        scene.fill(batch, first, count);
        const double processorBefore = processorSeconds();
        const auto begin = Clock::now();
        if (!creator.addPoints(batch.positions.data(), batch.attributes.data(), static_cast<int>(count))) return 1;
        adding += secondsSince(begin);
        addingProcessor += processorSeconds() - processorBefore;
    }
    const double processorBefore = processorSeconds();
    const auto begin = Clock::now();
    creator.indexOPC(0, 0.0001, 0, 1);
    const double compiling = secondsSince(begin);
    const double compilingProcessor = processorSeconds() - processorBefore;

    const BuildReport report = creator.report();
    const auto points = static_cast<double>(total);
    std::printf("version %d, %zu points, %d cores\n", type == 1 ? 18 : 17, total, maxCores());
    std::printf("adding     %6.3f s %6.2f M points/s  %.3f processor us a point\n", adding, points / adding * 1e-6,
                addingProcessor / points * 1e6);
    std::printf("compiling  %6.3f s %6.2f M points/s  %.3f processor us a point\n", compiling,
                points / compiling * 1e-6, compilingProcessor / points * 1e6);
    std::printf("whole      %6.3f s %6.2f M points/s  %.3f processor us a point\n", adding + compiling,
                points / (adding + compiling) * 1e-6, (addingProcessor + compilingProcessor) / points * 1e6);
    std::printf("%lld of %zu points in %d nodes, %.2f bytes a point, %.0f MiB of memory\n",
                static_cast<long long>(report.written), total, report.nodes,
                static_cast<double>(std::filesystem::file_size(path)) / static_cast<double>(report.written),
                memory.stop());
    std::filesystem::remove(path);
    return report.state == BuildReport::FINISHED ? 0 : 1;
}
