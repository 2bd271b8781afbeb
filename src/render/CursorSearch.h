#pragma once

#include <array>

// The depths around a cursor: 50 by 50 cells, rows from the bottom up, the cursor in column 25 of row 25.
constexpr int CURSOR_SIZE = 50;
using CursorDepths = std::array<float, CURSOR_SIZE * CURSOR_SIZE>;

struct CursorHit {
    bool found;
    int column, row; // of the nearest drawn cell, from the cursor
    float depth;
};

// The drawn cell nearest to the cursor. A cell is drawn where its depth is below 1; of cells equally near, the one in
// the leftmost column, and there the lowest, is taken.
CursorHit searchCursorDepths(const CursorDepths& depths);
