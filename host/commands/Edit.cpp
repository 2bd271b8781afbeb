#include "cloud/EngineSession.h"
#include "cloud/OpenCloud.h"
#include "commands/CheckedBy.h"
#include "commands/Commands.h"
#include "edit/PointSelection.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/OutputPath.h"
#include "support/Progress.h"
#include "support/Text.h"
#include "support/Waiting.h"
#include "support/WidePath.h"
#include "writers/PointWriter.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <charconv>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <unistd.h>

// Selects first, says how much, and then acts: what can be wrong with the command line or the file shows before a byte
// of the file changes. A signal is looked for between the steps; a change of the file that began is brought to its end.

namespace {
// One step of making the selection, in the order of the command line.
struct SelectionStep {
    enum class Kind { SELECT, DESELECT, INVERT };
    Kind kind = Kind::SELECT;
    std::string shape; // as given; empty for INVERT
};

struct EditOptions {
    std::string file;
    std::vector<SelectionStep> steps;
    std::string colourMatch; // as given; empty without
    std::string intensityMatch;
    std::vector<unsigned> hiddenClasses;
    bool count = false;
    bool erase = false;
    std::optional<unsigned> classify;
    std::string paint;
    std::optional<int> brightness;
    std::optional<int> contrast;
    std::string extract;
    bool force = false;
    bool dryRun = false;

    [[nodiscard]] bool isPainting() const { return !paint.empty() || brightness || contrast; }
    [[nodiscard]] bool isChanging() const { return erase || classify || isPainting(); }
};
} // namespace

// A whole number of a list such as 255,0,0:20:50; moves `text` behind it and its separator.
static std::optional<int> takeNumber(std::string_view& text, int highest) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || value < 0 || value > highest) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

static bool takeMark(std::string_view& text, char mark) {
    if (text.empty() || text.front() != mark) return false;
    text.remove_prefix(1);
    return true;
}

// "R,G,B" at the start of `text`.
static std::optional<std::array<int, 3>> takeColour(std::string_view& text) {
    std::array<int, 3> colour{};
    for (size_t i = 0; i < 3; ++i) {
        if (i > 0 && !takeMark(text, ',')) return std::nullopt;
        const std::optional<int> value = takeNumber(text, 255);
        if (!value) return std::nullopt;
        colour[i] = *value;
    }
    return colour;
}

static std::optional<std::array<int, 4>> parseColourMatch(std::string_view text) {
    const auto colour = takeColour(text);
    if (!colour || !takeMark(text, ':')) return std::nullopt;
    const auto tolerance = takeNumber(text, 255);
    if (!tolerance || !text.empty()) return std::nullopt;
    return std::array{(*colour)[0], (*colour)[1], (*colour)[2], *tolerance};
}

static std::optional<std::array<int, 2>> parseIntensityMatch(std::string_view text) {
    const auto intensity = takeNumber(text, 255);
    if (!intensity || !takeMark(text, ':')) return std::nullopt;
    const auto tolerance = takeNumber(text, 255);
    if (!tolerance || !text.empty()) return std::nullopt;
    return std::array{*intensity, *tolerance};
}

static std::optional<Paint> parsePaint(std::string_view text) {
    Paint paint;
    const auto colour = takeColour(text);
    if (!colour) return std::nullopt;
    for (size_t i = 0; i < 3; ++i) paint.colour[i] = static_cast<unsigned char>((*colour)[i]);
    for (int* share : {&paint.coverage, &paint.strength}) {
        if (text.empty()) break;
        const auto value = takeMark(text, ':') ? takeNumber(text, 100) : std::nullopt;
        if (!value) return std::nullopt;
        *share = *value;
    }
    return text.empty() ? std::optional(paint) : std::nullopt;
}

