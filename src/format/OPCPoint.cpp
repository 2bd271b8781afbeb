#include "format/OPCPoint.h"

#include "format/PointRecord.h"

void OPCPoint::toByteArray(double ox, double oy, double oz, char* out, int offset) const {
    const double position[3] = {x, y, z};
    const double origin[3] = {ox, oy, oz};
    const unsigned char attributes[ATTRIBUTE_BYTES] = {colour[0], colour[1], colour[2], colour[3], classification};
    FloatRecord::encode(reinterpret_cast<unsigned char*>(out) + offset, position, origin, attributes);
}

void OPCPoint::fromByteArray(double ox, double oy, double oz, const char* in, int offset) {
    const auto* record = reinterpret_cast<const unsigned char*>(in) + offset;
    const double origin[3] = {ox, oy, oz};
    double position[3];
    FloatRecord::decode(record, origin, position);
    x = position[0];
    y = position[1];
    z = position[2];
    std::memcpy(colour, record + FloatRecord::ATTRIBUTES, 4);
    classification = record[FloatRecord::ATTRIBUTES + 4];
}

void OPCPoint::toCompressedByteArray(double ox, double oy, double oz, double scale, char* out, long long offset,
                                     int ordinateBytes) const {
    auto* record = reinterpret_cast<unsigned char*>(out) + offset;
    const double distances[3] = {x - ox, y - oy, z - oz};
    for (const double distance : distances) {
        putBigEndian(record, static_cast<uint32_t>(toStoredOrdinate(distance, scale, ordinateBytes)), ordinateBytes);
        record += ordinateBytes;
    }
    std::memcpy(record, colour, 4);
    record[4] = classification;
}
