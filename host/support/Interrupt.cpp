#include "support/Interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

// Interrupted system calls go on (SA_RESTART), because most of them are the library's or the readers' and none of
// these should fail halfway. A read that waits for standard input would wait on for ever, so the handler puts an empty
// file in the place of standard input: the call that the kernel restarts then finds the end of it.

static std::atomic<int> caughtSignal{0};
static int emptyFile = -1; // set before the handler is
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may only use it then");

static void noteSignal(int signal) {
    const int savedError = errno;
    caughtSignal = signal;
    if (emptyFile >= 0) dup2(emptyFile, STDIN_FILENO);
    errno = savedError;
}

void watchInterrupts() {
    emptyFile = open("/dev/null", O_RDONLY | O_CLOEXEC);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = noteSignal;
        action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

bool isInterrupted() {
    return caughtSignal != 0;
}

void checkInterrupt() {
    if (const int signal = caughtSignal) throw Interrupted{signal};
}

int exitStatusOfInterrupt() {
    constexpr int ENDED_BY_SIGNAL = 128;
    const int signal = caughtSignal;
    return signal == 0 ? 0 : ENDED_BY_SIGNAL + signal;
}
