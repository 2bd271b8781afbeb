#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

// What a column of a text file or a property of a PLY file can mean. SKIPPED columns are passed over.
enum Channel : uint8_t { X, Y, Z, RED, GREEN, BLUE, INTENSITY, CLASS, CHANNEL_COUNT, SKIPPED = CHANNEL_COUNT };

// One point as stored, before its values become bytes. Channels that the file lacks are 0.
using ChannelValues = std::array<double, CHANNEL_COUNT>;

// The channel that a column or property name stands for, whatever its case; SKIPPED for a name that stands for none:
//   x  y  z
//   r red diffuse_red    g green diffuse_green    b blue diffuse_blue
//   i intensity    class classification label
// A leading "scalar_" is ignored. Alpha is none of them.
Channel channelFromName(std::string_view name);

// The short name of a channel: x y z r g b intensity class, and "skip".
std::string_view channelName(Channel channel);

// Leaves the first column for each channel and skips later ones, and skips colours unless all three are there.
void keepUsableChannels(std::span<Channel> columns);

bool hasChannel(std::span<const Channel> columns, Channel channel);
