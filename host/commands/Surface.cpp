#include "cloud/EngineSession.h"
#include "cloud/OpenCloud.h"
#include "commands/Analysis.h"
#include "support/Failure.h"
#include "support/Text.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>
#define PICOJSON_USE_INT64
#include <picojson.h>

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <memory>

// How a mesh and the points by it agree: the commands coverage and deviation, a row for each mesh.

namespace {
struct SurfaceOptions {
    std::string file;
    std::vector<std::string> meshes;
    double thickness = 0.0;
    double cell = 0.0;
    std::string place;
    bool json = false;
};

// The figures of one mesh, in the order of the columns; none where the mesh has no points by it.
struct Row {
    std::string mesh;
    size_t triangles;
    std::vector<double> figures;
};

struct Table {
    const char* missing; // said of a mesh without figures
    std::vector<const char*> columns;
    std::vector<Row> rows;
};
} // namespace

static void printJson(const Table& table, StandardOutput& output) {
    picojson::array rows;
    for (const Row& row : table.rows) {
        picojson::object entry;
        entry["mesh"] = picojson::value(row.mesh);
        entry["triangles"] = picojson::value(static_cast<int64_t>(row.triangles));
        for (size_t i = 0; i < table.columns.size(); ++i) {
            entry[table.columns[i]] = row.figures.empty() ? picojson::value() : picojson::value(row.figures[i]);
        }
        rows.emplace_back(entry);
    }
    output.print(picojson::value(rows).serialize(true));
}

static void printTable(const Table& table, StandardOutput& output) {
    size_t width = 4;
    for (const Row& row : table.rows) width = std::max(width, row.mesh.size());
    output.print(fmt::format("{:<{}} {:>12}", "mesh", width, "triangles"));
    for (const char* column : table.columns) output.print(fmt::format(" {:>12}", column));
    output.print("\n");
    for (const Row& row : table.rows) {
        output.print(fmt::format("{:<{}} {:>12}", row.mesh, width, grouped(row.triangles)));
        for (const double figure : row.figures) output.print(fmt::format(" {:>12.3f}", figure));
        output.print(row.figures.empty() ? fmt::format(" {}\n", table.missing) : "\n");
    }
}

// `measure` gives the figures of a mesh.
template <typename Measure>
static void runSurface(const SurfaceOptions& options, Host& host, const char* stage, Table table, Measure measure) {
    const EngineSession session;
    const OpenCloud cloud(options.file);
    requirePoints(cloud, options.file);
    if (cloud.facts().isProtected) throw CommandFailure(options.file, "is protected, so that nothing can be selected");
    for (const std::string& path : options.meshes) {
        const TriangleMesh mesh = loadMesh(path, options.place, host.console);
        Row row{path, mesh.size(), {}};
        runAnalysis(stage, host.console, [&] { row.figures = measure(mesh); });
        table.rows.push_back(std::move(row));
    }
    warnOfLastError(options.file, host.console);
    if (options.json) {
        printJson(table, host.output);
    } else {
        printTable(table, host.output);
    }
}

static void runCoverage(const SurfaceOptions& options, Host& host) {
    const Table table{"no points by it", {"per cent"}, {}};
    runSurface(options, host, "Covering", table, [&](const TriangleMesh& mesh) {
        clearSelectedPoints(); // those of the mesh before
        const double share = testSurface(mesh.corners.data(), countOf(mesh), options.thickness, options.cell);
        return getSelectedPointsCount() == 0 ? std::vector<double>{} : std::vector{100.0 * share};
    });
}

static void runDeviation(const SurfaceOptions& options, Host& host) {
    const Table table{"no points by it", {"smallest", "largest", "mean", "deviation"}, {}};
    runSurface(options, host, "Measuring", table, [&](const TriangleMesh& mesh) {
        constexpr double NO_POINTS = 9999999999.0;
        std::array<double, 4> results{};
        calculateErrors(mesh.corners.data(), countOf(mesh), options.thickness, results.data());
        return results[0] == NO_POINTS ? std::vector<double>{} : std::vector<double>(results.begin(), results.end());
    });
}

static CLI::App* addSurfaceCommand(CLI::App& program, const char* name, const char* what, SurfaceOptions& options) {
    CLI::App* command = program.add_subcommand(name, what);
    command->add_option("CLOUD", options.file, "The point file")->required();
    command->add_option("--mesh", options.meshes, "A mesh: .obj, .stl, .ply, .gltf, .glb; once for each mesh")
        ->required()
        ->allow_extra_args(false)
        ->type_name("MESH");
    command
        ->add_option("--thickness", options.thickness,
                     "How far from a triangle a point belongs to it, in\n"
                     "thousandths of a unit: mm where the unit is the metre")
        ->required()
        ->type_name("MM")
        ->check(numberFrom(1e-6, 1e9));
    command
        ->add_option("--place", options.place,
                     "Where the meshes stand: 16 numbers, row by row, separated by\n"
                     "commas, or three for a shift, or a file that holds them")
        ->type_name("MATRIX")
        ->check(placementText());
    command->add_flag("--json", options.json, "The table as JSON, in full precision");
    return command;
}

void addCoverageCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<SurfaceOptions>();
    CLI::App* command =
        addSurfaceCommand(program, "coverage", "Tell how much of a mesh is covered by points", *options);
    command->add_option("--cell", options->cell, "Side of the cells that hold a point or not, in thousandths of a unit")
        ->required()
        ->type_name("MM")
        ->check(numberFrom(1e-3, 1e9));
    command->footer(
        "Each triangle is laid out with cells; the figure is the share of them that hold a point. Triangles\n"
        "without any point are not counted, so that a mesh is judged where it was scanned; cells along the\n"
        "edges are, so that even a mesh full of points stays below 100 per cent.\n\n"
        "Example: nimbrel coverage hall.opc --mesh floor.obj --mesh roof.obj --thickness 20 --cell 100");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runCoverage(*options, host); }; });
}

void addDeviationCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<SurfaceOptions>();
    CLI::App* command = addSurfaceCommand(program, "deviation", "Tell how far points lie from a mesh", *options);
    command->footer(
        "Distances are from the planes of the triangles, in thousandths of a unit: the smallest, the largest\n"
        "and the mean over all points, and the mean of the standard deviations of the triangles, in\n"
        "which one without points counts as 0.\n\n"
        "Example: nimbrel deviation hall.opc --mesh design.obj --thickness 50");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runDeviation(*options, host); }; });
}
