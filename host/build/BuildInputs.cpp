#include "build/BuildInputs.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"

#include <algorithm>
#include <sys/stat.h>

static constexpr double LARGEST_BYTE = 255.0;
static constexpr double LARGEST_WORD = 65535.0;

static double findIntensityLimit(const PointSurvey& survey) {
    constexpr double SHARE = 0.99;
    if (survey.largestIntensity <= LARGEST_BYTE) return LARGEST_BYTE;
    const double bright = survey.intensities.quantile(SHARE);
    // All from 65535 on are counted as one.
    return bright >= LARGEST_WORD ? survey.largestIntensity : std::max(bright, LARGEST_BYTE);
}

ValueScale findScale(double largestColour, const PointSurvey& allInputs, const ValueLimits& limits) {
    const double colour = largestColour <= LARGEST_BYTE ? LARGEST_BYTE : LARGEST_WORD;
    return {limits.colour.value_or(colour), limits.intensity.value_or(findIntensityLimit(allInputs))};
}

void showWarnings(const PointReader& reader, const std::string& path, Console& console) {
    for (const std::string& warning : reader.warnings()) {
        console.error((path == "-" ? "standard input" : path) + ": warning: " + warning);
    }
}

// Standard input counts as a pipe even where it is a file, so that `-` always behaves the same.
static bool isPipe(const std::string& path) {
    struct stat status {};
    return path == "-" || (stat(path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)));
}

// Surveys one input; the share of it that is done moves the bar of all of them on from `before` to `after`.
static PointSurvey surveyInput(const std::string& path, const ReadOptions& options, Console& console,
                               Progress& progress, double before, double after) {
    try {
        const auto reader = openPoints(path, options);
        const PointSurvey survey = reader->survey([&] {
            progress.update(0, before + (after - before) * reader->fractionRead());
            return !isInterrupted();
        });
        checkInterrupt();
        showWarnings(*reader, path, console);
        return survey;
    } catch (const FileError& error) {
        throw CommandFailure(path, error.what());
    }
}

BuildInputs surveyInputs(const std::vector<std::string>& paths, const ReadOptions& options, const ValueLimits& limits,
                         Console& console) {
    BuildInputs result;
    Progress progress(console, "Surveying", 0);
    const double all = static_cast<double>(paths.size());
    for (const std::string& path : paths) {
        BuildInput input;
        input.path = path;
        input.readOnce = isPipe(path);
        const double before = static_cast<double>(result.inputs.size());
        if (!input.readOnce) {
            input.survey = surveyInput(path, options, console, progress, before / all, (before + 1.0) / all);
            result.total.include(input.survey);
        }
        result.inputs.push_back(input);
    }
    for (BuildInput& input : result.inputs) {
        input.scale = findScale(input.survey.largestColour, result.total, limits);
    }
    progress.finish(result.total.count);
    return result;
}
