#include "format/OPCHeader.h"

#include <bit>
#include <cstring>

OPCHeader::OPCHeader() {
    headerBytes.reserve(static_cast<size_t>(headerSize));
}

OPCHeader::OPCHeader(const OPCHeader& /*other*/) : OPCHeader() {}

void OPCHeader::getHeaderData(char* out) {
    writeHeader();
    std::memcpy(out, headerBytes.data(), static_cast<size_t>(headerSize));
}

void OPCHeader::setHeaderData(const char* in) {
    headerBytes.resize(static_cast<size_t>(headerSize));
    std::memcpy(headerBytes.data(), in, static_cast<size_t>(headerSize));
    readHeader();
}

void OPCHeader::writeHeader() {
    headerBytes.assign(Layout::SIZE, 0);
    Layout::HEADER_TAG.put(headerBytes, headerTag);
    Layout::VERSION.put(headerBytes, version);
    Layout::NODE_COUNT.put(headerBytes, nodeCount);
    Layout::POINT_COUNT.put(headerBytes, pointCount);
    Layout::BOUNDING_BOX.put(headerBytes, boundingBox);
    Layout::PROTECTION_VALUE_1.put(headerBytes, protectionValue1);
    Layout::PROTECTION_VALUE_2.put(headerBytes, protectionValue2);
    Layout::RESERVED.put(headerBytes, reserved);
    Layout::SPACING_SCALED.put(headerBytes, spacingScaled);
    Layout::INDEX_PARAMETER.put(headerBytes, indexParameter);
    // Deliberately not the inverse of readHeader, which takes the same eight bytes as a number: files with other
    // values than 0.0 do not exist, and readers in the field agree on this.
    Layout::SPARE_VALUE_1.put(headerBytes, std::bit_cast<uint64_t>(spareValue1));
    Layout::SPARE_VALUE_2.put(headerBytes, std::bit_cast<uint64_t>(spareValue2));
}

void OPCHeader::readHeader() {
    headerTag = Layout::HEADER_TAG.get(headerBytes);
    version = Layout::VERSION.get(headerBytes);
    nodeCount = Layout::NODE_COUNT.get(headerBytes);
    pointCount = Layout::POINT_COUNT.get(headerBytes);
    boundingBox = Layout::BOUNDING_BOX.get(headerBytes);
    protectionValue1 = Layout::PROTECTION_VALUE_1.get(headerBytes);
    protectionValue2 = Layout::PROTECTION_VALUE_2.get(headerBytes);
    reserved = Layout::RESERVED.get(headerBytes);
    spacingScaled = Layout::SPACING_SCALED.get(headerBytes);
    indexParameter = Layout::INDEX_PARAMETER.get(headerBytes);
    spareValue1 = static_cast<double>(Layout::SPARE_VALUE_1.get(headerBytes));
    spareValue2 = static_cast<double>(Layout::SPARE_VALUE_2.get(headerBytes));
}

bool OPCHeader::isValid() const {
    if (nodeCount < 1 || pointCount < 1 || version > VERSION_VOXEL || headerSize != Layout::SIZE) return false;
    for (size_t axis = 0; axis < 3; ++axis) {
        // Written so that a NaN fails.
        if (!(boundingBox[axis] < boundingBox[axis + 3])) return false;
    }
    return true;
}
