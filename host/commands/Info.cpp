#include "cloud/CloudSource.h"
#include "cloud/CloudTree.h"
#include "cloud/EngineSession.h"
#include "cloud/OpenCloud.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Text.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <memory>

namespace {
struct InfoOptions {
    std::string file;
    bool json = false;
    bool tree = false;
    uint64_t depth = 10;
};

// Numbers that follow from the facts; 0 where there is nothing to divide by.
struct Figures {
    double bytesPerPoint = 0;
    double density = 0; // points a square unit of the box, seen from above

    Figures(const CloudFacts& facts, uint64_t fileSize) {
        if (facts.points <= 0) return;
        const auto points = static_cast<double>(facts.points);
        bytesPerPoint = static_cast<double>(fileSize) / points;
        const double area = (facts.box[3] - facts.box[0]) * (facts.box[4] - facts.box[1]);
        if (area > 0.0) density = points / area;
    }
};
} // namespace

static const char* formOf(const CloudFacts& facts) {
    if (facts.isVoxel()) return "voxel model";
    if (facts.isOnPointServer) return "points as a server sends them";
    return facts.version == 18 ? "delta coded points" : "fixed size points";
}

// JSON has no word for infinities and NaN, which a damaged header may hold.
static picojson::value jsonNumber(double value) {
    return std::isfinite(value) ? picojson::value(value) : picojson::value();
}

static picojson::value jsonNumber(uint64_t value) {
    return picojson::value(static_cast<int64_t>(value));
}

static picojson::array jsonLevels(const CloudTree& tree) {
    picojson::array levels;
    for (const CloudTree::Level& level : tree.levels()) {
        picojson::object entry;
        entry["level"] = jsonNumber(uint64_t{levels.size()});
        entry["nodes"] = jsonNumber(level.nodes);
        entry["points"] = jsonNumber(level.points);
        levels.emplace_back(entry);
    }
    return levels;
}

static std::string describeAsJson(const std::string& file, const CloudFacts& facts, uint64_t fileSize,
                                  const CloudTree& tree) {
    const Figures figures(facts, fileSize);
    picojson::object json;
    json["file"] = picojson::value(file);
    json["version"] = picojson::value(int64_t{facts.version});
    json["form"] = picojson::value(formOf(facts));
    json["nodes"] = picojson::value(int64_t{facts.nodes});
    json["points"] = picojson::value(facts.points);
    json["pointsBuilt"] = picojson::value(facts.pointsBuilt);
    picojson::array bounds;
    for (const double value : facts.box) bounds.push_back(jsonNumber(value));
    json["bounds"] = picojson::value(bounds);
    if (!facts.isOnPointServer) {
        json["spacing"] = jsonNumber(facts.spacing);
        json["indexParameter"] = jsonNumber(facts.indexParameter);
        json["protected"] = picojson::value(facts.isProtected);
    }
    if (fileSize > 0) {
        json["fileSize"] = jsonNumber(fileSize);
        json["bytesPerPoint"] = jsonNumber(figures.bytesPerPoint);
    }
    json["density"] = jsonNumber(figures.density);
    json["levels"] = picojson::value(facts.isVoxel() ? picojson::array() : jsonLevels(tree));
    if (facts.isVoxel()) json["coloured"] = picojson::value(facts.voxelColours);
    return picojson::value(json).serialize(true);
}

static void printFacts(const std::string& file, const CloudFacts& facts, uint64_t fileSize, StandardOutput& output) {
    const Figures figures(facts, fileSize);
    const std::array<double, 6>& box = facts.box;
    std::string text = file + "\n";
    const auto row = [&text](const char* name, const std::string& value) {
        fmt::format_to(std::back_inserter(text), "  {:<10} {}\n", name, value);
    };
    row("version", fmt::format("{}, {}", facts.version, formOf(facts)));
    if (facts.isVoxel()) {
        row("colours", facts.voxelColours > 0 ? grouped(static_cast<uint64_t>(facts.voxelColours)) + ", one a cell"
                                              : std::string("none"));
    } else {
        row("points", grouped(static_cast<uint64_t>(facts.points)));
    }
    if (facts.pointsBuilt != facts.points) {
        row("built with", counted(static_cast<uint64_t>(facts.pointsBuilt), "point"));
    }
    row("nodes", grouped(static_cast<uint64_t>(facts.nodes)));
    if (fileSize > 0) {
        row("size",
            byteSize(fileSize) + (facts.isVoxel() ? "" : fmt::format(", {:.2f} bytes a point", figures.bytesPerPoint)));
    }
    for (size_t axis = 0; axis < 3; ++axis) {
        const std::string name(1, "xyz"[axis]);
        row(name.c_str(),
            fmt::format("{:.12g} to {:.12g}, {:.6g} units", box[axis], box[axis + 3], box[axis + 3] - box[axis]));
    }
    if (!facts.isVoxel()) {
        if (!facts.isOnPointServer) row("spacing", fmt::format("{} units between points of the root", facts.spacing));
        row("density", fmt::format("{:.4g} points a square unit, seen from above", figures.density));
    }
    if (facts.isProtected) row("protected", "yes");
    output.print(text);
}

