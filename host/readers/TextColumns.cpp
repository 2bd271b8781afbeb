#include "readers/TextColumns.h"
#include "readers/PointReader.h"
#include "readers/TextFields.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

static void trim(std::vector<Channel>& channels) {
    keepUsableChannels(channels);
    while (!channels.empty() && channels.back() == SKIPPED) channels.pop_back();
}

static bool hasPosition(std::span<const Channel> channels) {
    return hasChannel(channels, X) && hasChannel(channels, Y) && hasChannel(channels, Z);
}

TextColumns TextColumns::fromNames(const std::string& names) {
    TextColumns columns{{}, GIVEN};
    for (std::string_view name : splitFields(names)) {
        const Channel channel = channelFromName(name);
        if (channel == SKIPPED && name != "skip") {
            throw FileError("column \"" + std::string(name) +
                            "\" is none of x, y, z, r, g, b, intensity, class and skip");
        }
        columns.channels.push_back(channel);
    }
    trim(columns.channels);
    if (!hasPosition(columns.channels)) throw FileError("the columns \"" + names + "\" do not name x, y and z");
    return columns;
}

TextColumns TextColumns::fromHeaderLine(std::string_view line) {
    while (!line.empty() && (line.front() == '#' || line.front() == '/')) line.remove_prefix(1);
    TextColumns columns{{}, HEADER_LINE};
    for (std::string_view name : splitFields(line)) {
        if (name.size() > 2 && name.front() == '"' && name.back() == '"') name = name.substr(1, name.size() - 2);
        columns.channels.push_back(channelFromName(name));
    }
    trim(columns.channels);
    if (!hasPosition(columns.channels)) columns.channels.clear();
    return columns;
}

namespace {

// What the values of one column have in common.
struct ColumnRange {
    bool isNumeric = true;
    bool isWhole = true;
    double smallest = std::numeric_limits<double>::infinity();
    double largest = -std::numeric_limits<double>::infinity();

    void include(std::string_view field) {
        const auto value = numberOfField(field);
        isNumeric = isNumeric && value;
        isWhole = isWhole && value && *value == std::floor(*value);
        smallest = std::min(smallest, value.value_or(smallest));
        largest = std::max(largest, value.value_or(largest));
    }

    [[nodiscard]] bool isByte() const { return isNumeric && isWhole && smallest >= 0 && largest <= 255; }
    [[nodiscard]] bool isWord() const { return isNumeric && isWhole && smallest >= 0 && largest <= 65535; }
    [[nodiscard]] bool isUnit() const { return isNumeric && smallest >= 0 && largest <= 1; }
};

} // namespace

// Whether three columns from `first` on may hold red, green and blue.
static bool areColours(std::span<const ColumnRange> ranges, size_t first) {
    if (first + 3 > ranges.size()) return false;
    const auto three = ranges.subspan(first, 3);
    return std::all_of(three.begin(), three.end(), [](const ColumnRange& range) { return range.isWord(); }) ||
           std::all_of(three.begin(), three.end(), [](const ColumnRange& range) { return range.isUnit(); });
}

static std::vector<Channel> guessChannels(std::span<const ColumnRange> ranges) {
    const size_t count = ranges.size();
    std::vector<Channel> channels(count, SKIPPED);
    std::copy_n(std::initializer_list<Channel>{X, Y, Z}.begin(), 3, channels.begin());
    const auto setColours = [&](size_t first) {
        for (size_t i = 0; i < 3; ++i) channels[first + i] = static_cast<Channel>(RED + i);
    };
    const auto setIntensity = [&](size_t column) {
        if (column < count && ranges[column].isNumeric) channels[column] = INTENSITY;
    };
    const auto setClass = [&](size_t column) {
        if (column < count && ranges[column].isByte()) channels[column] = CLASS;
    };

    if (count <= 5) { // x y z, intensity, class
        setIntensity(3);
        setClass(4);
    } else if (count == 7 && areColours(ranges, 4)) { // as in PTS: x y z, intensity, r g b
        setIntensity(3);
        setColours(4);
    } else if (areColours(ranges, 3)) { // x y z, r g b, and for 7 and 8 columns intensity, class
        setColours(3);
        if (count <= 8) setIntensity(6);
        if (count <= 8) setClass(7);
    } else if (count == 8 && areColours(ranges, 4)) { // x y z, intensity, r g b, class
        setIntensity(3);
        setColours(4);
        setClass(7);
    } else if (count >= 9 && areColours(ranges, count - 3)) { // normals and the like, then r g b
        setColours(count - 3);
    }
    return channels;
}

TextColumns TextColumns::guess(std::span<const std::vector<std::string_view>> rows) {
    std::vector<ColumnRange> ranges;
    for (const auto& fields : rows) {
        const bool hasNumbers =
            fields.size() >= 3 && numberOfField(fields[0]) && numberOfField(fields[1]) && numberOfField(fields[2]);
        if (!hasNumbers) continue;
        if (ranges.empty()) ranges.resize(fields.size());
        if (fields.size() != ranges.size()) continue;
        for (size_t i = 0; i < fields.size(); ++i) ranges[i].include(fields[i]);
    }
    TextColumns columns;
    if (ranges.empty()) return columns;
    columns.channels = guessChannels(ranges);
    trim(columns.channels);
    return columns;
}

std::string TextColumns::describe() const {
    std::string text = "columns";
    for (Channel channel : channels) text.append(1, ' ').append(channelName(channel));
    if (origin == GUESSED) return text + " (guessed)";
    return text + (origin == GIVEN ? " (as given)" : " (from the header line)");
}
