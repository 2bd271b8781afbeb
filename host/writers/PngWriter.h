#pragma once

#include <string>
#include <vector>

// Rows from the top down, red, green, blue a pixel.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;
};

// Writes a PNG file, which appears under its name only when it is whole. Throws FileError.
void writePng(const std::string& path, const Picture& picture);
