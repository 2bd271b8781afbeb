#pragma once

#include "analysis/TriangleSelection.h"

#include <cstdint>
#include <span>

class AnalysisRun;

// The cells of a grid over triangles, and how many of them hold no point.
struct CellCount {
    int64_t cells = 0;
    int64_t empty = 0;
};

// Selects the points by a triangle and, with a `cellSize` above 0, lays a grid over the triangle and counts its cells.
// A triangle without points counts no cells at all, so that a mesh is judged where it was scanned. A degenerate one
// does nothing. Lengths are in units. Ends early, with a part of the cells, when the run of the search is to end.
CellCount coverTriangle(const Triangle& triangle, std::span<const SearchedCloud> clouds, TriangleSearch& search,
                        double thickness, double cellSize);

// The same over a mesh, `count` times nine doubles.
CellCount coverMesh(const double* triangles, size_t count, std::span<const SearchedCloud> clouds, double thickness,
                    double cellSize, AnalysisRun& run);
