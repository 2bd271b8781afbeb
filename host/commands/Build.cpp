#include "build/BuildInputs.h"
#include "build/CloudBuild.h"
#include "build/ReadAhead.h"
#include "build/Staging.h"
#include "cloud/EngineSession.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/OutputPath.h"
#include "support/Progress.h"
#include "support/Text.h"
#include "support/WidePath.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>

// Three passes: survey every input for its count, box and value ranges; read it again into the engine, decoding a batch
// ahead; let the engine index. Pipes cannot be surveyed and are staged in the engine's temporary file instead.

static constexpr double FINEST_GRID = 0.0001;

namespace {
struct BuildOptions {
    std::vector<std::string> inputs;
    std::string output;
    CloudForm form;
    ReadOptions reading;
    ValueLimits limits;
    std::string bounds; // as given; empty without
    bool force = false;

    [[nodiscard]] std::optional<BoundsBox> box() const {
        return bounds.empty() ? std::nullopt : std::optional(parseBox(bounds));
    }
};

// What went in, for the summary.
struct Intake {
    uint64_t read = 0;    // without those outside
    uint64_t outside = 0; // the bounds, found by the host
    uint64_t skipped = 0; // by the readers
};
} // namespace

static std::unique_ptr<Staging> stagePipes(const BuildOptions& options, const BuildInputs& plan, Intake& intake,
                                           Console& console) {
    std::vector<BuildInput> pipes;
    for (const BuildInput& input : plan.inputs) {
        if (input.readOnce) pipes.push_back(input);
    }
    if (pipes.empty()) return nullptr;
    auto staging = std::make_unique<Staging>(partPathOf(options.output) + ".cache");
    for (const BuildInput& pipe : pipes) {
        InputSequence points({pipe}, options.reading, options.box());
        Progress progress(console, "Staging", 0);
        PointBatch batch;
        while (points.read(batch)) {
            staging->add(batch);
            progress.update(points.pointsRead());
        }
        if (points.reader()) showWarnings(*points.reader(), pipe.path, console);
        progress.finish(points.pointsRead());
        intake.outside += points.pointsOutside();
    }
    intake.read += staging->count();
    return staging;
}

static void addFiles(const BuildOptions& options, const BuildInputs& plan, CloudBuild& build, Intake& intake,
                     Console& console) {
    std::vector<BuildInput> files;
    for (const BuildInput& input : plan.inputs) {
        if (!input.readOnce) files.push_back(input);
    }
    if (files.empty()) return;
    InputSequence points(files, options.reading, options.box());
    Progress progress(console, "Adding", plan.total.count);
    ReadAhead ahead([&points](PointBatch& batch) { return points.read(batch); });
    uint64_t added = 0;
    while (const PointBatch* batch = ahead.next()) {
        build.add(*batch);
        added += batch->size();
        progress.update(added + points.pointsOutside());
    }
    progress.finish(added);
    intake.read += added;
    intake.outside += points.pointsOutside();
    intake.skipped += plan.total.skipped;
}

static BoundsBox findBox(const BuildOptions& options, const BuildInputs& plan, const Staging* staging) {
    if (const auto box = options.box()) return *box;
    PointSurvey all = plan.total;
    if (staging && staging->count() > 0) {
        PointSurvey staged;
        staged.bounds = staging->bounds();
        all.include(staged);
    }
    return all.bounds;
}

// Coordinates such as degrees are too small for the finest grid, and nothing else in the summary would tell.
static void warnOfCoarseGrid(const BuildOptions& options, const BoundsBox& box, uint64_t points, Console& console) {
    constexpr double STEPS_BETWEEN_POINTS = 5.0;
    // Not where the user chose the grid, or the part of the points that the box is for.
    if (options.form.isVoxel() || options.form.grid > FINEST_GRID || !options.bounds.empty()) return;
    const double side = std::max(box[3] - box[0], box[4] - box[1]);
    const double apart = side / std::sqrt(static_cast<double>(points));
    if (apart <= 0.0 || apart >= STEPS_BETWEEN_POINTS * FINEST_GRID) return;
    console.error(
        fmt::format("{}: warning: points some {:.1g} units apart are rounded to {} units; a smaller unit keeps "
                    "more, such as metres instead of degrees",
                    options.output, apart, FINEST_GRID));
}

