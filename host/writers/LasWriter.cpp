#include "writers/LasWriter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "fields are copied as they lie in memory");

namespace {

// Offsets of the public header block of LAS 1.4, of those fields that are not zero here. The date of creation is left
// at zero, so that the same points always give the same file.
struct HeaderOffset {
    static constexpr size_t SIGNATURE = 0;
    static constexpr size_t GLOBAL_ENCODING = 6;
    static constexpr size_t VERSION_MAJOR = 24;
    static constexpr size_t VERSION_MINOR = 25;
    static constexpr size_t GENERATING_SOFTWARE = 58;
    static constexpr size_t HEADER_SIZE = 94;
    static constexpr size_t POINT_DATA = 96;
    static constexpr size_t POINT_FORMAT = 104;
    static constexpr size_t RECORD_LENGTH = 105;
    static constexpr size_t SCALES = 131;
    static constexpr size_t OFFSETS = 155;
    static constexpr size_t BOUNDS = 179; // largest x, smallest x, largest y and so on
    static constexpr size_t POINT_COUNT = 247;
    static constexpr size_t FIRST_RETURNS = 255;
    static constexpr size_t SIZE = 375;
};

// Offsets of a record of point format 7, of those fields that are not zero here.
struct RecordOffset {
    static constexpr size_t POSITION = 0;
    static constexpr size_t INTENSITY = 12;
    static constexpr size_t RETURNS = 14;
    static constexpr size_t CLASS = 16;
    static constexpr size_t COLOUR = 30;
    static constexpr size_t SIZE = 36;
};

} // namespace

static constexpr uint16_t WKT_BIT = 1 << 4;  // formats from 6 on demand it, also without a coordinate system
static constexpr uint8_t ONLY_RETURN = 0x11; // first return of one

template <class T>
static void store(char* bytes, T value) {
    std::memcpy(bytes, &value, sizeof(T));
}

LasWriter::Axis::Axis(double lowest, double highest) {
    if (!std::isfinite(lowest) || !std::isfinite(highest)) return;
    offset = std::floor(lowest);
    // Dividing keeps the scales at the doubles nearest to 0.001, 0.01 and so on; multiplying would not.
    double stepsPerUnit = 1e4;
    for (int coarser = 0; coarser < 300 && !((highest - offset) / scale < INT32_MAX); ++coarser) {
        stepsPerUnit /= 10;
        scale = 1 / stepsPerUnit;
    }
}

int32_t LasWriter::Axis::encode(double coordinate) {
    const double steps = std::floor((coordinate - offset) / scale + 0.5);
    if (!(steps >= INT32_MIN && steps <= INT32_MAX)) throw FileError("a point lies too far outside of the bounds");
    const auto stored = static_cast<int32_t>(steps);
    smallest = std::min(smallest, stored);
    largest = std::max(largest, stored);
    return stored;
}

LasWriter::LasWriter(const std::string& path, const std::array<double, 6>& bounds) : file(path) {
    for (size_t i = 0; i < 3; ++i) axes[i] = Axis(bounds[i], bounds[i + 3]);
    file.write(header());
}

std::string LasWriter::header() const {
    std::string bytes(HeaderOffset::SIZE, '\0');
    char* const to = bytes.data();
    std::string_view("LASF").copy(to + HeaderOffset::SIGNATURE, 4);
    store(to + HeaderOffset::GLOBAL_ENCODING, WKT_BIT);
    store(to + HeaderOffset::VERSION_MAJOR, uint8_t{1});
    store(to + HeaderOffset::VERSION_MINOR, uint8_t{4});
    std::string_view("nimbrel").copy(to + HeaderOffset::GENERATING_SOFTWARE, 7);
    store(to + HeaderOffset::HEADER_SIZE, static_cast<uint16_t>(HeaderOffset::SIZE));
    store(to + HeaderOffset::POINT_DATA, static_cast<uint32_t>(HeaderOffset::SIZE));
    store(to + HeaderOffset::POINT_FORMAT, uint8_t{7});
    store(to + HeaderOffset::RECORD_LENGTH, static_cast<uint16_t>(RecordOffset::SIZE));
    for (size_t i = 0; i < 3; ++i) {
        const Axis& axis = axes[i];
        store(to + HeaderOffset::SCALES + i * 8, axis.scale);
        store(to + HeaderOffset::OFFSETS + i * 8, axis.offset);
        store(to + HeaderOffset::BOUNDS + i * 16, count > 0 ? axis.decode(axis.largest) : 0.0);
        store(to + HeaderOffset::BOUNDS + i * 16 + 8, count > 0 ? axis.decode(axis.smallest) : 0.0);
    }
    store(to + HeaderOffset::POINT_COUNT, count);
    store(to + HeaderOffset::FIRST_RETURNS, count);
    return bytes;
}

static uint16_t widen(unsigned char byte) {
    return static_cast<uint16_t>(byte * 257);
}

void LasWriter::write(const PointBatch& batch) {
    for (size_t i = 0; i < batch.size(); ++i) {
        const unsigned char* const attributes = &batch.attributes[i * 5];
        char* const record = file.append(RecordOffset::SIZE);
        std::memset(record, 0, RecordOffset::SIZE);
        for (size_t axis = 0; axis < 3; ++axis) {
            store(record + RecordOffset::POSITION + axis * 4, axes[axis].encode(batch.positions[i * 3 + axis]));
            store(record + RecordOffset::COLOUR + axis * 2, widen(attributes[axis]));
        }
        store(record + RecordOffset::INTENSITY, widen(attributes[3]));
        store(record + RecordOffset::RETURNS, ONLY_RETURN);
        store(record + RecordOffset::CLASS, attributes[4]);
    }
    count += batch.size();
}

void LasWriter::finish() {
    file.patch(0, header());
    file.finish();
}
