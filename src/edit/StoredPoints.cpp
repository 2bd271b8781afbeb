#include "edit/StoredPoints.h"

#include "format/PointRecord.h"
#include "format/PointStream.h"

#include <algorithm>
#include <cstring>

namespace {

bool isSet(const std::vector<bool>& bits, int i) {
    return static_cast<size_t>(i) < bits.size() && bits[static_cast<size_t>(i)];
}

// Records that lie in `bytes` whole, `count` at most.
int wholeRecords(size_t bytes, int stride, int count) {
    return static_cast<int>(std::min<size_t>(bytes / static_cast<size_t>(stride), static_cast<size_t>(count)));
}

// Places of all records, one behind the other, sorted.
std::vector<std::span<const unsigned char>> sortedPlaces(std::span<const unsigned char> records, size_t stride) {
    const auto placeBytes = static_cast<size_t>(3 * FixedRecord::ordinateBytesFor(static_cast<int>(stride)));
    std::vector<std::span<const unsigned char>> places;
    places.reserve(records.size() / stride);
    for (size_t at = 0; records.size() - at >= stride; at += stride) places.push_back(records.subspan(at, placeBytes));
    std::sort(places.begin(), places.end(),
              [](const auto& a, const auto& b) { return std::memcmp(a.data(), b.data(), a.size()) < 0; });
    return places;
}

} // namespace

int moveBehind(std::span<unsigned char> records, int stride, int count, const std::vector<bool>& doomed) {
    const auto step = static_cast<size_t>(stride);
    count = wholeRecords(records.size(), stride, count);
    std::vector<unsigned char> moved(static_cast<size_t>(count) * step);
    unsigned char* keptEnd = records.data();
    unsigned char* movedEnd = moved.data();
    const unsigned char* run = records.data(); // records that go the same way travel together
    for (int i = 0, next = 0; i < count; i = next) {
        const bool isDoomed = isSet(doomed, i);
        while (next < count && isSet(doomed, next) == isDoomed) ++next;
        const size_t size = static_cast<size_t>(next - i) * step;
        unsigned char*& end = isDoomed ? movedEnd : keptEnd;
        std::memmove(end, run, size);
        end += size;
        run += size;
    }
    std::copy(moved.data(), movedEnd, keptEnd); // unlike memcpy, of nothing too
    return static_cast<int>((keptEnd - records.data()) / stride);
}

int markDeleted(std::span<unsigned char> stream, int count, const std::vector<bool>& doomed) {
    StreamRecords records(stream);
    int i = 0;
    int kept = 0;
    while (i < count && records.next()) {
        if (records.isMarked()) continue;
        if (isSet(doomed, i++)) {
            records.mark(true);
        } else {
            ++kept;
        }
    }
    for (; i < count; ++i) kept += isSet(doomed, i) ? 0 : 1; // points that damaged bytes do not hold
    return kept;
}

std::vector<bool> deletedMarks(std::span<unsigned char> stream, int count) {
    std::vector<bool> marks;
    marks.reserve(static_cast<size_t>(std::max(count, 0)));
    StreamRecords records(stream);
    for (int i = 0; i < count && records.next(); ++i) marks.push_back(records.isMarked());
    return marks;
}

bool setDeletedMarks(std::span<unsigned char> stream, int count, const std::vector<bool>& marks) {
    bool changed = false;
    StreamRecords records(stream);
    for (int i = 0; i < count && records.next(); ++i) {
        changed |= records.isMarked() != isSet(marks, i);
        records.mark(isSet(marks, i));
    }
    return changed;
}

bool setFixedClass(std::span<unsigned char> records, int stride, int count, const std::vector<bool>& selected,
                   unsigned char value) {
    count = wholeRecords(records.size(), stride, count);
    const auto classAt = static_cast<size_t>(3 * FixedRecord::ordinateBytesFor(stride) + ATTRIBUTE_BYTES - 1);
    bool any = false;
    for (int i = 0; i < count; ++i) {
        if (!isSet(selected, i)) continue;
        records[static_cast<size_t>(i) * static_cast<size_t>(stride) + classAt] = value;
        any = true;
    }
    return any;
}

bool setStreamClass(std::span<unsigned char> stream, int count, const std::vector<bool>& selected,
                    unsigned char value) {
    StreamRecords records(stream);
    bool any = false;
    for (int i = 0; i < count && records.next();) {
        if (records.isMarked() || !isSet(selected, i++)) continue;
        unsigned char attributes[ATTRIBUTE_BYTES];
        PointStream::unpack(PointStream::load(records.packedWord()), attributes);
        attributes[4] = value;
        PointStream::store(records.packedWord(), PointStream::pack(attributes));
        any = true;
    }
    return any;
}

bool haveSamePlaces(std::span<const unsigned char> a, std::span<const unsigned char> b, int stride) {
    if (a.size() != b.size() || stride < ATTRIBUTE_BYTES) return false;
    const auto step = static_cast<size_t>(stride);
    const auto placeBytes = static_cast<size_t>(3 * FixedRecord::ordinateBytesFor(stride));
    const auto samePlace = [placeBytes](const unsigned char* p, const unsigned char* q) {
        return std::memcmp(p, q, placeBytes) == 0;
    };
    size_t at = 0;
    while (a.size() - at >= step && samePlace(a.data() + at, b.data() + at)) at += step;
    if (a.size() - at < step) return true;
    const auto places = sortedPlaces(a.subspan(at), step);
    const auto others = sortedPlaces(b.subspan(at), step);
    return std::equal(places.begin(), places.end(), others.begin(), others.end(),
                      [&](const auto& p, const auto& q) { return samePlace(p.data(), q.data()); });
}

bool takeMarks(std::span<unsigned char> saved, std::span<unsigned char> stream) {
    StreamRecords to(saved);
    StreamRecords from(stream);
    while (from.next()) {
        if (!to.next() || !std::ranges::equal(to.delta(), from.delta())) return false;
        to.mark(from.isMarked());
    }
    return !to.next();
}
