#pragma once

#include "build/BuildPoint.h"

#include <span>
#include <vector>

// The filters that run on the raw points of one leaf, in this order.

// Rounds each ordinate to the nearest multiple of `size`, halves away from zero.
void snapToGrid(std::span<BuildPoint> points, double size);

// Sorts by x, equal ones in the order they had, and keeps a point unless it lies within `radius` of one that is kept
// already. The limit is the squared radius rounded to a 32-bit float.
std::vector<BuildPoint> withoutDuplicates(std::vector<BuildPoint> points, double radius);

// Keeps the points that have at least 26 others strictly nearer than `radius`, in the order they had. The same limit.
std::vector<BuildPoint> withoutNoise(std::vector<BuildPoint> points, double radius);
