#include "readers/LasReader.h"

#include "readers/InputFile.h"
#include "readers/LasHeader.h"
#include "readers/LasRecords.h"
#include "readers/LazRecords.h"
#include "readers/RecordField.h"

#include <algorithm>
#include <cmath>

// Records come in blocks, plain or decompressed, and both passes look only at the fields they take. Stored colours and
// intensities become bytes through tables with an entry for each of the 65536 values, which setScale() fills.

namespace {

// The fields of a record that the engine takes; colour stands where the format says.
struct PointRecord {
    using Triple = std::array<int32_t, 3>;
    using Colour = std::array<uint16_t, 3>;
    static constexpr RecordField<Triple> POSITION{0};
    static constexpr RecordField<uint16_t> INTENSITY{POSITION.end()};
    static constexpr RecordField<uint8_t> CLASS_AND_FLAGS{INTENSITY.end() + 1}; // formats 0 to 5
    static constexpr RecordField<uint8_t> FLAGS{INTENSITY.end() + 1};           // from format 6 on
    static constexpr RecordField<uint8_t> CLASSIFICATION{FLAGS.end()};          // from format 6 on
    static constexpr uint8_t CLASS_BITS = 0x1F;                                 // of CLASS_AND_FLAGS
    static constexpr uint8_t WITHHELD_BIT = 0x80;                               // of CLASS_AND_FLAGS
    static constexpr uint8_t EXTENDED_WITHHELD_BIT = 0x04;                      // of FLAGS
};

using ByteTable = std::vector<unsigned char>; // by stored value

class LasReader final : public PointReader {
public:
    LasReader(const std::string& path, const ReadOptions& options);

    [[nodiscard]] std::string describe() const override;
    [[nodiscard]] std::vector<std::string> warnings() const override;
    [[nodiscard]] uint64_t announcedCount() const override { return header.announcedCount; }
    [[nodiscard]] double fractionRead() const override;
    void setScale(const ValueScale& scale) override;
    size_t read(PointBatch& batch, size_t limit) override;
    void rewind() override;
    PointSurvey survey(const std::function<bool()>& proceed) override;

private:
    struct Extremes;

    bool fetch();
    [[nodiscard]] bool leavesOut(const std::byte* record) const;
    [[nodiscard]] double coordinate(size_t axis, int32_t stored) const {
        return stored * header.scale[axis] + header.offset[axis];
    }
    void convert(const std::byte* record, double* position, unsigned char* attributes) const;
    void surveyBlock(Extremes& extremes, uint64_t* intensities) const;

    const std::shared_ptr<const InputFile> file; // shared with `records`
    const LasHeader header;
    const bool skipWithheld;
    const std::unique_ptr<LasRecords> records;
    bool mayOverflow = false; // whether some integer coordinate gives one that is not finite
    ByteTable colourBytes;
    ByteTable intensityBytes;
    std::span<const std::byte> block; // records not looked at yet
    uint64_t passed = 0;              // records behind the reader
};

// What a survey gathers, in the integers of the records.
struct LasReader::Extremes {
    uint64_t count = 0;
    uint64_t skipped = 0;
    PointRecord::Triple smallest{INT32_MAX, INT32_MAX, INT32_MAX};
    PointRecord::Triple largest{INT32_MIN, INT32_MIN, INT32_MIN};
    uint16_t intensity = 0;
    uint16_t colour = 0;
};

} // namespace

static ByteTable makeByteTable(double limit) {
    ByteTable table(size_t{UINT16_MAX} + 1);
    for (size_t value = 1; value < table.size(); ++value) {
        const double scaled = static_cast<double>(value) * 255.0 / limit + 0.5;
        // Also right for a limit that is not positive, above which everything lies.
        table[value] = scaled >= 0.0 && scaled < 255.0 ? static_cast<unsigned char>(scaled) : 255;
    }
    return table;
}

static std::unique_ptr<LasRecords> openRecords(const std::shared_ptr<const InputFile>& file, const LasHeader& header) {
    return header.compressed ? openLazRecords(file, header) : openPlainRecords(file, header);
}

LasReader::LasReader(const std::string& path, const ReadOptions& options)
    : file(std::make_shared<InputFile>(path)), header(LasHeader::read(*file)), skipWithheld(options.skipWithheld),
      records(openRecords(file, header)) {
    for (size_t axis = 0; axis < 3; ++axis)
        for (const int32_t extreme : {INT32_MIN, INT32_MAX})
            mayOverflow = mayOverflow || !std::isfinite(coordinate(axis, extreme));
    setScale(ValueScale{});
}

std::string LasReader::describe() const {
    return std::string(header.compressed ? "LAZ" : "LAS") + " 1." + std::to_string(header.versionMinor) + ", format " +
           std::to_string(header.format.number) + ", " + std::to_string(header.announcedCount) + " points";
}

std::vector<std::string> LasReader::warnings() const {
    std::vector<std::string> all = header.warnings;
    const std::vector<std::string> ofRecords = records->warnings();
    all.insert(all.end(), ofRecords.begin(), ofRecords.end());
    return all;
}

