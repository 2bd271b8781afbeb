#pragma once

#include <CLI/App.hpp>
#include <fmt/format.h>

// A check of the grammar: lets a text through that `parse` makes something of, which converts to bool.
//
// what  what texts should be, such as "a colour such as #FFFFFF"
template <typename Parse>
CLI::Validator checkedBy(Parse parse, const char* what) {
    return CLI::Validator(
        [=](const std::string& text) {
            return parse(text) ? std::string() : fmt::format("'{}' is not {}", text, what);
        },
        "");
}