static Paint paintOf(const EditOptions& options) {
    Paint paint;
    if (!options.paint.empty()) return parsePaint(options.paint).value_or(Paint{});
    paint.kind = options.brightness ? Paint::Kind::BRIGHTNESS : Paint::Kind::CONTRAST;
    paint.amount = options.brightness ? *options.brightness : *options.contrast;
    return paint;
}

static SelectionFilter filterOf(const EditOptions& options) {
    SelectionFilter filter;
    if (!options.colourMatch.empty()) filter.colour = parseColourMatch(options.colourMatch);
    if (!options.intensityMatch.empty()) filter.intensity = parseIntensityMatch(options.intensityMatch);
    for (const unsigned number : options.hiddenClasses) filter.hiddenClasses.set(number);
    return filter;
}

static void checkActions(const EditOptions& options) {
    const int changes = int{options.erase} + int{options.classify.has_value()} + int{!options.paint.empty()} +
                        int{options.brightness.has_value()} + int{options.contrast.has_value()};
    if (changes > 1) throw UsageFailure("one change at a time: --delete, --classify or one of the paints");
    if (changes == 0 && !options.count && options.extract.empty()) {
        throw UsageFailure("nothing to do: give --count, --extract, --delete, --classify, --paint, --brightness or "
                           "--contrast");
    }
    if (options.steps.empty()) throw UsageFailure("nothing is selected: give --select SHAPE, such as --select all");
    if (!options.isPainting()) return;
    for (const SelectionStep& step : options.steps) {
        if (step.kind == SelectionStep::Kind::SELECT) continue;
        throw UsageFailure("paint goes where a shape is: with it, only --select can be given");
    }
}

// The engine passes over what it may not change without a word, so people hear of it here.
static void checkFile(const EditOptions& options, const OpenCloud& cloud) {
    if (cloud.isRemote()) throw CommandFailure(cloud.label(), "only files on this machine can be edited");
    if (cloud.facts().isVoxel()) throw CommandFailure(options.file, "a voxel model has no points to edit");
    if (cloud.facts().isProtected) throw CommandFailure(options.file, "is protected, so that nothing can be selected");
    if (access(options.file.c_str(), W_OK) == 0) return;
    if (options.isChanging()) throw CommandFailure(options.file, "cannot be written to");
    for (const SelectionStep& step : options.steps) {
        if (!step.shape.starts_with("sphere:") && !step.shape.starts_with("polygon:")) continue;
        throw CommandFailure(options.file, "cannot be written to; in such a file only all, box:.. and class:.. select");
    }
}

static void extractSelected(const EditOptions& options, const OpenCloud& cloud, uint64_t count, Console& console) {
    constexpr size_t PAGE = 1000000;
    try {
        const std::unique_ptr<PointWriter> writer = createPoints(options.extract, cloud.facts().box);
        Progress progress(console, "Writing", count);
        PointBatch batch;
        for (uint64_t start = 0; start < count; start += batch.size()) {
            checkInterrupt();
            batch.resize(std::min<uint64_t>(PAGE, count - start));
            getSelectedPoints(batch.positions.data(), reinterpret_cast<char*>(batch.attributes.data()),
                              static_cast<int64_t>(start), static_cast<int64_t>(batch.size()));
            const std::string reason = nimbrelLastError();
            if (!reason.empty()) throw CommandFailure(options.file, reason);
            writer->write(batch);
            progress.update(start + batch.size());
        }
        writer->finish();
        progress.finish(count);
    } catch (const FileError& error) {
        throw CommandFailure(options.extract, error.what());
    }
}

static void select(const EditOptions& options, const OpenCloud& cloud, PointSelection& selection, Console& console) {
    for (const SelectionStep& step : options.steps) {
        checkInterrupt();
        runAndShow(console, "Selecting", [&] {
            if (step.kind == SelectionStep::Kind::INVERT) return selection.invert();
            const SelectionShape shape = parseShape(step.shape, cloud.facts().box);
            if (step.kind == SelectionStep::Kind::SELECT) return selection.add(shape);
            selection.remove(shape);
        });
    }
    // Opening cleared the reason, so that it is one of these selections.
    const std::string reason = nimbrelLastError();
    if (!reason.empty()) throw CommandFailure(options.file, reason);
}

