#include "format/NodeRecord.h"

#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace {

const std::vector<unsigned char> FIXED = {0x0D, 0x0E, 0x34, 0x12, 0x78, 0x56, 0x08, 0x07, 0x06, 0x05, 0x04, 0, 0, 0};
const std::vector<unsigned char> STREAM = {0x16, 0x04, 0x03, 0x02, 0x81, 0x10, 0x27, 0x00, 0x00, 0x34, 0x12,
                                           0x78, 0x56, 0x08, 0x07, 0x06, 0x05, 0x04, 0,    0,    0};

} // namespace

TEST(NodeRecord, ReadsAndWritesTheFixedForm) {
    const NodeRecord record = NodeRecord::decode(FIXED, 17);
    EXPECT_EQ(0x0D, record.bitMask);
    EXPECT_EQ(14, record.bytesPerVertex);
    EXPECT_EQ(0x1234, record.pointCount);
    EXPECT_EQ(0x5678, record.originalPointCount);
    EXPECT_EQ(0x0405060708, record.pointDataByteLocation);
    std::vector<unsigned char> bytes(14);
    record.encode(bytes, 17);
    EXPECT_EQ(FIXED, bytes);
}

TEST(NodeRecord, ReadsAndWritesTheStreamForm) {
    const NodeRecord record = NodeRecord::decode(STREAM, 18);
    EXPECT_EQ(0x16, record.bitMask);
    EXPECT_EQ(0x81020304, record.diskSize);
    EXPECT_EQ(10000U, record.filterScaled);
    EXPECT_EQ(0x1234, record.pointCount);
    EXPECT_EQ(0x5678, record.originalPointCount);
    EXPECT_EQ(0x0405060708, record.pointDataByteLocation);
    std::vector<unsigned char> bytes(21);
    record.encode(bytes, 18);
    EXPECT_EQ(STREAM, bytes);
}

TEST(NodeRecord, ReadsTheFormOfAServer) {
    const NodeRecord record = NodeRecord::decodeWire(std::vector<unsigned char>{0x05, 0x64, 0x00});
    EXPECT_EQ(5, record.bitMask);
    EXPECT_EQ(100, record.pointCount);
    EXPECT_EQ(100, record.originalPointCount);
    EXPECT_EQ(17, record.bytesPerVertex);
}

TEST(NodeRecord, TakesTheAxisFromTheFirstSplitBit) {
    const std::tuple<int, int> cases[] = {{0x06, 0}, {0x0C, 0}, {0x08, 1}, {0x18, 1}, {0x03, 2}, {0x13, 2}};
    for (const auto& [mask, axis] : cases) EXPECT_EQ(axis, NodeRecord::splitAxis(static_cast<uint8_t>(mask))) << mask;
}

TEST(NodeRecord, TreatsOnlyVersion18AsStream) {
    for (const int version : {17, 5, 0, 90, 18 + 256, -238}) EXPECT_EQ(14, NodeRecord::sizeFor(version)) << version;
    EXPECT_EQ(21, NodeRecord::sizeFor(18));
}
