#include "cloud/EngineSession.h"
#include "cloud/ModelExport.h"
#include "cloud/OpenCloud.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/OutputPath.h"
#include "support/Text.h"

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

namespace {
struct ExportOptions {
    std::string file;
    std::string output;
    std::optional<double> voxelSize;
    double scale = 1.0;
    bool byIntensity = false;
    bool force = false;
};
} // namespace

static constexpr double SMALLEST_VOXEL = 0.01; // what the engine would clamp to
static constexpr double LARGEST_VOXEL = 1000.0;

static ModelForm formOf(const std::string& output) {
    std::string ending = std::filesystem::path(output).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    if (ending == ".obj") return ModelForm::OBJ;
    if (ending == ".stl") return ModelForm::STL;
    if (ending == ".schematic") return ModelForm::SCHEMATIC;
    throw UsageFailure("the name of the output must end in .obj, .stl or .schematic: " + output);
}

// A cell that the points of a surface fill: enough points a cell on average for a cube, were they spread evenly as seen
// from above; twice as wide as that, since they are not. Two digits, so that a summary can be read.
static double usualVoxelSize(const CloudFacts& facts, double scale) {
    constexpr double POINTS_OF_CUBE = 11.0;
    const double area = (facts.box[3] - facts.box[0]) * (facts.box[4] - facts.box[1]);
    const double side =
        2.0 * scale * std::sqrt(POINTS_OF_CUBE * area / static_cast<double>(std::max<int64_t>(facts.points, 1)));
    const double unit = std::pow(10.0, std::floor(std::log10(side)) - 1.0);
    return std::clamp(std::ceil(side / unit) * unit, SMALLEST_VOXEL, LARGEST_VOXEL);
}

// Meshes are text of six significant digits, too few for small cubes far from the origin.
static void warnOfDigits(const CloudFacts& facts, const ModelOptions& model, const std::string& output,
                         Console& console) {
    constexpr int DIGITS = 6;
    double farthest = 0.0;
    for (const double side : facts.box) farthest = std::max(farthest, std::fabs(side * model.scale));
    const double step = std::pow(10.0, std::floor(std::log10(farthest)) + 1 - DIGITS);
    constexpr double STEPS_OF_CUBE = 10.0;
    if (step * STEPS_OF_CUBE <= model.voxelSize) return;
    console.error(
        fmt::format("{}: warning: coordinates keep six digits, which so far from the origin are {:g} apart: cubes "
                    "of {:g} will be out of shape",
                    output, step, model.voxelSize));
}

static void warnOfBlocks(const CloudFacts& facts, const ModelOptions& model, const std::string& output,
                         Console& console) {
    const std::array<int64_t, 3> size = modelSize(facts.box, model);
    constexpr int64_t LARGEST_SIDE = INT16_MAX;
    constexpr double LARGEST_ARRAY = INT32_MAX;
    const double cells = static_cast<double>(size[0]) * static_cast<double>(size[1]) * static_cast<double>(size[2]);
    if (*std::max_element(size.begin(), size.end()) <= LARGEST_SIDE && cells <= LARGEST_ARRAY) return;
    console.error(
        fmt::format("{}: warning: {} x {} x {} blocks are more than the format can say (32767 a side, 2147483647 "
                    "in all); other programs will not read it, a larger --voxel helps",
                    output, size[0], size[1], size[2]));
}

static void printSummary(const ExportOptions& options, const ModelOptions& model, const NimbrelVoxelReport& report,
                         double seconds, Host& host) {
    const char* pieces = model.form == ModelForm::SCHEMATIC ? "blocks" : "cubes";
    std::string files;
    for (const std::string& file : ModelExport::filesOf(options.output, model.form)) {
        std::error_code error;
        const uintmax_t size = std::filesystem::file_size(file, error);
        if (!error) files += fmt::format("{}{} ({})", files.empty() ? "" : ", ", file, byteSize(size));
    }
    host.output.print(
        fmt::format("{}\n  {} {} of {:g}, in a grid of {} x {} x {}\n  from {} points in {} cells, in {}\n", files,
                    grouped(static_cast<uint64_t>(report.cubes)), pieces, model.voxelSize, report.sizeX, report.sizeY,
                    report.sizeZ, grouped(static_cast<uint64_t>(report.points)),
                    grouped(static_cast<uint64_t>(report.cells)), duration(seconds)));
}

