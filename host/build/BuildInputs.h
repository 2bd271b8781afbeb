#pragma once

#include "readers/PointReader.h"
#include "support/Console.h"

#include <optional>
#include <string>
#include <vector>

// Limits that the user sets instead of having them found.
struct ValueLimits {
    std::optional<double> colour;
    std::optional<double> intensity;
};

// One file, or standard input as "-", whose points go into a cloud.
struct BuildInput {
    std::string path;
    bool readOnce = false; // a pipe: it can be read once only, and is not surveyed
    PointSurvey survey;    // empty where readOnce
    ValueScale scale;
};

// What a first pass over all inputs found.
struct BuildInputs {
    std::vector<BuildInput> inputs;
    PointSurvey total; // of the inputs that were surveyed
};

// The byte rule of one input: colours of which none is above 255 are bytes already, all others are taken as 16-bit
// values. Intensities of which none is above 255 are bytes already. Otherwise the one that 99 points in 100 do not
// exceed becomes 255, and what is brighter stays there: a few glaring points would leave the rest no more than a
// handful of values. It is that of all inputs together, so that they look alike side by side.
ValueScale findScale(double largestColour, const PointSurvey& allInputs, const ValueLimits& limits);

// Reads every input once, apart from pipes, which come out with what the rule says of bytes and of the other inputs'
// intensity. Throws CommandFailure, which names the file.
BuildInputs surveyInputs(const std::vector<std::string>& paths, const ReadOptions& options, const ValueLimits& limits,
                         Console& console);

// Shows the warnings of a reader, "FILE: warning: ...".
void showWarnings(const PointReader& reader, const std::string& path, Console& console);
