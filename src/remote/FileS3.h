#pragma once

#include "format/PointCloudFile.h"
#include "remote/LRUCache.h"
#include "remote/RequestStop.h"
#include "stream/ReadAhead.h"

#include <atomic>
#include <memory>
#include <vector>

// A point file in the object store as a byte source. Each read is a request for a range of the object, with a cache of
// nodes in front that all such sources share.
class FileS3 final : public PointCloudFile {
public:
    FileS3();

    [[nodiscard]] bool isReadOnly() override { return true; }

    // A path that begins with "https://" is the URL itself; any other is the name of a file in the account, which is
    // signed here and not again. isOpen() tells whether there is a URL; nothing is read.
    void openFile(const std::wstring& path, bool writable, long long start) override;
    [[nodiscard]] bool isOpen() const { return !url.empty(); }
    void closeFile() override {}

    // A disabled source fails all reads.
    void setEnabled(bool value) override { enabled = value; }
    bool readData(char* out, long long nodeIndex, long long byteLocation, int size) override;
    bool readTogether(std::span<const NodeExtent> extents) override;
    bool saveData(const char* in, long long byteLocation, int size) override;
    void readHeader(OPCHeader* header) override;
    [[nodiscard]] bool isNetwork() override { return false; }
    [[nodiscard]] unsigned char* getTreeStructure() override { return treeStructure.data(); }
    [[nodiscard]] int64_t getTreeStructureSize() override { return static_cast<int64_t>(treeStructure.size()); }
    [[nodiscard]] bool backs(int64_t byteLocation, int64_t size) override;
    [[nodiscard]] ReadAhead* readAhead() override { return &ahead; }
    void abandonReads() override { closing.request(); }

private:
    [[nodiscard]] std::vector<unsigned char> readStart(int64_t size);
    [[nodiscard]] bool isSameObject(const std::string& versionSeen) const;
    [[nodiscard]] std::wstring cacheKey(long long nodeIndex) const;

    std::vector<unsigned char> treeStructure;
    std::wstring filename;
    std::string url;
    std::atomic<bool> enabled{true};
    // As the header's read found the object. Settled before any node is read.
    int64_t objectSize = -1;
    std::string version;
    std::wstring contentMark; // tells this state of the object from others of its name, in the cache
    RequestStop closing;
    ReadAhead ahead; // last, so that its readers end before what they use
};

// The stored bytes of nodes, by file name, state of the object and node number. Made before the table of clouds.
using NodeBytes = std::shared_ptr<const std::vector<char>>;
LRUCache<std::wstring, NodeBytes>& dataCache();
