#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

// How points are coloured. HEIGHT and DISTANCE colour the whole scene by one ramp; the others are a cloud's own.
enum class Colouring { RGB, INTENSITY, CLASS, HEIGHT, DISTANCE };

inline constexpr std::array COLOURINGS = {Colouring::RGB, Colouring::INTENSITY, Colouring::CLASS, Colouring::HEIGHT,
                                          Colouring::DISTANCE};

// "rgb", "intensity", "class", "height" or "distance".
std::string_view nameOf(Colouring colouring);

// How one cloud is drawn.
struct CloudLook {
    bool visible = true;
    Colouring colouring = Colouring::RGB; // one of a cloud's own
    float pointSize = 3.0F;               // pixels
    bool smooth = false;                  // round points that blend into each other and grow when near
    float opacity = 100.0F;               // per cent
    int detail = 100;                     // the engine's level of detail: at 100 about a point a pixel is loaded
    bool ignoresClip = false;
};

// The part of 0 to 1 that a cloud's intensities take up; drawing stretches it to the full range.
struct IntensityRange {
    float low = 0.0F;
    float high = 1.0F;
};

// Without the few lowest and highest of `values`, 0 to 255 each.
IntensityRange chooseIntensityRange(std::span<const unsigned char> values);

// What the drawing of a cloud depends on besides the user's wishes.
struct DrawingScale {
    IntensityRange intensity;
    double pixelsAtUnit = 1.0; // pixels that a smooth point should cover at a distance of one unit of the scene
    float exposure = 1.0F;     // factor on the colours of smooth points, whose layers add up
};

// Hands the look to the engine.
void applyLook(int cloud, const CloudLook& look, const DrawingScale& scale);

// Gives the engine the colours of the classes: those of the LAS specification's classes as people expect them, and
// distinct ones for the rest. `hidden` has a flag for each class that is not drawn.
void applyClassColours(const std::array<bool, 256>& hidden);

// The colour of a class, red, green, blue.
std::array<unsigned char, 3> classColour(unsigned char number);
