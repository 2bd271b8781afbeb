#include "cloud/CloudTree.h"
#include "cloud/EngineSession.h"
#include "cloud/NodeSequence.h"
#include "cloud/OpenCloud.h"
#include "commands/Commands.h"
#include "commands/CsvOutput.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputPath.h"
#include "support/Progress.h"
#include "support/Text.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <bitset>
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <optional>

// Node by node in pre-order, so that the memory needed is that of a batch whatever the size of the cloud.

namespace {
struct PointsOptions {
    std::string file;
    std::string output;
    std::string box; // as given; empty without
    std::optional<uint64_t> level;
    std::optional<uint64_t> node;
    std::vector<unsigned> classes; // empty for all
    uint64_t every = 1;
    bool force = false;
};

// Decides which points go out.
class PointFilter {
public:
    explicit PointFilter(const PointsOptions& options) : every(options.every) {
        if (!options.box.empty()) box = parseBox(options.box);
        if (options.classes.empty()) classes.set();
        for (const unsigned number : options.classes) classes.set(number);
    }

    // Appends those of `from` that pass to `to`.
    void pass(const PointBatch& from, PointBatch& to) {
        for (size_t i = 0; i < from.size(); ++i) {
            const double* position = &from.positions[i * 3];
            const unsigned char* bytes = &from.attributes[i * 5];
            if (!classes.test(bytes[4]) || !isInBox(position)) continue;
            if (passed++ % every != 0) continue;
            to.positions.insert(to.positions.end(), position, position + 3);
            to.attributes.insert(to.attributes.end(), bytes, bytes + 5);
        }
    }

private:
    [[nodiscard]] bool isInBox(const double* position) const {
        for (size_t axis = 0; axis < 3; ++axis) {
            if (!(position[axis] >= box[axis] && position[axis] <= box[axis + 3])) return false;
        }
        return true;
    }

    std::array<double, 6> box{-INFINITY, -INFINITY, -INFINITY, INFINITY, INFINITY, INFINITY};
    std::bitset<256> classes;
    uint64_t every;
    uint64_t passed = 0; // the other tests
};
} // namespace

// Whether a node can hold points of a box: a grid moves points by so much out of the boxes of their nodes.
static bool canReach(const CloudTree::Box& node, const CloudTree::Box& box) {
    constexpr double FARTHEST_MOVE = 5.01;
    for (size_t axis = 0; axis < 3; ++axis) {
        if (node[axis] - FARTHEST_MOVE > box[axis + 3] || node[axis + 3] + FARTHEST_MOVE < box[axis]) return false;
    }
    return true;
}

// The numbers of the nodes whose points are looked at.
static std::vector<int> chooseNodes(const PointsOptions& options, const CloudTree& tree, const OpenCloud& cloud) {
    std::vector<int> chosen;
    if (options.node) {
        if (*options.node >= tree.nodes().size()) {
            throw CommandFailure(cloud.label(), fmt::format("there is no node {}; the last is {}", *options.node,
                                                            tree.nodes().size() - 1));
        }
        return {static_cast<int>(*options.node)};
    }
    std::vector<CloudTree::Box> boxes;
    if (!options.box.empty()) boxes = tree.boxes(cloud.facts().box);
    for (size_t i = 0; i < tree.nodes().size(); ++i) {
        if (options.level && tree.nodes()[i].level > *options.level) continue;
        if (!boxes.empty() && !canReach(boxes[i], parseBox(options.box))) continue;
        chosen.push_back(static_cast<int>(i));
    }
    return chosen;
}

static uint64_t writePoints(const PointsOptions& options, const OpenCloud& cloud, PointWriter& writer,
                            Console& console) {
    constexpr size_t WORTH_WRITING = 100000;
    const CloudTree tree = CloudTree::ofCloud(cloud.id(), cloud.label());
    const std::vector<int> nodes = chooseNodes(options, tree, cloud);
    uint64_t expected = 0;
    for (const int node : nodes) expected += tree.nodes()[static_cast<size_t>(node)].points;
    PointFilter filter(options);
    Progress progress(console, "Writing", expected);
    PointBatch out;
    uint64_t seen = 0;
    uint64_t written = 0;
    const auto flush = [&] {
        writer.write(out);
        written += out.size();
        out.resize(0);
    };
    NodeSequence sequence(cloud, nodes);
    while (const PointBatch* points = sequence.next()) {
        checkInterrupt();
        seen += points->size();
        filter.pass(*points, out);
        if (out.size() >= WORTH_WRITING) flush();
        progress.update(seen);
    }
    flush();
    writer.finish();
    progress.finish(seen);
    return written;
}

static void runPoints(const PointsOptions& options, Host& host) {
    const bool toStandardOutput = options.output == "-";
    if (!toStandardOutput) checkOutput(options.output, {options.file}, options.force);
    const EngineSession session;
    const OpenCloud cloud(options.file);
    if (cloud.facts().isVoxel()) {
        throw CommandFailure(options.file, "is a voxel model and has no points to give; those it was built from do");
    }
    try {
        std::unique_ptr<PointWriter> writer;
        if (toStandardOutput) {
            writer = std::make_unique<CsvOutput>(host.output);
        } else {
            writer = createPoints(options.output, cloud.facts().box);
        }
        const uint64_t written = writePoints(options, cloud, *writer, host.console);
        if (toStandardOutput || host.console.isQuiet()) return;
        host.output.print(fmt::format("{}: {}\n", options.output, counted(written, "point")));
    } catch (const FileError& error) {
        throw CommandFailure(options.output, error.what());
    }
}

void addPointsCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<PointsOptions>();
    CLI::App* command = program.add_subcommand("points", "Write the points of a point file to LAS, PLY or CSV");
    command->add_option("FILE", options->file, "The point file: a path, cloud:NAME or a URL")->required();
    command
        ->add_option("-o,--output", options->output,
                     "The file to write: .las, .ply or .csv; - for CSV on\n"
                     "standard output")
        ->required()
        ->type_name("FILE");
    command->add_flag("-f,--force", options->force, "Replace the output if it exists, once the new one is whole");
    command->add_option("--box", options->box, "Only points in this box, its faces included")
        ->type_name("MINX,MINY,MINZ,MAXX,MAXY,MAXZ")
        ->check(sixNumbers());
    CLI::Option* level = command->add_option("--level", options->level, "Only the levels 0 (the root) to N of the tree")
                             ->type_name("N")
                             ->check(wholeNumberFrom(0, UINT32_MAX));
    command->add_option("--node", options->node, "Only one node, by its number in pre-order")
        ->type_name("N")
        ->check(wholeNumberFrom(0, INT32_MAX))
        ->excludes(level);
    command->add_option("--class", options->classes, "Only these classes")
        ->delimiter(',')
        ->allow_extra_args(false) // the word behind the numbers may be FILE
        ->type_name("A,B,...")
        ->check(wholeNumberFrom(0, 255));
    command->add_option("--every", options->every, "Only the first of each N points that pass the rest")
        ->type_name("N")
        ->check(wholeNumberFrom(1, UINT64_MAX));
    command->footer("Points come in the order of the tree, in the coordinates of the file.\n\n"
                    "Examples:\n"
                    "  nimbrel points town.opc -o town.las\n"
                    "  nimbrel points town.opc -o roofs.ply --class 6 --box 0,0,0,100,100,50\n"
                    "  nimbrel points town.opc -o - --level 2 | head");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runPoints(*options, host); }; });
}
