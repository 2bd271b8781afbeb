#pragma once

#include "readers/PointReader.h"

// How two sets of points differ.
struct CloudDifference {
    size_t missing = 0;    // points of the first that no point of the second stands for
    size_t unexpected = 0; // points of the second that stand for none of the first
};

// Pairs up the points of two sets, in whatever order they are: two points can be paired if no coordinate differs by
// more than `tolerance` and all attributes are equal. Finds a pairing with as many pairs as there can be.
CloudDifference compareClouds(const PointBatch& expected, const PointBatch& actual, double tolerance);
