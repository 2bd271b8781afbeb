#include "format/EditJournal.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "ground/RecordField.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// A header that names the point file, then changes one behind the other. Each carries the number after that of the one
// before it and checksums of itself: reading ends at the first that does not, be it cut off by a kill or left from an
// earlier round, since a journal that starts over is not cleared.

namespace {

struct HeaderLayout {
    static constexpr uint64_t MAGIC_VALUE = 0x314C4E524A424D4EULL; // "NMBJRNL1"
    static constexpr RecordField<uint64_t> MAGIC{0};
    static constexpr RecordField<uint64_t> TREE_CHECKSUM{MAGIC.end()};
    static constexpr RecordField<int64_t> FILE_SIZE{TREE_CHECKSUM.end()};
    static constexpr size_t SIZE = FILE_SIZE.end();
};

struct ChangeLayout {
    static constexpr RecordField<uint64_t> SEQUENCE{0};
    static constexpr RecordField<int64_t> NODE_INDEX{SEQUENCE.end()};
    static constexpr RecordField<uint32_t> POINTS_SIZE{NODE_INDEX.end()};
    static constexpr RecordField<int32_t> COUNT{POINTS_SIZE.end()};
    static constexpr RecordField<uint64_t> POINTS_CHECKSUM{COUNT.end()};
    static constexpr RecordField<uint64_t> CHECKSUM{POINTS_CHECKSUM.end()}; // of the fields before it
    static constexpr size_t SIZE = CHECKSUM.end();
};

// Tells bytes that were written whole from others. Four sums side by side, each step an exclusive or, a multiplication
// by an odd number and a shift, all of which can be undone: a change of one word changes its sum.
uint64_t checksum(std::span<const unsigned char> bytes) {
    constexpr uint64_t FACTOR = 0x9E3779B97F4A7C15ULL;
    const auto step = [](uint64_t sum, uint64_t word) {
        sum = (sum ^ word) * FACTOR;
        return sum ^ sum >> 32;
    };
    std::array<uint64_t, 4> sums{1, 2, 3, 4};
    size_t at = 0;
    for (; bytes.size() - at >= sizeof(sums); at += sizeof(sums)) {
        std::array<uint64_t, 4> words;
        std::memcpy(words.data(), bytes.data() + at, sizeof(words));
        for (size_t i = 0; i < sums.size(); ++i) sums[i] = step(sums[i], words[i]);
    }
    uint64_t result = step(FACTOR, bytes.size());
    for (; at < bytes.size(); ++at) result = step(result, bytes[at]);
    for (const uint64_t sum : sums) result = step(result, sum);
    return result;
}

std::array<unsigned char, HeaderLayout::SIZE> headerFor(const EditedFile& target) {
    std::array<unsigned char, HeaderLayout::SIZE> header{};
    HeaderLayout::MAGIC.put(header, HeaderLayout::MAGIC_VALUE);
    HeaderLayout::TREE_CHECKSUM.put(header, target.treeChecksum);
    HeaderLayout::FILE_SIZE.put(header, target.fileSize);
    return header;
}

// Whether the path still leads to the open file: another process may have removed it before it was locked here.
bool leadsTo(const std::string& path, int handle) {
    struct stat named {};
    struct stat opened {};
    return ::stat(path.c_str(), &named) == 0 && ::fstat(handle, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

// A file system without locks lets everybody in.
bool isLockedByOthers(int handle) {
    return ::flock(handle, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

} // namespace

EditedFile::EditedFile(std::span<const unsigned char> tree, int version, int64_t size)
    : treeChecksum(0), fileSize(size) {
    std::vector<unsigned char> records(
        tree.begin() + std::min<std::ptrdiff_t>(OPCHeader::Layout::SIZE, std::ssize(tree)), tree.end());
    const auto recordSize = static_cast<size_t>(NodeRecord::sizeFor(version));
    const RecordField<int16_t> count =
        NodeRecord::isStream(version) ? NodeRecord::Stream::POINT_COUNT : NodeRecord::Fixed::POINT_COUNT;
    for (size_t at = 0; records.size() - at >= recordSize; at += recordSize) {
        count.put(std::span(records).subspan(at, recordSize), 0);
    }
    treeChecksum = checksum(records);
}

std::string journalPathFor(const std::string& pointFile) {
    std::error_code failure;
    const std::filesystem::path whole = std::filesystem::canonical(pointFile, failure);
    return failure ? std::string() : whole.string() + ".journal";
}

// ---- EditJournal

// Why no journal can be made at a path, because of what stands there; null if it can.
static const char* whatIsInTheWay(const std::string& path, const EditedFile& target) {
    LeftJournal left;
    switch (left.open(path, false)) {
    case LeftJournal::IN_USE:
        return "another process edits this file";
    case LeftJournal::STRANGE:
    case LeftJournal::UNREADABLE:
        return "there is no room for the journal: a file that is none has its name";
    case LeftJournal::LEFT:
        // A journal without a change was begun and no more.
        if (left.belongsTo(target) && left.next())
            return "unfinished edits are completed when the file is opened again";
        return nullptr;
    case LeftJournal::ABSENT:
        return nullptr;
    }
    return nullptr;
}

bool EditJournal::open(const std::string& pathIn, const EditedFile& target) {
    path = pathIn;
    if (const char* obstacle = whatIsInTheWay(path, target)) {
        setLastError(obstacle);
        return false;
    }
    file.open(path.c_str(), memory_mapped_file::if_exists_just_open, memory_mapped_file::if_doesnt_exist_create);
    const auto header = headerFor(target);
    if (!file.is_open() || isLockedByOthers(file.file_handle()) || !leadsTo(path, file.file_handle()) ||
        !file.resize(0) || !file.write(header.data(), 0, header.size())) {
        setLastError("the journal beside the file can't be written: " + std::string(std::strerror(errno)));
        file.close();
        return false;
    }
    end = HeaderLayout::SIZE;
    sequence = 1;
    return true;
}

bool EditJournal::append(const NodeChange& change) {
    if (change.points.size() > std::numeric_limits<uint32_t>::max()) return false;
    std::array<unsigned char, ChangeLayout::SIZE> head{};
    ChangeLayout::NODE_INDEX.put(head, change.nodeIndex);
    ChangeLayout::POINTS_SIZE.put(head, static_cast<uint32_t>(change.points.size()));
    ChangeLayout::COUNT.put(head, change.count);
    ChangeLayout::POINTS_CHECKSUM.put(head, checksum(change.points));

    std::unique_lock lock(mutex);
    allApplied.wait(lock, [this] { return end <= ENOUGH || pending == 0; });
    if (isNeeded) return false;
    if (end > ENOUGH) end = HeaderLayout::SIZE;
    ChangeLayout::SEQUENCE.put(head, sequence);
    ChangeLayout::CHECKSUM.put(head, checksum(std::span(head).first(ChangeLayout::CHECKSUM.offset)));
    // In one call: whoever has the lock keeps the others waiting.
    const iovec parts[2] = {{head.data(), head.size()},
                            {const_cast<unsigned char*>(change.points.data()), change.points.size()}}; // not written to
    const auto size = static_cast<ssize_t>(head.size() + change.points.size());
    if (::pwritev(file.file_handle(), parts, 2, static_cast<off_t>(end)) != size) {
        const auto at = static_cast<uint64_t>(end);
        if (!file.write(head.data(), at, head.size()) ||
            !file.write(change.points.data(), at + head.size(), change.points.size())) {
            setLastError("the journal beside the file can't be written: " + std::string(std::strerror(errno)));
            return false;
        }
    }
    end += size;
    ++sequence;
    ++pending;
    return true;
}

void EditJournal::applied(bool isWhole) {
    std::lock_guard lock(mutex);
    if (!isWhole) isNeeded = true;
    if (--pending == 0) allApplied.notify_all();
}

void EditJournal::keep() {
    std::lock_guard lock(mutex);
    isNeeded = true;
}

void EditJournal::close() {
    if (file.is_open() && !isNeeded && leadsTo(path, file.file_handle())) ::unlink(path.c_str());
    file.close();
}

// ---- LeftJournal

LeftJournal::State LeftJournal::open(const std::string& pathIn, bool keepOut) {
    path = pathIn;
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) return ABSENT;
    if (!S_ISREG(status.st_mode)) return STRANGE; // opening a pipe would wait
    file.open(path.c_str(), false);
    if (!file.is_open()) return errno == ENOENT ? ABSENT : UNREADABLE;
    if (isLockedByOthers(file.file_handle())) return IN_USE;
    if (!keepOut) ::flock(file.file_handle(), LOCK_UN);
    if (!leadsTo(path, file.file_handle())) return ABSENT;
    // What begins like a journal, or was never begun: a kill cuts it off anywhere, and a failure of power leaves zeros.
    std::array<unsigned char, sizeof(HeaderLayout::MAGIC_VALUE)> magic{};
    std::array<unsigned char, sizeof(HeaderLayout::MAGIC_VALUE)> start{};
    HeaderLayout::MAGIC.put(magic, HeaderLayout::MAGIC_VALUE);
    const size_t known = std::min<size_t>(start.size(), file.file_size());
    if (!file.read(start.data(), 0, known)) return UNREADABLE;
    const auto isCleared = std::all_of(start.begin(), start.end(), [](unsigned char byte) { return byte == 0; });
    return isCleared || std::equal(start.begin(), start.begin() + known, magic.begin()) ? LEFT : STRANGE;
}

bool LeftJournal::belongsTo(const EditedFile& target) const {
    std::array<unsigned char, HeaderLayout::SIZE> header{};
    return file.read(header.data(), 0, header.size()) && header == headerFor(target);
}

std::optional<NodeChange> LeftJournal::next() {
    if (position == 0) position = HeaderLayout::SIZE;
    std::array<unsigned char, ChangeLayout::SIZE> head;
    if (!file.read(head.data(), position, head.size()) ||
        ChangeLayout::CHECKSUM.get(head) != checksum(std::span(head).first(ChangeLayout::CHECKSUM.offset))) {
        return std::nullopt;
    }
    const uint64_t number = ChangeLayout::SEQUENCE.get(head);
    const uint64_t size = ChangeLayout::POINTS_SIZE.get(head);
    const int32_t count = ChangeLayout::COUNT.get(head);
    const uint64_t room = file.file_size() - std::min(file.file_size(), position + head.size());
    if (expected.value_or(number) != number || size > room || count < NodeChange::SAME_COUNT ||
        count > std::numeric_limits<int16_t>::max()) {
        return std::nullopt;
    }
    points.resize(static_cast<size_t>(size));
    if (!file.read(points.data(), position + head.size(), points.size()) ||
        ChangeLayout::POINTS_CHECKSUM.get(head) != checksum(points)) {
        return std::nullopt;
    }
    expected = number + 1;
    position += head.size() + size;
    return NodeChange{ChangeLayout::NODE_INDEX.get(head), static_cast<int16_t>(count), points};
}

void LeftJournal::remove() const {
    if (leadsTo(path, file.file_handle())) ::unlink(path.c_str());
}
