#pragma once

#include "writers/OutputFile.h"
#include "writers/PointWriter.h"

// Points as LAS 1.4, point format 7; see PointWriter.h.
class LasWriter : public PointWriter {
public:
    LasWriter(const std::string& path, const std::array<double, 6>& bounds);
    void write(const PointBatch& batch) override;
    void finish() override;

private:
    // Whole numbers of steps from an origin, as stored in the file.
    struct Axis {
        double scale = 0.0001;
        double offset = 0;
        int32_t smallest = INT32_MAX; // of the points so far
        int32_t largest = INT32_MIN;  // of the points so far

        Axis() = default;
        Axis(double lowest, double highest);
        int32_t encode(double coordinate);
        [[nodiscard]] double decode(int32_t steps) const { return steps * scale + offset; }
    };

    [[nodiscard]] std::string header() const;

    OutputFile file;
    std::array<Axis, 3> axes;
    uint64_t count = 0;
};
