#include "cloud/CloudCopy.h"
#include "cloud/EngineSession.h"
#include "cloud/OpenCloud.h"
#include "commands/Analysis.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputPath.h"
#include "support/Progress.h"
#include "support/Text.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>
#define PICOJSON_USE_INT64
#include <picojson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace {
struct GradeOptions {
    std::string file;
    std::string mesh;
    std::string thickness;
    std::string place;
    std::string output; // empty to change the file itself
    bool force = false;
    bool json = false;

    [[nodiscard]] double thicknessInUnits() const {
        double value = 0.0;
        std::from_chars(thickness.data(), thickness.data() + thickness.size(), value);
        return value;
    }
};

using ClassCounts = std::array<uint64_t, 256>;

struct Grading {
    int version = 0;
    size_t triangles = 0;
    ClassCounts before{};
    ClassCounts now{};
};
} // namespace

static ClassCounts countClasses(const OpenCloud& cloud, Console& console) {
    const CloudFacts facts = cloud.facts();
    Progress progress(console, "Counting", static_cast<uint64_t>(facts.points));
    ClassCounts counts{};
    PointBatch points;
    uint64_t done = 0;
    for (int node = 0; node < facts.nodes; ++node) {
        checkInterrupt();
        done += cloud.readNode(node, points);
        for (size_t i = 0; i < points.size(); ++i) ++counts[points.attributes[5 * i + 4]];
        progress.update(done);
    }
    return counts;
}

static Grading gradeFile(const std::string& path, const GradeOptions& options, const TriangleMesh& mesh,
                         Console& console) {
    const EngineSession session;
    const OpenCloud cloud(path);
    if (access(path.c_str(), W_OK) != 0) throw CommandFailure(path, "cannot be written to, and its classes are in it");
    Grading grading;
    grading.version = getVersion(cloud.id());
    grading.triangles = mesh.size();
    grading.before = countClasses(cloud, console);
    try {
        runAnalysis("Grading", console, [&] {
            classifyPointsByDistance(mesh.corners.data(), countOf(mesh), noPlacement().data(),
                                     options.thicknessInUnits());
        });
    } catch (const Interrupted&) {
        if (options.output.empty()) console.error(path + ": some of its points have their new classes, others not");
        throw;
    }
    const std::string reason = nimbrelLastError();
    if (!reason.empty()) throw CommandFailure(path, reason);
    grading.now = countClasses(cloud, console);
    return grading;
}

static double bandWidth(const Grading& grading, const GradeOptions& options) {
    return options.thicknessInUnits() / (grading.version == 18 ? 15.0 : 255.0);
}

static void printJson(const Grading& grading, const GradeOptions& options, StandardOutput& output) {
    picojson::array bands;
    for (size_t band = 0; band < (grading.version == 18 ? 16U : 256U); ++band) {
        picojson::object entry;
        entry["class"] = picojson::value(static_cast<int64_t>(band));
        entry["from"] = picojson::value(bandWidth(grading, options) * static_cast<double>(band));
        entry["before"] = picojson::value(static_cast<int64_t>(grading.before[band]));
        entry["now"] = picojson::value(static_cast<int64_t>(grading.now[band]));
        bands.emplace_back(entry);
    }
    picojson::object json;
    json["file"] = picojson::value(options.output.empty() ? options.file : options.output);
    json["mesh"] = picojson::value(options.mesh);
    json["triangles"] = picojson::value(static_cast<int64_t>(grading.triangles));
    json["thickness"] = picojson::value(options.thicknessInUnits());
    json["bands"] = picojson::value(bands);
    output.print(picojson::value(json).serialize(true));
}

