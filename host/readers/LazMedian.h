#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The running median that predicts coordinate steps: five values in order, into which a new one is sorted while the
// largest or the smallest leaves, whichever side did not leave last. Not the median of the last five values: the format
// has this one.
class LazMedian {
public:
    [[nodiscard]] int32_t get() const { return values[2]; }

    void add(int32_t value) {
        if (largestLeaves) {
            // A value above the median changes which end goes next, and so does one below it on the other side.
            if (value >= values[2]) largestLeaves = false;
            size_t at = 4;
            for (; at > 0 && value < values[at - 1]; --at) values[at] = values[at - 1];
            values[at] = value;
        } else {
            if (value <= values[2]) largestLeaves = true;
            size_t at = 0;
            for (; at < 4 && value > values[at + 1]; ++at) values[at] = values[at + 1];
            values[at] = value;
        }
    }

private:
    std::array<int32_t, 5> values{}; // ascending
    bool largestLeaves = true;
};
