#include "format/PointRecord.h"
#include "format/OPCPoint.h"
#include "format/PointStream.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <tuple>

TEST(PointRecord, ReadsOrdinatesBigEndianWithTheSignOfFourBytes) {
    const unsigned char three[] = {0x00, 0x01, 0x00};
    const unsigned char four[] = {0xFF, 0xFF, 0xFF, 0xFF};
    const unsigned char top[] = {0x80, 0x00, 0x00, 0x01};
    EXPECT_EQ(256, fromByteArrayLittleEndian(three, 3));
    EXPECT_EQ(0xFFFFFF, fromByteArrayLittleEndian(four, 3));
    EXPECT_EQ(-1, fromByteArrayLittleEndian(four, 4));
    EXPECT_EQ(-2147483647, fromByteArrayLittleEndian(top, 4));
    EXPECT_EQ(0, fromByteArrayLittleEndian(four, 0));
}

TEST(PointRecord, ChoosesTheStrideByTheLongestSide) {
    const std::tuple<double, int> cases[] = {{6.0, 11}, {6.0001, 14}, {1600.0, 14}, {1600.1, 17}};
    for (const auto& [side, stride] : cases) {
        EXPECT_EQ(stride, FixedRecord::strideFor(FixedRecord::ordinateBytesForSide(side))) << side;
        EXPECT_EQ(FixedRecord::ordinateBytesForSide(side), FixedRecord::ordinateBytesFor(stride));
    }
}

TEST(PointRecord, WritesFixedRecordsTruncatedAndClamped) {
    OPCPoint point;
    point.x = 10.02566;
    point.y = 9.0;     // below the origin
    point.z = 1.0e300; // beyond three bytes
    point.colour[0] = 1, point.colour[1] = 2, point.colour[2] = 3, point.colour[3] = 4;
    point.classification = 5;
    unsigned char record[15] = {};
    point.toCompressedByteArray(10.0, 10.0, 10.0, 10000.0, reinterpret_cast<char*>(record), 1, 3);
    const unsigned char expected[15] = {0, 0, 1, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4, 5};
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), record));
    EXPECT_EQ(0, toStoredOrdinate(std::numeric_limits<double>::quiet_NaN(), 1.0, 4));
    EXPECT_EQ(std::numeric_limits<int32_t>::max(), toStoredOrdinate(1.0e300, 1.0, 4));
}

TEST(PointStream, InterleavesBitByBit) {
    std::mt19937_64 random(1);
    for (int round = 0; round < 1000; ++round) {
        const uint64_t x = random(), y = random(), z = random();
        uint64_t slow = 0;
        for (int bit = 0; bit < 21; ++bit) {
            slow |= (x >> bit & 1) << (3 * bit) | (y >> bit & 1) << (3 * bit + 1) | (z >> bit & 1) << (3 * bit + 2);
        }
        ASSERT_EQ(slow, PointStream::morton(x, y, z));
        ASSERT_EQ(x & 0x1FFFFF, PointStream::gather(slow));
        ASSERT_EQ(y & 0x1FFFFF, PointStream::gather(slow >> 1));
        ASSERT_EQ(z & 0x1FFFFF, PointStream::gather(slow >> 2));
    }
}

TEST(PointStream, WritesDeltasInGroupsOfSeven) {
    const std::tuple<uint64_t, std::vector<unsigned char>> cases[] = {
        {0, {0x00}}, {127, {0x7F}}, {128, {0x80, 0x01}}, {300, {0xAC, 0x02}}, {16384, {0x80, 0x80, 0x01}}};
    for (const auto& [delta, expected] : cases) {
        unsigned char bytes[10];
        const unsigned char* end = PointStream::putDelta(bytes, delta);
        EXPECT_EQ(expected, std::vector<unsigned char>(bytes, const_cast<unsigned char*>(end))) << delta;
    }
}