// Sixteen rows for either form of file, since 256 are no overview.
static void printHistogram(const Grading& grading, const GradeOptions& options, StandardOutput& output) {
    constexpr size_t ROWS = 16;
    constexpr size_t LONGEST_BAR = 20;
    const size_t perRow = grading.version == 18 ? 1 : 16;
    std::array<uint64_t, ROWS> before{};
    std::array<uint64_t, ROWS> now{};
    for (size_t band = 0; band < ROWS * perRow; ++band) {
        before[band / perRow] += grading.before[band];
        now[band / perRow] += grading.now[band];
    }
    const uint64_t most = std::max<uint64_t>(1, *std::max_element(now.begin(), now.end()));
    output.print(fmt::format("{}: classes are now distances from {} ({})\n",
                             options.output.empty() ? options.file : options.output, options.mesh,
                             counted(grading.triangles, "triangle")));
    output.print(fmt::format("  {:>7}  {:>12} {:>15} {:>15}\n", "class", "distance", "points before", "points now"));
    for (size_t row = 0; row < ROWS; ++row) {
        const size_t first = row * perRow;
        const std::string name = perRow == 1 ? std::to_string(first) : fmt::format("{}-{}", first, first + perRow - 1);
        const auto length =
            static_cast<size_t>(static_cast<double>(now[row]) / static_cast<double>(most) * LONGEST_BAR);
        output.print(fmt::format("  {:>7}  {:>12.6g} {:>15} {:>15}{}{}\n", name,
                                 bandWidth(grading, options) * static_cast<double>(first), grouped(before[row]),
                                 grouped(now[row]), length > 0 ? "  " : "", std::string(length, '#')));
    }
}

// What can't be graded is told before a mesh is read or a file copied. Opening also brings the edits of a process that
// was killed into the file, which a copy of the bytes alone would lack.
static void checkCloud(const std::string& path) {
    const EngineSession session;
    const OpenCloud cloud(path);
    if (cloud.isRemote()) throw CommandFailure(cloud.label(), "only files on this machine can be graded");
    requirePoints(cloud, path);
}

static void runGrade(const GradeOptions& options, Host& host) {
    if (!options.output.empty()) checkOutput(options.output, {options.file, options.mesh}, options.force);
    checkCloud(options.file);
    const TriangleMesh mesh = loadMesh(options.mesh, options.place, host.console);
    std::unique_ptr<CloudCopy> copy;
    if (!options.output.empty()) copy = std::make_unique<CloudCopy>(options.file, options.output, host.console);
    const Grading grading = gradeFile(copy ? copy->path() : options.file, options, mesh, host.console);
    if (copy) copy->finish();
    if (options.json) {
        printJson(grading, options, host.output);
    } else if (!host.console.isQuiet()) {
        printHistogram(grading, options, host.output);
    }
}

void addGradeCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<GradeOptions>();
    CLI::App* command =
        program.add_subcommand("grade", "Give points their distance from a mesh as class, in the point file itself");
    command->add_option("CLOUD", options->file, "The point file, which is changed unless -o is given")->required();
    command->add_option("--mesh", options->mesh, "The mesh: .obj, .stl, .ply, .gltf, .glb")
        ->required()
        ->type_name("MESH");
    command->add_option("--thickness", options->thickness, "How far from the mesh, in units, points are graded")
        ->required()
        ->type_name("T")
        ->check(numberFrom(1e-9, 1e9));
    command
        ->add_option("--place", options->place,
                     "Where the mesh stands: 16 numbers, row by row, separated by\n"
                     "commas, or three for a shift, or a file that holds them")
        ->type_name("MATRIX")
        ->check(placementText());
    command->add_option("-o,--output", options->output, "Grade a copy of this name, and leave CLOUD as it is")
        ->type_name("COPY");
    command->add_flag("-f,--force", options->force, "Replace COPY if it exists");
    command->add_flag("--json", options->json, "The histogram as JSON, every class");
    command->footer("A point gets class 0 on the plane of a triangle and 255 (version 18: 15) at the thickness. Where\n"
                    "triangles overlap the last one counts. Points farther off, or beside the mesh, keep their class;\n"
                    "the histogram counts them as well. This cannot be undone. Ctrl-C ends it between two nodes:\n"
                    "what is graded stays so, unless it is a copy.\n\n"
                    "Example: nimbrel grade hall.opc --mesh design.obj --thickness 0.05 -o graded.opc");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runGrade(*options, host); }; });
}
