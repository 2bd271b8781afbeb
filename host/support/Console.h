#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// What people see on standard error: messages, and on a terminal one status line below them that keeps changing.
//
// Belongs to one thread. Nothing here fails: a standard error that is full or closed loses the text.
class Console {
public:
    Console();

    // Quiet: no progress and no notes, but still errors and warnings.
    void setQuiet(bool newQuiet) { quiet = newQuiet; }
    [[nodiscard]] bool isQuiet() const { return quiet; }
    [[nodiscard]] bool isTerminal() const { return terminal; }

    // A line that stays, after "nimbrel: ".
    void error(std::string_view text);
    // A line that stays, unless quiet.
    void note(std::string_view text);
    // Replaces the status line; cut to the width of the terminal.
    void status(std::string_view text);
    // Takes the status line away.
    void clearStatus();

private:
    void writeLine(std::string text);

    const bool terminal;
    bool quiet = false;
    size_t statusLength = 0; // of the status line on the screen
};
