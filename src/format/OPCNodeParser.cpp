#include "format/OPCNodeParser.h"

#include "format/NodeRecord.h"
#include "format/PointRecord.h"
#include "format/PointStream.h"

OPCNodeParser::OPCNodeParser(std::span<unsigned char> dataIn, double filterIn, int bytesPerVertex, int versionIn)
    : data(dataIn), version(versionIn), filter(filterIn), stride(bytesPerVertex) {}

unsigned char* OPCNodeParser::fixedRecord(int i) const {
    if (i < 0 || stride < ATTRIBUTE_BYTES) return nullptr;
    const size_t start = static_cast<size_t>(i) * static_cast<size_t>(stride);
    if (start > data.size() || data.size() - start < static_cast<size_t>(stride)) return nullptr;
    return data.data() + start;
}

OPCPoint OPCNodeParser::getFixedPoint(int i) const {
    OPCPoint point;
    const unsigned char* record = fixedRecord(i);
    if (!record) return point;
    const int ordinateBytes = FixedRecord::ordinateBytesFor(stride);
    double* const ordinates[3] = {&point.x, &point.y, &point.z};
    for (double* ordinate : ordinates) {
        // In 32-bit float throughout, since every reader of these files must round alike.
        const auto stored = static_cast<float>(fromByteArrayLittleEndian(record, ordinateBytes));
        *ordinate = double{stored * FixedRecord::POSITION_STEP};
        record += ordinateBytes;
    }
    std::memcpy(point.colour, record, 4);
    point.classification = record[4];
    return point;
}

void OPCNodeParser::rewind() {
    currentPoint = -1;
    position = 0;
    morton = 0;
    hasRecord = false;
}

// Reads one delta and its packed word; false at the end of the sound bytes, where the cursor then stays.
bool OPCNodeParser::decodeRecord() {
    hasRecord = false;
    uint64_t delta = 0;
    size_t at = position;
    for (int i = 0;; ++i) {
        if (i == PointStream::LARGEST_DELTA_BYTES || at == data.size()) return false;
        const unsigned char byte = data[at++];
        delta |= uint64_t{byte & 0x7FU} << (7 * i);
        if (byte < 0x80) break;
    }
    if (data.size() - at < PointStream::PACKED_BYTES) return false;
    position = at + PointStream::PACKED_BYTES;
    morton += delta;
    hasRecord = true;
    return true;
}

OPCPoint OPCNodeParser::getPoint(int i, bool skipMarked) {
    if (!NodeRecord::isStream(version)) return getFixedPoint(i);
    OPCPoint point;
    if (currentPoint > i) rewind();
    if (currentPoint == i) return point;
    while (currentPoint != i) {
        if (!decodeRecord()) return point;
        if (skipMarked && isPointSet()) continue;
        ++currentPoint;
    }
    point.x = static_cast<double>(PointStream::gather(morton)) * filter;
    point.y = static_cast<double>(PointStream::gather(morton >> 1)) * filter;
    point.z = static_cast<double>(PointStream::gather(morton >> 2)) * filter;
    unsigned char attributes[ATTRIBUTE_BYTES];
    PointStream::unpack(PointStream::load(data.data() + position - PointStream::PACKED_BYTES), attributes);
    std::memcpy(point.colour, attributes, 4);
    point.classification = attributes[4];
    return point;
}

void OPCNodeParser::setPoint(bool marked) {
    if (!NodeRecord::isStream(version) || !hasRecord) return;
    unsigned char& first = data[position - PointStream::PACKED_BYTES];
    first = static_cast<unsigned char>(marked ? first | PointStream::MARKED : first & ~PointStream::MARKED);
}

bool OPCNodeParser::isPointSet() const {
    return NodeRecord::isStream(version) && hasRecord &&
           (data[position - PointStream::PACKED_BYTES] & PointStream::MARKED) != 0;
}

void OPCNodeParser::paintPoint(const unsigned char* colourAndClass, int i) {
    if (NodeRecord::isStream(version)) {
        if (!hasRecord) return;
        PointStream::store(data.data() + position - PointStream::PACKED_BYTES, PointStream::pack(colourAndClass));
    } else if (unsigned char* record = fixedRecord(i)) {
        std::memcpy(record + 3 * FixedRecord::ordinateBytesFor(stride), colourAndClass, ATTRIBUTE_BYTES);
    }
}
