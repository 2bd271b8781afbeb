#pragma once

#include "ground/RecordField.h"

#include <cstdint>
#include <span>

class OPCHeader;

// One record of the tree block that follows the header: which children a node has, and where its points are. Three
// forms exist, little-endian and without padding. No other line of the project spells out these offsets.
struct NodeRecord {
    // Bits of bitMask. A reader takes the axis from the first of the split bits that is set, and Z if neither X nor Y
    // is; it never looks at the Z bit, which builders set all the same.
    static constexpr uint8_t FIRST_CHILD = 1;
    static constexpr uint8_t SECOND_CHILD = 2;
    static constexpr uint8_t SPLIT_X = 4;
    static constexpr uint8_t SPLIT_Y = 8;
    static constexpr uint8_t SPLIT_Z = 16;

    // Fixed size points: version 17 and every other but 18.
    struct Fixed {
        static constexpr RecordField<uint8_t> BIT_MASK{0};
        static constexpr RecordField<uint8_t> BYTES_PER_VERTEX{BIT_MASK.end()};
        static constexpr RecordField<int16_t> POINT_COUNT{BYTES_PER_VERTEX.end()};
        static constexpr RecordField<int16_t> ORIGINAL_POINT_COUNT{POINT_COUNT.end()};
        static constexpr RecordField<int64_t> POINT_DATA_BYTE_LOCATION{ORIGINAL_POINT_COUNT.end()};
        static constexpr int SIZE = POINT_DATA_BYTE_LOCATION.end();
    };

    // Delta coded points: version 18.
    struct Stream {
        static constexpr RecordField<uint8_t> BIT_MASK{0};
        static constexpr RecordField<uint32_t> DISK_SIZE{BIT_MASK.end()};
        static constexpr RecordField<uint32_t> FILTER_SCALED{DISK_SIZE.end()};
        static constexpr RecordField<int16_t> POINT_COUNT{FILTER_SCALED.end()};
        static constexpr RecordField<int16_t> ORIGINAL_POINT_COUNT{POINT_COUNT.end()};
        static constexpr RecordField<int64_t> POINT_DATA_BYTE_LOCATION{ORIGINAL_POINT_COUNT.end()};
        static constexpr int SIZE = POINT_DATA_BYTE_LOCATION.end();
    };

    // The tree as a point server sends it and getTreeStructure writes it.
    struct Wire {
        static constexpr RecordField<uint8_t> BIT_MASK{0};
        static constexpr RecordField<int16_t> POINT_COUNT{BIT_MASK.end()};
        static constexpr int SIZE = POINT_COUNT.end();
    };

    // The grid step of version 18 travels in ten-thousandths.
    static constexpr double FILTER_SCALE = 10000.0;

    // Any version but 18 has fixed size points, unknown and negative ones included.
    static constexpr bool isStream(int version) { return version == 18; }
    static constexpr int sizeFor(int version) { return isStream(version) ? Stream::SIZE : Fixed::SIZE; }

    // Bytes of the tree image that a header announces: the file from offset 0 to the end of the tree. Less than a
    // header when it announces none.
    static int64_t imageSize(const OPCHeader& header);

    // The axis on which a node with this mask is split: 0 for X, 1 for Y, 2 for Z.
    static constexpr int splitAxis(uint8_t bitMask) {
        if (bitMask & SPLIT_X) return 0;
        return bitMask & SPLIT_Y ? 1 : 2;
    }

    uint8_t bitMask = 0;
    uint8_t bytesPerVertex = 17;
    int16_t pointCount = 0;         // points now in the node
    int16_t originalPointCount = 0; // points when the file was built
    uint32_t diskSize = 0;          // bytes of the point stream, version 18 only
    uint32_t filterScaled = 0;      // version 18 only
    int64_t pointDataByteLocation = 0;

    // `bytes` holds at least sizeFor(version), or Wire::SIZE, bytes; the caller has checked that.
    static NodeRecord decode(std::span<const unsigned char> bytes, int version);
    static NodeRecord decodeWire(std::span<const unsigned char> bytes);
    void encode(std::span<unsigned char> bytes, int version) const;
    void encodeWire(std::span<unsigned char> bytes) const;
};
static_assert(NodeRecord::Fixed::SIZE == 14 && NodeRecord::Stream::SIZE == 21 && NodeRecord::Wire::SIZE == 3,
              "files with these records exist");