static void printSummary(const BuildOptions& options, const Intake& intake, const NimbrelBuildReport& report,
                         double seconds, StandardOutput& output) {
    std::error_code error;
    const uintmax_t found = std::filesystem::file_size(options.output, error);
    const uint64_t size = error ? 0 : found;
    const auto written = static_cast<uint64_t>(report.written);
    output.print(fmt::format("{}: version {}, {}, {}, {:.2f} bytes a point\n", options.output, options.form.version(),
                             counted(static_cast<uint64_t>(report.nodes), "node"), byteSize(size),
                             static_cast<double>(size) / static_cast<double>(written)));
    const auto row = [&output](const char* what, uint64_t count) {
        output.print(fmt::format("  {:<36} {:>15} points\n", what, grouped(count)));
    };
    row("read", intake.read + intake.outside);
    row(options.form.isVoxel() ? "in voxels" : "written", written);
    const std::pair<const char*, uint64_t> losses[] = {
        {"passed over by the readers", intake.skipped},
        {"refused: outside the bounds", intake.outside + static_cast<uint64_t>(report.outside)},
        {"dropped: too many in one place", static_cast<uint64_t>(report.undividable)},
        {"dropped: noise", static_cast<uint64_t>(report.noise)},
        {"dropped: duplicates", static_cast<uint64_t>(report.duplicates)},
        {"dropped: second in a grid cell", static_cast<uint64_t>(report.sameCell)},
    };
    for (const auto& [what, count] : losses) {
        if (count > 0) row(what, count);
    }
    const bool wantsFilters = options.form.noiseRadius > 0.0 || options.form.duplicateRadius > 0.0;
    if (wantsFilters && report.nodes == 1) output.print("  the filters leave a cloud of a single node as it is\n");
    const std::string speed = rate(intake.read, seconds);
    output.print(fmt::format("  {} in all{}\n", duration(seconds), speed.empty() ? "" : ", " + speed));
}

static void runBuild(const BuildOptions& options, Host& host) {
    const auto start = std::chrono::steady_clock::now();
    static_cast<void>(widePath(options.output)); // a name that the library cannot take is told before the long passes
    checkOutput(options.output, options.inputs, options.force);
    const BuildInputs plan = surveyInputs(options.inputs, options.reading, options.limits, host.console);
    const EngineSession session;
    Intake intake;
    const std::unique_ptr<Staging> staging = stagePipes(options, plan, intake, host.console);
    const uint64_t expected = plan.total.count + (staging ? staging->count() : 0);
    const std::string& named = options.inputs.front();
    if (expected == 0 && intake.outside == 0) {
        throw CommandFailure(named, options.inputs.size() == 1 ? "there are no points in it"
                                                               : "there are no points in it and the other inputs");
    }
    const BoundsBox box = findBox(options, plan, staging.get());
    warnOfCoarseGrid(options, box, expected, host.console);
    CloudBuild build(options.output, options.form, box, expected);
    addFiles(options, plan, build, intake, host.console);
    if (staging) staging->transfer(build, host.console);
    if (intake.read == 0) throw CommandFailure(named, "no point lies within the bounds");
    const NimbrelBuildReport report = build.finish(host.console);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    if (!host.console.isQuiet()) printSummary(options, intake, report, taken.count(), host.output);
}

static void addVoxelOptions(CLI::App& command, BuildOptions& options, const std::vector<CLI::Option*>& ofPointFiles) {
    CLI::Option* voxel = command
                             .add_option("--voxel", options.form.voxelSize,
                                         "A voxel model instead of a point file: one colour for each occupied cell,\n"
                                         "cells with a mean edge of at most SIZE and more than half of it")
                             ->type_name("SIZE")
                             ->check(numberFrom(0.0001, 1e6));
    for (CLI::Option* other : ofPointFiles) voxel->excludes(other);
    command.add_flag("--no-colour", options.form.withoutColours, "Leave the colours of a voxel model out")
        ->needs(voxel);
}

