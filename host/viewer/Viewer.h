#pragma once

#include "viewer/Camera.h"

#include <string>
#include <vector>

// Shows point files in a window until it is closed. Needs an EngineSession. Throws CommandFailure.
void runViewer(const std::vector<std::string>& files, PixelSize size);
