#include "edit/HistoryGroup.h"
#include "engine/EngineTest.h"
#include "format/PointStream.h"
#include "stream/OPC.h"

#include <cmath>
#include <functional>
#include <random>

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

    static int selected(const PointCloud& cloud) {
        int64_t count = 0;
        cloud.getOPC().getRootNode()->getSelectedPointsCount(&count);
        return static_cast<int>(count);
    }
    static std::string selectedByCloud() {
        std::string all;
        for (const auto& cloud : pointClouds) all += std::to_string(selected(*cloud));
        return all;
    }
};

// ---- A cloud whose points can be painted outside of the engine

struct Point {
    uint64_t code; // version 18; else the number of the point
    glm::dvec3 place;
    std::array<unsigned char, 5> attributes;
    bool isDeleted;
};

// Three nodes of 1000 points; every tenth, or of version 17 the last hundred, are deleted.
struct Model {
    explicit Model(int versionIn) : version(versionIn) {
        std::mt19937 random(9);
        for (size_t node = 0; node < nodes.size(); ++node) {
            uint64_t code = 0;
            for (unsigned i = 0; i < 1000; ++i) {
                code += random() % 2000;
                Point point{code, {}, {}, version == 18 ? i % 10 == 0 : i >= 900};
                for (auto& byte : point.attributes) byte = static_cast<unsigned char>(random());
                point.attributes[4] &= 1;
                for (int axis = 0; axis < 3; ++axis) {
                    const uint64_t ordinate =
                        version == 18 ? every3(code >> axis) : random() % (axis == 0 ? 40000 : 20000);
                    raw[node].push_back(static_cast<uint32_t>(ordinate));
                    const float relative = version == 18 ? static_cast<float>(static_cast<double>(ordinate) * 0.01)
                                                         : static_cast<float>(ordinate) * 0.0001F;
                    point.place[axis] = double{relative} + (node == 2 && axis == 0 ? 4.0 : 0.0);
                }
                nodes[node].push_back(point);
            }
        }
    }

    // Every third bit, from the lowest on.
    static uint64_t every3(uint64_t v) {
        uint64_t out = 0;
        for (int i = 0; i < 21; ++i) out |= (v >> (3 * i) & 1) << i;
        return out;
    }

    [[nodiscard]] Bytes stored(size_t node) const {
        Bytes out;
        uint64_t previous = 0;
        for (size_t i = 0; i < nodes[node].size(); ++i) {
            const Point& point = nodes[node][i];
            const auto& a = point.attributes;
            if (version == 18) {
                uint64_t delta = point.code - std::exchange(previous, point.code);
                for (; delta >= 128; delta /= 128) out.push_back(static_cast<unsigned char>(delta % 128 + 128));
                out.push_back(static_cast<unsigned char>(delta));
                const unsigned word = (point.isDeleted ? 1U : 0U) | a[2] / 16U * 2U | a[1] / 8U * 32U |
                                      a[0] / 8U * 1024U | a[3] / 8U * 32768U | a[4] % 16U * 1048576U;
                putLittle(out, word, 3);
            } else {
                Bytes record = fixedPoint(raw[node][3 * i], raw[node][3 * i + 1], raw[node][3 * i + 2], 0);
                std::copy(a.begin(), a.end(), record.end() - 5);
                out.insert(out.end(), record.begin(), record.end());
            }
        }
        return out;
    }

    [[nodiscard]] Bytes make() const {
        PointFileMaker maker(version);
        maker.pointCount = 2700;
        for (size_t node = 0; node < nodes.size(); ++node) {
            maker.add({.mask = static_cast<uint8_t>(node == 0 ? 7 : 4),
                       .pointCount = 900,
                       .stored = stored(node),
                       .filter = 100,
                       .originalCount = 1000});
        }
        return maker.make();
    }

