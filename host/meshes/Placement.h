#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Where a cloud or a mesh stands: four columns of four, as the engine has matrices. The last row is 0 0 0 1.
struct Placement {
    std::array<double, 16> columns{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    // From 16 numbers, row by row, or from three, a shift, separated by commas, blanks or line ends. Empty for any
    // other text, and for a last row that is not 0 0 0 1.
    static std::optional<Placement> parse(const std::string& text);

    // Puts places, 3 doubles each, through the matrix.
    void apply(std::span<double> places) const;
};