static void eraseSelected(const EditOptions& options, const OpenCloud& cloud, uint64_t expected) {
    const int64_t before = cloud.facts().points;
    deleteSelectedPoints();
    const auto erased = static_cast<uint64_t>(before - cloud.facts().points);
    if (erased == expected) return;
    const std::string reason = nimbrelLastError();
    throw CommandFailure(options.file, fmt::format("only {} of {} points could be deleted{}{}", grouped(erased),
                                                   grouped(expected), reason.empty() ? "" : ": ", reason));
}

static void change(const EditOptions& options, const OpenCloud& cloud, PointSelection& selection,
                   const PointSelection::Size& size) {
    if (options.erase) return eraseSelected(options, cloud, size.points);
    if (options.classify) {
        setLasValueOnSelectedPoints(static_cast<int>(*options.classify));
    } else {
        selection.clear();
        const Paint paint = paintOf(options);
        for (const SelectionStep& step : options.steps) {
            selection.paint(parseShape(step.shape, cloud.facts().box), paint);
        }
    }
    // Nothing failed before, so that it is one of these changes.
    const std::string reason = nimbrelLastError();
    if (!reason.empty()) throw CommandFailure(options.file, "not all points could be changed: " + reason);
}

static std::string describeChange(const EditOptions& options) {
    const std::string would = options.dryRun ? "would " : "";
    const auto word = [&](const char* now, const char* then) { return options.dryRun ? would + now : then; };
    if (options.erase) return word("delete", "deleted");
    if (options.classify) return word("classify", "classified");
    if (!options.paint.empty() && paintOf(options).coverage < 100) {
        return fmt::format("{} about {} per cent of", word("recolour", "recoloured"), paintOf(options).coverage);
    }
    if (options.isPainting()) return word("recolour", "recoloured");
    return "selected";
}

static void runEdit(const EditOptions& options, Host& host) {
    checkActions(options);
    if (!options.extract.empty()) checkOutput(options.extract, {options.file}, options.force);
    const EngineSession session;
    const OpenCloud cloud(options.file);
    checkFile(options, cloud);
    const CloudFacts facts = cloud.facts();
    PointSelection selection(cloud, filterOf(options));
    select(options, cloud, selection, host.console);
    const PointSelection::Size size = selection.size();
    checkInterrupt();
    if (!options.extract.empty() && !options.dryRun) extractSelected(options, cloud, size.points, host.console);
    if (options.isChanging() && !options.dryRun && size.points > 0) {
        checkInterrupt();
        runAndShow(host.console, "Changing", [&] { change(options, cloud, selection, size); });
    }
    if (host.console.isQuiet() && !options.count) return;
    host.output.print(fmt::format("{}: {} {} of {} points, in {} of {} nodes\n", options.file, describeChange(options),
                                  grouped(size.points), grouped(static_cast<uint64_t>(facts.points)),
                                  grouped(size.nodes), grouped(static_cast<uint64_t>(facts.nodes))));
    if (options.extract.empty()) return;
    host.output.print(
        fmt::format("{}: {}{}\n", options.extract, options.dryRun ? "would get " : "", counted(size.points, "point")));
}

// The order of the steps is that of the command line, which the parser gives option by option.
static std::vector<SelectionStep> orderSteps(const CLI::App& command) {
    std::vector<SelectionStep> steps;
    std::map<const CLI::Option*, size_t> taken;
    for (const CLI::Option* option : command.parse_order()) {
        const size_t place = taken[option]++;
        const std::string name = option->get_single_name();
        if (name == "invert") steps.push_back({SelectionStep::Kind::INVERT, ""});
        if (name != "select" && name != "deselect") continue;
        const auto kind = name == "select" ? SelectionStep::Kind::SELECT : SelectionStep::Kind::DESELECT;
        steps.push_back({kind, option->results().at(place)});
    }
    return steps;
}

