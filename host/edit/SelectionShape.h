#pragma once

#include <array>
#include <cstdint>
#include <glm/mat4x4.hpp>
#include <string>
#include <variant>
#include <vector>

// What a user names to select points by, in the coordinates of the file.

struct EverythingShape {};

// An upright or turned box: a centre, then three times an axis and half the size along it. 15 numbers, as the engine
// takes them.
struct BoxShape {
    std::array<double, 15> numbers{};
};

struct SphereShape {
    std::array<double, 4> numbers{}; // centre, radius
};

// What a closed line drawn on a picture surrounds, at any depth.
struct PolygonShape {
    glm::dmat4 view{1.0};
    glm::dmat4 projection{1.0};
    std::array<int, 4> viewport{}; // x, y, width, height in pixels
    std::vector<int> corners;      // x and y of each, in pixels from the upper left corner of the picture
};

struct ClassShape {
    unsigned char number = 0;
};

using SelectionShape = std::variant<EverythingShape, BoxShape, SphereShape, PolygonShape, ClassShape>;

// How shapes are written, for help texts.
extern const char* const SHAPE_HELP;

// From "all", "box:MINX,MINY,MINZ,MAXX,MAXY,MAXZ", "box:" and 15 numbers, "sphere:X,Y,Z,R", "class:N" or
// "polygon:FILE". `bounds` is the box of the cloud that a polygon's depth has to reach around. Throws UsageFailure for
// other texts, CommandFailure for a file that is no polygon.
SelectionShape parseShape(const std::string& text, const std::array<double, 6>& bounds);
