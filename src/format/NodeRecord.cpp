#include "format/NodeRecord.h"

#include "format/OPCHeader.h"

int64_t NodeRecord::imageSize(const OPCHeader& header) {
    // A voxel file counts the length in the low 32 bits of `reserved`; the header must lie within it.
    if (header.version == OPCHeader::VERSION_VOXEL) return int64_t{static_cast<uint32_t>(header.reserved)};
    return int64_t{header.nodeCount} * sizeFor(header.version) + header.headerSize;
}

NodeRecord NodeRecord::decode(std::span<const unsigned char> bytes, int version) {
    NodeRecord record;
    if (isStream(version)) {
        record.bitMask = Stream::BIT_MASK.get(bytes);
        record.diskSize = Stream::DISK_SIZE.get(bytes);
        record.filterScaled = Stream::FILTER_SCALED.get(bytes);
        record.pointCount = Stream::POINT_COUNT.get(bytes);
        record.originalPointCount = Stream::ORIGINAL_POINT_COUNT.get(bytes);
        record.pointDataByteLocation = Stream::POINT_DATA_BYTE_LOCATION.get(bytes);
    } else {
        record.bitMask = Fixed::BIT_MASK.get(bytes);
        record.bytesPerVertex = Fixed::BYTES_PER_VERTEX.get(bytes);
        record.pointCount = Fixed::POINT_COUNT.get(bytes);
        record.originalPointCount = Fixed::ORIGINAL_POINT_COUNT.get(bytes);
        record.pointDataByteLocation = Fixed::POINT_DATA_BYTE_LOCATION.get(bytes);
    }
    return record;
}

NodeRecord NodeRecord::decodeWire(std::span<const unsigned char> bytes) {
    NodeRecord record;
    record.bitMask = Wire::BIT_MASK.get(bytes);
    record.pointCount = Wire::POINT_COUNT.get(bytes);
    record.originalPointCount = record.pointCount;
    return record;
}

void NodeRecord::encode(std::span<unsigned char> bytes, int version) const {
    if (isStream(version)) {
        Stream::BIT_MASK.put(bytes, bitMask);
        Stream::DISK_SIZE.put(bytes, diskSize);
        Stream::FILTER_SCALED.put(bytes, filterScaled);
        Stream::POINT_COUNT.put(bytes, pointCount);
        Stream::ORIGINAL_POINT_COUNT.put(bytes, originalPointCount);
        Stream::POINT_DATA_BYTE_LOCATION.put(bytes, pointDataByteLocation);
    } else {
        Fixed::BIT_MASK.put(bytes, bitMask);
        Fixed::BYTES_PER_VERTEX.put(bytes, bytesPerVertex);
        Fixed::POINT_COUNT.put(bytes, pointCount);
        Fixed::ORIGINAL_POINT_COUNT.put(bytes, originalPointCount);
        Fixed::POINT_DATA_BYTE_LOCATION.put(bytes, pointDataByteLocation);
    }
}

void NodeRecord::encodeWire(std::span<unsigned char> bytes) const {
    Wire::BIT_MASK.put(bytes, bitMask);
    Wire::POINT_COUNT.put(bytes, pointCount);
}
