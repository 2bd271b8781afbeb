#pragma once

#include "ground/RecordField.h"

#include <array>
#include <cstdint>
#include <vector>

// The 124-byte header of a point file, in memory together with its raw image. Little-endian, without padding.
//
// Not thread safe: the OPC that owns it has a mutex for it.
class OPCHeader {
public:
    static constexpr int VERSION_FIXED = 17;  // fixed size points
    static constexpr int VERSION_STREAM = 18; // delta coded points
    static constexpr int VERSION_VOXEL = 90;  // a voxel model

    // The layout on disk. No other line of the project spells out these offsets.
    struct Layout {
        static constexpr RecordField<int32_t> HEADER_TAG{0};
        static constexpr RecordField<int32_t> VERSION{HEADER_TAG.end()};
        static constexpr RecordField<int32_t> NODE_COUNT{VERSION.end()};
        static constexpr RecordField<int64_t> POINT_COUNT{NODE_COUNT.end()};
        static constexpr RecordField<std::array<double, 6>> BOUNDING_BOX{POINT_COUNT.end()};
        static constexpr RecordField<int64_t> PROTECTION_VALUE_1{BOUNDING_BOX.end()};
        static constexpr RecordField<int64_t> PROTECTION_VALUE_2{PROTECTION_VALUE_1.end()};
        static constexpr RecordField<int64_t> RESERVED{PROTECTION_VALUE_2.end()};
        static constexpr RecordField<int64_t> SPACING_SCALED{RESERVED.end()};
        static constexpr RecordField<double> INDEX_PARAMETER{SPACING_SCALED.end()};
        static constexpr RecordField<uint64_t> SPARE_VALUE_1{INDEX_PARAMETER.end()};
        static constexpr RecordField<uint64_t> SPARE_VALUE_2{SPARE_VALUE_1.end()};
        static constexpr int SIZE = SPARE_VALUE_2.end();
    };
    static_assert(Layout::SIZE == 124, "files with this header exist");

    OPCHeader();
    virtual ~OPCHeader() = default;

    // Does not copy: the copy has the defaults of a new header. Code that needs the values copies the image.
    OPCHeader(const OPCHeader&);
    OPCHeader& operator=(const OPCHeader&) = delete;

    // Rebuilds the image from the fields and copies its headerSize bytes to `out`.
    void getHeaderData(char* out);

    // Takes headerSize bytes as the image and parses them.
    void setHeaderData(const char* in);

    // The two halves of the above: fields to image, and image to fields. Neither validates anything.
    void writeHeader();
    void readHeader();

    // Whether the counts, the version and the box can be those of a file. The only gate: a header that fails it keeps
    // its values readable.
    [[nodiscard]] bool isValid() const;

    bool changed = false; // for headerChanged: a host program may have something to save
    int32_t headerTag = 1;
    int32_t version = VERSION_FIXED;
    int32_t nodeCount = 0;
    int64_t pointCount = 0;
    std::array<double, 6> boundingBox{}; // minimum x, y, z, maximum x, y, z
    int64_t protectionValue1 = 0;        // not 0: the file is protected
    int64_t protectionValue2 = 0;        // when a protected file expires, in seconds since 1970, 0 for never
    int64_t reserved = 0;                // version 90: length of the block of header and tree
    int64_t spacingScaled = 0;           // point spacing of the root in ten-thousandths
    double indexParameter = 1.0;
    double spareValue1 = 0.0;
    double spareValue2 = 0.0;
    int32_t headerSize = Layout::SIZE;

private:
    std::vector<unsigned char> headerBytes; // the image
};