static void addFormOptions(CLI::App& command, BuildOptions& options) {
    CLI::Option* compressed =
        command.add_flag("-c,--compressed", options.form.compressed,
                         "Version 18: about 0.6 of the size; colours cut to 4 or 5 bits, classes to 4,\n"
                         "one point a grid cell");
    CLI::Option* grid =
        command.add_option("--grid", options.form.grid, "Grid that points are rounded to, in units of the file")
            ->capture_default_str()
            ->type_name("STEP")
            ->check(numberFrom(FINEST_GRID, 10.0));
    CLI::Option* noise =
        command
            .add_option("--noise", options.form.noiseRadius, "Drop points with fewer than 26 others nearer than this")
            ->type_name("RADIUS")
            ->check(numberFrom(0.0, 1.0));
    CLI::Option* duplicates = command
                                  .add_option("--duplicates", options.form.duplicateRadius,
                                              "Drop points nearer than this to one that is kept")
                                  ->type_name("RADIUS")
                                  ->check(numberFrom(0.0, 10.0));
    addVoxelOptions(command, options, {compressed, grid, noise, duplicates});
    command.add_option("--bounds", options.bounds, "Take only points in this box, which becomes that of the cloud")
        ->type_name("MINX,MINY,MINZ,MAXX,MAXY,MAXZ")
        ->check(sixNumbers());
}

static void addReadingOptions(CLI::App& command, BuildOptions& options) {
    constexpr double SMALLEST_LIMIT = 0.001;
    constexpr double LARGEST_LIMIT = 1e6;
    command.add_flag("--skip-withheld", options.reading.skipWithheld, "Leave out LAS points marked as withheld");
    command
        .add_option("--columns", options.reading.columns,
                    "Columns of text inputs: x, y, z, r, g, b, intensity, class and skip,\n"
                    "separated by commas; guessed without it")
        ->type_name("NAMES");
    command.add_option("--colour-limit", options.limits.colour, "Stored colour that becomes 255")
        ->type_name("VALUE")
        ->check(numberFrom(SMALLEST_LIMIT, LARGEST_LIMIT));
    command.add_option("--intensity-limit", options.limits.intensity, "Stored intensity that becomes 255")
        ->type_name("VALUE")
        ->check(numberFrom(SMALLEST_LIMIT, LARGEST_LIMIT));
}

void addBuildCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<BuildOptions>();
    CLI::App* command =
        program.add_subcommand("build", "Build a point file or a voxel model from LAS, LAZ, PLY or text files");
    command->add_option("INPUT", options->inputs, "Files that make one cloud; - is standard input, text or PLY")
        ->required();
    command->add_option("-o,--output", options->output, "The file to write")->required()->type_name("FILE");
    command->add_flag("-f,--force", options->force, "Replace the output if it exists, once the new one is whole");
    addFormOptions(*command, *options);
    addReadingOptions(*command, *options);
    command->footer("Colours and intensities become bytes. Colours: an input whose largest colour is 255 or less\n"
                    "holds bytes already, any other 16-bit values (65535 becomes 255). Intensities: if the largest\n"
                    "of all inputs is 255 or less they are bytes already, otherwise the one that 99 points in 100\n"
                    "do not exceed becomes 255, and what is brighter too. A pipe is read once, so its values count\n"
                    "as bytes unless a limit is given.\n\n"
                    "The filters look at the points of one leaf of the tree at a time, some 16,000, and leave a\n"
                    "cloud that fits into a single node as it is.\n\n"
                    "A voxel model cuts the box of the points in halves across its longest side until the cells are\n"
                    "small enough. For cubes give --bounds whose sides are SIZE times powers of two.\n\n"
                    "The output grows as OUTPUT.part, and has its name only when it is whole.\n\n"
                    "Examples:\n"
                    "  nimbrel build quarry.laz -o quarry.opc\n"
                    "  nimbrel build tiles/*.laz -o town.opc --compressed --duplicates 0.01\n"
                    "  nimbrel build town.laz -o town.ovm --voxel 0.25\n"
                    "  zcat scan.xyz.gz | nimbrel build - -o scan.opc --columns x,y,z,intensity");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runBuild(*options, host); }; });
}
