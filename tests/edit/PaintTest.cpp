#include "edit/PointEditor.h"

#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

namespace {

// What becomes of a grey of each value, as far as `painter` changes it: "value:result" where they differ.
int painted(const PointEditor& painter, int value) {
    unsigned char colour[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value),
                               static_cast<unsigned char>(value), 77};
    painter.process(colour);
    EXPECT_EQ(colour[0], colour[1]);
    EXPECT_EQ(colour[0], colour[2]);
    EXPECT_EQ(77, colour[3]) << "the intensity";
    return colour[0];
}

// Which of `count` points in a row are painted, as ranges.
std::string turns(int coverage, int count) {
    PointEditor painter;
    const unsigned char white[3] = {255, 255, 255};
    painter.setColour(white, coverage, 100);
    std::string ranges;
    for (int i = 0, last = 0; i < count; ++i) {
        const int now = painted(painter, 0);
        if (now != last) ranges += std::to_string(i) + (now != 0 ? '-' : ' ');
        last = now;
    }
    return ranges;
}

} // namespace

TEST(PointEditor, ChangesChannelsByTheirArithmetic) {
    const unsigned char rgb[3] = {200, 200, 200};
    PointEditor painter;
    const auto blend = [&](int strength) { painter.setColour(rgb, 100, strength); };
    const auto light = [&](int level, bool brightness) { painter.setLuminance(level, brightness); };
    const auto check = [&](std::initializer_list<std::pair<int, int>> pairs) {
        for (const auto& [before, after] : pairs) EXPECT_EQ(after, painted(painter, before)) << before;
    };
    blend(0);
    std::vector<int> drifting;
    for (int i = 0; i < 256; ++i) {
        if (painted(painter, i) != i) drifting.push_back(i);
    }
    EXPECT_EQ((std::vector<int>{53, 59, 105, 106, 117, 118, 209, 210, 211, 212, 234, 235, 236, 237}), drifting);
    check({{53, 52}});
    blend(100);
    check({{0, 200}, {255, 200}});
    blend(50);
    check({{0, 100}, {99, 149}, {255, 227}}); // both halves are cut off
    light(300, true);
    check({{0, 255}, {9, 255}});
    light(-300, true);
    check({{255, 0}});
    light(-7, true);
    check({{3, 0}, {100, 93}});
    light(-100, false);
    check({{0, 127}, {255, 127}});
    light(100, false);
    check({{0, 0}, {100, 72}, {127, 126}, {255, 255}});
    for (const int extreme : {INT32_MIN, INT32_MAX}) { // no undefined behaviour
        blend(extreme);
        (void)painted(painter, 200);
        light(extreme, false);
        (void)painted(painter, 200);
        light(extreme, true);
        (void)painted(painter, 200);
        (void)turns(extreme, 3);
    }
}

TEST(PointEditor, PaintsTheLastOfEachHundredPoints) {
    const std::tuple<int, int, const char*, int> cases[] = {
        // coverage, counter before, painted, counter after 250 points
        {100, 5, "0-", 5},
        {30, 0, "69-100 169-200 ", 50}, // the turn of a point is 1 more than the counter
        {0, 0, "99-100 199-200 ", 50},
        {30, 99, "0-1 70-101 170-201 ", 49},
        {130, 0, "0-", 50},
        {-50, 0, "149-150 ", 100},
        {30, 149, "0-1 70-101 170-201 ", 49}, // what a sparser stroke left
        {30, -20, "89-120 189-220 ", 30},
    };
    for (const auto& [coverage, before, expected, after] : cases) {
        PointEditor::counter = before;
        EXPECT_EQ(expected, turns(coverage, 250)) << coverage << " from " << before;
        EXPECT_EQ(after, PointEditor::counter) << coverage << " from " << before;
    }
    PointEditor painter;
    const unsigned char black[3] = {};
    painter.setColour(black, 30, 100);
    PointEditor::counter = 42;
    EXPECT_EQ(42, painter.takeTurns(1234)); // as many single points
    EXPECT_EQ((42 + 1234) % 100, PointEditor::counter);
}
