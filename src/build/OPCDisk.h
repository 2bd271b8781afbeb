#pragma once

#include "format/memory_mapped_file.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <queue>
#include <string>
#include <vector>

class OPCHeader;

// The two files of a build: the output, which becomes the point file, and beside it the scratch file, whose blocks hold
// the raw points of the leaves until compile has turned them into node data.
//
// Both start as holes of a size that suits the announced points and grow as needed. Everything is written by position
// rather than through a map, so that a full disk is an error of one call and not a signal. What went wrong first goes
// to setLastError. Blocks and appended data may be written from several threads at once; a block has one writer.
class OPCDisk {
public:
    // Bytes of a block of a point build: what a full leaf holds.
    static constexpr int POINTS_BUFFER_SIZE_2 = 278511;
    static constexpr int64_t LARGEST_BLOCK_COUNT = 1000000000;

    // Makes both files, the scratch file three times as long as `size` bytes. isSound() tells whether that worked.
    OPCDisk(const std::wstring& path, int64_t size, int blockSize);
    virtual ~OPCDisk(); // cleanup
    OPCDisk(const OPCDisk&) = delete;
    OPCDisk& operator=(const OPCDisk&) = delete;

    // The lowest free block, now in use; -1 when none is left.
    int getNextBlock();
    // Frees a block; -1 is ignored.
    void releaseBlock(int block);

    // Until cleanup, whatever became of the files.
    [[nodiscard]] bool isOpen() const { return !scratchFilePath.empty(); }
    // Whether a sound point file can still come of it: both files were made, every block was read back, and the output
    // took everything. A block that could not be written does not count, since its points were refused.
    [[nodiscard]] bool isSound() const { return sound; }

    // `size` bytes from the start of a block, or to `offset` within it; false when the file can't give or take them.
    bool readBlock(void* out, int block, int size);
    bool writeBlock(const void* in, int block, int offset, int size);

    // The folder of the output with its final '/', or the whole path where there is none.
    [[nodiscard]] std::wstring getOutputPath() const;

    // Where writeCompressedData goes next.
    void seekPosition(int64_t position) { filePosition = position; }
    [[nodiscard]] int64_t getFilePosition() const { return filePosition; }

    // Appends to the output and returns the offset at which the data stands, -1 when the file could not take it.
    int64_t writeCompressedData(const void* in, int size);

    // Writes the header at offset 0 and fixes the final size of the output at the present position: all node data must
    // be written by then, and only what goes in front of it may follow.
    bool writeHeader(OPCHeader& header);

    // Closes the files, removes the scratch file and cuts the output to its final size. That size outlives the
    // instance: a build that never wrote its header leaves the length of the last one that did, 0 at first.
    void cleanup();

private:
    void noteError(const char* what);
    void fail(const char* what);
    [[nodiscard]] uint64_t blockStart(int block) const;

    static std::atomic<int64_t> finalFileSize;

    const int blockSize;
    std::wstring outputFilePath;  // empty when closed
    std::wstring scratchFilePath; // empty when closed
    memory_mapped_file::writable_mmf outputFile;
    memory_mapped_file::writable_mmf scratchFile;
    std::atomic<bool> sound{true};
    std::atomic<bool> errorNoted{false};
    std::atomic<int64_t> filePosition{0};

    // Blocks below nextBlock that are free, lowest first. Together they name the lowest free block in logarithmic time
    // and in memory for the released blocks alone.
    std::mutex blockMutex; // guards the two below
    std::priority_queue<int, std::vector<int>, std::greater<>> releasedBlocks;
    int nextBlock = 0;
};
