#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class ByteInput;

enum class PlyType : uint8_t { INT8, UINT8, INT16, UINT16, INT32, UINT32, FLOAT32, FLOAT64 };

size_t sizeOfPlyType(PlyType type);

// The value of that type at `bytes`, which need not be aligned.
double loadPlyValue(const char* bytes, PlyType type, bool bigEndian);

struct PlyProperty {
    std::string name;
    PlyType type;                     // of the value, or of the list's items
    std::optional<PlyType> countType; // of the number in front of a list; empty for a single value
};

struct PlyElement {
    std::string name;
    uint64_t count = 0;
    std::vector<PlyProperty> properties;

    [[nodiscard]] bool hasLists() const;

    // Bytes of a binary record, its lists taken as empty.
    [[nodiscard]] uint64_t smallestSize() const;
};

// What a PLY file says about itself. Reading leaves the input behind the header's last line.
//
// A header of more than SIZE_LIMIT bytes is refused, so that a record of single values always fits into the window of
// the input.
struct PlyHeader {
    enum Encoding : uint8_t { ASCII, BINARY_LITTLE, BINARY_BIG };
    static constexpr uint64_t SIZE_LIMIT = 256 * 1024;

    Encoding encoding = ASCII;
    std::vector<PlyElement> elements;
    uint64_t lineCount = 0;
    uint64_t size = 0; // bytes

    // Throws FileError that names the line at fault.
    static PlyHeader read(ByteInput& input);

    [[nodiscard]] std::string_view encodingName() const;
};
