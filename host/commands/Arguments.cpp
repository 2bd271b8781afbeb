#include "commands/Commands.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <string_view>

// std::from_chars rather than the parser's own conversion: that one takes "nan", "inf" and numbers with blanks.

static constexpr int LARGEST_SIDE = 32768; // of a picture, in pixels; the OpenGL may end sooner

template <typename T>
static std::optional<T> parseNumber(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

static std::optional<double> parseFinite(std::string_view text) {
    const std::optional<double> value = parseNumber<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

CLI::Validator numberFrom(double lowest, double highest) {
    const std::string range = fmt::format("{} to {}", lowest, highest);
    return CLI::Validator(
        [=](const std::string& text) {
            const std::optional<double> value = parseFinite(text);
            if (value && *value >= lowest && *value <= highest) return std::string();
            return fmt::format("'{}' is not a number from {}", text, range);
        },
        range);
}

CLI::Validator wholeNumberFrom(uint64_t lowest, uint64_t highest) {
    return CLI::Validator(
        [=](const std::string& text) {
            const std::optional<uint64_t> value = parseNumber<uint64_t>(text);
            if (value && *value >= lowest && *value <= highest) return std::string();
            return fmt::format("'{}' is not a whole number from {} to {}", text, lowest, highest);
        },
        "");
}

template <size_t N>
static std::optional<std::array<double, N>> parseList(std::string_view text) {
    std::array<double, N> list{};
    for (size_t i = 0; i < N; ++i) {
        const size_t comma = text.find(',');
        // A comma stands behind every number but the last.
        if ((comma == std::string_view::npos) != (i + 1 == N)) return std::nullopt;
        const std::optional<double> value = parseFinite(text.substr(0, comma));
        if (!value) return std::nullopt;
        list[i] = *value;
        if (comma != std::string_view::npos) text.remove_prefix(comma + 1);
    }
    return list;
}

CLI::Validator sixNumbers() {
    return CLI::Validator(
        [](const std::string& text) {
            const auto box = parseList<6>(text);
            if (!box) return fmt::format("'{}' is not six numbers separated by commas", text);
            for (size_t axis = 0; axis < 3; ++axis) {
                if ((*box)[axis] > (*box)[axis + 3]) {
                    return fmt::format("'{}': the smallest {} is above the largest", text, "xyz"[axis]);
                }
            }
            return std::string();
        },
        "");
}

std::array<double, 6> parseBox(const std::string& text) {
    return parseList<6>(text).value_or(std::array<double, 6>{});
}

CLI::Validator threeNumbers() {
    return CLI::Validator(
        [](const std::string& text) {
            if (parseList<3>(text)) return std::string();
            return fmt::format("'{}' is not three numbers separated by commas", text);
        },
        "");
}

std::array<double, 3> parsePoint(const std::string& text) {
    return parseList<3>(text).value_or(std::array<double, 3>{});
}

static std::optional<PixelSize> parseSides(std::string_view text) {
    const size_t cross = text.find('x');
    if (cross == std::string_view::npos) return std::nullopt;
    const auto width = parseNumber<int>(text.substr(0, cross));
    const auto height = parseNumber<int>(text.substr(cross + 1));
    const auto isUsable = [](std::optional<int> side) { return side && *side >= 1 && *side <= LARGEST_SIDE; };
    return isUsable(width) && isUsable(height) ? std::optional(PixelSize{*width, *height}) : std::nullopt;
}

CLI::Validator pixelSize() {
    return CLI::Validator(
        [](const std::string& text) {
            return parseSides(text) ? std::string() : fmt::format("'{}' is not a size such as 1920x1080", text);
        },
        "");
}

PixelSize parsePixelSize(const std::string& text) {
    return parseSides(text).value_or(PixelSize{});
}