static void runExport(const ExportOptions& options, Host& host) {
    const auto start = std::chrono::steady_clock::now();
    ModelOptions model;
    model.form = formOf(options.output);
    model.scale = options.scale;
    model.byIntensity = options.byIntensity;
    if (model.byIntensity && model.form != ModelForm::SCHEMATIC) {
        throw UsageFailure("--intensity chooses the blocks of a .schematic; it has no effect on other models");
    }
    for (const std::string& file : ModelExport::filesOf(options.output, model.form)) {
        checkOutput(file, {options.file}, options.force);
    }
    const EngineSession session;
    const OpenCloud cloud(options.file);
    const CloudFacts facts = cloud.facts();
    if (facts.isVoxel()) {
        throw CommandFailure(options.file, "is a voxel model and has no points to export; those it was built from do");
    }
    model.voxelSize = options.voxelSize ? *options.voxelSize : usualVoxelSize(facts, options.scale);
    const auto warn = model.form == ModelForm::SCHEMATIC ? warnOfBlocks : warnOfDigits;
    warn(facts, model, options.output, host.console);
    ModelExport work(options.output, options.force);
    const NimbrelVoxelReport report = work.run(cloud.id(), static_cast<uint64_t>(facts.points), model, host.console);
    if (report.cubes == 0) {
        host.console.error(
            fmt::format("{}: warning: the model is empty: no cell of {:g} holds 11 points; a larger --voxel helps",
                        options.output, model.voxelSize));
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    if (!host.console.isQuiet()) printSummary(options, model, report, taken.count(), host);
    if (report.unreadNodes > 0) {
        throw CommandFailure(options.file, fmt::format("{} can't be read: the model lacks what points they hold",
                                                       counted(static_cast<uint64_t>(report.unreadNodes), "node")));
    }
}

void addExportCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* command =
        program.add_subcommand("export", "Make a model of cubes of a point file: OBJ, STL or schematic");
    command->add_option("FILE", options->file, "The point file")->required();
    command
        ->add_option("-o,--output", options->output,
                     "The model to write: .obj (with .mtl and .png beside it),\n"
                     ".stl or .schematic")
        ->required()
        ->type_name("FILE");
    command->add_flag("-f,--force", options->force,
                      "Replace the files of the model if they exist, once the new ones are whole");
    command
        ->add_option("--voxel", options->voxelSize,
                     "Side of a cube in units of the model; unless told one that\nmost points of a surface fill")
        ->type_name("SIZE")
        ->check(numberFrom(SMALLEST_VOXEL, LARGEST_VOXEL));
    command->add_option("--scale", options->scale, "Units of the model in one of the cloud")
        ->capture_default_str()
        ->type_name("S")
        ->check(numberFrom(1e-6, 1e6));
    command->add_flag("--intensity", options->byIntensity,
                      "Choose the blocks of a .schematic by intensity, not colour");
    command->footer(
        "A cell of the grid becomes a cube when at least 11 points lie in it, in their mean colour. A schematic\n"
        "has blocks instead, of the nearest of ten kinds, and 32767 of them a side at most.\n\n"
        "Examples:\n"
        "  nimbrel export town.opc -o town.obj --voxel 0.5\n"
        "  nimbrel export town.opc -o town.stl --scale 0.001 --voxel 0.02\n"
        "  nimbrel export town.opc -o town.schematic --voxel 1");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runExport(*options, host); }; });
}
