#pragma once

#include "readers/Channels.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

// Which column of a text file means what. TextReader.h states the rules for people.
struct TextColumns {
    enum Origin { GIVEN, HEADER_LINE, GUESSED };

    std::vector<Channel> channels; // of each column, up to the last one that is not skipped
    Origin origin = GUESSED;

    // From names separated by commas. Throws FileError for a name that stands for nothing and for a list without x, y,
    // z.
    static TextColumns fromNames(const std::string& names);

    // From a line that names columns, with or without a comment mark in front. Empty if it does not name x, y and z.
    static TextColumns fromHeaderLine(std::string_view line);

    // From values, one row of fields after the other. Empty if no row starts with three numbers.
    static TextColumns guess(std::span<const std::vector<std::string_view>> rows);

    [[nodiscard]] bool empty() const { return channels.empty(); }
    [[nodiscard]] std::string describe() const;
};
