#include "edit/EditCloud.h"
#include "edit/HistoryGroup.h"
#include "engine/EngineTest.h"
#include "stream/OPC.h"

#include <functional>

namespace {

constexpr double EVERYWHERE[4] = {0, 0, 0, 1e6};
constexpr double BIG_BOX[15] = {0, 0, 0, 1, 0, 0, 1e6, 0, 1, 0, 1e6, 0, 0, 1, 1e6};
constexpr unsigned char GREY[5] = {};

NimbrelMatrix scaling(double x) {
    return {{x, 0, 0, 0, 0, x, 0, 0, 0, 0, x, 0, 0, 0, 0, 1}};
}

void selectOnScreen() {
    const int viewport[] = {0, 0, 100, 100};
    const int corners[] = {0, 0, 100, 0, 100, 100, 0, 100};
    selectPointsByScreen(scaling(1), scaling(0.05), viewport, corners, 4, false, false);
}

// Half the space: x is at most `limit`.
void clipAt(double limit) {
    double planes[36] = {};
    planes[0] = 1, planes[3] = limit;
    const float tint[4] = {};
    activateClipBox(planes, tint, 0);
}

class SelectionExports : public EngineTest {
protected:
    ~SelectionExports() override { selectPointsByVolume(nullptr, 0, false, false); } // which disarms

    // A digit for each cloud.
    template <typename Number>
    static std::string byCloud(Number number) {
        std::string all;
        for (const auto& cloud : pointClouds) all += std::to_string(number(*cloud));
        return all;
    }
    static std::string selectedByCloud() {
        return byCloud([](const PointCloud& cloud) {
            int64_t count = 0;
            cloud.getOPC().getRootNode()->getSelectedPointsCount(&count);
            return count;
        });
    }
};

} // namespace

TEST_F(SelectionExports, TakePartByTheStateOfTheCloud) {
    const int plain = loadSmallCloud("plain");
    setEnabled(loadSmallCloud("disabled"), false);
    setMask(loadSmallCloud("masked"), true);
    setProtection(loadSmallCloud("protected"), 1, 0);
    ASSERT_GE(loadPointCloudFile(dir.widePath("plain").c_str()), 0); // the second to open a path reads only
    const auto matching = [] { activateMatch(true, false, GREY, 255, 0); };
    const auto clearedOf = [](auto operation) {
        for (const auto& cloud : pointClouds) cloud->getOPC().getRootNode()->selectAllPoints();
        operation();
    };
    const std::tuple<const char*, std::function<void()>, const char*> cases[] = {
        {"sphere", [] { selectPointsByVolume(EVERYWHERE, 4, false, true); }, "40000"},
        {"box", [] { selectPointsByVolume(BIG_BOX, 15, false, false); }, "40004"},
        {"polygon", [] { selectOnScreen(); }, "40000"},
        {"everything", [] { selectAllPoints(); }, "40004"},
        {"everything that matches", [&] { matching(), selectAllPoints(); }, "40004"},
        {"inverted", [] { invertSelectedPoints(); }, "40004"},
        {"cleared", [&] { clearedOf([] { clearSelectedPoints(); }); }, "04000"},
        {"unmarked by a sphere", [&] { clearedOf([] { selectPointsByVolume(EVERYWHERE, 4, true, false); }); }, "04444"},
        {"no shape", [] { selectPointsByVolume(EVERYWHERE, 5, false, false); }, "00000"},
        {"no data", [] { selectPointsByVolume(nullptr, 4, false, false); }, "00000"},
    };
    for (const auto& [name, operation, expected] : cases) {
        for (const auto& cloud : pointClouds) cloud->getOPC().getRootNode()->clearSelectedPoints();
        operation();
        EXPECT_EQ(expected, selectedByCloud()) << name;
    }
    for (const auto& cloud : pointClouds) cloud->getOPC().getRootNode()->selectAllPoints();
    EXPECT_EQ(16, getSelectedPointsCount()) << "masks and protection do not matter, disabling does";

    setHideSelectedPoints(plain, true);
    EXPECT_EQ(1, findCloud(plain)->getProperties().hideSelectedPoints);
    setHideSelectedPoints(99, true);

    const auto points = [](const PointCloud& cloud) { return getPointCount(cloud.getID()); };
    setLasValueOnSelectedPoints(300);
    deleteSelectedPoints();
    EXPECT_EQ("04404", selectedByCloud()) << "protection does not matter";
    EXPECT_EQ("04404", byCloud(points));
    setEnabled(plain, false);
    for (int id = 0; id < 99; ++id) restorePointCloud(id);
    EXPECT_EQ("44444", byCloud(points));
    EXPECT_EQ("10011", byCloud([](const PointCloud& cloud) { // the last one shows the file of the first
                  double places[6];
                  char colours[10];
                  getNodePoints(cloud.getID(), 0, places, colours);
                  return colours[4] == 44;
              }));
}

