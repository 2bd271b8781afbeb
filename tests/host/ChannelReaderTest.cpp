#include "readers/ChannelReader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

TEST(ByteOfValue, RoundsToNearestAndCaps) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::tuple<double, double, int> cases[] = {
        {0, 255, 0},          {254.4, 255, 254},      {254.5, 255, 255},   {256, 255, 255},
        {-1, 255, 0},         {65535, 65535, 255},    {257, 65535, 1},     {128 * 257, 65535, 128},
        {128, 65535, 0},      {129, 65535, 1},        {70000, 65535, 255}, {50, 100, 128},
        {infinity, 255, 255}, {std::nan(""), 255, 0}, {5, 0, 255},         {0, 0, 0},
    };
    for (const auto& [value, limit, expected] : cases) {
        EXPECT_EQ(expected, byteOfValue(value, limit)) << value << " of " << limit;
    }
}

TEST(ByteOfValue, GivesBackBytesWidenedBy257) {
    for (int byte = 0; byte < 256; ++byte) EXPECT_EQ(byte, byteOfValue(byte * 257, 65535));
}
