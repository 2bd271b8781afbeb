#include "voxel/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

// A number from 0.0001 to 999999 is multiplied by the power of ten that leaves six digits before the point. The power
// is exact and the product below 2^20, so that it is off by less than 2^-33: unless it lies that near to halfway
// between two numbers, rounding it gives the digits that rounding the exact value gives. The rest goes to
// std::to_chars.

namespace {

constexpr int DIGITS = 6;
constexpr double POWERS[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
constexpr double SMALLEST = 1e-4;
constexpr double BEYOND = 999999.0;

// The place of the first digit: 5 for a number from 100000 on, down to -4.
int leadingPlace(double number) {
    int place = DIGITS - 1;
    if (number < 1.0) {
        constexpr double BELOW_ONE[] = {1e-1, 1e-2, 1e-3};
        place = -1;
        for (const double limit : BELOW_ONE) {
            if (number >= limit) return place;
            --place;
        }
        return place;
    }
    while (number < POWERS[place]) --place;
    return place;
}

// Six digits with the point behind the one of place 0; zeros at the end go away with a point that has nothing behind
// it.
char* putDigits(char* out, uint32_t digits, int place) {
    char text[DIGITS];
    for (int i = DIGITS - 1; i >= 0; --i, digits /= 10) text[i] = static_cast<char>('0' + digits % 10);
    int last = DIGITS;
    while (last > 1 && text[last - 1] == '0') --last;
    if (place < 0) {
        std::memcpy(out, "0.0000", 6);
        out += 1 - place;
        std::memcpy(out, text, DIGITS);
        return out + last;
    }
    const int whole = place + 1;
    std::memcpy(out, text, DIGITS);
    if (last <= whole) return out + whole;
    out[whole] = '.';
    std::memcpy(out + whole + 1, text + whole, static_cast<size_t>(last - whole));
    return out + last + 1;
}

} // namespace

char* putNumber(char* out, double value) {
    const double number = std::fabs(value);
    if (number == 0.0) {
        if (std::signbit(value)) *out++ = '-';
        *out++ = '0';
        return out;
    }
    if (number >= SMALLEST && number < BEYOND) {
        int place = leadingPlace(number);
        const double scaled = number * POWERS[DIGITS - 1 - place];
        auto digits = static_cast<uint32_t>(scaled);
        const double rest = scaled - digits;
        constexpr double CLOSE = 1e-9;
        if (std::fabs(rest - 0.5) > CLOSE) {
            digits += rest > 0.5 ? 1 : 0;
            if (digits == 1000000) { // the largest that gets here is rounded to 999999 at most
                digits = 100000;
                ++place;
            }
            if (std::signbit(value)) *out++ = '-';
            return putDigits(out, digits, place);
        }
    }
    return std::to_chars(out, out + LONGEST_NUMBER, value, std::chars_format::general, DIGITS).ptr;
}
