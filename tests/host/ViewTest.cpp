#include "ProgramRunner.h"
#include "TestFiles.h"

#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>

// The window, on a screen of the test's own that exists in memory only.

// Pixels of pure green on a screen that is a file. It is a window dump: big-endian numbers, then colours, then 4 bytes a
// pixel.
static int countGreen(const std::string& screen) {
    const std::string bytes = bytesOf(screen);
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

TEST(View, SaysThatThereIsNoScreen) {
    const TemporaryFolder folder;
    RunSetting setting;
    setting.environment = {"DISPLAY=", "WAYLAND_DISPLAY="};
    const RunResult result = runNimbrel({"view", folder.write("any.opc", "")}, setting);
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.err.find("cannot open a window")) << result.err;
}

TEST(View, ShowsTheCloudUntilItIsEnded) {
    const TemporaryFolder folder;
    std::optional<RunningProgram> server;
    try {
        // It chooses its number itself, and writes that once it is there.
        server.emplace("Xvfb", std::vector<std::string>{"-displayfd", "1", "-screen", "0", "640x480x24", "-nolisten",
                                                        "tcp", "-fbdir", folder.path.string()});
    } catch (const std::runtime_error&) {
        GTEST_SKIP() << "Xvfb is not installed";
    }
    const std::string input = folder.write("p.xyz", "x y z r g b\n0 0 0 0 255 0\n1 2 3 0 255 0\n4 0 2 0 255 0\n");
    const std::string cloud = folder.file("p.opc");
    ASSERT_EQ(0, runNimbrel({"build", input, "-o", cloud, "-q"}).status);

    RunSetting setting;
    // Mesa's driver for X drops some memory when it is unloaded, which a leak checker would hold against the program.
    setting.environment = {"DISPLAY=:" + server->readLine(), "WAYLAND_DISPLAY=", "LIBGL_ALWAYS_SOFTWARE=1",
                           "ASAN_OPTIONS=detect_leaks=0"};
    // The program ends by a signal once its points are on the screen, or when that takes too long.
    setting.awaited = folder.file("seen");
    setting.action = [](int process) { kill(process, SIGTERM); };
    int green = 0;
    std::jthread watcher([&](const std::stop_token& stop) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(180);
        while (green < 9 && !stop.stop_requested() && std::chrono::steady_clock::now() < end) {
            poll(nullptr, 0, 20);
            green = countGreen(folder.file("Xvfb_screen0"));
        }
        static_cast<void>(folder.write("seen", ""));
    });
    const RunResult result = runNimbrel({"view", cloud, "--size", "640x480"}, setting);
    watcher.request_stop();
    watcher.join();
    EXPECT_EQ(128 + SIGTERM, result.status) << result.err;
    EXPECT_GE(green, 9) << "one point of 3 by 3 pixels at least";
}
