#pragma once

#include "stream/OPCInterface.h"

// A kind of block, and the colour it stands for.
struct MinecraftBlock {
    int32_t id;
    int32_t data;
    float red; // 0 to 255
    float green;
    float blue;
};

// The block whose colour is nearest to the mean of a cell's points, in hue, saturation and value; with `grey`, to the
// grey of their mean intensity. Never air. A cell with points only.
MinecraftBlock getMinecraftBlock(const OPCInterface::Voxel& voxel, bool grey);
