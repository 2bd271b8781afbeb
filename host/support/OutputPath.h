#pragma once

#include <string>
#include <vector>

// Refuses an output that a command must not write: one that is also an input, exists without `force`, is no regular
// file, or lies in a folder that is missing or cannot be written to. Throws CommandFailure, which names it.
//
// The file grows as "OUTPUT.part" until it is whole. One of that name is left over from a process that was killed, or
// belongs to one that is at work; it counts like the output itself.
void checkOutput(const std::string& output, const std::vector<std::string>& inputs, bool force);
