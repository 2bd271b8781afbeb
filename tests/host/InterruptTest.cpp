#include "ProgramRunner.h"
#include "TestFiles.h"

#include <csignal>
#include <fcntl.h>
#include <map>
#include <unistd.h>

// A signal at the moment when a file of the command's own appears, which is the worst one: nothing may stay behind.

// The files of a folder and how large they are.
static std::map<std::string, uintmax_t> filesIn(const TemporaryFolder& folder) {
    std::map<std::string, uintmax_t> sizes;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
        sizes[entry.path().filename()] = entry.file_size();
    }
    return sizes;
}

TEST(Interrupt, LeavesNothingBehind) {
    const TemporaryFolder folder;
    const std::string sample = folder.file("town.ply");
    const std::string cloud = folder.file("town.opc");
    const std::string output = folder.file("out");
    const std::string replaced = folder.write("old.opc", "the old one");
    ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "3000000"}).status);
    ASSERT_EQ(0, runNimbrel({"build", sample, "-o", cloud}).status);
    const auto before = filesIn(folder);
    // Arguments, the file that is waited for, and the signal that it brings about.
    const std::tuple<std::vector<std::string>, std::string, int> cases[] = {
        {{"build", sample, "-o", output + ".opc"}, output + ".opc.part", SIGINT},
        {{"build", sample, "-o", output + ".opc", "--compressed"}, output + ".opc.part.scratch", SIGTERM},
        {{"build", sample, "-o", replaced, "--force"}, replaced + ".part", SIGINT},
        {{"points", cloud, "-o", output + ".csv"}, output + ".csv.part", SIGINT},
        {{"render", cloud, "-o", output + ".ppm", "--point-size", "1"}, output + ".ppm.part", SIGINT},
        {{"export", cloud, "-o", output + ".obj", "--voxel", "0.05"}, output + ".obj.parts", SIGINT},
        {{"sample", output + ".las", "--points", "5000000"}, output + ".las.part", SIGHUP},
    };
    for (const auto& [arguments, awaited, signal] : cases) {
        RunSetting setting;
        setting.awaited = awaited;
        setting.action = [number = signal](int process) { kill(process, number); };
        const RunResult result = runNimbrel(arguments, setting);
        EXPECT_EQ(128 + signal, result.status) << awaited << result.err;
        EXPECT_TRUE(result.err.ends_with("nimbrel: interrupted\n")) << result.err;
        EXPECT_EQ("", result.out);
        EXPECT_EQ(before, filesIn(folder)) << awaited;
    }
}

// The program waits for a pipe whose other end stays open and silent.
TEST(Interrupt, EndsAWaitForStandardInput) {
    const TemporaryFolder folder;
    const std::string cloud = folder.file("out.opc");
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const std::string text = "1 2 3\n4 5 6\n";
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(ends[1], text.data(), text.size()));
    RunSetting setting;
    setting.inputDescriptor = ends[0];
    setting.awaited = cloud + ".part.cache";
    setting.action = [](int process) { kill(process, SIGINT); };
    const RunResult result = runNimbrel({"build", "-", "-o", cloud}, setting);
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(130, result.status) << result.err;
    EXPECT_TRUE(filesIn(folder).empty());
}
