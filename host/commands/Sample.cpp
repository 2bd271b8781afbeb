#include "commands/Commands.h"
#include "sample/SampleScene.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputPath.h"
#include "support/Progress.h"
#include "support/Text.h"
#include "writers/PointWriter.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <filesystem>
#include <fmt/format.h>
#include <memory>

static constexpr size_t BATCH_POINTS = 100000;
static constexpr uint64_t MOST_POINTS = 100000000000; // 3.6 terabytes of LAS

namespace {
struct SampleOptions {
    std::string output;
    uint64_t points = 1000000;
    uint64_t seed = 1;
    bool force = false;
};
} // namespace

static void writeScene(const SampleOptions& options, Host& host) {
    const SampleScene scene(options.points, options.seed);
    const auto writer = createPoints(options.output, scene.bounds());
    Progress progress(host.console, "Writing", scene.size());
    PointBatch batch;
    for (uint64_t first = 0; first < scene.size(); first += batch.size()) {
        checkInterrupt();
        scene.fill(batch, first, BATCH_POINTS);
        writer->write(batch);
        progress.update(first);
    }
    writer->finish();
    progress.finish(scene.size());
}

static void runSample(const SampleOptions& options, Host& host) {
    checkOutput(options.output, {}, options.force);
    try {
        writeScene(options, host);
    } catch (const FileError& error) {
        throw CommandFailure(options.output, error.what());
    }
    if (host.console.isQuiet()) return;
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(options.output, error);
    host.output.print(
        fmt::format("{}: {}, {}\n", options.output, counted(options.points, "point"), byteSize(error ? 0 : size)));
}

void addSampleCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<SampleOptions>();
    CLI::App* command = program.add_subcommand("sample", "Make up a little town as points, to try things with");
    command->add_option("OUTPUT", options->output, "The file to write: .las, .ply or .csv")->required();
    command->add_option("--points", options->points, "How many points")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(1, MOST_POINTS));
    command->add_option("--seed", options->seed, "Another number makes another town")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(0, UINT64_MAX));
    command->add_flag("-f,--force", options->force, "Replace OUTPUT if it exists");
    command->footer("The same number of points and the same seed make the same file everywhere.\n\n"
                    "Example: nimbrel sample town.las --points 5000000");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runSample(*options, host); }; });
}
