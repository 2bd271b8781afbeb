#include "build/OPCDisk.h"

#include "format/EditJournal.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>

namespace {

using memory_mapped_file::writable_mmf;

// A file of size + 1 bytes, all of it a hole.
bool makeFile(writable_mmf& file, const std::wstring& path, int64_t size) {
    file.open(toUtf8(path).c_str(), memory_mapped_file::if_exists_truncate, memory_mapped_file::if_doesnt_exist_create);
    const int openError = errno;
    // A journal of unfinished edits is of a file that is gone.
    if (const std::string journal = journalPathFor(toUtf8(path)); !journal.empty()) {
        if (LeftJournal left; left.open(journal, false) == LeftJournal::LEFT) left.remove();
    }
    logText(std::error_code(0, std::system_category()).message() + "\n");
    errno = openError;
    return file.is_open() && size >= 0 && size < std::numeric_limits<int64_t>::max() &&
           file.resize(static_cast<uint64_t>(size) + 1);
}

int64_t tripled(int64_t size) {
    const double scaled = static_cast<double>(size) * 3.0;
    return scaled < 9.0e18 ? static_cast<int64_t>(scaled) : std::numeric_limits<int64_t>::max();
}

void logFileSystemError(const std::filesystem::filesystem_error& error) {
    logText(std::string("what():  ") + error.what() + "\n" + "path1(): " + error.path1().string() + "\n" +
            "path2(): " + error.path2().string() + "\n" + "code().value():    " + std::to_string(error.code().value()) +
            "\n" + "code().message():  " + error.code().message() + "\n" +
            "code().category(): " + error.code().category().name() + "\n");
}

} // namespace

std::atomic<int64_t> OPCDisk::finalFileSize{0};

OPCDisk::OPCDisk(const std::wstring& path, int64_t size, int blockSizeIn)
    : blockSize(blockSizeIn), outputFilePath(path), scratchFilePath(path + L".scratch") {
    errno = 0;
    if (!makeFile(outputFile, outputFilePath, size)) fail("the output file can't be made");
    errno = 0;
    if (!makeFile(scratchFile, scratchFilePath, tripled(size)))
        fail("the scratch file beside the output can't be made");
}

OPCDisk::~OPCDisk() {
    cleanup();
}

void OPCDisk::noteError(const char* what) {
    const int error = errno;
    if (errorNoted.exchange(true)) return;
    std::string message = what;
    if (error != 0) message += ": " + std::error_code(error, std::system_category()).message();
    setLastError(message);
}

void OPCDisk::fail(const char* what) {
    noteError(what);
    sound = false;
}

int OPCDisk::getNextBlock() {
    std::lock_guard lock(blockMutex);
    if (!releasedBlocks.empty()) {
        const int block = releasedBlocks.top();
        releasedBlocks.pop();
        return block;
    }
    return nextBlock < LARGEST_BLOCK_COUNT ? nextBlock++ : -1;
}

void OPCDisk::releaseBlock(int block) {
    if (block < 0) return;
    std::lock_guard lock(blockMutex);
    releasedBlocks.push(block);
}

uint64_t OPCDisk::blockStart(int block) const {
    return static_cast<uint64_t>(block) * static_cast<uint64_t>(blockSize);
}

bool OPCDisk::readBlock(void* out, int block, int size) {
    if (block < 0 || size < 0 || size > blockSize) return false;
    if (scratchFile.read(out, blockStart(block), static_cast<size_t>(size))) return true;
    fail("the scratch file can't be read");
    return false;
}

bool OPCDisk::writeBlock(const void* in, int block, int offset, int size) {
    if (block < 0 || offset < 0 || size < 0 || offset > blockSize - size) return false;
    errno = 0;
    if (scratchFile.write(in, blockStart(block) + static_cast<uint64_t>(offset), static_cast<size_t>(size)))
        return true;
    noteError("the scratch file can't take more points");
    return false;
}

std::wstring OPCDisk::getOutputPath() const {
    const size_t slash = outputFilePath.rfind(L'/');
    return slash == std::wstring::npos ? outputFilePath : outputFilePath.substr(0, slash + 1);
}

int64_t OPCDisk::writeCompressedData(const void* in, int size) {
    const int64_t position = filePosition.fetch_add(size);
    errno = 0;
    if (outputFile.write(in, static_cast<uint64_t>(position), static_cast<size_t>(size))) return position;
    fail("the output file can't take more data");
    return -1;
}

bool OPCDisk::writeHeader(OPCHeader& header) {
    std::array<char, OPCHeader::Layout::SIZE> image;
    header.getHeaderData(image.data());
    errno = 0;
    if (!outputFile.write(image.data(), 0, image.size())) {
        fail("the header can't be written");
        return false;
    }
    finalFileSize = filePosition.load();
    return true;
}

void OPCDisk::cleanup() {
    if (!isOpen()) return;
    outputFile.close();
    scratchFile.close();
    try {
        std::filesystem::remove(toUtf8(scratchFilePath));
        std::filesystem::resize_file(toUtf8(outputFilePath), static_cast<uintmax_t>(finalFileSize.load()));
    } catch (const std::filesystem::filesystem_error& error) {
        logFileSystemError(error);
    }
    scratchFilePath.clear();
    outputFilePath.clear();
}
