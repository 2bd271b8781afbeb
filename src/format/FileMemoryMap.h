#pragma once

#include "format/EditJournal.h"
#include "format/PointCloudFile.h"
#include "format/memory_mapped_file.h"

#include <atomic>
#include <map>
#include <vector>

// The local file as a byte source.
//
// It opens through the mapping layer but reads and writes by position: another program may cut the file short while it
// is open, and the disk may fill up, and neither may end the host. A read costs one system call per node.
//
// Changes of nodes go through a journal (EditJournal.h). One that a killed process left is replayed by readHeader; a
// source that is read-only leaves file and journal alone and shows the file as it would be.
class FileMemoryMap final : public PointCloudFile {
public:
    FileMemoryMap() = default;
    ~FileMemoryMap() { closeFile(); }
    FileMemoryMap(const FileMemoryMap&) = delete;
    FileMemoryMap& operator=(const FileMemoryMap&) = delete;

    [[nodiscard]] bool isReadOnly() override { return readOnly; }

    // Opens for writing where asked and allowed, for reading otherwise; isReadOnly() tells. A file that can't be
    // opened at all leaves the source empty, and every read of it fails.
    void openFile(const std::wstring& path, bool writable, long long start) override;

    // After changes of nodes it waits until they are on the disk.
    void closeFile() override;
    void setEnabled(bool value) override { enabled = value; }
    bool readData(char* out, long long nodeIndex, long long byteLocation, int size) override;

    // Never grows the file.
    bool saveData(const char* in, long long byteLocation, int size) override;
    bool saveNode(const NodeChange& change, long long pointsLocation, std::span<const unsigned char> record,
                  long long recordLocation) override;
    void readHeader(OPCHeader* header) override;
    [[nodiscard]] bool isNetwork() override { return false; }
    [[nodiscard]] unsigned char* getTreeStructure() override { return treeStructure.data(); }
    [[nodiscard]] int64_t getTreeStructureSize() override { return static_cast<int64_t>(treeStructure.size()); }
    [[nodiscard]] bool backs(int64_t byteLocation, int64_t size) override;

private:
    [[nodiscard]] const memory_mapped_file::base_mmf& openMap() const;
    [[nodiscard]] EditedFile target() const;
    [[nodiscard]] bool beginEditing();
    void takeLeftChanges();
    [[nodiscard]] bool takeChange(const NodeChange& change);

    bool readOnly = false;
    std::vector<unsigned char> treeStructure;
    std::atomic<bool> enabled{true};
    memory_mapped_file::read_only_mmf readOnlyMap;
    memory_mapped_file::writable_mmf writableMap;
    long long start = 0;
    int version = 0;                                     // of the file, as of readHeader
    std::string journalPath;                             // empty: there can be none
    std::mutex journalMutex;                             // held while the journal is made
    EditJournal journal;                                 // open from the first change on
    std::map<int64_t, std::vector<unsigned char>> shown; // by location: what the file would hold, were it not read-only
};
