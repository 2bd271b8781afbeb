#pragma once

#include "readers/Channels.h"
#include "readers/PointReader.h"

#include <vector>

// The byte of a stored value: value * 255 / limit, rounded to the nearest and held in 0..255. NaN gives 0.
unsigned char byteOfValue(double value, double limit);

// What the readers of text and PLY share: they deliver points as channel values from front to back, and this turns
// them into batches and surveys. Points with a coordinate that is not finite are left out.
//
// A file without colour gives white points, one without intensity or class gives 0 for it.
class ChannelReader : public PointReader {
public:
    void setScale(const ValueScale& newScale) override { scale = newScale; }
    size_t read(PointBatch& batch, size_t limit) override;

    // Throws FileError before anything is read when the input cannot be read twice, so that it can still be read once.
    PointSurvey survey(const std::function<bool()>& proceed) override;

protected:
    // Fills the front of `points` with the next ones of the file and returns their number; 0 only at the end. The
    // channels of `points` that the file lacks are 0 beforehand and stay so.
    virtual size_t decode(std::span<ChannelValues> points) = 0;

    [[nodiscard]] virtual bool canRewind() const = 0;

    bool hasColour = false; // set by the reader when it opens

private:
    void append(const ChannelValues& values, double* position, unsigned char* bytes) const;

    ValueScale scale;
    std::vector<ChannelValues> block; // decoded, not yet converted; reused by all calls
};
