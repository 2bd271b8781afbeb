#pragma once

#include "format/PointCloudFile.h"
#include "format/memory_mapped_file.h"

#include <atomic>
#include <vector>

// The local file as a byte source.
//
// It opens through the mapping layer but reads and writes by position: another program may cut the file short while it
// is open, and the disk may fill up, and neither may end the host. A read costs one system call per node.
class FileMemoryMap final : public PointCloudFile {
public:
    [[nodiscard]] bool isReadOnly() override { return readOnly; }

    // Opens for writing where asked and allowed, for reading otherwise; isReadOnly() tells. A file that can't be
    // opened at all leaves the source empty, and every read of it fails.
    void openFile(const std::wstring& path, bool writable, long long start) override;
    void closeFile() override;
    void setEnabled(bool value) override { enabled = value; }
    bool readData(char* out, long long nodeIndex, long long byteLocation, int size) override;

    // Never grows the file.
    bool saveData(const char* in, long long byteLocation, int size) override;
    void readHeader(OPCHeader* header) override;
    [[nodiscard]] bool isNetwork() override { return false; }
    [[nodiscard]] unsigned char* getTreeStructure() override { return treeStructure.data(); }
    [[nodiscard]] int64_t getTreeStructureSize() override { return static_cast<int64_t>(treeStructure.size()); }
    [[nodiscard]] bool backs(int64_t byteLocation, int64_t size) override;

private:
    [[nodiscard]] const memory_mapped_file::base_mmf& openMap() const;

    bool readOnly = false;
    std::vector<unsigned char> treeStructure;
    std::atomic<bool> enabled{true};
    memory_mapped_file::read_only_mmf readOnlyMap;
    memory_mapped_file::writable_mmf writableMap;
    long long start = 0;
};
