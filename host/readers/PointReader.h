#pragma once

#include "readers/IntensityCounts.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// What is wrong with a file, without the file's name: whoever reports it puts "nimbrel: FILE: " in front.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Points on their way between a file of the field and the engine, in the form that the engine takes them.
struct PointBatch {
    std::vector<double> positions;         // x, y, z a point
    std::vector<unsigned char> attributes; // red, green, blue, intensity, class a point

    [[nodiscard]] size_t size() const { return attributes.size() / 5; }
    void resize(size_t points) {
        positions.resize(points * 3);
        attributes.resize(points * 5);
    }
};

// What one pass over an input finds out. An empty input has a count of 0 and a box of infinities.
struct PointSurvey {
    uint64_t count = 0;           // points that read() delivers
    uint64_t skipped = 0;         // points left out: withheld where asked for, or a coordinate that is not finite
    std::array<double, 6> bounds; // smallest x, y, z, then largest, of the delivered points
    double largestColour = 0;     // of all channels, as stored
    double largestIntensity = 0;  // as stored
    IntensityCounts intensities;
    PointSurvey();
    void include(const PointSurvey& other); // as if both inputs were one
};

// How stored values become bytes. Values above the limit become 255.
struct ValueScale {
    double colourLimit = 255;    // the stored colour that becomes 255
    double intensityLimit = 255; // the stored intensity that becomes 255
};

struct ReadOptions {
    bool skipWithheld = false;
    std::string columns; // text inputs: names separated by commas, empty to guess; see TextReader.h
};

// A source of points: a LAS, LAZ, PLY or text file. Reads from the start once, or again after rewind().
//
// A reader belongs to one thread. Every byte of the file is untrusted: a damaged file ends in a FileError that says
// what is wrong, never in a crash, a hang or an allocation that the file's size cannot back.
class PointReader {
public:
    virtual ~PointReader() = default;

    // One line for people: container, version and what each point carries, such as "LAS 1.2, format 3, 110000 points".
    [[nodiscard]] virtual std::string describe() const = 0;

    // Warnings that people should see but that do not stop a build, such as "the last record is cut short".
    [[nodiscard]] virtual std::vector<std::string> warnings() const { return {}; }

    // Points that the header announces; 0 where only reading tells.
    [[nodiscard]] virtual uint64_t announcedCount() const { return 0; }

    // Share of the input behind the reader, 0 to 1, for progress.
    [[nodiscard]] virtual double fractionRead() const = 0;

    // Sets how stored values become bytes in the next read().
    virtual void setScale(const ValueScale& scale) = 0;

    // Replaces the contents of `batch` by up to `limit` further points, in file order, and returns their number; 0 at
    // the end.
    virtual size_t read(PointBatch& batch, size_t limit) = 0;

    // Goes back to the first point. Throws FileError for an input that cannot be read twice.
    virtual void rewind() = 0;

    // Reads everything from the start and rewinds. `proceed` is called every so often; false from it ends the pass
    // early. A reader whose format allows a quicker way overrides this.
    virtual PointSurvey survey(const std::function<bool()>& proceed) = 0;
};

// Opens `path` by its content first and its extension second. Throws FileError.
std::unique_ptr<PointReader> openPoints(const std::string& path, const ReadOptions& options);
