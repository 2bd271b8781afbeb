#include "edit/EditCloud.h"
#include "engine/EngineTest.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

class KilledEdit : public EngineTest {
protected:
    // Lets the other program edit the cloud and kills it within some milliseconds. True if that cut a change off.
    bool editAndKill(unsigned seed, int microseconds) const {
        std::string words[] = {NIMBREL_EDIT_VICTIM, dir.path("cloud"), dir.path("history"), std::to_string(seed)};
        char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
        pid_t child = 0;
        EXPECT_EQ(0, ::posix_spawn(&child, NIMBREL_EDIT_VICTIM, nullptr, nullptr, arguments, environ));
        ::usleep(static_cast<useconds_t>(microseconds));
        ::kill(child, SIGKILL);
        int status = 0;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_TRUE(WIFSIGNALED(status));
        return std::filesystem::exists(dir.path("cloud.journal"));
    }
};

} // namespace

// As many kills as NIMBREL_KILLS says, else some that take seconds. Every one is followed by a load and a look at each
// node: every point is there, and what is marked agrees with the count. A restored cloud has its built counts.
TEST_F(KilledEdit, LosesNoPoint) {
    const char* asked = std::getenv("NIMBREL_KILLS");
    const int kills = asked ? std::atoi(asked) : 60;
    std::filesystem::create_directory(dir.path("history"));
    int inEdits = 0;
    for (const int version : {17, 18}) {
        Random random(static_cast<unsigned>(version));
        const Bytes original = makeEditCloud(version, 3000, 5);
        const std::vector<StoredNode> built = storedNodes(original);
        dir.write("cloud", original);
        for (int kill = 0; kill < kills / 2; ++kill) {
            inEdits += editAndKill(static_cast<unsigned>(random()), 5000 + upTo(random, 60000)) ? 1 : 0;
            // The next one begins with what this one left, and may die of it as well.
            if (upTo(random, 2) == 0) editAndKill(static_cast<unsigned>(random()), 1000 + upTo(random, 5000));
            const int id = loadPointCloudFile(dir.widePath("cloud").c_str());
            ASSERT_EQ(0, id) << nimbrelLastError();
            const Bytes file = dir.read("cloud");
            const std::vector<StoredNode> stored = storedNodes(file);
            ASSERT_EQ(original.size(), file.size());
            for (size_t n = 0; n < stored.size(); ++n) {
                ASSERT_EQ(built[n].places(version), stored[n].places(version)) << "node " << n << ", kill " << kill;
                int marked = 0;
                for (size_t i = 0; i < stored[n].points.size(); ++i) marked += stored[n].isMarked(i) ? 1 : 0;
                ASSERT_TRUE(version == 17 || marked == 3000 - stored[n].record.pointCount) << n << ", kill " << kill;
            }
            if (upTo(random, 3) == 0) {
                restorePointCloud(id);
                ASSERT_EQ(7 * 3000, getPointCount(id));
            }
            closePointCloud(id);
            ASSERT_FALSE(std::filesystem::exists(dir.path("cloud.journal")));
        }
    }
    std::cout << kills << " kills, " << inEdits << " of them after a first edit\n";
}
