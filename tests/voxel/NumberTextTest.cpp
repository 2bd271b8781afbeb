#include "voxel/NumberText.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

static std::string textOf(double value) {
    char text[LONGEST_NUMBER];
    return {text, putNumber(text, value)};
}

// printf's %g is what streams use.
static void expectAsPrinted(double value) {
    char expected[64];
    std::snprintf(expected, sizeof(expected), "%g", value);
    ASSERT_EQ(expected, textOf(value)) << std::hexfloat << value;
}

TEST(NumberText, IsThatOfAStream) {
    std::mt19937_64 random(3);
    for (const double value : {0.0, 1.0, 0.5, 9.999995, 999999.0, 999999.5, 1e6, 1e-4, 9.99999e-5, 0.0001234565,
                               99999.95, 1e300, 5e-324, HUGE_VAL, std::numeric_limits<double>::quiet_NaN()}) {
        for (const double sign : {1.0, -1.0}) {
            expectAsPrinted(value * sign);
            expectAsPrinted(std::nextafter(value, HUGE_VAL) * sign);
            expectAsPrinted(std::nextafter(value, -HUGE_VAL) * sign);
        }
    }
    for (int i = 0; i < 200000; ++i) {
        expectAsPrinted(std::bit_cast<double>(random())); // every magnitude
        const double power = std::pow(10.0, static_cast<double>(random() % 14) - 6.0);
        const double number = static_cast<double>(random()) * 0x1p-64 * power;
        expectAsPrinted(number);
        expectAsPrinted(static_cast<double>(static_cast<int64_t>(random() % 4000000)) / 8.0 * 0.25); // ties among them
        expectAsPrinted(static_cast<double>(random() % 2000000) / 2.0 * power / 10.0);               // and near ties
    }
}
