#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// How often each intensity occurs among the points of an input, in classes of one unit from 0 to 65535. Takes memory
// only once something was counted.
class IntensityCounts {
public:
    void add(double intensity) {
        if (!(intensity >= 0.0)) return;
        reserve();
        ++counts[intensity < LAST ? static_cast<size_t>(intensity) : LAST];
    }
    // For readers that count many at once: one number for each class.
    uint64_t* classes() {
        reserve();
        return counts.data();
    }
    void include(const IntensityCounts& other) {
        if (other.counts.empty()) return;
        reserve();
        std::transform(counts.begin(), counts.end(), other.counts.begin(), counts.begin(), std::plus<>());
    }

    // The smallest class that, together with those below it, holds `share` of what was counted; 0 when nothing was.
    // The last class holds everything from 65535 up.
    [[nodiscard]] double quantile(double share) const {
        uint64_t total = 0;
        for (const uint64_t count : counts) total += count;
        uint64_t below = 0;
        for (size_t i = 0; i < counts.size(); ++i) {
            below += counts[i];
            if (static_cast<double>(below) >= share * static_cast<double>(total)) return static_cast<double>(i);
        }
        return 0.0;
    }

private:
    static constexpr size_t LAST = 65535;
    void reserve() {
        if (counts.empty()) counts.resize(LAST + 1);
    }
    std::vector<uint64_t> counts;
};
