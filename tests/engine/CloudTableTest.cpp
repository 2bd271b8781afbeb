#include "engine/EngineTest.h"
#include "ground/Pools.h"

#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {
using CloudTable = EngineTest;
} // namespace

TEST_F(CloudTable, LoadsNothingBeforeAKeyWasAccepted) {
    for (const char* key : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(-1, initEngine(key));
        EXPECT_EQ(-1, loadSmallCloud());
        EXPECT_STREQ("the engine is not armed: no key was accepted", nimbrelLastError());
    }
    EXPECT_EQ(1, initEngine("any"));
    EXPECT_EQ(0, loadSmallCloud());
    EXPECT_STREQ("", nimbrelLastError());
}

TEST_F(CloudTable, RefusesWhatIsNoPointFileAndSaysWhy) {
    const Bytes sound = smallCloud().make();
    dir.write("short", {sound.begin(), sound.begin() + 123});
    dir.write("noise", Bytes(124, 0xA5));
    ASSERT_EQ(0, ::mkfifo(dir.path("pipe").c_str(), 0600));
    const std::pair<std::wstring, const char*> cases[] = {
        {dir.widePath("missing"), "the file does not exist or can't be reached"},
        {dir.widePath("short"), "the file is shorter than a header"},
        {dir.widePath("pipe"), "this is no regular file"}, // opening it would block
        {L"/dev/null", "this is no regular file"},
        {dir.widePath(""), "this is no regular file"},
        {L"", "the file does not exist or can't be reached"},
        {dir.widePath("noise"), "the file is too short for the tree that its header announces"},
    };
    for (const auto& [path, reason] : cases) {
        EXPECT_EQ(-1, loadPointCloudFile(path.c_str())) << reason;
        EXPECT_STREQ(reason, nimbrelLastError());
    }
    EXPECT_EQ(-1, loadPointCloudFile(nullptr));
    EXPECT_TRUE(pointClouds.empty());
}

TEST_F(CloudTable, FirstOpenerOfAPathMayWrite) {
    const std::wstring path = dir.writeWide("cloud", smallCloud().make());
    EXPECT_EQ(0, loadPointCloudFile(path.c_str()));
    EXPECT_EQ(1, loadPointCloudFile(path.c_str()));
    EXPECT_TRUE(findCloud(0)->isWritable());
    EXPECT_FALSE(findCloud(1)->isWritable());
    closePointCloud(0);
    EXPECT_EQ(1, loadPointCloudFile(path.c_str())); // one still has the path
    EXPECT_FALSE(pointClouds.back()->isWritable());
}

TEST_F(CloudTable, OpensAFileWithoutWritePermissionForReading) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may write to every file";
    const std::wstring path = dir.writeWide("cloud", smallCloud().make());
    ASSERT_EQ(0, ::chmod(dir.path("cloud").c_str(), 0400));
    EXPECT_EQ(0, loadPointCloudFile(path.c_str()));
    EXPECT_FALSE(findCloud(0)->isWritable());
}

TEST_F(CloudTable, OpensPathsBeyondAscii) {
    dir.write("W\xC3\xBCste \xF0\x9F\x8F\x9C", smallCloud().make()); // the name as the system has it
    EXPECT_EQ(0, loadPointCloudFile((dir.widePath("W") + L"\u00FCste \U0001F3DC").c_str()));
}

TEST_F(CloudTable, GivesTheTableSizeAsIdEvenIfTaken) {
    for (int id = 0; id < 3; ++id) EXPECT_EQ(id, loadSmallCloud("cloud" + std::to_string(id)));
    const PointCloud* older = findCloud(2);
    closePointCloud(0);
    EXPECT_EQ(2, loadSmallCloud("another"));
    EXPECT_EQ(older, findCloud(2));
    closePointCloud(2);
    EXPECT_NE(nullptr, findCloud(2));
}

TEST_F(CloudTable, ResetClosesEverySecondCloud) {
    for (int i = 0; i < 4; ++i) loadSmallCloud("cloud" + std::to_string(i));
    reset();
    ASSERT_EQ(2U, pointClouds.size());
    EXPECT_EQ(1, pointClouds[0]->getID());
    EXPECT_EQ(3, pointClouds[1]->getID());
    reset();
    EXPECT_EQ(1U, pointClouds.size());
    reset();
    EXPECT_TRUE(pointClouds.empty());
}

TEST_F(CloudTable, ClosingAnUnknownIdOnlySetsTheChangedFlag) {
    loadSmallCloud();
    pointCloudsChanged = false;
    closePointCloud(7);
    EXPECT_TRUE(pointCloudsChanged);
    EXPECT_EQ(1U, pointClouds.size());
    EXPECT_TRUE(diskPool().accepting);
}

TEST_F(CloudTable, TakesSwitchesAsBytesAndKeepsWhatOtherExportsSet) {
    loadSmallCloud();
    PointCloud& cloud = *findCloud(0);
    EXPECT_EQ(30, cloud.getProperties().lodFactor);
    cloud.changeProperties([](PointCloudProperties& p) { p.hideSelectedPoints = 1, p.propertyS0 = 513; });
    setPointCloudProperties(0, 1, 2, 259, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    const PointCloudProperties now = cloud.getProperties();
    const int numbers[] = {now.lodFactor,     now.colourMode,         now.smoothing, now.useLasColours,
                           now.ignoreClipBox, now.hideSelectedPoints, now.propertyS0};
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 1, 513}), std::vector<int>(std::begin(numbers), std::end(numbers)));
    const float floats[] = {now.pointSize, now.pointRatio, now.red,   now.green,    now.blue,      now.brightness,
                            now.contrast,  now.opacity,    now.range, now.strength, now.resolution};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(static_cast<float>(6 + i), floats[i]) << i;
}

TEST_F(CloudTable, OpensAndClosesFromSeveralThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        const std::wstring path = dir.writeWide("cloud" + std::to_string(t), smallCloud().make());
        threads.emplace_back([path] {
            for (int i = 0; i < 30; ++i) {
                const int id = loadPointCloudFile(path.c_str());
                EXPECT_GE(id, 0);
                getPointCount(id);
                setScale(id, 2.0);
                unregisterWindow(0);
                closePointCloud(id);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(diskPool().accepting);
}
