#pragma once

#include <array>

// Keeps the points whose colour or intensity lies near a target. Armed for one operation; not locked, and written
// between operations.
class Match {
public:
    // The tolerances are given in fifths of a step. With neither flag set the rest is not looked at and stays as it
    // was. The fifth byte of the target is kept and not compared.
    //
    // target  5 bytes: red, green, blue, intensity, class
    void setActive(bool matchColourIn, bool matchIntensityIn, const unsigned char* targetIn, float colourToleranceIn,
                   float intensityToleranceIn);
    [[nodiscard]] bool isActive() const { return matchColour || matchIntensity; }

    // colour  4 bytes: red, green, blue, intensity. A difference of exactly the tolerance passes
    [[nodiscard]] bool testPoint(const unsigned char* colour) const;

private:
    bool matchColour = false;
    bool matchIntensity = false;
    std::array<unsigned char, 5> target{};
    float colourTolerance = 0.0F; // in steps
    float intensityTolerance = 0.0F;
};
