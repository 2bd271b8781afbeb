#include "engine/EngineTest.h"
#include "ground/Pools.h"

#include <cstdlib>
#include <unistd.h>

// shutdownEngine is final for its process, and the end of a process can't be watched from within, so each case runs in
// a child. The diagnostics go to standard output, which the child turns to where the parent looks.

namespace {

class Shutdown : public EngineTest {
protected:
    Shutdown() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // Called in the child once its files are open: it ends without leaving the test.
    void showDiagnostics() {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        dir.remove();
    }

    // What follows a shutdown: loads and closes neither hang nor bring the pools back.
    [[noreturn]] void shutDownWithClouds() {
        loadSmallCloud("first");
        loadSmallCloud("second");
        showDiagnostics();
        shutdownEngine();
        if (pointClouds.size() != 1 || diskPool().accepting || cachePool.accepting) std::exit(1);
        closePointCloud(pointClouds[0]->getID());
        std::exit(pointClouds.empty() && !diskPool().accepting ? 0 : 2);
    }
};

} // namespace

TEST_F(Shutdown, ClosesEverySecondCloudAndJoinsThePoolsInOrder) {
    EXPECT_EXIT(shutDownWithClouds(), testing::ExitedWithCode(0),
                "In pointcloud destructor.*Joining Processor\nJoining Disk\nJoining OPC\nJoining Cache\n");
}

TEST_F(Shutdown, ExitDestroysCloudsThatAreStillOpen) {
    EXPECT_EXIT((loadSmallCloud(), showDiagnostics(), std::exit(0)), testing::ExitedWithCode(0), "Destroying OPC");
}