double LasReader::fractionRead() const {
    if (header.announcedCount == 0) return 1.0;
    return static_cast<double>(passed) / static_cast<double>(header.announcedCount);
}

void LasReader::setScale(const ValueScale& scale) {
    colourBytes = makeByteTable(scale.colourLimit);
    intensityBytes = makeByteTable(scale.intensityLimit);
}

void LasReader::rewind() {
    records->rewind();
    block = {};
    passed = 0;
}

// Whether there is a record to look at.
bool LasReader::fetch() {
    if (block.empty()) block = records->next();
    return !block.empty();
}

bool LasReader::leavesOut(const std::byte* record) const {
    if (skipWithheld) {
        const bool withheld = header.format.extended()
                                  ? (PointRecord::FLAGS.read(record) & PointRecord::EXTENDED_WITHHELD_BIT) != 0
                                  : (PointRecord::CLASS_AND_FLAGS.read(record) & PointRecord::WITHHELD_BIT) != 0;
        if (withheld) return true;
    }
    if (!mayOverflow) return false;
    const PointRecord::Triple stored = PointRecord::POSITION.read(record);
    for (size_t axis = 0; axis < 3; ++axis)
        if (!std::isfinite(coordinate(axis, stored[axis]))) return true;
    return false;
}

void LasReader::convert(const std::byte* record, double* position, unsigned char* attributes) const {
    const PointRecord::Triple stored = PointRecord::POSITION.read(record);
    for (size_t axis = 0; axis < 3; ++axis) position[axis] = coordinate(axis, stored[axis]);
    if (header.format.hasColour()) {
        const RecordField<PointRecord::Colour> field{header.format.colourOffset};
        const PointRecord::Colour colour = field.read(record);
        for (size_t i = 0; i < colour.size(); ++i) attributes[i] = colourBytes[colour[i]];
    } else {
        std::fill_n(attributes, 3, static_cast<unsigned char>(255));
    }
    attributes[3] = intensityBytes[PointRecord::INTENSITY.read(record)];
    attributes[4] = header.format.extended() ? PointRecord::CLASSIFICATION.read(record)
                                             : PointRecord::CLASS_AND_FLAGS.read(record) & PointRecord::CLASS_BITS;
}

size_t LasReader::read(PointBatch& batch, size_t limit) {
    const size_t length = header.recordLength;
    size_t filled = 0;
    while (filled < limit && fetch()) {
        const size_t some = std::min(limit - filled, block.size() / length);
        // Grows with what has come in and not to `limit`, which no file may back. A batch that is used again keeps its
        // size until the end and is not cleared each time.
        if (batch.size() < filled + some) batch.resize(filled + some);
        for (const std::byte* record = block.data(); record != block.data() + some * length; record += length) {
            if (leavesOut(record)) continue;
            convert(record, &batch.positions[filled * 3], &batch.attributes[filled * 5]);
            ++filled;
        }
        block = block.subspan(some * length);
        passed += some;
    }
    batch.resize(filled);
    return filled;
}

void LasReader::surveyBlock(Extremes& extremes, uint64_t* intensities) const {
    Extremes now = extremes; // a copy of its own stays in registers
    const size_t length = header.recordLength;
    const RecordField<PointRecord::Colour> colourField{header.format.colourOffset};
    const bool coloured = header.format.hasColour();
    for (const std::byte* record = block.data(); record != block.data() + block.size(); record += length) {
        if (leavesOut(record)) {
            ++now.skipped;
            continue;
        }
        ++now.count;
        const PointRecord::Triple stored = PointRecord::POSITION.read(record);
        for (size_t axis = 0; axis < 3; ++axis) {
            now.smallest[axis] = std::min(now.smallest[axis], stored[axis]);
            now.largest[axis] = std::max(now.largest[axis], stored[axis]);
        }
        const uint16_t intensity = PointRecord::INTENSITY.read(record);
        now.intensity = std::max(now.intensity, intensity);
        ++intensities[intensity];
        if (!coloured) continue;
        for (const uint16_t value : colourField.read(record)) now.colour = std::max(now.colour, value);
    }
    extremes = now;
}

PointSurvey LasReader::survey(const std::function<bool()>& proceed) {
    rewind();
    PointSurvey survey;
    Extremes extremes;
    while (fetch() && (!proceed || proceed())) {
        surveyBlock(extremes, survey.intensities.classes());
        passed += block.size() / header.recordLength;
        block = {};
    }
    rewind();

    survey.count = extremes.count;
    survey.skipped = extremes.skipped;
    survey.largestColour = extremes.colour;
    survey.largestIntensity = extremes.intensity;
    if (survey.count == 0) return survey;
    for (size_t axis = 0; axis < 3; ++axis) {
        // A negative scale turns the order round; rounding keeps it otherwise.
        const double ends[] = {coordinate(axis, extremes.smallest[axis]), coordinate(axis, extremes.largest[axis])};
        survey.bounds[axis] = std::min(ends[0], ends[1]);
        survey.bounds[axis + 3] = std::max(ends[0], ends[1]);
    }
    return survey;
}

std::unique_ptr<PointReader> openLas(const std::string& path, const ReadOptions& options) {
    return std::make_unique<LasReader>(path, options);
}
