#include "ProgramRunner.h"
#include "TestFiles.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <thread>

// The window, on a screen of the test's own that exists in memory only.

namespace {
// Sets a variable of the environment, or takes it away, for as long as the object lives.
class Variable {
public:
    Variable(const char* variable, const char* value) : name(variable) {
        const char* const old = getenv(variable);
        had = old != nullptr;
        if (had) before = old;
        if (value != nullptr) setenv(variable, value, 1);
        if (value == nullptr) unsetenv(variable);
    }
    ~Variable() {
        if (had) setenv(name, before.c_str(), 1);
        if (!had) unsetenv(name);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* const name;
    bool had = false;
    std::string before;
};

// An X server whose screen is a file; it chooses its number itself.
class MemoryScreen {
public:
    explicit MemoryScreen(const TemporaryFolder& folder) : picture(folder.file("Xvfb_screen0")) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::string place = folder.path.string();
        std::array<const char*, 12> argv{"Xvfb",       "-displayfd", "1",   "-screen", "0",
                                         "640x480x24", "-nolisten",  "tcp", "-fbdir",  place.c_str()};
        started = posix_spawnp(&process, "Xvfb", &actions, nullptr, const_cast<char**>(argv.data()), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        char byte = 0;
        while (started && read(ends[0], &byte, 1) == 1 && byte != '\n') display += byte;
        close(ends[0]);
    }
    ~MemoryScreen() {
        if (!started) return;
        kill(process, SIGTERM);
        waitpid(process, nullptr, 0);
    }
    MemoryScreen(const MemoryScreen&) = delete;
    MemoryScreen& operator=(const MemoryScreen&) = delete;

    // As DISPLAY has it; only ":" where there is no server.
    [[nodiscard]] const std::string& name() const { return display; }

    // Pixels of pure green. The file is a window dump: big-endian numbers, then colours, then 4 bytes a pixel.
    [[nodiscard]] int countGreen() const {
        const std::string bytes = bytesOf(picture);
        const auto numberAt = [&](size_t index) {
            uint32_t value = 0;
            if (bytes.size() >= index * 4 + 4) std::memcpy(&value, &bytes[index * 4], 4);
            return size_t{__builtin_bswap32(value)};
        };
        int count = 0;
        for (size_t at = numberAt(0) + numberAt(19) * 12; at + 4 <= bytes.size() && at > 0; at += 4) {
            count += bytes[at] == 0 && bytes[at + 1] == '\xff' && bytes[at + 2] == 0 ? 1 : 0;
        }
        return count;
    }

private:
    const std::string picture;
    std::string display = ":";
    pid_t process = -1;
    bool started = false;
};
} // namespace

TEST(View, SaysThatThereIsNoScreen) {
    const TemporaryFolder folder;
    const Variable noX("DISPLAY", nullptr);
    const Variable noWayland("WAYLAND_DISPLAY", nullptr);
    const RunResult result = runNimbrel({"view", folder.write("any.opc", "")});
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.err.find("cannot open a window")) << result.err;
    EXPECT_EQ(2, runNimbrel({"view"}).status);
    EXPECT_EQ(2, runNimbrel({"view", "any.opc", "--size", "big"}).status);
}

TEST(View, ShowsTheCloudUntilItIsEnded) {
    const TemporaryFolder folder;
    const MemoryScreen screen(folder);
    if (screen.name() == ":") GTEST_SKIP() << "Xvfb is not installed";
    const Variable display("DISPLAY", screen.name().c_str());
    const Variable noWayland("WAYLAND_DISPLAY", nullptr);
    const Variable software("LIBGL_ALWAYS_SOFTWARE", "1");
    // Mesa's driver for X drops some memory when it is unloaded, which a leak checker would hold against the program.
    const Variable noLeaks("ASAN_OPTIONS", "detect_leaks=0");
    const std::string input = folder.write("p.xyz", "x y z r g b\n0 0 0 0 255 0\n1 2 3 0 255 0\n4 0 2 0 255 0\n");
    const std::string cloud = folder.file("p.opc");
    ASSERT_EQ(0, runNimbrel({"build", input, "-o", cloud, "-q"}).status);

    // The program ends by a signal once its points are on the screen, or when that takes too long.
    RunSetting setting;
    setting.awaited = folder.file("seen");
    setting.action = [](int process) { kill(process, SIGTERM); };
    int green = 0;
    std::jthread watcher([&](const std::stop_token& stop) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (green < 9 && !stop.stop_requested() && std::chrono::steady_clock::now() < end) {
            poll(nullptr, 0, 20);
            green = screen.countGreen();
        }
        static_cast<void>(folder.write("seen", ""));
    });
    const RunResult result = runNimbrel({"view", cloud, "--size", "640x480"}, setting);
    watcher.request_stop();
    watcher.join();
    EXPECT_EQ(128 + SIGTERM, result.status) << result.err;
    EXPECT_GE(green, 9) << "one point of 3 by 3 pixels at least";
}
