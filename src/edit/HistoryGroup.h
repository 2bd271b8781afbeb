#pragma once

#include "format/memory_mapped_file.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class HistoryGroup;
class OPCInterface;
class PointCloudFile;

// What the host recorded, and so what a snapshot of a node holds. Other numbers are accepted and hold nothing.
struct HistoryType {
    static constexpr int SELECTION = 0; // the selection bits
    static constexpr int DELETION = 1;  // the point count, and of a stream's points which are deleted
    static constexpr int POINTS = 2;    // the stored bytes, in a file
};

// One node's share of a group: how the node was when the snapshot was taken.
class HistoryItem {
public:
    HistoryItem() = default;

    // Takes the snapshot that the group's type asks for. Bytes go to the group's backup file.
    HistoryItem(OPCInterface& nodeIn, HistoryGroup& group);

    // Brings the node back to how it was. What can't be had whole, because a backup is gone, short or not of these
    // points any more, leaves the node as it is.
    void restore(int type, const memory_mapped_file::base_mmf& backup) const;

    [[nodiscard]] OPCInterface* getNode() const { return node; }
    [[nodiscard]] int getPointCount() const { return pointCount; }
    [[nodiscard]] const std::vector<bool>& getSelectedPoints() const { return selectedPoints; }
    [[nodiscard]] int64_t getFilePointer() const { return filePointer; }
    [[nodiscard]] const std::vector<bool>& getBitBuffer() const { return bitBuffer; }

private:
    void restoreSelection() const;
    void restoreCount() const;
    void restoreBytes(const memory_mapped_file::base_mmf& backup) const;

    OPCInterface* node = nullptr;     // not owned: a close drops the items of its cloud first
    std::vector<bool> selectedPoints; // type 0
    std::vector<bool> bitBuffer;      // type 1 of a stream: which of the stored points are deleted
    int32_t pointCount = 0;           // at the time of the snapshot
    int64_t filePointer = -1;         // type 2: where the bytes begin in the backup file; -1: they are not there
    int64_t byteCount = 0;            // type 2: bytes there
};

// The snapshots of one action of the host, each node's once, and for type 2 the file with their bytes.
//
// addHistoryItem and backUp may be called from several threads at once; the rest belongs to whoever has the group.
class HistoryGroup {
public:
    explicit HistoryGroup(int typeIn = HistoryType::SELECTION);
    ~HistoryGroup();

    // The source is left without items and without an open file, ready for the next recording.
    HistoryGroup(HistoryGroup&&) noexcept;
    HistoryGroup& operator=(HistoryGroup&&) noexcept;

    [[nodiscard]] int getType() const { return type; }
    void setType(int value); // 2 opens the backup file
    void setPath(std::wstring value) { path = std::move(value); }
    [[nodiscard]] const std::wstring& getBackupPath() const { return backupPath; }

    // Opens a backup file for writing unless one is open, and asks how much room there is on its volume. Its name is
    // `path`, "\undo_" and the next number; the backslash is part of the name on every system, so that the file lies
    // beside the folder. A folder that does not exist has no room.
    void makeBackupFile();
    void closeBackupFile();

    // Whether more than 1 GiB would be left for others. Counted down by an estimate while items are added.
    [[nodiscard]] static bool hasSpace();

    // Appends a node's bytes to the backup file and returns where they begin, or -1 if they did not go there: once that
    // happened, nothing more goes to this file.
    int64_t backUp(const std::vector<unsigned char>& bytes);

    void addHistoryItem(HistoryItem item);
    [[nodiscard]] const std::vector<HistoryItem>& getHistoryItems() const { return items; }
    [[nodiscard]] bool isEmpty() const { return items.empty(); }

    // Drops the items of one cloud's nodes.
    void forget(const PointCloudFile& file);

    // Brings every node back to how it was, and returns the opposite group. Removes the backup file.
    [[nodiscard]] HistoryGroup process();

private:
    struct BackupFile {
        memory_mapped_file::writable_mmf file;
        int64_t end = 0;
        bool failed = false;
    };

    std::vector<HistoryItem> items;
    int32_t type;
    std::wstring path;       // the host's folder
    std::wstring backupPath; // full name of the backup file
    std::unique_ptr<BackupFile> fileStream;
};

// The group being recorded, null while recording is off. One for all nodes, so that an action over many clouds is one
// group; it lies here and not with the engine's state because every node asks for it.
extern std::atomic<HistoryGroup*> history;
extern std::atomic<int> fileCounter;     // of the backup file made last
extern std::atomic<int64_t> dwFreeBytes; // room left for backup files
extern std::mutex m_mutex;               // guards the items of the group being recorded and the end of its backup file
