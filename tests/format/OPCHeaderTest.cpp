#include "format/OPCHeader.h"
#include "support/PointFileMaker.h"

#include <cmath>
#include <gtest/gtest.h>
#include <tuple>

namespace {

// Version 18, 3 nodes, 5 points, box (1, 2, 3) to (4, 5, 6), every other field with a value of its own.
const Bytes IMAGE = {0x01, 0, 0, 0, 0x12, 0, 0,    0,    0x03, 0, 0, 0,                   // tag, version, nodes
                     0x05, 0, 0, 0, 0,    0, 0,    0,                                     // points
                     0,    0, 0, 0, 0,    0, 0xF0, 0x3F, 0,    0, 0, 0, 0, 0, 0x00, 0x40, // 1, 2
                     0,    0, 0, 0, 0,    0, 0x08, 0x40, 0,    0, 0, 0, 0, 0, 0x10, 0x40, // 3, 4
                     0,    0, 0, 0, 0,    0, 0x14, 0x40, 0,    0, 0, 0, 0, 0, 0x18, 0x40, // 5, 6
                     0x0B, 0, 0, 0, 0,    0, 0,    0,    0x0C, 0, 0, 0, 0, 0, 0,    0,    // protection
                     0x0D, 0, 0, 0, 0,    0, 0,    0,    0x0E, 0, 0, 0, 0, 0, 0,    0,    // reserved, spacing
                     0,    0, 0, 0, 0,    0, 0xE0, 0x3F,                                  // index parameter 0.5
                     0,    0, 0, 0, 0,    0, 0,    0,    0,    0, 0, 0, 0, 0, 0,    0};   // spare values

} // namespace

TEST(OPCHeader, ReadsEveryFieldAndWritesItBack) {
    OPCHeader header;
    header.setHeaderData(reinterpret_cast<const char*>(IMAGE.data()));
    EXPECT_EQ(1, header.headerTag);
    EXPECT_EQ(18, header.version);
    EXPECT_EQ(3, header.nodeCount);
    EXPECT_EQ(5, header.pointCount);
    EXPECT_EQ((std::array<double, 6>{1, 2, 3, 4, 5, 6}), header.boundingBox);
    EXPECT_EQ(11, header.protectionValue1);
    EXPECT_EQ(12, header.protectionValue2);
    EXPECT_EQ(13, header.reserved);
    EXPECT_EQ(14, header.spacingScaled);
    EXPECT_EQ(0.5, header.indexParameter);
    EXPECT_FALSE(header.changed);
    EXPECT_TRUE(header.isValid());
    Bytes image(124);
    header.getHeaderData(reinterpret_cast<char*>(image.data()));
    EXPECT_EQ(IMAGE, image);
}

TEST(OPCHeader, RefusesWhatCannotBeAFile) {
    const std::tuple<const char*, void (*)(OPCHeader&), bool> cases[] = {
        {"sound", [](OPCHeader&) {}, true},
        {"no nodes", [](OPCHeader& h) { h.nodeCount = 0; }, false},
        {"negative nodes", [](OPCHeader& h) { h.nodeCount = -1; }, false},
        {"no points", [](OPCHeader& h) { h.pointCount = 0; }, false},
        {"version 91", [](OPCHeader& h) { h.version = 91; }, false},
        {"version 90", [](OPCHeader& h) { h.version = 90; }, true},
        {"version 5", [](OPCHeader& h) { h.version = 5; }, true},
        {"flat box", [](OPCHeader& h) { h.boundingBox[4] = h.boundingBox[1]; }, false},
        {"box with NaN", [](OPCHeader& h) { h.boundingBox[2] = std::nan(""); }, false},
        {"other size", [](OPCHeader& h) { h.headerSize = 125; }, false},
    };
    for (const auto& [name, change, expected] : cases) {
        OPCHeader header;
        header.setHeaderData(reinterpret_cast<const char*>(IMAGE.data()));
        change(header);
        EXPECT_EQ(expected, header.isValid()) << name;
    }
}
