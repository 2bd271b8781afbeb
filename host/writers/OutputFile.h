#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// A file that appears under its name only when it is whole: bytes go to "PATH.part", which finish() renames and the
// destructor removes. Everything throws FileError when the system refuses, a full disk included.
class OutputFile {
public:
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Room for `size` bytes at the end of the file, valid until the next call; the caller fills it at once.
    [[nodiscard]] char* append(size_t size);

    // Gives back what the caller of append() did not use, counted from the end.
    void shrink(size_t unused) { used -= unused; }

    void write(std::string_view bytes);

    // Replaces bytes written before.
    void patch(uint64_t offset, std::string_view bytes);

    // Writes what is buffered and renames the file. Nothing may be written after it.
    void finish();

private:
    void flush();

    std::string path;
    std::string partPath;
    int descriptor = -1;
    std::vector<char> buffer;
    size_t used = 0; // of the buffer
};
