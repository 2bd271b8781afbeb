#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A file that a model is written to: what is appended reaches the file in blocks of a few hundred KiB, where other
// readers see it at once.
//
// The first write that the system refuses, as on a full disk, ends the writing: what follows is dropped, and failed()
// tells. Belongs to one thread.
class ExportFile {
public:
    // Makes the file, or empties the one that is there.
    explicit ExportFile(const std::string& path);
    ~ExportFile() { close(); }
    ExportFile(const ExportFile&) = delete;
    ExportFile& operator=(const ExportFile&) = delete;

    // Neither opened nor written to the end, as far as is known. Closing may still fail.
    [[nodiscard]] bool failed() const { return !problem.empty(); }
    // What the system said; empty unless failed.
    [[nodiscard]] const std::string& reason() const { return problem; }

    // Room for `size` bytes, at most LARGEST_ROOM, to be filled up to a place that is then given to filled(). Valid
    // until the next call.
    [[nodiscard]] char* room(size_t size);
    void filled(const char* end) { used = static_cast<size_t>(end - buffer.data()); }

    void write(std::string_view bytes);

    // Appends zeros. Many of them become a hole in the file, which takes neither time nor disk, where the file system
    // has holes.
    void writeZeros(uint64_t count);

    // Brings everything to the file.
    void flush();

    void close();

    static constexpr size_t LARGEST_ROOM = size_t{1} << 16;

private:
    static constexpr size_t BUFFER_SIZE = size_t{1} << 18;

    void fail();
    [[nodiscard]] bool makeHole(uint64_t count);

    int descriptor;
    std::vector<char> buffer;
    size_t used = 0; // of the buffer
    std::string problem;
};
