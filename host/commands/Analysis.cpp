#include "commands/Analysis.h"

#include "meshes/Placement.h"
#include "readers/PointReader.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/Text.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <condition_variable>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

static std::optional<Placement> findPlacement(const std::string& text) {
    if (const auto placement = Placement::parse(text)) return placement;
    constexpr size_t LARGEST_TEXT = 4096;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(text, ignored)) return std::nullopt;
    std::ifstream file(text, std::ios::binary);
    std::string content(LARGEST_TEXT + 1, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<size_t>(file.gcount()));
    return content.size() > LARGEST_TEXT ? std::nullopt : Placement::parse(content);
}

void requirePoints(const OpenCloud& cloud, const std::string& file) {
    if (cloud.facts().isVoxel()) throw CommandFailure(file, "a voxel model has no points to compare");
}

CLI::Validator placementText() {
    return CLI::Validator(
        [](const std::string& text) {
            if (findPlacement(text)) return std::string();
            return fmt::format("'{}' is neither 16 numbers, row by row with 0 0 0 1 at the end, nor three, nor a file "
                               "that holds them",
                               text);
        },
        "");
}

std::vector<double> parsePlacement(const std::string& text) {
    const auto columns = findPlacement(text).value_or(Placement{}).columns;
    return {columns.begin(), columns.end()};
}

std::vector<double> noPlacement() {
    return parsePlacement("");
}

// Coordinates of a country's grid are too large for what the reader keeps of them; people need to know.
static void noteCoarseness(const std::string& path, const TriangleMesh& mesh, Console& console) {
    constexpr double FINE_ENOUGH = 0.001;
    if (mesh.coordinateStep <= FINE_ENOUGH) return;
    console.error(fmt::format("{}: warning: its largest coordinates are read in steps of {:.3g} units; a mesh near the "
                              "origin, put into place with a shift, keeps what it has",
                              path, mesh.coordinateStep));
}

TriangleMesh loadMesh(const std::string& path, const std::string& placement, Console& console) {
    try {
        Progress progress(console, "Reading", 0);
        const auto goOn = [&progress] {
            progress.update(0);
            return !isInterrupted();
        };
        TriangleMesh mesh = readMesh(path, goOn);
        noteCoarseness(path, mesh, console);
        if (mesh.unusable + mesh.other > 0) {
            console.note(fmt::format("{}: left out {} triangles without an area and {} points and lines", path,
                                     grouped(mesh.unusable), grouped(mesh.other)));
        }
        findPlacement(placement).value_or(Placement{}).apply(mesh.corners);
        return mesh;
    } catch (const FileError& error) {
        checkInterrupt();
        throw CommandFailure(path, error.what());
    }
}

int countOf(const TriangleMesh& mesh) {
    return static_cast<int>(mesh.size());
}

void runAnalysis(const std::string& stage, Console& console, const std::function<void()>& call) {
    std::mutex mutex; // guards isDone
    std::condition_variable ended;
    bool isDone = false;
    {
        const std::jthread caller([&] {
            call();
            std::lock_guard lock(mutex);
            isDone = true;
            ended.notify_one();
        });
        Progress progress(console, stage, 0);
        std::unique_lock lock(mutex);
        while (!ended.wait_for(lock, std::chrono::milliseconds(50), [&isDone] { return isDone; })) {
            lock.unlock();
            if (isInterrupted()) nimbrelAbortAnalysis();
            progress.update(0, nimbrelGetAnalysisProgress());
            lock.lock();
        }
    }
    checkInterrupt();
}

void warnOfLastError(const std::string& file, Console& console) {
    const std::string reason = nimbrelLastError();
    if (!reason.empty()) console.error(fmt::format("{}: warning: {}", file, reason));
}
