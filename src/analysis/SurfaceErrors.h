#pragma once

#include "analysis/TriangleSelection.h"

#include <span>

class AnalysisRun;

// How far points lie from the planes of triangles, in thousandths of a unit.
struct SurfaceErrors {
    double minimum = 9999999999.0;
    double maximum = 0.0;
    double mean = 0.0;
    double deviation = 0.0; // mean over the triangles of each one's standard deviation, 0 for one without points
};

// Over the points by each triangle of a mesh, `count` times nine doubles. Selects nothing.
SurfaceErrors measureErrors(const double* triangles, size_t count, std::span<const SearchedCloud> clouds,
                            double thickness, AnalysisRun& run);
