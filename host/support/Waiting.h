#pragma once

#include "support/Console.h"

#include <functional>
#include <string>

// Runs `work` to its end on a thread of its own; on a terminal a line tells from the first second on that it is under
// way, and since when. For work that cannot tell how far it is. What it throws comes out of here.
void runAndShow(Console& console, const std::string& stage, const std::function<void()>& work);
