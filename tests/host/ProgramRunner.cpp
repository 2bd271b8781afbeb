#include "ProgramRunner.h"
#include "TestFiles.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

static constexpr int PATIENCE_IN_MS = 240000;

namespace {
// A descriptor that is closed with the object.
class Descriptor {
public:
    explicit Descriptor(int opened) : number(opened) {
        if (number < 0) throw std::runtime_error("no descriptor");
    }
    ~Descriptor() { close(number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return number; }

private:
    const int number;
};

// Waits for a file to appear in a folder. Made before the program starts, so that it misses nothing.
class FolderWatch {
public:
    explicit FolderWatch(const std::filesystem::path& file)
        : name(file.filename()), watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(watch.get(), file.parent_path().c_str(), IN_CREATE);
    }

    // False when the process behind `processDescriptor` ends first.
    [[nodiscard]] bool wait(int processDescriptor) {
        pollfd waiting[] = {{watch.get(), POLLIN, 0}, {processDescriptor, POLLIN, 0}};
        while (poll(waiting, 2, PATIENCE_IN_MS) > 0) {
            if (sawFile()) return true;
            if (waiting[1].revents != 0) return false;
        }
        return false;
    }

private:
    bool sawFile() {
        alignas(inotify_event) char events[4096];
        const ssize_t size = read(watch.get(), events, sizeof(events));
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->len > 0 && name == event->name) return true;
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return false;
    }

    const std::filesystem::path name;
    const Descriptor watch;
};
} // namespace

// A pipe's writing end of which nobody holds the other.
static int unreadPipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return -1;
    close(ends[0]);
    return ends[1];
}

static pid_t start(const char* program, const std::vector<std::string>& arguments, int in, int out, int err,
                   const std::vector<std::string>& environment = {}) {
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> variables; // of a name that is there twice, the first counts
    for (const std::string& variable : environment) variables.push_back(const_cast<char*>(variable.c_str()));
    for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
    variables.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t process = -1;
    const int error = posix_spawnp(&process, program, &actions, nullptr, argv.data(), variables.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("the program cannot be started");
    return process;
}

static int waitFor(pid_t process, int processDescriptor) {
    pollfd waiting{processDescriptor, POLLIN, 0};
    if (poll(&waiting, 1, PATIENCE_IN_MS) == 0) kill(process, SIGKILL);
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

RunResult runNimbrel(const std::vector<std::string>& arguments, const RunSetting& setting) {
    const TemporaryFolder folder;
    const std::string outPath = folder.file("out");
    const std::string errPath = folder.file("err");
    RunResult result;
    {
        const bool givenInput = setting.inputDescriptor >= 0;
        const Descriptor in(givenInput ? fcntl(setting.inputDescriptor, F_DUPFD_CLOEXEC, 3)
                                       : open(setting.input.c_str(), O_RDONLY | O_CLOEXEC));
        const Descriptor out(setting.closedOutput ? unreadPipe()
                                                  : open(outPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        const Descriptor err(open(errPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        std::unique_ptr<FolderWatch> watch;
        if (!setting.awaited.empty()) watch = std::make_unique<FolderWatch>(setting.awaited);
        const pid_t process = start(NIMBREL_PROGRAM, arguments, in.get(), out.get(), err.get(), setting.environment);
        const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
        if (watch && watch->wait(handle.get())) setting.action(process);
        result.status = waitFor(process, handle.get());
    }
    result.out = bytesOf(outPath);
    result.err = bytesOf(errPath);
    return result;
}

size_t countIn(const std::string& summary, const std::string& name) {
    const size_t row = summary.find(name);
    if (row == std::string::npos) return 0;
    size_t count = 0;
    for (size_t i = row + name.size(); i < summary.size() && summary[i] != '\n'; ++i) {
        if (summary[i] >= '0' && summary[i] <= '9') count = count * 10 + static_cast<size_t>(summary[i] - '0');
    }
    return count;
}

RunningProgram::RunningProgram(const char* program, const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    output = ends[0];
    const Descriptor writing(ends[1]);
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    process = start(program, arguments, nothing.get(), writing.get(), STDERR_FILENO);
}

RunningProgram::~RunningProgram() {
    if (process > 0) end(SIGTERM);
    close(output);
}

std::string RunningProgram::readLine() {
    std::string line;
    for (char c = 0; read(output, &c, 1) == 1 && c != '\n';) line += c;
    return line;
}

int RunningProgram::end(int signal) {
    const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    kill(process, signal);
    return waitFor(std::exchange(process, -1), handle.get());
}
