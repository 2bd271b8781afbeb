#pragma once

#include <span>
#include <string>

// Writes a picture in the plain PPM format, whose numbers are text.
//
// path    UTF-8
// pixels  4 bytes each, red, green, blue, alpha; the bottom row first. Alpha is not written
//
// A file that can't be opened is told on standard output.
void writePPMImage(const std::string& path, int width, int height, std::span<const unsigned char> pixels);