static void printLevels(const CloudTree& tree, StandardOutput& output) {
    output.print(fmt::format("  {:>5} {:>15} {:>18}\n", "level", "nodes", "points"));
    size_t number = 0;
    for (const CloudTree::Level& level : tree.levels()) {
        checkInterrupt();
        output.print(fmt::format("  {:>5} {:>15} {:>18}\n", number++, grouped(level.nodes), grouped(level.points)));
    }
}

static void printNodes(const CloudTree& tree, uint64_t depth, StandardOutput& output) {
    constexpr uint32_t DEEPEST_INDENT = 60; // a chain may be a million levels deep
    uint64_t hidden = 0;
    size_t number = 0;
    for (const CloudTree::Node& node : tree.nodes()) {
        checkInterrupt();
        const size_t index = number++;
        if (node.level > depth) {
            ++hidden;
            continue;
        }
        const std::string indent(size_t{2} * std::min(node.level, DEEPEST_INDENT), ' ');
        std::string children = node.hasLowChild ? "low" : "";
        if (node.hasHighChild) children += node.hasLowChild ? " and high" : "high";
        if (!children.empty()) children += std::string(" on ") + node.splitAxis;
        output.print(fmt::format("{}{}: {}{}{}\n", indent, index, counted(node.points, "point"),
                                 children.empty() ? "" : ", ", children));
    }
    if (hidden > 0) output.print(fmt::format("{} below level {}\n", counted(hidden, "node"), depth));
}

static void runInfo(const InfoOptions& options, Host& host) {
    const EngineSession session;
    const OpenCloud cloud(options.file);
    const CloudFacts facts = cloud.facts();
    const uint64_t fileSize = sizeOfSource(options.file);
    const CloudTree tree = CloudTree::ofCloud(cloud.id(), cloud.label());
    if (options.tree && facts.isVoxel())
        throw CommandFailure(cloud.label(), "the nodes of a voxel model are not listed");
    if (options.json) {
        host.output.print(describeAsJson(cloud.label(), facts, fileSize, tree));
    } else if (options.tree) {
        printNodes(tree, options.depth, host.output);
    } else {
        printFacts(cloud.label(), facts, fileSize, host.output);
        if (!facts.isVoxel()) printLevels(tree, host.output);
    }
}

void addInfoCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* command = program.add_subcommand("info", "Tell what is in a point file");
    command->add_option("FILE", options->file, "The point file: a path, cloud:NAME or a URL")->required();
    CLI::Option* json = command->add_flag("--json", options->json, "All of it as JSON, numbers in full precision");
    CLI::Option* tree = command->add_flag("--tree", options->tree, "The nodes of the tree instead, in pre-order");
    json->excludes(tree);
    command->add_option("--depth", options->depth, "Deepest level that --tree shows, the root's is 0")
        ->capture_default_str()
        ->needs(tree)
        ->type_name("N")
        ->check(wholeNumberFrom(0, UINT32_MAX));
    command->footer("The JSON has file, version, form, nodes, points, pointsBuilt, bounds, spacing, indexParameter,\n"
                    "protected, fileSize, bytesPerPoint, density and levels (level, nodes, points). A point\n"
                    "server tells no spacing, indexParameter and protected, and only files here and in the cloud have\n"
                    "fileSize and bytesPerPoint; of a voxel model there is coloured, the number of cells with a\n"
                    "colour, and levels is empty.\n\n"
                    "Examples:\n"
                    "  nimbrel info town.opc --json\n"
                    "  nimbrel info http://localhost:8080/town.opc");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runInfo(*options, host); }; });
}
