#pragma once

#include "support/Console.h"
#include "support/StandardOutput.h"
#include "viewer/Camera.h"

#include <array>
#include <functional>
#include <string>

namespace CLI {
class App;
class Validator;
} // namespace CLI

// What every command is given.
struct Host {
    Console console;
    StandardOutput output;
    int status = 0; // exit status of a command that does its work; not 0 where the result is a yes or no
};

// What the command line asks for, to be run once it is parsed. Throws what it cannot deal with.
using Command = std::function<void(Host&)>;

// Each adds one command to the program's grammar; parsing the command sets `chosen`.
void addBuildCommand(CLI::App& program, Command& chosen);
void addCloudCommand(CLI::App& program, Command& chosen);
void addCollideCommand(CLI::App& program, Command& chosen);
void addCoverageCommand(CLI::App& program, Command& chosen);
void addDeviationCommand(CLI::App& program, Command& chosen);
void addEditCommand(CLI::App& program, Command& chosen);
void addExportCommand(CLI::App& program, Command& chosen);
void addGradeCommand(CLI::App& program, Command& chosen);
void addInfoCommand(CLI::App& program, Command& chosen);
void addPointsCommand(CLI::App& program, Command& chosen);
void addRenderCommand(CLI::App& program, Command& chosen);
void addRestoreCommand(CLI::App& program, Command& chosen);
void addSampleCommand(CLI::App& program, Command& chosen);
void addServeCommand(CLI::App& program, Command& chosen);
void addViewCommand(CLI::App& program, Command& chosen);

// The grammar's checks that several commands share.

// A finite number from `lowest` to `highest`.
CLI::Validator numberFrom(double lowest, double highest);
// A whole number from `lowest` to `highest`.
CLI::Validator wholeNumberFrom(uint64_t lowest, uint64_t highest);
// Six finite numbers separated by commas: smallest x, y, z, then largest.
CLI::Validator sixNumbers();
// Three finite numbers separated by commas: x, y, z.
CLI::Validator threeNumbers();
// Width and height in pixels, such as 1920x1080.
CLI::Validator pixelSize();

// What sixNumbers() let through.
std::array<double, 6> parseBox(const std::string& text);
// What threeNumbers() let through.
std::array<double, 3> parsePoint(const std::string& text);
// What pixelSize() let through.
PixelSize parsePixelSize(const std::string& text);

// Parses the command line, runs the command, and returns the exit status of the process.
int runCommandLine(int argc, const char* const* argv);
