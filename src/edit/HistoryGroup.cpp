#include "edit/HistoryGroup.h"

#include "edit/StoredPoints.h"
#include "format/NodeRecord.h"
#include "ground/Log.h"
#include "ground/Parallel.h"
#include "ground/Pools.h"
#include "stream/OPCInterface.h"

#include <filesystem>
#include <limits>

std::atomic<HistoryGroup*> history{nullptr};
std::atomic<int> fileCounter{0};
std::atomic<int64_t> dwFreeBytes{0};
std::mutex m_mutex;

namespace {
constexpr int64_t LEAST_FREE_BYTES = (int64_t{1} << 30) + 1;
} // namespace

// ---- HistoryItem

HistoryItem::HistoryItem(OPCInterface& nodeIn, HistoryGroup& group) : node(&nodeIn), pointCount(node->getPointCount()) {
    const int type = group.getType();
    if (type == HistoryType::SELECTION) {
        selectedPoints = node->getSelectionBits();
        return;
    }
    const bool hasMarks = type == HistoryType::DELETION && NodeRecord::isStream(node->getVersion());
    if (type != HistoryType::POINTS && !hasMarks) return;
    std::vector<unsigned char> stored;
    if (!node->loadPointData(stored)) return;
    if (hasMarks) {
        bitBuffer = deletedMarks(stored, node->getOriginalPointCount());
    } else {
        byteCount = static_cast<int64_t>(stored.size());
        filePointer = group.backUp(stored);
    }
}

void HistoryItem::restore(int type, const memory_mapped_file::base_mmf& backup) const {
    if (type == HistoryType::SELECTION) {
        restoreSelection();
    } else if (!node->isWritable()) {
        return;
    } else if (type == HistoryType::DELETION) {
        restoreCount();
    } else if (type == HistoryType::POINTS) {
        restoreBytes(backup);
    }
}

void HistoryItem::restoreSelection() const {
    node->setSelectionBits(selectedPoints);
    node->resetSelectionColours();
}

void HistoryItem::restoreCount() const {
    std::vector<unsigned char> stored; // stays empty where the count alone changes
    bool changed = pointCount != node->getPointCount();
    if (NodeRecord::isStream(node->getVersion())) {
        if (!node->loadPointData(stored)) return;
        const int count = node->getOriginalPointCount();
        // Marks that were not read, or are those of other bytes, would leave marks and count apart.
        if (deletedMarks(stored, count).size() != bitBuffer.size()) return;
        changed |= setDeletedMarks(stored, count, bitBuffer);
    }
    if (changed && node->savePoints(stored, static_cast<short>(pointCount))) node->unload(false);
}

void HistoryItem::restoreBytes(const memory_mapped_file::base_mmf& backup) const {
    std::vector<unsigned char> stored;
    if (filePointer < 0 || !node->loadPointData(stored) || static_cast<int64_t>(stored.size()) != byteCount) return;
    std::vector<unsigned char> saved(stored.size());
    if (!backup.read(saved.data(), static_cast<uint64_t>(filePointer), saved.size())) return;
    // A deletion that was not undone first can have put other points where these were.
    const bool isOfThesePoints = NodeRecord::isStream(node->getVersion())
                                     ? takeMarks(saved, stored)
                                     : haveSamePlaces(saved, stored, node->getBytesPerVertex());
    if (!isOfThesePoints || !node->savePointData(saved)) return;
    node->unload(false);
}

// ---- HistoryGroup

HistoryGroup::HistoryGroup(int typeIn) : type(typeIn) {}
HistoryGroup::~HistoryGroup() = default;
HistoryGroup::HistoryGroup(HistoryGroup&&) noexcept = default;
HistoryGroup& HistoryGroup::operator=(HistoryGroup&&) noexcept = default;

void HistoryGroup::setType(int value) {
    type = value;
    if (type == HistoryType::POINTS) makeBackupFile();
}

void HistoryGroup::makeBackupFile() {
    if (fileStream) return;
    backupPath = path + L"\\undo_" + std::to_wstring(++fileCounter);
    fileStream = std::make_unique<BackupFile>();
    fileStream->file.open(toUtf8(backupPath).c_str(), memory_mapped_file::if_exists_truncate,
                          memory_mapped_file::if_doesnt_exist_create);
    fileStream->failed = !fileStream->file.is_open();
    std::error_code failure;
    const std::filesystem::space_info space = std::filesystem::space(toUtf8(path), failure);
    const bool isKnown = !failure && space.available <= std::numeric_limits<int64_t>::max();
    dwFreeBytes = isKnown ? static_cast<int64_t>(space.available) : 0;
}

void HistoryGroup::closeBackupFile() {
    fileStream.reset();
}

bool HistoryGroup::hasSpace() {
    return dwFreeBytes >= LEAST_FREE_BYTES;
}

int64_t HistoryGroup::backUp(const std::vector<unsigned char>& bytes) {
    int64_t position = -1;
    {
        std::lock_guard lock(m_mutex);
        if (!fileStream || fileStream->failed) return -1;
        position = fileStream->end;
        fileStream->end += static_cast<int64_t>(bytes.size());
    }
    // The place is taken, so that the bytes of several nodes are written at once.
    if (fileStream->file.write(bytes.data(), static_cast<uint64_t>(position), bytes.size())) return position;
    std::lock_guard lock(m_mutex);
    fileStream->failed = true;
    setLastError("the backup file of the history can't be written, so that not all can be undone");
    return -1;
}

void HistoryGroup::addHistoryItem(HistoryItem item) {
    std::lock_guard lock(m_mutex);
    if (type == HistoryType::POINTS) {
        const auto count = static_cast<uint32_t>(item.getPointCount());
        dwFreeBytes -= static_cast<int32_t>(count * item.getNode()->getBytesPerVertex());
    }
    items.push_back(std::move(item));
}

void HistoryGroup::forget(const PointCloudFile& file) {
    std::erase_if(items, [&file](const HistoryItem& item) { return item.getNode()->isFrom(file); });
}

HistoryGroup HistoryGroup::process() {
    HistoryGroup opposite(type);
    memory_mapped_file::read_only_mmf backup;
    if (type == HistoryType::POINTS) {
        opposite.setPath(path);
        opposite.makeBackupFile();
        backup.open(toUtf8(backupPath).c_str(), false);
    }
    std::vector<HistoryItem> taken(items.size());
    forEachInParallel(processingPool(), items.size(), [&](size_t i) {
        taken[i] = HistoryItem(*items[i].getNode(), opposite);
        items[i].restore(type, backup);
    });
    for (HistoryItem& item : taken) opposite.addHistoryItem(std::move(item));
    if (type == HistoryType::POINTS) {
        backup.close();
        std::error_code failure;
        std::filesystem::remove(toUtf8(backupPath), failure);
        opposite.closeBackupFile();
    }
    return opposite;
}
