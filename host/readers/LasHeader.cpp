#include "readers/LasHeader.h"

#include "readers/PointReader.h"
#include "readers/RecordField.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace {

// The public header block of LAS 1.0 to 1.4: 227 bytes in every version, 235 from 1.3 on, 375 in 1.4. Fields that no
// one reads here are passed over with their sizes.
struct HeaderRecord {
    using Text4 = std::array<char, 4>;
    using Triple = std::array<double, 3>;

    static constexpr RecordField<Text4> SIGNATURE{0};
    static constexpr RecordField<uint8_t> VERSION_MAJOR{SIGNATURE.end() + 20}; // source, encoding, project id
    static constexpr RecordField<uint8_t> VERSION_MINOR{VERSION_MAJOR.end()};
    static constexpr RecordField<uint16_t> HEADER_SIZE{VERSION_MINOR.end() + 68}; // system, software, date
    static constexpr RecordField<uint32_t> DATA_OFFSET{HEADER_SIZE.end()};
    static constexpr RecordField<uint32_t> VLR_COUNT{DATA_OFFSET.end()};
    static constexpr RecordField<uint8_t> POINT_FORMAT{VLR_COUNT.end()};
    static constexpr RecordField<uint16_t> RECORD_LENGTH{POINT_FORMAT.end()};
    static constexpr RecordField<uint32_t> LEGACY_COUNT{RECORD_LENGTH.end()};
    static constexpr RecordField<Triple> SCALE{LEGACY_COUNT.end() + 20}; // five counts by return
    static constexpr RecordField<Triple> OFFSET{SCALE.end()};
    static constexpr size_t SIZE = OFFSET.end() + 48;                 // bounds
    static constexpr RecordField<uint64_t> EXTENDED_COUNT{SIZE + 20}; // waveform and extended record positions
    static constexpr size_t SIZE_1_4 = EXTENDED_COUNT.end() + 120;    // fifteen counts by return
};

static_assert(HeaderRecord::SIZE == 227 && HeaderRecord::SIZE_1_4 == 375, "files with this header exist");

// The head of a variable length record; its contents follow.
struct VlrRecord {
    using Text16 = std::array<char, 16>;

    static constexpr RecordField<Text16> USER{2};
    static constexpr RecordField<uint16_t> NUMBER{USER.end()};
    static constexpr RecordField<uint16_t> CONTENT_SIZE{NUMBER.end()};
    static constexpr size_t SIZE = CONTENT_SIZE.end() + 32; // description
};

static_assert(VlrRecord::SIZE == 54, "files with this record exist");

} // namespace

static constexpr uint8_t COMPRESSED_BIT = 0x80; // of the point format, set in LAZ files
static constexpr uint8_t FORMAT_NUMBER = 0x3F;  // the rest; bit 6 marked early LAZ files
static constexpr std::string_view LAZ_USER = "laszip encoded";
static constexpr uint16_t LAZ_NUMBER = 22204;

LasPointFormat LasPointFormat::of(uint8_t number) {
    static constexpr std::array<LasPointFormat, LAST + 1> FORMATS{{
        {0, 20, 0},
        {1, 28, 0},
        {2, 26, 20},
        {3, 34, 28},
        {4, 57, 0},
        {5, 63, 28},
        {6, 30, 0},
        {7, 36, 30},
        {8, 38, 30},
        {9, 59, 0},
        {10, 67, 30},
    }};
    if (number > LAST) throw FileError("point format " + std::to_string(number) + " is not known (0 to 10 are)");
    return FORMATS[number];
}

static void checkTransform(LasHeader& header) {
    for (size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(header.scale[axis]) || !std::isfinite(header.offset[axis]))
            throw FileError("the header's scale or offset is not a finite number");
        if (header.scale[axis] == 0.0) header.warnings.emplace_back("a scale of 0 puts all points on one plane");
    }
}

static LasHeader parseBlock(const std::byte* block, size_t size) {
    using Field = HeaderRecord;
    constexpr Field::Text4 LASF{'L', 'A', 'S', 'F'};
    if (size < sizeof(LASF) || Field::SIGNATURE.read(block) != LASF) throw FileError("is not a LAS file");
    if (size < Field::SIZE) throw FileError("the file ends within the LAS header");

    LasHeader header;
    const unsigned major = Field::VERSION_MAJOR.read(block);
    header.versionMinor = Field::VERSION_MINOR.read(block);
    if (major != 1 || header.versionMinor > 4)
        throw FileError("LAS version " + std::to_string(major) + "." + std::to_string(header.versionMinor) +
                        " is not supported (1.0 to 1.4 are)");

    const uint8_t format = Field::POINT_FORMAT.read(block);
    header.compressed = (format & COMPRESSED_BIT) != 0;
    header.format = LasPointFormat::of(header.compressed ? format & FORMAT_NUMBER : format);
    header.recordLength = Field::RECORD_LENGTH.read(block);
    if (header.recordLength < header.format.length)
        throw FileError("a record of " + std::to_string(header.recordLength) + " bytes is too short for point format " +
                        std::to_string(header.format.number));

    header.dataOffset = Field::DATA_OFFSET.read(block);
    if (header.dataOffset < Field::SIZE) throw FileError("the points are said to start within the LAS header");
    header.announcedCount = Field::LEGACY_COUNT.read(block);
    header.scale = Field::SCALE.read(block);
    header.offset = Field::OFFSET.read(block);
    checkTransform(header);

    // The legacy count of a 1.4 file may be 0 or, with more points than 32 bits can count, anything.
    const bool extended = header.versionMinor == 4 && Field::HEADER_SIZE.read(block) >= Field::SIZE_1_4;
    if (extended && size < Field::SIZE_1_4) throw FileError("the file ends within the LAS header");
    if (extended && Field::EXTENDED_COUNT.read(block) != 0) header.announcedCount = Field::EXTENDED_COUNT.read(block);
    return header;
}

// Whether `head` introduces the description of the compression.
static bool describesCompression(const std::byte* head) {
    const VlrRecord::Text16 user = VlrRecord::USER.read(head);
    return VlrRecord::NUMBER.read(head) == LAZ_NUMBER && std::string_view(user.data(), LAZ_USER.size()) == LAZ_USER;
}

// Goes through the records between header and points for the one that describes the compression. Their count is a
// hint only: what counts is where the points start.
static void readRecords(const InputFile& file, uint64_t position, uint32_t count, LasHeader& header) {
    const uint64_t end = std::min(header.dataOffset, file.size());
    uint32_t seen = 0;
    for (; seen < count && position <= end && end - position >= VlrRecord::SIZE; ++seen) {
        std::array<std::byte, VlrRecord::SIZE> head{};
        file.readWhole(position, head);
        position += VlrRecord::SIZE;
        const size_t size = VlrRecord::CONTENT_SIZE.read(head.data());
        if (size > end - position) break;
        if (header.compression.empty() && describesCompression(head.data())) {
            header.compression.resize(size);
            file.readWhole(position, header.compression);
        }
        position += size;
    }
    if (seen < count)
        header.warnings.push_back("the header announces " + std::to_string(count) +
                                  " variable length records, the file holds " + std::to_string(seen));
}

LasHeader LasHeader::read(const InputFile& file) {
    std::array<std::byte, HeaderRecord::SIZE_1_4> block{};
    LasHeader header = parseBlock(block.data(), file.readAt(0, block));
    readRecords(file, HeaderRecord::HEADER_SIZE.read(block.data()), HeaderRecord::VLR_COUNT.read(block.data()), header);
    return header;
}
