#pragma once

#include "support/PointFileMaker.h"

#include <string>
#include <utility>
#include <vector>

// Small sound files of every version, with names.
std::vector<std::pair<std::string, Bytes>> seedClouds();
