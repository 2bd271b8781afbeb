#include "meshes/Placement.h"

#include <charconv>
#include <cmath>

static std::optional<std::vector<double>> parseNumbers(const std::string& text) {
    static constexpr const char* SEPARATORS = ", \t\r\n";
    std::vector<double> numbers;
    size_t at = text.find_first_not_of(SEPARATORS);
    while (at != std::string::npos && numbers.size() <= 16) {
        const size_t end = std::min(text.find_first_of(SEPARATORS, at), text.size());
        double value = 0.0;
        const auto [stop, error] = std::from_chars(text.data() + at, text.data() + end, value);
        if (error != std::errc{} || stop != text.data() + end || !std::isfinite(value)) return std::nullopt;
        numbers.push_back(value);
        at = text.find_first_not_of(SEPARATORS, end);
    }
    return numbers;
}

std::optional<Placement> Placement::parse(const std::string& text) {
    const auto numbers = parseNumbers(text);
    if (!numbers) return std::nullopt;
    Placement placement;
    if (numbers->size() == 3) {
        for (size_t axis = 0; axis < 3; ++axis) placement.columns[12 + axis] = (*numbers)[axis];
        return placement;
    }
    if (numbers->size() != 16) return std::nullopt;
    for (size_t row = 0; row < 4; ++row) {
        for (size_t column = 0; column < 4; ++column)
            placement.columns[4 * column + row] = (*numbers)[4 * row + column];
    }
    const std::array<double, 16>& m = placement.columns;
    if (m[3] != 0.0 || m[7] != 0.0 || m[11] != 0.0 || m[15] != 1.0) return std::nullopt;
    return placement;
}

void Placement::apply(std::span<double> places) const {
    for (size_t i = 0; i + 2 < places.size(); i += 3) {
        const double x = places[i];
        const double y = places[i + 1];
        const double z = places[i + 2];
        for (size_t row = 0; row < 3; ++row) {
            places[i + row] = columns[row] * x + columns[4 + row] * y + columns[8 + row] * z + columns[12 + row];
        }
    }
}
