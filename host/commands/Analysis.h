#pragma once

#include "cloud/OpenCloud.h"
#include "commands/Commands.h"
#include "meshes/MeshReader.h"

#include <functional>
#include <string>
#include <vector>

// What the commands that compare clouds with clouds and meshes share.

// Throws CommandFailure, which names `file`, for a voxel model: the engine would pass over it in silence.
void requirePoints(const OpenCloud& cloud, const std::string& file);

// 16 numbers, row by row, or three for a shift, or a file that holds them.
CLI::Validator placementText();
// What placementText() let through, as the engine has matrices; empty text for no placement.
std::vector<double> parsePlacement(const std::string& text);

// The matrix that changes nothing.
std::vector<double> noPlacement();

// Reads a mesh and puts it where `placement` says, with notes about what was left out and how exact it is. Throws
// CommandFailure, which names the file.
TriangleMesh loadMesh(const std::string& path, const std::string& placement, Console& console);

// Triangles of a mesh as the engine counts them.
int countOf(const TriangleMesh& mesh);

// Runs a call of the engine's analysis on a thread of its own and shows how far it is. A signal ends the call; then
// throws Interrupted.
void runAnalysis(const std::string& stage, Console& console, const std::function<void()>& call);

// Tells on the console what the engine could not read meanwhile.
void warnOfLastError(const std::string& file, Console& console);
