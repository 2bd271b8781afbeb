#include "format/OPCNodeParser.h"
#include "support/PointFileMaker.h"

#include <gtest/gtest.h>

namespace {

// Red F8, green 80, blue 50, alpha 20, class 6; unmarked.
const Bytes PACKED = {0x0A, 0x7E, 0x62};
const Bytes MARKED = {0x0B, 0x7E, 0x62};

// Codes 300 (x 2, y 0, z 7), 301 (x 3), 302 (y 1, x 2), 303; the second is marked.
Bytes fourRecords() {
    return Bytes{0xAC, 0x02} + PACKED + Bytes{0x01} + MARKED + Bytes{0x01} + PACKED + Bytes{0x01} + PACKED;
}

void expectPosition(const OPCPoint& point, double x, double y, double z) {
    EXPECT_EQ(x, point.x);
    EXPECT_EQ(y, point.y);
    EXPECT_EQ(z, point.z);
}

} // namespace

TEST(OPCNodeParser, ReadsStreamPoint) {
    Bytes stream = fourRecords();
    OPCNodeParser parser(stream, 0.5, 17, 18);
    const OPCPoint point = parser.getPoint(0, true);
    expectPosition(point, 1.0, 0.0, 3.5);
    EXPECT_EQ(0xF8, point.colour[0]);
    EXPECT_EQ(0x80, point.colour[1]);
    EXPECT_EQ(0x50, point.colour[2]);
    EXPECT_EQ(0x20, point.colour[3]);
    EXPECT_EQ(6, point.classification);
    EXPECT_EQ(-1, point.tag);
}

TEST(OPCNodeParser, PassesOverMarkedPointsAndRewindsOnlyWhenAsked) {
    Bytes stream = fourRecords();
    OPCNodeParser skipping(stream, 1.0, 17, 18);
    skipping.getPoint(0, true);
    expectPosition(skipping.getPoint(1, true), 2, 1, 7);
    OPCNodeParser taking(stream, 1.0, 17, 18);
    taking.getPoint(0, false);
    EXPECT_FALSE(taking.isPointSet());
    expectPosition(taking.getPoint(1, false), 3, 0, 7);
    EXPECT_TRUE(taking.isPointSet());
    expectPosition(taking.getPoint(3, false), 3, 1, 7);
    expectPosition(taking.getPoint(3, false), 0, 0, 0); // the same one again
    expectPosition(taking.getPoint(0, false), 2, 0, 7); // from the front
}

TEST(OPCNodeParser, MarksAndPaintsTheLastStreamPoint) {
    Bytes stream = fourRecords();
    OPCNodeParser parser(stream, 1.0, 17, 18);
    parser.setPoint(true); // nothing decoded yet
    EXPECT_EQ(fourRecords(), stream);
    parser.getPoint(0, false);
    parser.setPoint(true);
    EXPECT_EQ(0x0B, stream[2]);
    const unsigned char white[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0x1F};
    parser.paintPoint(white, 99);
    EXPECT_EQ((Bytes{0xFE, 0xFF, 0xFF}), Bytes(stream.begin() + 2, stream.begin() + 5)); // unmarked on purpose
    OPCNodeParser again(stream, 1.0, 17, 18);
    const OPCPoint point = again.getPoint(0, true);
    EXPECT_EQ(0xF8, point.colour[0]);
    EXPECT_EQ(0xF0, point.colour[2]);
    EXPECT_EQ(0x0F, point.classification);
}

TEST(OPCNodeParser, EndsAtADeltaOfMoreThanNineBytes) {
    const Bytes nine = Bytes(8, 0x80) + Bytes{0x40} + PACKED; // bit 62: the top bit of z
    Bytes sound = nine + Bytes{0x01} + PACKED;
    OPCNodeParser parser(sound, 1.0, 17, 18);
    expectPosition(parser.getPoint(0, true), 0, 0, 1 << 20);
    expectPosition(parser.getPoint(1, true), 1, 0, 1 << 20);

    Bytes damaged = nine + Bytes(9, 0x80) + Bytes{0x01} + PACKED;
    OPCNodeParser cut(damaged, 1.0, 17, 18);
    cut.getPoint(0, true);
    expectPosition(cut.getPoint(1, true), 0, 0, 0);
}

// Each prefix is a heap block of its exact size, so that AddressSanitizer sees a read one byte past it.
TEST(OPCNodeParser, ReadsNothingPastATruncation) {
    const Bytes stream = fourRecords();
    for (size_t size = 0; size < stream.size(); ++size) {
        Bytes prefix(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(size));
        prefix.shrink_to_fit();
        OPCNodeParser parser(prefix, 1.0, 17, 18);
        expectPosition(parser.getPoint(3, false), 0, 0, 0);
        OPCNodeParser fixed(prefix, 1.0, 14, 17);
        expectPosition(fixed.getPoint(1, false), 0, 0, 0);
    }
}

TEST(OPCNodeParser, ReadsAndPaintsFixedRecordsByIndex) {
    Bytes records = fixedPoint(256, 1, 0, 10) + fixedPoint(20000, 0, 3, 20);
    OPCNodeParser parser(records, 0.0, 14, 17);
    const OPCPoint second = parser.getPoint(1, true);
    EXPECT_EQ(double{20000.0F * 0.0001F}, second.x);
    EXPECT_EQ(20, second.colour[0]);
    EXPECT_EQ(24, second.classification);
    EXPECT_EQ(double{256.0F * 0.0001F}, parser.getPoint(0, true).x);
    EXPECT_EQ(double{256.0F * 0.0001F}, parser.getPoint(0, true).x);
    const unsigned char attributes[5] = {1, 2, 3, 4, 5};
    parser.paintPoint(attributes, 1);
    parser.paintPoint(attributes, 2); // no such record
    parser.setPoint(true);            // no mark in this form
    EXPECT_EQ(fixedPoint(256, 1, 0, 10) + (Bytes{0, 0x4E, 0x20, 0, 0, 0, 0, 0, 3, 1, 2, 3, 4, 5}), records);
}
