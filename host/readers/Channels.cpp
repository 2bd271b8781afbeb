#include "readers/Channels.h"

#include <algorithm>
#include <string>
#include <utility>

static constexpr std::pair<std::string_view, Channel> NAMES[] = {
    {"x", X},
    {"y", Y},
    {"z", Z},
    {"r", RED},
    {"g", GREEN},
    {"b", BLUE},
    {"red", RED},
    {"green", GREEN},
    {"blue", BLUE},
    {"diffuse_red", RED},
    {"diffuse_green", GREEN},
    {"diffuse_blue", BLUE},
    {"intensity", INTENSITY},
    {"i", INTENSITY},
    {"class", CLASS},
    {"classification", CLASS},
    {"label", CLASS},
};

Channel channelFromName(std::string_view name) {
    std::string lower(name);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (lower.starts_with("scalar_")) lower.erase(0, 7);
    for (const auto& [known, channel] : NAMES) {
        if (lower == known) return channel;
    }
    return SKIPPED;
}

std::string_view channelName(Channel channel) {
    static constexpr std::string_view SHORT[] = {"x", "y", "z", "r", "g", "b", "intensity", "class", "skip"};
    return SHORT[channel];
}

bool hasChannel(std::span<const Channel> columns, Channel channel) {
    return std::find(columns.begin(), columns.end(), channel) != columns.end();
}

void keepUsableChannels(std::span<Channel> columns) {
    for (size_t i = 0; i < columns.size(); ++i) {
        if (hasChannel(columns.first(i), columns[i])) columns[i] = SKIPPED;
    }
    if (hasChannel(columns, RED) && hasChannel(columns, GREEN) && hasChannel(columns, BLUE)) return;
    for (Channel& channel : columns) {
        if (channel == RED || channel == GREEN || channel == BLUE) channel = SKIPPED;
    }
}
