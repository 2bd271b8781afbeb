#pragma once

#include "readers/PointReader.h"

// Opens a LAS or LAZ file: LAS 1.0 to 1.4, point formats 0 to 10, plain or compressed as LASzip does it.
//
// Coordinates are those of the file, integer times scale plus offset. Points of formats without colour are white.
// Classes have five bits in formats 0 to 5 and eight from 6 on. Points marked as withheld are left out where asked for,
// and those whose coordinate overflows always. A file that ends early gives the points that are whole, and a warning.
std::unique_ptr<PointReader> openLas(const std::string& path, const ReadOptions& options);