TEST_F(SelectionExports, DisarmTheFilters) {
    loadSmallCloud();
    const auto armed = [](const std::function<void()>& operation) {
        clipAt(99);
        activateMatch(true, true, GREY, 0, 0);
        activateColourProcess(GREY, 100, 0);
        operation();
        return std::array{clipBox.isActive(), match.isActive(), pointEditor.isActive(), processingAtomic.load()};
    };
    constexpr std::array NONE{false, false, false, false};
    const int two[4] = {};
    EXPECT_EQ(NONE, armed([] { selectPointsByVolume(EVERYWHERE, 5, false, false); }));
    EXPECT_EQ(NONE, armed([] { selectPointsByVolume(EVERYWHERE, 4, false, false); }));
    EXPECT_EQ(NONE, armed([&] { selectPointsByScreen(scaling(1), scaling(1), two, two, 2, false, true); }));
    EXPECT_EQ((std::array{false, false, true, false}), armed([] { selectAllPoints(); }));
    EXPECT_EQ((std::array{true, true, true, false}), armed([] { invertSelectedPoints(), clearSelectedPoints(); }));
    activateMatch(true, false, nullptr, 0, 0); // nothing to match
    activateColourProcess(nullptr, 0, 0);
    selectAllPoints();
    EXPECT_EQ(0, getSelectedPointsCount()) << "the match that was armed before, of black";
}

TEST_F(SelectionExports, HalveTheAmountsOfLight) {
    const std::tuple<int, bool, int> cases[] = {{-7, true, 97}, {41, true, 120}, {-201, false, 127}};
    for (const auto& [amount, brightness, expected] : cases) {
        unsigned char colour[4] = {100, 100, 100, 100};
        activateLuminanceProcess(amount, brightness);
        pointEditor.process(colour);
        EXPECT_EQ(expected, colour[0]) << amount;
    }
}

TEST_F(SelectionExports, TurnTheClipBoxOffBehindACloudThatIgnoresIt) {
    for (const char* name : {"a", "b", "c"}) loadSmallCloud(name);
    pointClouds[1]->changeProperties([](PointCloudProperties& properties) { properties.ignoreClipBox = 1; });
    clipAt(-1);
    selectPointsByVolume(EVERYWHERE, 4, false, false);
    EXPECT_EQ("044", selectedByCloud());
}

TEST_F(SelectionExports, LeaveBitsAsTheNextOperationExpectsThem) {
    const int id = loadSmallCloud();
    OPCInterface& root = *findCloud(id)->getOPC().getRootNode();
    const double between[4] = {0.5, 1, 0.25, 1.2}; // holds both of the root's points and one child's
    selectPointsByVolume(between, 4, true, false);
    EXPECT_TRUE(root.hasSelectionBits()) << "a node that was looked at";
    invertSelectedPoints();
    EXPECT_EQ(4, getSelectedPointsCount());
    root.setSelectionBits({true}); // shorter than the points
    selectPointsByVolume(between, 4, false, false);
    EXPECT_EQ(2U, root.getSelectionBits().size());
    invertSelectedPoints();
    EXPECT_TRUE(root.hasSelectionBits()) << "all clear, not empty";
    clearSelectedPoints();
    EXPECT_FALSE(root.hasSelectionBits());
}

TEST_F(SelectionExports, LeaveANodeThatCannotBeReadAsItIs) {
    PointFileMaker maker(17);
    maker.add({.mask = 5, .pointCount = 2, .location = 1 << 20});
    maker.add({.pointCount = 1, .stored = fixedPoint(10000, 10000, 10000, 1)});
    const Bytes before = maker.make();
    const int id = loadPointCloudFile(dir.writeWide("hollow", before).c_str());
    OPCInterface& root = *findCloud(id)->getOPC().getRootNode();
    const double part[4] = {0, 0, 0, 3};
    selectPointsByVolume(part, 4, false, false);
    EXPECT_FALSE(root.hasSelectionBits());
    EXPECT_EQ(1, getSelectedPointsCount()) << "the child's";
    EXPECT_STREQ("points of the file can't be read, so that they stay as they are", nimbrelLastError());
    clearSelectedPoints();
    const double around[9] = {-1e3, -1e3, 0, 1e3, -1e3, 0, 0, 1e3, 0};
    selectPointsByTriangle(around, nullptr, 1e5, 0);
    EXPECT_EQ(1, getSelectedPointsCount()) << "the child's";
    EXPECT_EQ(before, dir.read("hollow"));
    activateLuminanceProcess(200, true);
    selectPointsByVolume(part, 4, true, false); // cut nodes are painted, wholes unmarked
    selectAllPoints();                          // without a look at points
    double places[9];
    char colours[15];
    getSelectedPoints(places, colours, 0, 3);
    EXPECT_EQ(0, places[0]);
    EXPECT_EQ(double{10000 * 0.0001F}, places[6]);
    EXPECT_STREQ("selected points can't be read", nimbrelLastError());
}

// A box reaches the read-only cloud too, whose file another one has open for writing.
TEST_F(SelectionExports, PaintNothingThatReadsOnlyOrHasNoRoomForABackup) {
    const Bytes before = makeEditCloud(17, 50, 1);
    const int id = loadPointCloudFile(dir.writeWide("kept", before).c_str());
    loadPointCloudFile(dir.widePath("kept").c_str());
    const unsigned char rgb[3] = {1, 2, 3};
    setMask(id, true);
    activateColourProcess(rgb, 100, 100);
    selectPointsByVolume(BIG_BOX, 15, false, false);
    setMask(id, false);
    startHistoryRecording(dir.widePath("").c_str(), HistoryType::POINTS);
    dwFreeBytes = 1 << 30;
    for (const double radius : {3.0, 1e6}) {
        const double sphere[4] = {0, 0, 0, radius};
        activateColourProcess(rgb, 100, 100);
        selectPointsByVolume(sphere, 4, false, false);
    }
    EXPECT_FALSE(stopHistoryRecording());
    EXPECT_TRUE(before == dir.read("kept"));
}
