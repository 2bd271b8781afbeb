#pragma once

#include "voxel/NumberText.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

// A piece of text that is made once and put into many lines. Copied as a whole, at a fixed size that takes the
// processor two instructions, so that a place it is put to needs room for SIZE bytes.
struct ShortText {
    static constexpr int SIZE = 32;

    void append(char c) { bytes[length++] = c; }
    void append(int64_t number) {
        length = static_cast<int>(std::to_chars(bytes + length, bytes + SIZE, number).ptr - bytes);
    }
    void append(double number) { length = static_cast<int>(putNumber(bytes + length, number) - bytes); }

    char* put(char* out) const {
        std::memcpy(out, bytes, SIZE);
        return out + length;
    }

    char bytes[SIZE] = {};
    int length = 0;
};

// The two ends of a cube along an axis as text, kept for the next cube, which often has the same. A blank goes before
// the number, and the end of the line behind it where it is the last of one.
class AxisText {
public:
    explicit AxisText(bool isLastIn) : isLast(isLastIn) {}

    void set(double low, double high) {
        if (low == lastLow && high == lastHigh) return;
        lastLow = low;
        lastHigh = high;
        ends[0] = make(low);
        ends[1] = make(high);
    }

    [[nodiscard]] const ShortText& operator[](unsigned char end) const { return ends[end]; }

private:
    [[nodiscard]] ShortText make(double number) const {
        ShortText text;
        text.append(' ');
        text.append(number);
        if (isLast) text.append('\n');
        return text;
    }

    const bool isLast;
    double lastLow = std::numeric_limits<double>::quiet_NaN(); // equal to nothing
    double lastHigh = std::numeric_limits<double>::quiet_NaN();
    ShortText ends[2];
};