static void addSelectionOptions(CLI::App& command, EditOptions& options) {
    const auto addShape = [&](const char* name, const std::string& text) {
        command.add_option(name, text)
            ->type_name("SHAPE")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    };
    addShape("--select", "Select the points in a shape; may be repeated");
    addShape("--deselect", "Take the points in a shape out of the selection again");
    const std::string invert = "Select what is not selected";
    command.add_flag("--invert", invert);
    command
        .add_option("--match-colour", options.colourMatch, "Shapes hold only points of about this colour (0 to 255)")
        ->type_name("R,G,B:TOLERANCE")
        ->check(checkedBy(parseColourMatch, "a colour and a tolerance such as 255,0,0:20"));
    command.add_option("--match-intensity", options.intensityMatch, "Shapes hold only points of about this intensity")
        ->type_name("I:TOLERANCE")
        ->check(checkedBy(parseIntensityMatch, "an intensity and a tolerance such as 200:20"));
    command.add_option("--hide-class", options.hiddenClasses, "Leave the points of these classes alone")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("A,B,...")
        ->check(wholeNumberFrom(0, 255));
}

static void addActionOptions(CLI::App& command, EditOptions& options) {
    command.add_flag("--count", options.count, "Say how many points are selected, even with --quiet");
    command.add_option("--extract", options.extract, "Write the selected points to .las, .ply or .csv")
        ->type_name("FILE");
    command.add_flag("-f,--force", options.force, "Replace the file of --extract if it exists");
    command.add_flag("--delete", options.erase, "Delete the selected points; 'nimbrel restore' brings them back");
    command.add_option("--classify", options.classify, "Give the selected points this class")
        ->type_name("N")
        ->check(wholeNumberFrom(0, 255));
    command
        .add_option("--paint", options.paint,
                    "Mix a colour into the points of the shapes, into COVERAGE per\n"
                    "cent of them, at STRENGTH per cent")
        ->type_name("R,G,B[:COVERAGE[:STRENGTH]]")
        ->check(checkedBy(parsePaint, "a colour such as 255,0,0 or 255,0,0:50:80"));
    command
        .add_option("--brightness", options.brightness, "Make points brighter (darker below 0): 2 are one step of 255")
        ->type_name("N")
        ->check(numberFrom(-510, 510));
    command
        .add_option("--contrast", options.contrast, "Give colours more contrast: 200 doubles it, -200 takes all of it")
        ->type_name("N")
        ->check(numberFrom(-200, 2000));
    command.add_flag("--dry-run", options.dryRun, "Only say what would happen");
}

void addEditCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<EditOptions>();
    CLI::App* command =
        program.add_subcommand("edit", "Select points of a point file and delete, classify, paint or extract them");
    command->add_option("FILE", options->file, "The point file")->required();
    addSelectionOptions(*command, *options);
    addActionOptions(*command, *options);
    command->footer(
        std::string(SHAPE_HELP) +
        "\n\nSelections are made in the order of the command line. The file itself changes, and stays whole\n"
        "should the process be killed at any moment.\n\n"
        "Examples:\n"
        "  nimbrel edit town.opc --select class:5 --count\n"
        "  nimbrel edit town.opc --select box:0,0,0,100,100,50 --deselect class:2 --delete\n"
        "  nimbrel edit town.opc --select sphere:50,50,10,5 --extract tree.las --classify 5\n"
        "  nimbrel edit town.opc --select all --match-colour 255,0,0:40 --paint 0,0,255:100:50");
    command->callback([options, command, &chosen] {
        options->steps = orderSteps(*command);
        chosen = [options](Host& host) { runEdit(*options, host); };
    });
}
