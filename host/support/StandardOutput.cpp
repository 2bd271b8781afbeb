#include "support/StandardOutput.h"
#include "support/Failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

static constexpr size_t BUFFER_SIZE = size_t{1} << 16;

// A program that is started without one of its three descriptors would give that number to the next file it opens,
// and log lines would end up in a point cloud.
static void fillStandardDescriptors() {
    for (int number = 0; number < 3; ++number) {
        if (fcntl(number, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

StandardOutput::StandardOutput() : descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    fillStandardDescriptors();
}

StandardOutput::~StandardOutput() {
    if (descriptor >= 0) close(descriptor);
}

void StandardOutput::redirectLog(bool toStandardError) {
    if (toStandardError) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        return;
    }
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing < 0) return;
    dup2(nothing, STDOUT_FILENO);
    close(nothing);
}

void StandardOutput::print(std::string_view text) {
    buffer += text;
    if (buffer.size() >= BUFFER_SIZE) flush();
}

void StandardOutput::flush() {
    std::string_view rest = buffer;
    while (!rest.empty()) {
        const ssize_t written = write(descriptor, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<size_t>(written));
            continue;
        }
        if (errno == EPIPE) throw OutputClosed{};
        if (errno == EAGAIN) {
            pollfd waiting{descriptor, POLLOUT, 0};
            static_cast<void>(poll(&waiting, 1, -1));
        } else if (errno != EINTR) {
            throw CommandFailure(std::string("standard output: ") + std::strerror(errno));
        }
    }
    buffer.clear();
}
