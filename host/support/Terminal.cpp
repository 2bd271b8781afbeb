#include "support/Terminal.h"
#include "support/Interrupt.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

// The question goes to the terminal itself, since standard error may be a file; but only where standard input is a
// terminal too, so that nothing in a script ever waits for an answer.

static constexpr size_t LONGEST_LINE = 4096;

namespace {
class Terminal {
public:
    explicit Terminal(bool hidden) : descriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (!hidden || descriptor < 0 || tcgetattr(descriptor, &before) != 0) return;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        isSilent = tcsetattr(descriptor, TCSAFLUSH, &silent) == 0;
    }
    ~Terminal() {
        if (isSilent) tcsetattr(descriptor, TCSAFLUSH, &before);
        if (descriptor >= 0) close(descriptor);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] bool isUsable(bool hidden) const { return descriptor >= 0 && (isSilent || !hidden); }

    bool write(std::string_view text) const {
        return ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    // The signal's handler lets reads go on, so the waiting is poll's, which it ends.
    std::optional<std::string> readLine() const {
        std::string line;
        for (;;) {
            pollfd waiting{descriptor, POLLIN, 0};
            const int ready = poll(&waiting, 1, -1);
            checkInterrupt();
            if (ready < 0 && errno == EINTR) continue;
            char character = 0;
            if (read(descriptor, &character, 1) != 1 || line.size() >= LONGEST_LINE) return std::nullopt;
            if (character == '\n') return line;
            line += character;
        }
    }

private:
    const int descriptor;
    termios before{};
    bool isSilent = false;
};
} // namespace

std::optional<std::string> askOnTerminal(const std::string& question, bool hidden) {
    if (isatty(STDIN_FILENO) != 1) return std::nullopt;
    const Terminal terminal(hidden);
    if (!terminal.isUsable(hidden) || !terminal.write(question)) return std::nullopt;
    return terminal.readLine();
}
