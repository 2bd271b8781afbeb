// What colour a point gets: from its attributes, its class, the light, a plane, the clip box and the passes.

#include "render/FrameTest.h"
#include "stream/OPC.h"

#include <cmath>
#include <functional>
#include <tuple>

namespace {

constexpr Pixel NOTHING = HostPicture::BACKGROUND;
constexpr Pixel OWN{200, 100, 50}; // of a TestPoint, whose intensity is 128 and whose class is 2

using Change = std::function<void(PointCloudProperties&)>;

// Colours that were blended in 8 bits are right to one step for each blending.
void expectNear(const Pixel& expected, const Pixel& found, int steps, const std::string& name = "") {
    EXPECT_NEAR(expected.r, found.r, steps) << name;
    EXPECT_NEAR(expected.g, found.g, steps) << name;
    EXPECT_NEAR(expected.b, found.b, steps) << name;
}

} // namespace

class Colours : public FrameTest {
protected:
    // The one point of the cloud, before it is loaded.
    static void select() {
        OPCInterface& root = *pointClouds[0]->getOPC().getRootNode();
        root.setSelectionBits(std::vector<bool>(1, true));
    }
    // In perspective, from 5 above the floor, with the point at pixel 10, 10 in the middle of pixel 40, 20.
    void lookFromAbove() {
        view = glm::translate(glm::dmat4(1.0), glm::dvec3(-1.05, -1.05, -5.0));
        projection =
            glm::translate(glm::dmat4(1.0), {1.0 / WIDTH, 1.0 / HEIGHT, 0.0}) * glm::perspective(1.0, 2.0, 1.0, 50.0);
        look();
    }
};

TEST_F(Colours, FollowTheProperties) {
    const int id = load({{10, 10}});
    look();
    const std::tuple<const char*, Change, Pixel> cases[] = {
        {"intensity", [](auto& p) { p.colourMode = 0; }, {128, 128, 128}},
        {"colour", [](auto&) {}, OWN},
        {"intensity as hue", [](auto& p) { p.colourMode = 2; }, {0, 252, 255}},
        {"any other mode", [](auto& p) { p.colourMode = -7; }, OWN},
        {"channels", [](auto& p) { p.red = 20, p.green = -20, p.blue = -100; }, {251, 49, 0}},
        {"contrast", [](auto& p) { p.contrast = 50; }, {236, 86, 11}},
        {"brightness", [](auto& p) { p.brightness = 60; }, {251, 151, 101}},
        {"contrast before brightness", [](auto& p) { p.contrast = 50, p.brightness = -30; }, {211, 61, 0}},
    };
    for (const auto& [name, change, expected] : cases) {
        setProperties(id, change);
        EXPECT_EQ(expected, shown(10, 10)) << name;
    }
}

TEST_F(Colours, SnapPlacesToTheResolution) {
    const int id = load({{12, 5}});
    look();
    setProperties(id, [](auto& p) { p.resolution = 0.35F; }); // 1.25 and 0.55 to 1.05 and 0.35
    EXPECT_EQ(OWN, shown(10, 3));
    EXPECT_EQ(NOTHING, picture->at(12, 5));
}

TEST_F(Colours, FollowTheClassTable) {
    const int id = load({{10, 10}, {20, 10, 0, {9, 9, 9, 9, 255}}});
    look();
    std::array<unsigned char, 1024> table{};
    table[4 * 2] = 11, table[4 * 2 + 1] = 22, table[4 * 2 + 2] = 33;
    table[4 * 255 + 3] = 1;
    setLasClassifications(table.data());
    EXPECT_EQ(OWN, shown(10, 10)) << "not asked for";
    EXPECT_EQ(NOTHING, picture->at(20, 10)) << "hidden all the same";
    setProperties(id, [](auto& p) { p.useLasColours = 1; });
    EXPECT_EQ((Pixel{11, 22, 33}), shown(10, 10));
    setProperties(id, [](auto& p) { p.useLasColours = 1, p.colourMode = 0; });
    EXPECT_EQ((Pixel{128, 128, 128}), shown(10, 10)) << "intensity goes first";
}

