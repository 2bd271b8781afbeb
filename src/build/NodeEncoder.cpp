#include "build/NodeEncoder.h"

#include "format/PointStream.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// Writes four bytes, of which the first `BYTES` are the ordinate: the next ordinate covers the rest.
template <int BYTES>
unsigned char* putOrdinate(unsigned char* out, double distance) {
    const auto stored = static_cast<uint32_t>(toStoredOrdinate(distance, FixedRecord::POSITION_SCALE, BYTES));
    const uint32_t bigEndian = __builtin_bswap32(stored << (8 * (4 - BYTES)));
    std::memcpy(out, &bigEndian, sizeof(bigEndian));
    return out + BYTES;
}

template <int BYTES>
void putFixedRecords(std::span<const BuildPoint> points, std::span<const uint32_t> order,
                     const NodeEncoder::Corner& minimum, unsigned char* out) {
    for (const uint32_t i : order) {
        const BuildPoint& point = points[i];
        for (size_t axis = 0; axis < 3; ++axis) out = putOrdinate<BYTES>(out, point.position[axis] - minimum[axis]);
        std::memcpy(out, point.attributes, ATTRIBUTE_BYTES);
        out += ATTRIBUTE_BYTES;
    }
}

uint64_t gridOrdinate(double distance, double filter) {
    const double cell = distance / filter;
    if (!(cell > 0.0)) return 0;
    return cell >= static_cast<double>(PointStream::ORDINATE_MASK) ? PointStream::ORDINATE_MASK
                                                                   : static_cast<uint64_t>(cell);
}

} // namespace

std::span<const unsigned char> NodeEncoder::encodeFixed(std::span<const BuildPoint> points,
                                                        std::span<const uint32_t> order, const Corner& minimum,
                                                        int ordinateBytes) {
    const size_t size = order.size() * static_cast<size_t>(FixedRecord::strideFor(ordinateBytes));
    bytes.resize(size);
    if (ordinateBytes == 2) putFixedRecords<2>(points, order, minimum, bytes.data());
    if (ordinateBytes == 3) putFixedRecords<3>(points, order, minimum, bytes.data());
    if (ordinateBytes == 4) putFixedRecords<4>(points, order, minimum, bytes.data());
    return bytes;
}

// By radix, eleven bits at a time from the lowest, over as many bits as the largest code has. Stable, so that of the
// points in one cell the first in the list is kept.
void NodeEncoder::sortByCode() {
    constexpr int DIGIT_BITS = 11;
    constexpr size_t DIGITS = size_t{1} << DIGIT_BITS;
    uint64_t used = 0;
    for (const CodedPoint& point : coded) used |= point.code;
    other.resize(coded.size());
    for (int shift = 0; shift < 64 && used >> shift != 0; shift += DIGIT_BITS) {
        std::array<uint32_t, DIGITS> starts{};
        for (const CodedPoint& point : coded) ++starts[point.code >> shift & (DIGITS - 1)];
        uint32_t next = 0;
        for (uint32_t& start : starts) next += std::exchange(start, next);
        for (const CodedPoint& point : coded) other[starts[point.code >> shift & (DIGITS - 1)]++] = point;
        coded.swap(other);
    }
}

std::span<const unsigned char> NodeEncoder::encodeStream(std::span<const BuildPoint> points,
                                                         std::span<const uint32_t> order, const Corner& minimum,
                                                         double filter, int& written) {
    coded.clear();
    for (const uint32_t i : order) {
        const BuildPoint& point = points[i];
        const uint64_t code = PointStream::morton(gridOrdinate(point.position[0] - minimum[0], filter),
                                                  gridOrdinate(point.position[1] - minimum[1], filter),
                                                  gridOrdinate(point.position[2] - minimum[2], filter));
        coded.push_back({code, PointStream::pack(point.attributes)});
    }
    sortByCode();
    bytes.resize(coded.size() * PointStream::LARGEST_POINT_BYTES);
    unsigned char* out = bytes.data();
    uint64_t previous = 0;
    written = 0;
    for (const CodedPoint& point : coded) {
        if (point.code == previous) continue;
        out = PointStream::putDelta(out, point.code - previous);
        PointStream::store(out, point.packed);
        out += PointStream::PACKED_BYTES;
        previous = point.code;
        ++written;
    }
    return std::span(bytes).first(static_cast<size_t>(out - bytes.data()));
}
