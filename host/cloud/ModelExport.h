#pragma once

#include "support/Console.h"

#include <nimbrel/NimbrelEngine.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// The forms of a model, with the numbers that the engine knows them by.
enum class ModelForm { OBJ = 0, SCHEMATIC = 1, STL = 2 };

struct ModelOptions {
    ModelForm form = ModelForm::OBJ;
    double voxelSize = 0.0; // in units of the model
    double scale = 1.0;     // units of the model in one of the cloud
    bool byIntensity = false;
};

// Cells of the grid along x, y and z that a model of a box will have.
std::array<int64_t, 3> modelSize(const std::array<double, 6>& box, const ModelOptions& options);

// One export of an open cloud, written in a folder beside the output, OUTPUT.parts, from which the files of the model
// move to their places when all of them are whole. The folder goes with the object.
class ModelExport {
public:
    // Throws CommandFailure when the folder can't be made, or is left over and `force` is not set.
    ModelExport(const std::string& output, bool force);
    ~ModelExport();
    ModelExport(const ModelExport&) = delete;
    ModelExport& operator=(const ModelExport&) = delete;

    // The files of a model: the output, and what an OBJ has beside it.
    static std::vector<std::string> filesOf(const std::string& output, ModelForm form);

    // Exports, shows how far it is, and returns what the engine says of it. The engine can't be stopped at this: a
    // signal ends the process from here, once the folder is gone. Throws CommandFailure when the model is not whole.
    NimbrelVoxelReport run(int cloud, uint64_t points, const ModelOptions& options, Console& console);

private:
    void remove() const;

    const std::string output;
    const std::string folder;
};