TEST_F(Colours, ShowSelectedPoints) {
    load({{10, 10}});
    select();
    look();
    expectNear({77, 255, 77}, shown(10, 10), 1); // 0.3, 1.0, 0.3
    lightState = 2;
    expectNear({92, 255, 92}, shown(10, 10), 1, "in the shading");
    lightState = 0;
    pointClouds[0]->changeProperties([](PointCloudProperties& p) { p.hideSelectedPoints = 1; });
    EXPECT_EQ(NOTHING, shown(10, 10));
    std::array<unsigned char, 1024> table{};
    table[4 * 2 + 3] = 1;
    pointClouds[0]->changeProperties([](PointCloudProperties& p) { p.hideSelectedPoints = 0; });
    setLasClassifications(table.data());
    EXPECT_EQ(NOTHING, shown(10, 10)) << "a hidden class, selected or not";
}

TEST_F(Colours, AreLit) {
    load({{10, 10}, {30, 10}}); // apart: no neighbour bends the normal, which points at the camera
    look();
    const std::tuple<const char*, int, glm::vec3, Pixel> cases[] = {
        {"from the camera", 1, {0, 0, -1}, {240, 120, 60}},            // 1.2 times
        {"of any length", 1, {0, 0, -9}, {240, 120, 60}},              //
        {"at 60 degrees", 1, {std::sqrt(3.0F), 0, -1}, {173, 87, 43}}, // 2.6 thirds
        {"from the side", 1, {-1, 0, 0}, {107, 53, 27}},               // 1.6 thirds
        {"no light", 1, {0, 0, 0}, {107, 53, 27}},                     //
        {"shading from the camera", 2, {0, 0, -1}, {255, 255, 255}},
        {"shading at 60 degrees", 2, {std::sqrt(3.0F), 0, -1}, {127, 127, 127}},
        {"shading without light", 2, {0, 0, 0}, {0, 0, 0}},
        {"off", 0, {0, 0, -1}, OWN},
    };
    for (const auto& [name, state, direction, expected] : cases) {
        lightState = state;
        light = direction;
        expectNear(expected, shown(10, 10), state == 0 ? 0 : 1, name);
    }
}

// A slope of depth towards the right turns the normal.
TEST_F(Colours, AreLitByTheSlopeOfTheSurface) {
    std::vector<TestPoint> slope;
    for (int x = 0; x < 20; ++x) {
        for (int y = 0; y < 20; ++y) slope.push_back({x, y, x});
    }
    load(slope);
    look();
    lightState = 2;
    light = {1.0F, 0.0F, -1.0F}; // from the left above
    const Pixel left = shown(10, 10);
    light = {-1.0F, 0.0F, -1.0F};
    const Pixel right = shown(10, 10);
    EXPECT_NE(left, right);
    // Depth at 1 and -1.2222: the formula gives 2 / (2.2222 d - 0.2222), and d falls by 0.005 a pixel.
    const auto linear = [](double d) { return 2.0 / (2.0 / 0.9 * d - 0.2 / 0.9); };
    const double d = 0.5;
    const double rise = linear(d - 0.005) - linear(d + 0.005);
    // Both differences are taken from left to right.
    const glm::dvec3 normal = glm::normalize(glm::dvec3(rise * WIDTH / 2.0, rise * HEIGHT / 2.0, linear(d)));
    const double expected = glm::dot(normal, glm::normalize(glm::dvec3(1.0, 0.0, 1.0)));
    expectNear({static_cast<int>(expected * 255), static_cast<int>(expected * 255), static_cast<int>(expected * 255)},
               right, 2);
}

