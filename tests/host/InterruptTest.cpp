#include "ProgramRunner.h"
#include "TestFiles.h"

#include <csignal>
#include <fcntl.h>
#include <set>
#include <unistd.h>

// A signal at the moment when a file of the command's own appears, which is the worst one: nothing may stay behind.

static std::set<std::string> filesIn(const TemporaryFolder& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) names.insert(entry.path().filename());
    return names;
}

TEST(Interrupt, LeavesNothingBehind) {
    const TemporaryFolder folder;
    const std::string sample = folder.file("town.ply");
    const std::string cloud = folder.file("town.opc");
    const std::string output = folder.file("out");
    ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "3000000"}).status);
    ASSERT_EQ(0, runNimbrel({"build", sample, "-o", cloud}).status);
    const std::set<std::string> before = filesIn(folder);
    struct Case {
        std::vector<std::string> arguments;
        const char* awaited;
        int signal;
    };
    const Case cases[] = {
        {{"build", sample, "-o", output + ".opc"}, ".opc.part", SIGINT},
        {{"build", sample, "-o", output + ".opc", "--compressed"}, ".opc.part.scratch", SIGTERM},
        {{"points", cloud, "-o", output + ".csv"}, ".csv.part", SIGINT},
        {{"render", cloud, "-o", output + ".ppm", "--point-size", "1"}, ".ppm.part", SIGINT},
        {{"export", cloud, "-o", output + ".obj", "--voxel", "0.05"}, ".obj.parts", SIGINT},
        {{"sample", output + ".las", "--points", "5000000"}, ".las.part", SIGHUP},
    };
    for (const Case& entry : cases) {
        RunSetting setting;
        setting.awaited = output + entry.awaited;
        setting.action = [&entry](int process) { kill(process, entry.signal); };
        const RunResult result = runNimbrel(entry.arguments, setting);
        EXPECT_EQ(128 + entry.signal, result.status) << entry.arguments[0] << entry.awaited << result.err;
        EXPECT_TRUE(result.err.ends_with("nimbrel: interrupted\n")) << result.err;
        EXPECT_EQ("", result.out);
        EXPECT_EQ(before, filesIn(folder)) << entry.arguments[0] << entry.awaited;
    }
}

// A build that replaces a file and is interrupted leaves the old file as it was.
TEST(Interrupt, KeepsTheFileThatWasToBeReplaced) {
    const TemporaryFolder folder;
    const std::string sample = folder.file("town.ply");
    ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "2000000"}).status);
    const std::string cloud = folder.write("town.opc", "the old one");
    RunSetting setting;
    setting.awaited = cloud + ".part";
    setting.action = [](int process) { kill(process, SIGINT); };
    EXPECT_EQ(130, runNimbrel({"build", sample, "-o", cloud, "--force"}, setting).status);
    EXPECT_EQ("the old one", bytesOf(cloud));
    EXPECT_EQ(2U, filesIn(folder).size());
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
