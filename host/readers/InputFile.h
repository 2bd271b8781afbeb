#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// A regular file opened for reading at any position.
//
// It is read and never mapped: a file that another program shortens ends a read early, while a page of a mapping that
// loses its file kills the process. Reading is callable from any thread.
class InputFile {
public:
    // Throws FileError for a path that does not name a readable regular file, and for an empty file.
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // The size when it was opened.
    [[nodiscard]] uint64_t size() const { return sizeInBytes; }

    // Fills `bytes` from `offset` on and returns how many there were; fewer only at the end of the file. Throws
    // FileError when the system cannot read.
    [[nodiscard]] size_t readAt(uint64_t offset, std::span<std::byte> bytes) const;

    // As readAt(), but a file that ends before `bytes` is full is a FileError: for bytes below size().
    void readWhole(uint64_t offset, std::span<std::byte> bytes) const;

private:
    int descriptor = -1;
    uint64_t sizeInBytes = 0;
};
