#pragma once

#include "voxel/ModelGrid.h"
#include "voxel/VoxelMap.h"

#include <string>

class ExportFile;

// The writers of a model. Each goes through the stages of its format that follow the extraction (VoxelProgress.h), and
// leaves out cells that are not solid, though these count as steps. One that can't write stops early; the file tells.

// The cells of a cloud in order, and their grid. A cloud that is not there is an empty one.
struct VoxelModel {
    VoxelMap map;
    ModelGrid grid;
};

// Wavefront OBJ, with a material and a texture beside it, named after `path` (see voxelTexturePaths). Three stages.
// Returns why one of the two companions could not be written, empty when both were.
std::string writeVoxelObj(const VoxelModel& model, ExportFile& file, const std::string& path);

// The companions of an OBJ: the file's name up to its first point, blanks turned into underscores, with an ending of
// their own, in the same folder.
struct VoxelObjCompanions {
    explicit VoxelObjCompanions(const std::string& objPath);
    std::string materialName;
    std::string textureName;
    std::string folder; // with a slash at its end, or empty
};

// STL as text. One stage.
void writeVoxelStl(const VoxelModel& model, ExportFile& file);

// Uncompressed NBT of blocks. One stage of two steps a cell of the whole grid.
void writeVoxelSchematic(const VoxelModel& model, ExportFile& file, bool useIntensity);
