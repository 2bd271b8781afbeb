#include "format/FileMemoryMap.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <system_error>

using memory_mapped_file::base_mmf;

const base_mmf& FileMemoryMap::openMap() const {
    if (readOnly) return readOnlyMap;
    return writableMap;
}

void FileMemoryMap::openFile(const std::wstring& path, bool writable, long long startIn) {
    const std::string name = toUtf8(path);
    start = startIn;
    readOnly = false;
    journalPath = journalPathFor(name);
    if (writable) {
        writableMap.open(name.c_str(), memory_mapped_file::if_exists_just_open,
                         memory_mapped_file::if_doesnt_exist_create);
    }
    if (!writableMap.is_open()) {
        readOnly = true;
        readOnlyMap.open(name.c_str(), false);
    }
    logText(std::error_code(0, std::system_category()).message() + "\n");
}

void FileMemoryMap::closeFile() {
    if (journal.isOpen()) {
        // Before the journal goes; it stays if the disk refuses what it was given.
        if (!writableMap.synchronise()) {
            setLastError("edits did not all reach the disk; they are completed when the file is opened again");
            journal.keep();
        }
        journal.close();
    }
    shown.clear();
    readOnlyMap.close();
    writableMap.close();
    treeStructure = {};
}

bool FileMemoryMap::backs(int64_t byteLocation, int64_t size) {
    const auto fileSize = static_cast<int64_t>(openMap().file_size());
    return byteLocation >= 0 && size >= 0 && byteLocation <= fileSize && size <= fileSize - byteLocation;
}

bool FileMemoryMap::readData(char* out, long long /*nodeIndex*/, long long byteLocation, int size) {
    if (!backs(byteLocation, size)) return false;
    if (const auto change = shown.find(byteLocation); change != shown.end() && std::ssize(change->second) >= size) {
        std::memcpy(out, change->second.data(), static_cast<size_t>(size));
        return true;
    }
    return openMap().read(out, static_cast<uint64_t>(byteLocation), static_cast<size_t>(size));
}

bool FileMemoryMap::saveData(const char* in, long long byteLocation, int size) {
    if (readOnly || !backs(byteLocation, size)) return false;
    return writableMap.write(in, static_cast<uint64_t>(byteLocation), static_cast<size_t>(size));
}

void FileMemoryMap::readHeader(OPCHeader* header) {
    std::vector<unsigned char> image(static_cast<size_t>(header->headerSize));
    if (!openMap().read(image.data(), 0, image.size())) throw std::runtime_error("the header can't be read");
    header->setHeaderData(reinterpret_cast<const char*>(image.data()));

    const int64_t length = NodeRecord::imageSize(*header);
    if (length < header->headerSize || !backs(0, length)) {
        throw std::runtime_error("the file is too short for the tree that its header announces");
    }
    treeStructure.resize(static_cast<size_t>(length));
    if (!openMap().read(treeStructure.data(), 0, treeStructure.size())) {
        throw std::runtime_error("the tree can't be read");
    }
    version = header->version;
    if (version != OPCHeader::VERSION_VOXEL) takeLeftChanges();
}

// ---- Changes of nodes

EditedFile FileMemoryMap::target() const {
    return {treeStructure, version, static_cast<int64_t>(openMap().file_size())};
}

// Makes the journal with the first change. The tree must still be the one that was read: if another process edited the
// file in between, the counts in memory are wrong, and what they lead to would be too.
bool FileMemoryMap::beginEditing() {
    std::lock_guard lock(journalMutex);
    if (journal.isOpen()) return true;
    constexpr size_t RECORDS = OPCHeader::Layout::SIZE;
    std::vector<unsigned char> tree(treeStructure.size());
    if (journalPath.empty() || tree.size() < RECORDS || !journal.open(journalPath, target())) return false;
    if (writableMap.read(tree.data(), 0, tree.size()) &&
        std::equal(tree.begin() + RECORDS, tree.end(), treeStructure.begin() + RECORDS)) {
        return true;
    }
    journal.close();
    setLastError("the file was changed since it was opened; it can be edited when it is opened again");
    return false;
}

bool FileMemoryMap::saveNode(const NodeChange& change, long long pointsLocation, std::span<const unsigned char> record,
                             long long recordLocation) {
    const auto pointsSize = static_cast<int64_t>(change.points.size());
    const auto recordSize = static_cast<int64_t>(record.size());
    if (readOnly) return false;
    // A damaged record can lead anywhere, into the tree too.
    if ((pointsSize > 0 && (pointsLocation < getTreeStructureSize() || !backs(pointsLocation, pointsSize))) ||
        (recordSize > 0 && !backs(recordLocation, recordSize))) {
        setLastError("the file is damaged: points lie outside of it or in its tree");
        return false;
    }
    if (!beginEditing() || !journal.append(change)) return false;
    const bool isWhole =
        writableMap.write(change.points.data(), static_cast<uint64_t>(pointsLocation), change.points.size()) &&
        writableMap.write(record.data(), static_cast<uint64_t>(recordLocation), record.size());
    if (!isWhole) setLastError("the file can't be written; it is completed when it is opened again");
    journal.applied(isWhole);
    return isWhole;
}

// Completes what a killed process began, or shows the file as if it were.
void FileMemoryMap::takeLeftChanges() {
    LeftJournal left;
    const LeftJournal::State state = left.open(journalPath, !readOnly);
    if (state == LeftJournal::UNREADABLE) throw std::runtime_error("the journal of unfinished edits can't be read");
    if (state != LeftJournal::LEFT) return;
    if (left.belongsTo(target())) {
        while (const std::optional<NodeChange> change = left.next()) {
            if (!takeChange(*change)) break;
        }
    }
    if (readOnly) return;
    if (!writableMap.synchronise()) throw std::runtime_error("unfinished edits can't be completed");
    left.remove();
}

// False for what can be no change of this file. Throws std::runtime_error when it can't be written.
bool FileMemoryMap::takeChange(const NodeChange& change) {
    const int64_t recordSize = NodeRecord::sizeFor(version);
    const int64_t nodes = (getTreeStructureSize() - OPCHeader::Layout::SIZE) / recordSize;
    if (change.nodeIndex < 0 || change.nodeIndex >= nodes) return false;
    const int64_t recordLocation = OPCHeader::Layout::SIZE + change.nodeIndex * recordSize;
    const std::span<unsigned char> bytes(treeStructure.data() + recordLocation, static_cast<size_t>(recordSize));
    NodeRecord record = NodeRecord::decode(bytes, version);
    const int64_t location = record.pointDataByteLocation;
    const auto size = static_cast<int64_t>(change.points.size());
    const int64_t most = NodeRecord::isStream(version)
                             ? int64_t{record.diskSize}
                             : int64_t{std::numeric_limits<int16_t>::max()} * record.bytesPerVertex;
    if (size > most || (size > 0 && (location < getTreeStructureSize() || !backs(location, size)))) return false;
    if (change.count != NodeChange::SAME_COUNT) {
        record.pointCount = change.count;
        record.encode(bytes, version);
    }
    if (readOnly) {
        if (size > 0) shown[location].assign(change.points.begin(), change.points.end());
    } else if (!writableMap.write(change.points.data(), static_cast<uint64_t>(location), change.points.size()) ||
               !writableMap.write(bytes.data(), static_cast<uint64_t>(recordLocation), bytes.size())) {
        throw std::runtime_error("unfinished edits can't be completed");
    }
    return true;
}
