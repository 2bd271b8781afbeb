// Frames on the host's framebuffer: what is drawn where, and what is left behind.

#include "render/FrameTest.h"

using Places = std::vector<std::array<int, 2>>;

TEST_F(FrameTest, DrawsPointsAtTheirPixelsAndNothingElse) {
    load({{0, 0, 0, {255, 0, 0, 1, 2}}, {79, 39, 0, {0, 255, 0, 1, 2}}, {40, 20, 15, {1, 2, 3, 1, 2}}});
    look();
    freshFrame();
    EXPECT_EQ((Places{{0, 0}, {40, 20}, {79, 39}}), picture->drawn());
    EXPECT_EQ((Pixel{255, 0, 0}), picture->at(0, 0));
    EXPECT_EQ((Pixel{0, 255, 0}), picture->at(79, 39));
    EXPECT_EQ((Pixel{1, 2, 3}), picture->at(40, 20));
}
