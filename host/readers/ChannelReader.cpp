#include "readers/ChannelReader.h"

#include <algorithm>
#include <cmath>

// Points pass through a block that stays in the nearest caches: decode() is one virtual call for a thousand points, and
// neither of the two readers knows about batches.
static constexpr size_t BLOCK_SIZE = 1024;

unsigned char byteOfValue(double value, double limit) {
    const double scaled = limit == 255 ? value : value * 255 / limit;
    if (!(scaled > 0)) return 0; // catches NaN too
    if (scaled >= 255) return 255;
    const auto whole = static_cast<unsigned char>(scaled);
    return scaled - whole < 0.5 ? whole : static_cast<unsigned char>(whole + 1);
}

static bool isFinite(const ChannelValues& values) {
    return std::isfinite(values[X]) && std::isfinite(values[Y]) && std::isfinite(values[Z]);
}

void ChannelReader::append(const ChannelValues& values, double* position, unsigned char* bytes) const {
    for (size_t axis = 0; axis < 3; ++axis) {
        position[axis] = values[X + axis];
        bytes[axis] = hasColour ? byteOfValue(values[RED + axis], scale.colourLimit) : 255;
    }
    bytes[3] = byteOfValue(values[INTENSITY], scale.intensityLimit);
    bytes[4] = byteOfValue(values[CLASS], 255);
}

size_t ChannelReader::read(PointBatch& batch, size_t limit) {
    block.resize(BLOCK_SIZE);
    size_t filled = 0;
    batch.resize(0);
    while (filled < limit) {
        const size_t decoded = decode(std::span(block).first(std::min(BLOCK_SIZE, limit - filled)));
        if (decoded == 0) break;
        // Grows with what was read, not to `limit` at once: the limit may be far more than the file holds.
        batch.resize(filled + decoded);
        for (size_t i = 0; i < decoded; ++i) {
            if (!isFinite(block[i])) continue;
            append(block[i], &batch.positions[filled * 3], &batch.attributes[filled * 5]);
            ++filled;
        }
    }
    batch.resize(filled);
    return filled;
}

static void noteLargest(double& largest, double value) {
    if (value > largest && std::isfinite(value)) largest = value;
}

PointSurvey ChannelReader::survey(const std::function<bool()>& proceed) {
    if (!canRewind()) throw FileError("cannot be read twice");
    rewind();
    block.resize(BLOCK_SIZE);
    PointSurvey survey;
    uint64_t blocks = 0;
    while (const size_t decoded = decode(block)) {
        for (const ChannelValues& values : std::span(block).first(decoded)) {
            if (!isFinite(values)) {
                ++survey.skipped;
                continue;
            }
            ++survey.count;
            for (size_t axis = 0; axis < 3; ++axis) {
                survey.bounds[axis] = std::min(survey.bounds[axis], values[axis]);
                survey.bounds[axis + 3] = std::max(survey.bounds[axis + 3], values[axis]);
                noteLargest(survey.largestColour, values[RED + axis]);
            }
            noteLargest(survey.largestIntensity, values[INTENSITY]);
            survey.intensities.add(values[INTENSITY]);
        }
        if (++blocks % 64 == 0 && proceed && !proceed()) break;
    }
    rewind();
    return survey;
}
