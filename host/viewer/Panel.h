#pragma once

#include "viewer/ViewerState.h"

// The panel at the window's left edge, with everything that the keys do and what they cannot: each cloud's switches,
// the sliders of the clip box, the numbers.
void drawPanel(ViewerState& state);
