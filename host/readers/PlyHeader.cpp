#include "readers/PlyHeader.h"
#include "readers/ByteInput.h"
#include "readers/PointReader.h"
#include "readers/TextFields.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

static constexpr std::pair<std::string_view, PlyType> TYPE_NAMES[] = {
    {"char", PlyType::INT8},      {"int8", PlyType::INT8},       {"uchar", PlyType::UINT8},
    {"uint8", PlyType::UINT8},    {"short", PlyType::INT16},     {"int16", PlyType::INT16},
    {"ushort", PlyType::UINT16},  {"uint16", PlyType::UINT16},   {"int", PlyType::INT32},
    {"int32", PlyType::INT32},    {"uint", PlyType::UINT32},     {"uint32", PlyType::UINT32},
    {"float", PlyType::FLOAT32},  {"float32", PlyType::FLOAT32}, {"double", PlyType::FLOAT64},
    {"float64", PlyType::FLOAT64}};

static constexpr std::string_view ENCODING_NAMES[] = {"ascii", "binary_little_endian", "binary_big_endian"};

size_t sizeOfPlyType(PlyType type) {
    static constexpr size_t SIZES[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return SIZES[static_cast<size_t>(type)];
}

template <class T>
static double load(const char* bytes, bool swap) {
    char raw[sizeof(T)];
    std::memcpy(raw, bytes, sizeof(T));
    if (swap) std::reverse(std::begin(raw), std::end(raw));
    T value;
    std::memcpy(&value, raw, sizeof(T));
    return static_cast<double>(value);
}

double loadPlyValue(const char* bytes, PlyType type, bool bigEndian) {
    const bool swap = bigEndian != (std::endian::native == std::endian::big);
    switch (type) {
    case PlyType::INT8:
        return load<int8_t>(bytes, swap);
    case PlyType::UINT8:
        return load<uint8_t>(bytes, swap);
    case PlyType::INT16:
        return load<int16_t>(bytes, swap);
    case PlyType::UINT16:
        return load<uint16_t>(bytes, swap);
    case PlyType::INT32:
        return load<int32_t>(bytes, swap);
    case PlyType::UINT32:
        return load<uint32_t>(bytes, swap);
    case PlyType::FLOAT32:
        return load<float>(bytes, swap);
    case PlyType::FLOAT64:
        return load<double>(bytes, swap);
    }
    return 0;
}

bool PlyElement::hasLists() const {
    return std::any_of(properties.begin(), properties.end(), [](const auto& p) { return p.countType.has_value(); });
}

uint64_t PlyElement::smallestSize() const {
    uint64_t size = 0;
    for (const PlyProperty& property : properties) size += sizeOfPlyType(property.countType.value_or(property.type));
    return size;
}

std::string_view PlyHeader::encodingName() const {
    return ENCODING_NAMES[encoding];
}

// Error texts quote what the file says, which may be long or not text at all.
static std::string quote(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text.substr(0, 40)) quoted += c >= ' ' && c < '\x7f' ? c : '?';
    return quoted + (text.size() > 40 ? "...\"" : "\"");
}

static PlyType parseType(std::string_view name) {
    for (const auto& [known, type] : TYPE_NAMES) {
        if (name == known) return type;
    }
    throw FileError("unknown type " + quote(name));
}

static PlyHeader::Encoding parseEncoding(const std::vector<std::string_view>& words) {
    const auto* known = words.size() == 3 ? std::find(std::begin(ENCODING_NAMES), std::end(ENCODING_NAMES), words[1])
                                          : std::end(ENCODING_NAMES);
    if (known == std::end(ENCODING_NAMES) || words[2] != "1.0") {
        throw FileError("unknown format " + quote(words.size() > 1 ? words[1] : "") +
                        (words.size() > 2 ? " version " + quote(words[2]) : ""));
    }
    return static_cast<PlyHeader::Encoding>(known - std::begin(ENCODING_NAMES));
}

static PlyElement parseElement(const std::vector<std::string_view>& words) {
    if (words.size() != 3) throw FileError("an element needs a name and a count");
    const auto count = wholeNumberOfField(words[2]);
    if (!count) throw FileError("the count " + quote(words[2]) + " is not a whole number");
    return {std::string(words[1]), *count, {}};
}

static PlyProperty parseProperty(const std::vector<std::string_view>& words) {
    if (words.size() == 3) return {std::string(words[2]), parseType(words[1]), {}};
    if (words.size() != 5 || words[1] != "list") throw FileError("a property needs a type and a name");
    const PlyType countType = parseType(words[2]);
    if (countType == PlyType::FLOAT32 || countType == PlyType::FLOAT64) {
        throw FileError("the length of a list cannot be of type " + quote(words[2]));
    }
    return {std::string(words[4]), parseType(words[3]), countType};
}

namespace {

// Takes the header's lines one after the other.
class HeaderParser {
public:
    PlyHeader header;

    // False once the header has ended.
    bool take(std::string_view line) {
        const auto words = splitFields(line, 6);
        if (words.empty() || words[0] == "comment" || words[0] == "obj_info") return true;
        if (words[0] == "end_header") return false;
        if (words[0] == "format") {
            header.encoding = parseEncoding(words);
            hasFormat = true;
        } else if (words[0] == "element") {
            header.elements.push_back(parseElement(words));
        } else if (words[0] == "property") {
            if (header.elements.empty()) throw FileError("a property stands before the first element");
            header.elements.back().properties.push_back(parseProperty(words));
        } else {
            throw FileError("unknown keyword " + quote(words[0]));
        }
        return true;
    }

    bool hasFormat = false;
};

} // namespace

PlyHeader PlyHeader::read(ByteInput& input) {
    HeaderParser parser;
    InputLine line;
    uint64_t number = 1;
    const uint64_t start = input.position();
    if (!input.nextLine(line) || line.text != "ply") throw FileError("is not a PLY file");
    for (bool more = true; more;) {
        ++number;
        if (!input.nextLine(line)) throw FileError("the header does not end");
        if (line.tooLong || input.position() - start > SIZE_LIMIT) throw FileError("the header is too long");
        try {
            more = parser.take(line.text);
        } catch (const FileError& error) {
            throw FileError("line " + std::to_string(number) + ": " + error.what());
        }
    }
    if (!parser.hasFormat) throw FileError("the header names no format");
    parser.header.lineCount = number;
    parser.header.size = input.position() - start;
    return std::move(parser.header);
}
