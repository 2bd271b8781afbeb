#pragma once

#include "viewer/Camera.h"

#include <span>

// The point size, in pixels, at which a picture closes to surfaces: judged by a picture in which every point has the
// size of 1. `covered` has a byte a pixel, not 0 where there is a point.
//
// Looks at how densely the covered parts are covered, so that the empty parts around a cloud do not count.
double choosePointSize(std::span<const unsigned char> covered, PixelSize size);
