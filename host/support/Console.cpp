#include "support/Console.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <unistd.h>

static void writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

static size_t terminalWidth() {
    constexpr size_t USUAL_WIDTH = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : USUAL_WIDTH;
}

Console::Console() : terminal(isatty(STDERR_FILENO) == 1) {}

void Console::error(std::string_view text) {
    writeLine("nimbrel: " + std::string(text));
}

void Console::note(std::string_view text) {
    if (!quiet) writeLine(std::string(text));
}

void Console::status(std::string_view text) {
    if (quiet || !terminal) return;
    // The last column stays free, since some terminals begin a new line when it is written.
    const std::string_view shown = text.substr(0, terminalWidth() - 1);
    std::string line(1, '\r');
    line += shown;
    if (statusLength > shown.size()) line.append(statusLength - shown.size(), ' ');
    statusLength = shown.size();
    writeAll(line);
}

void Console::clearStatus() {
    if (statusLength == 0) return;
    std::string blanks(statusLength + 2, ' ');
    blanks.front() = blanks.back() = '\r';
    writeAll(blanks);
    statusLength = 0;
}

void Console::writeLine(std::string text) {
    clearStatus();
    text += '\n';
    writeAll(text);
}
