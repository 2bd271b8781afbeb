#include "support/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>

std::string grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t place = digits.size(); place > 3; place -= 3) digits.insert(place - 3, 1, ',');
    return digits;
}

std::string counted(uint64_t number, const char* thing) {
    return grouped(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string byteSize(uint64_t bytes) {
    static constexpr std::array<const char*, 5> UNITS{"KiB", "MiB", "GiB", "TiB", "PiB"};
    if (bytes < 1024) return fmt::format("{} B", bytes);
    double size = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    for (; size >= 1024.0 && unit + 1 < UNITS.size(); ++unit) size /= 1024.0;
    return fmt::format("{:.1f} {}", size, UNITS[unit]);
}

std::string duration(double seconds) {
    constexpr double LONGEST = 1e9; // some 30 years; what lies beyond comes from a division by next to nothing
    if (!(seconds > 0.0)) seconds = 0.0;
    if (seconds < 9.995) return fmt::format("{:.2f} s", seconds);
    const auto whole = static_cast<uint64_t>(std::llround(std::min(seconds, LONGEST)));
    if (whole < 60) return fmt::format("{} s", whole);
    if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    return fmt::format("{} h {:02} min", grouped(whole / 3600), whole % 3600 / 60);
}

std::string rate(uint64_t count, double seconds) {
    constexpr double SHORTEST = 0.001;
    if (!(seconds >= SHORTEST)) return {};
    const double perSecond = static_cast<double>(count) / seconds;
    if (perSecond < 1e5) return grouped(static_cast<uint64_t>(perSecond)) + " points/s";
    return fmt::format("{:.2f} M points/s", perSecond / 1e6);
}
