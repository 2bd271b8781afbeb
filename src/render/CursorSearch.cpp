#include "render/CursorSearch.h"

#include <cmath>

CursorHit searchCursorDepths(const CursorDepths& depths) {
    constexpr int MIDDLE = CURSOR_SIZE / 2;
    // The first cell of the middle row, and not the cursor's own: it decides the depth when nothing is drawn.
    constexpr int START = CURSOR_SIZE * MIDDLE;
    CursorHit hit{depths[START] > 0.0F && depths[START] < 1.0F, 0, 0, depths[START]};
    float best = 9999.0F;
    for (int column = -MIDDLE; column < MIDDLE; ++column) {
        for (int row = -MIDDLE; row < MIDDLE; ++row) {
            const int cell = column + MIDDLE + CURSOR_SIZE * (row + MIDDLE);
            const float depth = depths[static_cast<size_t>(cell)];
            const float distance = std::sqrt(static_cast<float>(row * row + column * column));
            if (!(depth < 1.0F && distance < best)) continue;
            best = distance;
            hit = {true, column, row, depth};
        }
    }
    return hit;
}
