#pragma once

#include "readers/Channels.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

// The grammar of a line of numbers: fields stand between blanks, tabs, commas and semicolons. A run of blanks and tabs
// separates once, also around a comma or semicolon; two commas have an empty field between them. A separator behind the
// last field is ignored.

// Parses a decimal number, also "nan", "inf" and a leading plus. Returns the end of the number, or null if there is
// none; what follows the number is for the caller to judge.
const char* parseNumber(const char* text, const char* end, double& value);

// The whole field as a number; empty when it is something else.
std::optional<double> numberOfField(std::string_view field);

// A whole field of nothing but digits; empty when it is something else or does not fit.
std::optional<uint64_t> wholeNumberOfField(std::string_view field);

// The fields of a line, `limit` at most.
std::vector<std::string_view> splitFields(std::string_view line, size_t limit = SIZE_MAX);

// Puts the line's fields into the channels that `columns` name for them. False when a field that is not skipped is
// missing or not a number; `values` is then partly overwritten. Further fields of the line are ignored.
bool parseFields(std::string_view line, std::span<const Channel> columns, ChannelValues& values);
