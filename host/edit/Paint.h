#pragma once

#include <array>

// What a stroke does to the colours of the points that it meets.
struct Paint {
    enum class Kind { COLOUR, BRIGHTNESS, CONTRAST };
    Kind kind = Kind::COLOUR;
    std::array<unsigned char, 3> colour{};
    int coverage = 100; // of the points, per cent
    int strength = 100; // of the colour, per cent
    int amount = 0;     // of brightness or contrast; 2 are one step of 255, or one per cent
};

// The next selection recolours the points that it would have selected.
void armPaint(const Paint& paint);
