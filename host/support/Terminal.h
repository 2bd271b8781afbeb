#pragma once

#include <optional>
#include <string>

// Asks whoever sits at the terminal, and returns the line without its end. Hidden: what is typed does not show. Empty
// where there is no terminal to ask on, as in a script. Throws Interrupted, with the terminal as it was before.
std::optional<std::string> askOnTerminal(const std::string& question, bool hidden);
