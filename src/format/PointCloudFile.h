#pragma once

#include <cstdint>
#include <span>
#include <string>

class OPCHeader;
struct NodeChange;
class ReadAhead;

// Where the bytes of one point file come from, so that a node does not know whether it is read from a local disk, a
// point server or cloud storage. Held by a shared pointer that is made from the concrete type.
//
// readData, saveNode, readAhead and abandonReads may be called from several threads at once. Everything else belongs to
// whoever opens the source.
class PointCloudFile {
public:
    [[nodiscard]] virtual bool isReadOnly() = 0;
    virtual void openFile(const std::wstring& path, bool writable, long long start) = 0;
    virtual void closeFile() = 0;

    // Tells the source that its cloud was enabled or disabled.
    virtual void setEnabled(bool enabled) = 0;

    // Delivers `size` bytes of a node's data. Sources that fetch by node use `nodeIndex`, those that fetch by offset
    // use `byteLocation`. False unless `out` was filled.
    virtual bool readData(char* out, long long nodeIndex, long long byteLocation, int size) = 0;

    // Writes `size` bytes at `byteLocation` of a writable source; false when nothing or not all was written.
    virtual bool saveData(const char* in, long long byteLocation, int size) = 0;

    // Writes a change of a node as one: a process killed at any instant leaves a file that opens with all of it or with
    // nothing of it. The points go to `pointsLocation`, and `record`, the node's record with the new count, to
    // `recordLocation` unless it is empty. False when the source takes no changes or could not keep this one. Several
    // threads may call it for different nodes.
    virtual bool saveNode(const NodeChange& /*change*/, long long /*pointsLocation*/,
                          std::span<const unsigned char> /*record*/, long long /*recordLocation*/) {
        return false;
    }

    // Fills the header and makes the tree image ready. Throws std::runtime_error when the source does not hold the
    // tree that its header announces.
    virtual void readHeader(OPCHeader* header) = 0;

    // True if the tree has 3-byte records and points are 17-byte records with floats.
    [[nodiscard]] virtual bool isNetwork() = 0;

    // The tree image: the file from offset 0 on, header included, or the 3-byte records of a network source. It is
    // valid until closeFile.
    [[nodiscard]] virtual unsigned char* getTreeStructure() = 0;

    // Bytes of the tree image.
    [[nodiscard]] virtual int64_t getTreeStructureSize() = 0;

    // Whether the source can hold `size` bytes at `byteLocation`: what a damaged record announces is asked here before
    // memory is taken for it.
    [[nodiscard]] virtual bool backs(int64_t byteLocation, int64_t size) = 0;

    // Reads several nodes at once ahead of the disk thread, where answers take long to come; null where that gains
    // nothing. Belongs to the source.
    [[nodiscard]] virtual ReadAhead* readAhead() { return nullptr; }

    // Where the stored points of a node lie.
    struct NodeExtent {
        long long nodeIndex;
        int64_t byteLocation;
        int size;
    };

    // Reads nodes that follow each other without a gap in one go, so that readData finds them in memory. False when
    // that failed; a source that reads each node by itself does nothing.
    virtual bool readTogether(std::span<const NodeExtent> /*extents*/) { return true; }

    // Makes reads that are under way and all later ones fail soon, because the cloud is closing. Any thread.
    virtual void abandonReads() {}

protected:
    ~PointCloudFile() = default;
};