    // Paints what `passes`, by what the file shows of a point.
    void paint(const std::function<bool(const Point&)>& passes, const std::function<void(unsigned char*)>& change) {
        for (auto& node : nodes) {
            for (Point& point : node) {
                constexpr std::array<unsigned char, 5> KEPT{0xF8, 0xF8, 0xF0, 0xF8, 0x0F};
                for (size_t k = 0; version == 18 && k < 5; ++k) point.attributes[k] &= KEPT[k];
                if (!point.isDeleted && passes(point)) change(point.attributes.data());
            }
        }
    }

    int version;
    std::array<std::vector<Point>, 3> nodes;
    std::array<std::vector<uint32_t>, 3> raw;
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
    activateLuminanceProcess(200, true);
    const Bytes clear = dir.read("hollow");
    EXPECT_EQ(before, clear);
    selectPointsByVolume(part, 4, true, false); // cut nodes are painted, wholes unmarked
    selectAllPoints();                          // without a look at points
    double places[9];
    char colours[15];
    getSelectedPoints(places, colours, 0, 3);
    EXPECT_EQ(0, places[0]);
    EXPECT_EQ(double{10000 * 0.0001F}, places[6]);
    EXPECT_STREQ("selected points can't be read", nimbrelLastError());
}

TEST_F(SelectionExports, PaintTheBytesOfThePointsThatPass) {
    unsigned char hiding[1024] = {};
    hiding[4 * 1 + 3] = 1;
    for (const int version : {17, 18}) {
        Model model(version);
        const int id = loadPointCloudFile(dir.writeWide("painted", model.make()).c_str());
        const int readOnly = loadPointCloudFile(dir.widePath("painted").c_str());
        const double sphere[4] = {2, 0.5, 0.5, 1.5};
        const auto isIn = [&](const Point& point) {
            return glm::distance(point.place, glm::dvec3(sphere[0], sphere[1], sphere[2])) <= sphere[3];
        };
        // Some of the points of all nodes: contrast, among visible classes.
        setLasClassifications(hiding);
        activateLuminanceProcess(-201, false);
        selectPointsByVolume(sphere, 4, false, false);
        model.paint([&](const Point& point) { return isIn(point) && point.attributes[4] == 0; },
                    [](unsigned char* colour) { std::fill_n(colour, 3, static_cast<unsigned char>(127)); });
        std::fill_n(hiding + 7, 1, static_cast<unsigned char>(0));
        setLasClassifications(hiding);
        hiding[4 * 1 + 3] = 1;
        // Deselecting paints cut nodes, and unmarks whole ones instead: of these there are none.
        activateLuminanceProcess(41, true);
        selectPointsByVolume(sphere, 4, true, false);
        model.paint(isIn, [](unsigned char* colour) {
            for (int k = 0; k < 3; ++k) colour[k] = static_cast<unsigned char>(std::min(255, colour[k] + 20));
        });
        // Whole nodes, over both clouds: the one that reads only stays out of it.
        const unsigned char rgb[3] = {250, 130, 10};
        activateColourProcess(rgb, 100, 50);
        selectPointsByVolume(EVERYWHERE, 4, false, false);
        model.paint([](const Point&) { return true; },
                    [&](unsigned char* colour) {
                        for (int k = 0; k < 3; ++k) {
                            colour[k] = static_cast<unsigned char>(static_cast<int>(colour[k] / 100.0F * 50.0F) +
                                                                   static_cast<int>(rgb[k] / 100.0F * 50.0F));
                        }
                    });
        activateColourProcess(rgb, 100, 50);
        selectPointsByVolume(BIG_BOX, 15, true, false); // which unmarks
        EXPECT_EQ(0, getSelectedPointsCount()) << "painted points are not selected";
        closePointCloud(readOnly);
        closePointCloud(id);
        EXPECT_TRUE(model.make() == dir.read("painted")) << version;
    }
}

// A box reaches the read-only cloud too, whose file another one has open for writing.
TEST_F(SelectionExports, PaintNothingThatReadsOnlyOrHasNoRoomForABackup) {
    Model model(17);
    const Bytes before = model.make();
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
