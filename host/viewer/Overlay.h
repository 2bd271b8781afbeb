#pragma once

#include "viewer/ViewerState.h"

// Lines and labels over the picture: the pivot, the clip box, the measurement, the last message, the list of keys.
void drawOverlay(const ViewerState& state);

// "distance", and its parts along the axes, in the files' units; for the panel and the overlay alike.
std::string describeMeasurement(const ViewerState& state);