TEST_F(Colours, RunWithTheDistanceFromAPlane) {
    load({{10, 10, 0}, {11, 10, 10}, {12, 10, 12}, {13, 10, 20}});
    look();
    struct Case {
        const char* name;
        int x; // of the point that is looked at
        float blend, offset, shadDist;
        int repeat;
        bool hue;
        Pixel expected;
    };
    const Case cases[] = {
        {"at the plane", 10, 0, 0, 2, 0, false, {255, 0, 0}},
        {"half way", 11, 0, 0, 2, 0, false, {0, 255, 0}},
        {"at the end", 13, 0, 0, 2, 0, false, {0, 0, 255}},
        {"clamped beyond", 13, 0, 0, 1, 0, false, {0, 0, 255}},
        {"clamped before", 10, 0, 1, 2, 0, false, {255, 0, 0}},
        {"shifted", 11, 0, 1, 2, 0, false, {255, 0, 0}},
        {"own colour", 11, 1, 0, 2, 0, false, OWN},
        {"in the band", 11, 0, 0, 2, 1, false, {0, 255, 0}},
        {"below the band", 11, 0, 1.5F, 2, 1, false, OWN},
        {"above the band", 13, 0, 0, 1, 1, false, OWN},
        {"repeated", 12, 0, 0, 0.8F, 2, false, {0, 255, 0}},
        {"rainbow", 11, 0, 0, 2, 0, true, {0, 255, 140}},
    };
    const double normal[] = {0, 0, 5};
    const double point[] = {3, 3, 0};
    const float colours[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (const Case& row : cases) {
        activateShader(normal, point, row.blend, row.offset, row.shadDist, row.repeat, row.hue, colours[0], colours[1],
                       colours[2]);
        expectNear(row.expected, shown(row.x, 10), 1, row.name);
    }
    EXPECT_EQ(OWN, shown(10, 10)) << "armed for one frame";
}

TEST_F(Colours, AreClippedByTheBox) {
    const int id = load({{40, 20}, {10, 5}, {20, 20}});
    look();
    const auto clip = [](int mode) { clipTo({2.04, 1, -1}, {6, 3, 3}, mode, {0, 0, 255, 51}); };
    constexpr Pixel TINTED{160, 80, 91};
    constexpr Pixel RIM{0, 0, 255};
    const std::tuple<int, Pixel, Pixel, Pixel> cases[] = {
        {0, TINTED, NOTHING, TINTED}, {1, TINTED, OWN, TINTED}, {2, TINTED, NOTHING, RIM}, {-1, OWN, OWN, OWN}};
    for (const auto& [mode, inside, outside, atFace] : cases) {
        clip(mode);
        EXPECT_EQ(inside, shown(40, 20)) << mode;
        EXPECT_EQ(outside, picture->at(10, 5)) << mode;
        EXPECT_EQ(atFace, picture->at(20, 20)) << mode;
        EXPECT_FALSE(clipBox.isActive());
    }
    EXPECT_EQ(OWN, shown(10, 5)) << "armed for one frame";
    processingAtomic = true;
    clip(0);
    EXPECT_EQ(NOTHING, shown(10, 5));
    EXPECT_EQ(NOTHING, shown(10, 5)) << "stays armed while a selection runs";
    processingAtomic = false;
    setProperties(id, [](auto& p) { p.ignoreClipBox = 1; });
    clip(0);
    EXPECT_EQ(OWN, shown(10, 5));
    EXPECT_FALSE(glIsEnabled(GL_CLIP_DISTANCE0));
}

// One point of opacity 50 gives 0.4 of alpha, halved by the strength; blending squares it.
TEST_F(Colours, OfATransparentCloudAreBlended) {
    const int id = load({{10, 10}});
    setProperties(id, [](auto& p) { p.opacity = 50.0F; });
    lookFromAbove();
    freshFrame();
    // 255 * 0.2 * 0.2 is 10 of alpha, and as much of it of the host's colour is replaced by the saturated red.
    expectNear({10 + 10 * 245 / 255, 10 + 20 * 245 / 255, 5 + 30 * 245 / 255}, picture->at(40, 20), 2);
    EXPECT_EQ(1U, picture->drawn().size());
}

TEST_F(Colours, OfASmoothedCloudAreSummedByWeight) {
    const int id = load({{10, 10, 0, {50, 60, 70, 1, 2}}});
    // As near as the lower limit of the size: 1.5 times 6.
    setProperties(id, [](auto& p) { p.smoothing = 1, p.pointSize = 6.0F, p.pointRatio = 0.0F; });
    lookFromAbove();
    freshFrame();
    // In the middle the weight is 2: the colour doubles, and alpha saturates at 1.
    expectNear({100, 120, 140}, picture->at(40, 20), 2);
    const size_t size = picture->drawn().size();
    EXPECT_GE(size, 57U) << "a disc of diameter 9";
    EXPECT_LE(size, 69U);
    EXPECT_EQ(NOTHING, picture->at(36, 16)) << "the corner is cut off";
}
