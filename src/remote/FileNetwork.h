#pragma once

#include "format/PointCloudFile.h"
#include "stream/ReadAhead.h"

#include <atomic>
#include <memory>
#include <vector>

class Network;

// A cloud of a point server as a byte source: header, tree and nodes are asked for as they are needed, and nothing is
// kept of the nodes.
class FileNetwork final : public PointCloudFile {
public:
    FileNetwork();
    ~FileNetwork();

    [[nodiscard]] bool isReadOnly() override { return true; }

    // path  the URL. Makes no request yet. Throws std::exception for one that is no URL with host and port.
    void openFile(const std::wstring& path, bool writable, long long start) override;
    void closeFile() override {}
    void setEnabled(bool value) override { enabled = value; }

    // Fetches a node by its number; the body must be of exactly `size` bytes. The place is that of a file and not used.
    bool readData(char* out, long long nodeIndex, long long byteLocation, int size) override;
    bool saveData(const char* /*in*/, long long /*byteLocation*/, int /*size*/) override { return false; }

    // Leaves the header as it was when the server gives no answer that is JSON.
    void readHeader(OPCHeader* header) override;
    [[nodiscard]] bool isNetwork() override { return true; }
    [[nodiscard]] unsigned char* getTreeStructure() override { return treeStructure.data(); }
    [[nodiscard]] int64_t getTreeStructureSize() override { return static_cast<int64_t>(treeStructure.size()); }

    // A server has nodes and no places.
    [[nodiscard]] bool backs(int64_t byteLocation, int64_t size) override { return byteLocation >= 0 && size >= 0; }
    [[nodiscard]] ReadAhead* readAhead() override { return &ahead; }
    void abandonReads() override;

private:
    std::unique_ptr<Network> network;
    std::vector<unsigned char> treeStructure;
    std::atomic<bool> enabled{true};
    ReadAhead ahead; // last, so that its readers end before what they use
};
