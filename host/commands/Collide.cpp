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

#include <fmt/format.h>
#include <memory>
#include <span>

static constexpr int THEY_TOUCH = 3; // exit status

namespace {
struct CollideOptions {
    std::string first;
    std::string second;
    uint64_t limit = 1000;
    std::string placeFirst;
    std::string placeSecond;
    bool json = false;
};
} // namespace

static std::vector<double> collideClouds(const CollideOptions& options, const OpenCloud& cloud, int limit,
                                         Console& console) {
    const OpenCloud other(options.second);
    requirePoints(other, options.second);
    if (!options.placeSecond.empty()) {
        setPointCloudPosition(other.id(), parsePlacement(options.placeSecond).data());
    }
    std::vector<double> contacts(options.limit * 3);
    int count = 0;
    runAnalysis("Colliding", console,
                [&] { count = doPointCloudCollision(cloud.id(), other.id(), limit, contacts.data()); });
    contacts.resize(static_cast<size_t>(count) * 3);
    return contacts;
}

static std::vector<double> collideMesh(const CollideOptions& options, const OpenCloud& cloud, int limit,
                                       Console& console) {
    const TriangleMesh mesh = loadMesh(options.second, options.placeSecond, console);
    std::vector<double> contacts(options.limit * 3);
    int count = 0;
    runAnalysis("Colliding", console, [&] {
        count = doMeshCollision(cloud.id(), limit, contacts.data(), mesh.corners.data(), countOf(mesh),
                                noPlacement().data());
    });
    contacts.resize(static_cast<size_t>(count) * 3);
    return contacts;
}

static void printJson(const CollideOptions& options, std::span<const double> contacts, StandardOutput& output) {
    picojson::array places;
    for (size_t i = 0; i + 2 < contacts.size(); i += 3) {
        places.emplace_back(picojson::array{picojson::value(contacts[i]), picojson::value(contacts[i + 1]),
                                            picojson::value(contacts[i + 2])});
    }
    picojson::object json;
    json["a"] = picojson::value(options.first);
    json["b"] = picojson::value(options.second);
    json["limit"] = picojson::value(static_cast<int64_t>(options.limit));
    json["limitReached"] = picojson::value(places.size() == options.limit);
    json["contacts"] = picojson::value(places);
    output.print(picojson::value(json).serialize(true));
}

static void printTable(const CollideOptions& options, std::span<const double> contacts, Host& host) {
    const size_t count = contacts.size() / 3;
    if (!host.console.isQuiet()) {
        const std::string pair = options.first + " and " + options.second;
        host.output.print(count == 0 ? fmt::format("{} do not touch\n", pair)
                                     : fmt::format("{} touch at {}{}\n", pair, counted(count, "place"),
                                                   count == options.limit ? ", where --limit ends the search" : ""));
        if (count > 0) host.output.print(fmt::format("{:>16} {:>16} {:>16}\n", "x", "y", "z"));
    }
    for (size_t i = 0; i < count; ++i) {
        host.output.print(
            fmt::format("{:>16.4f} {:>16.4f} {:>16.4f}\n", contacts[3 * i], contacts[3 * i + 1], contacts[3 * i + 2]));
    }
}

static void runCollide(const CollideOptions& options, Host& host) {
    const EngineSession session;
    const OpenCloud cloud(options.first);
    requirePoints(cloud, options.first);
    if (!options.placeFirst.empty()) setPointCloudPosition(cloud.id(), parsePlacement(options.placeFirst).data());
    const auto limit = static_cast<int>(options.limit);
    const bool isMesh = isMeshName(options.second);
    const std::vector<double> contacts =
        isMesh ? collideMesh(options, cloud, limit, host.console) : collideClouds(options, cloud, limit, host.console);
    const std::string read = isMesh ? options.first : options.first + " or " + options.second;
    // Clouds of which a part is unknown may touch there.
    const std::string reason = nimbrelLastError();
    if (contacts.empty() && !reason.empty()) throw CommandFailure(read, reason);
    warnOfLastError(read, host.console);
    if (options.json) {
        printJson(options, contacts, host.output);
    } else {
        printTable(options, contacts, host);
    }
    host.status = contacts.empty() ? 0 : THEY_TOUCH;
}

void addCollideCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<CollideOptions>();
    CLI::App* command = program.add_subcommand("collide", "Find where two point files, or one and a mesh, touch");
    command->add_option("A", options->first, "The point file")->required();
    command->add_option("B", options->second, "Another point file, or a mesh: .obj, .stl, .ply, .gltf, .glb")
        ->required();
    command->add_option("--limit", options->limit, "How many contacts to look for")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(1, 10000000));
    command
        ->add_option("--place-a", options->placeFirst,
                     "Where A stands: 16 numbers, row by row, separated by\n"
                     "commas, or three for a shift, or a file that holds them")
        ->type_name("MATRIX")
        ->check(placementText());
    command->add_option("--place-b", options->placeSecond, "Where B stands")
        ->type_name("MATRIX")
        ->check(placementText());
    command->add_flag("--json", options->json, "The contacts as JSON, in full precision");
    command->footer("Two points touch when nearer than about a 75th of a side of their nodes, of each of which every\n"
                    "25th point is looked at. Of the points of the tree's leaves, a mesh touches those within a\n"
                    "hundredth of a unit of its triangles, or a tenth of a small triangle's size if that is less.\n\n"
                    "Exit status: 3 if they touch, 0 if not.\n\n"
                    "Example: nimbrel collide site.opc crane.stl --place-b 12.5,40,0");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runCollide(*options, host); }; });
}
