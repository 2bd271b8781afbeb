#include "readers/LazScheme.h"

#include "readers/PointReader.h"
#include "readers/RecordField.h"

#include <algorithm>

namespace {

struct SchemeRecord {
    static constexpr RecordField<uint16_t> COMPRESSOR{0};
    static constexpr RecordField<uint16_t> CODER{COMPRESSOR.end()};
    static constexpr RecordField<uint32_t> CHUNK_SIZE{CODER.end() + 8};       // version, revision, options
    static constexpr RecordField<uint16_t> ITEM_COUNT{CHUNK_SIZE.end() + 16}; // special records
    static constexpr size_t SIZE = ITEM_COUNT.end();
};
static_assert(SchemeRecord::SIZE == 34, "files with this record exist");

struct ItemRecord {
    static constexpr RecordField<LazItemType> TYPE{0};
    static constexpr RecordField<uint16_t> ITEM_SIZE{TYPE.end()};
    static constexpr RecordField<uint16_t> VERSION{ITEM_SIZE.end()};
    static constexpr size_t SIZE = VERSION.end();
};

// What this reader decodes of an item type.
struct ItemRule {
    LazItemType type;
    uint16_t size; // 0: any
    uint16_t oldest;
    uint16_t newest;
};

} // namespace

static constexpr uint16_t ARITHMETIC_CODER = 0;

// Version 2 of the layered items is what a prototype of version 3 wrote, in the same form.
static constexpr std::array<ItemRule, 10> RULES{{
    {LazItemType::BYTE, 0, 1, 2},
    {LazItemType::POINT10, 20, 1, 2},
    {LazItemType::GPSTIME11, 8, 1, 2},
    {LazItemType::RGB12, 6, 1, 2},
    {LazItemType::WAVEPACKET13, 29, 1, 1},
    {LazItemType::POINT14, 30, 2, 4},
    {LazItemType::RGB14, 6, 2, 4},
    {LazItemType::RGBNIR14, 8, 2, 4},
    {LazItemType::WAVEPACKET14, 29, 2, 4},
    {LazItemType::BYTE14, 0, 2, 4},
}};

static std::vector<LazItemType> itemsOf(uint8_t format) {
    using enum LazItemType;
    switch (format) {
    case 0:
        return {POINT10};
    case 1:
        return {POINT10, GPSTIME11};
    case 2:
        return {POINT10, RGB12};
    case 3:
        return {POINT10, GPSTIME11, RGB12};
    case 4:
        return {POINT10, GPSTIME11, WAVEPACKET13};
    case 5:
        return {POINT10, GPSTIME11, RGB12, WAVEPACKET13};
    case 6:
        return {POINT14};
    case 7:
        return {POINT14, RGB14};
    case 8:
        return {POINT14, RGBNIR14};
    case 9:
        return {POINT14, WAVEPACKET14};
    case 10:
        return {POINT14, RGBNIR14, WAVEPACKET14};
    default:
        throw FileError("point format " + std::to_string(format) + " cannot be compressed");
    }
}

static LazItem parseItem(const std::byte* bytes) {
    const LazItem item{ItemRecord::TYPE.read(bytes), ItemRecord::ITEM_SIZE.read(bytes),
                       ItemRecord::VERSION.read(bytes)};
    const std::string name = "compressed item of type " + std::to_string(static_cast<unsigned>(item.type));
    const auto* rule = std::find_if(RULES.begin(), RULES.end(), [&](const ItemRule& r) { return r.type == item.type; });
    if (rule == RULES.end()) throw FileError(name + ": the type is not known");
    if (item.version < rule->oldest || item.version > rule->newest)
        throw FileError(name + ": version " + std::to_string(item.version) + " is not known");
    if (item.size == 0 || (rule->size != 0 && item.size != rule->size))
        throw FileError(name + ": a size of " + std::to_string(item.size) + " bytes is wrong");
    return item;
}

// The items must be those of the point format, and after them nothing but extra bytes.
static void checkItems(const LazScheme& scheme, uint8_t format, size_t recordLength) {
    const std::vector<LazItemType> expected = itemsOf(format);
    const bool layered = scheme.compressor == LazScheme::LAYERED_CHUNKED;
    const LazItemType extra = layered ? LazItemType::BYTE14 : LazItemType::BYTE;
    size_t length = 0;
    bool fits = scheme.items.size() >= expected.size() && layered == (expected[0] == LazItemType::POINT14);
    for (size_t i = 0; i < scheme.items.size(); ++i) {
        length += scheme.items[i].size;
        fits = fits && scheme.items[i].type == (i < expected.size() ? expected[i] : extra);
    }
    if (!fits) throw FileError("the compressed items are not those of point format " + std::to_string(format));
    if (length != recordLength)
        throw FileError("the compressed items have " + std::to_string(length) + " bytes a point, the records " +
                        std::to_string(recordLength));
}

LazScheme LazScheme::parse(std::span<const std::byte> contents, uint8_t format, size_t recordLength) {
    using Field = SchemeRecord;
    if (contents.size() < Field::SIZE) throw FileError("the description of the compression is cut short");
    LazScheme scheme;
    const unsigned compressor = Field::COMPRESSOR.read(contents.data());
    if (compressor < POINTWISE || compressor > LAYERED_CHUNKED)
        throw FileError("compressor " + std::to_string(compressor) + " is not known (1 to 3 are)");
    scheme.compressor = static_cast<Compressor>(compressor);
    const unsigned coder = Field::CODER.read(contents.data());
    if (coder != ARITHMETIC_CODER) throw FileError("coder " + std::to_string(coder) + " is not known (0 is)");
    scheme.chunkSize = Field::CHUNK_SIZE.read(contents.data());
    if (scheme.compressor != POINTWISE && scheme.chunkSize == 0)
        throw FileError("the compressed chunks have a size of 0");

    const size_t count = Field::ITEM_COUNT.read(contents.data());
    contents = contents.subspan(Field::SIZE);
    if (contents.size() / ItemRecord::SIZE < count) throw FileError("the description of the compression is cut short");
    for (size_t i = 0; i < count; ++i) scheme.items.push_back(parseItem(contents.data() + i * ItemRecord::SIZE));
    checkItems(scheme, format, recordLength);
    return scheme;
}
